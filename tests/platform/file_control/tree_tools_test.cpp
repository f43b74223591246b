// Trees through the system's tools: which tool, with which arguments, and what its end means.
#include "folder.h"
#include "support/system.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <set>
#include <string>
#include <sys/wait.h>

using files::asked_as_nobody;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

// How the child of a spawn behaves in place of running its program.
enum class Exec { real, recorded, failing, killed };
Exec planned_exec = Exec::real;
std::string record_path;              // where a recorded child writes its program and arguments
int recorded_exit_status = 0;         // what it exits with
std::set<std::string> not_executable; // paths that fail the execute test

[[noreturn]] void record(const char *program, char *const *argv) {
  FILE *stream = fopen(record_path.c_str(), "w");
  fprintf(stream, "%s:", program);
  for (; *argv != nullptr; argv++)
    fprintf(stream, " <%s>", *argv);
  fclose(stream);
  _exit(recorded_exit_status);
}

} // namespace

extern "C" {

int __real_execvp(const char *program, char *const *argv);
int __wrap_execvp(const char *program, char *const *argv) {
  if (planned_exec == Exec::recorded)
    record(program, argv);
  if (planned_exec == Exec::killed)
    raise(SIGKILL);
  if (planned_exec == Exec::failing) {
    errno = ENOENT;
    return -1;
  }
  return __real_execvp(program, argv);
}

int __real_access(const char *path, int mode);
int __wrap_access(const char *path, int mode) {
  if (mode == X_OK && not_executable.count(path) != 0) {
    errno = ENOENT;
    return -1;
  }
  return __real_access(path, mode);
}

} // extern "C"

namespace {

class TreeTools : public files::FolderTest {
protected:
  void SetUp() override {
    FolderTest::SetUp();
    record_path = in("record");
  }
  void TearDown() override {
    planned_exec = Exec::real;
    recorded_exit_status = 0;
    not_executable.clear();
    FolderTest::TearDown();
  }

  // The program and the arguments that `call` started, while it returned 1.
  std::string started(const std::function<int()> &call) {
    planned_exec = Exec::recorded;
    EXPECT_EQ(call(), 1);
    return contents("record");
  }

  // The same three calls for every test: on "x", from "x" to "y", and from the folder to "y".
  int rm() const { return platform_rm_rf("x"); }
  int cp() const { return platform_cp_a("x", "y"); }
  int mv() const { return platform_mv(folder.c_str(), "y"); }
};

TEST_F(TreeTools, are_taken_from_bin_first) {
  EXPECT_EQ(started([&] { return rm(); }), "/bin/rm: </bin/rm> <-r> <-f> <x>");
  EXPECT_EQ(started([&] { return cp(); }), "/bin/cp: </bin/cp> <-a> <x> <y>");
  EXPECT_EQ(started([&] { return mv(); }), "/bin/mv: </bin/mv> <-f> <" + folder + "> <y>");
}

TEST_F(TreeTools, are_taken_from_usr_bin_next) {
  not_executable = {"/bin/rm", "/bin/cp", "/bin/mv"};
  EXPECT_EQ(started([&] { return rm(); }), "/usr/bin/rm: </usr/bin/rm> <-r> <-f> <x>");
  EXPECT_EQ(started([&] { return cp(); }), "/usr/bin/cp: </usr/bin/cp> <-a> <x> <y>");
  EXPECT_EQ(started([&] { return mv(); }), "/usr/bin/mv: </usr/bin/mv> <-f> <" + folder + "> <y>");
}

TEST_F(TreeTools, are_left_to_the_search_of_path_otherwise) {
  not_executable = {"/bin/rm", "/bin/cp", "/bin/mv", "/usr/bin/rm", "/usr/bin/cp", "/usr/bin/mv"};
  EXPECT_EQ(started([&] { return rm(); }), "rm: <rm> <-r> <-f> <x>");
  EXPECT_EQ(started([&] { return cp(); }), "cp: <cp> <-a> <x> <y>");
  EXPECT_EQ(started([&] { return mv(); }), "mv: <mv> <-f> <" + folder + "> <y>");
}

TEST_F(TreeTools, are_each_looked_for_by_themselves) {
  not_executable = {"/bin/cp"};
  EXPECT_EQ(started([&] { return rm(); }), "/bin/rm: </bin/rm> <-r> <-f> <x>");
  EXPECT_EQ(started([&] { return cp(); }), "/usr/bin/cp: </usr/bin/cp> <-a> <x> <y>");
}

TEST_F(TreeTools, of_the_search_of_path_are_really_run) {
  not_executable = {"/bin/rm", "/usr/bin/rm"};
  const std::string tool = make_file("rm", "#!/bin/sh\necho \"$@\"\n");
  ASSERT_EQ(chmod(tool.c_str(), 0755), 0);
  const std::string path = folder + ":" + getenv("PATH");
  const support::Outcome outcome = support::run_in_child(
      [] { exit(platform_rm_rf("a b") == 1 ? 0 : 3); }, {{"PATH", path.c_str()}});
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.out, "-r -f a b\n");
}

