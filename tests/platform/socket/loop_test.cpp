// The message loop, and one call's wait for one message.
#include "platform/socket/socket_test.h"
#include "support/child.h"

#include <csignal>

namespace {

using namespace sockets;
using testing::ElementsAre;
using testing::IsEmpty;

class Loop : public SocketTest {
protected:
  void SetUp() override {
    SocketTest::SetUp();
    install(100000);
  }
  int run(platform_message_handler handler = keep, int drain = 0) {
    return platform_message_loop(ours, handler, count_idle, drain);
  }
};

TEST_F(Loop, hands_over_messages_until_the_peer_closes) {
  peer_sends("A\r\n\r\nB\r\nC\r\n\r\nincomplete");
  close_theirs();
  EXPECT_EQ(run(), 0);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}, Lines{"B", "C"}));
  EXPECT_EQ(unconsumed(), "incomplete");
}

TEST_F(Loop, ends_when_a_handler_returns_0) {
  peer_sends("A\r\n\r\nB\r\n\r\n");
  EXPECT_EQ(run(keep_and_stop), 0);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}));
  EXPECT_EQ(unconsumed(), "B\r\n\r\n");
}

TEST_F(Loop, goes_on_after_a_negative_result) {
  static int calls;
  calls = 0;
  peer_sends("A\r\n\r\nB\r\n\r\nC\r\n\r\n");
  EXPECT_EQ(run([](int, char *, char **) { return ++calls == 2 ? 0 : -1; }), 0);
  EXPECT_EQ(calls, 2);
}

TEST_F(Loop, ends_when_a_receive_fails) {
  support::refuse("recv", ECONNRESET, 1);
  peer_sends("A\r\n\r\n");
  close_theirs();
  EXPECT_EQ(run(), 0);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}));
}

TEST_F(Loop, ends_when_select_fails) {
  support::refuse("select", EBADF);
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(idle_calls, 1);
}

TEST_F(Loop, waits_for_messages_and_calls_idle_meanwhile) {
  static int peer;
  peer = theirs;
  const auto send_at_second = [] {
    if (++idle_calls == 2)
      write_whole(peer, "A\r\n\r\n");
  };
  EXPECT_EQ(platform_message_loop(ours, keep_and_stop, send_at_second, 0), 0);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}));
  EXPECT_EQ(idle_calls, 3);
}

TEST_F(Loop, works_without_an_idle_callback) {
  peer_sends("A\r\n\r\n");
  EXPECT_EQ(platform_message_loop(ours, keep_and_stop, nullptr, 0), 0);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}));
}

TEST_F(Loop, uses_what_is_in_the_buffer_before_it_receives) {
  peer_sends("A\r\n\r\n");
  platform_recv_messages(ours);
  EXPECT_EQ(run(keep_and_stop), 0);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}));
  EXPECT_EQ(idle_calls, 0);
}

TEST_F(Loop, discards_what_is_waiting_when_asked_to) {
  peer_sends(std::string(5000, 'x') + "\r\n\r\nA\r\n\r\n");
  close_theirs();
  EXPECT_EQ(run(keep, 1), 0);
  EXPECT_THAT(handled, IsEmpty());
  EXPECT_EQ(unconsumed(), "");
}

TEST_F(Loop, drains_in_pieces_of_2048_bytes_without_waiting_or_idling) {
  for (const int pieces : {2, 3}) {
    const size_t beyond_two = pieces == 2 ? 0 : 1;
    peer_sends(std::string(2 * 2048 + beyond_two, 'x'));
    const long receives = support::calls("recv");
    const long selects = support::calls("select");
    support::refuse("select", EBADF, pieces + 1); // the pieces, the end of them, then the loop
    EXPECT_EQ(run(keep, -1), 0);
    EXPECT_EQ(support::calls("recv"), receives + pieces);
    EXPECT_EQ(support::calls("select"), selects + pieces + 2);
  }
  EXPECT_EQ(idle_calls, 2); // the loop's own
}

TEST_F(Loop, drains_what_is_in_the_socket_and_not_what_is_in_the_buffer) {
  peer_sends("A\r\n\r\n");
  ASSERT_EQ(platform_recv_messages(ours), 5);
  peer_sends("B\r\n\r\n");
  EXPECT_EQ(run(keep_and_stop, 1), 0);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}));
  EXPECT_EQ(read_waiting(ours), "");
}

TEST_F(Loop, warns_and_returns_0_without_a_buffer) {
  uninstall();
  peer_sends("A\r\n\r\n");
  const auto outcome = support::run_in_child([this] { printf("%d\n", run()); });
  EXPECT_EQ(outcome.out, "0\n");
  // The text ends in a newline of its own, and the warning call adds one.
  EXPECT_EQ(outcome.err, "Warning: platform_message_loop has no buffer set!!!\n\n");
  EXPECT_EQ(read_waiting(ours), "A\r\n\r\n");
}

TEST_F(Loop, drains_before_it_misses_the_buffer) {
  uninstall();
  peer_sends("A\r\n\r\n");
  const auto outcome = support::run_in_child([this] { printf("%d\n", run(keep, 1)); });
  EXPECT_EQ(outcome.err, "Warning: platform_message_loop has no buffer set!!!\n\n");
  EXPECT_EQ(read_waiting(ours), "");
}

class OneMessage : public Loop {};

TEST_F(OneMessage, returns_0_at_once_when_nothing_is_ready_and_it_does_not_wait) {
  EXPECT_EQ(platform_get_one_message(ours, keep, count_idle, 0), 0);
  EXPECT_EQ(idle_calls, 1);
  peer_sends("A\r\n");
  EXPECT_EQ(platform_get_one_message(ours, keep, count_idle, 0), 0);
  EXPECT_EQ(unconsumed(), "A\r\n");
}

TEST_F(OneMessage, takes_what_is_ready_without_waiting) {
  peer_sends(std::string(20000, 'x') + "\r\n\r\n");
  EXPECT_EQ(platform_get_one_message(ours, keep, count_idle, 0), 1);
  EXPECT_EQ(idle_calls, 3);
}

TEST_F(OneMessage, receives_up_to_8192_bytes_at_a_time) {
  const long receives = support::calls("recv");
  peer_sends(std::string(2 * 8192, 'x'));
  EXPECT_EQ(platform_get_one_message(ours, keep, nullptr, 0), 0);
  EXPECT_EQ(support::calls("recv"), receives + 2);
  peer_sends(std::string(2 * 8192 + 1, 'x'));
  EXPECT_EQ(platform_get_one_message(ours, keep, nullptr, 0), 0);
  EXPECT_EQ(support::calls("recv"), receives + 5);
}

TEST_F(OneMessage, returns_0_when_the_peer_has_closed) {
  peer_sends("A\r\n");
  close_theirs();
  EXPECT_EQ(platform_get_one_message(ours, keep, nullptr, 1), 0);
  EXPECT_THAT(handled, IsEmpty());
  EXPECT_EQ(unconsumed(), "A\r\n");
}

} // namespace
