// The fuzzer's input, taken apart a byte at a time.
#pragma once

#include <cstddef>
#include <cstdint>

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
};
