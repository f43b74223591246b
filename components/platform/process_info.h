// What process_info makes of the numbers that the system gives: kept apart from the system calls
// so that every rounding and every shape of a status line can be tried.
#pragma once

#include <cstdint>

namespace orv::platform {

struct ProcessStatus {
  uint64_t virtual_bytes;
  uint64_t resident_pages;
};

// Takes apart a line of /proc/<pid>/stat. What the line does not hold is 0.
[[nodiscard]] ProcessStatus parse_process_status(const char *line);

[[nodiscard]] double kilobytes_per_page(int page_size);

// Rounded up.
[[nodiscard]] uint64_t kilobytes_of_bytes(uint64_t bytes);

// Rounded down.
[[nodiscard]] uint64_t kilobytes_of_pages(uint64_t pages, double kilobytes_per_page);

} // namespace orv::platform
