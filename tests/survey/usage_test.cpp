// The command line.
#include "survey_support.h"

using support::Outcome;
using testing::HasSubstr;

namespace {

constexpr char kUsage[] =
    "       usage: survey [--totals] [--watch SECONDS [--passes NUMBER]] [--] [FOLDER]\n";

class Usage : public SurveyTest {};

void expect_refused(const std::vector<std::string> &arguments, const std::string &reason) {
  const Outcome outcome = run_survey(arguments);
  EXPECT_EQ(outcome.err, "Error: " + reason + "\n" + kUsage);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.exit_status, 2);
}

TEST_F(Usage, is_told_when_an_option_is_not_known) {
  expect_refused({"--wach"}, "There is no option \"--wach\".");
  expect_refused({"-%n\n"}, "There is no option \"-%n\\x0a\".");
}

TEST_F(Usage, is_told_when_there_are_two_folders) {
  expect_refused({".", "/tmp"}, "One folder is enough; there is also \"/tmp\".");
}

TEST_F(Usage, is_told_when_a_number_is_none) {
  for (const char *number : {"", "0", "-1", "1x", "x", "1.5", "99999999999"}) {
    expect_refused({"--watch", number}, "--watch takes a whole number from 1 on.");
    expect_refused({"--passes", number}, "--passes takes a whole number from 1 on.");
  }
  expect_refused({"--watch"}, "--watch takes a whole number from 1 on.");
  expect_refused({"--passes"}, "--passes takes a whole number from 1 on.");
}

TEST_F(Usage, is_shown_on_request) {
  const Outcome outcome = run_survey({"--help"});
  EXPECT_THAT(outcome.out, testing::StartsWith("usage: survey "));
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(Usage, needs_a_folder_that_is_there) {
  const Outcome outcome = run_survey({tree.at("no\nsuch")});
  EXPECT_EQ(outcome.err, "Error: " + tree.at("no\\x0asuch") +
                             " cannot be surveyed: No such file or directory.\n");
  EXPECT_EQ(outcome.exit_status, 2);
  EXPECT_EQ(run_survey({""}).exit_status, 2);
}

TEST_F(Usage, needs_a_folder_and_not_a_file) {
  tree.add_file("file", "x\n");
  const Outcome outcome = run_survey({tree.at("file")});
  EXPECT_EQ(outcome.err, "Error: " + tree.at("file") + " cannot be surveyed: Not a directory.\n");
  EXPECT_EQ(outcome.exit_status, 2);
}

TEST_F(Usage, takes_what_follows_two_dashes_for_a_folder) {
  tree.add_folder("--totals");
  tree.add_file("--totals/file", "x\n");
  const Outcome outcome = support::run_in_child([&] {
    if (chdir(tree.path.c_str()) == 0)
      become_survey({"--", "--totals"});
  });
  EXPECT_EQ(read_table(outcome.out).count("--totals/file"), 1U);
}

TEST_F(Usage, of_totals_leaves_the_table_out) {
  tree.add_file("file", "x\n");
  EXPECT_EQ(read_table(run_survey({"--totals", tree.path}).out),
            (Table{{"total of 1 file", {1, 1, 2}}}));
}

TEST_F(Usage, of_passes_without_watching_changes_nothing) {
  tree.add_file("file", "x\n");
  const Outcome outcome = run_survey({"--passes", "3", tree.path});
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(count_of(outcome.out, "total of"), 1U);
}

} // namespace
