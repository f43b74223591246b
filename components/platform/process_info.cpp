// Process information: whether a process exists and how much memory it uses, from /proc, and the
// thin wrappers that the rest of the platform layer calls instead of the system.
#include "platform/process_info.h"

#include "common/guards.h"

#include <cstdio>
#include <fcntl.h>
#include <orv/diag.h>
#include <orv/platform.h>
#include <unistd.h>

namespace orv::platform {
namespace {

constexpr size_t kPathBytes = 1024;
constexpr size_t kLineBytes = 1024;

// The 34 leading fields of a status line; fields 23 and 24 are kept, the others passed over.
// Kept: the command name is read as one word. A name with a blank takes the place of the fields
// behind it, and what is found where the sizes should be counts as the sizes.
constexpr const char *kStatusFormat = "%*d %*s %*c %*d %*d %*d %*d %*d %*u" // 1 to 9: to flags
                                      " %*u %*u %*u %*u %*d %*d %*d %*d"    // 10 to 17: to times
                                      " %*d %*d %*u %*u %*d %lu %lu"        // 18 to 24: to sizes
                                      " %*u %*u %*u %*u %*u %*u %*d %*d %*d %*u"; // 25 to 34

bool can_be_opened(const char *path) {
  const DescriptorGuard opened(open(path, O_RDONLY));
  return opened.get() >= 0;
}

// Reads the status line of the process. The result is null, or says what failed.
const char *read_status_line(int pid, char *line) {
  char path[kPathBytes];
  snprintf(path, sizeof path, "/proc/%d", pid);
  if (!can_be_opened(path))
    return "Can't open pinfo file";
  snprintf(path, sizeof path, "/proc/%d/stat", pid);
  const StreamGuard status(fopen(path, "r"));
  if (status.get() == nullptr)
    return "Can't open pinfo stat file";
  return fgets(line, kLineBytes, status.get()) != nullptr ? nullptr : "Can't read pinfo stat file";
}

} // namespace

ProcessStatus parse_process_status(const char *line) {
  unsigned long virtual_bytes = 0;
  unsigned long resident_pages = 0;
  sscanf(line, kStatusFormat, &virtual_bytes, &resident_pages);
  return {.virtual_bytes = virtual_bytes, .resident_pages = resident_pages};
}

// Kept: a page size of 1 stands for pages of one kilobyte.
double kilobytes_per_page(int page_size) {
  return page_size == 1 ? 1.0 : page_size * 0.0009765625;
}

uint64_t kilobytes_of_bytes(uint64_t bytes) {
  return (bytes + 1023) >> 10;
}

// A product that no 64-bit integer holds has no bits left in range: 0, as the processor's own
// conversion through the unsigned range gives.
uint64_t kilobytes_of_pages(uint64_t pages, double kilobytes_per_page) {
  const double kilobytes = static_cast<double>(pages) * kilobytes_per_page;
  return kilobytes < 0x1p64 ? static_cast<uint64_t>(kilobytes) : 0;
}

} // namespace orv::platform

using namespace orv::platform;

int platform_process_exists(int pid) {
  char path[kPathBytes];
  snprintf(path, sizeof path, "/proc/%lu", static_cast<unsigned long>(static_cast<long>(pid)));
  return can_be_opened(path) ? 1 : 0;
}

int platform_process_memory(int pid, uint64_t *virtual_kb, uint64_t *resident_kb) {
  char line[kLineBytes];
  const char *failure = read_status_line(pid < 0 ? getpid() : pid, line);
  if (failure != nullptr) {
    diag_perror(failure);
    return 0;
  }
  const double page_kilobytes = kilobytes_per_page(platform_page_size());
  const ProcessStatus status = parse_process_status(line);
  if (virtual_kb != nullptr)
    *virtual_kb = kilobytes_of_bytes(status.virtual_bytes);
  if (resident_kb != nullptr)
    *resident_kb = kilobytes_of_pages(status.resident_pages, page_kilobytes);
  return 1;
}

unsigned int platform_sleep(unsigned int seconds) {
  return sleep(seconds);
}

int platform_page_size() {
  return static_cast<int>(sysconf(_SC_PAGESIZE));
}

int platform_getpid() {
  return getpid();
}
