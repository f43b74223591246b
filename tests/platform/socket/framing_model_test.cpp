// The framing against a plain model that follows its description a byte at a time: every short
// input in every split, random long ones, and idle callbacks that change the buffer in the middle.
#include "platform/socket/message_model.h"
#include "platform/socket/socket_test.h"

#include <fcntl.h>
#include <orv/msg.h>
#include <random>

namespace {

using namespace sockets;

class AgainstTheModel : public SocketTest {
protected:
  // The bytes of the installed buffer, those beyond the data included.
  static std::string storage() { return {gMsgBuf->pBuf, static_cast<size_t>(gMsgBuf->len)}; }

  void expect_same(const model::Buffer &expected, const std::vector<model::Lines> &messages) {
    EXPECT_EQ(handled, messages);
    EXPECT_EQ(static_cast<size_t>(gMsgBuf->p1 - gMsgBuf->pBuf), expected.p1);
    EXPECT_EQ(static_cast<size_t>(gMsgBuf->p2 - gMsgBuf->pBuf), expected.p2);
    EXPECT_EQ(storage(), std::string(expected.storage.data(), expected.capacity));
  }

  // Puts bytes into the buffer as a receive would, without the system calls.
  static void place(const std::string &bytes) {
    memcpy(gMsgBuf->p2, bytes.data(), bytes.size());
    gMsgBuf->p2 += bytes.size();
  }

  void compare(const std::vector<std::string> &pieces, int capacity, char stale) {
    install(capacity, stale);
    handled.clear();
    model::Buffer expected(static_cast<size_t>(capacity), stale);
    std::vector<model::Lines> messages;
    int dropped = 0;
    for (const std::string &piece : pieces) {
      place(piece);
      expected.append(piece);
      platform_dispatch_messages(ours, keep);
      for (model::Lines lines; model::next_message(expected, lines, dropped);) {
        messages.push_back(lines);
        expected.compact();
      }
      expect_same(expected, messages);
    }
  }
};

std::string nth_text(size_t number, size_t length) {
  static constexpr char kAlphabet[] = {'\r', '\n', 'a'};
  std::string text;
  for (size_t i = 0; i < length; i++, number /= 3)
    text += kAlphabet[number % 3];
  return text;
}

TEST_F(AgainstTheModel, agrees_on_every_text_of_up_to_8_bytes) {
  size_t count = 1;
  for (size_t length = 0; length <= 8; length++, count *= 3)
    for (size_t number = 0; number < count && !HasFailure(); number++)
      for (const char stale : {'\r', '\n'})
        compare({nth_text(number, length)}, static_cast<int>(length) + 1, stale);
}

TEST_F(AgainstTheModel, agrees_on_every_split_of_every_text_of_6_bytes) {
  for (size_t number = 0; number < 729 && !HasFailure(); number++) {
    const std::string text = nth_text(number, 6);
    for (size_t split = 1; split < text.size(); split++)
      for (const char stale : {'\r', '\n'})
        compare({text.substr(0, split), text.substr(split)}, 8, stale);
  }
}

TEST_F(AgainstTheModel, agrees_on_random_texts_in_random_pieces) {
  std::mt19937 random(12345);
  const auto below = [&random](unsigned bound) { return random() % bound; };
  for (int round = 0; round < 300 && !HasFailure(); round++) {
    std::vector<std::string> pieces;
    for (unsigned piece = 0; piece < 1 + below(20); piece++) {
      std::string text;
      for (unsigned i = 0; i < below(60); i++)
        text += below(3) == 0 ? "\r\n" : std::string(1, "\r\n\0ab"[below(5)]);
      pieces.push_back(text);
    }
    compare(pieces, 4000, "\r\nx"[below(3)]);
  }
}

// Idle callbacks that are at the buffer between two receives of one call.

struct Plan {
  int peer;
  int sock;
  std::vector<std::string> feeds; // what the peer sends at each idle call
  void (*interfere)();            // called at the second idle call
  size_t calls;
};
Plan plan;

void follow_plan() {
  if (plan.calls < plan.feeds.size())
    write_whole(plan.peer, plan.feeds[plan.calls]);
  if (plan.calls == 1)
    plan.interfere();
  plan.calls++;
}

class Interfering : public SocketTest {
protected:
  void SetUp() override {
    SocketTest::SetUp();
    install(1000);
  }

