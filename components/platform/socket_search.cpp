// The search for the end of a message, and the cutting of its lines.
#include "platform/socket_search.h"

#include <cstring>

namespace orv {
namespace {

constexpr ptrdiff_t kLineEndSize = 2;
constexpr ptrdiff_t kMessageEndSize = 2 * kLineEndSize;

// The next CR LF; or the place from which it has to be looked for when more bytes have come: a CR
// that is the last byte, else the end.
char *find_line_end(char *from, char *end) {
  while (from < end) {
    char *const cr = static_cast<char *>(memchr(from, '\r', static_cast<size_t>(end - from)));
    if (cr == nullptr)
      break;
    if (end - cr < kLineEndSize || cr[1] == '\n')
      return cr;
    from = cr + 1;
  }
  return end;
}

bool is_line_end(const char *bytes) {
  return bytes[0] == '\r' && bytes[1] == '\n';
}

void begin_line(MessageSearch &search, char *start) {
  if (search.line_count < kMostLines)
    search.line_starts[search.line_count] = start;
  search.line_count++;
  search.position = start;
}

} // namespace

void begin_search(MessageSearch &search, char *start) {
  search.line_count = 0;
  begin_line(search, start);
}

bool find_message_end(MessageSearch &search, char *end) {
  for (;;) {
    search.position = find_line_end(search.position, end);
    if (end - search.position < kMessageEndSize)
      return false;
    if (is_line_end(search.position + kLineEndSize))
      return true;
    begin_line(search, search.position + kLineEndSize);
  }
}

char *after_message(const MessageSearch &search) {
  return search.position + kMessageEndSize;
}

void cut_lines(MessageSearch &search) {
  for (size_t line = 1; line < search.line_count; line++)
    search.line_starts[line][-kLineEndSize] = '\0';
  search.position[0] = '\0';
  search.position[kLineEndSize] = '\0';
  search.line_starts[search.line_count] = nullptr;
}

} // namespace orv
