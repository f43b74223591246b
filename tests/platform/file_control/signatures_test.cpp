// File signatures: what is taken, what is compared, and the mode test.
#include "folder.h"

#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <orv/platform.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

// The status that stat and fstat answer in place of the system's own, when they are to.
const struct stat *planned_status = nullptr;

} // namespace

extern "C" {

int __real_stat(const char *path, struct stat *status);
int __wrap_stat(const char *path, struct stat *status) {
  if (planned_status == nullptr)
    return __real_stat(path, status);
  *status = *planned_status;
  return 0;
}

} // extern "C"

namespace {

bool is_empty(const platform_file_sig_t &sig) {
  return sig.gid == 0 && sig.ctime == 0 && sig.mtime == 0 && sig.atime == 0 && sig.dev == 0 &&
         sig.ino == 0 && sig.mode == 0 && sig.size == 0 && sig.check == 0;
}

void expect_equal(const platform_file_sig_t &a, const platform_file_sig_t &b) {
  EXPECT_EQ(a.gid, b.gid);
  EXPECT_EQ(a.ctime, b.ctime);
  EXPECT_EQ(a.mtime, b.mtime);
  EXPECT_EQ(a.atime, b.atime);
  EXPECT_EQ(a.dev, b.dev);
  EXPECT_EQ(a.ino, b.ino);
  EXPECT_EQ(a.mode, b.mode);
  EXPECT_EQ(a.size, b.size);
  EXPECT_EQ(a.check, b.check);
}

class Signature : public files::FolderTest {
protected:
  std::string make_dated_file(const std::string &name, const std::string &text) const {
    const std::string file = make_file(name, text);
    const timespec times[] = {{1000, 0}, {2000, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    return file;
  }
};

TEST_F(Signature, takes_its_fields_from_the_status) {
  const std::string file = make_dated_file("file", "12345");
  if (geteuid() == 0) {
    ASSERT_EQ(chown(file.c_str(), 111, 222), 0);
  }
  struct stat status = {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  const platform_file_sig_t sig = platform_file_sig(file.c_str());
  EXPECT_EQ(sig.gid, status.st_gid);
  EXPECT_EQ(sig.ctime, static_cast<uint32_t>(status.st_ctime));
  EXPECT_EQ(sig.mtime, 2000U);
  EXPECT_EQ(sig.atime, 1000U);
  EXPECT_EQ(sig.dev, static_cast<uint32_t>(status.st_dev));
  EXPECT_EQ(sig.ino, static_cast<uint32_t>(status.st_ino));
  EXPECT_EQ(sig.mode, status.st_mode);
  EXPECT_EQ(sig.size, 5U);
  EXPECT_EQ(sig.check, 5U ^ 0x404040U);
}

TEST_F(Signature, keeps_the_low_32_bits_and_the_whole_size) {
  struct stat status = {};
  status.st_uid = 1;
  status.st_gid = 2;
  status.st_ctim.tv_sec = 0x1100000003;
  status.st_mtim.tv_sec = 0x2200000004;
  status.st_atim.tv_sec = 0x3300000005;
  status.st_dev = 0x4400000006;
  status.st_ino = 0x5500000007;
  status.st_mode = S_IFREG | 07654;
  status.st_size = 0x6600000008;
  planned_status = &status;
  const platform_file_sig_t sig = platform_file_sig("any");
  planned_status = nullptr;
  expect_equal(sig, {2, 3, 4, 5, 6, 7, S_IFREG | 07654, 0x6600000008, 0x6600000008 ^ 0x404040});
}

TEST_F(Signature, of_a_path_a_descriptor_and_a_stream_is_the_same) {
  const std::string file = make_dated_file("file", "12345");
  const platform_file_sig_t sig = platform_file_sig(file.c_str());
  FILE *stream = fopen(file.c_str(), "r");
  ASSERT_NE(stream, nullptr);
  expect_equal(platform_stream_sig(stream), sig);
  expect_equal(platform_fd_sig(fileno(stream)), sig);
  expect_equal(platform_file_sig(make_link("file", "link").c_str()), sig);
  EXPECT_EQ(platform_stream_changed(stream, sig), 0);
  EXPECT_EQ(platform_fd_changed(fileno(stream), sig), 0);
  EXPECT_EQ(platform_file_changed(file.c_str(), sig), 0);
  fclose(stream);
}

TEST_F(Signature, of_an_unreadable_status_is_empty_and_not_valid) {
  EXPECT_TRUE(is_empty(platform_file_sig(in("missing").c_str())));
  EXPECT_TRUE(is_empty(platform_file_sig(nullptr)));
  EXPECT_TRUE(is_empty(platform_fd_sig(-1)));
  EXPECT_TRUE(is_empty(platform_stream_sig(nullptr)));
  char text[] = "no file";
  FILE *memory = fmemopen(text, sizeof text, "r");
  EXPECT_TRUE(is_empty(platform_stream_sig(memory)));
  fclose(memory);
  EXPECT_EQ(platform_sig_valid(platform_file_sig(in("missing").c_str())), 0);
}

TEST_F(Signature, is_valid_when_its_check_fits_its_size) {
  platform_file_sig_t sig = platform_file_sig(make_file("file", "12345").c_str());
  EXPECT_EQ(platform_sig_valid(sig), 1);
  sig.size++;
  EXPECT_EQ(platform_sig_valid(sig), 0);
  sig.check = sig.size ^ 0x404040;
  EXPECT_EQ(platform_sig_valid(sig), 1);
  sig.size = uint64_t{1} << 40;
  sig.check = 0x404040;
  EXPECT_EQ(platform_sig_valid(sig), 0);
  EXPECT_EQ(platform_sig_valid({.gid = 0,
                                .ctime = 0,
                                .mtime = 0,
                                .atime = 0,
                                .dev = 0,
                                .ino = 0,
                                .mode = 0,
                                .size = 0x404040,
                                .check = 0}),
            1);
}

TEST_F(Signature, differs_in_each_field_that_is_compared) {
  const platform_file_sig_t sig = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  EXPECT_EQ(platform_sig_differs(sig, sig), 0);
  for (auto field :
       {&platform_file_sig_t::gid, &platform_file_sig_t::ctime, &platform_file_sig_t::mtime,
        &platform_file_sig_t::dev, &platform_file_sig_t::ino, &platform_file_sig_t::mode}) {
    platform_file_sig_t other = sig;
    other.*field ^= 0x80000000;
    EXPECT_EQ(platform_sig_differs(sig, other), 1);
    EXPECT_EQ(platform_sig_differs(other, sig), 1);
  }
  platform_file_sig_t other = sig;
  other.size ^= uint64_t{1} << 63;
  EXPECT_EQ(platform_sig_differs(sig, other), 1);
}

TEST_F(Signature, does_not_differ_in_the_last_access_and_the_check) {
  const platform_file_sig_t sig = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  platform_file_sig_t other = sig;
  other.atime = 1000;
  other.check = 1000;
  EXPECT_EQ(platform_sig_differs(sig, other), 0);
}

TEST_F(Signature, stays_when_the_file_is_read_and_changes_when_it_is_written) {
  const std::string file = make_dated_file("file", "12345");
  const platform_file_sig_t before = platform_file_sig(file.c_str());
  EXPECT_EQ(contents("file"), "12345");
  EXPECT_EQ(platform_file_changed(file.c_str(), before), 0);
  std::ofstream(file, std::ios::app) << "6";
  const platform_file_sig_t after = platform_file_sig(file.c_str());
  EXPECT_EQ(platform_file_changed(file.c_str(), before), 1);
  EXPECT_NE(after.mtime, before.mtime);
  EXPECT_EQ(after.size, 6U);
  const int fd = open(file.c_str(), O_RDONLY);
  EXPECT_EQ(platform_fd_changed(fd, before), 1);
  EXPECT_EQ(platform_fd_changed(fd, after), 0);
  FILE *stream = fdopen(fd, "r");
  EXPECT_EQ(platform_stream_changed(stream, before), 1);
  EXPECT_EQ(platform_stream_changed(stream, after), 0);
  fclose(stream);
}

TEST_F(Signature, changes_when_the_file_is_replaced) {
  const std::string file = make_dated_file("file", "12345");
  const platform_file_sig_t before = platform_file_sig(file.c_str());
  make_dated_file("other", "12345");
  ASSERT_EQ(rename(in("other").c_str(), file.c_str()), 0);
  EXPECT_NE(platform_file_sig(file.c_str()).ino, before.ino);
  EXPECT_EQ(platform_file_changed(file.c_str(), before), 1);
}

TEST_F(Signature, changes_when_the_file_goes_and_comes_but_not_while_it_is_missing) {
  const std::string file = make_file("file");
  const platform_file_sig_t present = platform_file_sig(file.c_str());
  const platform_file_sig_t missing = {};
  EXPECT_EQ(platform_file_changed(file.c_str(), missing), 1);
  ASSERT_EQ(unlink(file.c_str()), 0);
  EXPECT_EQ(platform_file_changed(file.c_str(), present), 1);
  EXPECT_EQ(platform_file_changed(file.c_str(), missing), 0);
  EXPECT_EQ(platform_fd_changed(-1, present), 1);
  EXPECT_EQ(platform_fd_changed(-1, missing), 0);
  EXPECT_EQ(platform_stream_changed(nullptr, present), 1);
  EXPECT_EQ(platform_stream_changed(nullptr, missing), 0);
}

platform_file_sig_t with_mode(uint32_t mode) {
  platform_file_sig_t sig = {};
  sig.mode = mode;
  return sig;
}

using ModeTest = Signature;

TEST_F(ModeTest, asks_for_a_type_with_the_lowest_two_bits) {
  constexpr uint32_t kTypes[] = {S_IFREG, S_IFDIR, S_IFSOCK, S_IFLNK, S_IFIFO, S_IFCHR, S_IFBLK};
  for (uint32_t type : kTypes) {
    const platform_file_sig_t sig = with_mode(type | 0644);
    EXPECT_EQ(platform_sig_mode_test(0, sig), 1);
    EXPECT_EQ(platform_sig_mode_test(1, sig), type == S_IFREG ? 1 : 0);
    EXPECT_EQ(platform_sig_mode_test(2, sig), type == S_IFDIR ? 1 : 0);
    EXPECT_EQ(platform_sig_mode_test(3, sig), type == S_IFSOCK ? 1 : 0);
  }
}

TEST_F(ModeTest, asks_for_the_rights_of_the_owner_alone) {
  struct Row {
    int request;
    uint32_t required;
  };
  constexpr Row kRows[] = {{0x000, 0000}, {0x100, 0400}, {0x200, 0200}, {0x300, 0600},
                           {0x400, 0100}, {0x500, 0500}, {0x600, 0300}, {0x700, 0700}};
  for (const Row &row : kRows)
    for (uint32_t rights = 0; rights <= 07777; rights++)
      ASSERT_EQ(platform_sig_mode_test(row.request, with_mode(S_IFREG | rights)),
                (rights & row.required) == row.required ? 1 : 0)
          << std::hex << row.request << " " << std::oct << rights;
}

TEST_F(ModeTest, holds_only_when_both_hold) {
  EXPECT_EQ(platform_sig_mode_test(0x302, with_mode(S_IFDIR | 0600)), 1);
  EXPECT_EQ(platform_sig_mode_test(0x302, with_mode(S_IFREG | 0600)), 0);
  EXPECT_EQ(platform_sig_mode_test(0x302, with_mode(S_IFDIR | 0400)), 0);
  EXPECT_EQ(platform_sig_mode_test(0x701, with_mode(S_IFREG | 0700)), 1);
  EXPECT_EQ(platform_sig_mode_test(0x103, with_mode(S_IFSOCK | 0400)), 1);
}

TEST_F(ModeTest, ignores_all_other_bits_of_the_request) {
  constexpr int kOthers = ~0x703;
  for (int request : {0x000, 0x001, 0x302, 0x703})
    for (uint32_t mode : {S_IFREG | 0644U, S_IFDIR | 0755U, S_IFSOCK | 0700U})
      EXPECT_EQ(platform_sig_mode_test(request | kOthers, with_mode(mode)),
                platform_sig_mode_test(request, with_mode(mode)));
}

TEST_F(ModeTest, of_the_empty_signature_holds_only_when_nothing_is_asked) {
  EXPECT_EQ(platform_sig_mode_test(0, {}), 1);
  for (int request : {1, 2, 3, 0x100, 0x200, 0x400})
    EXPECT_EQ(platform_sig_mode_test(request, {}), 0);
}

TEST_F(ModeTest, works_on_real_files) {
  const std::string file = make_file("file");
  make_folder("folder", 0700);
  ASSERT_EQ(chmod(file.c_str(), 0600), 0);
  EXPECT_EQ(platform_sig_mode_test(0x302, platform_file_sig(in("folder").c_str())), 1);
  EXPECT_EQ(platform_sig_mode_test(0x302, platform_file_sig(file.c_str())), 0);
  EXPECT_EQ(platform_sig_mode_test(0x301, platform_file_sig(file.c_str())), 1);
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  EXPECT_EQ(platform_sig_mode_test(0x003, platform_fd_sig(ends[0])), 1);
  close(ends[0]);
  close(ends[1]);
}

} // namespace
