// What a side does with its handle: the validity test, sending and receiving, watching, ending and
// closing.
#include "pair_fixture.h"

namespace {

using namespace pair_test;

class Validity : public ResourceTest {};
class Accessors : public ResourceTest {};

TEST_F(Validity, is_holding_its_own_address) {
  platform_pair_handle handle = {};
  platform_pair_handle other = {};
  EXPECT_EQ(platform_pair_valid(nullptr), 0);
  EXPECT_EQ(platform_pair_valid(&handle), 0);
  handle.self = &other;
  EXPECT_EQ(platform_pair_valid(&handle), 0);
  handle.self = &handle;
  EXPECT_EQ(platform_pair_valid(&handle), 1);
  other = handle;
  EXPECT_EQ(platform_pair_valid(&other), 0) << "a copy is no handle";
}

struct GuardedCall {
  const char *name;
  void (*call)(platform_pair_handle *);
};

char byte = 0;

constexpr GuardedCall kGuarded[] = {
    {"platform_pair_send", [](platform_pair_handle *ph) { platform_pair_send(ph, "", 0); }},
    {"platform_pair_recv", [](platform_pair_handle *ph) { platform_pair_recv(ph, &byte, 0); }},
    {"platform_pair_errno", [](platform_pair_handle *ph) { platform_pair_errno(ph); }},
    {"platform_pair_ok", [](platform_pair_handle *ph) { platform_pair_ok(ph); }},
    {"platform_pair_errstr", [](platform_pair_handle *ph) { platform_pair_errstr(ph); }},
    {"platform_pair_companion_pid",
     [](platform_pair_handle *ph) { platform_pair_companion_pid(ph); }},
    {"platform_pair_rx_fd", [](platform_pair_handle *ph) { platform_pair_rx_fd(ph); }},
    {"platform_pair_tx_fd", [](platform_pair_handle *ph) { platform_pair_tx_fd(ph); }},
    {"platform_pair_child_exit_status",
     [](platform_pair_handle *ph) { platform_pair_child_exit_status(ph); }},
    {"platform_pair_child_term_signal",
     [](platform_pair_handle *ph) { platform_pair_child_term_signal(ph); }},
    {"platform_pair_hybrid_environment",
     [](platform_pair_handle *ph) { platform_pair_hybrid_environment(ph); }},
    {"platform_pair_parent", [](platform_pair_handle *ph) { platform_pair_parent(ph); }},
    {"platform_pair_child", [](platform_pair_handle *ph) { platform_pair_child(ph); }},
    {"platform_pair_companion_alive",
     [](platform_pair_handle *ph) { platform_pair_companion_alive(ph); }},
    {"platform_pair_kill_child", [](platform_pair_handle *ph) { platform_pair_kill_child(ph); }},
    {"platform_pair_close", [](platform_pair_handle *ph) { platform_pair_close(ph); }},
};

TEST_F(Validity, is_asserted_by_every_call_on_a_handle) {
  for (const GuardedCall &guarded : kGuarded) {
    const auto outcome = run_in_child([&] {
      platform_pair_handle copy = {};
      guarded.call(&copy);
    });
    EXPECT_EQ(outcome.signal, SIGABRT) << guarded.name;
    EXPECT_THAT(outcome.err, HasSubstr("components/platform/orv_pair_connection.cpp:"));
    EXPECT_THAT(outcome.err, HasSubstr(guarded.name));
    EXPECT_THAT(outcome.err, HasSubstr("`platform_pair_valid(ph)'"));
  }
}

TEST_F(Validity, is_lost_with_a_null_handle) {
  for (const GuardedCall &guarded : kGuarded) {
    const auto outcome = run_in_child([&] { guarded.call(nullptr); });
    EXPECT_EQ(outcome.signal, SIGABRT) << guarded.name;
    EXPECT_THAT(outcome.err, HasSubstr("`platform_pair_valid(ph)'")) << guarded.name;
  }
}

TEST_F(Accessors, return_the_fields) {
  platform_pair_handle handle = {};
  handle.companion_pid = 1;
  handle.side = 1;
  handle.hybrid = 2;
  handle.read_fd = 3;
  handle.write_fd = 4;
  handle.child_exit_status = 5;
  handle.term_signal = 6;
  handle.saved_errno = 7;
  handle.self = &handle;
  EXPECT_EQ(platform_pair_companion_pid(&handle), 1);
  EXPECT_EQ(platform_pair_hybrid_environment(&handle), 2);
  EXPECT_EQ(platform_pair_rx_fd(&handle), 3);
  EXPECT_EQ(platform_pair_tx_fd(&handle), 4);
  EXPECT_EQ(platform_pair_child_exit_status(&handle), 5);
  EXPECT_EQ(platform_pair_child_term_signal(&handle), 6);
  EXPECT_EQ(platform_pair_errno(&handle), 7);
  EXPECT_EQ(platform_pair_parent(&handle), 1);
  EXPECT_EQ(platform_pair_child(&handle), 0);
  handle.side = 0;
  EXPECT_EQ(platform_pair_parent(&handle), 0);
  EXPECT_EQ(platform_pair_child(&handle), 1);
}

TEST_F(Accessors, call_a_handle_in_order_while_no_error_is_saved) {
  platform_pair_handle handle = {};
  handle.self = &handle;
  EXPECT_EQ(platform_pair_ok(&handle), 1);
  for (const int error : {-1, EPIPE}) {
    handle.saved_errno = error;
    EXPECT_EQ(platform_pair_ok(&handle), 0);
  }
}

TEST_F(Accessors, give_the_systems_text_for_any_saved_error) {
  platform_pair_handle handle = {};
  handle.self = &handle;
  for (const int error : {0, -1, EPIPE, 12345}) {
    handle.saved_errno = error;
    const std::string expected = strerror(error);
    EXPECT_EQ(platform_pair_errstr(&handle), expected);
  }
}

// A handle over one of two connected sockets; the test is the other side.
class OverSockets : public ResourceTest {
protected:
  void SetUp() override {
    ResourceTest::SetUp();
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    ph = make_handle(ends[0]);
    other = ends[1];
  }
  void TearDown() override {
    if (ph != nullptr)
      platform_pair_close(ph);
    if (other >= 0)
      close(other);
    ResourceTest::TearDown();
  }
  void close_other() {
    close(other);
    other = -1;
  }
  void make_non_blocking() { platform_fd_set_blocking(ends[0], 0); }

