// The least that checked allocation has to do, for comparison: outside debug mode the tests and the
// counter, in debug mode header, record, trailer and both fillings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

void *floor_malloc(size_t size, const char *function, const char *purpose);
void floor_free(void *block);
void floor_enable_debug();

// What debug mode remembers of a block; the header before the block holds the record's index and a
// word, the trailer stands behind the block.
struct FloorRecord {
  void *block;
  size_t length;
  const char *method;
  const char *function;
  const char *purpose;
  int status; // kFloorLive, or the next free record
  int kind;
};
static_assert(sizeof(FloorRecord) == 48);

constexpr int kFloorLive = -1;
constexpr uint64_t kFloorAllocated = 0x5739E56A;
constexpr uint32_t kFloorTrailer = 0x35A7B641;

std::span<const FloorRecord> floor_records();

inline uint64_t floor_header(const void *block) {
  uint64_t header;
  memcpy(&header, static_cast<const char *>(block) - sizeof header, sizeof header);
  return header;
}

inline char *floor_trailer(void *block, size_t length) {
  return static_cast<char *>(block) + (length + 3) / 4 * 4;
}

inline bool floor_has_trailer(const FloorRecord &record) {
  uint32_t trailer;
  memcpy(&trailer, floor_trailer(record.block, record.length), sizeof trailer);
  return trailer == kFloorTrailer;
}
