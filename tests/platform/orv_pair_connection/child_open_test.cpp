// The companion's side of opening: the hand-over value and its markers, the signals, and the hybrid
// arrangement over TCP.
#include "pair_fixture.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace {

using namespace pair_test;

// A two-text join leaves three blocks on purpose; every companion open with a marker makes one.
constexpr long kBlocksOfJoin = 3;

class ChildOpen : public ResourceTest {
protected:
  void TearDown() override {
    if (ph != nullptr)
      free(ph); // not platform_pair_close: the descriptor numbers are made up
    unsetenv(kName);
    unsetenv(kSwitch);
    ResourceTest::TearDown();
  }
  platform_pair_handle *open(const char *value, int ignore_signals = 0, int blocking = 1) {
    if (value != nullptr)
      setenv(kName, value, 1);
    ph = platform_pair_child_open(kName, ignore_signals, blocking);
    return ph;
  }
  platform_pair_handle *ph = nullptr;
};

class HandOverValue : public ChildOpen {};
class HybridSwitch : public ChildOpen {};

TEST_F(ChildOpen, gives_a_handle_with_every_field_set) {
  open("1234 7 pid-rtx_fd_l", 0, 5);
  EXPECT_EQ(ph->companion_pid, 1234);
  EXPECT_EQ(ph->side, 0);
  EXPECT_EQ(ph->kind, 12);
  EXPECT_EQ(ph->hybrid, 0);
  EXPECT_EQ(ph->blocking, 5);
  EXPECT_EQ(ph->read_fd, 7);
  EXPECT_EQ(ph->write_fd, 7);
  EXPECT_EQ(ph->child_exit_status, 256);
  EXPECT_EQ(ph->term_signal, 0);
  EXPECT_EQ(ph->saved_errno, 0);
  EXPECT_EQ(ph->error_text, nullptr);
  EXPECT_EQ(ph->self, ph);
  expect_blocks_left(kBlocksOfJoin);
}

TEST_F(ChildOpen, takes_three_checked_blocks_for_the_name_of_the_switch) {
  const uint32_t requested = orv_malloc_bytes_requested();
  open("1234 7 pid-rtx_fd_l");
  const size_t name = strlen(kName);
  const size_t suffix = strlen("_HYBRID");
  EXPECT_EQ(orv_malloc_bytes_requested() - requested,
            (name + 1) + (suffix + 1) + (name + suffix + 1));
  expect_blocks_left(kBlocksOfJoin);
}

TEST_F(ChildOpen, describes_its_blocks_as_a_text_duplication) {
  const auto outcome = run_in_child(
      [] {
        const int pid =
            platform_spawn_list(kCompanion, kCompanion, "report-allocations", kName, nullptr);
        int status = -1;
        platform_wait_child(pid, &status);
        exit(status != 0);
      },
      {{kName, "1234 7 pid-rtx_fd_l"}});
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("ORV_STRDUP"));
  EXPECT_THAT(outcome.out, HasSubstr("components/platform/orv_pair_connection_open.cpp"));
}

TEST_F(ChildOpen, leaves_the_mode_of_the_descriptor_alone) {
  Sockets sockets;
  const std::string value = "1 " + std::to_string(sockets.fd[0]) + " pid-rtx_fd_l";
  platform_fd_set_blocking(sockets.fd[0], 0);
  open(value.c_str(), 0, 1);
  EXPECT_EQ(platform_fd_is_blocking(sockets.fd[0]), 0);
  free(ph);
  platform_fd_set_blocking(sockets.fd[0], 1);
  open(value.c_str(), 0, 0);
  EXPECT_EQ(platform_fd_is_blocking(sockets.fd[0]), 1);
  expect_blocks_left(2 * kBlocksOfJoin);
}

struct MarkerCase {
  const char *value;
  int kind;
  int hybrid;
};

TEST_F(HandOverValue, tells_the_kind_by_its_marker) {
  const MarkerCase cases[] = {
      {"1234 7 pid-rtx_fd_l", 12, 0},
      {"1234 7 pid-rtx_fd_w", 13, 1},
      {"1234 7 pid-rtx_fd", 10, 0},
      {"1234 7 pid-rtx_fd_x", 10, 0},
      {"1234 7xxpid-rtx_fd_lyy", 12, 0},
      {"1234 7 pid-rtx_fd_w pid-rtx_fd_l", 12, 0},
      {"1234 7 pid-rtx_fd pid-rtx_fd_w", 13, 1},
  };
  for (const MarkerCase &each : cases) {
    open(each.value);
    EXPECT_EQ(ph->kind, each.kind) << each.value;
    EXPECT_EQ(platform_pair_hybrid_environment(ph), each.hybrid) << each.value;
    EXPECT_EQ(platform_pair_companion_pid(ph), 1234) << each.value;
    EXPECT_EQ(platform_pair_rx_fd(ph), 7) << each.value;
    EXPECT_EQ(platform_pair_tx_fd(ph), 7) << each.value;
    free(ph);
  }
  ph = nullptr;
  expect_blocks_left(kBlocksOfJoin * 7);
}

