// The search for the end of a message: lines ended by CR LF, closed by an empty line. A search can
// be taken up again after more bytes have come, so that each byte is looked at once.
#pragma once

#include <cstddef>

namespace orv {

constexpr size_t kMostLines = 2047;

constexpr ptrdiff_t kLineEndSize = 2;                   // CR LF
constexpr ptrdiff_t kMessageEndSize = 2 * kLineEndSize; // of the last line, and the empty one

struct MessageSearch {
  // The starts of the lines found so far and of the one being read; those beyond kMostLines are
  // counted only. The last entry is for the null that ends a full table.
  char *line_starts[kMostLines + 1];
  size_t line_count;
  // Where the search goes on: no line ends between the last start and here. When the message is
  // complete, the CR that ends its last line.
  char *position;
};

// Begins a search at the first byte of a message.
inline void begin_search(MessageSearch &search, char *start) {
  search.line_starts[0] = start;
  search.line_count = 1;
  search.position = start;
}

// Goes on up to `end`, the end of the received bytes; true when the message is complete. No byte
// at or after `end` is looked at, so bytes left there from earlier cannot matter.
[[nodiscard]] bool find_message_end(MessageSearch &search, char *end);

// The first byte after the message, once it is complete.
[[nodiscard]] inline char *after_message(const MessageSearch &search) {
  return search.position + kMessageEndSize;
}

// Makes the lines of a complete message into strings, and the table of their starts null-ended.
void cut_lines(MessageSearch &search);

} // namespace orv
