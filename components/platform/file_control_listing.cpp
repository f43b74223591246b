// Wildcards: listing a directory by a pattern and matching a name against one.
#include "common/guards.h"

#include <cstddef>
#include <cstring>
#include <fnmatch.h>
#include <orv/alloc.h>
#include <orv/platform.h>

static_assert(offsetof(platform_file_list_t, count) == 0);
static_assert(offsetof(platform_file_list_t, paths) == 8);
static_assert(offsetof(platform_file_list_t, glob) == 16);
static_assert(sizeof(platform_file_list_t) == 24);

// The place of an allocation as one text, "path:line", for the calls that take a function's name.
#define SOURCE_LINE_TEXT(line) #line
#define SOURCE_PLACE_AT(line) __FILE__ ":" SOURCE_LINE_TEXT(line)
#define SOURCE_PLACE SOURCE_PLACE_AT(__LINE__)

namespace {

[[nodiscard]] const char *or_everything(const char *pattern) {
  return pattern != nullptr && pattern[0] != '\0' ? pattern : "*";
}

[[nodiscard]] char *make_prefix(const char *directory) {
  if (directory[strlen(directory) - 1] == '/')
    return ORV_STRDUP(directory);
  // Kept: the two-text join leaves a copy of each of its texts allocated.
  return ORV_STRDUP(directory, "/");
}

void free_glob(glob_t *result) {
  globfree(result);
  orv_free(result);
}

// The paths that match, or null when there are none.
[[nodiscard]] glob_t *find_matches(const char *full_pattern) {
  auto *result = static_cast<glob_t *>(orv_malloc(sizeof(glob_t), SOURCE_PLACE, "glob_t"));
  if (result == nullptr)
    return nullptr;
  *result = {}; // a search that fails early still leaves something to free
  if (glob(full_pattern, 0, nullptr, result) == 0)
    return result;
  const orv::ErrnoGuard keep;
  free_glob(result);
  return nullptr;
}

} // namespace

int platform_list_dir(const char *directory, const char *pattern, platform_file_list_t *list) {
  if (list == nullptr || directory == nullptr || directory[0] == '\0')
    return 0;
  char *prefix = make_prefix(directory);
  if (prefix == nullptr)
    return 0;
  // Kept: the directory is part of the pattern, so wildcards and backslashes in its name are
  // interpreted too.
  char *full_pattern = orv_printf_strdup("%s%s", prefix, or_everything(pattern));
  glob_t *matches = full_pattern != nullptr ? find_matches(full_pattern) : nullptr;
  if (matches != nullptr)
    *list = {.count = matches->gl_pathc, .paths = matches->gl_pathv, .glob = matches};
  const orv::ErrnoGuard keep;
  orv_free(prefix);
  orv_free(full_pattern);
  return matches != nullptr ? 1 : 0;
}

void platform_free_dir_list(platform_file_list_t *list) {
  // Kept: the fields stay as they are, so a record must not be given here twice.
  if (list != nullptr && list->glob != nullptr)
    free_glob(list->glob);
}

int platform_name_matches(const char *name, const char *pattern) {
  return name != nullptr && fnmatch(or_everything(pattern), name, 0) == 0 ? 1 : 0;
}
