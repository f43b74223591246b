// Small changes: removing, renaming, directories, and the copy of a file.
#include "folder.h"
#include "support/system.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <orv/platform.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

using files::asked_as_nobody;
using testing::ElementsAre;

namespace {

// The sizes that the library handed to write.
std::vector<size_t> writes;

// The most bytes that a write takes.
size_t largest_write = SIZE_MAX;

} // namespace

extern "C" {

ssize_t __real_write(int fd, const void *bytes, size_t size);
ssize_t __wrap_write(int fd, const void *bytes, size_t size) {
  writes.push_back(size);
  return __real_write(fd, bytes, std::min(size, largest_write));
}

} // extern "C"

namespace {

class FileChanges : public files::FolderTest {
protected:
  void SetUp() override {
    FolderTest::SetUp();
    previous_umask = umask(022);
  }
  void TearDown() override {
    umask(previous_umask);
    FolderTest::TearDown();
  }

  mode_t mode_of(const std::string &name) const {
    struct stat status = {};
    EXPECT_EQ(stat(in(name).c_str(), &status), 0);
    return status.st_mode & 07777;
  }

private:
  mode_t previous_umask = 0;
};

TEST_F(FileChanges, removes_a_file_a_link_and_an_empty_directory) {
  make_file("file");
  make_link("file", "link");
  make_folder("empty");
  EXPECT_EQ(platform_remove(in("link").c_str()), 1);
  EXPECT_FALSE(has("link"));
  EXPECT_TRUE(has("file"));
  EXPECT_EQ(platform_remove(in("file").c_str()), 1);
  EXPECT_FALSE(has("file"));
  EXPECT_EQ(platform_remove(in("empty").c_str()), 1);
  EXPECT_FALSE(has("empty"));
}

TEST_F(FileChanges, does_not_remove_what_is_missing_or_refused) {
  EXPECT_EQ(platform_remove(in("missing").c_str()), 0);
  EXPECT_EQ(platform_remove(nullptr), 0);
  make_folder("full");
  make_file("full/file");
  errno = 0;
  EXPECT_EQ(platform_remove(in("full").c_str()), 0);
  EXPECT_EQ(errno, ENOTEMPTY);
  EXPECT_TRUE(has("full/file"));
}

TEST_F(FileChanges, leaves_a_dangling_link) {
  make_link("missing", "dangling");
  EXPECT_EQ(platform_remove(in("dangling").c_str()), 0);
  EXPECT_TRUE(has("dangling"));
}

TEST_F(FileChanges, renames_over_what_is_there) {
  make_file("old", "new contents");
  make_file("new", "old contents");
  EXPECT_EQ(platform_rename(in("old").c_str(), in("new").c_str()), 1);
  EXPECT_FALSE(has("old"));
  EXPECT_EQ(contents("new"), "new contents");
  errno = 0;
  EXPECT_EQ(platform_rename(in("old").c_str(), in("other").c_str()), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(platform_rename(nullptr, in("other").c_str()), 0);
  EXPECT_EQ(platform_rename(in("new").c_str(), nullptr), 0);
  EXPECT_TRUE(has("new"));
}

TEST_F(FileChanges, makes_directories_with_all_rights_that_the_umask_leaves) {
  for (auto make : {platform_mkdir, platform_make_dir}) {
    umask(0);
    EXPECT_EQ(make(in("all").c_str()), 1);
    EXPECT_EQ(mode_of("all"), 0777U);
    umask(027);
    EXPECT_EQ(make(in("some").c_str()), 1);
    EXPECT_EQ(mode_of("some"), 0750U);
    errno = 0;
    EXPECT_EQ(make(in("some").c_str()), 0);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(make(in("missing/below").c_str()), 0);
    EXPECT_EQ(make(nullptr), 0);
    EXPECT_EQ(platform_rmdir(in("all").c_str()), 1);
    EXPECT_EQ(platform_rmdir(in("some").c_str()), 1);
    EXPECT_FALSE(has("all") || has("some"));
  }
}

TEST_F(FileChanges, does_not_remove_a_full_directory_or_a_file_as_a_directory) {
  make_folder("full");
  make_file("full/file");
  errno = 0;
  EXPECT_EQ(platform_rmdir(in("full").c_str()), 0);
  EXPECT_EQ(errno, ENOTEMPTY);
  EXPECT_EQ(platform_rmdir(in("full/file").c_str()), 0);
  EXPECT_EQ(platform_rmdir(in("missing").c_str()), 0);
  EXPECT_EQ(platform_rmdir(nullptr), 0);
  EXPECT_TRUE(has("full/file"));
}

// One call after the other that cannot do what it is asked for.
void ask_for_what_fails(const std::string &missing) {
  const char *path = missing.c_str();
  for (auto call : {platform_is_dir, platform_exists, platform_file_exists, platform_is_readable,
                    platform_is_writable, platform_is_executable, platform_is_writable_dir,
                    platform_remove, platform_make_dir, platform_rmdir, platform_remove_tree})
    EXPECT_EQ(call(path), 0);
  EXPECT_EQ(platform_rename(path, path), 0);
  EXPECT_EQ(platform_copy_file(path, path), 0);
  EXPECT_EQ(platform_mv(path, path), 0);
  EXPECT_EQ(platform_file_mtime(path), 0);
  EXPECT_EQ(platform_file_size(path), -1);
  EXPECT_EQ(platform_file_owner(path), nullptr);
  EXPECT_EQ(platform_free_space(path), UINT64_MAX - 1);
  EXPECT_EQ(platform_file_sig(path).check, 0U);
  platform_file_list_t list = {};
  EXPECT_EQ(platform_list_dir((missing + "/").c_str(), "*", &list), 0);
  char buffer[4097];
  EXPECT_EQ(platform_get_cwd(buffer, 1), nullptr);
  EXPECT_EQ(platform_real_path(path, buffer), nullptr);
  EXPECT_EQ(platform_canonical_path(path), path);
  EXPECT_EQ(platform_relative_path("missing", "/", buffer), nullptr);
  support::refuse("fork", ENOMEM);
  EXPECT_EQ(platform_rm_rf(path), 0);
  support::refuse_nothing();
}

TEST_F(FileChanges, and_questions_that_fail_report_nothing) {
  const std::string missing = in("missing/below");
  const support::Outcome outcome = support::run_in_child(
      [&] {
        const std::string trace = files::traced([&] { ask_for_what_fails(missing); });
        exit(trace.empty() && !HasFailure() ? 0 : 3);
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "");
}

class CopiedFile : public FileChanges {
protected:
  int copy() const { return platform_copy_file(in("source").c_str(), in("copy").c_str()); }
};

TEST_F(CopiedFile, has_every_byte_of_its_source) {
  for (size_t size : {0U, 1U, 8191U, 8192U, 8193U, 100000U}) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; i++)
      bytes[i] = static_cast<char>(i * 7 + i / 256);
    make_file("source", bytes);
    EXPECT_EQ(copy(), 1);
    EXPECT_EQ(contents("copy"), bytes) << size;
    EXPECT_EQ(contents("source"), bytes) << size;
  }
}

TEST_F(CopiedFile, goes_in_blocks_of_8192_bytes_one_write_each) {
  make_file("source", std::string(20000, 'x'));
  writes.clear();
  const long reads = support::calls("read");
  EXPECT_EQ(copy(), 1);
  EXPECT_THAT(writes, ElementsAre(8192U, 8192U, 3616U));
  EXPECT_EQ(support::calls("read") - reads, 4);
}

TEST_F(CopiedFile, replaces_what_was_there_and_keeps_its_mode) {
  make_file("source", "short");
  make_file("copy", "something longer");
  ASSERT_EQ(chmod(in("copy").c_str(), 0604), 0);
  EXPECT_EQ(copy(), 1);
  EXPECT_EQ(contents("copy"), "short");
  EXPECT_EQ(mode_of("copy"), 0604U);
}

TEST_F(CopiedFile, is_new_with_mode_0666_less_the_umask) {
  make_file("source", "text");
  ASSERT_EQ(chmod(in("source").c_str(), 0700), 0);
  umask(0);
  EXPECT_EQ(copy(), 1);
  EXPECT_EQ(mode_of("copy"), 0666U);
  ASSERT_EQ(unlink(in("copy").c_str()), 0);
  umask(027);
  EXPECT_EQ(copy(), 1);
  EXPECT_EQ(mode_of("copy"), 0640U);
}

TEST_F(CopiedFile, needs_its_source_only_readable) {
  make_file("source", "text");
  ASSERT_EQ(chmod(in("source").c_str(), 0444), 0);
  EXPECT_EQ(asked_as_nobody([&] { return copy(); }), 1);
  EXPECT_EQ(contents("copy"), "text");
}

TEST_F(CopiedFile, needs_its_destination_only_writable) {
  make_file("source", "text");
  make_file("copy");
  ASSERT_EQ(chmod(in("copy").c_str(), 0222), 0);
  EXPECT_EQ(asked_as_nobody([&] { return copy(); }), 1);
  ASSERT_EQ(chmod(in("copy").c_str(), 0666), 0);
  EXPECT_EQ(contents("copy"), "text");
}

TEST_F(CopiedFile, is_left_empty_without_a_source) {
  make_file("copy", "old contents");
  errno = 0;
  EXPECT_EQ(copy(), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(has("copy"));
  EXPECT_EQ(contents("copy"), "");
  EXPECT_EQ(platform_copy_file(nullptr, in("copy").c_str()), 0);
}

TEST_F(CopiedFile, closes_its_source_when_it_cannot_be_made) {
  make_file("source", "text");
  errno = 0;
  EXPECT_EQ(platform_copy_file(in("source").c_str(), in("missing/copy").c_str()), 0);
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_EQ(platform_copy_file(in("source").c_str(), folder.c_str()), 0);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(platform_copy_file(in("source").c_str(), nullptr), 0);
  EXPECT_EQ(contents("source"), "text");
}

TEST_F(CopiedFile, fails_when_neither_file_can_be_opened) {
  EXPECT_EQ(platform_copy_file(in("missing").c_str(), in("missing/copy").c_str()), 0);
}

TEST_F(CopiedFile, may_have_its_source_in_the_place_of_standard_input) {
  make_file("source", "text");
  const support::Outcome outcome = support::run_in_child([&] {
    close(STDIN_FILENO);
    exit(copy() == 1 && fcntl(STDIN_FILENO, F_GETFD) < 0 ? 0 : 3);
  });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(contents("copy"), "text");
}

TEST_F(CopiedFile, ends_at_a_read_that_fails) {
  make_file("source", std::string(20000, 'x'));
  support::refuse("read", EIO, 1);
  errno = 0;
  EXPECT_EQ(copy(), 0);
  EXPECT_EQ(errno, EIO);
  support::refuse_nothing();
  EXPECT_EQ(contents("copy"), std::string(8192, 'x'));
}

TEST_F(CopiedFile, fails_for_a_directory_as_source) {
  make_folder("source");
  errno = 0;
  EXPECT_EQ(copy(), 0);
  EXPECT_EQ(errno, EISDIR);
}

TEST_F(CopiedFile, goes_on_after_a_read_that_was_interrupted) {
  make_file("source", std::string(20000, 'x'));
  support::refuse("read", EINTR, 1, 2);
  EXPECT_EQ(copy(), 1);
  EXPECT_EQ(contents("copy"), std::string(20000, 'x'));
}

TEST_F(CopiedFile, is_short_with_success_when_writes_fail) {
  make_file("source", std::string(20000, 'x'));
  const support::Outcome outcome = support::run_in_child([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {10000, 10000};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
      exit(3);
    exit(copy() == 1 ? 0 : 4);
  });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(contents("copy").size(), 10000U);
}

TEST_F(CopiedFile, has_no_second_write_for_the_rest_of_a_short_one) {
  make_file("source", std::string(8192, 'x') + std::string(100, 'y'));
  writes.clear();
  largest_write = 10;
  EXPECT_EQ(copy(), 1);
  largest_write = SIZE_MAX;
  EXPECT_THAT(writes, ElementsAre(8192U, 100U));
  EXPECT_EQ(contents("copy"), std::string(10, 'x') + std::string(10, 'y'));
}

TEST_F(CopiedFile, onto_itself_is_empty) {
  make_file("source", "text");
  EXPECT_EQ(platform_copy_file(in("source").c_str(), in("source").c_str()), 1);
  EXPECT_EQ(contents("source"), "");
}

} // namespace
