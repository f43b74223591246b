// Where a benchmark writes to.
#pragma once

#include "bench.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace bench {

// A path that can be opened for writing: the one that is asked for, or for "tmpfs" that of a file
// in memory without a name, which is gone when the program ends. Who wants to see what is written
// names another in the environment.
inline const char *target_path(const char *name) {
  const char *asked_for = getenv("BENCH_TARGET");
  if (asked_for != nullptr)
    return asked_for;
  if (strcmp(name, "tmpfs") != 0)
    return name;
  const int file = open("/dev/shm", O_TMPFILE | O_RDWR, 0600);
  if (file < 0)
    die("/dev/shm");
  static char path[32];
  snprintf(path, sizeof path, "/dev/fd/%d", file);
  return path;
}

inline FILE *open_target(const char *name) {
  FILE *stream = fopen(target_path(name), "w");
  if (stream == nullptr)
    die(name);
  return stream;
}

// Lets standard error lead to the target.
inline void redirect_errors_to_target(const Job &job) {
  const int file = open(target_path(job.parameter), O_WRONLY | O_APPEND);
  if (file < 0 || dup2(file, STDERR_FILENO) < 0)
    die(job.parameter);
}

} // namespace bench
