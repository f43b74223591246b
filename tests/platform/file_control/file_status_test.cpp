// Single questions about a file: times and sizes, owner, kind, rights and free space.
#include "folder.h"
#include "support/system.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <orv/platform.h>
#include <string>
#include <sys/statvfs.h>
#include <vector>

using files::asked_as_nobody;
using files::shown;
using testing::ElementsAre;

namespace {

// The calls of the library in the order in which they were made.
std::vector<std::string> status_calls;

// What statvfs answers in place of the system, when it is to.
const struct statvfs *planned_space = nullptr;

} // namespace

extern "C" {

int __real_access(const char *path, int mode);
int __wrap_access(const char *path, int mode) {
  status_calls.push_back("access " + std::to_string(mode));
  return __real_access(path, mode);
}

int __real_stat(const char *path, struct stat *status);
int __wrap_stat(const char *path, struct stat *status) {
  status_calls.emplace_back("stat");
  return __real_stat(path, status);
}

int __real_statvfs(const char *path, struct statvfs *space);
int __wrap_statvfs(const char *path, struct statvfs *space) {
  if (planned_space == nullptr)
    return __real_statvfs(path, space);
  *space = *planned_space;
  return 0;
}

} // extern "C"

namespace {

using FileStatus = files::FolderTest;

TEST_F(FileStatus, tells_the_modification_time_in_seconds) {
  const std::string file = make_file("file");
  const timespec times[] = {{111, 0}, {1234567890, 987654321}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  EXPECT_EQ(platform_file_mtime(file.c_str()), 1234567890);
  EXPECT_EQ(platform_file_mtime(make_link("file", "link").c_str()), 1234567890);
  EXPECT_EQ(platform_file_mtime(in("missing").c_str()), 0);
}

TEST_F(FileStatus, tells_the_modification_time_beyond_32_bits_and_before_1970_too) {
  const std::string file = make_file("file");
  for (const time_t seconds : {time_t{1} << 33, time_t{-1000}}) {
    const timespec times[] = {{111, 0}, {seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    if (status.st_mtime != seconds)
      GTEST_SKIP() << "the file system keeps no such time";
    EXPECT_EQ(platform_file_mtime(file.c_str()), seconds);
  }
}

TEST_F(FileStatus, tells_the_size_in_bytes_beyond_32_bits_too) {
  EXPECT_EQ(platform_file_size(make_file("empty").c_str()), 0);
  EXPECT_EQ(platform_file_size(make_file("five", "12345").c_str()), 5);
  EXPECT_EQ(platform_file_size(make_link("five", "link").c_str()), 5);
  const std::string large = make_file("large");
  constexpr int64_t kFiveGiB = int64_t{5} << 30;
  ASSERT_EQ(truncate(large.c_str(), kFiveGiB), 0);
  EXPECT_EQ(platform_file_size(large.c_str()), kFiveGiB);
  EXPECT_EQ(platform_file_size(in("missing").c_str()), -1);
}

TEST_F(FileStatus, tells_the_name_of_the_owner) {
  const std::string file = make_file("file");
  if (geteuid() != 0)
    GTEST_SKIP() << "only root gives a file away";
  EXPECT_STREQ(platform_file_owner(file.c_str()), "root");
  ASSERT_EQ(chown(file.c_str(), 65534, 0), 0);
  EXPECT_STREQ(platform_file_owner(file.c_str()), "nobody");
  EXPECT_STREQ(platform_file_owner(make_link("file", "link").c_str()), "nobody");
}

TEST_F(FileStatus, tells_no_owner_that_the_password_database_does_not_know) {
  EXPECT_EQ(platform_file_owner(in("missing").c_str()), nullptr);
  const std::string file = make_file("file");
  if (geteuid() != 0)
    GTEST_SKIP() << "only root gives a file away";
  ASSERT_EQ(chown(file.c_str(), 3999999999U, 0), 0);
  EXPECT_EQ(platform_file_owner(file.c_str()), nullptr);
}

TEST_F(FileStatus, tells_directories_from_the_rest) {
  make_folder("folder");
  make_file("file");
  EXPECT_EQ(platform_is_dir(in("folder").c_str()), 1);
  EXPECT_EQ(platform_is_dir(make_link("folder", "link").c_str()), 1);
  EXPECT_EQ(platform_is_dir(in("file").c_str()), 0);
  EXPECT_EQ(platform_is_dir(in("missing").c_str()), 0);
  EXPECT_EQ(platform_is_dir(make_link("missing", "dangling").c_str()), 0);
}

TEST_F(FileStatus, tells_existence_with_links_followed) {
  make_file("file");
  make_link("file", "link");
  make_link("missing", "dangling");
  ASSERT_EQ(chmod(in("file").c_str(), 0), 0);
  for (auto exists : {platform_exists, platform_file_exists}) {
    EXPECT_EQ(exists(in("file").c_str()), 1);
    EXPECT_EQ(exists(in("link").c_str()), 1);
    EXPECT_EQ(exists(folder.c_str()), 1);
    EXPECT_EQ(exists(in("missing").c_str()), 0);
    EXPECT_EQ(exists(in("dangling").c_str()), 0);
    EXPECT_EQ(exists(in("file/below").c_str()), 0);
  }
}

TEST_F(FileStatus, tells_the_rights_of_the_real_user) {
  const std::string file = make_file("file");
  const auto rights = [&] {
    return platform_is_readable(file.c_str()) * 100 + platform_is_writable(file.c_str()) * 10 +
           platform_is_executable(file.c_str());
  };
  const std::pair<mode_t, int> expected[] = {{0000, 0},   {0444, 100}, {0222, 10}, {0111, 1},
                                             {0666, 110}, {0555, 101}, {0333, 11}, {0777, 111}};
  for (const auto &[mode, answer] : expected) {
    ASSERT_EQ(chmod(file.c_str(), mode), 0);
    EXPECT_EQ(asked_as_nobody(rights), answer) << std::oct << mode;
  }
  make_link("missing", "dangling");
  for (const char *name : {"missing", "dangling"}) {
    EXPECT_EQ(platform_is_readable(in(name).c_str()), 0);
    EXPECT_EQ(platform_is_writable(in(name).c_str()), 0);
    EXPECT_EQ(platform_is_executable(in(name).c_str()), 0);
  }
}

TEST_F(FileStatus, tells_a_writable_directory_by_both_its_traits) {
  const auto answer = [&](const std::string &name) {
    return asked_as_nobody([&] { return platform_is_writable_dir(in(name).c_str()); });
  };
  make_folder("open", 0777);
  make_folder("closed", 0555);
  make_file("file");
  ASSERT_EQ(chmod(in("file").c_str(), 0666), 0);
  make_link("open", "link");
  EXPECT_EQ(answer("open"), 1);
  EXPECT_EQ(answer("link"), 1);
  EXPECT_EQ(answer("closed"), 0);
  EXPECT_EQ(answer("file"), 0);
  EXPECT_EQ(answer("missing"), 0);
}

TEST_F(FileStatus, asks_whether_a_directory_is_writable_before_it_takes_its_status) {
  make_folder("folder");
  status_calls.clear();
  EXPECT_EQ(platform_is_writable_dir(in("folder").c_str()), 1);
  EXPECT_THAT(status_calls, ElementsAre("access 2", "stat"));
  status_calls.clear();
  EXPECT_EQ(platform_is_writable_dir(in("missing").c_str()), 0);
  EXPECT_THAT(status_calls, ElementsAre("access 2"));
}

TEST_F(FileStatus, counts_free_space_in_available_blocks_times_the_block_size) {
  struct statvfs space = {};
  space.f_bsize = 512;
  space.f_frsize = 4096;
  space.f_blocks = 1000;
  space.f_bfree = 700;
  space.f_bavail = 300;
  planned_space = &space;
  EXPECT_EQ(platform_free_space(folder.c_str()), 300U * 512U);
  space.f_bsize = 4096;
  space.f_bavail = uint64_t{3} << 32;
  EXPECT_EQ(platform_free_space(folder.c_str()), (uint64_t{3} << 32) * 4096U);
  planned_space = nullptr;
}

TEST_F(FileStatus, counts_free_space_of_a_real_file_system) {
  const uint64_t space = platform_free_space(folder.c_str());
  EXPECT_GT(space, 0U);
  EXPECT_LT(space, UINT64_MAX - 1);
}

TEST_F(FileStatus, tells_free_space_that_was_asked_for_nothing_from_free_space_that_is_unknown) {
  EXPECT_EQ(platform_free_space(nullptr), UINT64_MAX);
  EXPECT_EQ(platform_free_space(""), UINT64_MAX);
  errno = 0;
  EXPECT_EQ(platform_free_space(in("missing").c_str()), UINT64_MAX - 1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileStatus, takes_a_null_path_for_no_file) {
  EXPECT_EQ(platform_file_mtime(nullptr), 0);
  EXPECT_EQ(platform_file_size(nullptr), -1);
  EXPECT_EQ(platform_file_owner(nullptr), nullptr);
  for (auto question :
       {platform_is_dir, platform_exists, platform_file_exists, platform_is_readable,
        platform_is_writable, platform_is_executable, platform_is_writable_dir})
    EXPECT_EQ(question(nullptr), 0);
}

} // namespace
