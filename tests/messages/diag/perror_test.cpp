// The report of a failed system call, in the trace and on standard output.
#include "diag_test.h"
#include "support/child.h"

#include <cerrno>
#include <cstring>

namespace {

const char kReport[] = "open: No such file or directory\n";

class Perror : public DiagTest {
protected:
  // What one report writes to standard output when the program has its say about ORV_PERROR.
  static std::string echo_with(const char *wish) {
    const auto outcome = support::run_in_child(
        [] {
          errno = ENOENT;
          diag_perror("open");
        },
        {{"ORV_PERROR", wish}});
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.exit_status, 0);
    return outcome.out;
  }

  void trace_to_file() { msg_add_stream(MSG_DIAG, fopen(path("trace").c_str(), "w")); }

  [[nodiscard]] std::string traced() const { return contents_of(path("trace")); }
};

TEST_F(Perror, traces_the_callers_word_and_the_text_of_the_error) {
  trace_to_file();
  errno = ENOENT;
  diag_perror("open");
  errno = EACCES;
  diag_perror("a word of any kind");
  EXPECT_EQ(traced(), "open: No such file or directory\na word of any kind: Permission denied\n");
}

TEST_F(Perror, reports_without_an_error_too) {
  trace_to_file();
  errno = 0;
  diag_perror("nothing");
  EXPECT_EQ(traced(), "nothing: Success\n");
}

TEST_F(Perror, knows_numbers_that_stand_for_no_error) {
  trace_to_file();
  errno = 9999;
  diag_perror("odd");
  errno = -1;
  diag_perror("odd");
  EXPECT_EQ(traced(), "odd: Unknown error 9999\nodd: Unknown error -1\n");
}

TEST_F(Perror, takes_a_word_that_is_itself_the_text_of_an_error) {
  trace_to_file();
  const char *word = strerror(9998);
  errno = 9999;
  diag_perror(word);
  EXPECT_EQ(traced(), "Unknown error 9998: Unknown error 9999\n");
}

TEST_F(Perror, shows_a_missing_word) {
  trace_to_file();
  errno = ENOENT;
  diag_perror(nullptr);
  EXPECT_EQ(traced(), "(null): No such file or directory\n");
}

TEST_F(Perror, interprets_the_word_twice_in_the_trace_and_once_in_the_echo) {
  const auto outcome = support::run_in_child(
      [this] {
        trace_to_file();
        errno = ENOENT;
        diag_perror("50%% done");
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(traced(), "50% done: No such file or directory\n");
  EXPECT_EQ(outcome.out, "50%% done: No such file or directory\n");
}

TEST_F(Perror, leaves_errno_as_it_stood) {
  trace_to_file();
  msg_set_sync(MSG_DIAG, 1);
  support::refuse("fsync", EIO);
  support::refuse("fflush", EIO);
  errno = EAGAIN;
  diag_perror("x");
  EXPECT_EQ(errno, EAGAIN);
  _msg_get_stream_desc(MSG_DIAG)->sync = 0;
}

TEST_F(Perror, leaves_errno_as_it_stood_when_the_echo_fails) {
  const auto outcome = support::run_in_child(
      [] {
        close(STDOUT_FILENO);
        errno = EAGAIN;
        diag_perror("x");
        _exit(errno == EAGAIN ? 0 : 1);
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(Perror, echoes_nothing_without_the_variable) {
  EXPECT_EQ(echo_with(nullptr), "");
  EXPECT_EQ(echo_with(""), "");
}

TEST_F(Perror, echoes_to_standard_output_whatever_the_variable_says) {
  for (const char *wish : {"1", "stdout", "2", "stderr", "0", "no", " "})
    EXPECT_EQ(echo_with(wish), kReport) << wish;
}

TEST_F(Perror, reads_the_variable_once) {
  const auto outcome = support::run_in_child([] {
    errno = ENOENT;
    diag_perror("open");
    setenv("ORV_PERROR", "1", 1);
    diag_perror("open");
  });
  EXPECT_EQ(outcome.out, "");
}

TEST_F(Perror, goes_on_echoing_when_the_variable_is_gone) {
  const auto outcome = support::run_in_child(
      [] {
        errno = ENOENT;
        diag_perror("open");
        unsetenv("ORV_PERROR");
        diag_perror("open");
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.out, std::string(kReport) + kReport);
}

TEST_F(Perror, flushes_the_echo) {
  const auto outcome = support::run_in_child(
      [] {
        errno = ENOENT;
        diag_perror("open");
        _exit(0); // what is kept back is lost
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.out, kReport);
}

TEST_F(Perror, traces_before_it_echoes) {
  const auto outcome = support::run_in_child(
      [] {
        msg_add_stream(MSG_DIAG, stdout);
        errno = ENOENT;
        diag_perror("%% open");
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.out, "% open: No such file or directory\n%% open: No such file or directory\n");
}

TEST_F(Perror, writes_a_word_of_any_length_to_the_echo) {
  const auto outcome = support::run_in_child(
      [] {
        errno = ENOENT;
        diag_perror(std::string(40000, 'w').c_str());
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.out, std::string(40000, 'w') + ": No such file or directory\n");
}

} // namespace
