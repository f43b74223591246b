// The text of a message: the format expanded into a heap buffer that grows until it fits, or into
// the reserve when the heap refuses.
#include "common/guards.h"
#include "messages/state.h"
#include "messages/writer.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace orv::messages {
namespace {

constexpr size_t kFirstSize = 10000;

int format_into(char *buffer, size_t size, const char *format, va_list args, int entry_errno) {
  va_list copy;
  va_copy(copy, args);
  errno = entry_errno; // for %m
  const int length = vsnprintf(buffer, size, format, copy);
  va_end(copy);
  return length;
}

[[nodiscard]] bool fits(int length, size_t size) {
  return length >= 0 && static_cast<size_t>(length) < size - 1;
}

// A failure that names no other reason is taken for a buffer that is too small, as long as a
// larger one could help: no text is longer than an int can tell.
[[nodiscard]] bool may_fit_a_larger_buffer(int length, size_t size, int entry_errno) {
  if (length >= 0)
    return true;
  const bool unset = errno == 0 || errno == entry_errno;
  return (unset || errno == ERANGE) && size <= INT_MAX;
}

[[nodiscard]] size_t next_size(int length, size_t size) {
  if (length < 0 || static_cast<size_t>(length) < size)
    return size * 2;
  return static_cast<size_t>(length) + 2;
}

[[nodiscard]] Text the_format_itself(const char *format) {
  return {.characters = format, .block = nullptr, .reserved = 0};
}

// Messages nest like calls, so what they hold of the reserve is given back in reverse order.
[[nodiscard]] Text expand_in_reserve(const char *format, va_list args, int entry_errno) {
  char *free_part = state.reserve + state.reserve_used;
  const size_t size = kReserveSize - state.reserve_used;
  if (size == 0)
    return the_format_itself(format);
  const int length = format_into(free_part, size, format, args, entry_errno);
  if (length < 0)
    return the_format_itself(format);
  const size_t kept = std::min(static_cast<size_t>(length), size - 1);
  state.reserve_used += kept + 1;
  return {.characters = {free_part, kept}, .block = nullptr, .reserved = kept + 1};
}

} // namespace

Text expand_text(const char *format, va_list args) {
  const ErrnoGuard entry;
  size_t size = kFirstSize;
  for (;;) {
    auto *buffer = static_cast<char *>(malloc(size));
    if (buffer == nullptr)
      return expand_in_reserve(format, args, entry.value());
    const int length = format_into(buffer, size, format, args, entry.value());
    if (fits(length, size))
      return {.characters = {buffer, static_cast<size_t>(length)}, .block = buffer, .reserved = 0};
    const bool grow = may_fit_a_larger_buffer(length, size, entry.value());
    free(buffer);
    if (!grow)
      return the_format_itself(format);
    size = next_size(length, size);
  }
}

void release_text(const Text &text) {
  ErrnoGuard keep;
  free(text.block);
  state.reserve_used -= text.reserved;
}

} // namespace orv::messages