TEST_F(HandOverValue, may_be_missing) {
  const long blocks = support::live_blocks();
  open(nullptr);
  EXPECT_EQ(support::live_blocks(), blocks + 1) << "the switch is not asked for";
  EXPECT_EQ(ph->kind, 0);
  EXPECT_EQ(ph->hybrid, 0);
  EXPECT_STREQ(ph->error_text, "Failing to start due to wrong type on linux");
  EXPECT_EQ(platform_pair_errno(ph), 0);
  EXPECT_EQ(platform_pair_ok(ph), 1);
  EXPECT_EQ(platform_pair_companion_pid(ph), 0);
  EXPECT_EQ(platform_pair_rx_fd(ph), -1);
  EXPECT_EQ(platform_pair_tx_fd(ph), -1);
  EXPECT_EQ(platform_pair_child(ph), 1);
  EXPECT_EQ(ph->child_exit_status, 256);
  EXPECT_EQ(platform_pair_valid(ph), 1);
}

TEST_F(HandOverValue, without_a_marker_is_as_good_as_missing) {
  for (const char *value : {"", "1234 7", "1234 7 pid-rtx"}) {
    open(value, 0, 3);
    EXPECT_EQ(ph->kind, 0) << value;
    EXPECT_EQ(ph->blocking, 3) << value;
    EXPECT_STREQ(ph->error_text, "Failing to start due to wrong type on linux") << value;
    EXPECT_EQ(ph->saved_errno, 0) << value;
    EXPECT_EQ(ph->read_fd, -1) << value;
    free(ph);
  }
  ph = nullptr;
}

TEST_F(HandOverValue, needs_two_integers) {
  for (const char *value :
       {"pid-rtx_fd_l", "12 pid-rtx_fd_l", "x 12 7 pid-rtx_fd_w", "1234, 7 pid-rtx_fd"}) {
    open(value);
    EXPECT_EQ(platform_pair_errno(ph), -1) << value;
    EXPECT_EQ(platform_pair_ok(ph), 0) << value;
    EXPECT_EQ(ph->error_text, nullptr) << value;
    EXPECT_EQ(ph->companion_pid, 0) << value;
    EXPECT_EQ(ph->read_fd, -1) << value;
    EXPECT_EQ(ph->write_fd, -1) << value;
    free(ph);
  }
  ph = nullptr;
  expect_blocks_left(kBlocksOfJoin * 4);
}

TEST_F(HandOverValue, is_read_as_signed_decimal_numbers) {
  open(" -5\t +09 pid-rtx_fd_l");
  EXPECT_EQ(ph->companion_pid, -5);
  EXPECT_EQ(ph->read_fd, 9);
  expect_blocks_left(kBlocksOfJoin);
}

constexpr int kIgnored[] = {SIGHUP, SIGINT, SIGQUIT, SIGABRT, SIGPIPE, SIGTERM, SIGURG};

// One letter a signal up to 31: i for ignored, d for its default.
std::string dispositions() {
  std::string text;
  for (int number = 1; number < 32; number++) {
    struct sigaction now = {};
    sigaction(number, nullptr, &now);
    text += now.sa_handler == SIG_IGN ? 'i' : 'd';
  }
  return text;
}

// What the dispositions are after a companion open with this value.
std::string dispositions_after(const char *value, int ignore_signals, const char *hybrid) {
  const auto outcome = run_in_child(
      [ignore_signals] {
        for (int number = 1; number < 32; number++)
          signal(number, SIG_DFL);
        (void)!platform_pair_child_open(kName, ignore_signals, 1);
        printf("%s", dispositions().c_str());
      },
      {{kName, value}, {kSwitch, hybrid}});
  return outcome.out;
}

