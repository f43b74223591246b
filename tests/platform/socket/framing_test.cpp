// Finding, cutting and handing over messages in the installed buffer.
#include "platform/socket/socket_test.h"
#include "support/child.h"

#include <orv/msg.h>

namespace {

using namespace sockets;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class Framing : public SocketTest {
protected:
  void SetUp() override {
    SocketTest::SetUp();
    install(16384);
  }

  int get_one(int wait = 0) { return platform_get_one_message(ours, keep, nullptr, wait); }

  // What is handed over when the bytes arrive at once.
  std::vector<Lines> messages_in(const std::string &bytes) {
    handled.clear();
    platform_msgbuf_reset(gMsgBuf);
    peer_sends(bytes);
    if (!bytes.empty())
      platform_recv_messages(ours);
    platform_dispatch_messages(ours, keep);
    return handled;
  }
};

TEST_F(Framing, hands_over_the_first_line_and_a_table_of_the_others) {
  EXPECT_THAT(messages_in("A\r\nB\r\n\r\n"), ElementsAre(Lines{"A", "B"}));
  EXPECT_THAT(messages_in("A\r\n\r\n"), ElementsAre(Lines{"A"}));
  EXPECT_THAT(messages_in("A\r\nB\r\nC\r\nD\r\n\r\n"), ElementsAre(Lines{"A", "B", "C", "D"}));
}

TEST_F(Framing, takes_two_line_ends_for_a_message_of_one_empty_line) {
  EXPECT_THAT(messages_in("\r\n\r\n"), ElementsAre(Lines{""}));
  EXPECT_THAT(messages_in("\r\n\r\n\r\n\r\n"), ElementsAre(Lines{""}, Lines{""}));
}

TEST_F(Framing, lets_only_the_first_line_be_empty) {
  EXPECT_THAT(messages_in("\r\nA\r\n\r\n"), ElementsAre(Lines{"", "A"}));
  EXPECT_THAT(messages_in("A\r\n\r\nB\r\n\r\n"), ElementsAre(Lines{"A"}, Lines{"B"}));
  EXPECT_THAT(messages_in("A\r\n\r\n\r\nB\r\n\r\n"), ElementsAre(Lines{"A"}, Lines{"", "B"}));
}

TEST_F(Framing, does_not_take_a_line_feed_or_a_carriage_return_alone_for_a_line_end) {
  EXPECT_THAT(messages_in("A\nB\r\n\r\n"), ElementsAre(Lines{"A\nB"}));
  EXPECT_THAT(messages_in("A\n\nB\n\n"), IsEmpty());
  EXPECT_THAT(messages_in("A\rB\r\n\r\n"), ElementsAre(Lines{"A\rB"}));
  EXPECT_THAT(messages_in("A\r\r\n\r\n"), ElementsAre(Lines{"A\r"}));
  EXPECT_THAT(messages_in("A\r\n\r\r\n\r\n"), ElementsAre(Lines{"A", "\r"}));
  EXPECT_THAT(messages_in("A\r\n\n\r\n\r\n"), ElementsAre(Lines{"A", "\n"}));
}

TEST_F(Framing, passes_zero_bytes_through_as_string_ends) {
  EXPECT_THAT(messages_in(std::string("A\0hidden\r\n\0\r\nB\r\n\r\n", 18)),
              ElementsAre(Lines{"A", "", "B"}));
}

TEST_F(Framing, calls_the_handler_with_the_socket) {
  messages_in("A\r\n\r\n");
  EXPECT_THAT(handled_on, ElementsAre(ours));
}

TEST_F(Framing, hands_a_message_over_once_its_last_byte_has_come) {
  const std::string message = "AB\r\nC\r\n\r\n";
  for (size_t i = 0; i < message.size(); i++) {
    EXPECT_THAT(handled, IsEmpty()) << "before byte " << i;
    peer_sends(message.substr(i, 1));
    EXPECT_EQ(platform_recv_messages(ours), 1);
    platform_dispatch_messages(ours, keep);
  }
  EXPECT_THAT(handled, ElementsAre(Lines{"AB", "C"}));
}

TEST_F(Framing, completes_a_message_of_which_each_call_finds_one_byte) {
  const std::string message = "AB\r\nC\r\n\r\n";
  for (size_t i = 0; i < message.size(); i++) {
    peer_sends(message.substr(i, 1));
    EXPECT_EQ(get_one(), i + 1 == message.size()) << "at byte " << i;
  }
  EXPECT_THAT(handled, ElementsAre(Lines{"AB", "C"}));
}

TEST_F(Framing, completes_a_message_that_comes_a_byte_at_a_time_within_one_call) {
  static int peer;
  static std::string rest;
  peer = theirs;
  rest = "AB\r\nC\rD\r\n\r\n";
  const auto feed_a_byte = [] {
    if (!rest.empty())
      write_whole(peer, rest.substr(0, 1));
    rest.erase(0, 1);
  };
  feed_a_byte();
  EXPECT_EQ(platform_get_one_message(ours, keep, feed_a_byte, 1), 1);
  EXPECT_THAT(handled, ElementsAre(Lines{"AB", "C\rD"}));
}

TEST_F(Framing, hands_over_one_message_a_call_and_the_next_without_receiving) {
  peer_sends("A\r\n\r\nB\r\n\r\n");
  EXPECT_EQ(get_one(), 1);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}));
  const long selects = support::calls("select");
  const long receives = support::calls("recv");
  EXPECT_EQ(get_one(), 1);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}, Lines{"B"}));
  EXPECT_EQ(support::calls("select"), selects);
  EXPECT_EQ(support::calls("recv"), receives);
}

