// The least that checked allocation has to do. What a caller can get wrong ends the program here
// without a word: only the way of a sound block is measured.
#include "floor_alloc.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint64_t kAllocated = 0x5739E56A;
constexpr uint64_t kFreed = 0x7D2C5B7E;
constexpr uint32_t kTrailer = 0x35A7B641;
constexpr int kFillByte = 0xAB;
constexpr int kLive = -1;
constexpr int kRecords = 1024;

struct Record {
  void *block;
  size_t length;
  const char *method;
  const char *function;
  const char *purpose;
  int status; // kLive, or the next free record
  int kind;
};
static_assert(sizeof(Record) == 48);

struct State {
  int stage; // 1 once a block was obtained without debugging, 2 with debugging, else 0
  uint32_t requested;
  uint32_t live_bytes;
  int free_head;
  Record records[kRecords];
};

[[gnu::visibility("hidden")]] constinit State state;

[[gnu::cold, gnu::noinline, noreturn]] void refuse(size_t, const char *, const char *) {
  abort();
}

uint64_t header_of(void *block) {
  uint64_t header;
  memcpy(&header, static_cast<char *>(block) - 8, sizeof header);
  return header;
}

void set_header(void *block, uint64_t word, uint64_t index) {
  const uint64_t header = word << 32U | index;
  memcpy(static_cast<char *>(block) - 8, &header, sizeof header);
}

char *trailer_of(void *block, size_t length) {
  return static_cast<char *>(block) + (length + 3) / 4 * 4;
}

[[gnu::noinline]] void *obtain_tracked(size_t size, const char *function, const char *purpose) {
  const size_t padded = (size + 3) / 4 * 4 + 12;
  state.requested += static_cast<uint32_t>(padded);
  auto *start = static_cast<char *>(malloc(padded));
  if (start == nullptr) [[unlikely]]
    refuse(size, function, purpose);
  void *block = start + 8;
  const int index = state.free_head;
  Record &record = state.records[index];
  state.free_head = record.status;
  record = {block, size, "floor_malloc", function, purpose, kLive, 0};
  state.live_bytes += static_cast<uint32_t>(size);
  memcpy(trailer_of(block, size), &kTrailer, sizeof kTrailer);
  set_header(block, kAllocated, static_cast<uint64_t>(index));
  return memset(block, kFillByte, size);
}

void release_tracked(void *block) {
  const uint64_t header = header_of(block);
  const uint64_t index = header & UINT32_MAX;
  if (header >> 32U != kAllocated || index >= kRecords) [[unlikely]]
    abort();
  Record &record = state.records[index];
  if (record.block != block || record.status != kLive ||
      memcmp(trailer_of(block, record.length), &kTrailer, sizeof kTrailer) != 0) [[unlikely]]
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
  for (int i = 0; i < kRecords; i++)
    state.records[i].status = i + 1;
}