TEST_F(ChildOpen, ignores_seven_signals_when_asked) {
  std::string expected(31, 'd');
  for (const int number : kIgnored)
    expected[static_cast<size_t>(number - 1)] = 'i';
  EXPECT_EQ(dispositions_after("1 7 pid-rtx_fd_l", 1, nullptr), expected);
  EXPECT_EQ(dispositions_after("1 7 pid-rtx_fd_w", 9, nullptr), expected);
  EXPECT_EQ(dispositions_after("malformed pid-rtx_fd_l", 1, nullptr), expected)
      << "before the value is read";
}

TEST_F(ChildOpen, leaves_the_signals_alone_otherwise) {
  const std::string untouched(31, 'd');
  EXPECT_EQ(dispositions_after("1 7 pid-rtx_fd_l", 0, nullptr), untouched);
  EXPECT_EQ(dispositions_after(nullptr, 1, nullptr), untouched) << "no variable";
  EXPECT_EQ(dispositions_after("1 7", 1, nullptr), untouched) << "no marker";
  EXPECT_EQ(dispositions_after("1 7 pid-rtx_fd_l", 1, "1"), untouched) << "hybrid";
}

// A listening TCP socket on "localhost".
class Listener {
public:
  Listener() { fd = platform_server_sock_open(21000, 61000, &port); }
  Listener(const Listener &) = delete;
  Listener &operator=(const Listener &) = delete;
  ~Listener() {
    if (fd >= 0)
      close(fd);
  }
  // The parent's end of the companion's connection.
  int accept_companion() {
    const int connected = platform_sock_accept(fd);
    fd = -1;
    return connected;
  }
  std::string value(const char *marker = "pid-rtx_fd_w", int pid = 1234) const {
    return std::to_string(pid) + " " + std::to_string(port) + " " + marker;
  }
  int port = 0;

private:
  int fd;
};

TEST_F(HybridSwitch, is_off_for_a_value_that_says_no) {
  for (const char *value : {"", "0", "false", "F", "f", "0yes", "False", "00"}) {
    setenv(kSwitch, value, 1);
    open("1234 7 pid-rtx_fd_w");
    EXPECT_EQ(platform_pair_rx_fd(ph), 7) << value;
    EXPECT_EQ(platform_pair_tx_fd(ph), 7) << value;
    free(ph);
  }
  ph = nullptr;
  expect_blocks_left(kBlocksOfJoin * 8);
}

TEST_F(HybridSwitch, is_on_for_any_other_value) {
  for (const char *value : {"1", "yes", "true", " ", "no", "-0", "T"}) {
    setenv(kSwitch, value, 1);
    Listener listener;
    open(listener.value().c_str());
    const int parent_end = listener.accept_companion();
    ASSERT_GE(parent_end, 0) << value;
    EXPECT_GE(platform_pair_rx_fd(ph), 0) << value;
    close(parent_end);
    platform_pair_close(ph);
  }
  ph = nullptr;
  expect_blocks_left(kBlocksOfJoin * 7);
}

TEST_F(HybridSwitch, is_not_asked_for_without_a_marker) {
  setenv(kSwitch, "1", 1);
  const long sockets = calls("socket");
  open("1234 7");
  EXPECT_EQ(calls("socket"), sockets);
  EXPECT_STREQ(ph->error_text, "Failing to start due to wrong type on linux");
}

class HybridOpen : public ChildOpen {
protected:
  void SetUp() override {
    ChildOpen::SetUp();
    setenv(kSwitch, "1", 1);
    expect_blocks_left(kBlocksOfJoin);
  }
};

TEST_F(HybridOpen, connects_to_the_port_on_localhost) {
  Listener listener;
  open(listener.value().c_str());
  EXPECT_EQ(ph->companion_pid, 1234);
  EXPECT_EQ(ph->side, 0);
  EXPECT_EQ(ph->kind, 13);
  EXPECT_EQ(platform_pair_hybrid_environment(ph), 1);
  EXPECT_EQ(ph->saved_errno, 0);
  EXPECT_EQ(ph->error_text, nullptr);
  EXPECT_GE(ph->read_fd, 0);
  EXPECT_EQ(ph->write_fd, ph->read_fd);
  sockaddr_storage address = {};
  socklen_t size = sizeof address;
  ASSERT_EQ(getpeername(ph->read_fd, reinterpret_cast<sockaddr *>(&address), &size), 0);
  const auto *peer = reinterpret_cast<sockaddr_in *>(&address);
  EXPECT_EQ(ntohs(peer->sin_port), listener.port);
  close(listener.accept_companion());
  platform_pair_close(ph);
  ph = nullptr;
}

