// The search for the end of a message, and the cutting of its lines.
#include "platform/socket_search.h"

#include <cstring>

namespace orv {
namespace {

// The next carriage return, or the end.
char *find_carriage_return(char *from, char *end) {
  if (from == end)
    return end;
  void *const found = memchr(from, '\r', static_cast<size_t>(end - from));
  return found != nullptr ? static_cast<char *>(found) : end;
}

bool is_line_end(const char *bytes) {
  return memcmp(bytes, "\r\n", kLineEndSize) == 0;
}

void begin_line(MessageSearch &search, char *start) {
  if (search.line_count < kMostLines)
    search.line_starts[search.line_count] = start;
  search.line_count++;
}

} // namespace

bool find_message_end(MessageSearch &search, char *end) {
  char *from = search.position;
  for (;;) {
    char *const cr = find_carriage_return(from, end);
    search.position = cr;
    if (end - cr < kMessageEndSize)
      return false;
    if (cr[1] != '\n') {
      from = cr + 1;
    } else if (is_line_end(cr + kLineEndSize)) {
      return true;
    } else {
      from = cr + kLineEndSize;
      begin_line(search, from);
    }
  }
}

void cut_lines(MessageSearch &search) {
  for (size_t line = 1; line < search.line_count; line++)
    search.line_starts[line][-kLineEndSize] = '\0';
  search.position[0] = '\0';
  search.position[kLineEndSize] = '\0';
  search.line_starts[search.line_count] = nullptr;
}

} // namespace orv
