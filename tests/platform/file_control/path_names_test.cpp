// Taking path names apart: directory part, base name, extension, root name.
#include "folder.h"
#include "support/system.h"

#include <gmock/gmock.h>
#include <orv/alloc.h>
#include <orv/platform.h>

using files::shown;
using files::taken;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

using PathCall = char *(*)(const char *path, char *buffer);

struct Example {
  const char *path;
  const char *result; // null for none
  size_t size;        // what is allocated for it
};

class PathNames : public support::ResourceTest {
protected:
  // Each example, without a buffer, with one, and with the argument itself as the buffer.
  static void expect_all(PathCall call, std::initializer_list<Example> examples) {
    for (const Example &example : examples) {
      SCOPED_TRACE(example.path);
      expect_allocated(call, example);
      expect_in_buffer(call, example);
      expect_in_place(call, example);
    }
  }

private:
  static void expect_allocated(PathCall call, const Example &example) {
    const long mallocs = support::calls("malloc");
    EXPECT_EQ(taken(call(example.path, nullptr)), shown(example.result));
    EXPECT_EQ(support::calls("malloc") - mallocs, example.result != nullptr ? 1 : 0);
    if (example.result != nullptr) {
      EXPECT_EQ(support::last_size("malloc"), example.size);
    }
  }

  static void expect_in_buffer(PathCall call, const Example &example) {
    std::string buffer(64, '#');
    const long mallocs = support::calls("malloc");
    char *result = call(example.path, buffer.data());
    EXPECT_EQ(support::calls("malloc"), mallocs);
    if (example.result == nullptr) {
      EXPECT_EQ(result, nullptr);
      EXPECT_EQ(buffer, std::string(64, '#'));
      return;
    }
    EXPECT_EQ(result, buffer.data());
    EXPECT_STREQ(result, example.result);
    EXPECT_EQ(buffer.substr(example.size), std::string(64 - example.size, '#'));
  }

  static void expect_in_place(PathCall call, const Example &example) {
    std::string path = example.path;
    const char *result = call(path.data(), path.data());
    EXPECT_EQ(shown(result), shown(example.result));
  }
};

TEST_F(PathNames, the_directory_part_is_all_before_the_last_slash) {
  expect_all(platform_dir_name, {{"/a/b/c", "/a/b", 7},
                                 {"/a/b/", "/a/b", 6},
                                 {"a/b", "a", 4},
                                 {"a//b", "a/", 5},
                                 {"../b", "..", 5},
                                 {"./", ".", 3}});
}

TEST_F(PathNames, the_directory_part_is_empty_without_a_slash_or_with_only_a_leading_one) {
  expect_all(
      platform_dir_name,
      {{"file", "", 5}, {"/usr", "", 5}, {"/", "", 2}, {"", "", 1}, {".", "", 2}, {"..", "", 3}});
}

TEST_F(PathNames, the_directory_part_copies_the_whole_path_into_the_buffer_before_cutting_it) {
  char buffer[] = "##########";
  EXPECT_EQ(platform_dir_name("/a/bcd", buffer), buffer);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("/a\0bcd\0###\0", 11));
}

TEST_F(PathNames, the_base_name_is_what_follows_the_last_slash) {
  expect_all(platform_base_name, {{"/a/b/c.txt", "c.txt", 6},
                                  {"file", "file", 5},
                                  {"/usr", "usr", 4},
                                  {"/a/b/", "", 1},
                                  {"/", "", 1},
                                  {"", "", 1},
                                  {".", ".", 2},
                                  {"a/..", "..", 3},
                                  {"a//b", "b", 2}});
}

TEST_F(PathNames, the_extension_begins_at_the_last_dot_of_the_base_name) {
  expect_all(platform_extension, {{"a.b.c", ".c", 3},
                                  {"/x.y/a.tar.gz", ".gz", 4},
                                  {"a.", ".", 2},
                                  {"..", ".", 2},
                                  {"..b", ".b", 3},
                                  {".a.b", ".b", 3},
                                  {"a..", ".", 2},
                                  {"...", ".", 2}});
}

TEST_F(PathNames, there_is_no_extension_without_a_dot_from_the_second_character_on) {
  expect_all(platform_extension, {{".profile", nullptr, 0},
                                  {"/home/u/.profile", nullptr, 0},
                                  {"dir.d/name", nullptr, 0},
                                  {"dir.d/", nullptr, 0},
                                  {"name", nullptr, 0},
                                  {".", nullptr, 0},
                                  {"/", nullptr, 0},
                                  {"", nullptr, 0}});
}

