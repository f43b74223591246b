// A plain model of the message buffer: the search, the cutting and the compaction done a byte at a
// time, with no thought of speed. The library is compared with it, bytes left behind included.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace model {

using Lines = std::vector<std::string>;

constexpr size_t kMostLines = 2047;

struct Buffer {
  // Two bytes more than the capacity: the search looks at the byte after the data and the next.
  std::vector<char> storage;
  size_t capacity;
  size_t p1 = 0;
  size_t p2 = 0;

  explicit Buffer(size_t size, char fill = '?') : storage(size + 2, fill), capacity(size) {}

  [[nodiscard]] bool fits(size_t count) const { return p2 + count < capacity; }

  void append(const std::string &bytes) {
    for (const char byte : bytes)
      storage[p2++] = byte;
  }

  void compact() {
    std::copy(&storage[p1], &storage[p2], storage.data());
    p2 -= p1;
    p1 = 0;
  }
};

// A complete message as offsets into the buffer.
struct Found {
  bool complete = false;
  std::vector<size_t> starts;
  std::vector<size_t> ends;
  size_t closing = 0; // the CR of the empty line that closes it
};

inline Found find_message(const Buffer &buffer) {
  const std::vector<char> &bytes = buffer.storage;
  const size_t n = buffer.p2 - buffer.p1;
  Found found;
  size_t s = buffer.p1;
  for (;;) {
    size_t q = s;
    while (bytes[q] != '\r' || bytes[q + 1] != '\n') {
      q++;
      if (q - buffer.p1 >= n)
        return found;
    }
    found.starts.push_back(s);
    found.ends.push_back(q);
    if (!(q + 3 < buffer.p2))
      return found;
    if (bytes[q + 2] == '\r' && bytes[q + 3] == '\n') {
      found.closing = q + 2;
      found.complete = true;
      return found;
    }
    s = q + 2;
  }
}

// Cuts the lines of a complete message, consumes it, and returns what the handler is given.
inline Lines cut_message(Buffer &buffer, const Found &found) {
  for (const size_t end : found.ends)
    buffer.storage[end] = '\0';
  buffer.storage[found.closing] = '\0';
  buffer.p1 = found.closing + 2;
  Lines lines;
  for (const size_t start : found.starts)
    lines.emplace_back(buffer.storage.data() + start);
  return lines;
}

// The next message that can be handed over, cut; one with too many lines is consumed and counted.
inline bool next_message(Buffer &buffer, Lines &lines, int &dropped) {
  for (;;) {
    const Found found = find_message(buffer);
    if (!found.complete)
      return false;
    if (found.starts.size() <= kMostLines) {
      lines = cut_message(buffer, found);
      return true;
    }
    buffer.p1 = found.closing + 2;
    buffer.compact();
    dropped++;
  }
}

} // namespace model
