// What the benchmarks of companion processes share: the companion's program, what it does and what
// it is asked.
#pragma once

#include "connection.h"

#include <cstdio>
#include <cstring>

namespace companion {

constexpr int kSize = 64; // bytes that go there and back
constexpr int kThirdDescriptor = 3;

constexpr long kCallsAnExchange = 2; // one that sends and one that receives

// Of the program beside this one.
inline const char *path() {
  static char path[4096];
  if (path[0] == '\0') {
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - sizeof "companion");
    if (length <= 0)
      bench::die("/proc/self/exe");
    path[length] = '\0';
    strcpy(strrchr(path, '/') + 1, "companion");
  }
  return path;
}

// Sends back what comes, until nothing more does. Ends the process.
[[noreturn]] inline void serve(int fd) {
  char bytes[kSize];
  ssize_t length;
  while ((length = recv(fd, bytes, sizeof bytes, 0)) > 0)
    bench::send_all(fd, bytes, static_cast<size_t>(length));
  _exit(0);
}

// There and back once.
inline void ask(int fd) {
  char bytes[kSize] = {};
  bench::send_all(fd, bytes, sizeof bytes);
  if (recv(fd, bytes, sizeof bytes, MSG_WAITALL) != kSize)
    bench::die("the companion's answer");
}

} // namespace companion
