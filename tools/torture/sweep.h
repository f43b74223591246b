// The sweep: every call of every kind refused in every way, one a run.
#pragma once

#include "run.h"

namespace torture {

// The exit status of orv-torture.
int sweep(const Options &options, Record *record);

} // namespace torture
