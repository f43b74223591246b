// Counting the lines, words and bytes of one file as wc does in the C locale: any byte counts,
// whatever it is, and the text need not end in a newline.
#include "survey.h"

#include <cerrno>
#include <cstdio>
#include <string_view>

namespace survey {
namespace {

enum class Kind : unsigned char { other, blank, printable };

struct Kinds {
  Kind of[256];
};

// Printable bytes make words and blanks end them; all others, NUL and bytes above 126 among them,
// do neither.
constexpr Kinds classify() {
  Kinds kinds = {};
  for (int byte = '!'; byte <= '~'; byte++)
    kinds.of[byte] = Kind::printable;
  for (const char blank : std::string_view(" \t\n\v\f\r"))
    kinds.of[static_cast<unsigned char>(blank)] = Kind::blank;
  return kinds;
}
constexpr Kinds kKinds = classify();

// Adds a piece of the file. in_word tells whether a word goes on at its start, then at its end.
void count_piece(const unsigned char *piece, size_t length, Counts &counts, bool &in_word) {
  for (size_t i = 0; i < length; i++) {
    const Kind kind = kKinds.of[piece[i]];
    counts.lines += piece[i] == '\n' ? 1 : 0;
    counts.words += kind == Kind::printable && !in_word ? 1 : 0;
    in_word = kind == Kind::printable || (in_word && kind != Kind::blank);
  }
  counts.bytes += length;
}

} // namespace

int count_file(const char *path, Counts &counts, platform_file_sig_t &signature) {
  FILE *file = fopen(path, "rb");
  if (file == nullptr)
    return errno;
  // Taken before the first byte is read: a change while reading shows as a change afterwards.
  signature = platform_stream_sig(file);
  static unsigned char piece[65536];
  counts = {};
  bool in_word = false;
  for (size_t got; (got = fread(piece, 1, sizeof piece, file)) > 0;)
    count_piece(piece, got, counts, in_word);
  const int error = ferror(file) != 0 ? errno : 0;
  fclose(file);
  return error;
}

} // namespace survey
