// Watching a tree: changes are told by signatures, and an interrupt ends the survey cleanly.
#include "survey_support.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::Not;

namespace {

// A survey that runs while the test changes the tree. Its two streams come through one pipe.
class RunningSurvey {
public:
  explicit RunningSurvey(const std::vector<std::string> &arguments) {
    int ends[2];
    if (pipe(ends) != 0)
      abort();
    pid = fork();
    if (pid == 0) {
      alarm(20);
      dup2(ends[1], STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      close(ends[0]);
      close(ends[1]);
      become_survey(arguments);
    }
    close(ends[1]);
    from_survey = ends[0];
  }
  RunningSurvey(const RunningSurvey &) = delete;
  RunningSurvey &operator=(const RunningSurvey &) = delete;
  ~RunningSurvey() { close(from_survey); }

  // Reads on until all of these were written; false when the survey ends before.
  bool read_until(const std::vector<std::string> &wanted) {
    const auto seen_all = [&] {
      for (const std::string &text : wanted)
        if (output.find(text) == std::string::npos)
          return false;
      return true;
    };
    while (!seen_all())
      if (!read_more())
        return false;
    return true;
  }
  // Reads the rest and returns the exit status, or -1 when a signal ended the survey.
  int end() {
    while (read_more()) {
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  pid_t pid;
  std::string output;

private:
  bool read_more() {
    char piece[4096];
    const ssize_t got = read(from_survey, piece, sizeof piece);
    if (got > 0)
      output.append(piece, static_cast<size_t>(got));
    return got > 0;
  }
  int from_survey;
};

class Watching : public SurveyTest {};

TEST_F(Watching, tells_what_changed_what_is_new_and_what_is_gone) {
  tree.add_file("kept", "k\n");
  tree.add_file("grows", "g\n");
  tree.add_file("goes", "x\n");
  RunningSurvey survey({"--watch", "1", tree.path});
  ASSERT_TRUE(survey.read_until({"total of 3 files\n"})) << survey.output;
  tree.add_file("grows", "g g\ng\n");
  tree.add_file("comes\n", "c");
  std::filesystem::remove(tree.at("goes"));
  EXPECT_TRUE(survey.read_until({"changed: " + tree.at("grows") + " (lines 2, words 3, bytes 6)\n",
                                 "new: " + tree.at("comes\\x0a") + " (lines 0, words 1, bytes 1)\n",
                                 "gone: " + tree.at("goes") + "\n"}))
      << survey.output;
  kill(survey.pid, SIGTERM);
  EXPECT_EQ(survey.end(), 0);
  EXPECT_THAT(survey.output, Not(HasSubstr(": " + tree.at("kept"))));
  EXPECT_THAT(survey.output, testing::EndsWith(kNothingLeft));
}

TEST_F(Watching, is_silent_while_nothing_changes) {
  tree.add_file("kept", "k\n");
  RunningSurvey survey({"--watch", "1", "--passes", "2", tree.path});
  EXPECT_EQ(survey.end(), 0);
  EXPECT_EQ(count_of(survey.output, "total of"), 1U);
  EXPECT_EQ(count_of(survey.output, tree.at("kept")), 1U);
  EXPECT_THAT(survey.output, testing::EndsWith(kNothingLeft));
}

TEST_F(Watching, warns_once_of_what_stays_unreadable) {
  tree.add_link("dangling", "nowhere");
  RunningSurvey survey({"--watch", "1", "--passes", "2", tree.path});
  EXPECT_EQ(survey.end(), 1);
  EXPECT_EQ(count_of(survey.output, "Warning: "), 1U) << survey.output;
}

TEST_F(Watching, counts_what_becomes_readable) {
  tree.add_link("link", "target");
  RunningSurvey survey({"--watch", "1", tree.path});
  ASSERT_TRUE(survey.read_until({"total of 0 files\n"})) << survey.output;
  tree.add_file("target", "x\n");
  EXPECT_TRUE(survey.read_until({"new: " + tree.at("link") + " ", "new: " + tree.at("target")}))
      << survey.output;
  kill(survey.pid, SIGTERM);
  EXPECT_EQ(survey.end(), 0) << survey.output;
}

TEST_F(Watching, ends_cleanly_when_interrupted) {
  tree.add_file("file", "x\n");
  for (const int signal : {SIGINT, SIGTERM}) {
    RunningSurvey survey({"--watch", "100", tree.path});
    ASSERT_TRUE(survey.read_until({"total of 1 file\n"})) << survey.output;
    kill(survey.pid, signal);
    EXPECT_EQ(survey.end(), 0) << survey.output;
    EXPECT_THAT(survey.output, HasSubstr("companion: orv_malloc_debug_report: 39 bytes"));
    EXPECT_THAT(survey.output, testing::EndsWith(kNothingLeft));
  }
}

} // namespace
