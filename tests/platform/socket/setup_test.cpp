// Setting sockets up: the listening socket of a range of ports, accepting, connecting, closing.
#include "platform/socket/lookup.h"
#include "support/child.h"
#include "support/resources.h"
#include "support/system.h"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/tcp.h>
#include <orv/platform.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::Gt;
using testing::IsEmpty;
using testing::Lt;

constexpr int kPorts = 50; // how many ports of a range a test lets be taken by others

class SettingUp : public support::ResourceTest {
protected:
  void TearDown() override {
    lookup::find({});
    lookup::find_same(nullptr);
    lookup::fail(0);
    for (const int fd : opened)
      close(fd);
    ResourceTest::TearDown();
  }

  // Closed when the test ends.
  int keep_open(int fd) {
    if (fd >= 0)
      opened.push_back(fd);
    return fd;
  }

  static int port_of(int sock) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(sock, reinterpret_cast<sockaddr *>(&address), &length);
    return ntohs(address.sin_port);
  }

  // A listening socket of the library on a port that the system picks.
  int open_server(int *port) {
    const int sock = platform_server_sock_open(0, 1, nullptr);
    *port = port_of(sock);
    return sock;
  }

  // A port that is taken, with room for a range above it.
  int take_port() {
    int port = 0;
    do {
      port = port_of(keep_open(platform_server_sock_open(0, 1, nullptr)));
    } while (port > 65535 - kPorts);
    return port;
  }

  static int option(int sock, int level, int name) {
    int value = -1;
    socklen_t length = sizeof value;
    getsockopt(sock, level, name, &value, &length);
    return value;
  }

private:
  std::vector<int> opened;
};

class Serving : public SettingUp {};

TEST_F(Serving, fails_at_once_with_an_empty_range) {
  const auto outcome = support::run_in_child(
      [] {
        int port = 77;
        printf("%d", platform_server_sock_open(5000, 5000, &port));
        printf(" %d", platform_server_sock_open(5001, 5000, &port));
        printf(" %d %zu\n", port, lookup::record.asked.size());
      },
      {{"ORV_PERROR", "1"}});
  const std::string report = "server sock open failed : Invalid argument\n";
  EXPECT_EQ(outcome.out, report + "-1" + report + " -1 77 0\n");
}

TEST_F(Serving, listens_on_localhost_on_the_port_it_tells) {
  const int taken = take_port();
  int port = 0;
  const int sock = keep_open(platform_server_sock_open(taken, taken + kPorts, &port));
  ASSERT_GE(sock, 0);
  EXPECT_THAT(port, AllOf(Gt(taken), Lt(taken + kPorts)));
  EXPECT_EQ(port_of(sock), port);
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(sock, reinterpret_cast<sockaddr *>(&address), &length);
  EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(option(sock, SOL_SOCKET, SO_ACCEPTCONN), 1);
}

TEST_F(Serving, tries_the_ports_in_order_and_stops_at_the_first_free_one) {
  const int taken = take_port();
  lookup::record = {};
  int port = 0;
  keep_open(platform_server_sock_open(taken, taken + kPorts, &port));
  ASSERT_EQ(lookup::record.asked.size(), static_cast<size_t>(port - taken + 1));
  for (int i = 0; i <= port - taken; i++)
    EXPECT_EQ(lookup::record.asked[static_cast<size_t>(i)],
              "localhost:" + std::to_string(taken + i));
}

TEST_F(Serving, asks_for_ipv4_tcp_streams) {
  int port;
  keep_open(open_server(&port));
  ASSERT_EQ(lookup::record.hints.size(), 1U);
  const addrinfo &hints = lookup::record.hints[0];
  EXPECT_EQ(hints.ai_family, AF_INET);
  EXPECT_EQ(hints.ai_socktype, SOCK_STREAM);
  EXPECT_EQ(hints.ai_protocol, IPPROTO_TCP);
  EXPECT_EQ(hints.ai_flags, 0);
}

