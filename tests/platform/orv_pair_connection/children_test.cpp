// Watching and ending child processes, the shared null device, and blocking modes.
#include "pair_fixture.h"

namespace {

using namespace pair_test;

// A child that exits at once.
pid_t child_exiting_with(int status) {
  const pid_t pid = fork();
  if (pid == 0)
    _exit(status);
  return pid;
}

// A child that waits for a signal.
pid_t sleeping_child() {
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(20);
    for (;;)
      pause();
  }
  return pid;
}

class WaitChild : public ResourceTest {};

TEST_F(WaitChild, returns_the_id_and_stores_the_status) {
  const pid_t pid = child_exiting_with(37);
  int status = 0;
  EXPECT_EQ(platform_wait_child(pid, &status), pid);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 37);
}

TEST_F(WaitChild, blocks_until_the_child_ends) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    close(ends[1]);
    char byte;
    while (read(ends[0], &byte, 1) > 0) {
    }
    _exit(3);
  }
  close(ends[0]);
  const pid_t helper = fork();
  if (helper == 0)
    _exit(0); // its copy of the pipe closes with it
  waitpid(helper, nullptr, 0);
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, WNOHANG), 0);
  close(ends[1]);
  EXPECT_EQ(platform_wait_child(pid, &status), pid);
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(WaitChild, reports_and_tries_again_when_interrupted) {
  for (const int error : {EINTR, EAGAIN}) {
    const auto outcome = run_in_child([error] {
      msg_add_stream(MSG_DIAG, stdout);
      const pid_t pid = child_exiting_with(0);
      refuse("waitpid", error, 0, 40);
      const long waits = calls("waitpid");
      errno = 5;
      int status = -1;
      const bool waited = platform_wait_child(pid, &status) == pid;
      const int left = errno;
      fprintf(stderr, "%d %d %d %ld", waited, status, left, calls("waitpid") - waits);
    });
    EXPECT_EQ(outcome.err, "1 0 0 41") << "errno is 0 after a retry";
    const std::string line = std::string("waitpid: : ") + strerror(error) + "\n";
    std::string expected;
    for (int i = 0; i < 40; i++)
      expected += line;
    EXPECT_EQ(outcome.out, expected);
  }
}

TEST_F(WaitChild, reports_any_other_failure_and_returns_it) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_DIAG, stdout);
    int status = 77;
    const int result = platform_wait_child(gone_process(), &status);
    const int error = errno;
    fprintf(stderr, "%d %d %s", result, status, strerror(error));
  });
  EXPECT_EQ(outcome.out, "waitpid: : No child processes\n");
  EXPECT_EQ(outcome.err, "-1 77 No child processes");
}

TEST_F(WaitChild, reports_nothing_when_it_succeeds) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_DIAG, stdout);
    platform_wait_child(child_exiting_with(0), nullptr);
  });
  EXPECT_EQ(outcome.out, "");
}

class ChildStatus : public ResourceTest {
protected:
  int exit_status = 77;
  int term_signal = 77;
};

TEST_F(ChildStatus, is_nothing_while_the_child_runs) {
  const pid_t pid = sleeping_child();
  EXPECT_EQ(platform_child_status(pid, &exit_status, &term_signal), 0);
  EXPECT_EQ(exit_status, 0);
  EXPECT_EQ(term_signal, 0);
  platform_kill_and_wait(pid);
}

TEST_F(ChildStatus, is_the_exit_status_of_a_child_that_exited) {
  for (const int status : {0, 37, 255}) {
    const pid_t pid = child_exiting_with(status);
    await_end(pid);
    exit_status = term_signal = 77;
    EXPECT_EQ(platform_child_status(pid, &exit_status, &term_signal), pid);
    EXPECT_EQ(exit_status, status);
    EXPECT_EQ(term_signal, 0);
  }
}

TEST_F(ChildStatus, is_the_signal_of_a_child_that_was_ended) {
  for (const int signal_number : {SIGTERM, SIGKILL, SIGUSR1}) {
    const pid_t pid = sleeping_child();
    kill(pid, signal_number);
    await_end(pid);
    exit_status = term_signal = 77;
    EXPECT_EQ(platform_child_status(pid, &exit_status, &term_signal), pid);
    EXPECT_EQ(exit_status, 0);
    EXPECT_EQ(term_signal, signal_number);
  }
}

TEST_F(ChildStatus, leaves_the_core_bit_out_of_the_signal) {
  const pid_t pid = fork();
  if (pid == 0) {
    signal(SIGQUIT, SIG_DFL);
    raise(SIGQUIT);
  }
  await_end(pid);
  EXPECT_EQ(platform_child_status(pid, &exit_status, &term_signal), pid);
  EXPECT_EQ(term_signal, SIGQUIT);
}

TEST_F(ChildStatus, needs_no_outputs) {
  pid_t pid = child_exiting_with(3);
  await_end(pid);
  EXPECT_EQ(platform_child_status(pid, nullptr, nullptr), pid);
  pid = sleeping_child();
  kill(pid, SIGKILL);
  await_end(pid);
  EXPECT_EQ(platform_child_status(pid, &exit_status, nullptr), pid);
  EXPECT_EQ(exit_status, 0);
}

