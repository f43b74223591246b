// Where a benchmark writes to.
#pragma once

#include "bench.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace bench {

// A path that can be opened for writing: that of the parameter, or for "tmpfs" that of a file in
// memory without a name, which is gone when the program ends.
inline const char *target_path(const Job &job) {
  if (strcmp(job.parameter, "tmpfs") != 0)
    return job.parameter;
  const int file = open("/dev/shm", O_TMPFILE | O_RDWR, 0600);
  if (file < 0)
    die("/dev/shm");
  static char path[32];
  snprintf(path, sizeof path, "/dev/fd/%d", file);
  return path;
}

inline FILE *open_target(const Job &job) {
  FILE *stream = fopen(target_path(job), "w");
  if (stream == nullptr)
    die(job.parameter);
  return stream;
}

// Lets standard error lead to the target.
inline void redirect_errors_to_target(const Job &job) {
  const int file = open(target_path(job), O_WRONLY | O_APPEND);
  if (file < 0 || dup2(file, STDERR_FILENO) < 0)
    die(job.parameter);
}

} // namespace bench
