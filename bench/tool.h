// A tool of the system, run as a user would run it by hand.
#pragma once

#include "bench.h"

#include <sys/wait.h>
#include <unistd.h>

namespace tool {

// Whether the tool ended well. Null arguments at the end are left out.
inline bool run(const char *path, const char *first, const char *second,
                const char *third = nullptr) {
  const pid_t pid = fork();
  if (pid == 0) {
    execl(path, path, first, second, third, nullptr);
    _exit(1);
  }
  int status = -1;
  return pid > 0 && waitpid(pid, &status, 0) == pid && status == 0;
}

} // namespace tool
