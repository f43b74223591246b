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

// The index in a header and the header word as one value, compared in one step.
uint64_t packed(BlockHeader header) {
  uint64_t value;
  memcpy(&value, &header, sizeof value);
  return value;
}

// The full check of a live record's own pointer. Nearly always the block's header names this very
// record, which answers all of the check but the trailer at once.
bool is_sound_record(const debug_info &record, int32_t index) {
  if (is_aligned(record.ptr) && packed(header_of(record.ptr)) == packed({index, kAllocatedMagic}))
      [[likely]]
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

// Warns of every damaged live block; true when there was none.
[[gnu::noinline]] bool verify_heap() {
  bool all_sound = true;
  const uint64_t prefetch_end = state.capacity >= kRecordsWorthPrefetching ? state.capacity : 0;
  for (uint64_t i = 0; i < state.capacity; i++) {
    if (i + kRecordsAhead < prefetch_end)
      prefetch_block(state.records[i + kRecordsAhead]);
    const debug_info &record = state.records[i];
    if (is_live(record) && !is_sound_record(record, static_cast<int32_t>(i))) [[unlikely]] {
      warn_of_damage(record);
      all_sound = false;
    }
  }
  return all_sound;
}

[[gnu::cold, noreturn]] void reject_pointer(const void *pointer, const alloc_site &site) {
  const char *sentence = compose_site_sentence(site);
  const char *description = describe_ptr(pointer, nullptr, Wording::after_release);
  msg_fatal("%s: %s %s", site.method, description, sentence);
}

// A negative threshold, taken as unsigned, lies beyond any length.
bool is_to_be_announced(uint64_t length) {
  return length >= static_cast<uint64_t>(int64_t{state.free_report_threshold});
}

[[gnu::cold, gnu::noinline]] void announce_release(const void *pointer, uint64_t length,
                                                   const alloc_site &site) {
  msg_warn("(%s): Freeing a pointer (0x%0*lX) which pointed to %lu bytes of data.  %s", site.method,
           16, reinterpret_cast<unsigned long>(pointer), length, compose_site_sentence(site));
}

// Looks the record up afresh, for a warning has gone out through streams of the program's.
[[gnu::cold, gnu::noinline]] debug_info *find_record_to_release(const void *pointer) {
  const int32_t index = header_of(pointer).index;
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

// Puts the record on the free list, to be used next, and marks its block as released.
void release_record(void *pointer, debug_info &record) {
  const int32_t index = header_of(pointer).index;
  record.status = state.free_head;
  state.free_head = index;
  set_header(pointer, {index, kFreedMagic});
}

} // namespace

void end_unless_heap_is_sound(const alloc_site &site) {
  if (!verify_heap())
    msg_fatal("%s: The heap was corrupted. %s", site.method, compose_site_sentence(site));
}

uint64_t free_debug_info(void *pointer, const alloc_site &site) {
  debug_info *record = find_sound_record(pointer);
  if (record == nullptr) [[unlikely]]
    reject_pointer(pointer, site);
  if (state.mode == ORV_MALLOC_VERIFY_HEAP) [[unlikely]]
    end_unless_heap_is_sound(site);
  const uint64_t length = record->length;
  state.live_bytes -= static_cast<uint32_t>(length);
  if (is_to_be_announced(length)) [[unlikely]] {
    announce_release(pointer, length, site);
    record = find_record_to_release(pointer);
  }
  release_record(pointer, *record);
  return length;
}

} // namespace orv::alloc

using orv::alloc::Stage;
using orv::alloc::state;

void orv_enable_malloc_debug(int mode) {
  if (mode == 0) {
    if (state.mode != 0)
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
  state.stage = Stage::debugging;
  state.mode = mode;
}

int orv_malloc_debug_mode(void) {
  return state.mode;
}

uint32_t orv_malloc_mem_used(void) {
  if (state.mode == 0)
    msg_warn("orv_malloc_mem_used should only be called when the malloc debug mode is enabled.");
  // Kept: answered in any case.
  return state.live_bytes;
}

void orv_set_malloc_free_report_threshold(int size) {
  state.free_report_threshold = size;
}
