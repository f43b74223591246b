// Whole trees: removing one entry by entry, and removing, copying and moving through the system's
// own tools.
#include "common/guards.h"
#include "platform/file_control_internal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <orv/platform.h>
#include <unistd.h>

using orv::file_control::or_empty;
using orv::file_control::read_status;

namespace {

// A tool: where it is looked for, and the name that the search of PATH is left with.
struct Tool {
  const char *fixed_paths[2];
  const char *bare_name;
};

constexpr Tool kRm = {.fixed_paths = {"/bin/rm", "/usr/bin/rm"}, .bare_name = "rm"};
constexpr Tool kCp = {.fixed_paths = {"/bin/cp", "/usr/bin/cp"}, .bare_name = "cp"};
constexpr Tool kMv = {.fixed_paths = {"/bin/mv", "/usr/bin/mv"}, .bare_name = "mv"};

[[nodiscard]] const char *choose(const Tool &tool) {
  for (const char *path : tool.fixed_paths)
    if (platform_is_executable(path) == 1)
      return path;
  return tool.bare_name;
}

// Waits for a spawned tool; 1 when it ended well. The status starts as a failure, because a wait
// that fails leaves it alone.
// Kept: where no tool could be started in the child, that child comes here with 0 for its process
// id: its wait fails too, and it goes on with the caller's code.
[[nodiscard]] int ended_well(int child) {
  if (child == -1)
    return 0;
  int status = -1;
  platform_wait_child(child, &status);
  return status == 0 ? 1 : 0;
}

[[nodiscard]] bool is_self_or_parent(const char *path) {
  const char *slash = strrchr(path, '/');
  const char *name = slash != nullptr ? slash + 1 : path;
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// Whether no entry of the directory is a link, as far as the system tells without being asked about
// each. A listing takes a path with wildcards for a pattern, so what it lists may lie elsewhere.
[[nodiscard]] bool holds_no_link(const char *path) {
  DIR *const directory = strpbrk(path, "*?[\\") == nullptr ? opendir(path) : nullptr;
  if (directory == nullptr)
    return false;
  bool link_seen = false;
  const dirent *entry = nullptr;
  errno = 0;
  while (!link_seen && (entry = readdir(directory)) != nullptr)
    link_seen = entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN;
  const bool read_to_the_end = errno == 0;
  closedir(directory);
  return read_to_the_end && !link_seen;
}

[[nodiscard]] bool remove_directory(const char *path);

// Removes one entry of a tree. One status answers all that is asked: whether there is a file, and
// whether it is a directory.
[[nodiscard]] bool remove_entry(const char *path) {
  struct stat status;
  // Kept: a dangling link is passed over, so the directory that holds it stays.
  if (!read_status(path, status))
    return true;
  // Kept: a link to a directory is a directory here: what it leads to is emptied, and removing the
  // link itself as a directory fails.
  if (S_ISDIR(status.st_mode))
    return platform_is_writable(path) == 1 && remove_directory(path);
  return remove(path) == 0;
}

// Removes the listed entries up to the first that cannot be removed; true when all are gone. Where
// none is a link, what can be unlinked needs no status, which takes as long as the rest together.
[[nodiscard]] bool remove_entries(const platform_file_list_t &list, bool no_link) {
  for (uint64_t i = 0; i < list.count; i++) {
    const char *const path = list.paths[i];
    if (is_self_or_parent(path) || (no_link && unlink(path) == 0))
      continue;
    if (!remove_entry(path))
      return false;
  }
  return true;
}

// Removes a writable directory with everything below it. Where neither listing finds anything, it
// counts as empty.
bool remove_directory(const char *path) {
  platform_file_list_t visible = {};
  platform_file_list_t hidden = {};
  platform_list_dir(path, "*", &visible);
  platform_list_dir(path, ".*", &hidden);
  const bool no_link = holds_no_link(path);
  const bool removed =
      remove_entries(visible, no_link) && remove_entries(hidden, no_link) && rmdir(path) == 0;
  const orv::ErrnoGuard keep;
  platform_free_dir_list(&visible);
  platform_free_dir_list(&hidden);
  return removed;
}

} // namespace

int platform_remove_tree(const char *path) {
  return platform_is_writable_dir(path) == 1 && remove_directory(path) ? 1 : 0;
}

// Kept: the tools get a path as it is, so one that begins with "-" is read as their option.
int platform_rm_rf(const char *path) {
  const char *tool = choose(kRm);
  return ended_well(platform_spawn_list(tool, tool, "-r", "-f", or_empty(path), nullptr));
}

int platform_cp_a(const char *source, const char *destination) {
  const char *tool = choose(kCp);
  return ended_well(
      platform_spawn_list(tool, tool, "-a", or_empty(source), or_empty(destination), nullptr));
}

int platform_mv(const char *source, const char *destination) {
  // Kept: only a writable directory is moved; a plain file is refused before anything is run.
  if (platform_is_writable_dir(source) == 0)
    return 0;
  const char *tool = choose(kMv);
  return ended_well(
      platform_spawn_list(tool, tool, "-f", or_empty(source), or_empty(destination), nullptr));
}
