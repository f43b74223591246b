// The short way of formatting: texts, whole numbers and percent signs, without flags, widths or
// precisions. Whatever else a format asks for, and what does not fit, is left to vsnprintf, which
// costs several times as much.
#include "messages/format.h"

#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>

namespace orv::messages {
namespace {

// A text under construction.
struct Output {
  char *at;
  char *end; // the room for its terminator
};

[[nodiscard]] bool put(Output &out, const char *characters, size_t count) {
  if (count > static_cast<size_t>(out.end - out.at))
    return false;
  memcpy(out.at, characters, count);
  out.at += count;
  return true;
}

[[nodiscard]] bool put_text(Output &out, const char *text) {
  return text != nullptr && put(out, text, strlen(text));
}

[[nodiscard]] bool put_number(Output &out, auto number) {
  const auto [end, error] = std::to_chars(out.at, out.end, number);
  out.at = end;
  return error == std::errc();
}

// Puts what a conversion stands for, and steps past it. False when it is none of the plain ones.
[[nodiscard]] bool put_conversion(Output &out, const char *&conversion, va_list args) {
  switch (*conversion++) {
  case '%':
    return put(out, "%", 1);
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

// The length of the text, or -1 where vsnprintf is needed.
[[nodiscard]] int format_plainly(char *text, size_t size, const char *format, va_list args) {
  Output out = {.at = text, .end = text + size - 1};
  for (const char *at = format;;) {
    const char *percent = strchrnul(at, '%');
    if (!put(out, at, static_cast<size_t>(percent - at)))
      return -1;
    if (*percent == '\0')
      break;
    at = percent + 1;
    if (!put_conversion(out, at, args))
      return -1;
  }
  *out.at = '\0';
  return static_cast<int>(out.at - text);
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