TEST_F(PathNames, the_extension_of_an_empty_base_name_does_not_look_beyond_it) {
  const char text[] = "a/\0b.c";
  EXPECT_EQ(platform_extension(text, nullptr), nullptr);
  char path[] = "a/\0b.c";
  EXPECT_STREQ(platform_root_name(path, path), "");
}

TEST_F(PathNames, the_root_name_is_the_base_name_without_its_extension) {
  expect_all(platform_root_name, {{"a.tar.gz", "a.tar", 9},
                                  {"x/y.d/x.tar.gz", "x.tar", 9},
                                  {".profile", ".profile", 9},
                                  {"a.", "a", 3},
                                  {"..", ".", 3},
                                  {"..b", ".", 4},
                                  {".a.b", ".a", 5},
                                  {"dir.d/name", "name", 5},
                                  {"/usr", "usr", 4},
                                  {"a.b/", "", 1},
                                  {".", ".", 2},
                                  {"/", "", 1},
                                  {"", "", 1}});
}

TEST_F(PathNames, a_null_path_gives_null) {
  char buffer[] = "untouched";
  for (PathCall call :
       {platform_dir_name, platform_base_name, platform_extension, platform_root_name}) {
    EXPECT_EQ(call(nullptr, nullptr), nullptr);
    EXPECT_EQ(call(nullptr, buffer), nullptr);
  }
  EXPECT_STREQ(buffer, "untouched");
}

TEST_F(PathNames, a_buffer_may_overlap_the_path) {
  char text[64] = "##/abcdefgh/ijklmnop.xyz";
  EXPECT_STREQ(platform_base_name(text + 2, text + 15), "ijklmnop.xyz");
  char back[] = "##/abcdefgh/ijklmnop.xyz";
  EXPECT_STREQ(platform_dir_name(back + 2, back), "/abcdefgh");
}

TEST_F(PathNames, long_paths_are_not_cut) {
  const std::string directory(6000, 'd');
  const std::string name(5000, 'n');
  const std::string path = directory + "/" + name + ".ext";
  EXPECT_EQ(taken(platform_dir_name(path.c_str(), nullptr)), directory);
  EXPECT_EQ(taken(platform_base_name(path.c_str(), nullptr)), name + ".ext");
  EXPECT_EQ(taken(platform_root_name(path.c_str(), nullptr)), name);
}

TEST_F(PathNames, a_path_is_absolute_when_it_begins_with_a_slash) {
  EXPECT_EQ(platform_is_absolute("/"), 1);
  EXPECT_EQ(platform_is_absolute("/a"), 1);
  EXPECT_EQ(platform_is_absolute("//a"), 1);
  EXPECT_EQ(platform_is_absolute("a/b"), 0);
  EXPECT_EQ(platform_is_absolute("./a"), 0);
  EXPECT_EQ(platform_is_absolute(""), 0);
  EXPECT_EQ(platform_is_absolute(nullptr), 0);
}

// The lines of the allocation report after the four calls on "/src/file.cpp".
std::string report_after(PathCall call) {
  return support::run_in_child([call] {
           orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
           if (call("/src/file.cpp", nullptr) == nullptr)
             exit(9);
           orv_malloc_debug_report(1);
         })
      .out;
}

TEST_F(PathNames, blocks_are_described_as_arrays_of_this_source) {
  const std::string place = " ORV_MALLOC_ARRAY +[0-9]+ +components/platform/file_control_paths.cpp";
  EXPECT_THAT(report_after(platform_dir_name), ContainsRegex(" 14" + place));
  EXPECT_THAT(report_after(platform_base_name), ContainsRegex(" 9" + place));
  EXPECT_THAT(report_after(platform_extension), ContainsRegex(" 5" + place));
  EXPECT_THAT(report_after(platform_root_name), ContainsRegex(" 9" + place));
}

TEST_F(PathNames, only_the_result_is_allocated) {
  for (PathCall call :
       {platform_dir_name, platform_base_name, platform_extension, platform_root_name})
    EXPECT_THAT(report_after(call), HasSubstr("bytes allocated, 1 pointers"));
}

void *refuse_with_null(size_t, const char *) {
  return nullptr;
}

TEST_F(PathNames, a_failure_handler_that_gives_no_storage_gives_no_result) {
  orv_set_malloc_failure_handler(refuse_with_null);
  support::refuse("malloc", ENOMEM);
  for (PathCall call :
       {platform_dir_name, platform_base_name, platform_extension, platform_root_name})
    EXPECT_EQ(call("/src/file.cpp", nullptr), nullptr);
  orv_set_malloc_failure_handler(nullptr);
}

} // namespace
