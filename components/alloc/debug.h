// The steps that the allocation calls run once debug mode is on.
#pragma once

#include "alloc/site.h"

namespace orv::alloc {

// Ends the process when any live block is damaged, after a warning for each.
void end_unless_heap_is_sound(const alloc_site &site);

// Gives back the record of a block that is about to be released or resized, and returns the
// recorded length; ends the process when the block is not a sound one.
uint64_t free_debug_info(void *pointer, const alloc_site &site);

} // namespace orv::alloc
