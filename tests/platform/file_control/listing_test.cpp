// Listing a directory by wildcard, releasing the listing, matching a name.
#include "folder.h"
#include "support/system.h"

#include <cerrno>
#include <cstring>
#include <glob.h>
#include <gmock/gmock.h>
#include <orv/alloc.h>
#include <orv/platform.h>
#include <string>
#include <vector>

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

// What glob was called with, and what it answers in place of its own result, when it is to.
struct GlobCall {
  std::string pattern;
  int flags = -1;
  bool has_callback = true;
};
GlobCall last_glob;
int planned_glob_error = 0;
int globfrees = 0;

} // namespace

extern "C" {

int __real_glob(const char *pattern, int flags, int (*callback)(const char *, int), glob_t *result);
int __wrap_glob(const char *pattern, int flags, int (*callback)(const char *, int),
                glob_t *result) {
  last_glob = {pattern, flags, callback != nullptr};
  const int answer = __real_glob(pattern, flags, callback, result);
  return planned_glob_error != 0 ? planned_glob_error : answer;
}

void __real_globfree(glob_t *result);
void __wrap_globfree(glob_t *result) {
  globfrees++;
  __real_globfree(result);
}

} // extern "C"

namespace {

class Listing : public files::FolderTest {
protected:
  void SetUp() override {
    FolderTest::SetUp();
    slashed = folder + "/";
  }

  // The names that a listing of the folder finds; the listing is released.
  std::vector<std::string> names(const char *pattern) const {
    platform_file_list_t list = {};
    if (platform_list_dir(slashed.c_str(), pattern, &list) == 0)
      return {};
    std::vector<std::string> found;
    for (uint64_t i = 0; i < list.count; i++) {
      EXPECT_EQ(std::string(list.paths[i]).substr(0, slashed.size()), slashed);
      found.push_back(std::string(list.paths[i]).substr(slashed.size()));
    }
    EXPECT_EQ(list.paths[list.count], nullptr);
    platform_free_dir_list(&list);
    return found;
  }

  // Fills a record with values that no listing leaves.
  static platform_file_list_t marked() {
    static char *none[] = {nullptr};
    static glob_t never_used;
    return {.count = 77, .paths = none, .glob = &never_used};
  }

  static void expect_untouched(const platform_file_list_t &list) {
    const platform_file_list_t before = marked();
    EXPECT_EQ(memcmp(&list, &before, sizeof list), 0);
  }

