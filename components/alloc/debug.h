// The steps that the allocation calls run once debug mode is on.
#pragma once

#include "alloc/site.h"

namespace orv::alloc {

// In heap-verification mode: ends the process, after a warning for each, when any live block is
// damaged.
void check_heap_before_allocation(const alloc_site &site);

// Gives back the record of a block that is about to be released or resized; ends the process when
// the block is not a sound one.
void free_debug_info(void *pointer, const alloc_site &site);

} // namespace orv::alloc
