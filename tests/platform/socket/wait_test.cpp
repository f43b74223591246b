// Receiving: at once, and with a wait in slices between which an idle callback runs.
#include "platform/socket/socket_test.h"
#include "support/child.h"

#include <climits>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <thread>

namespace {

using namespace sockets;

class Receiving : public SocketTest {
protected:
  int receive(int length = sizeof buffer) { return platform_sock_recv(ours, buffer, length); }
  int receive_wait(int wait, platform_idle_callback idle = nullptr, int length = sizeof buffer) {
    return platform_sock_recv_wait(ours, buffer, length, wait, idle);
  }

  char buffer[100] = {};
};

TEST_F(Receiving, refuses_a_length_that_is_not_positive) {
  EXPECT_EQ(receive(0), -3);
  EXPECT_EQ(receive(-1), -3);
  EXPECT_EQ(support::calls("recv"), 0);
}

TEST_F(Receiving, returns_what_the_system_returns) {
  peer_sends("hello");
  EXPECT_EQ(receive(), 5);
  EXPECT_STREQ(buffer, "hello");
  close_theirs();
  EXPECT_EQ(receive(), 0);
  EXPECT_EQ(platform_sock_recv(-1, buffer, 1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(Receiving, takes_no_more_than_the_length) {
  peer_sends("hello");
  EXPECT_EQ(receive(2), 2);
  EXPECT_STREQ(buffer, "he");
  EXPECT_EQ(receive(1), 1);
  EXPECT_EQ(receive_wait(1, nullptr, 1), 1);
  EXPECT_STREQ(buffer, "le");
}

TEST_F(Receiving, blocks_until_something_has_come) {
  std::thread peer([this] {
    usleep(50000);
    peer_sends("hello");
  });
  EXPECT_EQ(receive(), 5);
  peer.join();
}

class Waiting : public Receiving {};

TEST_F(Waiting, returns_0_for_a_length_that_is_not_positive) {
  EXPECT_EQ(receive_wait(1, count_idle, 0), 0);
  EXPECT_EQ(receive_wait(1, count_idle, -1), 0);
  EXPECT_EQ(support::calls("select"), 0);
  EXPECT_EQ(idle_calls, 0);
}

TEST_F(Waiting, returns_at_once_without_the_wait_flag) {
  EXPECT_EQ(receive_wait(0), -2);
  EXPECT_EQ(support::calls("select"), 1);
  EXPECT_EQ(support::last_size("select"), 0U); // microseconds
  EXPECT_EQ(support::calls("recv"), 0);
}

TEST_F(Waiting, calls_idle_once_when_nothing_is_ready_and_it_does_not_wait) {
  EXPECT_EQ(receive_wait(0, count_idle), -2);
  EXPECT_EQ(idle_calls, 1);
}

TEST_F(Waiting, receives_what_is_ready) {
  for (const int wait : {0, 1}) {
    peer_sends("hello");
    EXPECT_EQ(receive_wait(wait), 5);
    EXPECT_STREQ(buffer, "hello");
  }
  EXPECT_EQ(support::calls("select"), 2);
  EXPECT_EQ(support::calls("recv"), 2);
}

TEST_F(Waiting, calls_idle_before_it_receives_what_is_ready) {
  static int peer;
  peer = theirs;
  peer_sends("early ");
  EXPECT_EQ(receive_wait(1, [] { write_whole(peer, "late"); }), 10);
  EXPECT_STREQ(buffer, "early late");
}

// The system takes the time that was waited off the time-out and empties the set: only a wait that
// sets both up anew before each select gets to see what is sent in its fourth slice.
TEST_F(Waiting, waits_in_slices_of_a_tenth_of_a_second_with_idle_after_each) {
  static int peer;
  peer = theirs;
  const auto send_at_third = [] {
    EXPECT_EQ(support::last_size("select"), 100000U);
    if (++idle_calls == 3)
      write_whole(peer, "at last");
  };
  EXPECT_EQ(receive_wait(1, send_at_third), 7);
  EXPECT_EQ(idle_calls, 4);
  EXPECT_EQ(support::calls("select"), 4);
  EXPECT_EQ(support::last_size("select"), 100000U);
}

TEST_F(Waiting, waits_with_any_flag_but_0) {
  for (const int wait : {2, -1}) {
    peer_sends("hello");
    EXPECT_EQ(receive_wait(wait), 5);
    EXPECT_EQ(support::last_size("select"), 100000U);
  }
}

TEST_F(Waiting, returns_the_end_of_the_stream_as_a_failure) {
  close_theirs();
  EXPECT_EQ(receive_wait(1, count_idle), -1);
  EXPECT_EQ(receive_wait(0, count_idle), -1);
  EXPECT_EQ(idle_calls, 2);
}

TEST_F(Waiting, returns_a_failed_receive_without_another_try) {
  peer_sends("hello");
  for (const int error : {EINTR, EAGAIN, ECONNRESET}) {
    support::refuse("recv", error, 0, 1);
    const long receives = support::calls("recv");
    EXPECT_EQ(receive_wait(1), -1);
    EXPECT_EQ(errno, error);
    EXPECT_EQ(support::calls("recv"), receives + 1);
  }
}

TEST_F(Waiting, goes_on_after_a_select_that_was_interrupted) {
  for (const int error : {0, EINTR, EAGAIN}) {
    for (const int wait : {0, 1}) {
      peer_sends("hello");
      idle_calls = 0;
      support::refuse("select", error, 0, 3);
      EXPECT_EQ(receive_wait(wait, count_idle), 5);
      EXPECT_EQ(idle_calls, 4) << "error " << error;
    }
  }
}

TEST_F(Waiting, clears_errno_before_it_goes_on) {
  peer_sends("hello");
  support::refuse("select", EINTR, 0, 1);
  EXPECT_EQ(receive_wait(1), 5);
  EXPECT_EQ(errno, 0);
}

TEST_F(Waiting, reports_any_other_failure_of_select) {
  const auto outcome = support::run_in_child(
      [this] {
        for (const int error : {EBADF, EINVAL, ENOMEM}) {
          support::refuse("select", error, 0, 1);
          const int result = receive_wait(1, count_idle);
          const int left = errno;
          printf("%d %d %d\n", result, left == error, idle_calls);
        }
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.out, "select failed: Bad file descriptor\n-1 1 1\n"
                         "select failed: Invalid argument\n-1 1 2\n"
                         "select failed: Cannot allocate memory\n-1 1 3\n");
}

// An idle callback that prints, say, may leave any errno.
TEST_F(Waiting, judges_a_failed_select_by_its_own_errno) {
  support::refuse("select", EINTR, 0, 1);
  peer_sends("hello");
  EXPECT_EQ(receive_wait(1, [] { errno = ENOTTY; }), 5);
  support::refuse("select", EBADF, 0, 1);
  EXPECT_EQ(receive_wait(1, [] { errno = EINTR; }), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(Waiting, takes_descriptor_0_like_any_other) {
  peer_sends("hello");
  const auto outcome = support::run_in_child([this] {
    dup2(ours, 0);
    printf("%d", platform_sock_recv_wait(0, buffer, sizeof buffer, 1, nullptr));
  });
  EXPECT_EQ(outcome.out, "5");
}

TEST_F(Waiting, fails_on_a_descriptor_that_is_none) {
  EXPECT_EQ(platform_sock_recv_wait(-1, buffer, 1, 1, count_idle), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(idle_calls, 1);
  const int closed = dup(ours);
  close(closed);
  EXPECT_EQ(platform_sock_recv_wait(closed, buffer, 1, 1, count_idle), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(idle_calls, 2);
  constexpr int kBeyondTheSystemsTable = 1 << 20;
  EXPECT_EQ(platform_sock_recv_wait(kBeyondTheSystemsTable, buffer, 1, 1, count_idle), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(platform_sock_recv_wait(INT_MAX, buffer, 1, 1, count_idle), -1);
  EXPECT_EQ(errno, EBADF);
}

void ignore_signal(int) {}

// Signals come faster than the slices, so nearly every select is interrupted.
TEST_F(Waiting, outlasts_a_storm_of_signals) {
  static int peer;
  peer = theirs;
  struct sigaction interrupting = {};
  interrupting.sa_handler = ignore_signal;
  sigaction(SIGALRM, &interrupting, nullptr);
  const itimerval fast = {.it_interval = {0, 500}, .it_value = {0, 500}};
  setitimer(ITIMER_REAL, &fast, nullptr);
  const int received = receive_wait(1, [] {
    if (++idle_calls == 100)
      write_whole(peer, "calm");
  });
  const itimerval off = {};
  setitimer(ITIMER_REAL, &off, nullptr);
  EXPECT_EQ(received, 4);
  EXPECT_GE(idle_calls, 101);
}

// Descriptors that an fd_set does not hold.
class WideDescriptors : public Receiving {
protected:
  // Moves our socket to a descriptor; false where the system grants none so high.
  bool move_ours_to(int fd) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (dup2(ours, fd) != fd)
      return false;
    close(ours);
    ours = fd;
    return true;
  }
};

TEST_F(WideDescriptors, are_served_by_every_wait) {
  for (const int fd : {1022, 1023, 1024, 1025, 1087, 1088, 4000}) {
    if (!move_ours_to(fd))
      GTEST_SKIP() << "no descriptor " << fd << " to be had";
    EXPECT_EQ(receive_wait(0, count_idle), -2) << fd;
    peer_sends("hello");
    EXPECT_EQ(receive_wait(1, count_idle), 5) << fd;
    peer_sends("again");
    EXPECT_EQ(receive_wait(0), 5) << fd;
  }
  EXPECT_EQ(idle_calls, 14);
}

TEST_F(WideDescriptors, are_told_from_their_neighbours) {
  if (!move_ours_to(1100))
    GTEST_SKIP() << "no descriptor 1100 to be had";
  ASSERT_EQ(dup2(theirs, 1101), 1101);
  peer_sends("hello");
  EXPECT_EQ(platform_sock_recv_wait(1101, buffer, 10, 0, nullptr), -2);
  EXPECT_EQ(receive_wait(0), 5);
  close(1101);
}

TEST_F(WideDescriptors, report_when_the_set_cannot_be_had) {
  if (!move_ours_to(1100))
    GTEST_SKIP() << "no descriptor 1100 to be had";
  support::refuse("calloc", ENOMEM, 0, 1);
  EXPECT_EQ(receive_wait(1, count_idle), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(idle_calls, 1);
}

} // namespace