TEST_F(Serving, sets_no_address_reuse_and_a_backlog_of_1) {
  int port;
  const int sock = keep_open(open_server(&port));
  EXPECT_EQ(option(sock, SOL_SOCKET, SO_REUSEADDR), 0);
  EXPECT_EQ(option(sock, SOL_SOCKET, SO_REUSEPORT), 0);
  tcp_info info{};
  socklen_t length = sizeof info;
  getsockopt(sock, IPPROTO_TCP, TCP_INFO, &info, &length);
  EXPECT_EQ(info.tcpi_sacked, 1U); // of a listening socket: its backlog
}

TEST_F(Serving, fails_when_every_port_is_taken) {
  const int taken = take_port();
  int port = 77;
  EXPECT_EQ(platform_server_sock_open(taken, taken + 1, &port), -1);
  EXPECT_EQ(errno, EADDRINUSE);
  EXPECT_EQ(port, 77);
}

// A port in use is given up with its socket closed, whichever step refuses it.
TEST_F(Serving, goes_to_the_next_port_when_a_step_fails) {
  for (const char *step : {"socket", "bind", "listen"}) {
    const int base = take_port() + 1;
    support::refuse(step, EACCES, 0, 1);
    int port = 0;
    EXPECT_GE(keep_open(platform_server_sock_open(base, base + kPorts, &port)), 0) << step;
    EXPECT_GT(port, base) << step;
  }
}

TEST_F(Serving, reports_the_last_failure_when_no_port_could_be_had) {
  for (const char *step : {"socket", "bind", "listen"}) {
    const auto outcome = support::run_in_child(
        [step] {
          support::refuse(step, EACCES);
          const int result = platform_server_sock_open(0, 3, nullptr);
          const int left = errno;
          printf("%d %d %zu\n", result, left == EACCES, lookup::record.asked.size());
        },
        {{"ORV_PERROR", "1"}});
    EXPECT_EQ(outcome.out, "server sock open failed : Permission denied\n-1 1 3\n") << step;
  }
}

TEST_F(Serving, releases_the_lookups_of_failed_ports_only) {
  const int base = take_port() + 1;
  lookup::record.asked.clear();
  lookup::record.released = 0;
  support::refuse("bind", EADDRINUSE, 0, 2);
  EXPECT_GE(keep_open(platform_server_sock_open(base, base + kPorts, nullptr)), 0);
  // Two were refused, and somebody else may hold the next.
  EXPECT_GE(lookup::record.asked.size(), 3U);
  EXPECT_EQ(static_cast<size_t>(lookup::record.released) + 1, lookup::record.asked.size());
}

TEST_F(Serving, gives_the_whole_range_up_when_a_lookup_fails) {
  support::refuse("bind", EADDRINUSE, 0, 1);
  lookup::fail(EAI_AGAIN, 1);
  EXPECT_EQ(platform_server_sock_open(0, 5, nullptr), -1);
  EXPECT_THAT(lookup::record.asked, ElementsAre("localhost:0", "localhost:1"));
  EXPECT_EQ(lookup::record.released, 1);
}

// Cut to 16 bits, 65536 would be port 0, which the system gives to anyone.
TEST_F(Serving, gives_the_whole_range_up_at_a_port_that_does_not_exist) {
  const auto outcome = support::run_in_child(
      [] {
        support::refuse("bind", EADDRINUSE, 0, 1); // 65535 is tried, and taken
        int port = 77;
        printf("%d", platform_server_sock_open(65535, 65540, &port));
        printf("%d", platform_server_sock_open(65536, INT_MAX, &port));
        printf("%d", platform_server_sock_open(-1, 1, &port));
        printf("%d", platform_server_sock_open(INT_MIN, INT_MAX, &port));
        printf(" %d %zu %s\n", port, lookup::record.asked.size(), lookup::record.asked[0].c_str());
      },
      {{"ORV_PERROR", "1"}});
  const std::string failure = "server sock open failed : Cannot assign requested address\n-1";
  EXPECT_EQ(outcome.out, failure + failure + failure + failure + " 77 1 localhost:65535\n");
}