TEST_F(ChildStatus, fails_for_a_process_that_is_no_child) {
  EXPECT_EQ(platform_child_status(gone_process(), &exit_status, &term_signal), -1);
  EXPECT_EQ(errno, ECHILD);
  EXPECT_EQ(exit_status, 0);
  EXPECT_EQ(term_signal, 0);
}

TEST_F(ChildStatus, of_any_child_is_returned_without_its_status) {
  const pid_t pid = child_exiting_with(3);
  await_end(pid);
  EXPECT_EQ(platform_child_status(-1, &exit_status, &term_signal), pid);
  EXPECT_EQ(exit_status, 0) << "the id is not the one asked for";
}

TEST_F(ChildStatus, of_any_child_of_none_is_nothing) {
  EXPECT_EQ(platform_child_status(-1, &exit_status, &term_signal), -1);
  EXPECT_EQ(exit_status, 0);
  EXPECT_EQ(term_signal, 0);
}

// Both entry points behave alike.
class KillAndWait : public ResourceTest, public testing::WithParamInterface<int (*)(int)> {};

INSTANTIATE_TEST_SUITE_P(EitherEntry, KillAndWait,
                         testing::Values(platform_kill_and_wait, platform_kill_and_wait_child),
                         [](const auto &tested) { return tested.index == 0 ? "first" : "second"; });

TEST_P(KillAndWait, terminates_the_child_and_collects_it) {
  const pid_t pid = sleeping_child();
  const long kills = calls("kill");
  EXPECT_EQ(GetParam()(pid), 1);
  EXPECT_EQ(calls("kill"), kills + 1);
  EXPECT_EQ(waitpid(pid, nullptr, 0), -1);
}

// A child that tells of each SIGTERM, and ends by itself after the first.
pid_t unwilling_child(int tell) {
  int ready[2];
  if (pipe(ready) != 0)
    return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    sigprocmask(SIG_BLOCK, &term, nullptr);
    close(ready[0]);
    close(ready[1]);
    alarm(20);
    int got = 0;
    sigwait(&term, &got);
    _exit(write(tell, "T", 1) == 1 ? 0 : 1);
  }
  close(ready[1]);
  char byte;
  while (read(ready[0], &byte, 1) > 0) {
  }
  close(ready[0]);
  return pid;
}

TEST_P(KillAndWait, waits_for_a_child_that_does_not_end_by_sigterm) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t pid = unwilling_child(ends[1]);
  const long kills = calls("kill");
  EXPECT_EQ(GetParam()(pid), 1);
  EXPECT_EQ(calls("kill"), kills + 1) << "no SIGKILL follows";
  close(ends[1]);
  char bytes[4];
  EXPECT_EQ(read(ends[0], bytes, sizeof bytes), 1) << "the child ended by its own will";
  close(ends[0]);
}

TEST_P(KillAndWait, kills_only_where_sigterm_cannot_be_sent) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t pid = unwilling_child(ends[1]);
  const long kills = calls("kill");
  refuse("kill", EPERM, 0, 1);
  EXPECT_EQ(GetParam()(pid), 1);
  EXPECT_EQ(calls("kill"), kills + 2);
  close(ends[1]);
  char byte;
  EXPECT_EQ(read(ends[0], &byte, 1), 0) << "no SIGTERM came, SIGKILL ended it";
  close(ends[0]);
}

TEST_P(KillAndWait, fails_without_waiting_where_no_signal_can_be_sent) {
  const pid_t pid = sleeping_child();
  const long waits = calls("waitpid");
  refuse("kill", EPERM);
  EXPECT_EQ(GetParam()(pid), 0);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(calls("waitpid"), waits);
  support::refuse_nothing();
  EXPECT_EQ(GetParam()(pid), 1);
}

TEST_P(KillAndWait, fails_for_a_process_that_is_gone) {
  EXPECT_EQ(GetParam()(gone_process()), 0);
  EXPECT_EQ(errno, ESRCH);
}

TEST_P(KillAndWait, succeeds_though_the_wait_fails) {
  const pid_t pid = sleeping_child();
  refuse("waitpid", ECHILD, 0, 1);
  EXPECT_EQ(GetParam()(pid), 1);
  EXPECT_EQ(waitpid(pid, nullptr, 0), pid);
}

TEST_P(KillAndWait, never_signals_everyone) {
  const long kills = calls("kill");
  refuse("kill", EPERM);
  for (const int pid : {0, -1}) {
    errno = 0;
    EXPECT_EQ(GetParam()(pid), 0);
    EXPECT_EQ(errno, ESRCH);
  }
  EXPECT_EQ(calls("kill"), kills);
}

class NullDevice : public ResourceTest {};