TEST_F(TreeTools, get_paths_of_any_characters_as_one_argument) {
  EXPECT_EQ(started([&] { return platform_rm_rf("a b;'*\n$(c)"); }),
            "/bin/rm: </bin/rm> <-r> <-f> <a b;'*\n$(c)>");
}

TEST_F(TreeTools, get_a_null_path_as_the_empty_one) {
  EXPECT_EQ(started([&] { return platform_rm_rf(nullptr); }), "/bin/rm: </bin/rm> <-r> <-f> <>");
  EXPECT_EQ(started([&] { return platform_cp_a(nullptr, nullptr); }),
            "/bin/cp: </bin/cp> <-a> <> <>");
  EXPECT_EQ(started([&] { return platform_mv(folder.c_str(), nullptr); }),
            "/bin/mv: </bin/mv> <-f> <" + folder + "> <>");
}

TEST_F(TreeTools, have_failed_when_they_end_with_any_status_but_0) {
  planned_exec = Exec::recorded;
  for (int status : {1, 2, 127, 255}) {
    recorded_exit_status = status;
    EXPECT_EQ(rm(), 0);
    EXPECT_EQ(cp(), 0);
    EXPECT_EQ(mv(), 0);
  }
}

TEST_F(TreeTools, have_failed_when_a_signal_ended_them) {
  planned_exec = Exec::killed;
  EXPECT_EQ(rm(), 0);
  EXPECT_EQ(cp(), 0);
  EXPECT_EQ(mv(), 0);
}

TEST_F(TreeTools, are_not_waited_for_when_no_process_could_be_started) {
  const long waits = support::calls("waitpid");
  support::refuse("fork", ENOMEM);
  EXPECT_EQ(rm(), 0);
  EXPECT_EQ(cp(), 0);
  EXPECT_EQ(mv(), 0);
  EXPECT_EQ(support::calls("waitpid"), waits);
}

TEST_F(TreeTools, are_waited_for_again_after_an_interruption) {
  planned_exec = Exec::recorded;
  support::refuse("waitpid", EINTR, 0, 1);
  EXPECT_EQ(files::traced([&] { EXPECT_EQ(rm(), 1); }), "waitpid: : Interrupted system call\n");
  support::refuse("waitpid", EAGAIN, 0, 2);
  EXPECT_EQ(files::traced([&] { EXPECT_EQ(cp(), 1); }),
            "waitpid: : Resource temporarily unavailable\n"
            "waitpid: : Resource temporarily unavailable\n");
}

TEST_F(TreeTools, have_failed_when_the_wait_failed) {
  planned_exec = Exec::recorded;
  for (const std::function<int()> &call :
       {std::function<int()>([&] { return rm(); }), std::function<int()>([&] { return cp(); }),
        std::function<int()>([&] { return mv(); })}) {
    support::refuse("waitpid", ECHILD, 0, 1);
    EXPECT_EQ(files::traced([&] { EXPECT_EQ(call(), 0); }), "waitpid: : No child processes\n");
    support::refuse_nothing();
    EXPECT_GT(wait(nullptr), 0);
  }
}

TEST_F(TreeTools, that_cannot_be_run_leave_a_second_copy_of_the_caller_with_0) {
  planned_exec = Exec::failing;
  const int pid = getpid();
  FILE *trace = fopen(in("trace").c_str(), "w");
  msg_add_stream(MSG_DIAG, trace);
  const int result = rm();
  if (getpid() != pid) {
    fprintf(trace, "the copy got %d\n", result);
    fclose(trace);
    _exit(7);
  }
  msg_clear_streams(MSG_DIAG);
  fclose(trace);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(contents("trace"), "waitpid: : No child processes\nthe copy got 0\n");
}

TEST_F(TreeTools, write_to_the_standard_error_of_the_caller) {
  const support::Outcome outcome = support::run_in_child(
      [&] { exit(platform_cp_a(in("missing").c_str(), in("copy").c_str()) == 0 ? 0 : 3); });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("missing"));
}

TEST_F(TreeTools, inherit_standard_input_and_output) {
  not_executable = {"/bin/rm", "/usr/bin/rm"};
  const std::string tool = make_file("rm", "#!/bin/sh\nread line\necho \"got $line\"\n");
  ASSERT_EQ(chmod(tool.c_str(), 0755), 0);
  const std::string path = folder + ":" + getenv("PATH");
  const support::Outcome outcome = support::run_in_child(
      [] { exit(platform_rm_rf("x") == 1 ? 0 : 3); }, {{"PATH", path.c_str()}}, "a line\n");
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.out, "got a line\n");
}