TEST_F(Serving, serves_the_highest_port) {
  support::refuse("bind", EADDRINUSE, 0, 1);
  int port = 0;
  const int sock = keep_open(platform_server_sock_open(65534, 65536, &port));
  if (sock < 0)
    GTEST_SKIP() << "port 65535 is taken";
  EXPECT_EQ(port, 65535);
  EXPECT_EQ(port_of(sock), 65535);
}

TEST_F(Serving, gives_the_whole_range_up_at_an_address_of_an_unknown_family) {
  lookup::find({{.family = AF_UNIX}, {}}); // a usable one after it does not help
  EXPECT_EQ(platform_server_sock_open(0, 5, nullptr), -1);
  EXPECT_EQ(lookup::record.asked.size(), 1U);
  EXPECT_EQ(lookup::record.released, 1);
  EXPECT_EQ(support::calls("socket"), 0);
}

TEST_F(Serving, gives_the_whole_range_up_at_a_multicast_address) {
  for (const uint32_t address : {0xe0000000U, 0xefffffffU}) {
    lookup::find({{.ipv4 = address}, {}});
    EXPECT_EQ(platform_server_sock_open(0, 5, nullptr), -1);
  }
  EXPECT_EQ(lookup::record.asked.size(), 2U);
  EXPECT_EQ(lookup::record.released, 2);
  EXPECT_EQ(support::calls("socket"), 0);
}

TEST_F(Serving, tries_the_addresses_beside_the_multicast_ones) {
  for (const uint32_t address : {0xdfffffffU, 0xf0000000U}) {
    lookup::find({{.ipv4 = address}, {}});
    EXPECT_EQ(platform_server_sock_open(0, 2, nullptr), -1); // they are not this host's
  }
  EXPECT_EQ(lookup::record.asked.size(), 4U);
  EXPECT_EQ(support::calls("bind"), 4); // the second address is never used
}

TEST_F(Serving, neither_listens_on_a_datagram_socket_nor_minds_its_address) {
  lookup::find({{.type = SOCK_DGRAM, .protocol = IPPROTO_UDP}});
  expect_blocks_left(1);
  const int sock = keep_open(platform_server_sock_open(0, 1, nullptr));
  EXPECT_GE(sock, 0);
  EXPECT_EQ(option(sock, SOL_SOCKET, SO_TYPE), SOCK_DGRAM);
  EXPECT_EQ(support::calls("listen"), 0);
  lookup::find({{.type = SOCK_DGRAM, .protocol = IPPROTO_UDP, .ipv4 = 0xe0000001U}});
  expect_blocks_left(2);
  EXPECT_GE(keep_open(platform_server_sock_open(0, 1, nullptr)), 0);
}

TEST_F(Serving, leaves_any_number_of_lookups_as_they_were_made) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addrinfo result = {};
  result.ai_family = AF_INET;
  result.ai_socktype = SOCK_STREAM;
  result.ai_addr = reinterpret_cast<sockaddr *>(&address);
  result.ai_addrlen = sizeof address;
  const addrinfo before = result;
  lookup::find_same(&result);
  errno = 0;
  for (int i = 0; i < 70; i++) {
    const int sock = platform_server_sock_open(0, 1, nullptr);
    ASSERT_GE(sock, 0);
    ASSERT_EQ(errno, 0) << "no port has failed";
    close(sock);
  }
  EXPECT_EQ(platform_sock_connect("localhost", 1), -1); // the result's port is 0
  EXPECT_EQ(memcmp(&result, &before, sizeof result), 0);
  EXPECT_EQ(lookup::record.released, 0);
}