TEST_F(NullDevice, is_opened_for_reading_and_writing) {
  const int fd = platform_null_fd_acquire();
  EXPECT_EQ(target_of(fd), "/dev/null");
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
  EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(platform_null_fd_release(fd), 0);
  EXPECT_EQ(target_of(fd), "closed");
}

TEST_F(NullDevice, is_shared_until_the_last_release) {
  const int fd = platform_null_fd_acquire();
  EXPECT_EQ(platform_null_fd_acquire(), fd);
  EXPECT_EQ(platform_null_fd_acquire(), fd);
  EXPECT_EQ(platform_null_fd_release(fd), 2);
  EXPECT_EQ(platform_null_fd_release(fd), 1);
  EXPECT_EQ(target_of(fd), "/dev/null");
  EXPECT_EQ(platform_null_fd_release(fd), 0);
  EXPECT_EQ(target_of(fd), "closed");
}

TEST_F(NullDevice, is_not_released_by_another_descriptor) {
  const int fd = platform_null_fd_acquire();
  const int other = dup(fd);
  EXPECT_EQ(platform_null_fd_release(other), 1);
  EXPECT_EQ(platform_null_fd_release(-1), 1);
  EXPECT_EQ(target_of(other), "/dev/null");
  EXPECT_EQ(target_of(fd), "/dev/null");
  close(other);
  EXPECT_EQ(platform_null_fd_release(fd), 0);
}

TEST_F(NullDevice, stands_a_release_too_many) {
  EXPECT_EQ(platform_null_fd_release(-1), 0) << "before it was ever opened";
  const int fd = platform_null_fd_acquire();
  EXPECT_EQ(platform_null_fd_release(fd), 0);
  Sockets sockets; // one of them has the number now
  EXPECT_EQ(platform_null_fd_release(fd), 0);
  EXPECT_NE(target_of(fd), "closed") << "it is somebody else's by now";
  const int again = platform_null_fd_acquire();
  EXPECT_EQ(target_of(again), "/dev/null");
  EXPECT_EQ(platform_null_fd_release(again), 0) << "the count did not go below 0";
}

TEST_F(NullDevice, that_cannot_be_opened_is_tried_again_later) {
  const auto outcome = run_in_child([] {
    {
      const DescriptorsExhausted exhausted;
      printf("%d ", platform_null_fd_acquire());
      printf("%d ", platform_null_fd_release(-1));
    }
    const int fd = platform_null_fd_acquire();
    printf("%d ", fd >= 3);
    printf("%d", platform_null_fd_release(fd));
  });
  EXPECT_EQ(outcome.out, "-1 0 1 0");
}

class BlockingMode : public ResourceTest {};

TEST_F(BlockingMode, is_switched_on_and_off) {
  const Sockets sockets;
  const int fd = sockets.fd[0];
  EXPECT_EQ(platform_fd_is_blocking(fd), 1);
  EXPECT_EQ(platform_fd_set_blocking(fd, 0), 0);
  EXPECT_EQ(platform_fd_is_blocking(fd), 0);
  EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(platform_fd_set_blocking(fd, 0), 0);
  EXPECT_EQ(platform_fd_is_blocking(fd), 0);
  EXPECT_EQ(platform_fd_set_blocking(fd, -9), 0) << "anything but 0 blocks";
  EXPECT_EQ(platform_fd_is_blocking(fd), 1);
  EXPECT_EQ(platform_fd_set_blocking(fd, 1), 0);
  EXPECT_EQ(platform_fd_is_blocking(fd), 1);
}

TEST_F(BlockingMode, leaves_the_other_flags) {
  const int fd = open("/dev/null", O_RDWR | O_APPEND);
  const int flags = fcntl(fd, F_GETFL);
  EXPECT_EQ(platform_fd_set_blocking(fd, 0), 0);
  EXPECT_EQ(fcntl(fd, F_GETFL), flags | O_NONBLOCK);
  EXPECT_EQ(platform_fd_set_blocking(fd, 1), 0);
  EXPECT_EQ(fcntl(fd, F_GETFL), flags);
  close(fd);
}

TEST_F(BlockingMode, is_switched_where_no_flag_is_set_at_all) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(fcntl(ends[0], F_GETFL), 0);
  EXPECT_EQ(platform_fd_is_blocking(ends[0]), 1);
  EXPECT_EQ(platform_fd_set_blocking(ends[0], 0), 0);
  EXPECT_EQ(fcntl(ends[0], F_GETFL), O_NONBLOCK);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(BlockingMode, of_a_closed_descriptor_cannot_be_had) {
  const int fd = dup(0);
  close(fd);
  EXPECT_EQ(platform_fd_is_blocking(fd), 0);
  EXPECT_EQ(platform_fd_set_blocking(fd, 1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(platform_fd_set_blocking(-1, 0), -1);
}

TEST_F(BlockingMode, that_the_system_refuses_to_set_is_a_failure) {
  const int fd = open("/dev/null", O_PATH);
  EXPECT_EQ(platform_fd_set_blocking(fd, 0), -1);
  EXPECT_EQ(errno, EBADF);
  close(fd);
}

} // namespace
