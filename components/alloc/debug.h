// The steps that the allocation calls run once debug mode is on: the way of a sound block here, in
// line, and what is rare or ends the process out of it.
#pragma once

#include "alloc/debug_records.h"
#include "alloc/site.h"

namespace orv::alloc {

// Ends the process when any live block is damaged, after a warning for each.
void end_unless_heap_is_sound(const alloc_site &site);

// Ends the process over a pointer that fails the full check.
[[noreturn]] void reject_pointer(const void *pointer, const alloc_site &site);

// Warns that a block is released.
void announce_release(const void *pointer, uint64_t length, const alloc_site &site);

// Looks the record up afresh, for a warning has gone out through streams of the program's.
[[nodiscard]] debug_info *find_record_to_release(const void *pointer);

// A negative threshold, taken as unsigned, lies beyond any length.
[[nodiscard]] inline bool is_to_be_announced(uint64_t length) {
  return length >= static_cast<uint64_t>(int64_t{state.free_report_threshold});
}

// Puts the record on the free list, to be used next, and marks its block as released.
inline void release_record(void *pointer, debug_info &record) {
  record.status = state.free_head;
  state.free_head = header_index(pointer);
  set_header_word(pointer, kFreedMagic);
}

// Gives back the record of a block that is about to be released or resized, and returns the
// recorded length; ends the process when the block is not a sound one.
inline uint64_t free_debug_info(void *pointer, const alloc_site &site) {
  debug_info *record = find_sound_record(pointer);
  if (record == nullptr) [[unlikely]]
    reject_pointer(pointer, site);
  if (state.stage == Stage::verifying_heap) [[unlikely]]
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