TEST_F(Framing, returns_what_the_handler_returns) {
  peer_sends("A\r\n\r\nB\r\n\r\nC\r\n\r\n");
  EXPECT_EQ(platform_get_one_message(
                ours, [](int, char *, char **) { return 42; }, nullptr, 0),
            42);
  EXPECT_EQ(platform_get_one_message(
                ours, [](int, char *, char **) { return -7; }, nullptr, 0),
            -7);
  EXPECT_EQ(platform_get_one_message(ours, keep_and_stop, nullptr, 0), 0);
  EXPECT_THAT(handled, ElementsAre(Lines{"C"}));
}

TEST_F(Framing, moves_what_follows_a_message_to_the_front) {
  peer_sends("A\r\n\r\nrest\r\nof");
  EXPECT_EQ(get_one(), 1);
  EXPECT_EQ(gMsgBuf->p1, gMsgBuf->pBuf);
  EXPECT_EQ(unconsumed(), "rest\r\nof");
}

TEST_F(Framing, keeps_an_incomplete_message_when_nothing_more_is_ready) {
  peer_sends("A\r\nB");
  EXPECT_EQ(get_one(), 0);
  EXPECT_EQ(unconsumed(), "A\r\nB");
  peer_sends("C\r\n\r\n");
  EXPECT_EQ(get_one(), 1);
  EXPECT_THAT(handled, ElementsAre(Lines{"A", "BC"}));
}

TEST_F(Framing, cuts_lines_in_place_and_consumes_them_before_the_handler_runs) {
  peer_sends("one\r\ntwo\r\n\r\nmore");
  const auto check = [](int, char *first, char **further) {
    EXPECT_EQ(first, gMsgBuf->pBuf);
    EXPECT_EQ(further[0], gMsgBuf->pBuf + 5);
    EXPECT_EQ(further[1], nullptr);
    EXPECT_EQ(gMsgBuf->p1, gMsgBuf->pBuf + 12);
    EXPECT_EQ(gMsgBuf->p2, gMsgBuf->pBuf + 16);
    EXPECT_EQ(memcmp(gMsgBuf->pBuf, "one\0\ntwo\0\n\0\nmore", 16), 0);
    return 1;
  };
  EXPECT_EQ(platform_get_one_message(ours, check, nullptr, 0), 1);
  EXPECT_EQ(unconsumed(), "more");
}

