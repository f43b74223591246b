// Recipes for sockets and framed messages.
#include "platform/socket/socket_test.h"
#include "support/child.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <sys/ioctl.h>
#include <thread>

namespace {

using namespace sockets;
using testing::ElementsAre;

constexpr int kFirstPort = 23000;
constexpr int kEndOfPorts = 23900;

class SocketRecipes : public SocketTest {
protected:
  // A conversation of one line over a connection that is made before it is accepted.
  static std::string talk(int listening, int port) {
    const int client = platform_sock_connect("127.0.0.1", port);
    const int server = platform_sock_accept(listening);
    char bytes[100] = "";
    platform_sock_send_all(client, "hello", 5);
    platform_sock_recv_wait(server, bytes, sizeof bytes, 1, nullptr);
    platform_sock_close(client);
    platform_sock_close(server);
    return bytes;
  }
};

TEST_F(SocketRecipes, give_the_address_instead_of_the_name) {
  int port;
  const int listening = platform_server_sock_open(kFirstPort, kEndOfPorts, &port);
  ASSERT_GE(listening, 0);
  const int client = platform_sock_connect("127.0.0.1", port);
  sockaddr_in peer{};
  socklen_t length = sizeof peer;
  getpeername(client, reinterpret_cast<sockaddr *>(&peer), &length);
  EXPECT_EQ(peer.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  platform_sock_close(client);
  platform_sock_close(listening);
}

TEST_F(SocketRecipes, give_a_range_of_ports_and_read_the_chosen_one) {
  int port;
  int other_port;
  const int listening = platform_server_sock_open(kFirstPort, kEndOfPorts, &port);
  const int other = platform_server_sock_open(kFirstPort, kEndOfPorts, &other_port);
  ASSERT_GE(listening, 0);
  ASSERT_GE(other, 0);
  EXPECT_NE(port, other_port);
  platform_sock_close(listening);
  platform_sock_close(other);
}

TEST_F(SocketRecipes, open_another_listening_socket_for_the_next_connection) {
  for (int connection = 0; connection < 2; connection++) {
    int port;
    const int listening = platform_server_sock_open(kFirstPort, kEndOfPorts, &port);
    ASSERT_GE(listening, 0);
    EXPECT_EQ(talk(listening, port), "hello");
  }
}

TEST_F(SocketRecipes, wait_before_accepting_on_a_socket_that_does_not_block) {
  int port;
  const int listening = platform_server_sock_open(kFirstPort, kEndOfPorts, &port);
  ASSERT_GE(listening, 0);
  platform_fd_set_blocking(listening, 0);
  const long attempts = support::calls("accept");
  EXPECT_EQ(platform_sock_accept_timeout(listening, 0), -2);
  EXPECT_EQ(support::calls("accept"), attempts);
  const int client = platform_sock_connect("127.0.0.1", port);
  const int server = platform_sock_accept_timeout(listening, 10);
  EXPECT_GE(server, 0);
  platform_sock_close(client);
  platform_sock_close(server);
}

void do_nothing(int) {}

TEST_F(SocketRecipes, keep_periodic_signals_away_while_waiting_for_a_connection) {
  int port;
  const int listening = platform_server_sock_open(kFirstPort, kEndOfPorts, &port);
  ASSERT_GE(listening, 0);
  sigset_t alarm;
  sigset_t before;
  sigemptyset(&alarm);
  sigaddset(&alarm, SIGALRM);
  const auto handler = signal(SIGALRM, do_nothing);
  sigprocmask(SIG_BLOCK, &alarm, &before);
  raise(SIGALRM); // waits until the mask is lifted
  const long waits = support::calls("select") + support::calls("poll");
  EXPECT_EQ(platform_sock_accept_timeout(listening, 0), -2);
  EXPECT_EQ(support::calls("select") + support::calls("poll"), waits + 1);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  signal(SIGALRM, handler);
  platform_sock_close(listening);
}

// A child that sends its parent a number of signals, and nobody else when that has gone.
pid_t start_pestering() {
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid != 0)
    return pid;
  for (int signals = 0; signals < 50 && getppid() == parent; signals++) {
    kill(parent, SIGUSR1);
    usleep(1000);
  }
  _exit(0);
}

TEST_F(SocketRecipes, send_on_blocking_sockets_with_restarting_handlers) {
  const auto outcome = support::run_in_child([this] {
    struct sigaction restarting = {};
    restarting.sa_handler = do_nothing;
    restarting.sa_flags = SA_RESTART;
    sigaction(SIGUSR1, &restarting, nullptr);
    const std::string bytes(4'000'000, 'x');
    const pid_t reader = fork();
    if (reader == 0) {
      close(ours);
      usleep(20'000); // the sender is to wait for a while
      _exit(read_to_end(theirs).size() == bytes.size() ? 0 : 1);
    }
    const pid_t pesterer = start_pestering();
    const int sent = platform_sock_send_all(ours, bytes.data(), static_cast<int>(bytes.size()));
    platform_sock_close(ours);
    int status = -1;
    platform_wait_child(reader, &status);
    platform_wait_child(pesterer, nullptr);
    printf("%d %d", sent, status);
  });
  EXPECT_EQ(outcome.out, "4000000 0");
}

TEST_F(SocketRecipes, tell_the_end_of_the_stream_from_a_failure_by_receiving) {
  char byte;
  close_theirs();
  EXPECT_EQ(platform_sock_recv_wait(ours, &byte, 1, 1, nullptr), -1);
  EXPECT_EQ(platform_sock_recv(ours, &byte, 1), 0);
  EXPECT_EQ(platform_sock_recv(-1, &byte, 1), -1);
}

TEST_F(SocketRecipes, make_the_buffer_larger_than_the_longest_message_by_8192_bytes) {
  const std::string longest(10'000, 'x');
  install(static_cast<int>((longest + kEnd).size()) + 8192);
  std::thread peer([&] {
    for (int i = 0; i < 20; i++)
      peer_sends(longest + kEnd);
    close_theirs();
  });
  EXPECT_EQ(platform_message_loop(ours, keep, nullptr, 0), 0);
  peer.join();
  EXPECT_EQ(handled.size(), 20U);
}

int peers_end = -1;

// The peer is told to begin, and begins.
void tell_peer_to_begin() {
  write_whole(peers_end, "the conversation" + kEnd);
}

TEST_F(SocketRecipes, drain_before_the_peer_is_told_to_begin) {
  install(100000);
  peers_end = theirs;
  peer_sends("what an earlier program has sent");
  EXPECT_EQ(platform_message_loop(ours, keep_and_stop, tell_peer_to_begin, 1), 0);
  EXPECT_THAT(handled, ElementsAre(Lines{"the conversation"}));
}

} // namespace