  platform_pair_handle *ph = nullptr;
  int other = -1;

private:
  int ends[2];
};

class Send : public OverSockets {};
class Receive : public OverSockets {};
class Close : public OverSockets {};

TEST_F(Send, writes_the_bytes_with_one_call) {
  const long before = calls("send");
  EXPECT_EQ(platform_pair_send(ph, "four", 4), 4);
  EXPECT_EQ(calls("send"), before + 1);
  char bytes[8] = "";
  EXPECT_EQ(recv(other, bytes, sizeof bytes, 0), 4);
  EXPECT_STREQ(bytes, "four");
  EXPECT_EQ(platform_pair_errno(ph), 0);
}

TEST_F(Send, uses_the_write_descriptor) {
  Sockets second;
  const int read_fd = ph->read_fd;
  ph->read_fd = second.fd[0];
  EXPECT_EQ(platform_pair_send(ph, "x", 1), 1);
  EXPECT_EQ(recv(other, &byte, 1, MSG_DONTWAIT), 1);
  ph->read_fd = read_fd;
}

TEST_F(Send, returns_what_the_system_took) {
  make_non_blocking();
  const std::string much(4 << 20, 'x');
  const long before = calls("send");
  const int sent = platform_pair_send(ph, much.data(), static_cast<int>(much.size()));
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, static_cast<int>(much.size()));
  EXPECT_EQ(calls("send"), before + 1) << "the rest is the caller's";
  EXPECT_EQ(platform_pair_errno(ph), 0);
}

TEST_F(Send, waits_for_room_on_a_blocking_connection) {
  const std::string much(4 << 20, 'x');
  const pid_t reader = fork();
  if (reader == 0) {
    close(ph->read_fd);
    alarm(20);
    size_t received = 0;
    char bytes[4096];
    for (ssize_t got; (got = read(other, bytes, sizeof bytes)) > 0;)
      received += static_cast<size_t>(got);
    _exit(received == much.size() ? 0 : 1);
  }
  close_other();
  EXPECT_EQ(platform_pair_send(ph, much.data(), static_cast<int>(much.size())),
            static_cast<int>(much.size()));
  platform_pair_close(ph);
  ph = nullptr;
  int status = -1;
  EXPECT_EQ(waitpid(reader, &status, 0), reader);
  EXPECT_EQ(status, 0);
}

