// What a process holds, so that a long run can show that it holds no more at its end than it did
// once it was warm.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <malloc.h>
#include <orv/platform.h>
#include <sys/wait.h>
#include <unistd.h>

namespace soak {

inline void expect(bool holds, const char *what) {
  if (holds)
    return;
  fprintf(stderr, "soak: %s\n", what);
  exit(1);
}

// Starts the program again with a heap that keeps no released blocks aside, which would count as
// being in use.
inline void count_every_block(char **argv) {
  constexpr char kVariable[] = "GLIBC_TUNABLES";
  if (getenv(kVariable) == nullptr) {
    setenv(kVariable, "glibc.malloc.tcache_count=0", 1);
    execv("/proc/self/exe", argv);
  }
  mallopt(M_MXFAST, 0);
}

inline int open_descriptors() {
  int count = 0;
  DIR *folder = opendir("/proc/self/fd");
  expect(folder != nullptr, "the descriptors cannot be listed");
  while (readdir(folder) != nullptr)
    count++;
  closedir(folder);
  return count - 3; // the folder, its parent, and the descriptor that reads it
}

struct Level {
  size_t heap_bytes; // in blocks that are not given back
  int descriptors;
  uint64_t resident_kb; // told, not judged: the system decides what stays in memory
};

inline Level level() {
  Level now = {.heap_bytes = 0, .descriptors = open_descriptors(), .resident_kb = 0};
  const struct mallinfo2 heap = mallinfo2();
  now.heap_bytes = heap.uordblks + heap.hblkhd;
  platform_process_memory(-1, nullptr, &now.resident_kb);
  return now;
}

inline void expect_level(const Level &warm) {
  const Level now = level();
  printf("heap %zu and %zu bytes, descriptors %d and %d, resident %lu and %lu KB\n",
         warm.heap_bytes, now.heap_bytes, warm.descriptors, now.descriptors, warm.resident_kb,
         now.resident_kb);
  expect(now.heap_bytes == warm.heap_bytes, "the heap has grown");
  expect(now.descriptors == warm.descriptors, "descriptors are left open");
}

inline void expect_no_children() {
  expect(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD, "a child process is left");
}

// The first argument as a count.
inline long count_of(int argc, char **argv, long otherwise) {
  return argc > 1 ? atol(argv[1]) : otherwise;
}

} // namespace soak
