// Trees removed, and folders listed: by hand, by the least that the library's behaviour allows, by
// the C++ library, by the system's tool, and by the library.
#include "files.h"
#include "tool.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <fnmatch.h>
#include <orv/platform.h>
#include <vector>

namespace {

// ---- the works ----

std::string tree() {
  return files::scratch() / "tree";
}

void make_tree(const bench::Job &job) {
  files::make_folder(tree());
  files::fill_folder(tree() + "/folder", job.count, 0);
}

template <bool (*remove)(const char *path)> void remove_tree(const bench::Job &) {
  if (!remove(tree().c_str()))
    bench::die("the removal");
}

template <long (*list)(const char *path)> void list_folder(const bench::Job &job) {
  if (list((tree() + "/folder/").c_str()) != job.count)
    bench::die("the listing");
}

// ---- by hand ----

bool is_self_or_parent(const char *name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

bool remove_at(int parent, const char *name) {
  const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY);
  DIR *const folder = fd >= 0 ? fdopendir(fd) : nullptr;
  if (folder == nullptr)
    return false;
  bool removed = true;
  while (const dirent *const entry = readdir(folder)) {
    if (is_self_or_parent(entry->d_name))
      continue;
    removed = removed && (entry->d_type == DT_DIR ? remove_at(fd, entry->d_name)
                                                  : unlinkat(fd, entry->d_name, 0) == 0);
  }
  closedir(folder);
  return removed && unlinkat(parent, name, AT_REMOVEDIR) == 0;
}

bool remove_by_hand(const char *path) {
  return remove_at(AT_FDCWD, path);
}

long list_by_hand(const char *path) {
  DIR *const folder = opendir(path);
  if (folder == nullptr)
    return -1;
  std::vector<std::string> names;
  while (const dirent *const entry = readdir(folder))
    if (entry->d_name[0] != '.' && fnmatch("*", entry->d_name, 0) == 0)
      names.emplace_back(entry->d_name);
  closedir(folder);
  std::sort(names.begin(), names.end());
  return static_cast<long>(names.size());
}

// ---- the least that the library's behaviour allows: two listings, every entry removed by its
// path, and a status, with links followed, of what may be a link ----

struct Entry {
  std::string path;
  unsigned char type;
};

void list_entries(const std::string &folder_path, bool hidden, std::vector<Entry> &entries) {
  DIR *const folder = opendir(folder_path.c_str());
  if (folder == nullptr)
    bench::die(folder_path.c_str());
  while (const dirent *const entry = readdir(folder))
    if ((entry->d_name[0] == '.') == hidden && !is_self_or_parent(entry->d_name))
      entries.push_back({folder_path + "/" + entry->d_name, entry->d_type});
  closedir(folder);
}

bool is_folder(const Entry &entry) {
  struct stat status;
  return entry.type == DT_DIR || (entry.type == DT_LNK && stat(entry.path.c_str(), &status) == 0 &&
                                  S_ISDIR(status.st_mode));
}

bool remove_tightly(const char *path) {
  std::vector<Entry> entries;
  list_entries(path, false, entries);
  list_entries(path, true, entries);
  for (const Entry &entry : entries) {
    const char *const entry_path = entry.path.c_str();
    const bool removed = is_folder(entry)
                             ? access(entry_path, W_OK) == 0 && remove_tightly(entry_path)
                             : unlink(entry_path) == 0;
    if (!removed)
      return false;
  }
  return rmdir(path) == 0;
}

// ---- others ----

bool remove_by_std(const char *path) {
  std::error_code error;
  std::filesystem::remove_all(path, error);
  return !error;
}

bool remove_with_tool(const char *path) {
  return tool::run("/bin/rm", "-rf", path);
}

// ---- the library ----

bool remove_through_library(const char *path) {
  return platform_remove_tree(path) == 1;
}

bool remove_with_tool_through_library(const char *path) {
  return platform_rm_rf(path) == 1;
}

long list_through_library(const char *path) {
  platform_file_list_t list = {};
  if (platform_list_dir(path, "*", &list) != 1)
    return -1;
  const auto count = static_cast<long>(list.count);
  platform_free_dir_list(&list);
  return count;
}

constexpr bench::Contender kContenders[] = {
    {"raw", make_tree, remove_tree<remove_by_hand>},
    {"floor", make_tree, remove_tree<remove_tightly>},
    {"orv", make_tree, remove_tree<remove_through_library>},
    {"std", make_tree, remove_tree<remove_by_std>},
    {"rm", make_tree, remove_tree<remove_with_tool>},
    {"orv-tool", make_tree, remove_tree<remove_with_tool_through_library>},
    {"raw-list", make_tree, list_folder<list_by_hand>},
    {"orv-list", make_tree, list_folder<list_through_library>},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