TEST_F(TreeTools, take_a_path_that_begins_with_a_dash_for_an_option) {
  make_file("-x");
  fs::current_path(folder);
  const support::Outcome outcome =
      support::run_in_child([] { exit(platform_rm_rf("-x") == 0 ? 0 : 3); });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_TRUE(has("-x"));
  EXPECT_EQ(platform_rm_rf("./-x"), 1);
  EXPECT_FALSE(has("-x"));
}

TEST_F(TreeTools, refuse_a_path_that_the_system_finds_too_long) {
  const std::string overlong(5000, 'x');
  const support::Outcome outcome = support::run_in_child([&] {
    exit(platform_rm_rf(overlong.c_str()) + platform_cp_a(overlong.c_str(), "y") +
         platform_cp_a(folder.c_str(), overlong.c_str()) + platform_mv(overlong.c_str(), "y") +
         platform_mv(folder.c_str(), overlong.c_str()));
  });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_TRUE(fs::exists(folder));
}

using RemovedByTool = TreeTools;

TEST_F(RemovedByTool, is_a_tree_with_its_links_but_not_what_they_lead_to) {
  make_folder("elsewhere");
  make_file("elsewhere/file");
  make_folder("tree/a/.hidden");
  make_file("tree/a/.hidden/file");
  make_link("../elsewhere", "tree/link");
  make_link("missing", "tree/dangling");
  EXPECT_EQ(platform_rm_rf(in("tree").c_str()), 1);
  EXPECT_FALSE(has("tree"));
  EXPECT_TRUE(has("elsewhere/file"));
}

TEST_F(RemovedByTool, may_be_a_file_or_missing) {
  make_file("file");
  EXPECT_EQ(platform_rm_rf(in("file").c_str()), 1);
  EXPECT_FALSE(has("file"));
  EXPECT_EQ(platform_rm_rf(in("missing").c_str()), 1);
}

TEST_F(RemovedByTool, stays_where_the_user_has_no_right) {
  make_folder("closed");
  make_file("closed/file");
  ASSERT_EQ(chmod(in("closed").c_str(), 0555), 0);
  EXPECT_EQ(asked_as_nobody([&] { return platform_rm_rf(in("closed/file").c_str()); }), 0);
  EXPECT_TRUE(has("closed/file"));
}

using CopiedByTool = TreeTools;

TEST_F(CopiedByTool, is_a_tree_with_links_modes_and_times) {
  make_folder("tree/sub", 0751);
  const std::string file = make_file("tree/sub/file", "text");
  make_link("file", "tree/sub/link");
  ASSERT_EQ(chmod(file.c_str(), 0640), 0);
  const timespec times[] = {{1000, 0}, {1234567890, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  EXPECT_EQ(platform_cp_a(in("tree").c_str(), in("copy").c_str()), 1);
  EXPECT_EQ(contents("copy/sub/file"), "text");
  EXPECT_EQ(fs::read_symlink(in("copy/sub/link")), "file");
  struct stat status = {};
  ASSERT_EQ(stat(in("copy/sub/file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  EXPECT_EQ(status.st_mtime, 1234567890);
  ASSERT_EQ(stat(in("copy/sub").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0751U);
  EXPECT_EQ(contents("tree/sub/file"), "text");
}

using MovedByTool = TreeTools;

TEST_F(MovedByTool, is_a_directory_with_what_is_in_it) {
  make_folder("tree");
  make_file("tree/file", "text");
  EXPECT_EQ(platform_mv(in("tree").c_str(), in("moved").c_str()), 1);
  EXPECT_FALSE(has("tree"));
  EXPECT_EQ(contents("moved/file"), "text");
}

TEST_F(MovedByTool, is_never_a_plain_file_or_nothing) {
  make_file("file");
  const long forks = support::calls("fork");
  EXPECT_EQ(platform_mv(in("file").c_str(), in("moved").c_str()), 0);
  EXPECT_EQ(platform_mv(in("missing").c_str(), in("moved").c_str()), 0);
  EXPECT_EQ(platform_mv(nullptr, in("moved").c_str()), 0);
  EXPECT_EQ(support::calls("fork"), forks);
  EXPECT_TRUE(has("file"));
}

TEST_F(MovedByTool, must_be_writable) {
  make_folder("closed", 0555);
  const std::string moved = in("moved");
  EXPECT_EQ(asked_as_nobody([&] {
              const long forks = support::calls("fork");
              const int result = platform_mv(in("closed").c_str(), moved.c_str());
              return support::calls("fork") == forks ? result : 9;
            }),
            0);
  EXPECT_TRUE(has("closed"));
}

} // namespace
