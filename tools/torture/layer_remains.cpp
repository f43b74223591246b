// What the program leaves when it ends by itself: descriptors, and children that run or that nobody
// has waited for. Everything is read from /proc, by system calls that the layer does not stand in
// front of.
#include "layer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace torture {
namespace {

constexpr size_t kPathSize = 64;

struct Entry { // as getdents64 writes it
  uint64_t inode;
  int64_t position;
  unsigned short length;
  unsigned char type;
  char name[1]; // and further
};

// The files of a folder whose names are numbers.
int count_numbers_in(const char *folder) {
  const long fd = syscall(SYS_open, folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd < 0)
    return 0;
  alignas(Entry) char area[4096];
  int count = 0;
  long length;
  while ((length = syscall(SYS_getdents64, fd, area, sizeof area)) > 0)
    for (long at = 0; at < length; at += reinterpret_cast<Entry *>(area + at)->length)
      count += reinterpret_cast<Entry *>(area + at)->name[0] != '.' ? 1 : 0;
  syscall(SYS_close, fd);
  return count;
}

// The beginning of a file as a string, empty where there is none.
void read_start(const char *path, char *area, size_t size) {
  area[0] = '\0';
  const long fd = syscall(SYS_open, path, O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0)
    return;
  const long length = syscall(SYS_read, fd, area, size - 1);
  area[length > 0 ? length : 0] = '\0';
  syscall(SYS_close, fd);
}

bool has_ended(int process) {
  char path[kPathSize];
  snprintf(path, sizeof path, "/proc/%d/stat", process);
  char status[256];
  read_start(path, status, sizeof status);
  const char *name_end = strrchr(status, ')');
  return name_end != nullptr && strncmp(name_end, ") Z", 3) == 0;
}

void count_children(int process, Remains &remains) {
  char path[kPathSize];
  snprintf(path, sizeof path, "/proc/%d/task/%d/children", process, process);
  char list[4096];
  read_start(path, list, sizeof list);
  char *rest = list;
  for (const char *at = list; *at != '\0'; at = rest) {
    const long child = strtol(at, &rest, 10);
    if (rest == at) // the blank after the last one
      return;
    remains.children++;
    remains.zombies += has_ended(static_cast<int>(child)) ? 1 : 0;
  }
}

} // namespace

void report_remains() {
  Record *const shared = record();
  const int process = static_cast<int>(syscall(SYS_getpid));
  if (shared == nullptr || process != shared->first_process)
    return;
  Remains remains = {};
  remains.descriptors = count_numbers_in("/proc/self/fd") - 1; // the folder itself was open
  count_children(process, remains);
  remains.known = true;
  shared->remains = remains;
}

[[gnu::destructor]] static void report_at_exit() {
  report_remains();
}

} // namespace torture