  // The first piece is waiting; each idle call, which comes before a receive, adds the next.
  int get_one(const std::string &first, const std::vector<std::string> &feeds,
              void (*interfere)()) {
    plan = {.peer = theirs, .sock = ours, .feeds = feeds, .interfere = interfere, .calls = 0};
    peer_sends(first);
    return platform_get_one_message(ours, keep, follow_plan, 1);
  }
};

TEST_F(Interfering, begins_the_search_anew_after_the_buffer_was_reset) {
  EXPECT_EQ(get_one("one\r\ntwo\r\n", {"", "three\r\n", "four\r\n\r\n"},
                    [] { platform_msgbuf_reset(gMsgBuf); }),
            1);
  EXPECT_THAT(handled, testing::ElementsAre(Lines{"three", "four"}));
}

TEST_F(Interfering, begins_the_search_anew_after_messages_were_dispatched) {
  const auto complete_and_dispatch = [] {
    platform_recv_messages(plan.sock);
    platform_dispatch_messages(plan.sock, keep);
    write_whole(plan.peer, "x\r\ny\r\n\r\n");
  };
  EXPECT_EQ(get_one("one\r\n", {"", "\r\nrest\r\n"}, complete_and_dispatch), 1);
  EXPECT_THAT(handled, testing::ElementsAre(Lines{"one"}, Lines{"rest", "x", "y"}));
}

// The buffer looks as it did: the same record and the same pointers, with other bytes inside.
TEST_F(Interfering, notices_bytes_that_were_replaced_by_as_many) {
  const auto replace = [] {
    platform_msgbuf_reset(gMsgBuf);
    write_whole(plan.peer, "abcdefgh\r\n");
    platform_recv_messages(plan.sock);
    write_whole(plan.peer, "end\r\n\r\n");
  };
  EXPECT_EQ(get_one("one\r\nfour\r", {"", "", "", ""}, replace), 0 + 1);
  EXPECT_THAT(handled, testing::ElementsAre(Lines{"abcdefgh", "end"}));
}

TEST_F(Interfering, notices_bytes_that_were_replaced_after_the_buffer_was_put_back) {
  const auto put_back_and_replace = [] {
    platform_msgbuf *const buffer = gMsgBuf;
    platform_set_message_buffer(nullptr);
    platform_set_message_buffer(buffer);
    platform_msgbuf_reset(buffer);
    write_whole(plan.peer, "x\r\nyz");
    platform_recv_messages(plan.sock);
    write_whole(plan.peer, "\r\n\r\n");
  };
  EXPECT_EQ(get_one("one\r\n", {}, put_back_and_replace), 1);
  EXPECT_THAT(handled, testing::ElementsAre(Lines{"x", "yz"}));
}

TEST_F(Interfering, notices_a_message_that_was_dispatched_and_followed_by_as_many_bytes) {
  const auto complete_and_dispatch = [] {
    platform_recv_messages(plan.sock);
    platform_dispatch_messages(plan.sock, keep);
    write_whole(plan.peer, "\r\n\r\n");
  };
  EXPECT_EQ(get_one("one\r\n", {"", "\r\nx\r\nyz"}, complete_and_dispatch), 1);
  EXPECT_THAT(handled, testing::ElementsAre(Lines{"one"}, Lines{"x", "yz"}));
}

TEST_F(Interfering, goes_on_in_a_buffer_that_was_installed_meanwhile) {
  static platform_msgbuf *other;
  other = created(1000);
  memcpy(other->pBuf, "other\r\n", 7);
  other->p2 += 7;
  EXPECT_EQ(get_one("one\r\n", {"", "two\r\n\r\n"}, [] { platform_set_message_buffer(other); }), 1);
  EXPECT_THAT(handled, testing::ElementsAre(Lines{"other", "two"}));
  EXPECT_EQ(std::string(installed->p1, installed->p2), "one\r\n");
  platform_set_message_buffer(nullptr);
  platform_msgbuf_free(other);
}

TEST_F(Interfering, begins_the_search_anew_after_the_fields_were_moved_by_hand) {
  EXPECT_EQ(get_one("one\r\ntwo\r\n", {"", "end\r\n\r\n"}, [] { gMsgBuf->p1 += 5; }), 1);
  EXPECT_EQ(get_one("one\r\ntwo\r\n", {"", "X\r\n\r\n"}, [] { gMsgBuf->p2 -= 7; }), 1);
  EXPECT_THAT(handled, testing::ElementsAre(Lines{"two", "end"}, Lines{"oneX"}));
}

TEST_F(Interfering, returns_0_when_the_buffer_was_taken_away) {
  EXPECT_EQ(get_one("one\r\n", {"", "two\r\n\r\n"}, [] { platform_set_message_buffer(nullptr); }),
            0);
  EXPECT_TRUE(handled.empty());
}

TEST_F(Interfering, goes_on_after_a_message_with_too_many_lines_was_dropped) {
  install(100000);
  msg_clear_streams(MSG_WARN);
  std::string lines;
  for (int i = 0; i < 3000; i++)
    lines += "x\r\n";
  EXPECT_EQ(get_one(lines, {lines, "\r\nA\r", "\nB\r\n\r", "\n"}, [] {}), 1);
  EXPECT_THAT(handled, testing::ElementsAre(Lines{"A", "B"}));
}

} // namespace
