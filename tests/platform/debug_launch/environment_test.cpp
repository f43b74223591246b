// The environment calls of the debug launch and the description of the program.
#include "launch_support.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using testing::StrEq;

namespace {

class Environment : public support::ResourceTest {};
class Export : public support::ResourceTest {};
class Distribution : public support::ResourceTest {
protected:
  void SetUp() override {
    std::filesystem::create_directory(folder.path + "/dist");
    ResourceTest::SetUp();
  }
  void write_file(const std::string &text) {
    std::ofstream(folder.path + "/dist/DISTRIBUTION") << text;
  }
  TemporaryFolder folder;
};

TEST_F(Environment, sets_a_variable) {
  unsetenv("LAUNCH_TEST");
  EXPECT_EQ(platform_setenv("LAUNCH_TEST", "one=1"), 0);
  EXPECT_THAT(getenv("LAUNCH_TEST"), StrEq("one=1"));
  expect_blocks_left(1);
}

TEST_F(Environment, replaces_a_variable) {
  setenv("LAUNCH_TEST", "old", 1);
  EXPECT_EQ(platform_setenv("LAUNCH_TEST", ""), 0);
  EXPECT_THAT(getenv("LAUNCH_TEST"), StrEq(""));
  expect_blocks_left(1);
}

TEST_F(Environment, hands_its_own_block_to_the_environment) {
  char value[] = "before";
  platform_setenv("LAUNCH_TEST", value);
  EXPECT_EQ(support::last_size("malloc"), sizeof "LAUNCH_TEST=before");
  value[0] = 'X';
  ASSERT_THAT(getenv("LAUNCH_TEST"), StrEq("before"));
  getenv("LAUNCH_TEST")[0] = 'B'; // the block is the environment's, and may be written to
  EXPECT_THAT(getenv("LAUNCH_TEST"), StrEq("Before"));
  expect_blocks_left(1);
}

TEST_F(Environment, never_frees_what_a_caller_may_still_hold) {
  platform_setenv("LAUNCH_TEST", "first");
  ASSERT_THAT(getenv("LAUNCH_TEST"), StrEq("first"));
  static const char *held; // keeps the block known to a leak checker
  held = getenv("LAUNCH_TEST") - strlen("LAUNCH_TEST=");
  platform_setenv("LAUNCH_TEST", "second");
  EXPECT_THAT(held, StrEq("LAUNCH_TEST=first"));
  EXPECT_THAT(getenv("LAUNCH_TEST"), StrEq("second"));
  expect_blocks_left(2);
}

TEST_F(Environment, asks_the_system_and_not_the_library_for_the_block) {
  const auto before = orv_malloc_bytes_requested();
  platform_setenv("LAUNCH_TEST", "x");
  EXPECT_EQ(orv_malloc_bytes_requested(), before);
  expect_blocks_left(1);
}

TEST_F(Environment, ends_when_there_is_no_storage_for_a_variable) {
  const auto outcome = launch([] {
    support::refuse("malloc", ENOMEM);
    platform_setenv("LAUNCH_TEST", "x");
  });
  EXPECT_EQ(outcome.signal, SIGABRT);
}

TEST_F(Environment, reads_a_variable) {
  setenv("LAUNCH_TEST", "value", 1);
  EXPECT_EQ(platform_getenv("LAUNCH_TEST"), getenv("LAUNCH_TEST"));
  setenv("LAUNCH_TEST", "", 1);
  EXPECT_THAT(platform_getenv("LAUNCH_TEST"), StrEq(""));
  unsetenv("LAUNCH_TEST");
  EXPECT_EQ(platform_getenv("LAUNCH_TEST"), nullptr);
}

// What is exported for the program and its arguments, a line a variable.
std::string exported(const char *program, char *const *args) {
  const auto outcome = launch([&] {
    show_exports_at_exit();
    platform_debug_export(program, args);
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
  return outcome.out;
}

TEST_F(Export, describes_the_program) {
  CommandLine line{"/opt/x/prog.bin", "a", "b  c", "", "d"};
  EXPECT_EQ(exported("/opt/x/prog.bin", line.args()),
            "ORV_DEBUG_PROMPT=debug prog.bin\nORV_EXE=/opt/x/prog.bin\nORV_EXE_PARMS=a b  c  d\n");
}

TEST_F(Export, describes_a_program_without_arguments) {
  CommandLine line{"prog"};
  EXPECT_EQ(exported("prog", line.args()),
            "ORV_DEBUG_PROMPT=debug prog\nORV_EXE=prog\nORV_EXE_PARMS=\n");
  EXPECT_EQ(exported("prog", nullptr),
            "ORV_DEBUG_PROMPT=debug prog\nORV_EXE=prog\nORV_EXE_PARMS=\n");
}

TEST_F(Export, takes_what_follows_the_last_slash_for_the_base_name) {
  CommandLine line{"x"};
  EXPECT_THAT(exported("../x/", line.args()), testing::StartsWith("ORV_DEBUG_PROMPT=debug \n"));
  EXPECT_THAT(exported("/x", line.args()), testing::StartsWith("ORV_DEBUG_PROMPT=debug x\n"));
}

TEST_F(Export, replaces_what_was_set_before) {
  const auto outcome = launch([] {
    show_exports_at_exit();
    CommandLine line{"first", "a"};
    platform_debug_export("first", line.args());
    platform_debug_export("second", line.args() + 1);
  });
  EXPECT_EQ(outcome.out, "ORV_DEBUG_PROMPT=debug second\nORV_EXE=second\nORV_EXE_PARMS=\n");
}

TEST_F(Distribution, is_null_without_the_variable) {
  unsetenv("ORV_DIST");
  EXPECT_EQ(platform_distribution(), nullptr);
}

TEST_F(Distribution, is_null_without_the_file) {
  const auto outcome = launch([&] {
    setenv("ORV_DIST", folder.path.c_str(), 1);
    printf("%d", platform_distribution() == nullptr);
  });
  EXPECT_EQ(outcome.out, "1");
  EXPECT_EQ(outcome.err, "");
}

TEST_F(Distribution, is_looked_for_at_the_root_when_the_variable_is_empty) {
  // Set to the empty string is set: the path is then /dist/DISTRIBUTION.
  setenv("ORV_DIST", "", 1);
  errno = 0;
  EXPECT_EQ(platform_distribution(), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(Distribution, is_the_first_word_of_the_file) {
  write_file(" \n\tfine-2.1 and more\n");
  setenv("ORV_DIST", folder.path.c_str(), 1);
  EXPECT_THAT(platform_distribution(), StrEq("fine-2.1"));
  expect_descriptors_left(1);
  expect_blocks_left(0);
}

TEST_F(Distribution, leaves_the_file_open_and_returns_the_same_area) {
  write_file("one");
  setenv("ORV_DIST", folder.path.c_str(), 1);
  const char *first = platform_distribution();
  write_file("two");
  EXPECT_EQ(platform_distribution(), first);
  EXPECT_THAT(first, StrEq("two"));
  expect_descriptors_left(2);
}

TEST_F(Distribution, is_empty_when_the_file_is) {
  write_file(" \n");
  setenv("ORV_DIST", folder.path.c_str(), 1);
  EXPECT_THAT(platform_distribution(), StrEq(""));
  expect_descriptors_left(1);
}

TEST_F(Distribution, is_what_was_found_before_when_the_file_is_empty) {
  write_file("before");
  setenv("ORV_DIST", folder.path.c_str(), 1);
  platform_distribution();
  write_file("");
  EXPECT_THAT(platform_distribution(), StrEq("before"));
  expect_descriptors_left(2);
}

TEST_F(Distribution, leaves_its_file_to_no_program_that_takes_over) {
  setenv("ORV_DIST", folder.path.c_str(), 1);
  write_file("found");
  const int next = dup(STDIN_FILENO);
  close(next);
  EXPECT_THAT(platform_distribution(), StrEq("found"));
  EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
  expect_descriptors_left(1);
}

TEST_F(Distribution, is_cut_after_127_bytes) {
  setenv("ORV_DIST", folder.path.c_str(), 1);
  write_file(times(127, "x"));
  EXPECT_THAT(platform_distribution(), StrEq(times(127, "x")));
  write_file(times(128, "y"));
  EXPECT_THAT(platform_distribution(), StrEq(times(127, "y")));
  expect_descriptors_left(2);
}

// The folder's name, made longer with slashes until the path of the file has this length.
std::string padded(const std::string &folder, size_t path_length) {
  const size_t rest = folder.size() + strlen("/dist/DISTRIBUTION");
  return folder + times(path_length - rest, "/");
}

TEST_F(Distribution, is_null_when_the_path_does_not_fit) {
  write_file("found");
  std::ofstream(folder.path + "/dist/DISTRIBUTIO") << "what a cut path would name";
  setenv("ORV_DIST", padded(folder.path, 4095).c_str(), 1);
  EXPECT_THAT(platform_distribution(), StrEq("found"));
  setenv("ORV_DIST", padded(folder.path, 4096).c_str(), 1);
  EXPECT_EQ(platform_distribution(), nullptr);
  expect_descriptors_left(1);
}

} // namespace