TEST_F(Framing, cuts_nothing_before_the_message) {
  memcpy(gMsgBuf->pBuf, "before", 6);
  gMsgBuf->p1 = gMsgBuf->p2 = gMsgBuf->pBuf + 6;
  peer_sends("A\r\n\r\n");
  const auto check = [](int, char *first, char **) {
    EXPECT_STREQ(first - 6, "beforeA");
    return 1;
  };
  EXPECT_EQ(platform_get_one_message(ours, check, nullptr, 0), 1);
  EXPECT_EQ(unconsumed(), "");
}

TEST_F(Framing, dispatches_every_complete_message_and_ignores_the_results) {
  peer_sends("A\r\n\r\nB\r\n\r\nC\r\n\r\nD");
  platform_recv_messages(ours);
  platform_dispatch_messages(ours, keep_and_stop);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}, Lines{"B"}, Lines{"C"}));
  EXPECT_EQ(unconsumed(), "D");
}

TEST_F(Framing, dispatches_without_receiving) {
  peer_sends("A\r\n\r\n");
  platform_dispatch_messages(ours, keep);
  EXPECT_THAT(handled, IsEmpty());
  EXPECT_EQ(support::calls("recv"), 0);
}

TEST_F(Framing, is_not_misled_by_bytes_left_from_an_earlier_message) {
  install(64, '\n');
  EXPECT_THAT(messages_in("A\r\n\r"), IsEmpty()); // a stale line feed follows the data
  EXPECT_EQ(unconsumed(), "A\r\n\r");
  EXPECT_THAT(messages_in("\r"), IsEmpty());
  install(64, '\r');
  EXPECT_THAT(messages_in(""), IsEmpty());
  EXPECT_THAT(messages_in("A\r\n"), IsEmpty());
}

// The byte after the data is the last of the storage: a look beyond it is a look outside.
TEST_F(Framing, looks_at_no_byte_beyond_the_spare_one) {
  for (const char stale : {'\r', '\n', 'x'}) {
    install(8, stale);
    EXPECT_THAT(messages_in("abc\r\nA\r"), IsEmpty());
    EXPECT_THAT(messages_in("\r\n\r\n\r\n\r"), ElementsAre(Lines{""}));
    install(1, stale);
    platform_dispatch_messages(ours, keep);
    install(0, stale);
    platform_dispatch_messages(ours, keep);
  }
}

TEST_F(Framing, hands_over_2047_lines) {
  std::string message;
  for (int i = 0; i < 2047; i++)
    message += std::to_string(i % 10) + "\r\n";
  const auto found = messages_in(message + "\r\n");
  ASSERT_THAT(found, SizeIs(1));
  ASSERT_THAT(found[0], SizeIs(2047));
  EXPECT_EQ(found[0][0], "0");
  EXPECT_EQ(found[0][2046], "6");
}

std::string message_of(size_t lines) {
  std::string message;
  for (size_t i = 0; i < lines; i++)
    message += "x\r\n";
  return message + "\r\n";
}

TEST_F(Framing, drops_a_message_of_more_lines_with_one_warning_and_goes_on) {
  const auto outcome = support::run_in_child([this] {
    peer_sends(message_of(2048) + "A\r\n\r\n" + message_of(2049) + "B\r\n\r\ntail");
    platform_recv_messages(ours);
    platform_recv_messages(ours);
    platform_dispatch_messages(ours, keep);
    for (const Lines &lines : handled)
      printf("%zu %s\n", lines.size(), lines[0].c_str());
    printf("%s\n", unconsumed().c_str());
  });
  EXPECT_EQ(outcome.out, "1 A\n1 B\ntail\n");
  const std::string warning =
      "Warning: A message of more than 2047 lines was received.  It is dropped.\n";
  EXPECT_EQ(outcome.err, warning + warning);
}

