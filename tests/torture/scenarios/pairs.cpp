// Pair connections and child processes: what a parent can tell when its companion could not be
// started, talked to, ended or waited for. The companion is this program again.
#include "scenario.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <orv/platform.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace scenario;

namespace {

constexpr char kName[] = "TORTURE_PAIR";
constexpr char kQuestion[] = "a question";
constexpr int kQuestionSize = sizeof kQuestion;

void await_readable(int fd) {
  pollfd entry = {.fd = fd, .events = POLLIN, .revents = 0};
  poll(&entry, 1, -1);
}

// Receives until all is there; false when the connection ended or failed before.
bool receive_all(platform_pair_handle *ph, char *area, int size) {
  for (int got = 0; got < size;) {
    await_readable(platform_pair_rx_fd(ph));
    errno = 0;
    const int length = platform_pair_recv(ph, area + got, size - got);
    EXPECT(length >= 0 && length <= size - got);
    if (length == 0 && errno != EINTR && errno != EAGAIN)
      return false;
    got += length;
  }
  return true;
}

bool send_all(platform_pair_handle *ph, const char *bytes, int size) {
  for (int done = 0; done < size;) {
    errno = 0;
    const int length = platform_pair_send(ph, bytes + done, size - done);
    EXPECT(length >= 0 && length <= size - done);
    if (length == 0 && errno != EINTR && errno != EAGAIN)
      return false;
    done += length;
  }
  return true;
}

// The scenario's own wait, for a child that the library could not wait for.
void collect(int pid) {
  int status;
  if (pid > 0 && waitpid(pid, &status, 0) == pid)
    EXPECT(WIFEXITED(status) ? WEXITSTATUS(status) != 99 : WTERMSIG(status) != SIGSEGV);
}

void talk(platform_pair_handle *ph) {
  char answer[kQuestionSize];
  if (!send_all(ph, kQuestion, kQuestionSize) || !receive_all(ph, answer, kQuestionSize))
    return;
  EXPECT(memcmp(answer, kQuestion, kQuestionSize) == 0);
}

void judge_failed_open(const platform_pair_handle *ph, const Level &level) {
  EXPECT(platform_pair_rx_fd(ph) == -1 && platform_pair_tx_fd(ph) == -1);
  EXPECT(platform_pair_errno(ph) > 0 && platform_pair_companion_pid(ph) == 0);
  const bool forked = strcmp(ph->error_text, "fork failed") == 0;
  EXPECT(forked || strcmp(ph->error_text, "socketpair create failed") == 0);
  level.expect_descriptors(forked ? 2 : 0);
}

void end_companion(platform_pair_handle *ph) {
  const int pid = platform_pair_companion_pid(ph);
  if (platform_pair_kill_child(ph) == 0)
    kill(pid, SIGKILL);
  platform_pair_close(ph);
  collect(pid);
}

void open_talk_and_end(const char *role, int blocking) {
  const Level level;
  platform_pair_handle *ph =
      platform_pair_parent_open_lp(kName, 1, blocking, kSelf, nullptr, kSelf, role, nullptr);
  end_copies();
  char text[PLATFORM_PAIR_DESCRIBE_SIZE];
  EXPECT(platform_pair_describe(ph, text) == text);
  if (platform_pair_rx_fd(ph) < 0) {
    judge_failed_open(ph, level);
    platform_pair_close(ph);
    Level::expect_no_children();
    return;
  }
  EXPECT(platform_pair_ok(ph) == 1);
  talk(ph);
  end_companion(ph);
  level.expect_descriptors();
  level.expect_heap();
  Level::expect_no_children();
}

void open_a_pair() {
  open_talk_and_end("companion", 1);
}

void open_a_pair_without_blocking() {
  open_talk_and_end("companion", 0);
}

// A program that cannot be run: the companion ends with 1, and the parent is told.
void open_with_a_missing_program() {
  platform_pair_handle *ph =
      platform_pair_parent_open_lp(kName, 1, 1, "/no/such/program", nullptr, "program", nullptr);
  end_copies();
  if (platform_pair_rx_fd(ph) >= 0) {
    char byte;
    EXPECT(platform_pair_recv(ph, &byte, 1) == 0);
    const int pid = platform_pair_companion_pid(ph);
    while (platform_pair_companion_alive(ph) == 1 && kill(pid, 0) == 0)
      usleep(1000);
    const int status = platform_pair_child_exit_status(ph);
    EXPECT(status == 1 || status == 256);
    platform_pair_close(ph);
    collect(pid);
  } else {
    platform_pair_close(ph);
  }
  Level::expect_no_children();
}

// False when the companion has ended without a connection.
bool is_connected_to(int listening, int companion) {
  pollfd entry = {.fd = listening, .events = POLLIN, .revents = 0};
  siginfo_t end = {};
  while (poll(&entry, 1, 10) == 0)
    if (waitid(P_PID, static_cast<id_t>(companion), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        end.si_pid == companion)
      return poll(&entry, 1, 0) == 1;
  return true;
}

// Over TCP: the parent listens, and the companion finds the port in the variable.
void open_over_tcp() {
  const Level level;
  int port = 0;
  const int first = 21000 + getpid() % 20000;
  int listening = platform_server_sock_open(first, first + 50, &port);
  if (listening < 0)
    return level.expect_descriptors();
  char value[100];
  snprintf(value, sizeof value, "%d %d pid-rtx_fd_w", getpid(), port);
  platform_setenv(kName, value);
  platform_setenv("TORTURE_PAIR_HYBRID", "1");
  const int pid = platform_spawn_list(kSelf, kSelf, "companion", nullptr);
  end_copies();
  if (pid > 0 && is_connected_to(listening, pid)) {
    const int sock = platform_sock_accept(listening);
    platform_sock_send_all(sock, kQuestion, kQuestionSize);
    platform_sock_close(sock);
  } else {
    platform_sock_close(listening);
  }
  level.expect_descriptors();
  collect(pid);
  Level::expect_no_children();
}

void judge_child(int pid, int expected) {
  int status = -1;
  errno = 0;
  const int waited = platform_wait_child(pid, &status);
  if (waited == pid)
    EXPECT(status == 0 || (WIFEXITED(status) && WEXITSTATUS(status) == expected));
  else
    EXPECT(waited == -1 && errno == ECHILD && status == -1);
  collect(pid);
}

void end_failed_child(int pid) {
  if (pid == 0)
    _exit(127);
}

void start_and_wait() {
  const Level level;
  const int pid = platform_spawn_list("true", "true", nullptr);
  end_failed_child(pid);
  if (pid < 0)
    EXPECT(errno == EAGAIN || errno == ENOMEM);
  else
    judge_child(pid, 127);
  level.expect_descriptors();
  Level::expect_no_children();
}

void start_quietly() {
  const Level level;
  const int pid = platform_spawn_list_quiet("sh", "sh", "-c", "echo heard; exit 5", nullptr);
  end_failed_child(pid);
  level.expect_descriptors();
  int exit_status = -1;
  int term_signal = -1;
  while (pid > 0 && platform_child_status(pid, &exit_status, &term_signal) == 0)
    usleep(1000);
  if (pid > 0)
    EXPECT(term_signal == 0 && (exit_status == 5 || exit_status == 127 || exit_status == 0));
  collect(pid);
  level.expect_heap();
  Level::expect_no_children();
}

void start_with_descriptors() {
  const int out = memory_file("out");
  const int std_fds[] = {-1, out, out};
  const char *const argv[] = {"echo", "written", nullptr};
  const Level level;
  const int pid = platform_spawn_fds("echo", const_cast<char *const *>(argv), std_fds);
  end_failed_child(pid);
  if (pid > 0)
    judge_child(pid, 127);
  EXPECT(contents(out).empty() || contents(out) == "written\n");
  level.expect_descriptors();
  Level::expect_no_children();
}

void end_a_child() {
  const int pid = platform_spawn_list("sleep", "sleep", "100", nullptr);
  end_failed_child(pid);
  if (pid < 0)
    return Level::expect_no_children();
  errno = 0;
  const int result = platform_kill_and_wait(pid);
  EXPECT(result == 1 || (result == 0 && errno == EPERM));
  if (result == 0)
    kill(pid, SIGKILL);
  collect(pid);
  Level::expect_no_children();
}

void share_the_null_device() {
  const Level level;
  const int fd = platform_null_fd_acquire();
  const int again = platform_null_fd_acquire();
  if (fd >= 0)
    EXPECT(again == fd && platform_null_fd_release(fd) == 1);
  else
    EXPECT(errno == EMFILE || errno == ENOMEM);
  EXPECT(platform_null_fd_release(again) == 0);
  level.expect_descriptors();
  level.expect_heap();
}

void change_blocking() {
  int ends[2];
  need(pipe(ends) == 0);
  EXPECT(platform_fd_is_blocking(ends[0]) == 1 || errno == EMFILE);
  if (platform_fd_set_blocking(ends[0], 0) == 0)
    EXPECT(platform_fd_is_blocking(ends[0]) == 0);
  else
    EXPECT(errno == EMFILE);
}

constexpr Scenario kScenarios[] = {
    {"pair-open", open_a_pair, true, {"block != nullptr"}},
    {"pair-nonblocking", open_a_pair_without_blocking, true, {"block != nullptr"}},
    {"pair-missing-program", open_with_a_missing_program, true, {"block != nullptr"}},
    {"pair-tcp", open_over_tcp, true, {"variable != nullptr"}},
    {"child-wait", start_and_wait, false, {}},
    {"child-quiet", start_quietly, false, {}},
    {"child-descriptors", start_with_descriptors, false, {}},
    {"child-end", end_a_child, false, {}},
    {"null-device", share_the_null_device, false, {}},
    {"blocking-mode", change_blocking, false, {}},
};

} // namespace

Table scenario::pair_scenarios() {
  return {kScenarios, std::size(kScenarios)};
}

void scenario::be_companion() {
  const bool over_tcp = getenv("TORTURE_PAIR_HYBRID") != nullptr;
  platform_pair_handle *ph = platform_pair_child_open(kName, 0, 1);
  const bool open = platform_pair_rx_fd(ph) >= 0;
  EXPECT(open == (platform_pair_tx_fd(ph) >= 0));
  if (over_tcp && !open && ph->kind != 0)
    EXPECT(platform_pair_errno(ph) > 0);
  char bytes[100];
  for (;;) {
    errno = 0;
    const int length = open ? platform_pair_recv(ph, bytes, sizeof bytes) : 0;
    if (length > 0 && send_all(ph, bytes, length))
      continue;
    if (length > 0 || (errno != EINTR && errno != EAGAIN))
      break;
  }
  platform_pair_close(ph);
  exit(0);
}