TEST_F(Send, forgets_that_there_was_no_room) {
  make_non_blocking();
  const std::string much(1 << 20, 'x');
  while (platform_pair_send(ph, much.data(), static_cast<int>(much.size())) > 0) {
  }
  ph->saved_errno = 77;
  errno = 0;
  EXPECT_EQ(platform_pair_send(ph, "x", 1), 0);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(platform_pair_errno(ph), 77);
}

TEST_F(Send, saves_any_other_error) {
  for (const int error : {EINTR, ENOBUFS, EBADF}) {
    refuse("send", error, 0, 1);
    EXPECT_EQ(platform_pair_send(ph, "x", 1), 0);
    EXPECT_EQ(platform_pair_errno(ph), error);
    EXPECT_EQ(errno, error) << "it is the caller's as well";
  }
}

TEST_F(Send, keeps_a_saved_error_when_it_succeeds) {
  ph->saved_errno = 77;
  EXPECT_EQ(platform_pair_send(ph, "x", 1), 1);
  EXPECT_EQ(platform_pair_errno(ph), 77);
}

TEST_F(Send, of_nothing_saves_a_stale_error) {
  errno = ENOENT;
  EXPECT_EQ(platform_pair_send(ph, "", 0), 0);
  EXPECT_EQ(platform_pair_errno(ph), ENOENT);
  errno = EAGAIN;
  EXPECT_EQ(platform_pair_send(ph, "", 0), 0);
  EXPECT_EQ(platform_pair_errno(ph), ENOENT);
  errno = 0;
  EXPECT_EQ(platform_pair_send(ph, "", 0), 0);
  EXPECT_EQ(platform_pair_errno(ph), 0);
}

TEST_F(Send, of_a_negative_length_is_refused) {
  const long before = calls("send");
  EXPECT_EQ(platform_pair_send(ph, "x", -1), 0);
  EXPECT_EQ(platform_pair_errno(ph), EINVAL);
  EXPECT_EQ(calls("send"), before);
}

TEST_F(Send, raises_sigpipe_on_a_broken_connection) {
  close_other();
  const auto outcome = run_in_child([this] { platform_pair_send(ph, "x", 1); });
  EXPECT_EQ(outcome.signal, SIGPIPE);
}

TEST_F(Send, saves_the_broken_connection_where_sigpipe_is_ignored) {
  close_other();
  const auto outcome = run_in_child([this] {
    signal(SIGPIPE, SIG_IGN);
    const int sent = platform_pair_send(ph, "x", 1);
    printf("%d %s", sent, platform_pair_errstr(ph));
  });
  EXPECT_EQ(outcome.out, "0 Broken pipe");
}

TEST_F(Receive, reads_what_is_there_with_one_call) {
  EXPECT_EQ(send(other, "four", 4, 0), 4);
  const long before = calls("recv");
  char bytes[8] = "";
  EXPECT_EQ(platform_pair_recv(ph, bytes, sizeof bytes), 4);
  EXPECT_STREQ(bytes, "four");
  EXPECT_EQ(calls("recv"), before + 1);
}

TEST_F(Receive, takes_no_more_than_asked_for) {
  EXPECT_EQ(send(other, "four", 4, 0), 4);
  char bytes[4] = "";
  EXPECT_EQ(platform_pair_recv(ph, bytes, 3), 3);
  EXPECT_STREQ(bytes, "fou");
  EXPECT_EQ(platform_pair_recv(ph, bytes, 3), 1);
}

TEST_F(Receive, uses_the_read_descriptor) {
  Sockets second;
  const int write_fd = ph->write_fd;
  ph->write_fd = second.fd[0];
  EXPECT_EQ(send(other, "x", 1, 0), 1);
  EXPECT_EQ(platform_pair_recv(ph, &byte, 1), 1);
  ph->write_fd = write_fd;
}

TEST_F(Receive, returns_zero_at_the_end_of_the_stream) {
  close_other();
  ph->saved_errno = 77;
  errno = ENOENT;
  EXPECT_EQ(platform_pair_recv(ph, &byte, 1), 0);
  EXPECT_EQ(platform_pair_errno(ph), 77) << "the end is no error, and nothing stale is saved";
}

TEST_F(Receive, forgets_that_nothing_was_there) {
  make_non_blocking();
  ph->saved_errno = 77;
  EXPECT_EQ(platform_pair_recv(ph, &byte, 1), 0);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(platform_pair_errno(ph), 77);
}

