// Files: copies, listings, trees and tools. What was not done is as it was, what was done half is a
// first part, and the caller is told.
#include "scenario.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <orv/alloc.h>
#include <orv/platform.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace scenario;

namespace {

char bytes[20000];

std::string_view content() {
  for (size_t i = 0; i < sizeof bytes; i++)
    bytes[i] = static_cast<char>('a' + i / 100 % 26);
  return {bytes, sizeof bytes};
}

std::string_view content_of(const char *path) {
  const int fd = open(path, O_RDONLY);
  need(fd >= 0);
  const std::string_view text = contents(fd);
  close(fd);
  return text;
}

// A write that was refused or short leaves a gap that the result does not tell: the bytes are those
// of the source but for what is missing.
bool lacks_at_most(std::string_view copy, std::string_view whole, size_t most) {
  size_t common = 0;
  while (common < copy.size() && copy[common] == whole[common])
    common++;
  return copy.size() <= whole.size() && whole.size() - copy.size() <= most &&
         whole.ends_with(copy.substr(common));
}

void copy_a_file() {
  const char *source = in_folder("source");
  const char *copy = in_folder("copy");
  write_file(source, content());
  const Level level;
  errno = 0;
  const int result = platform_copy_file(source, copy);
  EXPECT(result == 1 || errno == EMFILE || errno == EIO);
  level.expect_descriptors();
  level.expect_heap();
  EXPECT(content_of(source) == content());
  if (!exists(copy))
    return EXPECT(result == 0);
  const std::string_view copied = content_of(copy);
  if (result == 0)
    EXPECT(content().starts_with(copied));
  else
    EXPECT(lacks_at_most(copied, content(), 8192));
}

// folder/tree with two files, one of them hidden, and a folder with a file.
const char *make_tree() {
  const char *tree = in_folder("tree/");
  mkdir(tree, 0777);
  mkdir(in_folder("tree/below"), 0777);
  write_file(in_folder("tree/one"), "1");
  write_file(in_folder("tree/.hidden"), "2");
  write_file(in_folder("tree/below/two"), "3");
  return tree;
}

bool tree_is_whole(const char *name) {
  char path[100];
  for (const char *entry : {"one", ".hidden", "below/two"}) {
    snprintf(path, sizeof path, "%s/%s", name, entry);
    if (!exists(in_folder(path)))
      return false;
  }
  return true;
}

void list_a_folder() {
  const char *tree = make_tree();
  const Level level;
  platform_file_list_t list = {};
  if (platform_list_dir(tree, "*", &list) == 1) {
    EXPECT(list.count == 2 && strcmp(list.paths[0], in_folder("tree/below")) == 0);
    EXPECT(strcmp(list.paths[1], in_folder("tree/one")) == 0 && list.paths[2] == nullptr);
    platform_free_dir_list(&list);
  } else {
    EXPECT(list.count == 0 && list.paths == nullptr && list.glob == nullptr);
  }
  level.expect_heap();
  level.expect_descriptors();
}

void remove_a_tree() {
  const char *tree = make_tree();
  const Level level;
  const int result = platform_remove_tree(tree);
  EXPECT(result == (exists(tree) ? 0 : 1));
  level.expect_heap(500); // the copies that joining leaves
  level.expect_descriptors();
}

// A refused wait leaves the tool running, or a zombie.
void collect_tool() {
  while (waitpid(-1, nullptr, 0) > 0) {
  }
}

void remove_with_the_tool() {
  const char *tree = make_tree();
  const int result = platform_rm_rf(tree);
  end_copies();
  collect_tool();
  EXPECT(exists(tree) ? result == 0 && tree_is_whole("tree") : true);
}

void copy_with_the_tool() {
  const char *tree = make_tree();
  const int result = platform_cp_a(tree, in_folder("copied"));
  end_copies();
  collect_tool();
  EXPECT(tree_is_whole("tree"));
  EXPECT(result == 1 ? tree_is_whole("copied") : true);
  EXPECT(exists(in_folder("copied")) ? tree_is_whole("copied") : result == 0);
}

void move_with_the_tool() {
  const char *tree = make_tree();
  const int result = platform_mv(tree, in_folder("moved"));
  end_copies();
  collect_tool();
  EXPECT(tree_is_whole("tree") != tree_is_whole("moved"));
  EXPECT(result == 1 ? tree_is_whole("moved") : true);
}

// Refused storage is the matter of the allocation library; here its handler lets the program go on.
void use_null_handler() {
  orv_set_malloc_failure_handler([](size_t, const char *) -> void * { return nullptr; });
}

void release_or_expect(char *result, const char *expected) {
  if (result != nullptr)
    EXPECT(strcmp(result, expected) == 0);
  else
    EXPECT(errno != 0);
  orv_free(result);
}

// The folder's own name: it may be reached through a link.
const char *resolved_folder() {
  static char path[PATH_MAX];
  need(realpath(folder(), path) != nullptr);
  return path;
}

void take_paths_apart() {
  use_null_handler();
  const Level level;
  release_or_expect(platform_dir_name("/a/b.c", nullptr), "/a");
  release_or_expect(platform_base_name("/a/b.c", nullptr), "b.c");
  release_or_expect(platform_extension("/a/b.c", nullptr), ".c");
  release_or_expect(platform_root_name("/a/b.c", nullptr), "b");
  release_or_expect(platform_relative_path("/a/b/c", "/a/x/y", nullptr), "../../x/y");
  level.expect_heap();
}

void resolve_paths() {
  use_null_handler();
  need(chdir(resolved_folder()) == 0);
  write_file(in_folder("file"), "");
  char expected[PATH_MAX + 10];
  snprintf(expected, sizeof expected, "%s/file", resolved_folder());
  char area[PATH_MAX];
  const Level level;
  errno = 0;
  char *real = platform_real_path("file", nullptr);
  release_or_expect(real, expected);
  EXPECT(platform_real_path("file", area) != nullptr ? strcmp(area, expected) == 0 : errno != 0);
  EXPECT(platform_get_cwd(area, sizeof area) != nullptr ? strcmp(area, resolved_folder()) == 0
                                                        : errno != 0);
  const char *canonical = platform_canonical_path("file");
  EXPECT(strcmp(canonical, expected) == 0 || strcmp(canonical, "file") == 0);
  release_or_expect(platform_relative_path("file", "file", nullptr), ".");
  level.expect_heap();
  level.expect_descriptors();
  // The one block that is left where the directory cannot be told.
  release_or_expect(platform_get_cwd(nullptr, 0), resolved_folder());
  level.expect_heap(5000);
}

// Afterwards the process stands where it stood, unless the way back itself was refused.
void resolve_from_elsewhere() {
  use_null_handler();
  need(chdir("/") == 0);
  write_file(in_folder("file"), "");
  char expected[PATH_MAX + 10];
  snprintf(expected, sizeof expected, "%s/file", resolved_folder());
  const Level level;
  errno = 0;
  char *result = platform_real_path_in(resolved_folder(), "file", nullptr);
  const int error = errno;
  release_or_expect(result, expected);
  char area[PATH_MAX];
  need(getcwd(area, sizeof area) != nullptr);
  EXPECT(strcmp(area, "/") == 0 || (strcmp(area, resolved_folder()) == 0 && error == EACCES));
  level.expect_heap();
}

void ask_about_a_file() {
  const char *file = in_folder("file");
  write_file(file, "12345");
  const Level level;
  const int64_t size = platform_file_size(file);
  EXPECT(size == 5 || size == -1);
  EXPECT(platform_file_mtime(file) >= 0);
  const char *owner = platform_file_owner(file);
  EXPECT(owner == nullptr || owner[0] != '\0');
  EXPECT(platform_exists(file) <= 1 && platform_is_dir(file) == 0);
  const uint64_t space = platform_free_space(folder());
  EXPECT(space != UINT64_MAX);
  const platform_file_sig_t signature = platform_file_sig(file);
  EXPECT(platform_sig_valid(signature) == 1 ? signature.size == 5 : signature.size == 0);
  const int fd = open(file, O_RDONLY);
  need(fd >= 0);
  const platform_file_sig_t same = platform_fd_sig(fd);
  EXPECT(platform_sig_valid(same) == 1 ? same.size == 5 : same.size == 0);
  close(fd);
  level.expect_descriptors();
}

void change_files() {
  const char *made = in_folder("made");
  const char *renamed = in_folder("renamed");
  if (platform_mkdir(made) == 0)
    return EXPECT(!exists(made));
  EXPECT(exists(made));
  const int moved = platform_rename(made, renamed);
  EXPECT(moved == 1 ? !exists(made) && exists(renamed) : exists(made) && !exists(renamed));
  const char *left = moved == 1 ? renamed : made;
  EXPECT(platform_rmdir(left) == (exists(left) ? 0 : 1));
  write_file(in_folder("file"), "1");
  EXPECT(platform_remove(in_folder("file")) == (exists(in_folder("file")) ? 0 : 1));
}

void ask_about_processes() {
  const Level level;
  uint64_t virtual_kb = 0;
  uint64_t resident_kb = 0;
  if (platform_process_memory(-1, &virtual_kb, &resident_kb) == 1)
    EXPECT(virtual_kb >= resident_kb && resident_kb > 0);
  else
    EXPECT(virtual_kb == 0 && resident_kb == 0 && errno != 0);
  EXPECT(platform_process_exists(getpid()) == 1 || errno != 0);
  level.expect_descriptors();
  level.expect_heap(6000); // of a message's streams
}

constexpr Scenario kScenarios[] = {
    {"file-copy", copy_a_file, false, {}},
    {"file-list", list_a_folder, true, {}},
    {"file-remove-tree", remove_a_tree, true, {}},
    {"file-rm", remove_with_the_tool, false, {}},
    {"file-cp", copy_with_the_tool, false, {}},
    {"file-mv", move_with_the_tool, false, {}},
    {"path-parts", take_paths_apart, false, {}},
    {"path-resolve", resolve_paths, false, {}},
    {"path-resolve-in", resolve_from_elsewhere, true, {}},
    {"file-status", ask_about_a_file, false, {}},
    {"file-changes", change_files, false, {}},
    {"process-info", ask_about_processes, true, {}},
};

} // namespace

Table scenario::file_scenarios() {
  return {kScenarios, std::size(kScenarios)};
}
