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
  return is_sound(record.ptr);
}

[[gnu::cold, gnu::noinline]] void warn_of_damage(const debug_info &record) {
  msg_warn("%s", describe_ptr(record.ptr, &record, Wording::ordinary));
}

[[gnu::noinline]] bool verify_heap() {
  bool sound = true;
  for (uint64_t i = 0; i < state.capacity; i++) {
    const debug_info &record = state.records[i];
    if (is_live(record) && !is_sound_record(record, static_cast<int32_t>(i))) [[unlikely]] {
      warn_of_damage(record);
      sound = false;
    }
  }
  return sound;
}

void end_unless_heap_is_sound(const alloc_site &site) {
  if (!verify_heap())
    msg_fatal("%s: The heap was corrupted. %s", site.method, compose_site_sentence(site));
}

[[gnu::cold, noreturn]] void reject_pointer(const void *pointer, const alloc_site &site) {
  const char *sentence = compose_site_sentence(site);
  const char *description = describe_ptr(pointer, nullptr, Wording::after_release);
  msg_fatal("%s: %s %s", site.method, description, sentence);
}

bool is_to_be_announced(uint64_t length) {
  return state.free_report_threshold >= 0 &&
         length >= static_cast<uint64_t>(state.free_report_threshold);
}

[[gnu::cold, gnu::noinline]] void announce_release(const void *pointer, uint64_t length,
                                                   const alloc_site &site) {
  msg_warn("(%s): Freeing a pointer (0x%0*lX) which pointed to %lu bytes of data.  %s", site.method,
           16, reinterpret_cast<unsigned long>(pointer), length, compose_site_sentence(site));
}

// Looks at the header afresh: the warnings before have gone out through streams of the caller's.
int32_t index_to_release(const void *pointer) {
  const int32_t index = header_of(pointer).index;
  if (!names_a_record(index)) [[unlikely]]
    msg_fatal("Orv MALLOC library internal error: free_debug_info index out of range (index = "
              "%ld, limit = %ld).",
              static_cast<long>(index), static_cast<long>(state.capacity));
  if (!is_live(state.records[index])) [[unlikely]]
    msg_fatal("Orv MALLOC library internal error: free_debug_info index pointed to a free debug "
              "info structure (index = %ld)",
              static_cast<long>(index));
  return index;
}

} // namespace

void check_heap_before_allocation(const alloc_site &site) {
  if (state.mode == ORV_MALLOC_VERIFY_HEAP)
    end_unless_heap_is_sound(site);
}

void free_debug_info(void *pointer, const alloc_site &site) {
  if (!is_sound(pointer)) [[unlikely]]
    reject_pointer(pointer, site);
  if (state.mode == ORV_MALLOC_VERIFY_HEAP)
    end_unless_heap_is_sound(site);
  const uint64_t length = recorded_length(pointer);
  state.live_bytes -= static_cast<uint32_t>(length);
  if (is_to_be_announced(length)) [[unlikely]]
    announce_release(pointer, length, site);
  release_record(pointer, index_to_release(pointer));
}

} // namespace orv::alloc

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
  if (state.mode == 0 && state.allocation_used != 0)
    msg_fatal("orv_enable_malloc_debug cannot be called once one of the Orv MALLOC library "
              "allocation functions have been called.");
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