TEST_F(Receive, saves_any_other_error) {
  for (const int error : {EINTR, ECONNRESET, ENOTSOCK}) {
    refuse("recv", error, 0, 1);
    EXPECT_EQ(platform_pair_recv(ph, &byte, 1), 0);
    EXPECT_EQ(platform_pair_errno(ph), error);
    EXPECT_EQ(errno, error) << "it is the caller's as well";
  }
}

TEST_F(Receive, of_nothing_saves_nothing) {
  EXPECT_EQ(send(other, "x", 1, 0), 1);
  errno = ENOENT;
  EXPECT_EQ(platform_pair_recv(ph, &byte, 0), 0);
  EXPECT_EQ(platform_pair_errno(ph), 0);
}

TEST_F(Receive, of_a_negative_length_is_refused) {
  EXPECT_EQ(send(other, "x", 1, 0), 1);
  const long before = calls("recv");
  EXPECT_EQ(platform_pair_recv(ph, &byte, -1), 0);
  EXPECT_EQ(platform_pair_errno(ph), EINVAL);
  EXPECT_EQ(calls("recv"), before);
}

TEST_F(Close, frees_the_handle_and_closes_the_descriptor) {
  const long blocks = support::live_blocks();
  const long closes = calls("close");
  const int fd = platform_pair_rx_fd(ph);
  EXPECT_EQ(platform_pair_close(ph), 1);
  ph = nullptr;
  EXPECT_EQ(support::live_blocks(), blocks - 1);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(calls("close"), closes + 2) << "once for reading, once for writing";
}

TEST_F(Close, closes_two_descriptors_where_they_differ) {
  Sockets second;
  ph->write_fd = second.fd[0];
  const int read_fd = ph->read_fd;
  platform_pair_close(ph);
  ph = nullptr;
  EXPECT_EQ(fcntl(read_fd, F_GETFD), -1);
  EXPECT_EQ(fcntl(second.fd[0], F_GETFD), -1);
  second.fd[0] = -1;
}

TEST_F(Close, leaves_errno_alone) {
  errno = 77;
  platform_pair_close(ph);
  ph = nullptr;
  EXPECT_EQ(errno, 77);
}

TEST_F(Close, does_not_shut_a_socket_pair_down) {
  const int kept = dup(platform_pair_rx_fd(ph));
  platform_pair_close(ph);
  ph = nullptr;
  EXPECT_EQ(recv(other, &byte, 1, MSG_DONTWAIT), -1) << "another holder is still connected";
  EXPECT_EQ(errno, EAGAIN);
  close(kept);
}

TEST_F(Close, shuts_the_hybrid_kind_down_and_closes_it_once) {
  const int kept = dup(platform_pair_rx_fd(ph));
  const long closes = calls("close");
  ph->kind = 13;
  EXPECT_EQ(platform_pair_close(ph), 1);
  ph = nullptr;
  EXPECT_EQ(calls("close"), closes + 1);
  EXPECT_EQ(recv(other, &byte, 1, MSG_DONTWAIT), 0) << "reading is over";
  EXPECT_EQ(send(other, "x", 1, MSG_NOSIGNAL), -1) << "and so is writing";
  EXPECT_EQ(errno, EPIPE);
  close(kept);
}

TEST_F(Close, neither_signals_the_companion_nor_waits_for_it) {
  platform_pair_handle *started = open_companion("echo");
  const int pid = platform_pair_companion_pid(started);
  const int kept = dup(platform_pair_rx_fd(started));
  const long kills = calls("kill");
  const long waits = calls("waitpid");
  EXPECT_EQ(platform_pair_close(started), 1);
  EXPECT_EQ(calls("kill"), kills);
  EXPECT_EQ(calls("waitpid"), waits);
  EXPECT_EQ(send(kept, "x", 1, 0), 1);
  EXPECT_EQ(recv(kept, &byte, 1, 0), 1) << "the companion goes on";
  close(kept);
  int status = -1;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(status, 0);
}

class Alive : public ResourceTest {
protected:
  static int answer(int side, int kind, int pid) {
    platform_pair_handle handle = {};
    handle.side = side;
    handle.kind = kind;
    handle.companion_pid = pid;
    handle.child_exit_status = 256;
    handle.self = &handle;
    const int alive = platform_pair_companion_alive(&handle);
    EXPECT_EQ(handle.child_exit_status, 256);
    EXPECT_EQ(handle.term_signal, 0);
    return alive;
  }
};