  std::string slashed; // the folder with its trailing "/": nothing stays allocated
};

TEST_F(Listing, finds_what_matches_in_sorted_order) {
  for (const char *name : {"b.c", "a.c", "c.h", ".hidden.c", "ab.c"})
    make_file(name);
  make_folder("d.c");
  make_link("missing", "dangling.c");
  EXPECT_THAT(names("*.c"), ElementsAre("a.c", "ab.c", "b.c", "d.c", "dangling.c"));
  EXPECT_THAT(names("?.[ch]"), ElementsAre("a.c", "b.c", "c.h", "d.c"));
  EXPECT_THAT(names("c.h"), ElementsAre("c.h"));
}

TEST_F(Listing, fills_the_record) {
  make_file("one");
  make_file("two");
  platform_file_list_t list = {};
  ASSERT_EQ(platform_list_dir(slashed.c_str(), "*", &list), 1);
  EXPECT_EQ(list.count, 2U);
  ASSERT_NE(list.glob, nullptr);
  EXPECT_EQ(list.paths, list.glob->gl_pathv);
  EXPECT_EQ(list.count, list.glob->gl_pathc);
  EXPECT_EQ(list.paths[0], in("one"));
  EXPECT_EQ(list.paths[1], in("two"));
  EXPECT_EQ(list.paths[2], nullptr);
  platform_free_dir_list(&list);
}

TEST_F(Listing, takes_every_visible_name_without_a_pattern) {
  make_file("file");
  make_file(".hidden");
  EXPECT_THAT(names(nullptr), ElementsAre("file"));
  EXPECT_THAT(names(""), ElementsAre("file"));
  EXPECT_THAT(names("*"), ElementsAre("file"));
}

TEST_F(Listing, takes_hidden_names_and_both_dots_for_a_pattern_that_begins_with_a_dot) {
  make_file("file");
  make_file(".hidden");
  EXPECT_THAT(names(".*"), ElementsAre(".", "..", ".hidden"));
}

TEST_F(Listing, of_nothing_leaves_the_record_untouched) {
  make_file(".hidden");
  platform_file_list_t list = marked();
  EXPECT_EQ(platform_list_dir(slashed.c_str(), "*", &list), 0);
  expect_untouched(list);
  EXPECT_EQ(platform_list_dir(slashed.c_str(), "missing", &list), 0);
  expect_untouched(list);
  EXPECT_EQ(platform_list_dir(in("missing/").c_str(), "*", &list), 0);
  expect_untouched(list);
}

TEST_F(Listing, is_refused_at_once_without_a_directory_or_a_record) {
  platform_file_list_t list = marked();
  last_glob = {};
  const long mallocs = support::calls("malloc");
  EXPECT_EQ(platform_list_dir(nullptr, "*", &list), 0);
  EXPECT_EQ(platform_list_dir("", "*", &list), 0);
  EXPECT_EQ(platform_list_dir(folder.c_str(), "*", nullptr), 0);
  EXPECT_EQ(support::calls("malloc"), mallocs);
  EXPECT_EQ(last_glob.flags, -1);
  expect_untouched(list);
}

TEST_F(Listing, asks_for_the_directory_and_the_pattern_joined_by_one_slash) {
  expect_blocks_left(2);
  platform_file_list_t list = {};
  EXPECT_EQ(platform_list_dir(slashed.c_str(), "%s*", &list), 0);
  EXPECT_EQ(last_glob.pattern, slashed + "%s*");
  EXPECT_EQ(last_glob.flags, 0);
  EXPECT_FALSE(last_glob.has_callback);
  EXPECT_EQ(platform_list_dir(folder.c_str(), nullptr, &list), 0);
  EXPECT_EQ(last_glob.pattern, folder + "/*");
}

TEST_F(Listing, works_in_the_root_directory) {
  platform_file_list_t list = {};
  ASSERT_EQ(platform_list_dir("/", "tmp", &list), 1);
  EXPECT_EQ(last_glob.pattern, "/tmp");
  EXPECT_STREQ(list.paths[0], "/tmp");
  platform_free_dir_list(&list);
}

TEST_F(Listing, leaves_the_two_copies_of_the_join_for_a_directory_without_a_slash) {
  expect_blocks_left(2);
  make_file("file");
  platform_file_list_t list = {};
  ASSERT_EQ(platform_list_dir(folder.c_str(), "*", &list), 1);
  EXPECT_EQ(list.paths[0], in("file"));
  platform_free_dir_list(&list);
}

TEST_F(Listing, takes_wildcards_and_backslashes_in_the_directory_too) {
  make_folder("d1");
  make_folder("d2");
  make_folder("d[12]");
  make_file("d1/one");
  make_file("d2/two");
  make_file("d[12]/three");
  platform_file_list_t list = {};
  ASSERT_EQ(platform_list_dir(in("d[12]/").c_str(), "*", &list), 1);
  ASSERT_EQ(list.count, 2U);
  EXPECT_EQ(list.paths[0], in("d1/one"));
  EXPECT_EQ(list.paths[1], in("d2/two"));
  platform_free_dir_list(&list);
  ASSERT_EQ(platform_list_dir(in("d\\[12]/").c_str(), "*", &list), 1);
  ASSERT_EQ(list.count, 1U);
  EXPECT_EQ(list.paths[0], in("d[12]/three"));
  platform_free_dir_list(&list);
}

TEST_F(Listing, releases_what_a_failed_search_had_found) {
  make_file("file");
  for (int error : {GLOB_NOSPACE, GLOB_ABORTED, GLOB_NOMATCH}) {
    platform_file_list_t list = marked();
    planned_glob_error = error;
    globfrees = 0;
    EXPECT_EQ(platform_list_dir(slashed.c_str(), "*", &list), 0);
    EXPECT_EQ(globfrees, 1);
    expect_untouched(list);
  }
  planned_glob_error = 0;
}

TEST_F(Listing, is_released_once_and_keeps_its_fields) {
  make_file("file");
  platform_file_list_t list = {};
  ASSERT_EQ(platform_list_dir(slashed.c_str(), "*", &list), 1);
  const platform_file_list_t before = list;
  globfrees = 0;
  const long live = support::live_blocks();
  platform_free_dir_list(&list);
  EXPECT_EQ(globfrees, 1);
  EXPECT_EQ(support::live_blocks(), live - 1);
  EXPECT_EQ(list.count, before.count);
  EXPECT_EQ(list.paths, before.paths);
  EXPECT_EQ(list.glob, before.glob);
}

TEST_F(Listing, that_holds_nothing_is_released_without_a_call) {
  globfrees = 0;
  platform_file_list_t list = {};
  platform_free_dir_list(&list);
  platform_free_dir_list(nullptr);
  EXPECT_EQ(globfrees, 0);
}

TEST_F(Listing, describes_its_blocks_by_place_and_by_method) {
  make_file("file");
  const std::string report = support::run_in_child([&] {
                               orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
                               platform_file_list_t list = {};
                               if (platform_list_dir(folder.c_str(), "*", &list) != 1)
                                 exit(3);
                               orv_malloc_debug_report(1);
                             }).out;
  const std::string source = "components/platform/file_control_listing.cpp";
  const auto line = [](size_t length, const std::string &rest) {
    return ContainsRegex(std::string(" ").append(std::to_string(length)).append(rest));
  };
  EXPECT_THAT(report, line(sizeof(glob_t), " orv_malloc +" + source + ":[1-9][0-9]* +glob_t\n"));
  EXPECT_THAT(report, line(folder.size() + 1, " ORV_STRDUP +[1-9][0-9]* +" + source + "\n"));
  EXPECT_THAT(report, line(2, " ORV_STRDUP +[1-9][0-9]* +" + source + "\n"));
  EXPECT_THAT(report, HasSubstr(", 3 pointers"));
}

// Every allocation of a listing, the first to the last, with the site that asks for it.
std::string refused_listing(const std::string &directory, int skip) {
  return support::run_in_child([&] {
           support::refuse("malloc", ENOMEM, skip, 1);
           platform_file_list_t list = {};
           printf("%d", platform_list_dir(directory.c_str(), "*", &list));
         })
      .err;
}

TEST_F(Listing, duplicates_a_directory_that_has_its_slash) {
  make_file("file");
  EXPECT_THAT(refused_listing(slashed, 0),
              ContainsRegex("ORV_STRDUP in components/platform/file_control_listing.cpp, line "));
  EXPECT_THAT(refused_listing(slashed, 1), HasSubstr("orv_vprintf_strdup"));
  EXPECT_THAT(refused_listing(slashed, 2),
              AllOf(ContainsRegex("file_control_listing.cpp:[0-9]+ \\(via orv_malloc\\)"),
                    HasSubstr("bytes for glob_t.")));
  EXPECT_EQ(refused_listing(slashed, 3), "");
}

void *refuse_with_null(size_t, const char *) {
  return nullptr;
}

TEST_F(Listing, fails_when_the_failure_handler_gives_no_storage) {
  make_file("file");
  orv_set_malloc_failure_handler(refuse_with_null);
  for (int skip : {0, 1, 2}) {
    platform_file_list_t list = marked();
    support::refuse("malloc", ENOMEM, skip, 1);
    EXPECT_EQ(platform_list_dir(slashed.c_str(), "*", &list), 0) << skip;
    support::refuse_nothing();
    expect_untouched(list);
  }
  orv_set_malloc_failure_handler(nullptr);
}

TEST(NameMatch, answers_like_the_shell) {
  EXPECT_EQ(platform_name_matches("file.c", "*.c"), 1);
  EXPECT_EQ(platform_name_matches("file.c", "*.h"), 0);
  EXPECT_EQ(platform_name_matches("file.c", "file.c"), 1);
  EXPECT_EQ(platform_name_matches("FILE.C", "*.c"), 0);
  EXPECT_EQ(platform_name_matches("a", "[a-c]"), 1);
  EXPECT_EQ(platform_name_matches("d", "[a-c]"), 0);
  EXPECT_EQ(platform_name_matches("", "?"), 0);
}

TEST(NameMatch, treats_dots_slashes_and_backslashes_without_flags) {
  EXPECT_EQ(platform_name_matches(".hidden", "*"), 1);
  EXPECT_EQ(platform_name_matches("a/b", "*"), 1);
  EXPECT_EQ(platform_name_matches("*", "\\*"), 1);
  EXPECT_EQ(platform_name_matches("x", "\\*"), 0);
}

TEST(NameMatch, takes_every_name_without_a_pattern_and_no_null_name) {
  EXPECT_EQ(platform_name_matches("anything", nullptr), 1);
  EXPECT_EQ(platform_name_matches("anything", ""), 1);
  EXPECT_EQ(platform_name_matches("", ""), 1);
  EXPECT_EQ(platform_name_matches(nullptr, "*"), 0);
  EXPECT_EQ(platform_name_matches(nullptr, nullptr), 0);
}

} // namespace
