// On a terminal, lines are wrapped at its width and the counting shows its progress.
#include "survey_support.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::Not;

namespace {

// Runs the survey on a terminal so wide; returns everything that it wrote there.
std::string run_on_terminal(unsigned short columns, const std::vector<std::string> &arguments,
                            const Variables &variables = {}) {
  winsize size = {.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
  termios plain = {};
  plain.c_cflag = CREAD | CS8;
  int master = -1;
  const pid_t child = forkpty(&master, nullptr, &plain, &size);
  if (child == 0) {
    alarm(20);
    become_survey(arguments, variables);
  }
  std::string written;
  char piece[4096];
  for (ssize_t got; (got = read(master, piece, sizeof piece)) > 0;)
    written.append(piece, static_cast<size_t>(got));
  close(master);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0) << written;
  return written;
}

// The longest line, up to the companion's report, which is a table of its own.
size_t longest_line(const std::string &text) {
  size_t longest = 0;
  std::istringstream lines(text.substr(0, text.find("companion:")));
  for (std::string line; std::getline(lines, line);)
    if (line.find('\r') == std::string::npos)
      longest = std::max(longest, line.size());
  return longest;
}

class Terminal : public SurveyTest {
protected:
  void SetUp() override {
    SurveyTest::SetUp();
    if (!is_there())
      GTEST_SKIP() << "no pseudo-terminal can be had: is /dev/pts mounted?";
    tree.add_file(kLongName, "x y\n");
    tree.add_file("file", "x\n");
  }
  static bool is_there() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    const bool whole = master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0 &&
                       access(ptsname(master), R_OK) == 0;
    close(master);
    return whole;
  }
  static constexpr char kLongName[] =
      "a name of many words that has to be wrapped because it is far too long for one line of a "
      "terminal and even for two of them";
};

TEST_F(Terminal, wraps_names_at_its_width_under_themselves) {
  const std::string written = run_on_terminal(60, {tree.path});
  EXPECT_LE(longest_line(written), 60U) << written;
  EXPECT_GT(longest_line(written), 45U) << written;
  EXPECT_THAT(written,
              HasSubstr("\n" + std::string(19, ' ') + "words that has to be wrapped because it\n"))
      << written;
}

TEST_F(Terminal, asks_the_environment_for_a_width_it_does_not_know) {
  EXPECT_LE(longest_line(run_on_terminal(0, {tree.path}, {{"COLUMNS", "60"}})), 60U);
  const std::string unknown = run_on_terminal(0, {tree.path});
  EXPECT_LE(longest_line(unknown), 78U);
  EXPECT_GT(longest_line(unknown), 60U);
}

TEST_F(Terminal, takes_nonsense_in_the_environment_for_nothing) {
  EXPECT_LE(longest_line(run_on_terminal(0, {tree.path}, {{"COLUMNS", "wide"}})), 78U);
}

TEST_F(Terminal, leaves_the_width_to_who_asks_the_library_for_one) {
  EXPECT_GT(longest_line(run_on_terminal(60, {tree.path}, {{"ORV_MSGERR_WRAP", "100"}})), 90U);
}

TEST_F(Terminal, shows_progress) {
  const std::string written = run_on_terminal(80, {tree.path});
  EXPECT_THAT(written, HasSubstr("\rCounted 2 of 2 files (100%)\n")) << written;
  EXPECT_EQ(count_of(written, "100%"), 1U) << written;
}

TEST_F(Terminal, starts_a_warning_on_a_line_of_its_own) {
  const std::string written = run_on_terminal(80, {tree.path}, {{"SURVEY_COMPANION_DIES", "2"}});
  EXPECT_THAT(written, HasSubstr("\nWarning: The companion was ended by signal 9")) << written;
  EXPECT_THAT(written, HasSubstr("Counted 2 of 2 files (100%)\n")) << written;
  EXPECT_THAT(written, Not(testing::ContainsRegex("\n *\n"))) << written;
}

TEST_F(Terminal, is_not_taken_for_one_when_it_is_a_file) {
  const support::Outcome outcome = run_survey({tree.path}, {{"COLUMNS", "40"}});
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, Not(HasSubstr("Counted")));
  EXPECT_THAT(outcome.out, HasSubstr(tree.at(kLongName) + "\n"));
}

TEST_F(Terminal, shows_progress_when_it_is_standard_error_only) {
  int master = -1;
  int slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  const support::Outcome outcome = support::run_in_child([&] {
    dup2(slave, STDERR_FILENO);
    become_survey({tree.path});
  });
  // Read while the other end is open: what was written, or its end, may be on its way still.
  std::string written;
  char piece[4096];
  pollfd arrived = {.fd = master, .events = POLLIN, .revents = 0};
  while (written.find("100%") == std::string::npos && poll(&arrived, 1, 20000) == 1) {
    const ssize_t got = read(master, piece, sizeof piece);
    ASSERT_GT(got, 0);
    written.append(piece, static_cast<size_t>(got));
  }
  close(slave);
  close(master);
  EXPECT_THAT(written, HasSubstr("Counted 2 of 2 files"));
  EXPECT_THAT(outcome.out, HasSubstr(tree.at(kLongName) + "\n"));
  EXPECT_THAT(outcome.out, testing::StartsWith("lines"));
}

} // namespace
