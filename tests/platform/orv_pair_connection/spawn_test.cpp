// Starting child processes: with and without descriptors, from vectors and lists, quietly.
#include "many_arguments.h"
#include "pair_fixture.h"

namespace {

using namespace pair_test;

class Spawn : public ResourceTest {
protected:
  // How the child ended: its exit status, or minus the signal.
  static int ended(int pid) {
    int status = -1;
    if (pid <= 0 || waitpid(pid, &status, 0) != pid)
      return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  // Runs the shell's words with these descriptors.
  static int run_shell(const char *words, const int *std_fds) {
    char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"), const_cast<char *>(words),
                    nullptr};
    return ended(platform_spawn_fds("sh", argv, std_fds));
  }
};

class SpawnList : public Spawn {};
class SpawnQuiet : public Spawn {};

TEST_F(Spawn, runs_the_program_with_its_arguments) {
  EXPECT_EQ(run_shell("exit 23", nullptr), 23);
}

TEST_F(Spawn, returns_the_childs_process_id) {
  char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                  const_cast<char *>("kill -9 $$"), nullptr};
  EXPECT_EQ(ended(platform_spawn("sh", argv)), -SIGKILL);
}

TEST_F(Spawn, gives_the_child_the_descriptors_in_order) {
  const auto outcome = run_in_child([] {
    int ends[2];
    if (pipe(ends) != 0 || write(ends[1], "in\n", 3) != 3)
      _exit(9);
    const int swapped[] = {ends[0], 2, 1};
    exit(run_shell("read word; echo \"$word to output\"; echo to error >&2", swapped));
  });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "in to output\nto error\n")
      << "2 was put on 1 first, so the 1 for 2 was 2 already";
}

TEST_F(Spawn, keeps_the_childs_own_descriptor_for_a_negative_entry) {
  const auto outcome = run_in_child(
      [] {
        const int none[] = {-1, -2, 1};
        exit(run_shell("cat; echo to error >&2", none));
      },
      {}, "typed in\n");
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.out, "typed in\nto error\n");
}

TEST_F(Spawn, takes_descriptor_0_like_any_other) {
  const auto outcome = run_in_child([] {
    const int input_for_all[] = {0, 0, 0};
    exit(run_shell("test /proc/$$/fd/0 -ef /proc/$$/fd/1 && test /proc/$$/fd/0 -ef /proc/$$/fd/2",
                   input_for_all));
  });
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(Spawn, takes_no_more_than_three_descriptors) {
  const Sockets sockets;
  const int one_more[] = {-1, -1, -1, sockets.fd[1]};
  const std::string words = "test ! /proc/$$/fd/3 -ef /proc/$$/fd/" + std::to_string(sockets.fd[1]);
  EXPECT_EQ(run_shell(words.c_str(), one_more), 0);
}

TEST_F(Spawn, leaves_the_given_descriptors_open_in_the_child) {
  Sockets sockets;
  const int std_fds[] = {-1, sockets.fd[1], -1};
  const std::string words = "test -e /proc/$$/fd/" + std::to_string(sockets.fd[1]);
  EXPECT_EQ(run_shell(words.c_str(), std_fds), 0);
}

TEST_F(Spawn, without_descriptors_redirects_nothing) {
  const auto outcome = run_in_child(
      [] {
        char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                        const_cast<char *>("cat; echo to error >&2"), nullptr};
        exit(ended(platform_spawn("sh", argv)));
      },
      {}, "typed in");
  EXPECT_EQ(outcome.out, "typed in");
  EXPECT_EQ(outcome.err, "to error\n");
}

TEST_F(Spawn, returns_zero_in_a_child_whose_program_is_missing) {
  char *argv[] = {const_cast<char *>("missing"), nullptr};
  const pid_t parent = getpid();
  const int pid = platform_spawn(kMissing, argv);
  if (pid == 0)
    _exit(errno == ENOENT && getppid() == parent ? 23 : 24);
  EXPECT_EQ(ended(pid), 23);
}

