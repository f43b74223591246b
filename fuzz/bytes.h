// The fuzzer's input, taken apart a byte at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Gives zeros once it is used up.
struct Bytes {
  const uint8_t *data;
  size_t left;

  unsigned byte() {
    if (left == 0)
      return 0;
    left--;
    return *data++;
  }

  // True once in so many times; not for 0 and 255, which fuzzers are fond of: what is rare and
  // slow shall stay rare.
  bool one_in(unsigned times) { return byte() % times == times / 2; }

  // One of the texts of a table.
  template <size_t count> const char *one_of(const char *const (&texts)[count]) {
    return texts[byte() % count];
  }

  // A few characters, none of them null, as a text between two inputs' bytes would hold them.
  std::string characters(unsigned most) {
    std::string made;
    for (unsigned length = byte() % (most + 1); length > 0; length--)
      made += static_cast<char>(byte() % 255 + 1);
    return made;
  }
};

// A text that goes on as it began up to a length.
inline std::string repeated(const std::string &piece, size_t length) {
  std::string made = piece.empty() ? "x" : piece;
  made.reserve(2 * length);
  while (made.size() < length)
    made += made;
  made.resize(length);
  return made;
}
