// What the tests of the file calls share: a fresh temporary folder for each test, texts taken out
// of allocated results, and questions asked as a user without rights.
#pragma once

#include "support/child.h"
#include "support/resources.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <grp.h>
#include <gtest/gtest.h>
#include <iterator>
#include <orv/alloc.h>
#include <orv/msg.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace files {

// The text of an allocated result, which is given back; "(null)" for none.
inline std::string taken(char *block) {
  const std::string text = block != nullptr ? block : "(null)";
  orv_free(block);
  return text;
}

// The text of a result in a buffer of the test's own; "(null)" for none.
inline std::string shown(const char *text) {
  return text != nullptr ? text : "(null)";
}

// What `question` answers in a process without rights of its own.
inline int asked_as_nobody(const std::function<int()> &question) {
  constexpr int kNobody = 65534;
  const support::Outcome outcome = support::run_in_child([&] {
    const bool dropped = geteuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 &&
                                            setuid(kNobody) == 0);
    if (!dropped)
      exit(3);
    printf("%d", question());
  });
  if (outcome.exit_status != 0)
    throw std::runtime_error("no answer as a user without rights: " + outcome.err);
  return std::stoi(outcome.out);
}

// What `call` writes into the trace.
inline std::string traced(const std::function<void()> &call) {
  char *text = nullptr;
  size_t size = 0;
  FILE *trace = open_memstream(&text, &size);
  msg_add_stream(MSG_DIAG, trace);
  call();
  msg_clear_streams(MSG_DIAG);
  fclose(trace);
  const std::string lines = text;
  free(text);
  return lines;
}

// Gives the rights back that a test took away, so that a user without others can remove the tree.
inline void open_up(const std::filesystem::path &folder) {
  chmod(folder.c_str(), 0700);
  std::error_code too_deep; // for a path; no test takes rights away down there
  for (const auto &entry : std::filesystem::directory_iterator(folder, too_deep))
    if (!entry.is_symlink() && entry.is_directory())
      open_up(entry.path());
}

class FolderTest : public support::ResourceTest {
protected:
  void SetUp() override {
    traced([] {}); // the list of trace streams is made once and kept: not a test's own block
    ResourceTest::SetUp();
    std::string name = std::filesystem::temp_directory_path() / "orv-files-XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    ASSERT_EQ(chmod(name.c_str(), 0777), 0);
    folder = std::filesystem::canonical(name);
    working_directory = std::filesystem::current_path();
  }

  void TearDown() override {
    std::filesystem::current_path(working_directory);
    if (!folder.empty()) {
      open_up(folder);
      std::filesystem::remove_all(folder);
    }
    ResourceTest::TearDown();
  }

  // The path of something in the folder.
  std::string in(const std::string &name) const { return folder + "/" + name; }

  std::string make_file(const std::string &name, const std::string &contents = "") const {
    std::ofstream(in(name)) << contents;
    return in(name);
  }

  std::string make_folder(const std::string &name, mode_t mode = 0777) const {
    EXPECT_TRUE(std::filesystem::create_directories(in(name)));
    EXPECT_EQ(chmod(in(name).c_str(), mode), 0);
    return in(name);
  }

  std::string make_link(const std::string &target, const std::string &name) const {
    EXPECT_EQ(symlink(target.c_str(), in(name).c_str()), 0);
    return in(name);
  }

  std::string contents(const std::string &name) const {
    std::ifstream stream(in(name));
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  // Whether the folder has the entry, a dangling link included.
  bool has(const std::string &name) const {
    struct stat status;
    return lstat(in(name).c_str(), &status) == 0;
  }

  std::string folder; // without links, without a trailing "/"

private:
  std::string working_directory;
};

} // namespace files
