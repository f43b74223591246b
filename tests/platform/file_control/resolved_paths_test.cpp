// The working directory, and resolved, canonical and relative paths.
#include "folder.h"
#include "support/system.h"

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <orv/alloc.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <string>
#include <vector>

using files::shown;
using files::taken;
using files::traced;
using testing::ContainsRegex;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

using ResolvedPaths = files::FolderTest;
using WorkingDirectory = ResolvedPaths;

TEST_F(WorkingDirectory, is_written_into_the_buffer) {
  fs::current_path(folder);
  char buffer[5000];
  EXPECT_EQ(platform_get_cwd(buffer, sizeof buffer), buffer);
  EXPECT_EQ(buffer, folder);
}

TEST_F(WorkingDirectory, just_fits_a_buffer_of_its_size_and_no_smaller_one) {
  fs::current_path(folder);
  const int size = static_cast<int>(folder.size()) + 1;
  std::string buffer(folder.size() + 1, '#');
  EXPECT_EQ(platform_get_cwd(buffer.data(), size), buffer.data());
  EXPECT_EQ(buffer.c_str(), folder);
  errno = 0;
  EXPECT_EQ(platform_get_cwd(buffer.data(), size - 1), nullptr);
  EXPECT_EQ(errno, ERANGE);
}

TEST_F(WorkingDirectory, does_not_fit_a_buffer_of_one_byte) {
  char buffer[] = "#";
  errno = 0;
  EXPECT_EQ(platform_get_cwd(buffer, 1), nullptr);
  EXPECT_EQ(errno, ERANGE);
}

TEST_F(WorkingDirectory, is_refused_to_a_buffer_without_size) {
  char buffer[] = "#";
  for (int size : {0, -1, -4096}) {
    errno = 0;
    EXPECT_EQ(platform_get_cwd(buffer, size), nullptr) << size;
    EXPECT_EQ(errno, EINVAL) << size;
  }
  EXPECT_STREQ(buffer, "#");
}

TEST_F(WorkingDirectory, comes_in_a_block_for_a_path_without_a_buffer_whatever_the_size) {
  fs::current_path(folder);
  for (int size : {0, 1, -7, 100000}) {
    EXPECT_EQ(taken(platform_get_cwd(nullptr, size)), folder);
    EXPECT_EQ(support::last_size("malloc"), 4097U);
  }
}

// Enters a chain of new directories until the working directory has `length` characters.
void enter_deep(const std::string &start, size_t length) {
  ASSERT_EQ(chdir(start.c_str()), 0);
  for (size_t reached = start.size(); reached < length;) {
    const size_t left = length - reached - 1;
    const std::string name(left > 202 ? 200 : left, 'd');
    ASSERT_EQ(mkdir(name.c_str(), 0777), 0);
    ASSERT_EQ(chdir(name.c_str()), 0);
    reached += 1 + name.size();
  }
}

TEST_F(WorkingDirectory, is_told_in_a_block_with_up_to_4095_characters) {
  enter_deep(folder, 4095);
  EXPECT_EQ(taken(platform_get_cwd(nullptr, 0)).size(), 4095U);
}

TEST_F(WorkingDirectory, is_not_told_in_a_block_with_more_characters) {
  expect_blocks_left(1);
  enter_deep(folder, 4096);
  EXPECT_EQ(platform_get_cwd(nullptr, 5000), nullptr);
}

TEST_F(WorkingDirectory, that_is_gone_gives_null_and_leaves_the_block) {
  expect_blocks_left(1);
  fs::current_path(make_folder("gone"));
  fs::remove(in("gone"));
  errno = 0;
  EXPECT_EQ(platform_get_cwd(nullptr, 0), nullptr);
  EXPECT_EQ(errno, ENOENT);
  char buffer[4096];
  EXPECT_EQ(platform_get_cwd(buffer, sizeof buffer), nullptr);
}

TEST_F(WorkingDirectory, is_described_as_an_array_of_this_source) {
  const std::string report = support::run_in_child([] {
                               orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
                               char *cwd = platform_get_cwd(nullptr, 0);
                               orv_malloc_debug_report(1);
                               orv_free(cwd);
                             }).out;
  EXPECT_THAT(
      report,
      ContainsRegex(" 4097 ORV_MALLOC_ARRAY +[0-9]+ +components/platform/file_control_paths"));
}

