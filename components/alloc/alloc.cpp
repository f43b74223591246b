// The checked allocation calls: the common steps, both families of calls as tables of one line
// each, and the report of a refusal.
//
// Outside debug mode a call adds a few tests and one addition to the system's own. Whatever is
// rare stands apart (cold, never inlined) and builds its site only there. This source is compiled
// with the names of the system's allocator taken as plain functions: the compiler shall neither
// merge malloc with the filling that follows, nor drop an allocation that nobody uses, nor a
// filling that is followed by free.
#include "alloc/debug.h"
#include "alloc/debug_records.h"
#include "alloc/site.h"
#include "alloc/state.h"
#include "common/assertion.h"
#include "common/guards.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <orv/alloc.h>
#include <orv/msg.h>

namespace orv::alloc {

constinit State state;

namespace {

constexpr int kFillByte = 0xAB;
constexpr size_t kSentenceSize = 10000;

// The fast paths are kept together in each public call, where the compiler knows the method.
#define ALWAYS_INLINE [[gnu::always_inline]] inline

constexpr const char *kNoText = nullptr;

// What a call does when the system refuses storage.
enum class Refusal {
  reported,          // always to the failure handler or as a fatal error
  null_when_no_room, // a null result when the storage is used up, else as above
};

void compose_refusal(char (&sentence)[kSentenceSize], size_t n, const alloc_site &site) {
  const ErrnoGuard error;
  const bool no_room = error.value() == ENOMEM;
  const char *function = site.third.function;
  const char *purpose = site.fourth.purpose;
  // Kept: whatever the error number says.
  if (site.kind == SiteKind::located)
    snprintf(sentence, sizeof sentence,
             "%s in %s, line %d: Not enough memory to allocate %lu bytes.", site.method,
             site.fourth.file, site.third.line, n);
  else if (function != nullptr && purpose != nullptr && no_room)
    snprintf(sentence, sizeof sentence,
             "%s (via %s): Not enough memory to allocate %lu bytes for %s.", function, site.method,
             n, purpose);
  else if (function != nullptr && purpose != nullptr)
    snprintf(sentence, sizeof sentence,
             "%s (via %s): %s while trying to allocate %lu bytes for %s.", function, site.method,
             strerror(error.value()), n, purpose);
  else if (no_room)
    snprintf(sentence, sizeof sentence, "%s: Not enough memory to allocate %lu bytes.", site.method,
             n);
  else
    snprintf(sentence, sizeof sentence, "%s: %s while trying to allocate %lu bytes.", site.method,
             strerror(error.value()), n);
}

// The handler may call the allocation calls again, so nothing is half done when it is called, and
// its result is passed on untouched.
[[gnu::cold, gnu::noinline]] void *report_failure(size_t n, const alloc_site &site) {
  char sentence[kSentenceSize];
  compose_refusal(sentence, n, site);
  if (state.failure_handler != nullptr)
    // Kept: the substitute is unknown to debug mode, and nothing is filled or copied in.
    return state.failure_handler(n, sentence);
  msg_fatal("%s", sentence);
}

template <Refusal refusal>
[[gnu::cold, gnu::noinline]] void *refused(size_t n, const char *method, auto third,
                                           const char *fourth) {
  if (refusal == Refusal::null_when_no_room && errno == ENOMEM)
    return nullptr;
  return report_failure(n, site_of(method, third, fourth));
}

[[gnu::cold, gnu::noinline, noreturn]] void reject_unaligned(const void *block,
                                                             const char *method) {
  msg_fatal("%s was passed an invalid pointer: 0x%0*lX", method, 16,
            reinterpret_cast<unsigned long>(block));
}

void test_pointer(const void *block, const char *method) {
  if (!is_aligned(block)) [[unlikely]]
    reject_unaligned(block, method);
}

void count_request(size_t size) {
  state.bytes_requested += static_cast<uint32_t>(size);
}

// A block's size with header and trailer around its n bytes.
size_t padded_size(size_t n) {
  return (n - 1) / 4 * 4 + 16;
}

// What to ask of the system for it: a size that wraps around must be refused, not granted small.
size_t request_size(size_t n) {
  return padded_size(n) < n ? SIZE_MAX : padded_size(n);
}

[[gnu::cold, gnu::noinline]] void *obtain_wrapped(size_t n) {
  count_request(padded_size(n));
  return malloc(request_size(n));
}

void *obtain_padded(size_t n) {
  if (padded_size(n) < n) [[unlikely]]
    return obtain_wrapped(n);
  count_request(padded_size(n));
  return malloc(padded_size(n));
}

void *resize_padded(void *block, size_t n) {
  count_request(padded_size(n));
  return realloc(system_address(block), request_size(n));
}

[[gnu::cold, gnu::noinline]] void check_heap_before_allocation(const char *method, auto third,
                                                               const char *fourth) {
  end_unless_heap_is_sound(site_of(method, third, fourth));
}

ALWAYS_INLINE void *obtain_tracked(size_t n, const char *method, auto third, const char *fourth) {
  void *system_block = obtain_padded(n);
  if (system_block == nullptr)
    return nullptr;
  void *block = record_debug_info(system_block, n, site_of(method, third, fourth));
  return memset(block, kFillByte, n);
}

// Kept: a resize that is refused has given back the old block's record already, so the block,
// which stays with the caller, can no longer be released through the library.
ALWAYS_INLINE void *resize_tracked(void *block, size_t n, const char *method, auto third,
                                   const char *fourth) {
  const alloc_site site = site_of(method, third, fourth);
  free_debug_info(block, site);
  void *system_block = resize_padded(block, n);
  if (system_block == nullptr)
    return nullptr;
  // Kept: neither the old bytes nor the grown tail are filled.
  return record_debug_info(system_block, n, site);
}

[[gnu::noinline]] void release_tracked(void *block) {
  static constexpr alloc_site kSite = site_of("orv_free", kNoText, kNoText);
  const uint64_t length = free_debug_info(block, kSite);
  memset(block, kFillByte, length);
  free(system_address(block));
}

void *obtain_plain(size_t n) {
  count_request(n);
  return malloc(n);
}

void *resize_plain(void *block, size_t n) {
  count_request(n);
  return realloc(block, n);
}

// The first allocation of a process without debugging settles that it stays so.
[[gnu::noinline]] bool settle_debugging() {
  if (is_debugging())
    return true;
  state.stage = Stage::plain;
  return false;
}

ALWAYS_INLINE void *obtain_either_way(size_t n, const char *method, auto third,
                                      const char *fourth) {
  if (state.stage != Stage::checking_pointers) [[unlikely]] {
    if (!settle_debugging())
      return obtain_plain(n);
    check_heap_before_allocation(method, third, fourth);
  }
  return obtain_tracked(n, method, third, fourth);
}

[[gnu::noinline]] void *obtain_off_fast_path(size_t n, const char *method, auto third,
                                             const char *fourth) {
  return obtain_either_way(n, method, third, fourth);
}

// The common steps up to the system's answer: null when it refused.
ALWAYS_INLINE void *obtain(size_t n, const char *method, auto third, const char *fourth) {
  if (state.stage != Stage::plain) [[unlikely]]
    return obtain_off_fast_path(n, method, third, fourth);
  return obtain_plain(n);
}

// All of the most frequent call in one function, its arguments in the order of the public ones: so
// debug mode saves and moves little on the way here.
template <Refusal refusal>
[[gnu::noinline]] void *allocate_off_fast_path(size_t size, auto third, const char *fourth,
                                               const char *method) {
  void *block = obtain_either_way(size, method, third, fourth);
  if (block == nullptr) [[unlikely]]
    return refused<refusal>(size, method, third, fourth);
  return block;
}

template <Refusal refusal = Refusal::reported>
ALWAYS_INLINE void *allocate(size_t size, const char *method, auto third, const char *fourth) {
  if (size == 0)
    return nullptr;
  if (state.stage != Stage::plain) [[unlikely]]
    return allocate_off_fast_path<refusal>(size, third, fourth, method);
  // Keeps the compiler from saving what only a refusal needs before the test above.
  size_t asked = size;
  asm("" : "+r"(asked), "+r"(third), "+r"(fourth));
  void *block = obtain_plain(size);
  if (block == nullptr) [[unlikely]]
    return refused<refusal>(asked, method, third, fourth);
  return block;
}

// Kept: the product is taken without a test for overflow.
template <Refusal refusal = Refusal::reported>
ALWAYS_INLINE void *allocate_zeroed(size_t count, size_t size, const char *method, auto third,
                                    const char *fourth) {
  if (count == 0 || size == 0)
    return nullptr;
  const size_t n = count * size;
  void *block = obtain(n, method, third, fourth);
  if (block == nullptr) [[unlikely]]
    return refused<refusal>(n, method, third, fourth);
  return memset(block, 0, n);
}

ALWAYS_INLINE char *duplicate(const char *text, const char *method, auto third,
                              const char *fourth) {
  if (text == nullptr)
    return nullptr;
  const size_t n = strlen(text) + 1;
  void *block = obtain(n, method, third, fourth);
  if (block == nullptr) [[unlikely]]
    block = refused<Refusal::reported>(n, method, third, fourth);
  else
    memcpy(block, text, n);
  return static_cast<char *>(block);
}

// Not inlined: leak checkers tell these copies by the name from blocks that a program lost.
[[gnu::noinline]] void leave_strdup2_copy(const char *text, const char *method, auto third,
                                          const char *fourth) {
  duplicate(text, method, third, fourth);
}

// Kept: copies of the two texts are made on the way and stay allocated; without the second text
// neither is made. A null text is told only after that.
char *join(const char *text1, const char *text2, const char *method, auto third,
           const char *fourth) {
  if (text2 != nullptr) {
    leave_strdup2_copy(text1, method, third, fourth);
    leave_strdup2_copy(text2, method, third, fourth);
  }
  assert(text1 != nullptr && text2 != nullptr);
  const size_t length1 = strlen(text1);
  const size_t n = length1 + strlen(text2) + 1;
  auto *joined = static_cast<char *>(obtain(n, method, third, fourth));
  if (joined == nullptr) [[unlikely]]
    return static_cast<char *>(refused<Refusal::reported>(n, method, third, fourth));
  memcpy(joined, text1, length1);
  memcpy(joined + length1, text2, n - length1);
  return joined;
}

[[gnu::noinline]] void *resize_off_fast_path(void *block, size_t n, const char *method, auto third,
                                             const char *fourth) {
  return settle_debugging() ? resize_tracked(block, n, method, third, fourth)
                            : resize_plain(block, n);
}

template <Refusal refusal = Refusal::reported>
ALWAYS_INLINE void *resize(void *block, size_t size, const char *method, auto third,
                           const char *fourth) {
  if (size == 0) {
    // Kept: a bad block is then reported under the name of orv_free.
    orv_free(block);
    return nullptr;
  }
  if (block == nullptr)
    return allocate<refusal>(size, method, third, fourth);
  test_pointer(block, method);
  void *resized = state.stage == Stage::plain
                      ? resize_plain(block, size)
                      : resize_off_fast_path(block, size, method, third, fourth);
  if (resized == nullptr) [[unlikely]]
    return refused<refusal>(size, method, third, fourth);
  return resized;
}

} // namespace
} // namespace orv::alloc