TEST_F(HybridOpen, carries_bytes_both_ways) {
  Listener listener;
  open(listener.value().c_str());
  const int parent_end = listener.accept_companion();
  char bytes[3] = "";
  EXPECT_EQ(platform_pair_send(ph, "up", 2), 2);
  EXPECT_EQ(recv(parent_end, bytes, 2, MSG_WAITALL), 2);
  EXPECT_STREQ(bytes, "up");
  EXPECT_EQ(send(parent_end, "do", 2, 0), 2);
  EXPECT_EQ(platform_pair_recv(ph, bytes, 2), 2);
  EXPECT_STREQ(bytes, "do");
  platform_pair_close(ph);
  ph = nullptr;
  close(parent_end);
}

TEST_F(HybridOpen, goes_by_the_switch_whatever_the_marker) {
  Listener listener;
  open(listener.value("pid-rtx_fd_l").c_str());
  EXPECT_EQ(ph->kind, 12);
  EXPECT_EQ(platform_pair_hybrid_environment(ph), 0);
  const int parent_end = listener.accept_companion();
  EXPECT_GE(parent_end, 0);
  close(parent_end);
  platform_pair_close(ph);
  ph = nullptr;
}

TEST_F(HybridOpen, leaves_the_socket_blocking_for_either_choice) {
  for (const int blocking : {0, 1}) {
    Listener listener;
    open(listener.value().c_str(), 0, blocking);
    EXPECT_EQ(platform_fd_is_blocking(platform_pair_rx_fd(ph)), 1) << blocking;
    EXPECT_EQ(ph->blocking, blocking);
    close(listener.accept_companion());
    platform_pair_close(ph);
  }
  ph = nullptr;
  expect_blocks_left(2 * kBlocksOfJoin);
}

TEST_F(HybridOpen, needs_two_integers) {
  const long sockets = calls("socket");
  open("1234 pid-rtx_fd_w");
  EXPECT_EQ(platform_pair_errno(ph), -1);
  EXPECT_EQ(ph->error_text, nullptr);
  EXPECT_EQ(ph->companion_pid, 0);
  EXPECT_EQ(ph->read_fd, -1);
  EXPECT_EQ(ph->write_fd, -1);
  EXPECT_EQ(calls("socket"), sockets);
}

// A port on which nobody listens, kept so while the object lives.
class DeafPort {
public:
  DeafPort() : fd(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size);
    number = ntohs(address.sin_port);
  }
  DeafPort(const DeafPort &) = delete;
  DeafPort &operator=(const DeafPort &) = delete;
  ~DeafPort() { close(fd); }
  int number;

private:
  int fd;
};

TEST_F(HybridOpen, saves_why_the_connection_failed) {
  const DeafPort port;
  open(("1234 " + std::to_string(port.number) + " pid-rtx_fd_w").c_str());
  EXPECT_EQ(platform_pair_errno(ph), ECONNREFUSED);
  EXPECT_EQ(ph->companion_pid, 1234);
  EXPECT_EQ(ph->read_fd, -1);
  EXPECT_EQ(ph->write_fd, -1);
  EXPECT_EQ(ph->error_text, nullptr);
}

TEST_F(HybridOpen, traces_why_the_connection_failed) {
  const DeafPort port;
  const std::string value = "1234 " + std::to_string(port.number) + " pid-rtx_fd_w";
  const auto outcome = run_in_child(
      [] {
        msg_add_stream(MSG_DIAG, stdout);
        (void)!platform_pair_child_open(kName, 0, 1);
      },
      {{kName, value.c_str()}});
  EXPECT_EQ(outcome.out, "connection failed: Connection refused\n");
  EXPECT_EQ(outcome.err, "");
  expect_blocks_left(0);
}

TEST_F(HybridOpen, brings_a_companion_program_to_its_parent) {
  Listener listener;
  setenv(kName, listener.value("pid-rtx_fd_w", getpid()).c_str(), 1);
  const int pid = platform_spawn_list_quiet(kCompanion, kCompanion, "echo", kName, nullptr);
  ASSERT_GT(pid, 0);
  const int parent_end = listener.accept_companion();
  EXPECT_EQ(send(parent_end, "over TCP", 8, 0), 8);
  char bytes[9] = "";
  EXPECT_EQ(recv(parent_end, bytes, 8, MSG_WAITALL), 8);
  EXPECT_STREQ(bytes, "over TCP");
  close(parent_end);
  int status = -1;
  EXPECT_EQ(platform_wait_child(pid, &status), pid);
  EXPECT_EQ(status, 0);
  expect_blocks_left(0);
}

} // namespace