TEST_F(WorkingDirectory, is_changed) {
  EXPECT_EQ(traced([&] { EXPECT_EQ(platform_set_cwd(folder.c_str()), 1); }), "");
  EXPECT_EQ(fs::current_path(), folder);
}

TEST_F(WorkingDirectory, that_cannot_be_entered_is_reported_by_the_name_of_the_call) {
  fs::current_path(folder);
  const auto change = [&](const char *path, int error) {
    return traced([=] {
      errno = 0;
      EXPECT_EQ(platform_set_cwd(path), 0);
      EXPECT_EQ(errno, error);
    });
  };
  EXPECT_EQ(change("missing", ENOENT), "platform_set_cwd: No such file or directory\n");
  make_file("file");
  EXPECT_EQ(change("file", ENOTDIR), "platform_set_cwd: Not a directory\n");
  EXPECT_EQ(change("", ENOENT), "platform_set_cwd: No such file or directory\n");
  EXPECT_EQ(change(nullptr, ENOENT), "platform_set_cwd: No such file or directory\n");
  EXPECT_EQ(fs::current_path(), folder);
}

using RealPath = ResolvedPaths;

TEST_F(RealPath, follows_links_and_dots) {
  make_folder("a/b");
  make_file("a/b/file");
  make_link("a/b", "link");
  fs::current_path(in("a"));
  char buffer[4097];
  EXPECT_EQ(platform_real_path("../link/./../b//file", buffer), buffer);
  EXPECT_EQ(buffer, in("a/b/file"));
}

TEST_F(RealPath, comes_in_a_block_for_a_path_without_a_buffer) {
  make_file("file");
  EXPECT_EQ(taken(platform_real_path(in("./file").c_str(), nullptr)), in("file"));
  EXPECT_EQ(support::last_size("malloc"), 4097U);
}

