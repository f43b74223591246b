// Removing a tree without a child process.
#include "folder.h"
#include "support/system.h"

#include <cerrno>
#include <dirent.h>
#include <orv/platform.h>
#include <string>
#include <sys/stat.h>

using files::asked_as_nobody;

namespace {

long statuses_asked;
enum class Reading { tells_types, tells_no_types, fails } reading = Reading::tells_types;

} // namespace

extern "C" {
int __real_stat(const char *path, struct stat *status);
dirent *__real_readdir(DIR *directory);

int __wrap_stat(const char *path, struct stat *status) {
  statuses_asked++;
  return __real_stat(path, status);
}

dirent *__wrap_readdir(DIR *directory) {
  if (reading == Reading::fails) {
    errno = EIO;
    return nullptr;
  }
  dirent *const entry = __real_readdir(directory);
  if (entry != nullptr && reading == Reading::tells_no_types)
    entry->d_type = DT_UNKNOWN;
  return entry;
}
}

namespace {

namespace fs = std::filesystem;

class RemovedTree : public files::FolderTest {
protected:
  int remove(const std::string &name) const { return platform_remove_tree(in(name).c_str()); }
  int remove_as_nobody(const std::string &name) const {
    return asked_as_nobody([&] { return remove(name); });
  }
};

// Two listings of a directory whose path has no trailing "/" leave two blocks each.
constexpr long kLeftForADirectory = 4;

TEST_F(RemovedTree, is_gone_with_everything_below_it) {
  expect_blocks_left(4 * kLeftForADirectory);
  make_folder("tree/a/b");
  make_folder("tree/.hidden");
  make_file("tree/file", "text");
  make_file("tree/.dot", "text");
  make_file("tree/a/b/deep", "text");
  make_file("tree/.hidden/..name", "text");
  make_link("file", "tree/earlier_than_its_file");
  const long forks = support::calls("fork");
  EXPECT_EQ(remove("tree"), 1);
  EXPECT_FALSE(has("tree"));
  EXPECT_EQ(support::calls("fork"), forks);
}

TEST_F(RemovedTree, may_be_an_empty_directory) {
  expect_blocks_left(kLeftForADirectory);
  make_folder("tree");
  EXPECT_EQ(remove("tree"), 1);
  EXPECT_FALSE(has("tree"));
}

TEST_F(RemovedTree, leaves_no_block_when_it_is_given_with_its_slash) {
  make_folder("tree");
  make_file("tree/file");
  make_file("tree/.dot");
  EXPECT_EQ(remove("tree/"), 1);
  EXPECT_FALSE(has("tree"));
}

TEST_F(RemovedTree, must_be_a_writable_directory) {
  make_file("file");
  ASSERT_EQ(chmod(in("file").c_str(), 0666), 0);
  EXPECT_EQ(remove("file"), 0);
  EXPECT_TRUE(has("file"));
  EXPECT_EQ(remove("missing"), 0);
  EXPECT_EQ(platform_remove_tree(""), 0);
  EXPECT_EQ(platform_remove_tree(nullptr), 0);
  make_folder("tree");
  make_file("tree/file");
  ASSERT_EQ(chmod(in("tree").c_str(), 0555), 0);
  EXPECT_EQ(remove_as_nobody("tree"), 0);
  EXPECT_TRUE(has("tree/file"));
}

TEST_F(RemovedTree, stays_when_it_or_a_directory_in_it_is_empty_but_read_only) {
  make_folder("tree");
  make_folder("tree/sub", 0555);
  EXPECT_EQ(remove_as_nobody("tree/sub"), 0);
  EXPECT_TRUE(has("tree/sub"));
  EXPECT_EQ(remove_as_nobody("tree"), 0);
  EXPECT_TRUE(has("tree/sub"));
}

TEST_F(RemovedTree, of_a_read_only_directory_keeps_what_its_subdirectories_hold) {
  make_folder("tree/sub");
  make_file("tree/sub/file");
  ASSERT_EQ(chmod(in("tree").c_str(), 0555), 0);
  EXPECT_EQ(remove_as_nobody("tree"), 0);
  EXPECT_TRUE(has("tree/sub/file"));
}

TEST_F(RemovedTree, is_tried_as_an_empty_directory_when_it_cannot_be_listed) {
  make_folder("tree", 0333);
  EXPECT_EQ(remove_as_nobody("tree"), 1);
  EXPECT_FALSE(has("tree"));
  make_folder("tree", 0777);
  make_file("tree/file");
  ASSERT_EQ(chmod(in("tree").c_str(), 0333), 0);
  EXPECT_EQ(remove_as_nobody("tree"), 0);
  EXPECT_TRUE(has("tree/file"));
}

TEST_F(RemovedTree, stops_at_the_first_entry_that_cannot_be_removed) {
  make_folder("tree");
  make_folder("tree/b", 0555);
  ASSERT_EQ(chmod(in("tree/b").c_str(), 0777), 0);
  make_file("tree/b/kept");
  ASSERT_EQ(chmod(in("tree/b").c_str(), 0555), 0);
  for (const char *name : {"tree/a", "tree/c", "tree/.hidden"})
    make_file(name);
  EXPECT_EQ(remove_as_nobody("tree"), 0);
  EXPECT_FALSE(has("tree/a"));
  EXPECT_TRUE(has("tree/b/kept"));
  EXPECT_TRUE(has("tree/c"));
  EXPECT_TRUE(has("tree/.hidden"));
}

TEST_F(RemovedTree, stops_at_a_hidden_entry_after_the_visible_ones) {
  make_folder("tree");
  make_folder("tree/.b", 0777);
  make_file("tree/.b/kept");
  ASSERT_EQ(chmod(in("tree/.b").c_str(), 0555), 0);
  for (const char *name : {"tree/.a", "tree/.c", "tree/visible"})
    make_file(name);
  EXPECT_EQ(remove_as_nobody("tree"), 0);
  EXPECT_FALSE(has("tree/.a"));
  EXPECT_FALSE(has("tree/visible"));
  EXPECT_TRUE(has("tree/.b/kept"));
  EXPECT_TRUE(has("tree/.c"));
}

TEST_F(RemovedTree, stops_at_a_file_that_the_system_refuses_to_remove) {
  if (geteuid() != 0)
    GTEST_SKIP() << "only root makes a file that another user may not remove";
  make_folder("tree");
  ASSERT_EQ(chmod(in("tree").c_str(), 01777), 0); // sticky: only the owner removes
  make_file("tree/a");
  make_file("tree/b");
  ASSERT_EQ(chown(in("tree/a").c_str(), 65534, 65534), 0);
  EXPECT_EQ(remove_as_nobody("tree"), 0);
  EXPECT_FALSE(has("tree/a"));
  EXPECT_TRUE(has("tree/b"));
}

TEST_F(RemovedTree, loses_a_link_to_a_file_but_not_the_file) {
  expect_blocks_left(kLeftForADirectory);
  make_file("file", "text");
  make_folder("tree");
  make_link("../file", "tree/link");
  EXPECT_EQ(remove("tree"), 1);
  EXPECT_EQ(contents("file"), "text");
}

TEST_F(RemovedTree, empties_the_directory_behind_a_link_and_stops_there) {
  expect_blocks_left(2 * kLeftForADirectory);
  make_folder("elsewhere");
  make_file("elsewhere/file");
  make_folder("tree");
  make_file("tree/a");
  make_link("../elsewhere", "tree/link");
  make_file("tree/z");
  EXPECT_EQ(remove("tree"), 0);
  EXPECT_TRUE(has("elsewhere"));
  EXPECT_FALSE(has("elsewhere/file"));
  EXPECT_FALSE(has("tree/a"));
  EXPECT_TRUE(has("tree/link"));
  EXPECT_TRUE(has("tree/z"));
}

TEST_F(RemovedTree, may_itself_be_reached_by_a_link_that_stays) {
  expect_blocks_left(kLeftForADirectory);
  make_folder("elsewhere");
  make_file("elsewhere/file");
  make_link("elsewhere", "tree");
  errno = 0;
  EXPECT_EQ(remove("tree"), 0);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_TRUE(has("elsewhere"));
  EXPECT_FALSE(has("elsewhere/file"));
}

TEST_F(RemovedTree, passes_over_a_dangling_link_and_is_kept_by_it) {
  expect_blocks_left(kLeftForADirectory);
  make_folder("tree");
  make_file("tree/a");
  make_link("missing", "tree/dangling");
  make_file("tree/z");
  errno = 0;
  EXPECT_EQ(remove("tree"), 0);
  EXPECT_EQ(errno, ENOTEMPTY);
  EXPECT_FALSE(has("tree/a"));
  EXPECT_FALSE(has("tree/z"));
  EXPECT_TRUE(has("tree/dangling"));
}

TEST_F(RemovedTree, passes_over_a_dangling_link_where_types_cannot_be_read) {
  expect_blocks_left(2 * kLeftForADirectory);
  make_folder("tree");
  make_link("missing", "tree/dangling");
  for (const Reading answer : {Reading::tells_no_types, Reading::fails}) {
    reading = answer;
    EXPECT_EQ(remove("tree"), 0);
    EXPECT_TRUE(has("tree/dangling"));
  }
}

TEST_F(RemovedTree, asks_for_the_status_of_files_only_where_there_may_be_a_link) {
  expect_blocks_left(2 * kLeftForADirectory);
  make_folder("linkless");
  make_folder("linked");
  make_file("file");
  make_link("../file", "linked/link");
  for (const char *name : {"a", "b", "c", ".d"}) {
    make_file(std::string("linkless/") + name);
    make_file(std::string("linked/") + name);
  }
  statuses_asked = 0;
  EXPECT_EQ(remove("linkless"), 1);
  EXPECT_EQ(statuses_asked, 1); // whether it is a directory
  statuses_asked = 0;
  EXPECT_EQ(remove("linked"), 1);
  EXPECT_EQ(statuses_asked, 6);
}

TEST_F(RemovedTree, is_kept_by_a_link_whose_file_it_has_just_lost) {
  expect_blocks_left(kLeftForADirectory);
  make_folder("tree");
  make_file("tree/file");
  make_link("file", "tree/later_than_its_file");
  EXPECT_EQ(remove("tree"), 0);
  EXPECT_FALSE(has("tree/file"));
  EXPECT_TRUE(has("tree/later_than_its_file"));
}

TEST_F(RemovedTree, ends_although_a_link_leads_round_in_a_circle) {
  make_folder("tree");
  make_file("tree/z");
  make_link(".", "tree/loop");
  const long live = support::live_blocks();
  EXPECT_EQ(remove("tree"), 0);
  expect_blocks_left(support::live_blocks() - live); // one set of copies for every turn
  EXPECT_TRUE(has("tree/loop"));
}

TEST_F(RemovedTree, is_listed_with_the_wildcards_in_its_name) {
  expect_blocks_left(kLeftForADirectory);
  make_folder("tree[12]");
  make_file("tree[12]/kept");
  make_folder("tree1");
  make_file("tree1/lost");
  EXPECT_EQ(remove("tree[12]"), 0);
  EXPECT_TRUE(has("tree[12]/kept"));
  EXPECT_TRUE(has("tree1"));
  EXPECT_FALSE(has("tree1/lost"));
}

TEST_F(RemovedTree, with_wildcards_in_its_name_passes_over_the_dangling_links_that_these_find) {
  expect_blocks_left(kLeftForADirectory);
  make_folder("tree[12]");
  make_folder("tree1");
  make_link("missing", "tree1/dangling");
  EXPECT_EQ(remove("tree[12]"), 1); // empty itself
  EXPECT_TRUE(has("tree1/dangling"));
}

TEST_F(RemovedTree, may_be_deep) {
  std::string deep = "tree";
  for (int i = 0; i < 100; i++)
    deep += "/deeper";
  make_folder(deep);
  const long live = support::live_blocks();
  EXPECT_EQ(remove("tree"), 1);
  expect_blocks_left(101 * kLeftForADirectory);
  EXPECT_EQ(support::live_blocks() - live, 101 * kLeftForADirectory);
  EXPECT_FALSE(has("tree"));
}

} // namespace
