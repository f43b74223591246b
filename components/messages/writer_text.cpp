// The text of a message: the format expanded into the library's own area, or where that is too
// small into a heap block that grows until the text fits. A long text by itself stays where it is,
// where nothing can happen to it.
#include "common/guards.h"
#include "messages/format.h"
#include "messages/state.h"
#include "messages/streams.h"
#include "messages/writer.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace orv::messages {
namespace {

// Takes ordinary texts in one pass, and leaves room in the area for the warning about a stream that
// fails while such a text is written.
constexpr size_t kFirstSize = 10000;

[[nodiscard]] char *free_area() {
  return state.area + state.area_held;
}

[[nodiscard]] size_t free_area_size() {
  return kTextAreaSize - state.area_held;
}

// The free part of the area, or a heap block; null when the heap refuses. Keeps errno.
[[nodiscard]] char *take_buffer(size_t size) {
  if (size == kFirstSize && free_area_size() >= size)
    return free_area();
  const ErrnoGuard keep;
  return static_cast<char *>(malloc(size));
}

[[gnu::format(printf, 3, 0)]] int format_into(char *buffer, size_t size, const char *format,
                                              va_list args, int error_number) {
  va_list copy;
  va_copy(copy, args);
  errno = error_number; // what %m tells
  const int length = format_text(buffer, size, format, copy);
  va_end(copy);
  return length;
}

[[nodiscard]] bool fits(int length, size_t size) {
  return length >= 0 && static_cast<size_t>(length) < size - 1;
}

// Why the expansion that just failed did so, 0 for no reason. Where errno still is what it was set
// to for %m, the formatter may have named that very error or none: a run from 0 tells.
[[nodiscard, gnu::format(printf, 1, 0)]] int reason_of_failure(const char *format, va_list args,
                                                               int entry_errno) {
  if (errno == entry_errno && entry_errno != 0)
    static_cast<void>(format_into(nullptr, 0, format, args, 0));
  return errno;
}

// A failure that names no other reason is taken for a buffer that is too small, as long as a
// larger one could help: no text is longer than an int can tell.
[[nodiscard]] bool may_fit_a_larger_buffer(int reason, size_t size) {
  return (reason == 0 || reason == ERANGE) && size <= INT_MAX;
}

[[nodiscard]] size_t next_size(int length, size_t size) {
  if (length < 0 || static_cast<size_t>(length) < size)
    return size * 2;
  return static_cast<size_t>(length) + 2;
}

[[nodiscard]] Text the_format_itself(std::string_view format) {
  return {.characters = format, .block = nullptr, .held = 0};
}

// Messages nest like calls, so what they hold of the area is given back in reverse order.
[[nodiscard]] Text hold_text(const char *start, char *block, size_t length) {
  const size_t held = block == nullptr ? length + 1 : 0;
  state.area_held += held;
  return {.characters = {start, length}, .block = block, .held = held};
}

// A refusal of storage is told even so: what fits the area is written.
[[nodiscard, gnu::format(printf, 1, 0)]] Text expand_without_heap(const char *format, va_list args,
                                                                  int entry_errno) {
  const size_t size = free_area_size();
  if (size == 0)
    return the_format_itself(format);
  const int length = format_into(free_area(), size, format, args, entry_errno);
  if (length < 0)
    return the_format_itself(format);
  return hold_text(free_area(), nullptr, std::min(static_cast<size_t>(length), size - 1));
}

// Copying a long text would cost as much as wrapping it does. But while it is written to a stream
// without a descriptor, the program's own functions run, or memory of its moves: the text may be
// what the stream itself has taken so far.
[[nodiscard]] bool may_stay_where_it_is() {
  return every_stream_has_a_descriptor();
}

// A long text by itself. The storage for a copy is held even where none is made, since without
// storage a text is cut.
[[nodiscard, gnu::format(printf, 3, 0)]] Text
hold_argument(size_t size, size_t length, const char *format, va_list args, int entry_errno) {
  char *block = take_buffer(size);
  if (block == nullptr)
    return expand_without_heap(format, args, entry_errno);
  va_list copy;
  va_copy(copy, args);
  const char *text = va_arg(copy, const char *);
  va_end(copy);
  if (may_stay_where_it_is())
    return hold_text(text, block, length);
  memcpy(block, text, length);
  return hold_text(block, block, length);
}

// A format that stands for itself. Without storage it is written from where it stands, too.
[[nodiscard]] Text hold_format(std::string_view format) {
  const bool is_long = format.size() >= kFirstSize - 1;
  if (is_long && may_stay_where_it_is())
    return the_format_itself(format);
  char *buffer = take_buffer(is_long ? format.size() + 2 : kFirstSize);
  if (buffer == nullptr)
    return the_format_itself(format);
  memcpy(buffer, format.data(), format.size());
  return hold_text(buffer, buffer == free_area() ? nullptr : buffer, format.size());
}

[[nodiscard, gnu::format(printf, 1, 0)]] Text expand(const char *format, va_list args) {
  const ErrnoGuard entry;
  size_t size = kFirstSize;
  for (;;) {
    char *buffer = take_buffer(size);
    if (buffer == nullptr)
      return expand_without_heap(format, args, entry.value());
    char *block = buffer == free_area() ? nullptr : buffer;
    const int length = format_into(buffer, size, format, args, entry.value());
    if (fits(length, size))
      return hold_text(buffer, block, static_cast<size_t>(length));
    const int reason = length < 0 ? reason_of_failure(format, args, entry.value()) : 0;
    free(block);
    if (!may_fit_a_larger_buffer(reason, size))
      return the_format_itself(format);
    size = next_size(length, size);
    if (length >= 0 && strcmp(format, "%s") == 0)
      return hold_argument(size, static_cast<size_t>(length), format, args, entry.value());
  }
}

} // namespace

Text expand_text(const char *format, va_list args) {
  const char *percent = strchrnul(format, '%');
  if (*percent == '\0')
    return hold_format({format, percent});
  return expand(format, args);
}

void release_text(const Text &text) {
  state.area_held -= text.held;
  if (text.block != nullptr) {
    const ErrnoGuard keep;
    free(text.block);
  }
}

} // namespace orv::messages
