// Listing a folder tree by wildcard: folder after folder, without entering links to folders, so
// that a tree that links back into itself is listed once.
#include "names.h"
#include "survey.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <orv/alloc.h>
#include <orv/msg.h>

namespace survey {
namespace {

constexpr size_t kPathArea = 4097; // what the platform calls want of a path buffer
constexpr size_t kSlotsAtFirst = 64;

// The folders of the tree, in the order in which they were found. Those from `next` on are still
// to be listed.
struct Folders {
  char **paths;
  size_t count;
  size_t capacity;
  size_t next;
};

size_t grown(size_t capacity) {
  return capacity == 0 ? kSlotsAtFirst : 2 * capacity;
}

void add_folder(Folders &folders, const char *path) {
  if (folders.count == folders.capacity) {
    folders.capacity = grown(folders.capacity);
    folders.paths = static_cast<char **>(orv_realloc(
        folders.paths, folders.capacity * sizeof(char *), "add_folder", "folders to list"));
  }
  folders.paths[folders.count++] = ORV_STRDUP(path);
}

void add_entry(Tree &tree, const char *path, const platform_file_sig_t &signature, int error) {
  if (tree.count == tree.capacity) {
    tree.capacity = grown(tree.capacity);
    tree.entries = static_cast<Entry *>(
        orv_realloc(tree.entries, tree.capacity * sizeof(Entry), "add_entry", "entries"));
  }
  tree.entries[tree.count++] = {
      .path = ORV_STRDUP(path),
      .state = error == 0 ? EntryState::waiting : EntryState::unreadable,
      .error = error,
      .ended_at_turn = 0,
      .counts = {},
      .signature = signature,
  };
}

void add_unreadable(Tree &tree, const char *path, int error) {
  add_entry(tree, path, {}, error == 0 ? EIO : error);
}

// The folder as the directory part of a wildcard pattern: its own wildcards are escaped, and it
// ends in a slash, because a listing that has to append one keeps copies.
char *directory_pattern(const char *folder) {
  char *pattern = ORV_MALLOC_ARRAY(char, 2 * strlen(folder) + 2);
  char *end = pattern;
  for (const char *at = folder; *at != '\0'; at++) {
    if (strchr("*?[\\", *at) != nullptr)
      *end++ = '\\';
    *end++ = *at;
  }
  if (end == pattern || end[-1] != '/')
    *end++ = '/';
  *end = '\0';
  return pattern;
}

// A folder is entered only where its name says that it is. The platform calls follow links, so
// this is how a link shows: it leads elsewhere.
bool is_in_place(const char *real_folder, const char *name, const char *real_path) {
  const size_t length = strcmp(real_folder, "/") == 0 ? 0 : strlen(real_folder);
  return strncmp(real_path, real_folder, length) == 0 && real_path[length] == '/' &&
         strcmp(real_path + length + 1, name) == 0;
}

void visit_folder(Tree &tree, Folders &folders, const char *real_folder, const char *name,
                  const char *path) {
  char real_path[kPathArea];
  if (platform_real_path(path, real_path) == nullptr) {
    add_unreadable(tree, path, errno);
  } else if (is_in_place(real_folder, name, real_path)) {
    add_folder(folders, path);
  } else {
    trace_name("link to a folder, not entered", path);
    tree.linked_folders++;
  }
}

void visit(Tree &tree, Folders &folders, const char *real_folder, const char *path) {
  char name[kPathArea];
  platform_base_name(path, name);
  if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0)
    return;
  errno = 0;
  const platform_file_sig_t signature = platform_file_sig(path);
  if (platform_sig_valid(signature) == 0) {
    add_unreadable(tree, path, errno);
  } else if (platform_sig_mode_test(2, signature) != 0) {
    visit_folder(tree, folders, real_folder, name, path);
  } else if (platform_sig_mode_test(1, signature) != 0) {
    add_entry(tree, path, signature, 0);
  } else {
    trace_name("not a regular file, not opened", path);
    tree.special_files++;
  }
}

bool list_matches(Tree &tree, Folders &folders, const char *folder, const char *real_folder,
                  const char *wildcard) {
  platform_file_list_t list = {};
  char *pattern = directory_pattern(folder);
  const bool matched = platform_list_dir(pattern, wildcard, &list) != 0;
  orv_free(pattern);
  for (uint64_t i = 0; matched && i < list.count; i++)
    visit(tree, folders, real_folder, list.paths[i]);
  if (matched)
    platform_free_dir_list(&list);
  return matched;
}

void list_folder(Tree &tree, Folders &folders, const char *folder) {
  char real_folder[kPathArea];
  errno = 0;
  // "." and ".." match ".*" in every folder that can be listed.
  if (platform_real_path(folder, real_folder) == nullptr || platform_is_readable(folder) == 0 ||
      platform_is_executable(folder) == 0 ||
      !list_matches(tree, folders, folder, real_folder, ".*")) {
    add_unreadable(tree, folder, errno);
    return;
  }
  list_matches(tree, folders, folder, real_folder, "*");
}

int compare_paths(const void *left, const void *right) {
  return strcmp(static_cast<const Entry *>(left)->path, static_cast<const Entry *>(right)->path);
}

} // namespace

Tree list_tree(const char *folder) {
  Tree tree = {};
  Folders folders = {};
  add_folder(folders, folder);
  while (folders.next < folders.count) {
    char *path = folders.paths[folders.next++];
    list_folder(tree, folders, path);
    orv_free(path);
  }
  orv_free(folders.paths);
  if (tree.count > 0)
    qsort(tree.entries, tree.count, sizeof(Entry), compare_paths);
  return tree;
}

void free_tree(Tree &tree) {
  for (size_t i = 0; i < tree.count; i++)
    orv_free(tree.entries[i].path);
  orv_free(tree.entries);
  tree = {};
}

void take_over_unchanged(Tree &tree, const Tree &earlier) {
  size_t old = 0;
  for (size_t i = 0; i < tree.count; i++) {
    Entry &entry = tree.entries[i];
    while (old < earlier.count && compare_paths(&earlier.entries[old], &entry) < 0)
      old++;
    if (old == earlier.count)
      return;
    const Entry &known = earlier.entries[old];
    if (entry.state != EntryState::waiting || known.state != EntryState::counted ||
        compare_paths(&known, &entry) != 0 ||
        platform_sig_differs(known.signature, entry.signature) != 0)
      continue;
    entry.state = EntryState::counted;
    entry.counts = known.counts;
    entry.signature = known.signature;
  }
}

} // namespace survey
