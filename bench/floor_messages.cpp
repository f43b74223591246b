// The least that messages and trace have to do. The pieces of a message are written one by one, as
// the library does it: a failing stream is noticed at each.
#include "floor_messages.h"

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kAreaSize = 10000;
constexpr char kPrefix[] = "Warning: ";
constexpr size_t kPrefixLength = sizeof kPrefix - 1;
constexpr long kWidth = 78;

struct State {
  FILE *stream;
  int trace_streams;
  long column;
  const char *last_prefix;
  char area[kAreaSize];
};

[[gnu::visibility("hidden")]] constinit State state;

char *append(char *at, const char *text, size_t length) {
  if (length > static_cast<size_t>(state.area + kAreaSize - at)) [[unlikely]]
    abort();
  return static_cast<char *>(memcpy(at, text, length)) + length;
}

// Expands the conversions that the benchmark uses, and returns the end of the text.
char *expand(const char *format, va_list args) {
  char *at = state.area;
  for (;;) {
    const char *percent = strchrnul(format, '%');
    at = append(at, format, static_cast<size_t>(percent - format));
    if (*percent == '\0')
      return at;
    if (percent[1] == 's') {
      const char *text = va_arg(args, const char *);
      at = append(at, text, strlen(text));
    } else if (percent[1] == 'd') {
      at = std::to_chars(at, state.area + kAreaSize, va_arg(args, int)).ptr;
    } else {
      *at++ = percent[1];
    }
    format = percent + 2;
  }
}

void write(const char *text, size_t length) {
  if (fwrite_unlocked(text, 1, length, state.stream) != length) [[unlikely]]
    abort();
}

void write_newline() {
  if (putc_unlocked('\n', state.stream) == EOF) [[unlikely]]
    abort();
  state.column = 0;
}

void flush() {
  if (fflush_unlocked(state.stream) != 0) [[unlikely]]
    abort();
}

// The last blank that leaves a line within the width; a word that is too long goes beyond it.
const char *find_break(const char *start, const char *line_end) {
  if (line_end - start <= kWidth)
    return line_end;
  const auto *blank = static_cast<const char *>(memrchr(start, ' ', kWidth + 1));
  if (blank == nullptr)
    blank = static_cast<const char *>(memchr(start, ' ', static_cast<size_t>(line_end - start)));
  return blank == nullptr ? line_end : blank;
}

void write_wrapped(const char *at, const char *end) {
  while (at < end) {
    const auto *newline =
        static_cast<const char *>(memchr(at, '\n', static_cast<size_t>(end - at)));
    const char *line_end = newline == nullptr ? end : newline;
    while (at < line_end) {
      const char *stop = find_break(at, line_end);
      write(at, static_cast<size_t>(stop - at));
      write_newline();
      at = stop;
      while (at < line_end && *at == ' ')
        at++;
    }
    at = line_end + 1;
  }
}

} // namespace

void floor_set_stream(FILE *stream) {
  state.stream = stream;
}

void floor_warn(const char *format, ...) {
  const int error = errno;
  va_list args;
  va_start(args, format);
  const auto length = static_cast<size_t>(expand(format, args) - state.area);
  va_end(args);
  write(kPrefix, kPrefixLength);
  if (memchr(state.area, '\n', length) != nullptr ||
      kPrefixLength + length > static_cast<size_t>(kWidth)) [[unlikely]]
    abort();
  write(state.area, length);
  write_newline();
  flush();
  state.last_prefix = kPrefix;
  errno = error;
}

void floor_print(const char *text) {
  write_wrapped(text, text + strlen(text));
  flush();
}

void floor_trace(const char *format, long number) {
  if (state.trace_streams != 0) [[unlikely]]
    fprintf(state.stream, "%s%ld", format, number);
}

void floor_nothing(const char * /*format*/, ...) {}