// A program that has closed its standard input gets sockets with the number 0.
TEST_F(Serving, takes_0_for_a_socket_like_any_other) {
  const int taken = take_port();
  const auto outcome = support::run_in_child([taken] {
    close(STDIN_FILENO);
    int port = 77;
    const int sock = platform_server_sock_open(taken + 1, taken + kPorts, &port);
    printf("%d %d %d", sock, option(sock, SOL_SOCKET, SO_ACCEPTCONN), port - port_of(sock));
  });
  EXPECT_EQ(outcome.out, "0 1 0");
}

TEST_F(Serving, serves_an_ipv6_address_too) {
  lookup::find({{.family = AF_INET6}});
  support::refuse("bind", EADDRNOTAVAIL); // the planned address is too short to be bound
  EXPECT_EQ(platform_server_sock_open(0, 3, nullptr), -1);
  EXPECT_EQ(lookup::record.asked.size(), 3U); // each was tried
}

class Accepting : public SettingUp {
protected:
  void SetUp() override {
    SettingUp::SetUp();
    listening = open_server(&port);
  }

  bool listening_is_open() const { return fcntl(listening, F_GETFD) != -1; }

  int connect_client() { return keep_open(platform_sock_connect("localhost", port)); }

  // Puts a listening socket of the tests where select and accept can be refused.
  int listening = -1;
  int port = 0;
};

void expect_connected(int one, int other) {
  ASSERT_GE(one, 0);
  ASSERT_GE(other, 0);
  char byte = 0;
  EXPECT_EQ(send(one, "x", 1, 0), 1);
  EXPECT_EQ(recv(other, &byte, 1, 0), 1);
  EXPECT_EQ(byte, 'x');
}

TEST_F(Accepting, returns_the_connection_and_closes_the_listening_socket) {
  const int client = connect_client();
  errno = EBUSY;
  const int sock = keep_open(platform_sock_accept(listening));
  EXPECT_EQ(errno, 0); // cleared before the first attempt
  expect_connected(client, sock);
  EXPECT_FALSE(listening_is_open());
}

// A process that holds the same listening socket no longer gets connections from it either.
TEST_F(Accepting, shuts_the_listening_socket_down_for_every_holder) {
  for (const int error : {0, ECONNABORTED}) {
    const int server = error == 0 ? listening : open_server(&port);
    const int copy = keep_open(dup(server));
    connect_client();
    if (error != 0)
      support::refuse("accept", error, 0, 1);
    EXPECT_EQ(keep_open(platform_sock_accept(server)) >= 0, error == 0);
    EXPECT_EQ(connect_client(), -1);
    EXPECT_EQ(option(copy, SOL_SOCKET, SO_ACCEPTCONN), 0);
  }
}

TEST_F(Accepting, sends_without_delay) {
  const int client = connect_client();
  const int sock = keep_open(platform_sock_accept(listening));
  EXPECT_THAT(lookup::record.undelayed, ElementsAre(client, sock));
  EXPECT_EQ(option(client, IPPROTO_TCP, TCP_NODELAY), 1);
  EXPECT_EQ(option(sock, IPPROTO_TCP, TCP_NODELAY), 1);
}

TEST_F(Accepting, takes_0_for_a_connection_like_any_other) {
  connect_client();
  const auto outcome = support::run_in_child([this] {
    close(STDIN_FILENO);
    const int sock = platform_sock_accept_timeout(listening, 10);
    printf("%d %d", sock, option(sock, IPPROTO_TCP, TCP_NODELAY));
  });
  EXPECT_EQ(outcome.out, "0 1");
  close(listening);
}

TEST_F(Accepting, does_without_the_option_when_it_is_refused) {
  lookup::refuse_options = true;
  const int client = connect_client();
  const int sock = keep_open(platform_sock_accept(listening));
  expect_connected(client, sock);
  lookup::refuse_options = false;
}

