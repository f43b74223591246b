// The sanitizers' settings for fuzzing, where blocks are taken and given back by the million: a
// small quarantine stays in the cache, and nobody looks at most call stacks. A found case is better
// replayed with ASAN_OPTIONS=malloc_context_size=30.
#include <sanitizer/asan_interface.h>

extern "C" const char *__asan_default_options() {
  return "quarantine_size_mb=1:thread_local_quarantine_size_kb=64:malloc_context_size=1:"
         "max_malloc_fill_size=64:allocator_release_to_os_interval_ms=-1";
}
