// One run of the program under the layer.
#pragma once

#include "control.h"
#include "options.h"

namespace torture {

struct End {
  int status; // as waitpid tells it
  bool hung;  // the time was over, and the run was killed
};

// Makes the record that the layer will find, and readies the environment of the runs. Ends the
// process where that cannot be done.
Record *set_up();

// Runs the program once under this order; the record then holds what came of it. Alone: the program
// gets the null device for its standard streams, and whatever processes it leaves are ended.
End run_once(const Options &options, const Order &order, bool alone, Record *record);

} // namespace torture
