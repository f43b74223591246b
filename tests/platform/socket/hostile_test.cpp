// Peers that mean no good, over real connections on the loopback: whatever they send and whenever
// they leave, each conversation ends as it should, with nothing overrun and nothing left behind.
#include "platform/socket/message_model.h"
#include "platform/socket/socket_test.h"
#include "support/child.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <random>
#include <thread>

namespace {

using namespace sockets;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kCapacity = 20000;

class HostilePeer : public SocketTest {
protected:
  void SetUp() override {
    SocketTest::SetUp();
    install(kCapacity);
    connect_over_tcp();
  }

  void connect_over_tcp() {
    close(ours);
    close_theirs();
    const int listening = platform_server_sock_open(0, 1, nullptr);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listening, reinterpret_cast<sockaddr *>(&address), &length);
    theirs = platform_sock_connect("localhost", ntohs(address.sin_port));
    ours = platform_sock_accept(listening);
    ASSERT_GE(ours, 0);
  }

  // The peer closes with a reset instead of an end.
  void reset_by_peer() {
    const linger at_once = {.l_onoff = 1, .l_linger = 0};
    setsockopt(theirs, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close_theirs();
  }

  // What the model makes of the bytes.
  static std::vector<model::Lines> expected(const std::string &bytes) {
    model::Buffer buffer(bytes.size() + 1);
    buffer.append(bytes);
    std::vector<model::Lines> messages;
    int dropped = 0;
    for (model::Lines lines; model::next_message(buffer, lines, dropped); buffer.compact())
      messages.push_back(lines);
    return messages;
  }

  // A conversation in which the peer sends these bytes and leaves.
  void converse(const std::string &bytes) {
    std::thread peer([this, &bytes] {
      write_whole(theirs, bytes);
      shutdown(theirs, SHUT_WR);
    });
    EXPECT_EQ(platform_message_loop(ours, keep, nullptr, 0), 0);
    peer.join();
  }
};

TEST_F(HostilePeer, sends_random_bytes) {
  std::mt19937 random(99);
  std::string bytes;
  for (int i = 0; i < kCapacity - 1; i++)
    bytes += static_cast<char>(random());
  converse(bytes);
  EXPECT_EQ(handled, expected(bytes));
}

TEST_F(HostilePeer, sends_random_line_ends_and_zeros) {
  std::mt19937 random(7);
  std::string bytes;
  while (bytes.size() < kCapacity - 2)
    bytes += random() % 8 < 3 ? std::string("\r\n") : std::string(1, "\r\n\0a"[random() % 4]);
  converse(bytes);
  EXPECT_EQ(handled, expected(bytes));
  EXPECT_GT(handled.size(), 10U);
}

TEST_F(HostilePeer, sends_nothing_but_zeros) {
  converse(std::string(kCapacity - 1, '\0'));
  EXPECT_THAT(handled, IsEmpty());
}

TEST_F(HostilePeer, sends_thousands_of_empty_lines) {
  std::string bytes;
  for (int i = 0; i < 40000; i++)
    bytes += "\r\n";
  converse(bytes);
  EXPECT_EQ(handled, std::vector<Lines>(20000, Lines{""}));
}

TEST_F(HostilePeer, sends_one_byte_at_a_time) {
  const std::string bytes = "A\r\nB\r\n\r\n\r\n\r\nC\r\n\r\n";
  std::thread peer([this, &bytes] {
    for (const char byte : bytes) {
      write_whole(theirs, std::string(1, byte));
      std::this_thread::yield();
    }
    shutdown(theirs, SHUT_WR);
  });
  EXPECT_EQ(platform_message_loop(ours, keep, nullptr, 0), 0);
  peer.join();
  EXPECT_THAT(handled, ElementsAre(Lines{"A", "B"}, Lines{""}, Lines{"C"}));
}

constexpr char kAssertion[] = "Assertion `gMsgBuf->p2 + len - gMsgBuf->pBuf < gMsgBuf->len' failed";

TEST_F(HostilePeer, sends_a_line_without_an_end) {
  const auto outcome = support::run_in_child([this] { converse(std::string(100000, 'x')); });
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_THAT(outcome.err, HasSubstr(kAssertion));
}

TEST_F(HostilePeer, sends_lines_without_the_end_of_a_message) {
  const auto outcome = support::run_in_child([this] {
    std::string bytes;
    for (int i = 0; i < 10000; i++)
      bytes += "x\r\n";
    converse(bytes);
  });
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_THAT(outcome.err, HasSubstr(kAssertion));
}

TEST_F(HostilePeer, sends_a_message_that_just_fits) {
  const std::string line(kCapacity - 5, 'x');
  converse(line + kEnd);
  EXPECT_THAT(handled, ElementsAre(Lines{line}));
}

TEST_F(HostilePeer, sends_a_message_that_is_one_byte_too_large) {
  const auto outcome = support::run_in_child([this] {
    converse(std::string(kCapacity - 4, 'x') + kEnd);
    printf("handled\n");
  });
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_THAT(outcome.err, HasSubstr(kAssertion));
}

TEST_F(HostilePeer, closes_at_any_point) {
  const std::string bytes = "A\r\nB\r\n\r\nC\r\n\r\n";
  for (size_t sent = 0; sent <= bytes.size(); sent++) {
    connect_over_tcp();
    platform_msgbuf_reset(gMsgBuf);
    handled.clear();
    converse(bytes.substr(0, sent));
    EXPECT_EQ(handled, expected(bytes.substr(0, sent))) << "after " << sent;
  }
}

TEST_F(HostilePeer, resets_at_any_point) {
  const std::string bytes = "A\r\nB\r\n\r\nC\r\n\r\n";
  for (size_t sent = 0; sent <= bytes.size(); sent++) {
    connect_over_tcp();
    platform_msgbuf_reset(gMsgBuf);
    handled.clear();
    peer_sends(bytes.substr(0, sent));
    reset_by_peer();
    EXPECT_EQ(platform_message_loop(ours, keep, nullptr, 0), 0);
    const auto whole = expected(bytes.substr(0, sent)); // a reset may destroy what was under way
    EXPECT_LE(handled.size(), whole.size());
    EXPECT_TRUE(std::equal(handled.begin(), handled.end(), whole.begin()));
  }
}

TEST_F(HostilePeer, resets_while_it_is_being_answered) {
  const auto answer = [](int sock, char *first, char **further) {
    keep(sock, first, further);
    return platform_sock_send_message(sock, "answer", std::string(200000, 'x').c_str(), nullptr);
  };
  peer_sends("A\r\n\r\nB\r\n\r\n");
  std::thread peer([this] {
    char byte;
    EXPECT_EQ(recv(theirs, &byte, 1, 0), 1);
    reset_by_peer();
  });
  while (platform_get_one_message(ours, answer, nullptr, 1) != 0) {
  }
  peer.join();
  EXPECT_FALSE(handled.empty());
}

TEST_F(HostilePeer, never_reads) {
  fcntl(ours, F_SETFL, O_NONBLOCK);
  const std::string line(8000, 'x');
  int sent = 0;
  while (platform_sock_send_message(ours, line.c_str(), "more", nullptr) == 1)
    ASSERT_LT(++sent, 100000);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_GT(sent, 0);
}

TEST_F(HostilePeer, is_gone_before_the_conversation_begins) {
  reset_by_peer();
  EXPECT_EQ(platform_message_loop(ours, keep, nullptr, 1), 0);
  EXPECT_EQ(platform_sock_send_message(ours, "A", nullptr), 0);
}

} // namespace