TEST_F(Framing, makes_room_where_a_dropped_message_stood) {
  msg_clear_streams(MSG_WARN);
  EXPECT_TRUE(messages_in(message_of(2048) + "tail").empty());
  EXPECT_EQ(gMsgBuf->p1, gMsgBuf->pBuf);
  EXPECT_EQ(unconsumed(), "tail");
}

TEST_F(Framing, drops_a_message_of_too_many_lines_while_waiting_for_the_next) {
  install(40000);
  const auto outcome = support::run_in_child([this] {
    peer_sends(message_of(10000) + "A\r\n\r\n");
    printf("%d", platform_get_one_message(ours, keep, nullptr, 1));
    printf(" %zu %s\n", handled.size(), handled.at(0).at(0).c_str());
  });
  EXPECT_EQ(outcome.out, "1 1 A\n");
  EXPECT_EQ(outcome.err,
            "Warning: A message of more than 2047 lines was received.  It is dropped.\n");
}

// A handler may replace the buffer: what is compacted is the buffer that is installed afterwards.
platform_msgbuf *replacement;

int replace_buffer(int sock, char *first, char **further) {
  platform_set_message_buffer(replacement);
  return keep(sock, first, further);
}

class Replacing : public Framing {
protected:
  void SetUp() override {
    Framing::SetUp();
    replacement = created(4096);
    memcpy(replacement->pBuf, "goneX\r\n\r\n", 9);
    replacement->p1 = replacement->pBuf + 4;
    replacement->p2 = replacement->pBuf + 9;
  }
  void TearDown() override {
    platform_set_message_buffer(nullptr);
    platform_msgbuf_free(replacement);
    Framing::TearDown();
  }
};

TEST_F(Replacing, compacts_the_buffer_that_a_handler_installed) {
  peer_sends("A\r\n\r\nB\r\n\r\n");
  platform_recv_messages(ours);
  EXPECT_EQ(platform_get_one_message(ours, replace_buffer, nullptr, 0), 1);
  EXPECT_EQ(gMsgBuf, replacement);
  EXPECT_EQ(replacement->p1, replacement->pBuf);
  EXPECT_EQ(unconsumed(), "X\r\n\r\n");
  EXPECT_EQ(std::string(installed->p1, installed->p2), "B\r\n\r\n");
  EXPECT_EQ(installed->p1, installed->pBuf + 5); // consumed, not compacted
}

TEST_F(Replacing, goes_on_in_the_buffer_that_a_handler_installed) {
  peer_sends("A\r\n\r\nB\r\n\r\n");
  platform_recv_messages(ours);
  platform_dispatch_messages(ours, replace_buffer);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}, Lines{"X"}));
}

TEST_F(Framing, ends_when_a_handler_takes_the_buffer_away) {
  const auto take_away = [](int, char *, char **) {
    platform_set_message_buffer(nullptr);
    return 5;
  };
  peer_sends("A\r\n\r\nB\r\n\r\n");
  platform_recv_messages(ours);
  EXPECT_EQ(platform_get_one_message(ours, take_away, nullptr, 0), 5);
  EXPECT_EQ(gMsgBuf, nullptr);
  platform_set_message_buffer(installed);
  platform_dispatch_messages(ours, take_away);
  EXPECT_EQ(gMsgBuf, nullptr);
  EXPECT_EQ(platform_message_loop(ours, take_away, nullptr, 0), 0);
}

TEST_F(Framing, survives_a_handler_that_frees_the_buffer_it_was_called_from) {
  peer_sends("A\r\n\r\nB\r\n\r\n");
  platform_recv_messages(ours);
  installed = nullptr;
  platform_dispatch_messages(ours, [](int, char *, char **) {
    platform_msgbuf_free(gMsgBuf);
    return 1;
  });
  EXPECT_EQ(gMsgBuf, nullptr);
}