TEST_F(Accepting, tries_again_after_an_interruption_and_reports_each) {
  for (const int error : {EINTR, EAGAIN}) {
    const auto outcome = support::run_in_child(
        [this, error] {
          listening = open_server(&port);
          connect_client();
          support::refuse("accept", error, 0, 3);
          const bool accepted = platform_sock_accept(listening) >= 0;
          printf("%d %ld %d\n", accepted, support::calls("accept"), listening_is_open());
        },
        {{"ORV_PERROR", "1"}});
    const std::string report = std::string("accept: ") + strerror(error) + "\n";
    EXPECT_EQ(outcome.out, report + report + report + "1 4 0\n");
  }
  close(listening);
}

TEST_F(Accepting, gives_up_at_any_other_failure_and_closes) {
  const auto outcome = support::run_in_child(
      [this] {
        support::refuse("accept", ECONNABORTED, 1);
        support::refuse("accept", ECONNABORTED, 0, 1);
        const int result = platform_sock_accept(listening);
        const int left = errno;
        printf("%d %d %ld %d\n", result, left == ECONNABORTED, support::calls("accept"),
               listening_is_open());
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.out, "accept: Software caused connection abort\n-1 1 1 0\n");
  close(listening);
}

TEST_F(Accepting, gives_up_after_500_attempts) {
  fcntl(listening, F_SETFL, O_NONBLOCK); // nobody connects: EAGAIN each time
  EXPECT_EQ(platform_sock_accept(listening), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(support::calls("accept"), 500);
  EXPECT_FALSE(listening_is_open());
}

TEST_F(Accepting, waits_for_a_connection_until_the_time_has_passed) {
  EXPECT_EQ(platform_sock_accept_timeout(listening, 0), -2);
  EXPECT_EQ(support::last_size("select"), 0U);
  EXPECT_TRUE(listening_is_open());
  EXPECT_EQ(platform_sock_accept_timeout(listening, 1), -2);
  EXPECT_EQ(support::last_size("select"), 1000000U); // microseconds
  EXPECT_EQ(support::calls("select"), 2);
  EXPECT_TRUE(listening_is_open());
  const int client = connect_client();
  const int sock = keep_open(platform_sock_accept_timeout(listening, 1000));
  expect_connected(client, sock);
  EXPECT_FALSE(listening_is_open());
  EXPECT_EQ(option(sock, IPPROTO_TCP, TCP_NODELAY), 1);
}

TEST_F(Accepting, waits_again_with_the_full_time_after_an_interruption) {
  const int client = connect_client();
  support::refuse("select", EINTR, 0, 1);
  EXPECT_GE(keep_open(platform_sock_accept_timeout(listening, 7)), 0);
  EXPECT_EQ(support::calls("select"), 2);
  EXPECT_EQ(support::last_size("select"), 7000000U);
  EXPECT_GE(client, 0);
}

// The system takes the time that was waited off the time-out of a select that a signal ends.
TEST_F(Accepting, sets_the_time_up_anew_after_a_signal) {
  static int free_port;
  static int client;
  free_port = port;
  client = -1;
  struct sigaction connecting = {};
  connecting.sa_handler = [](int) { client = platform_sock_connect("localhost", free_port); };
  sigaction(SIGALRM, &connecting, nullptr);
  const itimerval soon = {.it_interval = {0, 0}, .it_value = {0, 50000}};
  setitimer(ITIMER_REAL, &soon, nullptr);
  const int sock = keep_open(platform_sock_accept_timeout(listening, 15));
  expect_connected(keep_open(client), sock);
  EXPECT_EQ(support::calls("select"), 2);
  EXPECT_EQ(support::last_size("select"), 15000000U);
}

TEST_F(Accepting, goes_on_after_every_kind_of_interruption) {
  for (const int error : {0, EINTR, EAGAIN}) {
    support::refuse("select", error, 0, 2);
    const long before = support::calls("select");
    EXPECT_EQ(platform_sock_accept_timeout(listening, 0), -2);
    EXPECT_EQ(support::calls("select"), before + 3);
  }
  close(listening);
}

TEST_F(Accepting, reports_a_failed_wait_and_leaves_the_listening_socket_open) {
  const auto outcome = support::run_in_child(
      [this] {
        support::refuse("select", ENOMEM, 0, 1);
        const int result = platform_sock_accept_timeout(listening, 1);
        const int left = errno;
        printf("%d %d %d\n", result, left == ENOMEM, listening_is_open());
        printf("%d\n", platform_sock_accept_timeout(listening, -1));
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.out, "select failed: Cannot allocate memory\n-1 1 1\n"
                         "select failed: Invalid argument\n-1\n");
  close(listening);
}

TEST_F(Accepting, attempts_500_times_after_the_wait_too) {
  connect_client();
  support::refuse("accept", EAGAIN);
  EXPECT_EQ(platform_sock_accept_timeout(listening, 10), -1);
  EXPECT_EQ(support::calls("accept"), 500);
  EXPECT_FALSE(listening_is_open());
}

TEST_F(Accepting, waits_on_descriptors_of_1024_and_more) {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  const int high = dup2(listening, 2000);
  close(listening);
  if (high != 2000)
    GTEST_SKIP() << "no descriptor 2000 to be had";
  EXPECT_EQ(platform_sock_accept_timeout(high, 0), -2);
  const int client = connect_client();
  expect_connected(client, keep_open(platform_sock_accept_timeout(high, 10)));
}

class Connecting : public Accepting {};

TEST_F(Connecting, connects_to_a_host_and_port) {
  const int client = connect_client();
  ASSERT_THAT(lookup::record.asked, testing::Contains("localhost:" + std::to_string(port)));
  const addrinfo &hints = lookup::record.hints.back();
  EXPECT_EQ(hints.ai_family, AF_INET);
  EXPECT_EQ(hints.ai_socktype, SOCK_STREAM);
  EXPECT_EQ(hints.ai_protocol, IPPROTO_TCP);
  EXPECT_EQ(hints.ai_flags, 0);
  expect_connected(keep_open(platform_sock_accept(listening)), client);
}

TEST_F(Connecting, takes_0_for_a_connection_like_any_other) {
  const auto outcome = support::run_in_child([this] {
    close(STDIN_FILENO);
    const int sock = platform_sock_connect("localhost", port);
    printf("%d %d", sock, option(sock, IPPROTO_TCP, TCP_NODELAY));
  });
  EXPECT_EQ(outcome.out, "0 1");
  close(listening);
}

TEST_F(Connecting, fails_when_the_lookup_fails) {
  lookup::fail(EAI_NONAME);
  EXPECT_EQ(platform_sock_connect("nowhere", port), -1);
  EXPECT_EQ(support::calls("connect"), 0);
  close(listening);
}

TEST_F(Connecting, tells_by_errno_why_the_lookup_failed) {
  lookup::fail(EAI_NONAME);
  errno = EMFILE;
  EXPECT_EQ(platform_sock_connect("nowhere", port), -1);
  EXPECT_EQ(errno, EADDRNOTAVAIL);
  lookup::fail(EAI_SYSTEM); // with what the system says in errno
  errno = EMFILE;
  EXPECT_EQ(platform_sock_connect("nowhere", port), -1);
  EXPECT_EQ(errno, EMFILE);
  close(listening);
}

TEST_F(Connecting, fails_at_a_port_that_does_not_exist) {
  const size_t asked = lookup::record.asked.size();
  for (const int beyond : {-1, 65536, port + 65536, port - 65536, INT_MAX, INT_MIN}) {
    EXPECT_EQ(platform_sock_connect("localhost", beyond), -1) << beyond;
    EXPECT_EQ(errno, EADDRNOTAVAIL);
  }
  EXPECT_EQ(lookup::record.asked.size(), asked);
  EXPECT_EQ(support::calls("connect"), 0);
  for (const int lowest_or_highest : {0, 65535})
    keep_open(platform_sock_connect("localhost", lowest_or_highest));
  EXPECT_EQ(lookup::record.asked.size(), asked + 2);
  close(listening);
}

TEST_F(Connecting, fails_when_no_socket_is_to_be_had) {
  support::refuse("socket", EMFILE, 0, 1);
  EXPECT_EQ(platform_sock_connect("localhost", port), -1);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_EQ(support::calls("connect"), 0);
  close(listening);
}

TEST_F(Connecting, fails_when_nobody_listens) {
  close(listening);
  EXPECT_EQ(platform_sock_connect("localhost", port), -1);
  EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(Connecting, reports_no_failure) {
  close(listening);
  const auto outcome = support::run_in_child(
      [this] {
        printf("%d", platform_sock_connect("localhost", port));
        lookup::fail(EAI_NONAME);
        printf(" %d", platform_sock_connect("nowhere", port));
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.out, "-1 -1");
  EXPECT_EQ(outcome.err, "");
}

TEST_F(Connecting, tries_one_socket_with_each_address) {
  const int nobody = take_port(); // listens, but nobody may connect once it is closed
  lookup::find({{.port = 1}, {.port = 2}, {.port = port}, {.port = nobody}});
  expect_blocks_left(4);
  const long made = support::calls("socket");
  const int client = connect_client();
  EXPECT_EQ(support::calls("socket"), made + 1);
  EXPECT_EQ(support::calls("connect"), 3);
  expect_connected(client, keep_open(platform_sock_accept(listening)));
}

TEST_F(Connecting, closes_the_socket_when_every_address_refuses) {
  close(listening);
  lookup::find({{.port = 1}, {.port = 2}});
  expect_blocks_left(2);
  EXPECT_EQ(platform_sock_connect("localhost", port), -1);
  EXPECT_EQ(errno, ECONNREFUSED);
  EXPECT_EQ(support::calls("connect"), 2);
}

TEST_F(Connecting, makes_its_socket_after_the_first_address) {
  close(listening);
  lookup::find({{.type = SOCK_DGRAM, .protocol = IPPROTO_UDP, .port = port}, {.port = port}});
  expect_blocks_left(2);
  const int sock = keep_open(platform_sock_connect("localhost", port));
  EXPECT_EQ(option(sock, SOL_SOCKET, SO_TYPE), SOCK_DGRAM);
}

TEST_F(Connecting, never_releases_its_lookup) {
  keep_open(platform_sock_accept((connect_client(), listening)));
  EXPECT_EQ(platform_sock_connect("localhost", port), -1);
  support::refuse("socket", EMFILE, 0, 1);
  EXPECT_EQ(platform_sock_connect("localhost", port), -1);
  EXPECT_EQ(lookup::record.released, 0);
}

class Closing : public SettingUp {};

TEST_F(Closing, shuts_both_directions_down) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const int copy = keep_open(dup(ends[0])); // keeps the connection open unless it is shut down
  EXPECT_EQ(platform_sock_close(ends[0]), 0);
  EXPECT_EQ(fcntl(ends[0], F_GETFD), -1);
  char byte;
  EXPECT_EQ(recv(keep_open(ends[1]), &byte, 1, MSG_DONTWAIT), 0);
  EXPECT_EQ(send(ends[1], "x", 1, MSG_NOSIGNAL), -1);
  EXPECT_EQ(recv(copy, &byte, 1, MSG_DONTWAIT), 0);
}

TEST_F(Closing, returns_the_result_of_the_close) {
  EXPECT_EQ(platform_sock_close(-1), -1);
  EXPECT_EQ(errno, EBADF);
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  EXPECT_EQ(platform_sock_close(pipe_ends[0]), 0); // no socket: the shutdown fails, the close not
  EXPECT_EQ(platform_sock_close(pipe_ends[1]), 0);
}

} // namespace