using namespace orv::alloc;

void *orv_malloc(size_t size, const char *function, const char *purpose) {
  return allocate(size, "orv_malloc", function, purpose);
}

void *orv_calloc(size_t count, size_t size, const char *function, const char *purpose) {
  return allocate_zeroed(count, size, "orv_calloc", function, purpose);
}

void *orv_realloc(void *block, size_t size, const char *function, const char *purpose) {
  return resize(block, size, "orv_realloc", function, purpose);
}

char *orv_strdup(const char *text, const char *function, const char *purpose) {
  return duplicate(text, "orv_strdup", function, purpose);
}

char *orv_strdup2(const char *text1, const char *text2, const char *function, const char *purpose) {
  return join(text1, text2, "orv_strdup2", function, purpose);
}

void *orv_malloc_if_room(size_t size) {
  return allocate<Refusal::null_when_no_room>(size, "orv_malloc_if_room", kNoText, kNoText);
}

void *orv_calloc_if_room(size_t count, size_t size) {
  return allocate_zeroed<Refusal::null_when_no_room>(count, size, "orv_calloc_if_room", kNoText,
                                                     kNoText);
}

void *orv_realloc_if_room(void *block, size_t size) {
  return resize<Refusal::null_when_no_room>(block, size, "orv_realloc_if_room", kNoText, kNoText);
}

void *orv_malloc_at(size_t size, const char *method, int line, const char *file) {
  return allocate(size, method, line, file);
}

void *orv_calloc_at(size_t count, size_t size, const char *method, int line, const char *file) {
  return allocate_zeroed(count, size, method, line, file);
}

void *orv_realloc_at(void *block, size_t size, const char *method, int line, const char *file) {
  return resize(block, size, method, line, file);
}

char *orv_strdup_at(const char *text, const char *method, int line, const char *file) {
  return duplicate(text, method, line, file);
}

char *orv_strdup2_at(const char *text1, const char *text2, const char *method, int line,
                     const char *file) {
  return join(text1, text2, method, line, file);
}

void orv_free(void *block) {
  if (block == nullptr)
    return;
  test_pointer(block, "orv_free");
  if (is_debugging()) [[unlikely]]
    return release_tracked(block);
  free(block);
}

orv_malloc_failure_handler orv_set_malloc_failure_handler(orv_malloc_failure_handler handler) {
  const orv_malloc_failure_handler before = state.failure_handler;
  state.failure_handler = handler;
  return before;
}

uint32_t orv_malloc_bytes_requested(void) {
  return state.bytes_requested;
}
