// Recipes for files and paths.
#include "platform/file_control/folder.h"
#include "support/system.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <orv/platform.h>
#include <pwd.h>
#include <sys/statvfs.h>

namespace {

bool no_tool_can_be_executed = false;
bool counts_in_fragments = false; // a file system with 10 fragments of 4096 bytes left

} // namespace

extern "C" {

int __real_execvp(const char *program, char *const *argv);
int __wrap_execvp(const char *program, char *const *argv) {
  if (!no_tool_can_be_executed)
    return __real_execvp(program, argv);
  errno = ENOENT;
  return -1;
}

int __real_statvfs(const char *path, struct statvfs *status);
int __wrap_statvfs(const char *path, struct statvfs *status) {
  if (!counts_in_fragments)
    return __real_statvfs(path, status);
  *status = {};
  status->f_bsize = 1'048'576;
  status->f_frsize = 4096;
  status->f_bavail = 10;
  return 0;
}

} // extern "C"

namespace {

using namespace files;

class FileRecipes : public FolderTest {
protected:
  // The names in a directory that match a pattern.
  static std::vector<std::string> listed(const std::string &directory, const char *pattern) {
    std::vector<std::string> names;
    platform_file_list_t list;
    if (!platform_list_dir(directory.c_str(), pattern, &list))
      return names;
    for (uint64_t i = 0; i < list.count; i++)
      names.push_back(taken(platform_base_name(list.paths[i], nullptr)));
    platform_free_dir_list(&list);
    return names;
  }
};

TEST_F(FileRecipes, give_a_buffer_where_the_working_directory_may_be_gone) {
  std::filesystem::current_path(make_folder("gone"));
  rmdir(in("gone").c_str());
  char buffer[4097];
  EXPECT_EQ(platform_get_cwd(buffer, sizeof buffer), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

std::string directory_of(const char *path) {
  const std::string directory = taken(platform_dir_name(path, nullptr));
  return directory.empty() && platform_is_absolute(path) ? "/" : directory;
}

TEST_F(FileRecipes, treat_an_empty_directory_of_an_absolute_path_as_the_root) {
  EXPECT_EQ(directory_of("/usr"), "/");
  EXPECT_EQ(directory_of("/usr/lib"), "/usr");
  EXPECT_EQ(directory_of("file"), "");
}

TEST_F(FileRecipes, relate_directories_whose_names_do_not_begin_alike) {
  EXPECT_EQ(taken(platform_relative_path("/a/x", "/a/b/c", nullptr)), "../b/c");
}

TEST_F(FileRecipes, relate_from_a_directory_without_a_slash_behind_it) {
  EXPECT_EQ(taken(platform_relative_path("/a", "/a/x", nullptr)), "x");
  EXPECT_EQ(taken(platform_relative_path("/a/b", "/a/x", nullptr)), "../x");
}

char *real_path_in_if_possible(const char *directory, const char *path) {
  if (!platform_is_dir(directory) || !platform_is_executable(directory))
    return nullptr;
  return platform_real_path_in(directory, path, nullptr);
}

TEST_F(FileRecipes, ask_whether_a_directory_can_be_entered_before_resolving_in_it) {
  make_folder("d");
  make_file("d/x");
  make_file("x");
  std::filesystem::current_path(folder);
  EXPECT_EQ(taken(real_path_in_if_possible("d", "x")), in("d/x"));
  EXPECT_EQ(taken(real_path_in_if_possible("missing", "x")), "(null)");
}

TEST_F(FileRecipes, ask_the_system_for_free_space_in_fragments) {
  counts_in_fragments = true;
  struct statvfs status;
  ASSERT_EQ(statvfs(folder.c_str(), &status), 0);
  EXPECT_EQ(status.f_bavail * status.f_frsize, 40'960U);
  EXPECT_EQ(platform_free_space(folder.c_str()), 10'485'760U) << "which is why";
}

TEST_F(FileRecipes, unlink_a_dangling_link) {
  const std::string link = make_link("nothing", "link");
  if (!platform_remove(link.c_str()))
    unlink(link.c_str());
  EXPECT_FALSE(has("link"));
}

TEST_F(FileRecipes, list_a_directory_with_a_slash_behind_it) {
  make_file("a.c");
  EXPECT_THAT(listed(folder + "/", "*.c"), testing::ElementsAre("a.c"));
}

TEST_F(FileRecipes, escape_wildcards_in_the_directory_of_a_listing) {
  make_folder("d[12]");
  make_file("d[12]/right");
  make_folder("d1");
  make_file("d1/wrong");
  EXPECT_THAT(listed(folder + "/d\\[12]/", "*"), testing::ElementsAre("right"));
}

TEST_F(FileRecipes, remove_trees_with_any_names_by_the_tool) {
  make_folder("d[12]");
  make_file("d[12]/right");
  make_folder("d1");
  make_file("d1/wrong");
  EXPECT_EQ(platform_rm_rf(in("d[12]").c_str()), 1);
  EXPECT_FALSE(has("d[12]"));
  EXPECT_TRUE(has("d1/wrong"));
}

TEST_F(FileRecipes, clear_the_record_of_a_listing_before_it_is_used_again) {
  make_file("a.c");
  platform_file_list_t list;
  ASSERT_EQ(platform_list_dir((folder + "/").c_str(), "*.c", &list), 1);
  platform_free_dir_list(&list);
  EXPECT_EQ(list.count, 1U) << "the paths are gone, the count is not";
  list = {};
  EXPECT_EQ(list.count, 0U);
  EXPECT_EQ(list.paths, nullptr);
}

TEST_F(FileRecipes, remove_trees_with_links_by_the_tool) {
  make_folder("kept");
  make_file("kept/file");
  make_folder("tree");
  make_link(in("kept"), "tree/link");
  EXPECT_EQ(platform_rm_rf(in("tree").c_str()), 1);
  EXPECT_FALSE(has("tree"));
  EXPECT_TRUE(has("kept/file"));
}

TEST_F(FileRecipes, remove_trees_with_dangling_links_by_the_tool) {
  make_folder("tree");
  make_link("nothing", "tree/link");
  EXPECT_EQ(platform_rm_rf(in("tree").c_str()), 1);
  EXPECT_FALSE(has("tree"));
}

TEST_F(FileRecipes, tell_the_second_copy_of_a_caller_without_tools_by_its_id) {
  const auto outcome = support::run_in_child([this] {
    no_tool_can_be_executed = true;
    const int own_id = platform_getpid();
    const int removed = platform_rm_rf(folder.c_str());
    if (platform_getpid() != own_id)
      _exit(1);
    printf("%d", removed);
  });
  EXPECT_EQ(outcome.out, "0");
  EXPECT_TRUE(platform_is_dir(folder.c_str()));
}

TEST_F(FileRecipes, lead_a_path_that_begins_with_a_dash_by_its_directory) {
  std::filesystem::current_path(folder);
  make_file("-i");
  EXPECT_EQ(platform_rm_rf("./-i"), 1);
  EXPECT_FALSE(has("-i"));
}

TEST_F(FileRecipes, move_a_plain_file_by_renaming_or_copying_it) {
  const std::string file = make_file("file", "text");
  EXPECT_EQ(platform_rename(file.c_str(), in("renamed").c_str()), 1);
  ASSERT_EQ(platform_copy_file(in("renamed").c_str(), in("moved").c_str()), 1);
  ASSERT_EQ(platform_file_size(in("renamed").c_str()), platform_file_size(in("moved").c_str()));
  EXPECT_EQ(platform_remove(in("renamed").c_str()), 1);
  EXPECT_EQ(contents("moved"), "text");
  EXPECT_FALSE(has("renamed"));
}

TEST_F(FileRecipes, ask_for_the_owner_of_a_file) {
  const std::string owner = shown(platform_file_owner(make_file("file").c_str()));
  const passwd *entry = getpwuid(geteuid());
  EXPECT_EQ(owner, entry != nullptr ? entry->pw_name : "(null)");
}

TEST_F(FileRecipes, compare_the_fields_of_signatures_that_are_not_compared) {
  const std::string file = make_file("file", "text");
  const auto access_at = [&file](time_t when) {
    const timespec times[2] = {{when, 0}, {0, UTIME_OMIT}};
    utimensat(AT_FDCWD, file.c_str(), times, 0);
    return platform_file_sig(file.c_str());
  };
  const platform_file_sig_t before = access_at(1'000'000'000);
  const platform_file_sig_t after = access_at(1'000'000'001);
  EXPECT_NE(before.atime, after.atime);
  EXPECT_EQ(before.check, after.check);
}

} // namespace
