// A stretch of the library's own running. While it lasts, interposed calls answer for the system;
// outside, and in the fuzzing engine's other threads, they pass on to it.
#pragma once

#include <csetjmp>

namespace library_run {

inline thread_local bool active = false;
inline jmp_buf way_back;
inline bool refuses_storage = false; // to the library's malloc, where that is wrapped

// Runs `call` and returns its result.
template <typename Call> auto run(Call call) {
  active = true;
  const auto result = call();
  active = false;
  return result;
}

// Runs `call`, which may leave by leave(). True when it returned by itself.
template <typename Call> bool returns(Call call) {
  if (setjmp(way_back) != 0) {
    active = false;
    return false;
  }
  active = true;
  call();
  active = false;
  return true;
}

// For interposed calls that do not come back, such as exit.
[[noreturn]] inline void leave() {
  longjmp(way_back, 1);
}

// Gives back what the library has taken with malloc and strdup while it was run and still holds.
// (In library_run.cpp; malloc, strdup and free must be wrapped.)
void release_left_blocks();

} // namespace library_run
