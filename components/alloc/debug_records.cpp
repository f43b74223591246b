// What is rarely done with the table of records: its growth, the search for a released block,
// and what a debugger finds it by.
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

// What gdb/orv-gdb.py reads of a process or a core, also where the symbols were stripped: strip
// leaves the section in place. Another layout of what it leads to needs another number here and
// there.
struct DebuggerView {
  uint64_t layout;
  const Stage *stage;
  debug_info *const *records;
  const uint64_t *capacity;
  const int32_t *free_head;
};
static_assert(sizeof(DebuggerView) == 40);

[[gnu::section(".orv.debugger"), gnu::used, gnu::retain]] const DebuggerView debugger_view = {
    .layout = 1,
    .stage = &state.stage,
    .records = &state.records,
    .capacity = &state.capacity,
    .free_head = &state.free_head};

bool is_live_at(const void *pointer) {
  for (uint64_t i = 0; i < state.capacity; i++)
    if (state.records[i].ptr == pointer && is_live(state.records[i]))
      return true;
  return false;
}

} // namespace

// The free list leads from the latest release to earlier ones.
const debug_info *find_released_record(const void *pointer) {
  if (is_live_at(pointer))
    return nullptr;
  for (int32_t i = state.free_head; i != kEndOfFreeList; i = state.records[i].status)
    if (state.records[i].ptr == pointer)
      return &state.records[i];
  return nullptr;
}

// The table is the library's own: its storage is neither counted nor recorded, and there is no
// caller to whom a refusal could be reported.
[[gnu::cold]] void grow_table() {
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

} // namespace orv::alloc
