// Waits, selects and sends under a storm of signals. The other side of each conversation sends
// signals between its own steps, so they come while the call under test waits: thousands of them,
// and each is counted. Nothing is lost on either side: not a byte, not a message, not a status, not
// a signal.
#include "support/resources.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <new>
#include <orv/platform.h>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kSignalsPerStep = 5;

// Counted by the handler, in memory that both sides share.
std::atomic<int> &signals_seen =
    *new (mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
               MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<int>;

// Signals of this kind are queued, so that every single one arrives. The next step comes when all
// have been handled: in the middle of whatever the receiver waits for.
void send_signals(pid_t to) {
  const int expected = signals_seen + kSignalsPerStep;
  constexpr sigval kNothing = {.sival_ptr = nullptr}; // all of its bytes
  for (int sent = 0; sent < kSignalsPerStep;)
    if (sigqueue(to, SIGRTMIN, kNothing) == 0)
      sent++;
    else
      sched_yield(); // the queue is full
  while (signals_seen < expected)
    sched_yield();
}

class Storm : public support::ResourceTest {
protected:
  void SetUp() override {
    ResourceTest::SetUp();
    signals_seen = 0;
    handle_signals(0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  }

  void TearDown() override {
    // A process that was waited for already has left its number to others.
    if (HasFailure() && other > 0 && waitpid(other, nullptr, WNOHANG) == 0) {
      kill(other, SIGKILL);
      waitpid(other, nullptr, 0);
    }
    close(ends[0]);
    close(ends[1]);
    signal(SIGRTMIN, SIG_DFL);
    ResourceTest::TearDown();
  }

  // With SA_RESTART where a header asks for it.
  static void handle_signals(int flags) {
    struct sigaction action = {};
    action.sa_handler = [](int) { signals_seen++; };
    action.sa_flags = flags;
    sigaction(SIGRTMIN, &action, nullptr);
  }

  // The other side, in a process of its own. It is given this process to send signals to.
  void start(const std::function<void(pid_t)> &body) {
    const pid_t target = getpid();
    other = fork();
    ASSERT_GE(other, 0);
    if (other != 0)
      return;
    signal(SIGRTMIN, SIG_DFL);
    alarm(50);
    body(target);
    _exit(0);
  }

  void expect_end(int steps) {
    int status = -1;
    EXPECT_EQ(platform_wait_child(other, &status), other);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(signals_seen, steps * kSignalsPerStep);
  }

  int ends[2] = {-1, -1}; // this side's and the other's
  pid_t other = 0;
};

void write_all(int fd, const std::string &bytes) {
  if (write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
    _exit(1);
}

std::string message(int number) {
  return "message " + std::to_string(number) + "\r\nwith more\r\n\r\n";
}

constexpr int kMessages = 600;
int received = 0;

int expect_next(int, char *first, char **further) {
  EXPECT_EQ(first, "message " + std::to_string(received));
  EXPECT_STREQ(further[0], "with more");
  EXPECT_EQ(further[1], nullptr);
  received++;
  return 1;
}

int idle_calls = 0;

// Every message comes in two pieces, with signals before each.
TEST_F(Storm, the_message_loop_loses_no_message) {
  start([this](pid_t target) {
    for (int i = 0; i < kMessages; i++) {
      const std::string text = message(i);
      send_signals(target);
      write_all(ends[1], text.substr(0, 9));
      send_signals(target);
      write_all(ends[1], text.substr(9));
    }
    shutdown(ends[1], SHUT_WR);
  });
  platform_msgbuf *buffer = platform_msgbuf_create(100000);
  platform_set_message_buffer(buffer);
  received = 0;
  EXPECT_EQ(platform_message_loop(ends[0], expect_next, nullptr, 0), 0);
  EXPECT_EQ(received, kMessages);
  platform_msgbuf_free(buffer);
  expect_end(2 * kMessages);
}

TEST_F(Storm, a_wait_for_bytes_goes_on_until_they_come) {
  constexpr int kSteps = 400;
  start([this](pid_t target) {
    for (int i = 0; i < kSteps; i++) {
      send_signals(target);
      char byte = static_cast<char>(i);
      if (send(ends[1], &byte, 1, 0) != 1 || recv(ends[1], &byte, 1, 0) != 1)
        _exit(1);
    }
  });
  idle_calls = 0;
  for (int i = 0; i < kSteps; i++) {
    char byte = 0;
    ASSERT_EQ(platform_sock_recv_wait(ends[0], &byte, 1, 1, [] { idle_calls++; }), 1);
    ASSERT_EQ(byte, static_cast<char>(i));
    ASSERT_EQ(platform_sock_send_all(ends[0], &byte, 1), 1);
  }
  EXPECT_GE(idle_calls, kSteps);
  expect_end(kSteps);
}

// The receiver takes little at a time, so the sender waits for room most of the time.
TEST_F(Storm, messages_are_sent_whole_with_handlers_that_restart) {
  handle_signals(SA_RESTART);
  constexpr int kLarge = 300;
  const std::string line(8000, 'x');
  const std::string expected = "large\r\n" + line + "\r\n\r\n";
  const int small = 4096;
  setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  start([&, this](pid_t target) {
    close(ends[0]);
    std::string area(expected.size(), '\0');
    for (int i = 0; i < kLarge; i++) {
      send_signals(target);
      if (recv(ends[1], area.data(), area.size(), MSG_WAITALL) !=
              static_cast<ssize_t>(area.size()) ||
          area != expected)
        _exit(1);
    }
    char more;
    _exit(recv(ends[1], &more, 1, 0) == 0 ? 0 : 1);
  });
  for (int i = 0; i < kLarge; i++)
    ASSERT_EQ(platform_sock_send_message(ends[0], "large", line.c_str(), nullptr), 1);
  shutdown(ends[0], SHUT_WR);
  expect_end(kLarge);
}

TEST_F(Storm, a_pair_exchanges_every_byte_with_handlers_that_restart) {
  handle_signals(SA_RESTART);
  constexpr int kSteps = 400;
  start([this](pid_t target) {
    char question[20];
    for (int i = 0; i < kSteps; i++) {
      const ssize_t length = recv(ends[1], question, sizeof question, 0);
      send_signals(target);
      if (length <= 0 || send(ends[1], question, static_cast<size_t>(length), 0) != length)
        _exit(1);
    }
  });
  const std::string value = std::to_string(other) + " " + std::to_string(ends[0]) + " pid-rtx_fd";
  setenv("STORM_PAIR", value.c_str(), 1);
  platform_pair_handle *ph = platform_pair_child_open("STORM_PAIR", 0, 1);
  for (int i = 0; i < kSteps; i++) {
    const std::string question = "question " + std::to_string(i);
    const int length = static_cast<int>(question.size());
    ASSERT_EQ(platform_pair_send(ph, question.data(), length), length);
    char answer[20] = "";
    ASSERT_EQ(platform_pair_recv(ph, answer, sizeof answer), length);
    ASSERT_EQ(answer, question);
  }
  EXPECT_EQ(platform_pair_errno(ph), 0);
  platform_pair_close(ph);
  ends[0] = -1; // closed with the handle
  unsetenv("STORM_PAIR");
  expect_blocks_left(3); // of the name of the switch
  expect_end(kSteps);
}

TEST_F(Storm, every_childs_status_is_collected) {
  constexpr int kChildren = 60;
  for (int i = 0; i < kChildren; i++) {
    start([i](pid_t target) {
      send_signals(target);
      send_signals(target);
      _exit(i % 256);
    });
    int status = -1;
    ASSERT_EQ(platform_wait_child(other, &status), other);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), i % 256);
  }
  EXPECT_EQ(signals_seen, 2 * kChildren * kSignalsPerStep);
}

// A child that sends signals while it is being ended.
TEST_F(Storm, every_child_is_ended_and_waited_for) {
  constexpr int kChildren = 40;
  for (int i = 0; i < kChildren; i++) {
    start([](pid_t target) {
      static volatile pid_t pestered;
      pestered = target;
      signal(SIGTERM, [](int) {
        send_signals(pestered);
        _exit(0);
      });
      send_signals(target);
      for (;;)
        pause();
    });
    while (signals_seen < (2 * i + 1) * kSignalsPerStep)
      usleep(100); // its handler is installed by now
    ASSERT_EQ(platform_kill_and_wait(other), 1);
    ASSERT_EQ(waitpid(other, nullptr, 0), -1);
  }
  EXPECT_EQ(signals_seen, 2 * kChildren * kSignalsPerStep);
}

TEST_F(Storm, every_connection_is_accepted) {
  constexpr int kConnections = 25;
  for (int i = 0; i < kConnections; i++) {
    int port = 0;
    const int first = 30000 + getpid() % 20000;
    const int listening = platform_server_sock_open(first, first + 200, &port);
    ASSERT_GE(listening, 0);
    start([port](pid_t target) {
      send_signals(target);
      const int sock = platform_sock_connect("localhost", port);
      send_signals(target);
      _exit(sock >= 0 && platform_sock_send_all(sock, "x", 1) == 1 ? 0 : 1);
    });
    const int sock = platform_sock_accept_timeout(listening, 40);
    ASSERT_GE(sock, 0);
    char byte = 0;
    EXPECT_EQ(platform_sock_recv_wait(sock, &byte, 1, 1, nullptr), 1);
    EXPECT_EQ(byte, 'x');
    platform_sock_close(sock);
    int status = -1;
    EXPECT_EQ(platform_wait_child(other, &status), other);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(signals_seen, 2 * kConnections * kSignalsPerStep);
}

// A pipe with a name, so that the reads of the copy wait. The signals begin when both sides have it
// open: an open that is interrupted fails.
TEST_F(Storm, a_copied_file_is_whole) {
  constexpr int kSteps = 400;
  char folder[] = "/tmp/storm_test.XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string source = std::string(folder) + "/source";
  const std::string copy = std::string(folder) + "/copy";
  ASSERT_EQ(mkfifo(source.c_str(), 0600), 0);
  start([&](pid_t target) {
    const int fd = open(source.c_str(), O_WRONLY);
    for (int i = 0; i < kSteps; i++) {
      send_signals(target);
      write_all(fd, message(i));
    }
    close(fd);
  });
  EXPECT_EQ(platform_copy_file(source.c_str(), copy.c_str()), 1);
  std::string expected;
  for (int i = 0; i < kSteps; i++)
    expected += message(i);
  std::string found(expected.size() + 1, '\0');
  const int fd = open(copy.c_str(), O_RDONLY);
  found.resize(static_cast<size_t>(read(fd, found.data(), found.size())));
  close(fd);
  EXPECT_EQ(found, expected);
  unlink(source.c_str());
  unlink(copy.c_str());
  rmdir(folder);
  expect_end(kSteps);
}

} // namespace