TEST_F(Framing, survives_a_handler_that_resets_the_buffer) {
  peer_sends("A\r\n\r\nB\r\n\r\n");
  platform_recv_messages(ours);
  platform_dispatch_messages(ours, [](int sock, char *first, char **further) {
    platform_msgbuf_reset(gMsgBuf);
    return keep(sock, first, further);
  });
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}));
  EXPECT_EQ(unconsumed(), "");
}

TEST_F(Framing, lets_a_handler_get_the_next_message_itself) {
  peer_sends("A\r\n\r\nB\r\n\r\nC\r\n\r\n");
  const auto nested = [](int sock, char *first, char **further) {
    keep(sock, first, further);
    return platform_get_one_message(sock, keep_and_stop, nullptr, 0) + 9;
  };
  EXPECT_EQ(platform_get_one_message(ours, nested, nullptr, 0), 9);
  EXPECT_THAT(handled, ElementsAre(Lines{"A"}, Lines{"B"}));
  EXPECT_EQ(unconsumed(), "C\r\n\r\n");
}

TEST_F(Framing, receives_up_to_8192_bytes_at_a_time) {
  install(30000);
  peer_sends(std::string(10000, 'x'));
  EXPECT_EQ(platform_recv_messages(ours), 8192);
  EXPECT_EQ(platform_recv_messages(ours), 10000 - 8192);
  EXPECT_EQ(unconsumed(), std::string(10000, 'x'));
  peer_sends(std::string(10000, 'y'));
  const long receives = support::calls("recv");
  EXPECT_EQ(get_one(), 0);
  EXPECT_EQ(support::calls("recv"), receives + 2);
}

