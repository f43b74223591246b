// Recipes for companions and other child processes.
#include "messages/capture.h"
#include "platform/orv_pair_connection/pair_fixture.h"

namespace {

using namespace pair_test;

class PairRecipes : public support::MessagesTest {
protected:
  support::Capture trace{MSG_DIAG};

  void TearDown() override {
    unsetenv(kName);
    unsetenv(kSwitch);
    MessagesTest::TearDown();
  }
};

TEST_F(PairRecipes, open_a_limited_number_of_times) {
  refuse("fork", EAGAIN);
  constexpr int kAttempts = 3;
  int failures = 0;
  for (int attempt = 0; attempt < kAttempts; attempt++) {
    platform_pair_handle *ph = open_companion("echo");
    failures += platform_pair_rx_fd(ph) < 0 ? 1 : 0;
    platform_pair_close(ph);
  }
  support::refuse_nothing();
  EXPECT_EQ(failures, kAttempts);
  expect_descriptors_left(2 * kAttempts);
}

TEST_F(PairRecipes, duplicate_a_descriptor_that_is_to_serve_twice) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int std_fds[3] = {-1, ends[1], dup(ends[1])};
  platform_pair_handle *ph = platform_pair_parent_open_lp(kName, 1, 1, "sh", std_fds, "sh", "-c",
                                                          "echo output; echo error >&2", nullptr);
  close(ends[1]);
  close(std_fds[2]);
  EXPECT_EQ(finish(ph), 0);
  char text[100] = "";
  EXPECT_GT(read(ends[0], text, sizeof text - 1), 0);
  EXPECT_STREQ(text, "output\nerror\n");
  close(ends[0]);
}

TEST_F(PairRecipes, ask_for_the_descriptor_on_the_companions_side) {
  platform_pair_handle *ph = platform_pair_child_open("ORV_TEST_NO_SUCH_VARIABLE", 0, 1);
  EXPECT_LT(platform_pair_rx_fd(ph), 0);
  EXPECT_EQ(platform_pair_ok(ph), 1);
  platform_pair_close(ph);
}

TEST_F(PairRecipes, expect_three_blocks_of_a_companions_opening) {
  Sockets sockets;
  setenv(kName, ("1 " + std::to_string(sockets.fd[0]) + " pid-rtx_fd_l").c_str(), 1);
  platform_pair_handle *ph = platform_pair_child_open(kName, 0, 1);
  EXPECT_EQ(platform_pair_rx_fd(ph), sockets.fd[0]);
  platform_pair_close(ph);
  sockets.fd[0] = -1;
  expect_blocks_left(3);
}

TEST_F(PairRecipes, switch_a_tcp_connection_to_non_blocking_after_opening) {
  int port;
  const int listening = platform_server_sock_open(23000, 23900, &port);
  ASSERT_GE(listening, 0);
  setenv(kName, ("1 " + std::to_string(port) + " pid-rtx_fd_w").c_str(), 1);
  setenv(kSwitch, "1", 1);
  platform_pair_handle *ph = platform_pair_child_open(kName, 0, 0);
  ASSERT_GE(platform_pair_rx_fd(ph), 0);
  EXPECT_EQ(platform_fd_set_blocking(platform_pair_rx_fd(ph), 0), 0);
  char byte;
  EXPECT_EQ(platform_pair_recv(ph, &byte, 1), 0);
  EXPECT_EQ(errno, EAGAIN);
  platform_pair_close(ph);
  platform_sock_close(platform_sock_accept(listening));
  expect_blocks_left(3);
}

TEST_F(PairRecipes, set_errno_to_0_before_sending_nothing) {
  Sockets sockets;
  platform_pair_handle *ph = make_handle(sockets.fd[0]);
  errno = 0;
  EXPECT_EQ(platform_pair_send(ph, "", 0), 0);
  EXPECT_EQ(platform_pair_ok(ph), 1);
  platform_pair_close(ph);
  sockets.fd[0] = -1;
}

TEST_F(PairRecipes, open_descriptors_before_or_after_a_pair_is_closed) {
  Sockets sockets;
  const int before = open("/dev/null", O_RDONLY);
  platform_pair_close(make_handle(sockets.fd[0]));
  const int after = open("/dev/null", O_RDONLY);
  EXPECT_EQ(after, sockets.fd[0]) << "the number is free again, and stays with its new owner";
  for (const int fd : {before, after}) {
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    close(fd);
  }
  sockets.fd[0] = -1;
}

TEST_F(PairRecipes, read_the_other_fields_of_a_failed_handle_through_the_calls) {
  refuse("socketpair", EMFILE);
  platform_pair_handle *ph = open_companion("echo");
  support::refuse_nothing();
  EXPECT_STREQ(platform_pair_describe(ph, nullptr), "orv: socketpair create failed");
  EXPECT_EQ(platform_pair_errno(ph), EMFILE);
  EXPECT_STREQ(platform_pair_errstr(ph), strerror(EMFILE));
  platform_pair_close(ph);
}

TEST_F(PairRecipes, end_a_child_that_could_not_run_its_program) {
  const auto outcome = run_in_child([] {
    int status = 0;
    const int pid = platform_spawn_list(kMissing, kMissing, nullptr);
    if (pid == 0)
      _exit(127);
    platform_wait_child(pid, &status);
    printf("%d", WEXITSTATUS(status));
  });
  EXPECT_EQ(outcome.out, "127");
}

TEST_F(PairRecipes, search_the_trace_for_the_word_of_a_failed_wait) {
  EXPECT_EQ(platform_wait_child(gone_process(), nullptr), -1);
  EXPECT_THAT(trace.text(), HasSubstr("waitpid: "));
}

} // namespace
