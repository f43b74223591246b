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

struct State {
  int32_t mode = 0;              // 0: debugging is off; else ORV_MALLOC_CHECK_PTR or _VERIFY_HEAP
  int32_t allocation_used = 0;   // 1 once an allocation call got past its trivial arguments
  uint32_t bytes_requested = 0;  // asked of the system so far, refused or not; wraps
  uint32_t live_bytes = 0;       // lengths of the live records; wraps
  debug_info *records = nullptr; // the record table, obtained directly from the system
  uint64_t capacity = 0;         // records in the table, live and free
  int32_t free_head = kEndOfFreeList; // index of the record to use next
  int32_t free_report_threshold = -1; // 0 or more: releases of at least so many bytes are announced
  orv_malloc_failure_handler failure_handler = nullptr;
  char description[kTextAreaSize] = {};   // the latest description of a pointer
  char site_sentence[kTextAreaSize] = {}; // the latest sentence about a call
};

// Declared hidden, so that position-independent code reaches it without a detour.
[[gnu::visibility("hidden")]] extern State state;

} // namespace orv::alloc