TEST_F(Spawn, returns_minus_one_when_no_child_can_be_made) {
  refuse("fork", EAGAIN);
  const long forks = calls("fork");
  char *argv[] = {const_cast<char *>("true"), nullptr};
  EXPECT_EQ(platform_spawn("true", argv), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(calls("fork"), forks + 1) << "there is one attempt";
}

TEST_F(SpawnList, runs_the_program_with_the_list) {
  EXPECT_EQ(ended(platform_spawn_list("sh", "sh", "-c", "exit $(($# + $1))", "name", "5", nullptr)),
            6);
}

TEST_F(SpawnList, redirects_nothing) {
  const auto outcome = run_in_child(
      [] { exit(ended(platform_spawn_list("sh", "sh", "-c", "cat; echo x >&2", nullptr))); }, {},
      "typed in");
  EXPECT_EQ(outcome.out, "typed in");
  EXPECT_EQ(outcome.err, "x\n");
}

TEST_F(SpawnList, returns_zero_in_a_child_whose_program_is_missing) {
  const int pid = platform_spawn_list(kMissing, "missing", nullptr);
  if (pid == 0)
    _exit(23);
  EXPECT_EQ(ended(pid), 23);
}

TEST_F(SpawnList, returns_minus_one_when_no_child_can_be_made) {
  refuse("fork", ENOMEM);
  EXPECT_EQ(platform_spawn_list("true", "true", nullptr), -1);
  EXPECT_EQ(errno, ENOMEM);
}

TEST_F(SpawnList, ends_at_a_null_first_argument) {
  const char *none = nullptr;
  EXPECT_EQ(ended(platform_spawn_list(kCompanion, none, nullptr)), 99);
}

TEST_F(SpawnList, holds_8191_arguments_and_the_null) {
  EXPECT_EQ(ended(platform_spawn_list("sh", "sh", "-c", "test $# -eq 8187 && exit 17", "name",
                                      TIMES_8000("x"), TIMES_100("x"), TIMES_50("x"), TIMES_10("x"),
                                      TIMES_10("x"), TIMES_10("x"), "x", "x", "x", "x", "x", "x",
                                      "x", nullptr)),
            17);
}

TEST_F(SpawnList, refuses_one_more_by_an_assertion) {
  const auto outcome = run_in_child([] {
    (void)!platform_spawn_list("true", TIMES_8000("x"), TIMES_100("x"), TIMES_50("x"),
                               TIMES_10("x"), TIMES_10("x"), TIMES_10("x"), TIMES_10("x"), "x", "x",
                               nullptr);
  });
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_THAT(outcome.err, HasSubstr("components/platform/orv_pair_connection_spawn.cpp:"));
  EXPECT_THAT(outcome.err, HasSubstr("idx < 8192"));
}

TEST_F(SpawnQuiet, refuses_too_many_arguments_as_well) {
  const auto outcome = run_in_child([] {
    (void)!platform_spawn_list_quiet("true", TIMES_8000("x"), TIMES_100("x"), TIMES_50("x"),
                                     TIMES_10("x"), TIMES_10("x"), TIMES_10("x"), TIMES_10("x"),
                                     "x", "x", nullptr);
  });
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_THAT(outcome.err, HasSubstr("idx < 8192"));
}

TEST_F(SpawnQuiet, puts_the_null_device_on_all_three) {
  const ScratchFile scratch;
  const int pid = platform_spawn_list_quiet(kCompanion, kCompanion, "report-to-file", "NONE",
                                            scratch.path.c_str(), nullptr);
  EXPECT_EQ(ended(pid), 0);
  const std::string report = scratch.contents();
  EXPECT_EQ(field(report, "fd0"), "/dev/null rw");
  EXPECT_EQ(field(report, "fd1"), "/dev/null rw");
  EXPECT_EQ(field(report, "fd2"), "/dev/null rw");
  EXPECT_EQ(field(report, "argc"), "4");
}

TEST_F(SpawnQuiet, lets_nothing_through) {
  const auto outcome = run_in_child(
      [] {
        exit(ended(platform_spawn_list_quiet("sh", "sh", "-c", "cat; echo x; echo y >&2; exit 5",
                                             nullptr)));
      },
      {}, "typed in");
  EXPECT_EQ(outcome.exit_status, 5);
  EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST_F(SpawnQuiet, gives_its_reference_to_the_null_device_back) {
  const int fd = platform_null_fd_acquire();
  EXPECT_EQ(ended(platform_spawn_list_quiet("true", "true", nullptr)), 0);
  EXPECT_EQ(target_of(fd), "/dev/null");
  EXPECT_EQ(platform_null_fd_release(fd), 0);
  EXPECT_EQ(ended(platform_spawn_list_quiet("true", "true", nullptr)), 0);
  EXPECT_EQ(target_of(fd), "closed");
}

TEST_F(SpawnQuiet, tells_why_no_child_could_be_made) {
  refuse("fork", EAGAIN);
  errno = 0;
  EXPECT_EQ(platform_spawn_list_quiet("true", "true", nullptr), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(SpawnQuiet, returns_zero_in_a_child_whose_program_is_missing) {
  const int pid = platform_spawn_list_quiet(kMissing, "missing", nullptr);
  if (pid == 0)
    _exit(errno == ENOENT ? 23 : 24);
  EXPECT_EQ(ended(pid), 23);
}

TEST_F(SpawnQuiet, starts_the_program_without_a_null_device_too) {
  const auto outcome = run_in_child([] {
    int pid = 0;
    {
      const DescriptorsExhausted exhausted;
      pid = platform_spawn_list_quiet(kMissing, "missing", nullptr);
      if (pid == 0) {
        printf("its own output");
        fflush(stdout);
        _exit(23);
      }
    }
    exit(ended(pid));
  });
  EXPECT_EQ(outcome.exit_status, 23);
  EXPECT_EQ(outcome.out, "its own output");
}

} // namespace
