// The one routine behind every message call: line heads, wrapping, the current column and what a
// continuation goes on with.
#include "messages/writer.h"
#include "messages/state.h"
#include "messages/streams.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace orv::messages {
namespace {

constexpr char kBlanks[] = "                                                 ";
constexpr size_t kWidestIndentation = sizeof kBlanks - 1;
static_assert(kWidestIndentation == 49);

// A constant, so that it stays valid whatever happens to the message that it leads.
[[nodiscard]] std::string_view indentation_of(size_t length) {
  const size_t width = std::min(length, kWidestIndentation);
  return {kBlanks + (kWidestIndentation - width), width};
}

[[nodiscard]] Message prepare_message(int type, int format_type, bool solo, const char *prefix) {
  const std::string_view head = prefix == nullptr ? "" : prefix;
  return {
      .type = type,
      .format_type = format_type,
      .solo = solo,
      .streams = streams_of_type(type),
      .mp_prefix = solo ? "" : prefix_text(kMpPrefix),
      .head = head,
      .prefix_length = head.size(),
      .indentation = indentation_of(head.size()),
      .head_written = false,
  };
}

[[noreturn]] void refuse_reserved_format(const Message &message, const char *format) {
  // Kept: "to begin a dollar sign" lacks a word; whoever looks for the sentence finds it as it is.
  constexpr char kText[] =
      "Internationalization interface not yet supported.\n"
      "However, the format string \"%s\" began with a dollar sign.  Use two dollar signs if you "
      "really want the string to begin a dollar sign.";
  if (message.solo)
    msg_fatal_solo(kText, format);
  msg_fatal(kText, format);
}

// A leading "$" is reserved; two of them stand for one.
[[nodiscard, gnu::format_arg(2)]] const char *apply_dollar_rule(const Message &message,
                                                                const char *format) {
  if (format == nullptr)
    return "";
  if (format[0] != '$')
    return format;
  if (format[1] != '$')
    refuse_reserved_format(message, format);
  return format + 1;
}

void advance_column(size_t characters) {
  const auto left = static_cast<size_t>(INT32_MAX - state.column);
  state.column += static_cast<int32_t>(std::min(characters, left));
}

void write_newline(const Message &message) {
  write_newline_to_streams(message);
  state.column = 0;
}

void write_line_head(Message &message) {
  write_to_streams(message, message.mp_prefix);
  write_to_streams(message, message.head);
  message.head = message.indentation;
  message.head_written = true;
  // Kept: the column grows by the whole prefix although the indentation is cut at 49 blanks, so
  // that below a wider prefix it runs ahead of what is printed.
  advance_column(message.prefix_length + message.mp_prefix.size());
}

void start_output(Message &message, bool continuation) {
  if (state.column != 0) {
    if (continuation)
      return;
    // Kept: the newline goes to the streams of the new message, not to those that hold the open
    // line: there is one column for all of them.
    write_newline(message);
    flush_streams(message);
  }
  write_line_head(message);
}

[[nodiscard]] const char *find_newline(const char *from, const char *end) {
  const void *found = memchr(from, '\n', static_cast<size_t>(end - from));
  return found == nullptr ? end : static_cast<const char *>(found);
}

// Kept: the column moves for a type without streams as well, so that silencing a type does not
// change how later messages are laid out.
void write_counted(const Message &message, std::string_view piece) {
  write_to_streams(message, piece);
  advance_column(piece.size());
}

void write_unwrapped(Message &message, std::string_view text) {
  const char *at = text.data();
  const char *end = at + text.size();
  for (;;) {
    const char *newline = find_newline(at, end);
    if (newline == end) {
      write_counted(message, {at, end});
      return;
    }
    write_to_streams(message, {at, newline + 1});
    state.column = 0;
    at = newline + 1;
    if (at == end)
      return;
    write_line_head(message);
  }
}

void refuse_unknown_format_type(const Message &message) {
  if (message.format_type == MSG_FMT_WRAP || message.format_type == MSG_FMT_LINE)
    return;
  constexpr char kText[] = "Internal error: Bad MSG_FMT_TYPE: %d";
  if (message.solo)
    msg_fatal_solo(kText, message.format_type);
  msg_fatal(kText, message.format_type);
}

void write_wrapped(Message &message, std::string_view text, int width_limit) {
  const char *at = text.data();
  const char *end = at + text.size();
  const char *line_end = find_newline(at, end);
  for (;;) {
    const int64_t room = int64_t{width_limit} - state.column;
    const char *break_point = choose_break(at, line_end, room);
    write_counted(message, {at, break_point});
    at = skip_blanks(break_point, end);
    if (at < end && *at == '\n') {
      write_newline(message);
      at++;
      line_end = find_newline(at, end);
    }
    if (at == end)
      return;
    if (state.column != 0)
      write_newline(message);
    write_line_head(message);
  }
}

void write_text(Message &message, std::string_view text) {
  const int width_limit = msg_get_width_limit();
  // Kept: an unknown format type shows only while wrapping is on; otherwise it is like raw text.
  if (width_limit == 0 || message.format_type == MSG_FMT_RAW) {
    write_unwrapped(message, text);
    return;
  }
  refuse_unknown_format_type(message);
  write_wrapped(message, text, width_limit);
}

void set_last_head(const char *head, bool owned) {
  const LastMessage replaced = state.last;
  state.last.head = head;
  state.last.head_owned = owned;
  if (replaced.head_owned)
    release_text_when_idle(replaced.head);
}

// A message that stayed on its line keeps its prefix as the head; the prefix is the caller's, so
// it is copied unless it is the stored head already.
void remember_head(const Message &message) {
  if (message.head_written) {
    set_last_head(message.indentation.data(), false);
  } else if (message.head.data() != state.last.head) {
    auto *copy = static_cast<char *>(malloc(message.head.size() + 1));
    if (copy != nullptr)
      memcpy(copy, message.head.data(), message.head.size() + 1);
    set_last_head(copy == nullptr ? message.indentation.data() : copy, copy != nullptr);
  }
}

void finish(const Message &message) {
  if (message.format_type == MSG_FMT_LINE) {
    // Kept: after a text that ended its line itself this makes an empty line.
    write_newline(message);
    flush_streams(message);
  }
  remember_head(message);
  state.last.type = message.type;
  state.last.solo = message.solo;
  state.last.format_type = message.format_type;
}

} // namespace
} // namespace orv::messages

using namespace orv::messages;

void msg_output(int type, int fmt_type, int solo, int continuation, const char *prefix,
                const char *format, va_list args) {
  if (solo != 0 && state.solo_output == 0)
    return;
  state.messages_in_progress++;
  Message message = prepare_message(type, fmt_type, solo != 0, prefix);
  const Text text = expand_text(apply_dollar_rule(message, format), args);
  start_output(message, continuation != 0);
  write_text(message, text.characters);
  release_text(text);
  finish(message);
  if (--state.messages_in_progress == 0 && state.retired != nullptr)
    free_retired_texts();
}