TEST_F(Alive, is_the_companion_until_it_ends) {
  platform_pair_handle *ph = open_companion("echo");
  EXPECT_EQ(platform_pair_companion_alive(ph), 1);
  EXPECT_EQ(platform_pair_child_exit_status(ph), 256);
  ASSERT_GT(platform_pair_companion_pid(ph), 0);
  kill(platform_pair_companion_pid(ph), SIGKILL);
  await_end(platform_pair_companion_pid(ph));
  EXPECT_EQ(platform_pair_child_term_signal(ph), 0) << "not looked at yet";
  EXPECT_EQ(platform_pair_companion_alive(ph), 0);
  EXPECT_EQ(platform_pair_child_term_signal(ph), SIGKILL);
  EXPECT_EQ(platform_pair_child_exit_status(ph), 0);
  EXPECT_EQ(platform_pair_companion_alive(ph), 0) << "it is collected now";
  EXPECT_EQ(platform_pair_child_term_signal(ph), SIGKILL) << "and what it left is kept";
  platform_pair_close(ph);
}

TEST_F(Alive, collects_the_exit_status) {
  platform_pair_handle *ph = platform_pair_parent_open_lp(kName, 0, 1, kCompanion, nullptr,
                                                          kCompanion, "exit", "37", nullptr);
  await_end(platform_pair_companion_pid(ph));
  EXPECT_EQ(platform_pair_companion_alive(ph), 0);
  EXPECT_EQ(platform_pair_child_exit_status(ph), 37);
  EXPECT_EQ(platform_pair_child_term_signal(ph), 0);
  platform_pair_close(ph);
}

TEST_F(Alive, is_no_companion_that_somebody_else_collected) {
  const int gone = gone_process();
  EXPECT_EQ(answer(1, 12, gone), 0);
  EXPECT_EQ(answer(1, 13, gone), 0);
}

TEST_F(Alive, is_a_process_that_is_no_child) {
  EXPECT_EQ(answer(1, 12, getppid()), 1);
}

TEST_F(Alive, is_the_hybrid_companion_without_an_id) {
  EXPECT_EQ(answer(1, 13, 0), 1);
  EXPECT_EQ(answer(1, 12, 0), 0) << "any other needs one";
  EXPECT_EQ(answer(1, 10, 0), 0);
}

TEST_F(Alive, is_the_parent_while_it_exists) {
  EXPECT_EQ(answer(0, 12, getppid()), 1);
  EXPECT_EQ(answer(0, 10, getppid()), 1);
  EXPECT_EQ(answer(0, 12, gone_process()), 0);
  EXPECT_EQ(answer(0, 10, gone_process()), 0);
  EXPECT_EQ(answer(0, 12, 0), 0);
}

TEST_F(Alive, is_the_hybrid_parent_without_looking) {
  EXPECT_EQ(answer(0, 13, gone_process()), 1);
  EXPECT_EQ(answer(0, 13, 0), 1);
}

TEST_F(Alive, collects_nothing_on_the_companions_side) {
  const pid_t pid = fork();
  if (pid == 0)
    _exit(5);
  await_end(pid);
  EXPECT_EQ(answer(0, 12, pid), 1);
  EXPECT_EQ(waitpid(pid, nullptr, 0), pid);
}

class KillChild : public ResourceTest {};

TEST_F(KillChild, terminates_the_companion_and_waits_for_it) {
  platform_pair_handle *ph = open_companion("echo");
  const int pid = platform_pair_companion_pid(ph);
  EXPECT_EQ(platform_pair_kill_child(ph), 1);
  EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), -1) << "it is collected";
  EXPECT_EQ(platform_pair_child_exit_status(ph), 256) << "but not noted";
  EXPECT_EQ(platform_pair_child_term_signal(ph), 0);
  EXPECT_EQ(platform_pair_companion_alive(ph), 0);
  EXPECT_EQ(platform_pair_close(ph), 1);
}

TEST_F(KillChild, does_nothing_on_the_companions_side) {
  platform_pair_handle handle = {};
  handle.kind = 12;
  handle.companion_pid = getppid();
  handle.self = &handle;
  refuse("kill", EPERM); // should it be called, it must not end our own parent
  const long kills = calls("kill");
  EXPECT_EQ(platform_pair_kill_child(&handle), 0);
  EXPECT_EQ(calls("kill"), kills);
}

TEST_F(KillChild, fails_when_there_is_no_such_process) {
  platform_pair_handle handle = {};
  handle.side = 1;
  handle.kind = 12;
  handle.companion_pid = gone_process();
  handle.self = &handle;
  EXPECT_EQ(platform_pair_kill_child(&handle), 0);
}

} // namespace
