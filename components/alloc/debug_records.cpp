// The table of records: one for each block of debug mode, taken from a free list that runs through
// the table itself.
#include "alloc/debug_records.h"
#include "common/assertion.h"

#include <cstdlib>

namespace orv::alloc {
namespace {

// Chains the records from `first` on in ascending order and makes them the free list.
void chain_new_records(uint64_t first) {
  const auto last = static_cast<int32_t>(state.capacity) - 1;
  for (auto index = static_cast<int32_t>(first); index < last; index++)
    state.records[index].status = index + 1;
  state.records[last].status = kEndOfFreeList;
  state.free_head = static_cast<int32_t>(first);
}

// The table is the library's own: its storage is neither counted nor recorded, and there is no
// caller to whom a refusal could be reported.
[[gnu::cold, gnu::noinline]] void grow_table() {
  const uint64_t old_capacity = state.capacity;
  const uint64_t capacity = old_capacity + kRecordsPerGrowth;
  assert(capacity <= INT32_MAX);
  auto *records = static_cast<debug_info *>(
      old_capacity == 0 ? malloc(capacity * sizeof(debug_info))
                        : realloc(state.records, capacity * sizeof(debug_info)));
  assert(records != nullptr);
  memset(records + old_capacity, 0, kRecordsPerGrowth * sizeof(debug_info));
  state.records = records;
  state.capacity = capacity;
  chain_new_records(old_capacity);
}

void set_trailer(void *pointer, uint64_t length) {
  memcpy(static_cast<char *>(pointer) + trailer_offset(length), &kTrailerMagic,
         sizeof kTrailerMagic);
}

} // namespace

void record_debug_info(void *pointer, size_t length, const alloc_site &site) {
  if (state.free_head == kEndOfFreeList) [[unlikely]]
    grow_table();
  const int32_t index = state.free_head;
  debug_info &record = state.records[index];
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
  set_header(pointer, {index, kAllocatedMagic});
}

void release_record(void *pointer, int32_t index) {
  state.records[index].status = state.free_head;
  state.free_head = index;
  set_header(pointer, {index, kFreedMagic});
}

} // namespace orv::alloc
