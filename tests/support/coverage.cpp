// Keeps the counts of processes that end without the exit handlers: a coverage build writes its
// counts at exit, and would not see what led to _exit, abort, a failed assertion or another
// program. Nothing is refused to the writing of the counts.
#include "support/system.h"

#include <cstdlib>

extern "C" {
#include <gcov.h>

[[noreturn]] void __real__exit(int status);
[[noreturn]] void __real_abort();
[[noreturn]] void __real___assert_fail(const char *expression, const char *file, unsigned line,
                                       const char *function);
int __real_execv(const char *path, char *const *argv);
int __real_execvp(const char *file, char *const *argv);
}

namespace {

// What exit does by itself, after the handlers.
[[maybe_unused]] const int kRegistered = atexit(support::refuse_nothing);

void write_counts() {
  support::refuse_nothing();
  __gcov_dump();
  __gcov_reset(); // an exec that fails comes back, and ends by writing them again
}

} // namespace

extern "C" {
[[noreturn]] void __wrap__exit(int status) {
  write_counts();
  __real__exit(status);
}

[[noreturn]] void __wrap_abort() {
  write_counts();
  __real_abort();
}

[[noreturn]] void __wrap___assert_fail(const char *expression, const char *file, unsigned line,
                                       const char *function) {
  write_counts();
  __real___assert_fail(expression, file, line, function);
}

// Weak: a test may have an execvp of its own.
[[gnu::weak]] int __wrap_execv(const char *path, char *const *argv) {
  write_counts();
  return __real_execv(path, argv);
}

[[gnu::weak]] int __wrap_execvp(const char *file, char *const *argv) {
  write_counts();
  return __real_execvp(file, argv);
}
}
