// The companion: what it reports, and what happens when it dies.
#include "survey_support.h"

#include <csignal>

using support::Outcome;

namespace {

constexpr size_t kFiles = 7;
constexpr char kKilled[] = "Warning: The companion was ended by signal 9 (Killed).\n";

class Companion : public SurveyTest {
protected:
  void SetUp() override {
    SurveyTest::SetUp();
    for (size_t i = 0; i < kFiles; i++)
      tree.add_file("file" + std::to_string(i), std::string(i + 1, '\n') + "a b c");
    undisturbed = read_table(run_survey({tree.path}).out);
    ASSERT_EQ(undisturbed.size(), kFiles + 1);
  }
  Outcome run_with_deaths(const std::string &deaths) {
    return run_survey({tree.path}, {{"SURVEY_COMPANION_DIES", deaths}});
  }
  // Every file is counted once, whatever became of the companions.
  void expect_undisturbed(const Outcome &outcome, size_t deaths, const std::string &what) {
    EXPECT_EQ(read_table(outcome.out), undisturbed) << what << "\n" << outcome.out;
    EXPECT_EQ(count_of(outcome.err, kKilled), deaths) << what << "\n" << outcome.err;
    EXPECT_THAT(outcome.out, testing::EndsWith(kNothingLeft)) << what;
    EXPECT_EQ(outcome.exit_status, 0) << what;
  }
  Table undisturbed;
};

TEST_F(Companion, names_what_its_opening_leaves_and_nothing_else) {
  const Outcome outcome = run_survey({tree.path});
  EXPECT_EQ(count_of(outcome.out, "ORV_STRDUP"), 3U);
  EXPECT_EQ(count_of(outcome.out, "companion:  "), 3U) << outcome.out;
  // "SURVEY_PAIR", "_HYBRID" and the two joined.
  EXPECT_THAT(
      outcome.out,
      testing::HasSubstr("companion: orv_malloc_debug_report: 39 bytes allocated, 3 pointers\n"));
  EXPECT_EQ(count_of(outcome.out, "orv_malloc_debug_report"), 2U);
}

TEST_F(Companion, may_be_killed_upon_any_request) {
  for (size_t n = 1; n <= kFiles; n++)
    expect_undisturbed(run_with_deaths(std::to_string(n)), 1, "request " + std::to_string(n));
}

TEST_F(Companion, may_be_killed_in_the_middle_of_any_answer) {
  for (size_t n = 1; n <= kFiles; n++)
    expect_undisturbed(run_with_deaths(std::to_string(n) + "~"), 1, "answer " + std::to_string(n));
}

TEST_F(Companion, may_be_killed_after_any_answer) {
  for (size_t n = 1; n <= kFiles; n++)
    expect_undisturbed(run_with_deaths(std::to_string(n) + "+"), 1, "after " + std::to_string(n));
}

TEST_F(Companion, is_not_killed_when_its_turn_never_comes) {
  expect_undisturbed(run_with_deaths(std::to_string(kFiles + 1)), 0, "too late");
}

TEST_F(Companion, may_be_killed_again_and_again) {
  expect_undisturbed(run_with_deaths("2,2~,1+,1,3~"), 5, "five times");
  expect_undisturbed(run_with_deaths(",1"), 0, "the second of one");
}

TEST_F(Companion, may_be_killed_any_number_of_times_when_answers_come_in_between) {
  std::string deaths;
  for (size_t i = 0; i < 12; i++) {
    tree.add_file("more" + std::to_string(i), "x\n");
    deaths += "1+,";
  }
  undisturbed = read_table(run_survey({tree.path}).out);
  expect_undisturbed(run_with_deaths(deaths), 12, "after one answer each");
}

TEST_F(Companion, may_be_killed_at_one_file_twice) {
  expect_undisturbed(run_with_deaths("3,1,"), 2, "twice at the third file");
}

TEST_F(Companion, is_not_sacrificed_to_one_file_for_ever) {
  const Outcome outcome = run_with_deaths("3,1~,1");
  Table expected = undisturbed;
  expected.erase(tree.at("file2"));
  expected.erase("total of 7 files");
  Table table = read_table(outcome.out);
  EXPECT_EQ(table.erase("total of 6 files"), 1U);
  EXPECT_EQ(table, expected);
  EXPECT_THAT(outcome.err, testing::HasSubstr("Warning: " + tree.at("file2") +
                                              " cannot be read: The companions that should count "
                                              "it ended.\n"));
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_THAT(outcome.out, testing::EndsWith(kNothingLeft));
}

TEST_F(Companion, is_given_up_when_none_ever_answers) {
  const Outcome outcome = run_with_deaths("1,1,1,1,1,1,1,1,1,1,1,1,1,1,1");
  EXPECT_EQ(count_of(outcome.err, kKilled), 9U);
  EXPECT_THAT(outcome.err,
              testing::HasSubstr("Error: The companions end before they answer.  Giving up.\n"));
  EXPECT_EQ(read_table(outcome.out), (Table{{"total of 0 files", {0, 0, 0}}}));
  EXPECT_THAT(outcome.out, testing::HasSubstr("Left out: 4 files that nobody counted.\n"));
  EXPECT_THAT(outcome.out, testing::EndsWith(kNothingLeft));
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Companion, cannot_be_started_by_hand) {
  const Outcome outcome = run_survey({"--companion"});
  EXPECT_EQ(outcome.err,
            "Error: --companion is not for you: survey starts its companion itself.\n");
  EXPECT_EQ(outcome.exit_status, 2);
}

TEST_F(Companion, traces_into_the_log_as_survey_does) {
  const Outcome outcome = run_survey({tree.path}, {{"ORV_DIAGNOSTICS_PATH", "stderr"}});
  EXPECT_THAT(outcome.err, testing::HasSubstr("argv[1] = \"" + tree.path + "\"\n"));
  EXPECT_THAT(outcome.err, testing::HasSubstr("7 entries listed\n"));
  EXPECT_THAT(outcome.err, testing::HasSubstr("companion started: handle intact; parent side; "));
  EXPECT_THAT(outcome.err, testing::HasSubstr("argv[0] = \"survey-companion\"\n"));
  EXPECT_EQ(count_of(outcome.err, "counts: "), kFiles);
}

TEST_F(Companion, has_a_log_of_its_own) {
  FolderTree logs;
  run_survey({tree.path}, {{"ORV_DIAGNOSTICS_PATH", logs.path}});
  const Outcome listing = support::run_in_child([&] {
    execlp("ls", "ls", logs.path.c_str(), static_cast<char *>(nullptr));
    _exit(99);
  });
  EXPECT_THAT(listing.out, testing::MatchesRegex("orv[0-9]+survey\\.log\norv[0-9]+survey-companion"
                                                 "\\.log\n"));
}

} // namespace
