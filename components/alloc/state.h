// All state of the component in one record; every field starts from a static value, so that the
// calls work before main.
#pragma once

#include <cstddef>
#include <cstdint>
#include <orv/alloc.h>

namespace orv::alloc {

struct debug_info;

constexpr int32_t kEndOfFreeList = -3;
constexpr size_t kTextAreaSize = 4096;

// Where the process stands; one test of it sets the fast paths apart from all else.
enum class Stage : int32_t {
  untouched = -1, // no allocation call has got past its trivial arguments, debugging is off
  plain = 0,      // one has, and debugging is off for good
  checking_pointers = ORV_MALLOC_CHECK_PTR, // debugging was switched on in time, in this mode
  verifying_heap = ORV_MALLOC_VERIFY_HEAP,  // or in this one
};

struct State {
  Stage stage = Stage::untouched;
  uint32_t bytes_requested = 0;       // asked of the system so far, refused or not; wraps
  uint32_t live_bytes = 0;            // lengths of the live records; wraps
  debug_info *records = nullptr;      // the record table, obtained directly from the system
  uint64_t capacity = 0;              // records in the table, live and free
  int32_t free_head = kEndOfFreeList; // index of the record to use next
  int32_t free_report_threshold = -1; // 0 or more: releases of at least so many bytes are announced
  orv_malloc_failure_handler failure_handler = nullptr;
  char description[kTextAreaSize] = {};   // the latest description of a pointer
  char site_sentence[kTextAreaSize] = {}; // the latest sentence about a call
};

// Declared hidden, so that position-independent code reaches it without a detour.
[[gnu::visibility("hidden")]] extern State state;

[[nodiscard]] inline bool is_debugging() {
  return state.stage > Stage::plain;
}

} // namespace orv::alloc
