// How much the search looks at: each byte once, however long a message is and in however many
// pieces it comes. Counted in the C library's search, not timed.
#include "platform/socket/socket_test.h"

#include <algorithm>
#include <thread>

namespace {

struct Searched {
  long calls;
  size_t bytes;
} searched;

} // namespace

extern "C" {
void *__real_memchr(const void *bytes, int wanted, size_t length);

void *__wrap_memchr(const void *bytes, int wanted, size_t length) {
  void *const found = __real_memchr(bytes, wanted, length);
  searched.calls++;
  searched.bytes += found == nullptr ? length
                                     : static_cast<size_t>(static_cast<const char *>(found) -
                                                           static_cast<const char *>(bytes)) +
                                           1;
  return found;
}
}

namespace {

using namespace sockets;

class Effort : public SocketTest {
protected:
  // Receives one message that comes from a peer in pieces.
  void receive(const std::string &message, platform_idle_callback idle = count_idle) {
    install(static_cast<int>(message.size()) + 8193);
    searched = {};
    std::thread peer([this, &message] { write_whole(theirs, message); });
    EXPECT_EQ(platform_get_one_message(ours, keep, idle, 1), 1);
    peer.join();
    ASSERT_EQ(handled.size(), 1U);
  }
};

TEST_F(Effort, is_one_look_at_each_byte_of_a_long_line) {
  const std::string message = std::string(4 << 20, 'x') + kEnd;
  receive(message);
  EXPECT_GE(searched.bytes, message.size() - 4);
  EXPECT_LE(searched.bytes, message.size() + message.size() / 100);
}

TEST_F(Effort, is_one_look_at_each_of_many_short_lines) {
  std::string message;
  for (int i = 0; i < 2047; i++)
    message += std::string(500, 'x') + "\r\n";
  receive(message + "\r\n");
  EXPECT_EQ(handled[0].size(), 2047U);
  EXPECT_LE(searched.calls, 2047 + 3L * idle_calls);
  EXPECT_LE(searched.bytes, message.size() + 600U * static_cast<size_t>(idle_calls));
}

// Packets keep the bytes apart: each receive gets one, though the next is waiting already.
TEST_F(Effort, is_level_for_a_message_that_comes_a_byte_at_a_time) {
  static int peer;
  static std::string rest;
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
  peer = ends[1];
  rest = std::string(3000, 'x') + kEnd;
  const size_t size = rest.size();
  const auto feed_a_byte = [] {
    idle_calls++;
    write_whole(peer, rest.substr(0, 1));
    rest.erase(0, std::min<size_t>(1, rest.size()));
  };
  install(10000);
  feed_a_byte();
  searched = {};
  EXPECT_EQ(platform_get_one_message(ends[0], keep, feed_a_byte, 1), 1);
  EXPECT_GE(static_cast<size_t>(idle_calls), size);
  EXPECT_LE(searched.bytes, 2 * size);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Effort, is_not_taken_again_after_a_receive_that_brought_nothing) {
  static int peer;
  static int ended;
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  close(ends[1]);
  ended = ends[0];
  peer = theirs;
  const auto receive_nothing = [] {
    EXPECT_EQ(platform_recv_messages(ended), 0);
    if (idle_calls++ == 1)
      write_whole(peer, kEnd);
  };
  install(10000);
  searched = {};
  peer_sends(std::string(1000, 'x'));
  EXPECT_EQ(platform_get_one_message(ours, keep, receive_nothing, 1), 1);
  EXPECT_LE(searched.bytes, 1000 + kEnd.size());
  close(ended);
}

TEST_F(Effort, is_taken_again_after_an_idle_callback_reset_the_buffer) {
  static bool done;
  done = false;
  install(10000);
  searched = {};
  peer_sends(std::string(1000, 'x'));
  const auto reset_once = [] {
    if (idle_calls++ == 1)
      platform_msgbuf_reset(gMsgBuf);
    done = true;
  };
  EXPECT_EQ(platform_get_one_message(ours, keep, reset_once, 0), 0);
  EXPECT_TRUE(done);
  EXPECT_EQ(searched.bytes, 1000U);
  EXPECT_EQ(unconsumed(), "");
}

} // namespace
