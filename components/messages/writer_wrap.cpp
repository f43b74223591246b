// Where a wrapped line breaks.
#include "messages/writer.h"

namespace orv::messages {
namespace {

[[nodiscard]] bool is_blank(char character) {
  return character == ' ' || character == '\t';
}

// The last blank from `first` up to and including `last`, or null.
[[nodiscard]] const char *find_last_blank(const char *first, const char *last) {
  for (const char *at = last; at > first; at--)
    if (is_blank(*at))
      return at;
  return nullptr;
}

[[nodiscard]] const char *end_of_word(const char *start, const char *line_end) {
  const char *at = start;
  while (at < line_end && !is_blank(*at))
    at++;
  return at;
}

} // namespace

const char *skip_blanks(const char *from, const char *end) {
  const char *at = from;
  while (at < end && is_blank(*at))
    at++;
  return at;
}

const char *choose_break(const char *start, const char *line_end, int64_t room) {
  if (line_end - start <= room)
    return line_end;
  const char *word = skip_blanks(start, line_end);
  if (word - start <= room) {
    // Kept: of several blanks in a row those in front of the break stay at the end of the line.
    const char *blank = find_last_blank(word, start + room);
    if (blank != nullptr)
      return blank;
  }
  if (word == start)
    return end_of_word(start, line_end); // written whole, beyond the limit
  return start;
}

} // namespace orv::messages
