// The lines of numbers in the messages between survey and its companion.
#include "protocol.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace survey {
namespace {

constexpr int kNumbersOfSignature = 9;

// Reads as many numbers as are wanted, each followed by a blank or the line's end.
bool read_numbers(const char *line, uint64_t *numbers, int wanted) {
  for (int i = 0; i < wanted; i++) {
    char *end = nullptr;
    numbers[i] = strtoull(line, &end, 10);
    const char expected = i + 1 < wanted ? ' ' : '\0';
    if (end == line || *end != expected)
      return false;
    line = end + 1;
  }
  return true;
}

} // namespace

NumbersLine write_number(uint64_t number) {
  NumbersLine line;
  snprintf(line.text, sizeof line.text, "%" PRIu64, number);
  return line;
}

NumbersLine write_counts(const Counts &counts) {
  NumbersLine line;
  snprintf(line.text, sizeof line.text, "%" PRIu64 " %" PRIu64 " %" PRIu64, counts.lines,
           counts.words, counts.bytes);
  return line;
}

NumbersLine write_signature(const platform_file_sig_t &signature) {
  NumbersLine line;
  snprintf(line.text, sizeof line.text,
           "%" PRIu32 " %" PRIu32 " %" PRIu32 " %" PRIu32 " %" PRIu32 " %" PRIu32 " %" PRIu32
           " %" PRIu64 " %" PRIu64,
           signature.gid, signature.ctime, signature.mtime, signature.atime, signature.dev,
           signature.ino, signature.mode, signature.size, signature.check);
  return line;
}

bool read_number(const char *line, uint64_t &number) {
  return line != nullptr && read_numbers(line, &number, 1);
}

bool read_counts(const char *line, Counts &counts) {
  uint64_t numbers[3];
  if (line == nullptr || !read_numbers(line, numbers, 3))
    return false;
  counts = {.lines = numbers[0], .words = numbers[1], .bytes = numbers[2]};
  return true;
}

bool read_signature(const char *line, platform_file_sig_t &signature) {
  uint64_t numbers[kNumbersOfSignature];
  if (line == nullptr || !read_numbers(line, numbers, kNumbersOfSignature))
    return false;
  const auto word = [&](int i) { return static_cast<uint32_t>(numbers[i]); };
  signature = {.gid = word(0),
               .ctime = word(1),
               .mtime = word(2),
               .atime = word(3),
               .dev = word(4),
               .ino = word(5),
               .mode = word(6),
               .size = numbers[7],
               .check = numbers[8]};
  return platform_sig_valid(signature) != 0;
}

} // namespace survey