TEST_F(Framing, reports_the_end_and_the_failure_of_a_receive) {
  peer_sends("A");
  close_theirs();
  EXPECT_EQ(platform_recv_messages(ours), 1);
  EXPECT_EQ(platform_recv_messages(ours), 0);
  EXPECT_EQ(platform_recv_messages(-1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(unconsumed(), "A");
}

TEST_F(Framing, receives_nothing_without_a_buffer) {
  uninstall();
  peer_sends("A\r\n\r\n");
  EXPECT_EQ(platform_recv_messages(ours), -1);
  EXPECT_EQ(errno, ENOBUFS);
  EXPECT_EQ(platform_get_one_message(ours, keep, nullptr, 1), 0);
  platform_dispatch_messages(ours, keep);
  EXPECT_EQ(support::calls("recv"), 0);
  EXPECT_THAT(handled, IsEmpty());
}

// The capacity.

constexpr char kAssertion[] = "Assertion `gMsgBuf->p2 + len - gMsgBuf->pBuf < gMsgBuf->len' failed";

void expect_assertion(const support::Outcome &outcome, const std::string &function) {
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_THAT(outcome.err, testing::HasSubstr(kAssertion));
  EXPECT_THAT(outcome.err, testing::HasSubstr(" components/platform/socket.cpp:"));
  EXPECT_THAT(outcome.err, testing::HasSubstr(function));
}

TEST_F(Framing, accepts_bytes_up_to_one_less_than_the_capacity) {
  install(16);
  peer_sends(std::string(15, 'x'));
  EXPECT_EQ(platform_recv_messages(ours), 15);
  install(16);
  peer_sends("0123456789a\r\n\r\n");
  EXPECT_EQ(get_one(), 1);
  EXPECT_THAT(handled, ElementsAre(Lines{"0123456789a"}));
}

TEST_F(Framing, ends_the_process_when_bytes_reach_the_capacity) {
  install(16);
  expect_assertion(support::run_in_child([this] {
                     peer_sends(std::string(16, 'x'));
                     platform_recv_messages(ours);
                   }),
                   "platform_recv_messages");
  read_waiting(ours);
  expect_assertion(support::run_in_child([this] {
                     peer_sends("0123456789ab\r\n\r\n");
                     platform_get_one_message(ours, keep, nullptr, 0);
                   }),
                   "platform_get_one_message");
}

TEST_F(Framing, counts_what_is_in_the_buffer_towards_the_capacity) {
  install(16);
  peer_sends(std::string(10, 'x'));
  EXPECT_EQ(platform_recv_messages(ours), 10);
  expect_assertion(support::run_in_child([this] {
                     peer_sends("012345");
                     platform_recv_messages(ours);
                   }),
                   "platform_recv_messages");
  read_waiting(ours);
  peer_sends("01234");
  EXPECT_EQ(platform_recv_messages(ours), 5);
}

TEST_F(Framing, takes_a_failed_receive_into_a_full_buffer) {
  install(16);
  peer_sends(std::string(15, 'x'));
  EXPECT_EQ(platform_recv_messages(ours), 15);
  EXPECT_EQ(platform_recv_messages(-1), -1);
  close_theirs();
  EXPECT_EQ(platform_recv_messages(ours), 0);
  EXPECT_EQ(unconsumed(), std::string(15, 'x'));
}

TEST_F(Framing, has_no_room_at_all_in_a_buffer_of_capacity_0_or_1) {
  for (const int capacity : {0, 1}) {
    install(capacity);
    expect_assertion(support::run_in_child([this] {
                       peer_sends("x");
                       platform_recv_messages(ours);
                     }),
                     "platform_recv_messages");
    read_waiting(ours);
  }
}

// The record.

TEST(MessageBuffer, is_not_installed_at_first) {
  EXPECT_EQ(gMsgBuf, nullptr);
}

TEST_F(Framing, creates_an_empty_buffer_with_the_systems_allocator) {
  uninstall();
  const long blocks = support::live_blocks();
  platform_msgbuf *buffer = created(100);
  EXPECT_EQ(support::live_blocks(), blocks + 2);
  EXPECT_EQ(support::last_size("malloc"), 100U);
  EXPECT_EQ(buffer->len, 100);
  EXPECT_EQ(buffer->p1, buffer->pBuf);
  EXPECT_EQ(buffer->p2, buffer->pBuf);
  EXPECT_EQ(gMsgBuf, nullptr);
  platform_msgbuf_free(buffer);
  EXPECT_EQ(support::live_blocks(), blocks);
}

TEST_F(Framing, makes_a_buffer_of_capacity_0_of_a_negative_one) {
  platform_msgbuf *buffer = created(-5);
  EXPECT_EQ(buffer->len, 0);
  EXPECT_EQ(buffer->p1, buffer->pBuf);
  EXPECT_EQ(buffer->p2, buffer->pBuf);
  platform_msgbuf_free(buffer);
}

TEST_F(Framing, creates_nothing_when_storage_is_refused) {
  for (const int granted : {0, 1}) {
    support::refuse("malloc", ENOMEM, granted, 1);
    EXPECT_EQ(platform_msgbuf_create(100), nullptr);
    support::refuse_nothing();
  }
}

TEST_F(Framing, resets_a_buffer_to_its_front) {
  gMsgBuf->p1 += 3;
  gMsgBuf->p2 += 9;
  platform_msgbuf_reset(gMsgBuf);
  EXPECT_EQ(gMsgBuf->p1, gMsgBuf->pBuf);
  EXPECT_EQ(gMsgBuf->p2, gMsgBuf->pBuf);
}

TEST_F(Framing, frees_null_and_a_record_without_storage) {
  platform_msgbuf_free(nullptr);
  auto *bare = static_cast<platform_msgbuf *>(malloc(sizeof(platform_msgbuf)));
  *bare = {};
  platform_msgbuf_free(bare);
}

TEST_F(Framing, installs_a_buffer_without_freeing_the_one_before) {
  platform_msgbuf *other = created(10);
  const long blocks = support::live_blocks();
  platform_set_message_buffer(other);
  EXPECT_EQ(gMsgBuf, other);
  EXPECT_EQ(support::live_blocks(), blocks);
  platform_set_message_buffer(installed);
  platform_msgbuf_free(other);
  EXPECT_EQ(gMsgBuf, installed); // it was not the installed one
}

} // namespace
