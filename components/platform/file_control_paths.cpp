// Path names: the working directory, the parts of a path, and absolute, canonical and relative
// paths.
#include "common/guards.h"
#include "platform/file_control_internal.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/platform.h>
#include <unistd.h>

using orv::file_control::or_empty;

namespace {

constexpr size_t kPathAreaSize = 4096;   // of every area that the system fills
constexpr size_t kPathBufferSize = 4097; // of a path result: 4096 characters and the terminator

using PathArea = char[kPathAreaSize];

// The caller's buffer, or a new block where there is none.
[[nodiscard]] char *result_area(char *buffer, size_t size) {
  return buffer != nullptr ? buffer : ORV_MALLOC_ARRAY(char, size);
}

// The caller's buffer may be where the text stands, or overlap it.
[[nodiscard]] char *copy_to_result(const char *text, char *buffer) {
  const size_t size = strlen(text) + 1;
  char *result = result_area(buffer, size);
  if (result != nullptr)
    memmove(result, text, size);
  return result;
}

[[nodiscard]] bool is_empty(const char *path) {
  return or_empty(path)[0] == '\0';
}

[[nodiscard]] const char *base_name_in(const char *path) {
  const char *slash = strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

// The last "." of a base name; one that begins the name does not count. Null when there is none.
[[nodiscard]] const char *extension_in(const char *name) {
  return name[0] != '\0' ? strrchr(name + 1, '.') : nullptr;
}

// How one path is reached from another: so many steps up, then the rest.
struct Route {
  size_t climbs;
  const char *rest;
};

// An absolute path is taken as it stands; any other is resolved. False, with errno set, when it
// cannot be resolved or does not fit.
[[nodiscard]] bool make_absolute(const char *path, PathArea &area) {
  if (platform_is_absolute(path) == 0)
    return realpath(or_empty(path), area) != nullptr;
  const size_t length = strnlen(path, sizeof area);
  if (length == sizeof area) {
    errno = ENAMETOOLONG;
    return false;
  }
  memcpy(area, path, length + 1);
  return true;
}

[[nodiscard]] size_t count_slashes(const char *text) {
  size_t count = 0;
  for (const char *slash = strchr(text, '/'); slash != nullptr; slash = strchr(slash + 1, '/'))
    count++;
  return count;
}

// Both paths are absolute. Paths that differ in their first character would share nothing, and
// the last common "/" would count as being at 0: what the walk leaves when it ends at once.
[[nodiscard]] Route find_route(const char *from, const char *to) {
  size_t stop = 0;
  size_t last_slash = 0;
  for (; from[stop] == to[stop]; stop++) {
    if (to[stop] == '\0')
      return {.climbs = 0, .rest = "."};
    if (to[stop] == '/')
      last_slash = stop;
  }
  // Kept: whether `from` ended at the boundary of a component is not asked.
  if (to[stop] == '/')
    return {.climbs = 0, .rest = to + stop + 1};
  // Kept: every "/" of `from` from the last common one on counts as a step up, also that first
  // one and a trailing one.
  return {.climbs = count_slashes(from + last_slash), .rest = to + last_slash + 1};
}

[[nodiscard]] char *write_route(const Route &route, char *buffer) {
  constexpr char kStepUp[] = {'.', '.', '/'};
  const size_t rest_size = strlen(route.rest) + 1;
  if (route.climbs * sizeof kStepUp + rest_size > kPathBufferSize) {
    errno = ENAMETOOLONG;
    return nullptr;
  }
  char *result = result_area(buffer, kPathBufferSize);
  if (result == nullptr)
    return nullptr;
  char *end = result;
  for (size_t i = 0; i < route.climbs; i++, end += sizeof kStepUp)
    memcpy(end, kStepUp, sizeof kStepUp);
  memcpy(end, route.rest, rest_size);
  return result;
}

} // namespace

char *platform_get_cwd(char *buffer, int size) {
  if (buffer != nullptr)
    return getcwd(buffer, size > 0 ? static_cast<size_t>(size) : 0);
  // Kept: the block is not released when the system fails; the call answers what getcwd answers.
  char *result = ORV_MALLOC_ARRAY(char, kPathBufferSize);
  return result != nullptr ? getcwd(result, kPathAreaSize) : nullptr;
}

int platform_set_cwd(const char *path) {
  if (chdir(or_empty(path)) == 0)
    return 1;
  const orv::ErrnoGuard keep;
  diag_perror("platform_set_cwd");
  return 0;
}

char *platform_dir_name(const char *path, char *buffer) {
  if (path == nullptr)
    return nullptr;
  char *result = copy_to_result(path, buffer);
  if (result == nullptr)
    return nullptr;
  // Kept: the cut is at the last "/" wherever it stands, so what lies in the root directory has
  // the empty directory part, not "/".
  char *slash = strrchr(result, '/');
  *(slash != nullptr ? slash : result) = '\0';
  return result;
}

char *platform_base_name(const char *path, char *buffer) {
  return path != nullptr ? copy_to_result(base_name_in(path), buffer) : nullptr;
}

char *platform_extension(const char *path, char *buffer) {
  if (path == nullptr)
    return nullptr;
  const char *extension = extension_in(base_name_in(path));
  return extension != nullptr ? copy_to_result(extension, buffer) : nullptr;
}

char *platform_root_name(const char *path, char *buffer) {
  char *result = platform_base_name(path, buffer);
  if (result == nullptr)
    return nullptr;
  const char *extension = extension_in(result);
  if (extension != nullptr)
    result[extension - result] = '\0';
  return result;
}

char *platform_real_path(const char *path, char *buffer) {
  if (buffer != nullptr)
    return realpath(or_empty(path), buffer);
  char *result = ORV_MALLOC_ARRAY(char, kPathBufferSize);
  if (result == nullptr || realpath(or_empty(path), result) != nullptr)
    return result;
  const orv::ErrnoGuard keep;
  orv_free(result);
  return nullptr;
}

int platform_is_absolute(const char *path) {
  return path != nullptr && path[0] == '/' ? 1 : 0;
}

const char *platform_canonical_path(const char *path) {
  static char canonical[kPathBufferSize];
  return realpath(or_empty(path), canonical) != nullptr ? canonical : path;
}

char *platform_relative_path(const char *from, const char *to, char *buffer) {
  // Two empty paths are equal, although neither could be resolved.
  if (is_empty(from) && is_empty(to))
    return write_route({.climbs = 0, .rest = "."}, buffer);
  PathArea absolute_from;
  PathArea absolute_to;
  if (!make_absolute(from, absolute_from) || !make_absolute(to, absolute_to))
    return nullptr;
  return write_route(find_route(absolute_from, absolute_to), buffer);
}

char *platform_real_path_in(const char *directory, const char *path, char *buffer) {
  PathArea saved;
  if (getcwd(saved, sizeof saved) == nullptr)
    return nullptr; // there would be no way back
  // Kept: a failed change is reported, and the path is then resolved where the process stands.
  platform_set_cwd(directory);
  char *result = platform_real_path(path, buffer);
  platform_set_cwd(saved);
  return result;
}
