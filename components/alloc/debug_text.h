// The sentences of debug mode. Each lives in a static area that the next of its kind overwrites.
#pragma once

#include "alloc/debug_records.h"
#include "alloc/site.h"

namespace orv::alloc {

enum class Wording { ordinary, after_release };

// Says what is known of a pointer: a verdict, and by whom the block was allocated. `given` is the
// record that the caller takes the pointer from, or null. Reads the 8 bytes before an aligned
// pointer.
[[nodiscard]] const char *describe_ptr(const void *pointer, const debug_info *given,
                                       Wording wording);

// Says in which call the process is, as far as the call's site tells.
[[nodiscard]] const char *compose_site_sentence(const alloc_site &site);

} // namespace orv::alloc
