// Sending: bytes, lines and messages, how they are gathered, and what failures come to.
#include "platform/socket/socket_test.h"
#include "support/child.h"

#include <climits>
#include <csignal>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <thread>

namespace {

using namespace sockets;

// The longest text that is sent without a heap block.
constexpr size_t kLongest = 8189;

class Sending : public SocketTest {
protected:
  // What arrived at the peer, and how many sends it took.
  std::string arrived() const { return read_waiting(theirs); }

  static long sends() { return support::calls("send"); }

  void make_nonblocking() const { fcntl(ours, F_SETFL, O_NONBLOCK); }
};

TEST_F(Sending, sends_all_bytes_and_returns_their_number) {
  EXPECT_EQ(platform_sock_send_all(ours, "a\0b", 3), 3);
  EXPECT_EQ(arrived(), std::string("a\0b", 3));
  EXPECT_EQ(sends(), 1);
}

TEST_F(Sending, sends_nothing_for_a_length_that_is_not_positive) {
  EXPECT_EQ(platform_sock_send_all(ours, "abc", 0), 0);
  EXPECT_EQ(platform_sock_send_all(ours, "abc", -1), 0);
  EXPECT_EQ(sends(), 0);
}

TEST_F(Sending, returns_the_first_failure_without_another_try) {
  for (const int error : {EINTR, EAGAIN, ECONNRESET}) {
    support::refuse("send", error, 0, 1);
    const long before = sends();
    EXPECT_EQ(platform_sock_send_all(ours, "abc", 3), -1);
    EXPECT_EQ(errno, error);
    EXPECT_EQ(sends(), before + 1);
  }
  EXPECT_EQ(arrived(), "");
}

TEST_F(Sending, raises_no_signal_when_the_peer_is_gone) {
  close_theirs();
  EXPECT_EQ(platform_sock_send_all(ours, "abc", 3), -1);
  EXPECT_EQ(errno, EPIPE);
  EXPECT_EQ(platform_sock_send_line(ours, "abc"), 0);
  EXPECT_EQ(platform_sock_send_line(ours, std::string(kLongest + 1, 'x').c_str()), 0);
  EXPECT_EQ(platform_sock_send_message(ours, "abc", "def", nullptr), 0);
}

// A send that blocks is cut short by each signal, whose handler makes room by reading at the peer.
int drained_fd;
std::string drained;

void drain_peer(int) {
  char piece[8192];
  ssize_t got;
  while ((got = recv(drained_fd, piece, sizeof piece, MSG_DONTWAIT)) > 0)
    drained.append(piece, static_cast<size_t>(got));
}

TEST_F(Sending, goes_on_where_a_short_send_stopped) {
  constexpr int kSize = 3 << 20;
  std::string bytes;
  for (int i = 0; i < kSize; i++)
    bytes += static_cast<char>(i * 7 >> 8);
  drained_fd = theirs;
  drained.reserve(kSize); // the handler may not allocate
  struct sigaction draining = {};
  draining.sa_handler = drain_peer;
  sigaction(SIGALRM, &draining, nullptr);
  const itimerval often = {.it_interval = {0, 5000}, .it_value = {0, 5000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  const int result = platform_sock_send_all(ours, bytes.data(), kSize);
  const itimerval off = {};
  setitimer(ITIMER_REAL, &off, nullptr);
  drain_peer(0);
  EXPECT_EQ(result, kSize);
  EXPECT_GT(sends(), 1);
  EXPECT_TRUE(drained == bytes);
}

TEST_F(Sending, fails_when_a_peer_that_never_reads_has_filled_the_socket) {
  make_nonblocking();
  const std::string bytes(8 << 20, 'x');
  EXPECT_EQ(platform_sock_send_all(ours, bytes.data(), static_cast<int>(bytes.size())), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(platform_sock_send_line(ours, "abc"), 0);
  EXPECT_EQ(platform_sock_send_message(ours, "a", "b", nullptr), 0);
}

TEST_F(Sending, ends_a_line_with_carriage_return_and_line_feed) {
  EXPECT_EQ(platform_sock_send_line(ours, "hello"), 1);
  EXPECT_EQ(arrived(), "hello\r\n");
  EXPECT_EQ(sends(), 1);
}

TEST_F(Sending, sends_an_empty_line_for_a_null_or_empty_text) {
  EXPECT_EQ(platform_sock_send_line(ours, nullptr), 1);
  EXPECT_EQ(arrived(), "\r\n");
  EXPECT_EQ(platform_sock_send_line(ours, ""), 1);
  EXPECT_EQ(arrived(), "\r\n");
  EXPECT_EQ(sends(), 2);
}

TEST_F(Sending, needs_the_heap_only_for_lines_of_more_than_8189_characters) {
  for (const size_t length : {kLongest - 1, kLongest, kLongest + 1, size_t{50000}}) {
    const std::string text(length, 'x');
    const long allocations = support::calls("malloc");
    const long before = sends();
    EXPECT_EQ(platform_sock_send_line(ours, text.c_str()), 1);
    EXPECT_EQ(support::calls("malloc") - allocations, length > kLongest) << length;
    EXPECT_EQ(sends(), before + 1);
    EXPECT_EQ(arrived(), text + "\r\n");
  }
  EXPECT_EQ(support::last_size("malloc"), 50003U);
}

TEST_F(Sending, fails_when_the_heap_block_is_refused) {
  const std::string text(kLongest + 1, 'x');
  support::refuse("malloc", ENOMEM, 0, 2);
  EXPECT_EQ(platform_sock_send_line(ours, text.c_str()), 0);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(platform_sock_send_message(ours, "a", text.c_str(), "b", nullptr), 0);
  EXPECT_EQ(arrived(), "a\r\n");
}

// Texts of 2 GB that take 64 MB: the same file is mapped over and over.
class HugeText {
public:
  explicit HugeText(size_t length) {
    fd = memfd_create("text", 0);
    const std::string piece(1 << 20, 'x');
    for (size_t done = 0; done < kPiece; done += piece.size())
      write_whole(fd, piece);
    text = static_cast<char *>(mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    for (size_t at = 0; at < size; at += kPiece)
      mmap(text + at, kPiece, PROT_READ | PROT_WRITE, MAP_FIXED | MAP_PRIVATE, fd, 0);
    text[length] = '\0';
  }
  ~HugeText() {
    munmap(text, size);
    close(fd);
  }
  HugeText(const HugeText &) = delete;
  HugeText &operator=(const HugeText &) = delete;
  [[nodiscard]] const char *get() const { return text; }

private:
  static constexpr size_t kPiece = 64 << 20;
  static constexpr size_t size = 33 * kPiece;
  int fd;
  char *text;
};

TEST_F(Sending, refuses_a_line_whose_length_no_int_holds) {
  if (support::under_valgrind())
    GTEST_SKIP() << "2 GB are too many for valgrind";
  const HugeText text(static_cast<size_t>(INT_MAX) - 1);
  EXPECT_EQ(platform_sock_send_line(ours, text.get()), 0);
  EXPECT_EQ(errno, EMSGSIZE);
  EXPECT_EQ(platform_sock_send_message(ours, "before", text.get(), "after", nullptr), 0);
  EXPECT_EQ(arrived(), "before\r\n");
  // One character less is asked for: the block is refused here, so as not to need 2 GB.
  support::refuse("malloc", ENOMEM, 0, 1);
  EXPECT_EQ(platform_sock_send_line(ours, text.get() + 1), 0);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(support::last_size("malloc"), static_cast<size_t>(INT_MAX) + 1);
}

TEST_F(Sending, sends_the_lines_of_a_message_and_an_empty_one_together) {
  EXPECT_EQ(platform_sock_send_message(ours, "A", "B", nullptr), 1);
  EXPECT_EQ(arrived(), "A\r\nB\r\n\r\n");
  EXPECT_EQ(sends(), 1);
  EXPECT_EQ(platform_sock_send_message(ours, "A", "B", "C", "D", "E", "F", "G", nullptr), 1);
  EXPECT_EQ(arrived(), "A\r\nB\r\nC\r\nD\r\nE\r\nF\r\nG\r\n\r\n");
  EXPECT_EQ(sends(), 2);
}

TEST_F(Sending, closes_a_message_of_one_line_with_its_null_second) {
  EXPECT_EQ(platform_sock_send_message(ours, "X", nullptr), 1);
  EXPECT_EQ(arrived(), "X\r\n\r\n");
  EXPECT_EQ(platform_sock_send_message(ours, "X", nullptr, "not looked at"), 1);
  EXPECT_EQ(arrived(), "X\r\n\r\n");
}

TEST_F(Sending, sends_an_empty_line_first_for_a_null_first) {
  EXPECT_EQ(platform_sock_send_message(ours, nullptr, nullptr), 1);
  EXPECT_EQ(arrived(), "\r\n\r\n");
  EXPECT_EQ(platform_sock_send_message(ours, nullptr, "B", nullptr), 1);
  EXPECT_EQ(arrived(), "\r\nB\r\n\r\n");
}

TEST_F(Sending, sends_empty_further_lines_as_they_are) {
  EXPECT_EQ(platform_sock_send_message(ours, "A", "", "C", "", nullptr), 1);
  EXPECT_EQ(arrived(), "A\r\n\r\nC\r\n\r\n\r\n");
}

TEST_F(Sending, gathers_lines_as_far_as_they_fit) {
  const std::string half(4092, 'x');
  const std::string rest(4093, 'y'); // 4094 + 4095 bytes, and the empty line: 8191
  EXPECT_EQ(platform_sock_send_message(ours, half.c_str(), rest.c_str(), nullptr), 1);
  EXPECT_EQ(arrived(), half + "\r\n" + rest + "\r\n\r\n");
  EXPECT_EQ(sends(), 1);
  const std::string more = rest + "y";
  EXPECT_EQ(platform_sock_send_message(ours, half.c_str(), more.c_str(), nullptr), 1);
  EXPECT_EQ(arrived(), half + "\r\n" + more + "\r\n\r\n");
  EXPECT_EQ(sends(), 3);
}

TEST_F(Sending, keeps_the_order_of_long_and_short_lines) {
  const std::string x(kLongest, 'x');
  const std::string y(kLongest + 1, 'y');
  const std::string z(20000, 'z');
  const long allocations = support::calls("malloc");
  EXPECT_EQ(
      platform_sock_send_message(ours, "a", x.c_str(), "b", y.c_str(), z.c_str(), "c", nullptr), 1);
  EXPECT_EQ(support::calls("malloc") - allocations, 2);
  EXPECT_EQ(arrived(), "a\r\n" + x + "\r\nb\r\n" + y + "\r\n" + z + "\r\nc\r\n\r\n");
}

TEST_F(Sending, returns_0_whichever_send_of_a_message_fails) {
  const std::string x(kLongest, 'x');
  const std::string y(kLongest + 1, 'y');
  const char *const lines[] = {"a", x.c_str(), y.c_str(), "b"};
  for (int passing = 0; passing < 4; passing++) {
    support::refuse("send", ECONNRESET, passing, 1);
    const long before = sends();
    EXPECT_EQ(platform_sock_send_message(ours, lines[0], lines[1], lines[2], lines[3], nullptr), 0);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(sends(), before + passing + 1); // nothing is sent after a failure
  }
  EXPECT_EQ(platform_sock_send_message(ours, lines[0], lines[1], lines[2], lines[3], nullptr), 1);
  for (const char *second : {static_cast<const char *>(nullptr), "b"}) {
    support::refuse("send", ECONNRESET, 0, 1);
    EXPECT_EQ(platform_sock_send_message(ours, "a", second, nullptr), 0);
  }
}

TEST_F(Sending, sends_no_second_line_after_a_first_that_failed) {
  const std::string longer(kLongest + 1, 'x'); // goes out by itself
  support::refuse("send", ECONNRESET, 0, 1);
  const long before = sends();
  EXPECT_EQ(platform_sock_send_message(ours, longer.c_str(), longer.c_str(), nullptr), 0);
  EXPECT_EQ(errno, ECONNRESET);
  EXPECT_EQ(sends(), before + 1);
}

TEST_F(Sending, returns_to_its_own_receiver_what_was_sent) {
  install(100000);
  const std::string y(kLongest + 1, 'y');
  ASSERT_EQ(platform_sock_send_message(theirs, "first", "second", y.c_str(), "last", nullptr), 1);
  ASSERT_EQ(platform_sock_send_message(theirs, "", nullptr), 1);
  EXPECT_EQ(platform_get_one_message(ours, keep, nullptr, 1), 1);
  EXPECT_EQ(platform_get_one_message(ours, keep, nullptr, 1), 1);
  EXPECT_THAT(handled, testing::ElementsAre(Lines{"first", "second", y, "last"}, Lines{""}));
}

} // namespace
