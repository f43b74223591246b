// The short way of formatting: texts, whole numbers and percent signs, without flags, widths or
// precisions. Whatever else a format asks for is left to vsnprintf, which costs several times as
// much, most of all for a text that does not fit.
#include "messages/format.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>

namespace orv::messages {
namespace {

constexpr size_t kMostDigits = sizeof "-9223372036854775808";

// A text under construction, which may outgrow its room.
struct Output {
  char *text;
  size_t room;   // without its terminator
  size_t length; // of the whole text
};

void put(Output &out, const char *characters, size_t count) {
  if (out.length < out.room)
    memcpy(out.text + out.length, characters, std::min(count, out.room - out.length));
  out.length += count;
}

[[nodiscard]] bool put_text(Output &out, const char *text) {
  if (text != nullptr)
    put(out, text, strlen(text));
  return text != nullptr;
}

[[nodiscard]] bool put_number(Output &out, auto number) {
  char digits[kMostDigits];
  const char *end = std::to_chars(digits, digits + kMostDigits, number).ptr;
  put(out, digits, static_cast<size_t>(end - digits));
  return true;
}

// Puts what a conversion stands for, and steps past it. False when it is none of the plain ones.
// The analyser takes the copy of the arguments below for one that was never made.
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized)
[[nodiscard]] bool put_conversion(Output &out, const char *&conversion, va_list args) {
  switch (*conversion++) {
  case '%':
    put(out, "%", 1);
    return true;
  case 's':
    return put_text(out, va_arg(args, const char *));
  case 'd':
    return put_number(out, va_arg(args, int));
  case 'u':
    return put_number(out, va_arg(args, unsigned));
  case 'l':
    switch (*conversion++) {
    case 'd':
      return put_number(out, va_arg(args, long));
    case 'u':
      return put_number(out, va_arg(args, unsigned long));
    default:
      return false;
    }
  default:
    return false;
  }
}
// NOLINTEND(clang-analyzer-valist.Uninitialized)

// The length of the text, cut or not, or -1 where vsnprintf is needed.
[[nodiscard]] int format_plainly(char *text, size_t size, const char *format, va_list args) {
  Output out = {.text = text, .room = size - 1, .length = 0};
  for (const char *at = format;;) {
    const char *percent = strchrnul(at, '%');
    put(out, at, static_cast<size_t>(percent - at));
    if (*percent == '\0')
      break;
    at = percent + 1;
    if (!put_conversion(out, at, args))
      return -1;
  }
  text[std::min(out.length, out.room)] = '\0';
  return out.length <= INT_MAX ? static_cast<int>(out.length) : -1;
}

} // namespace

int format_text(char *text, size_t size, const char *format, va_list args) {
  if (size == 0 || size > INT_MAX)
    return vsnprintf(text, size, format, args);
  va_list copy;
  va_copy(copy, args);
  const int length = format_plainly(text, size, format, copy);
  va_end(copy);
  return length >= 0 ? length : vsnprintf(text, size, format, args);
}

} // namespace orv::messages
