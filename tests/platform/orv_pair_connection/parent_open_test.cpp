// The parent's side of opening: the socket pair, the forks, the handle, and what the companion is
// started with.
#include "many_arguments.h"
#include "pair_fixture.h"

namespace {

using namespace pair_test;

class ParentOpen : public ResourceTest {};
class ParentOpenFails : public ResourceTest {};
class ArgumentList : public ResourceTest {};

TEST_F(ParentOpen, gives_a_handle_with_every_field_set) {
  platform_pair_handle *ph = open_companion("echo", 5);
  ASSERT_NE(ph, nullptr);
  EXPECT_GT(ph->companion_pid, 0);
  EXPECT_EQ(ph->side, 1);
  EXPECT_EQ(ph->kind, 12);
  EXPECT_EQ(ph->hybrid, 0);
  EXPECT_EQ(ph->blocking, 5) << "the choice is kept as it was given";
  EXPECT_GE(ph->read_fd, 0);
  EXPECT_EQ(ph->write_fd, ph->read_fd);
  EXPECT_EQ(ph->child_exit_status, 256);
  EXPECT_EQ(ph->term_signal, 0);
  EXPECT_EQ(ph->saved_errno, 0);
  EXPECT_EQ(ph->error_text, nullptr);
  EXPECT_EQ(ph->self, ph);
  EXPECT_EQ(platform_pair_valid(ph), 1);
  EXPECT_EQ(finish(ph), 0);
}

TEST_F(ParentOpen, takes_the_handle_from_the_system_allocator) {
  const uint32_t requested = orv_malloc_bytes_requested();
  const long blocks = support::live_blocks();
  platform_pair_handle *ph = open_companion("exit");
  EXPECT_EQ(support::live_blocks(), blocks + 1);
  EXPECT_EQ(support::last_size("malloc"), sizeof(platform_pair_handle));
  EXPECT_EQ(orv_malloc_bytes_requested(), requested);
  finish(ph);
}

TEST_F(ParentOpen, exchanges_bytes_with_the_companion) {
  platform_pair_handle *ph = open_companion("echo");
  const char question[] = "one\0two";
  EXPECT_EQ(platform_pair_send(ph, question, sizeof question), static_cast<int>(sizeof question));
  char answer[sizeof question] = "";
  for (size_t got = 0; got < sizeof answer;) {
    const int piece = platform_pair_recv(ph, answer + got, static_cast<int>(sizeof answer - got));
    ASSERT_GT(piece, 0);
    got += static_cast<size_t>(piece);
  }
  EXPECT_EQ(memcmp(answer, question, sizeof question), 0);
  EXPECT_EQ(platform_pair_ok(ph), 1);
  EXPECT_EQ(finish(ph), 0);
}

TEST_F(ParentOpen, connects_local_stream_sockets) {
  platform_pair_handle *ph = open_companion("echo");
  int domain = 0;
  int type = 0;
  socklen_t size = sizeof domain;
  getsockopt(platform_pair_rx_fd(ph), SOL_SOCKET, SO_DOMAIN, &domain, &size);
  getsockopt(platform_pair_rx_fd(ph), SOL_SOCKET, SO_TYPE, &type, &size);
  EXPECT_EQ(domain, AF_UNIX);
  EXPECT_EQ(type, SOCK_STREAM);
  finish(ph);
}

TEST_F(ParentOpen, marks_no_end_close_on_exec) {
  platform_pair_handle *ph = open_companion("echo");
  EXPECT_EQ(fcntl(platform_pair_rx_fd(ph), F_GETFD) & FD_CLOEXEC, 0);
  finish(ph);
}

TEST_F(ParentOpen, hands_over_its_pid_the_end_and_the_marker) {
  platform_pair_handle *ph = open_companion("report");
  const std::string report = receive_all(ph);
  int pid = 0;
  int end = -1;
  int length = 0;
  const std::string value = field(report, "value");
  ASSERT_EQ(sscanf(value.c_str(), "%d %d pid-rtx_fd_l%n", &pid, &end, &length), 2);
  EXPECT_EQ(static_cast<size_t>(length), value.size()) << value;
  EXPECT_EQ(value, std::to_string(pid) + " " + std::to_string(end) + " pid-rtx_fd_l");
  EXPECT_EQ(pid, getpid());
  EXPECT_EQ(field(report, "end"), std::to_string(end) + " block");
  EXPECT_EQ(field(report, "parent"), std::to_string(getpid()));
  EXPECT_EQ(field(report, "side"), "01");
  EXPECT_EQ(finish(ph), 0);
}

TEST_F(ParentOpen, leaves_the_parents_environment_alone) {
  platform_pair_handle *ph = open_companion("echo");
  EXPECT_EQ(getenv(kName), nullptr);
  finish(ph);
}

TEST_F(ParentOpen, replaces_the_variable_that_the_companion_would_inherit) {
  setenv(kName, "old", 1);
  platform_pair_handle *ph = open_companion("report");
  EXPECT_THAT(field(receive_all(ph), "value"), HasSubstr(" pid-rtx_fd_l"));
  EXPECT_STREQ(getenv(kName), "old");
  finish(ph);
  unsetenv(kName);
}

TEST_F(ParentOpen, adds_the_variable_to_the_environment_that_the_companion_inherits) {
  const auto outcome = run_in_child(
      [] {
        const int std_fds[] = {0, 1, 2};
        exit(finish(platform_pair_parent_open_lp(
            kName, 0, 1, "sh", std_fds, "sh", "-c",
            "printf %s \"$ORV_TEST_OTHER ${ORV_TEST_HAND_OVER##* }\"", nullptr)));
      },
      {{"ORV_TEST_OTHER", "inherited"}});
  EXPECT_EQ(outcome.out, "inherited pid-rtx_fd_l");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(ParentOpen, leaves_either_side_its_own_end_only) {
  const std::vector<int> before = own_descriptors();
  platform_pair_handle *ph = open_companion("report");
  const std::string report = receive_all(ph);
  std::vector<int> companions;
  for (const int fd : before)
    if (fcntl(fd, F_GETFD) == 0) // one that exec closes is not inherited
      companions.push_back(fd);
  companions.push_back(atoi(field(report, "end").c_str()));
  EXPECT_THAT(open_descriptors(report), UnorderedElementsAreArray(companions));
  std::vector<int> parents = before;
  parents.push_back(platform_pair_rx_fd(ph));
  EXPECT_THAT(own_descriptors(), UnorderedElementsAreArray(parents));
  finish(ph);
}

TEST_F(ParentOpen, makes_both_ends_non_blocking_when_asked) {
  platform_pair_handle *ph = open_companion("report", 0);
  EXPECT_EQ(ph->blocking, 0);
  EXPECT_EQ(platform_fd_is_blocking(platform_pair_rx_fd(ph)), 0);
  EXPECT_THAT(field(receive_all(ph), "end"), HasSubstr(" non-blocking"));
  finish(ph);
}

TEST_F(ParentOpen, leaves_both_ends_blocking_otherwise) {
  platform_pair_handle *ph = open_companion("report", 1);
  EXPECT_EQ(platform_fd_is_blocking(platform_pair_rx_fd(ph)), 1);
  EXPECT_THAT(field(receive_all(ph), "end"), testing::EndsWith(" block"));
  finish(ph);
}

bool sigpipe_ignored() {
  struct sigaction now = {};
  sigaction(SIGPIPE, nullptr, &now);
  return now.sa_handler == SIG_IGN;
}

TEST_F(ParentOpen, ignores_sigpipe_in_the_parent_only) {
  const auto outcome = run_in_child([] {
    platform_pair_handle *ph = platform_pair_parent_open_lp(kName, 1, 1, kCompanion, nullptr,
                                                            kCompanion, "report", kName, nullptr);
    printf("parent %d companion %s", sigpipe_ignored(), field(receive_all(ph), "SIGPIPE").c_str());
    finish(ph);
  });
  EXPECT_EQ(outcome.out, "parent 1 companion default");
}

TEST_F(ParentOpen, leaves_sigpipe_alone_unless_asked) {
  const auto outcome = run_in_child([] {
    finish(open_companion("exit"));
    printf("parent %d", sigpipe_ignored());
  });
  EXPECT_EQ(outcome.out, "parent 0");
}

TEST_F(ParentOpen, searches_the_path_for_the_program) {
  const std::filesystem::path program = kCompanion;
  const std::string folder = program.parent_path();
  const auto outcome = run_in_child(
      [&] {
        const char *bare = program.filename().c_str();
        platform_pair_handle *ph =
            platform_pair_parent_open_lp(kName, 0, 1, bare, nullptr, "x", "exit", "7", nullptr);
        printf("%d", finish(ph));
      },
      {{"PATH", folder.c_str()}});
  EXPECT_EQ(outcome.out, "7");
}

TEST_F(ParentOpen, gives_the_program_the_vector) {
  char *argv[] = {const_cast<char *>("any name"), const_cast<char *>("report"),
                  const_cast<char *>(kName), const_cast<char *>("the last"), nullptr};
  platform_pair_handle *ph = platform_pair_parent_open_vp(kName, 0, 1, kCompanion, nullptr, argv);
  const std::string report = receive_all(ph);
  EXPECT_EQ(field(report, "argc"), "4");
  EXPECT_EQ(field(report, "last"), "the last");
  finish(ph);
}

TEST_F(ParentOpen, tells_of_a_missing_program_through_the_connection) {
  char *argv[] = {const_cast<char *>("missing"), nullptr};
  platform_pair_handle *ph = platform_pair_parent_open_vp(kName, 0, 1, kMissing, nullptr, argv);
  EXPECT_EQ(platform_pair_valid(ph), 1);
  EXPECT_EQ(platform_pair_errno(ph), 0);
  EXPECT_EQ(ph->error_text, nullptr) << "only the child's copy names the failed step";
  char byte;
  EXPECT_EQ(platform_pair_recv(ph, &byte, 1), 0);
  EXPECT_EQ(platform_pair_errno(ph), 0);
  await_end(platform_pair_companion_pid(ph));
  EXPECT_EQ(platform_pair_companion_alive(ph), 0);
  EXPECT_EQ(platform_pair_child_exit_status(ph), 1);
  EXPECT_EQ(platform_pair_child_term_signal(ph), 0);
  platform_pair_close(ph);
}

TEST_F(ParentOpen, starts_no_program_that_could_not_be_handed_the_connection) {
  refuse("putenv", ENOMEM);
  platform_pair_handle *ph = open_companion("report");
  char byte;
  EXPECT_EQ(platform_pair_recv(ph, &byte, 1), 0);
  await_end(platform_pair_companion_pid(ph));
  EXPECT_EQ(platform_pair_companion_alive(ph), 0);
  EXPECT_EQ(platform_pair_child_exit_status(ph), 1);
  platform_pair_close(ph);
}

TEST_F(ParentOpen, writes_buffered_output_once_when_the_program_is_missing) {
  const auto outcome = run_in_child([] {
    printf("once");
    const int std_fds[] = {0, 1, 2};
    char *argv[] = {const_cast<char *>("missing"), nullptr};
    finish(platform_pair_parent_open_vp(kName, 0, 1, kMissing, std_fds, argv));
  });
  EXPECT_EQ(outcome.out, "once");
}

TEST_F(ParentOpenFails, names_the_failed_socket_pair) {
  refuse("socketpair", EMFILE);
  const long forks = calls("fork");
  platform_pair_handle *ph = open_companion("echo", 0);
  ASSERT_NE(ph, nullptr);
  EXPECT_EQ(platform_pair_valid(ph), 1);
  EXPECT_EQ(platform_pair_errno(ph), EMFILE);
  EXPECT_STREQ(ph->error_text, "socketpair create failed");
  EXPECT_EQ(platform_pair_companion_pid(ph), 0);
  EXPECT_EQ(platform_pair_rx_fd(ph), -1);
  EXPECT_EQ(platform_pair_tx_fd(ph), -1);
  EXPECT_EQ(platform_pair_parent(ph), 1);
  EXPECT_EQ(ph->kind, 12);
  EXPECT_EQ(calls("fork"), forks);
  EXPECT_EQ(platform_pair_companion_alive(ph), 0);
  EXPECT_EQ(platform_pair_close(ph), 1);
}

TEST_F(ParentOpenFails, gives_up_after_31_forks_that_the_system_puts_off) {
  refuse("fork", EAGAIN);
  const long forks = calls("fork");
  platform_pair_handle *ph = open_companion("echo");
  EXPECT_EQ(calls("fork") - forks, 31);
  EXPECT_EQ(platform_pair_errno(ph), EAGAIN);
  EXPECT_STREQ(ph->error_text, "fork failed");
  EXPECT_EQ(platform_pair_companion_pid(ph), 0);
  EXPECT_EQ(platform_pair_rx_fd(ph), -1);
  EXPECT_EQ(platform_pair_tx_fd(ph), -1);
  platform_pair_close(ph);
  expect_descriptors_left(2);
}

TEST_F(ParentOpenFails, not_when_the_31st_fork_succeeds) {
  refuse("fork", EAGAIN, 0, 30);
  const long forks = calls("fork");
  platform_pair_handle *ph = open_companion("exit");
  EXPECT_EQ(calls("fork") - forks, 31);
  EXPECT_EQ(platform_pair_errno(ph), 0);
  EXPECT_EQ(ph->error_text, nullptr);
  EXPECT_EQ(finish(ph), 0);
}

// The child finds errno as it stood: EAGAIN of an earlier receive, say, or of the fork before.
TEST_F(ParentOpen, starts_one_companion_whatever_errno_was_left) {
  const auto outcome = run_in_child([] {
    errno = EAGAIN;
    platform_pair_handle *ph = open_companion("exit");
    printf("the companion exited with %d\n", finish(ph));
  });
  EXPECT_EQ(outcome.out, "the companion exited with 0\n");
}

TEST_F(ParentOpenFails, at_once_when_fork_fails_for_another_reason) {
  refuse("fork", ENOMEM);
  const long forks = calls("fork");
  platform_pair_handle *ph = open_companion("echo");
  EXPECT_EQ(calls("fork") - forks, 1);
  EXPECT_EQ(platform_pair_errno(ph), ENOMEM);
  EXPECT_STREQ(ph->error_text, "fork failed");
  platform_pair_close(ph);
  expect_descriptors_left(2);
}

TEST_F(ParentOpenFails, with_both_ends_left_open_after_a_failed_fork) {
  const int first = dup(0);
  const int second = dup(0);
  close(first);
  close(second);
  refuse("fork", ENOMEM);
  platform_pair_close(open_companion("echo"));
  EXPECT_EQ(write(first, "x", 1), 1);
  char byte = 0;
  EXPECT_EQ(read(second, &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
  expect_descriptors_left(2);
}

TEST_F(ParentOpenFails, without_ignoring_sigpipe) {
  const auto outcome = run_in_child([] {
    refuse("fork", ENOMEM);
    (void)!platform_pair_parent_open_lp(kName, 1, 1, kCompanion, nullptr, kCompanion, nullptr);
    printf("%d", sigpipe_ignored());
  });
  EXPECT_EQ(outcome.out, "0");
}

TEST_F(ParentOpenFails, ending_no_process_when_told_to_end_the_companion) {
  refuse("socketpair", EMFILE);
  platform_pair_handle *ph = open_companion("echo");
  const long kills = calls("kill");
  EXPECT_EQ(platform_pair_kill_child(ph), 0);
  EXPECT_EQ(calls("kill"), kills);
  platform_pair_close(ph);
}

TEST_F(ParentOpenFails, by_an_assertion_without_storage_for_the_handle) {
  const auto outcome = run_in_child([] {
    refuse("malloc", ENOMEM);
    open_companion("echo");
  });
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_THAT(outcome.err, HasSubstr("components/platform/orv_pair_connection_open.cpp"));
}

TEST_F(ArgumentList, holds_256_arguments) {
  platform_pair_handle *ph =
      platform_pair_parent_open_lp(kName, 0, 1, kCompanion, nullptr, kCompanion, "report", kName,
                                   TIMES_250("x"), "x", "x", "the 256th", nullptr);
  const std::string report = receive_all(ph);
  EXPECT_EQ(field(report, "argc"), "256");
  EXPECT_EQ(field(report, "last"), "the 256th");
  EXPECT_EQ(finish(ph), 0);
}

TEST_F(ArgumentList, refuses_a_257th_by_an_assertion) {
  const auto outcome = run_in_child([] {
    (void)!platform_pair_parent_open_lp(kName, 0, 1, kCompanion, nullptr, kCompanion, "exit", "0",
                                        TIMES_250("x"), "x", "x", "x", "x", nullptr);
  });
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_THAT(outcome.err, HasSubstr("components/platform/orv_pair_connection.cpp"));
  EXPECT_THAT(outcome.err, HasSubstr("platform_pair_parent_open_lp"));
  EXPECT_THAT(outcome.err, HasSubstr("idx < 256"));
}

TEST_F(ArgumentList, may_hold_the_program_name_only) {
  platform_pair_handle *ph =
      platform_pair_parent_open_lp(kName, 0, 1, kCompanion, nullptr, kCompanion, nullptr);
  EXPECT_EQ(finish(ph), 99);
}

TEST_F(ArgumentList, stores_a_null_first_argument_and_goes_on) {
  const char *none = nullptr;
  platform_pair_handle *ph =
      platform_pair_parent_open_lp(kName, 0, 1, kCompanion, nullptr, none, "exit", "3", nullptr);
  EXPECT_EQ(finish(ph), 99) << "the program sees the vector end at its first entry";
  const auto outcome = run_in_child([none] {
    (void)!platform_pair_parent_open_lp(kName, 0, 1, kCompanion, nullptr, none, TIMES_250("x"), "x",
                                        "x", "x", "x", "x", "x", nullptr);
  });
  EXPECT_EQ(outcome.signal, SIGABRT) << "the null counts, so 256 more are one too many";
}

TEST_F(ArgumentList, passes_the_other_arguments_on_unchanged) {
  const auto outcome = run_in_child([] {
    const int std_fds[] = {0, 1, 2};
    platform_pair_handle *ph = platform_pair_parent_open_lp(kName, 1, 0, kCompanion, std_fds,
                                                            kCompanion, "report", kName, nullptr);
    const std::string report = receive_all(ph);
    printf("%d %d %d", sigpipe_ignored(), ph->blocking,
           field(report, "fd0").rfind("/dev/null", 0) == 0);
    finish(ph);
  });
  EXPECT_EQ(outcome.out, "1 0 0");
}

} // namespace
