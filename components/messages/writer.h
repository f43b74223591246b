// A message while it is being written, and the steps of writing it that live in files of their own.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <orv/msg.h>
#include <string_view>

namespace orv::messages {

struct Message {
  int type;
  int format_type;
  bool solo;
  msg_stream_desc *streams;     // read anew for each write: a failing stream leaves the list
  std::string_view mp_prefix;   // leads every line; empty for a solo message
  std::string_view head;        // the prefix until a head has been written, then the indentation
  size_t prefix_length;         // what the column grows by at every head, beside the mp prefix
  std::string_view indentation; // as many blanks as the prefix is long, within the cap
  bool head_written;
};

// writer_text.cpp

// The text of a message: in the library's own area, in a heap block, or where the caller has it.
struct Text {
  std::string_view characters;
  char *block; // null when the text is not in the heap
  size_t held; // bytes of the area that it takes up
};

// Expands the format. Never fails: there is always something to write. Keeps errno, which must
// still stand as the caller of the message had it, for %m.
[[nodiscard, gnu::format(printf, 1, 0)]] Text expand_text(const char *format, va_list args);
void release_text(const Text &text);

// writer_streams.cpp

// All drop a stream that fails, with a warning, and go on with the next index.
void write_piece_to_streams(const Message &message, std::string_view piece);
void write_newline_to_streams(const Message &message);
void flush_streams(const Message &message);

// Heads are often empty.
inline void write_to_streams(const Message &message, std::string_view piece) {
  if (!piece.empty())
    write_piece_to_streams(message, piece);
}

// writer_wrap.cpp

// Where the line breaks that starts at `start` and has `room` columns left. line_end is the next
// newline or the end of the text.
[[nodiscard]] const char *choose_break(const char *start, const char *line_end, int64_t room);
[[nodiscard]] const char *skip_blanks(const char *from, const char *end);

} // namespace orv::messages
