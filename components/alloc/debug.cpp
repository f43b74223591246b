// The debug mode itself: switching it on, its settings, the steps that the allocation calls run,
// and the verification of the whole heap.
#include "alloc/debug.h"
#include "alloc/debug_records.h"
#include "alloc/debug_text.h"
#include "alloc/state.h"

#include <orv/alloc.h>
#include <orv/msg.h>

namespace orv::alloc {
namespace {

// A header as one value, compared in one step.
uint64_t packed(const void *header) {
  uint64_t value;
  memcpy(&value, header, sizeof value);
  return value;
}

bool has_header(const void *pointer, BlockHeader expected) {
  return packed(static_cast<const char *>(pointer) - sizeof expected) == packed(&expected);
}

// The full check of a live record's own pointer. Nearly always the block's header names this very
// record, which answers all of the check but the trailer at once.
bool is_sound_record(const debug_info &record, int32_t index) {
  if (!is_aligned(record.ptr))
    return false;
  if (has_header(record.ptr, {index, kAllocatedMagic})) [[likely]]
    return has_trailer(record.ptr, record.length);
  return find_sound_record(record.ptr) != nullptr;
}

[[gnu::cold, gnu::noinline]] void warn_of_damage(const debug_info &record) {
  msg_warn("%s", describe_ptr(record.ptr, &record, Wording::ordinary));
}

// A table of this size or more, with its blocks, is larger than the nearer caches: its blocks are
// fetched a few records ahead of their turn.
constexpr uint64_t kRecordsWorthPrefetching = 4096;
constexpr uint64_t kRecordsAhead = 12;

// Of a record that was never used there is nothing to fetch, and no harm in trying; only arithmetic
// on its null pointer would be wrong.
// NOLINTBEGIN(performance-no-int-to-ptr)
void prefetch_block(const debug_info &record) {
  const auto address = reinterpret_cast<uintptr_t>(record.ptr);
  __builtin_prefetch(reinterpret_cast<const void *>(address - sizeof(BlockHeader)));
  __builtin_prefetch(reinterpret_cast<const void *>(address + trailer_offset(record.length)));
}
// NOLINTEND(performance-no-int-to-ptr)

// The index of the first damaged live block from there on; the capacity when there is none.
uint64_t find_damaged(uint64_t from) {
  const debug_info *records = state.records;
  const uint64_t capacity = state.capacity;
  const uint64_t prefetch_end = capacity >= kRecordsWorthPrefetching ? capacity : 0;
  for (uint64_t i = from; i < capacity; i++) {
    if (i + kRecordsAhead < prefetch_end)
      prefetch_block(records[i + kRecordsAhead]);
    if (is_live(records[i]) && !is_sound_record(records[i], static_cast<int32_t>(i))) [[unlikely]]
      return i;
  }
  return capacity;
}

// Warns of every damaged live block; true when there was none. The table may grow at a warning,
// which goes out through streams of the program's.
bool verify_heap() {
  bool all_sound = true;
  for (uint64_t i = find_damaged(0); i < state.capacity; i = find_damaged(i + 1)) {
    warn_of_damage(state.records[i]);
    all_sound = false;
  }
  return all_sound;
}

} // namespace

void end_unless_heap_is_sound(const alloc_site &site) {
  if (!verify_heap())
    msg_fatal("%s: The heap was corrupted. %s", site.method, compose_site_sentence(site));
}

[[gnu::cold]] void reject_pointer(const void *pointer, const alloc_site &site) {
  const char *sentence = compose_site_sentence(site);
  const char *description = describe_ptr(pointer, nullptr, Wording::after_release);
  msg_fatal("%s: %s %s", site.method, description, sentence);
}

[[gnu::cold]] void announce_release(const void *pointer, uint64_t length, const alloc_site &site) {
  msg_warn("(%s): Freeing a pointer (0x%0*lX) which pointed to %lu bytes of data.  %s", site.method,
           16, reinterpret_cast<unsigned long>(pointer), length, compose_site_sentence(site));
}

[[gnu::cold]] debug_info *find_record_to_release(const void *pointer) {
  const int32_t index = header_index(pointer);
  if (!names_a_record(index))
    msg_fatal("Orv MALLOC library internal error: free_debug_info index out of range (index = "
              "%ld, limit = %ld).",
              static_cast<long>(index), static_cast<long>(state.capacity));
  if (!is_live(state.records[index]))
    msg_fatal("Orv MALLOC library internal error: free_debug_info index pointed to a free debug "
              "info structure (index = %ld)",
              static_cast<long>(index));
  return &state.records[index];
}

} // namespace orv::alloc

using orv::alloc::is_debugging;
using orv::alloc::Stage;
using orv::alloc::state;

void orv_enable_malloc_debug(int mode) {
  if (mode == 0) {
    if (is_debugging())
      msg_fatal("orv_enable_malloc_debug: Once enabled, malloc debugging cannot be disabled.");
    return;
  }
  if (mode != ORV_MALLOC_CHECK_PTR && mode != ORV_MALLOC_VERIFY_HEAP)
    msg_fatal("orv_enable_malloc_debug: Bad mode.  Should be either ORV_MALLOC_CHECK_PTR or "
              "ORV_MALLOC_VERIFY_HEAP.");
  // Kept: the two modes may be exchanged at any time, allocations or not: they lay blocks out
  // alike.
  if (state.stage == Stage::plain)
    msg_fatal("orv_enable_malloc_debug cannot be called once one of the Orv MALLOC library "
              "allocation functions have been called.");
  state.stage = static_cast<Stage>(mode);
}

int orv_malloc_debug_mode(void) {
  return is_debugging() ? static_cast<int>(state.stage) : 0;
}

uint32_t orv_malloc_mem_used(void) {
  if (!is_debugging())
    msg_warn("orv_malloc_mem_used should only be called when the malloc debug mode is enabled.");
  // Kept: answered in any case.
  return state.live_bytes;
}

void orv_set_malloc_free_report_threshold(int size) {
  state.free_report_threshold = size;
}
