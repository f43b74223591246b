// The calls that format a text into a block: the block grows until the text fits.
#include "alloc/debug_records.h"
#include "alloc/state.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <orv/alloc.h>

using namespace orv::alloc;

namespace {

constexpr const char *kFormatter = "orv_vprintf_strdup";
constexpr int64_t kFirstCapacity = 16;

[[gnu::format(printf, 3, 0)]] int format_once(char *buffer, int64_t capacity, const char *format,
                                              va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int length = vsnprintf(buffer, static_cast<size_t>(capacity), format, copy);
  va_end(copy);
  return length;
}

// When the growth is refused (and a failure handler lets the program go on) the record of the old
// buffer is gone already, so that only its storage remains to be given back.
char *grow_buffer(char *buffer, int64_t capacity) {
  auto *grown = static_cast<char *>(
      orv_realloc(buffer, static_cast<size_t>(capacity), kFormatter, "buffer resize"));
  if (grown == nullptr)
    free(is_debugging() ? system_address(buffer) : buffer);
  return grown;
}

} // namespace

char *orv_vprintf_strdup(const char *format, va_list args) {
  errno = 0;
  auto *buffer = static_cast<char *>(
      orv_malloc(static_cast<size_t>(kFirstCapacity), kFormatter, "buffer allocation"));
  int64_t capacity = kFirstCapacity;
  while (buffer != nullptr) {
    const int length = format_once(buffer, capacity, format, args);
    // Kept: a text that just fills the buffer counts as not fitting.
    if (length >= 0 && length < capacity - 1)
      return buffer;
    if (length < 0 && errno != 0 && errno != ERANGE) {
      orv_free(buffer);
      return nullptr;
    }
    errno = 0;
    capacity = length < capacity ? 2 * capacity : static_cast<int64_t>(length) + 2;
    buffer = grow_buffer(buffer, capacity);
  }
  return nullptr;
}

char *orv_printf_strdup(const char *format, ...) {
  va_list args;
  va_start(args, format);
  char *text = orv_vprintf_strdup(format, args);
  va_end(args);
  return text;
}