TEST_F(RealPath, of_what_is_missing_is_null_and_releases_the_block) {
  char buffer[4097];
  for (char *area : {static_cast<char *>(nullptr), buffer}) {
    const long mallocs = support::calls("malloc");
    errno = 0;
    EXPECT_EQ(platform_real_path(in("missing").c_str(), area), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(support::calls("malloc") - mallocs, area == nullptr ? 1 : 0);
    EXPECT_EQ(platform_real_path("", area), nullptr);
    EXPECT_EQ(platform_real_path(nullptr, area), nullptr);
  }
}

TEST_F(RealPath, keeps_the_error_of_the_system_when_the_block_is_released) {
  const std::string report = support::run_in_child([] {
                               orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
                               errno = 0;
                               const char *result = platform_real_path("/missing/x", nullptr);
                               printf("%d %d\n", result == nullptr, errno == ENOENT);
                               orv_malloc_debug_report(1);
                             }).out;
  EXPECT_EQ(report, "1 1\norv_malloc_debug_report: No storage was allocated\n");
}

TEST_F(RealPath, is_described_as_an_array_of_this_source) {
  const std::string report = support::run_in_child([] {
                               orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
                               char *root = platform_real_path("/", nullptr);
                               orv_malloc_debug_report(1);
                               orv_free(root);
                             }).out;
  EXPECT_THAT(
      report,
      ContainsRegex(" 4097 ORV_MALLOC_ARRAY +[0-9]+ +components/platform/file_control_paths"));
}

TEST_F(RealPath, may_be_written_over_the_path) {
  make_link(".", "link");
  char path[4097];
  snprintf(path, sizeof path, "%s/link/link/.", folder.c_str());
  EXPECT_EQ(platform_real_path(path, path), path);
  EXPECT_EQ(path, folder);
}

using CanonicalPath = ResolvedPaths;

TEST_F(CanonicalPath, stands_in_one_buffer_that_the_next_call_overwrites) {
  make_file("one");
  make_file("two");
  const long mallocs = support::calls("malloc");
  const char *first = platform_canonical_path(in("./one").c_str());
  EXPECT_EQ(first, in("one"));
  EXPECT_EQ(platform_canonical_path(in("./two").c_str()), first);
  EXPECT_EQ(first, in("two"));
  EXPECT_EQ(support::calls("malloc"), mallocs);
}

TEST_F(CanonicalPath, of_what_is_missing_is_the_argument_itself) {
  const std::string missing = in("./missing");
  EXPECT_EQ(platform_canonical_path(missing.c_str()), missing.c_str());
  const char *empty = "";
  EXPECT_EQ(platform_canonical_path(empty), empty);
  EXPECT_EQ(platform_canonical_path(nullptr), nullptr);
}

using RealPathIn = ResolvedPaths;

TEST_F(RealPathIn, sees_the_path_from_the_directory_and_goes_back) {
  make_folder("a/b");
  make_file("a/file");
  make_folder("here");
  fs::current_path(in("here"));
  char buffer[4097];
  EXPECT_EQ(platform_real_path_in("../a/b", "../file", buffer), buffer);
  EXPECT_EQ(buffer, in("a/file"));
  EXPECT_EQ(taken(platform_real_path_in(in("a").c_str(), "b", nullptr)), in("a/b"));
  EXPECT_EQ(support::last_size("malloc"), 4097U);
  EXPECT_EQ(fs::current_path(), in("here"));
}

TEST_F(RealPathIn, goes_back_when_the_path_is_missing) {
  make_folder("a");
  fs::current_path(folder);
  errno = 0;
  EXPECT_EQ(traced([&] {
              EXPECT_EQ(platform_real_path_in(in("a").c_str(), "missing", nullptr), nullptr);
              EXPECT_EQ(errno, ENOENT);
            }),
            "");
  EXPECT_EQ(fs::current_path(), folder);
}

TEST_F(RealPathIn, reports_a_failed_change_and_resolves_where_the_process_stands) {
  make_file("file");
  fs::current_path(folder);
  std::string result;
  EXPECT_EQ(traced([&] { result = taken(platform_real_path_in("missing", "file", nullptr)); }),
            "platform_set_cwd: No such file or directory\n");
  EXPECT_EQ(result, in("file"));
  EXPECT_EQ(traced([&] { result = taken(platform_real_path_in(nullptr, "file", nullptr)); }),
            "platform_set_cwd: No such file or directory\n");
  EXPECT_EQ(result, in("file"));
}

TEST_F(RealPathIn, reports_a_failed_way_back_and_keeps_the_result) {
  make_folder("left", 0711);
  make_folder("there");
  make_file("there/file");
  const std::string left = in("left");
  const std::string there = in("there");
  // Without the right to search it, the working directory is told but not entered again.
  const support::Outcome outcome = support::run_in_child([&] {
    if (chdir(left.c_str()) != 0 || chmod(left.c_str(), 0) != 0)
      exit(4);
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
      exit(3);
    msg_add_stream(MSG_DIAG, stdout);
    char buffer[4097];
    printf("%s\n", shown(platform_real_path_in(there.c_str(), "file", buffer)).c_str());
  });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.out, "platform_set_cwd: Permission denied\n" + in("there/file") + "\n");
}

