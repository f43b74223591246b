// Debug mode's view of the heap: the layout of a block, the table of records, and the full check
// of a pointer against both.
#pragma once

#include "alloc/site.h"
#include "alloc/state.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orv::alloc {

// A block of n bytes in debug mode. The caller's pointer is the system's plus 8; the trailer
// stands where n, rounded up to a multiple of 4, ends.
//
//   system address      caller's pointer
//   |                   |
//   +---------+---------+------------------------+-----------+---------+
//   |  index  |  word   |  the caller's n bytes  | gap (0-3) | trailer |
//   +---------+---------+------------------------+-----------+---------+
//   0         4         8                        8 + n       8 + 4 * ceil(n / 4)
//
struct BlockHeader {
  int32_t index; // of the block's record in the table
  uint32_t word; // kAllocatedMagic while the block is live, kFreedMagic once it was released
};
static_assert(sizeof(BlockHeader) == 8 && offsetof(BlockHeader, index) == 0 &&
              offsetof(BlockHeader, word) == 4);

constexpr uint32_t kAllocatedMagic = 0x5739E56A;
constexpr uint32_t kFreedMagic = 0x7D2C5B7E;
constexpr uint32_t kTrailerMagic = 0x35A7B641;
constexpr uint64_t kPointerAlignment = 8;
constexpr uint64_t kRecordsPerGrowth = 1024;

// What the table remembers of a block. A released record keeps everything but its status, so that
// a stale pointer can still be told by whom it had been allocated.
struct debug_info {
  void *ptr;            // the caller's pointer
  uint64_t length;      // the bytes that were asked for
  const char *method;   // of the allocating call, like the next two
  CallerOrLine third;   //
  PurposeOrFile fourth; //
  int32_t status;       // kLiveNamed, kLiveLocated, or free: the next free index, kEndOfFreeList
  SiteKind kind;        // outlives the release, unlike the status, and says which of third is meant
};
static_assert(sizeof(debug_info) == 48 && offsetof(debug_info, ptr) == 0 &&
              offsetof(debug_info, length) == 8 && offsetof(debug_info, method) == 16 &&
              offsetof(debug_info, third) == 24 && offsetof(debug_info, fourth) == 32 &&
              offsetof(debug_info, status) == 40);

constexpr int32_t kLiveNamed = -1;
constexpr int32_t kLiveLocated = -2;

[[nodiscard]] inline bool is_aligned(const void *pointer) {
  return reinterpret_cast<uintptr_t>(pointer) % kPointerAlignment == 0;
}

[[nodiscard]] inline void *system_address(void *pointer) {
  return static_cast<char *>(pointer) - sizeof(BlockHeader);
}

// The two halves of a header are read and written apart: a processor is slow to answer a load from
// two stores that went before it.
[[nodiscard]] inline int32_t header_index(const void *pointer) {
  int32_t index;
  memcpy(&index, static_cast<const char *>(pointer) - sizeof(BlockHeader), sizeof index);
  return index;
}

[[nodiscard]] inline uint32_t header_word(const void *pointer) {
  uint32_t word;
  memcpy(&word, static_cast<const char *>(pointer) - sizeof word, sizeof word);
  return word;
}

[[nodiscard]] inline BlockHeader header_of(const void *pointer) {
  return {.index = header_index(pointer), .word = header_word(pointer)};
}

inline void set_header_index(void *pointer, int32_t index) {
  memcpy(static_cast<char *>(pointer) - sizeof(BlockHeader), &index, sizeof index);
}

inline void set_header_word(void *pointer, uint32_t word) {
  memcpy(static_cast<char *>(pointer) - sizeof word, &word, sizeof word);
}

[[nodiscard]] inline size_t trailer_offset(uint64_t length) {
  return (length + 3) / 4 * 4;
}

[[nodiscard]] inline bool has_trailer(const void *pointer, uint64_t length) {
  uint32_t trailer;
  memcpy(&trailer, static_cast<const char *>(pointer) + trailer_offset(length), sizeof trailer);
  return trailer == kTrailerMagic;
}

inline void set_trailer(void *pointer, uint64_t length) {
  memcpy(static_cast<char *>(pointer) + trailer_offset(length), &kTrailerMagic,
         sizeof kTrailerMagic);
}

[[nodiscard]] inline bool is_live(const debug_info &record) {
  return record.status == kLiveNamed || record.status == kLiveLocated;
}

// A negative index, taken as unsigned, lies beyond any capacity.
[[nodiscard]] inline bool names_a_record(int32_t index) {
  return static_cast<uint32_t>(index) < state.capacity;
}

[[nodiscard]] inline debug_info &record_at(int32_t index) {
  return state.records[static_cast<uint32_t>(index)];
}

// The full check of an aligned pointer: the record of a live block whose header, record and trailer
// agree, else null. Each part is trusted only after the one before it; in particular an index that
// equals the capacity names no record.
[[nodiscard]] inline debug_info *find_sound_record(const void *pointer) {
  if (header_word(pointer) != kAllocatedMagic)
    return nullptr;
  const int32_t index = header_index(pointer);
  if (!names_a_record(index))
    return nullptr;
  debug_info &record = record_at(index);
  const bool sound =
      record.ptr == pointer && is_live(record) && has_trailer(pointer, record.length);
  return sound ? &record : nullptr;
}

// The record of the block that was released last at an address where no live block stands, or
// null. Searches the whole table: for what is about to be told to a person.
[[nodiscard]] const debug_info *find_released_record(const void *pointer);

// Makes the table larger by kRecordsPerGrowth records, which become the free list.
void grow_table();

// Takes a record for a block that the system has granted, writes the block's header and trailer,
// and returns the caller's pointer.
inline void *record_debug_info(void *system_block, size_t length, const alloc_site &site) {
  if (state.free_head == kEndOfFreeList) [[unlikely]]
    grow_table();
  // Kept: behind a header of 8 bytes, the caller's bytes are aligned to 8 only.
  void *pointer = static_cast<char *>(system_block) + sizeof(BlockHeader);
  const int32_t index = state.free_head;
  debug_info &record = record_at(index);
  state.free_head = record.status;
  record = {.ptr = pointer,
            .length = length,
            .method = site.method,
            .third = site.third,
            .fourth = site.fourth,
            .status = site.kind == SiteKind::located ? kLiveLocated : kLiveNamed,
            .kind = site.kind};
  state.live_bytes += static_cast<uint32_t>(length);
  set_trailer(pointer, length);
  set_header_index(pointer, index);
  set_header_word(pointer, kAllocatedMagic);
  return pointer;
}

} // namespace orv::alloc
