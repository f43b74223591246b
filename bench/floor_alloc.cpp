// The least that checked allocation has to do. What a caller can get wrong ends the program here
// without a word: only the way of a sound block is measured.
#include "floor_alloc.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint64_t kFreed = 0x7D2C5B7E;
constexpr int kFillByte = 0xAB;
constexpr size_t kGrowth = 1024;
constexpr int kNoRecord = -3;

struct State {
  int stage = 0; // 1 once a block was obtained without debugging, 2 with debugging
  uint32_t requested = 0;
  uint32_t live_bytes = 0;
  int free_head = kNoRecord;
  size_t capacity = 0;
  FloorRecord *records = nullptr;
};

[[gnu::visibility("hidden")]] constinit State state;

[[gnu::cold, gnu::noinline, noreturn]] void refuse(size_t, const char *, const char *) {
  abort();
}

void set_header(void *block, uint64_t word, uint64_t index) {
  const uint64_t header = word << 32U | index;
  memcpy(static_cast<char *>(block) - sizeof header, &header, sizeof header);
}

[[gnu::cold, gnu::noinline]] void grow_table() {
  const size_t capacity = state.capacity + kGrowth;
  state.records =
      static_cast<FloorRecord *>(realloc(state.records, capacity * sizeof(FloorRecord)));
  memset(state.records + state.capacity, 0, kGrowth * sizeof(FloorRecord));
  for (size_t i = state.capacity; i < capacity; i++)
    state.records[i].status = static_cast<int>(i + 1);
  state.records[capacity - 1].status = kNoRecord;
  state.free_head = static_cast<int>(state.capacity);
  state.capacity = capacity;
}

[[gnu::noinline]] void *obtain_tracked(size_t size, const char *function, const char *purpose) {
  const size_t padded = (size + 3) / 4 * 4 + 12;
  state.requested += static_cast<uint32_t>(padded);
  auto *start = static_cast<char *>(malloc(padded));
  if (start == nullptr) [[unlikely]]
    refuse(size, function, purpose);
  void *block = start + 8;
  if (state.free_head == kNoRecord) [[unlikely]]
    grow_table();
  const int index = state.free_head;
  FloorRecord &record = state.records[index];
  state.free_head = record.status;
  record = {block, size, "floor_malloc", function, purpose, kFloorLive, 0};
  state.live_bytes += static_cast<uint32_t>(size);
  memcpy(floor_trailer(block, size), &kFloorTrailer, sizeof kFloorTrailer);
  set_header(block, kFloorAllocated, static_cast<uint64_t>(index));
  return memset(block, kFillByte, size);
}

void release_tracked(void *block) {
  const uint64_t header = floor_header(block);
  const uint64_t index = header & UINT32_MAX;
  if (header >> 32U != kFloorAllocated || index >= state.capacity) [[unlikely]]
    abort();
  FloorRecord &record = state.records[index];
  if (record.block != block || record.status != kFloorLive || !floor_has_trailer(record))
      [[unlikely]]
    abort();
  state.live_bytes -= static_cast<uint32_t>(record.length);
  record.status = state.free_head;
  state.free_head = static_cast<int>(index);
  set_header(block, kFreed, index);
  memset(block, kFillByte, record.length);
  free(static_cast<char *>(block) - 8);
}

} // namespace

void *floor_malloc(size_t size, const char *function, const char *purpose) {
  if (size == 0)
    return nullptr;
  if (state.stage != 1) [[unlikely]] {
    if (state.stage == 2)
      return obtain_tracked(size, function, purpose);
    state.stage = 1;
  }
  state.requested += static_cast<uint32_t>(size);
  void *block = malloc(size);
  if (block == nullptr) [[unlikely]]
    refuse(size, function, purpose);
  return block;
}

void floor_free(void *block) {
  if (block == nullptr)
    return;
  if (reinterpret_cast<uintptr_t>(block) % 8 != 0) [[unlikely]]
    abort();
  if (state.stage != 1) [[unlikely]]
    return release_tracked(block);
  free(block);
}

void floor_enable_debug() {
  state.stage = 2;
}

std::span<const FloorRecord> floor_records() {
  return {state.records, state.capacity};
}