TEST_F(RealPathIn, is_refused_where_the_way_back_cannot_be_told) {
  make_folder("there");
  make_file("there/file");
  fs::current_path(make_folder("gone"));
  fs::remove(in("gone"));
  errno = 0;
  EXPECT_EQ(platform_real_path_in(in("there").c_str(), "file", nullptr), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(access("file", F_OK), -1) << "the directory was changed";
}

TEST_F(RealPathIn, works_from_the_longest_directory_that_its_area_holds) {
  make_file("file");
  enter_deep(folder, 4095);
  char buffer[4097];
  EXPECT_EQ(
      traced([&] { EXPECT_EQ(platform_real_path_in(folder.c_str(), "file", buffer), buffer); }),
      "");
  EXPECT_EQ(buffer, in("file"));
}

TEST_F(RealPathIn, is_refused_from_a_longer_directory) {
  make_file("file");
  enter_deep(folder, 4096);
  errno = 0;
  EXPECT_EQ(platform_real_path_in(folder.c_str(), "file", nullptr), nullptr);
  EXPECT_NE(errno, 0);
  EXPECT_EQ(access("file", F_OK), -1) << "the directory was changed";
}

using RelativePath = ResolvedPaths;

struct Route {
  const char *from;
  const char *to;
  const char *result;
};

void expect_routes(std::initializer_list<Route> routes) {
  for (const Route &route : routes) {
    char buffer[4097];
    EXPECT_EQ(platform_relative_path(route.from, route.to, buffer), buffer);
    EXPECT_STREQ(buffer, route.result) << route.from << " to " << route.to;
    EXPECT_EQ(taken(platform_relative_path(route.from, route.to, nullptr)), route.result);
    EXPECT_EQ(support::last_size("malloc"), 4097U);
  }
}

TEST_F(RelativePath, of_equal_paths_is_a_dot) {
  expect_routes({{"/a/b", "/a/b", "."}, {"/", "/", "."}, {"/a/", "/a/", "."}, {"//", "//", "."}});
}

TEST_F(RelativePath, of_two_empty_paths_is_a_dot_too) {
  expect_routes({{"", "", "."}});
}

TEST_F(RelativePath, goes_down_where_the_other_path_goes_on) {
  expect_routes({{"/a", "/a/b", "b"}, {"/a/b", "/a/b/c/d", "c/d"}, {"/a", "/a/", ""}});
}

TEST_F(RelativePath, does_not_ask_for_the_boundary_of_a_component) {
  expect_routes({{"/a/bx", "/a/b/c", "c"}, {"/ab", "/a/c", "c"}, {"/a", "//x", "x"}});
}

TEST_F(RelativePath, climbs_once_for_every_slash_after_the_common_part) {
  expect_routes({{"/a/b/c", "/a/x/y", "../../x/y"},
                 {"/a/b/c", "/a/b", "../../b"},
                 {"/a/b", "/a/c", "../c"},
                 {"/a", "/b", "../b"},
                 {"/a/b", "/a/bc", "../bc"},
                 {"/a/b/c/d", "/x", "../../../../x"}});
}

TEST_F(RelativePath, climbs_for_the_root_and_for_a_trailing_slash_too) {
  expect_routes({{"/", "/x", "../x"},
                 {"/a/", "/a/x", "../x"},
                 {"/a/b/", "/a/c", "../../c"},
                 {"/a/", "/a", "../../a"},
                 {"/a", "/", "../"},
                 {"/a//b", "/a/c", "../../c"}});
}

TEST_F(RelativePath, takes_absolute_paths_as_they_stand) {
  expect_routes({{"/a/./b", "/a/b", "../../b"}, {"/a/../b", "/b", "../../../b"}});
}

TEST_F(RelativePath, resolves_paths_that_are_not_absolute) {
  make_folder("a/b");
  make_folder("c");
  make_link("a/b", "link");
  fs::current_path(folder);
  expect_routes({{"a/b", "c", "../../c"},
                 {"link", "c", "../../c"},
                 {"c/../a", "a/b", "b"},
                 {".", "c", "c"},
                 {"a", "./a/", "."}});
  EXPECT_EQ(taken(platform_relative_path("a", in("a/x").c_str(), nullptr)), "x");
  EXPECT_EQ(taken(platform_relative_path(in("a/x").c_str(), "c", nullptr)), "../../c");
}

TEST_F(RelativePath, is_null_when_a_path_cannot_be_resolved) {
  fs::current_path(folder);
  char buffer[] = "untouched";
  const long mallocs = support::calls("malloc");
  const std::pair<const char *, const char *> pairs[] = {
      {"missing", "/a"}, {"/a", "missing"}, {"missing", "missing"}, {"", "/"},
      {"/", ""},         {nullptr, "/"},    {"/", nullptr}};
  for (const auto &[from, to] : pairs) {
    errno = 0;
    EXPECT_EQ(platform_relative_path(from, to, nullptr), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(platform_relative_path(from, to, buffer), nullptr);
  }
  EXPECT_EQ(support::calls("malloc"), mallocs);
  EXPECT_STREQ(buffer, "untouched");
}

TEST_F(RelativePath, takes_paths_up_to_4095_characters_and_refuses_longer_ones) {
  const auto path_of = [](size_t length) { return std::string("/a/").append(length - 3, 'x'); };
  for (size_t length : {4094U, 4095U}) {
    const std::string path = path_of(length);
    EXPECT_EQ(taken(platform_relative_path("/a", path.c_str(), nullptr)), path.substr(3));
    EXPECT_EQ(taken(platform_relative_path(path.c_str(), "/a", nullptr)), "../../a");
  }
  for (size_t length : {4096U, 4097U, 10000U}) {
    const std::string path = path_of(length);
    const long mallocs = support::calls("malloc");
    errno = 0;
    EXPECT_EQ(platform_relative_path("/a", path.c_str(), nullptr), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(platform_relative_path(path.c_str(), "/a", nullptr), nullptr);
    EXPECT_EQ(support::calls("malloc"), mallocs);
  }
}

TEST_F(RelativePath, is_refused_when_the_result_has_more_than_4096_characters) {
  // "/a/b" to such a path climbs twice: 6 characters and what follows the first "/".
  const auto to_of = [](size_t rest) { return std::string("/").append(rest, 'x'); };
  std::string buffer(4098, '#');
  EXPECT_EQ(platform_relative_path("/a/b", to_of(4090).c_str(), buffer.data()), buffer.data());
  EXPECT_EQ(buffer, std::string("../../").append(4090, 'x').append("\0#", 2));
  const std::string untouched(4098, '#');
  buffer = untouched;
  errno = 0;
  EXPECT_EQ(platform_relative_path("/a/b", to_of(4091).c_str(), buffer.data()), nullptr);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(buffer, untouched);
  const std::string slashes(4095, '/');
  EXPECT_EQ(platform_relative_path(slashes.c_str(), "/a", buffer.data()), nullptr);
  EXPECT_EQ(buffer, untouched);
}

TEST_F(RelativePath, may_be_written_over_either_path) {
  char from[4097] = "/a/b/c";
  EXPECT_EQ(platform_relative_path(from, "/a/x/y", from), from);
  EXPECT_STREQ(from, "../../x/y");
  char to[4097] = "/a/x/y";
  EXPECT_STREQ(platform_relative_path("/a/b/c", to, to), "../../x/y");
}

// The same answer, found in another way: by the positions of the slashes.
std::string expected_route(const std::string &from, const std::string &to) {
  if (from == to)
    return ".";
  size_t common = 0;
  while (common < from.size() && common < to.size() && from[common] == to[common])
    common++;
  if (common < to.size() && to[common] == '/')
    return to.substr(common + 1);
  const size_t last = to.substr(0, common).rfind('/');
  std::string route;
  for (char c : from.substr(last))
    if (c == '/')
      route += "../";
  return route + to.substr(last + 1);
}

void add_paths(std::vector<std::string> &paths, const std::string &start, size_t longest) {
  paths.push_back(start);
  if (start.size() < longest)
    for (char next : {'/', 'a', 'b'})
      add_paths(paths, start + next, longest);
}

TEST_F(RelativePath, is_the_same_for_every_pair_of_short_paths_as_in_a_plain_model) {
  std::vector<std::string> paths;
  add_paths(paths, "/", 5);
  ASSERT_EQ(paths.size(), 121U);
  char buffer[4097];
  for (const std::string &from : paths)
    for (const std::string &to : paths)
      ASSERT_EQ(shown(platform_relative_path(from.c_str(), to.c_str(), buffer)),
                expected_route(from, to))
          << from << " to " << to;
}

TEST_F(RelativePath, is_described_as_an_array_of_this_source) {
  const std::string report = support::run_in_child([] {
                               orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
                               char *route = platform_relative_path("/a", "/b", nullptr);
                               orv_malloc_debug_report(1);
                               orv_free(route);
                             }).out;
  EXPECT_THAT(
      report,
      ContainsRegex(" 4097 ORV_MALLOC_ARRAY +[0-9]+ +components/platform/file_control_paths"));
  EXPECT_THAT(report, HasSubstr("4097 bytes allocated, 1 pointers"));
}

void *refuse_with_null(size_t, const char *) {
  return nullptr;
}

TEST_F(ResolvedPaths, are_null_when_the_failure_handler_gives_no_storage) {
  orv_set_malloc_failure_handler(refuse_with_null);
  support::refuse("malloc", ENOMEM);
  EXPECT_EQ(platform_get_cwd(nullptr, 0), nullptr);
  EXPECT_EQ(platform_real_path("/", nullptr), nullptr);
  EXPECT_EQ(platform_relative_path("/a", "/b", nullptr), nullptr);
  EXPECT_EQ(platform_real_path_in("/", "/", nullptr), nullptr);
  orv_set_malloc_failure_handler(nullptr);
}

} // namespace
