// The description of one call that asks for storage or gives it back: who calls, and what for or
// from where. Its texts are the caller's own and are never copied.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orv::alloc {

enum class SiteKind : int32_t { named_caller = 0, located = 1 };

union CallerOrLine {
  const char *function; // named caller: the calling function, may be null
  int32_t line;         // located: the source line
};

union PurposeOrFile {
  const char *purpose; // named caller: what the storage is for, may be null
  const char *file;    // located: the source file
};

struct alloc_site {
  SiteKind kind;
  const char *method; // the call's own name, or the method name that a located call was given
  CallerOrLine third;
  PurposeOrFile fourth;
};
static_assert(sizeof(alloc_site) == 32 && offsetof(alloc_site, method) == 8 &&
              offsetof(alloc_site, third) == 16 && offsetof(alloc_site, fourth) == 24);

[[nodiscard]] constexpr alloc_site site_of(const char *method, const char *function,
                                           const char *purpose) {
  return {.kind = SiteKind::named_caller,
          .method = method,
          .third = {.function = function},
          .fourth = {.purpose = purpose}};
}

[[nodiscard]] constexpr alloc_site site_of(const char *method, int32_t line, const char *file) {
  return {.kind = SiteKind::located,
          .method = method,
          .third = {.line = line},
          .fourth = {.file = file}};
}

} // namespace orv::alloc
