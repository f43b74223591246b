// The destination that ORV_DIAGNOSTICS_PATH asks for, and the time-stamped log.
#include "diag_test.h"
#include "support/child.h"

#include <cerrno>
#include <ctime>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr time_t k15March2026At090405 = 1773565445;
constexpr time_t k31December2030At235958 = 1924991998;

class StampedLog : public DiagTest {
protected:
  void SetUp() override {
    setenv("TZ", "UTC0", 1);
    DiagTest::SetUp();
    support::set_time(k15March2026At090405);
  }

  static void ask_for(const std::string &wish) { setenv("ORV_DIAGNOSTICS_PATH", wish.c_str(), 1); }

  // The path that the call opens under the environment as it stands. No file is made of it.
  static std::string path_asked_for(const char *suffix) {
    support::refuse("fopen", EACCES);
    const long opened = support::calls("fopen");
    diag_open_stamped_log(suffix);
    return support::calls("fopen") == opened + 1 ? support::last_path_opened() : "none";
  }
};

TEST_F(StampedLog, was_not_attempted_at_first) {
  const auto outcome = support::run_in_child([] { _exit(diag_stamped_log_attempted()); });
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(StampedLog, counts_as_attempted_whatever_comes_of_it) {
  for (const char *wish : {static_cast<const char *>(nullptr), "", "0", "stdout", "/no/such"}) {
    const auto outcome = support::run_in_child(
        [] {
          diag_open_stamped_log("x");
          _exit(diag_stamped_log_attempted());
        },
        {{"ORV_DIAGNOSTICS_PATH", wish}, {"ORV_TMPDIR", "/no/such"}});
    EXPECT_EQ(outcome.exit_status, 1);
  }
}

TEST_F(StampedLog, is_not_attempted_by_the_other_calls) {
  const auto outcome = support::run_in_child([this] {
    diag_set_dir(folder.c_str());
    diag_printf("x\n");
    diag_perror("x");
    _exit(diag_stamped_log_attempted());
  });
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(StampedLog, stays_off_when_nothing_is_asked_for) {
  msg_add_stream(MSG_DIAG, stdout);
  setenv("ORV_TMPDIR", folder.c_str(), 1);
  EXPECT_EQ(path_asked_for("x"), "none");
  ask_for("");
  EXPECT_EQ(path_asked_for("x"), "none");
  ask_for("0");
  EXPECT_EQ(path_asked_for("x"), "none");
  EXPECT_EQ(destinations().count, 1);
  EXPECT_EQ(destinations().streams[0], stdout);
}

TEST_F(StampedLog, becomes_standard_output_on_request) {
  const long opened = support::calls("fopen");
  const long slept = support::calls("sleep");
  for (const char *word : {"1", "stdout", "STDOUT", "StdOut"}) {
    ask_for(word);
    diag_open_stamped_log("x");
    ASSERT_EQ(destinations().count, 1) << word;
    EXPECT_EQ(destinations().streams[0], stdout) << word;
    msg_clear_streams(MSG_DIAG);
  }
  EXPECT_EQ(support::calls("fopen"), opened);
  EXPECT_EQ(support::calls("sleep"), slept);
}

TEST_F(StampedLog, becomes_standard_error_on_request) {
  const long opened = support::calls("fopen");
  const long slept = support::calls("sleep");
  for (const char *word : {"2", "stderr", "STDERR", "sTDeRR"}) {
    ask_for(word);
    diag_open_stamped_log("x");
    ASSERT_EQ(destinations().count, 1) << word;
    EXPECT_EQ(destinations().streams[0], stderr) << word;
    msg_clear_streams(MSG_DIAG);
  }
  EXPECT_EQ(support::calls("fopen"), opened);
  EXPECT_EQ(support::calls("sleep"), slept);
}

TEST_F(StampedLog, takes_words_only_as_a_whole) {
  setenv("ORV_TMPDIR", "/t", 1);
  for (const char *word : {"stdout ", "std", "00", "10", "3", " 1", "stdin"}) {
    ask_for(word);
    EXPECT_EQ(path_asked_for(nullptr), "/t/orv260215090405.log") << word;
  }
}

TEST_F(StampedLog, joins_the_streams_that_are_there) {
  msg_add_stream(MSG_DIAG, stdout);
  ask_for("stderr");
  diag_open_stamped_log(nullptr);
  ask_for(folder);
  diag_open_stamped_log(nullptr);
  ASSERT_EQ(destinations().count, 3);
  EXPECT_EQ(destinations().streams[0], stdout);
  EXPECT_EQ(destinations().streams[1], stderr);
}

TEST_F(StampedLog, is_named_after_the_time_and_the_suffix) {
  ask_for(folder);
  diag_open_stamped_log("survey");
  diag_printf("started\n");
  EXPECT_THAT(files(), ElementsAre("orv260215090405survey.log"));
  EXPECT_EQ(contents_of(path("orv260215090405survey.log")), "started\n");
}

TEST_F(StampedLog, goes_to_the_directory_asked_for_rather_than_to_the_fallback) {
  for (const char *name : {"ORV_DIAG_DIR", "ORV_TMPDIR", "TMP", "TEMP"})
    setenv(name, "/other", 1);
  ask_for(folder);
  EXPECT_EQ(path_asked_for("x"), path("orv260215090405x.log"));
}

TEST_F(StampedLog, needs_no_suffix) {
  ask_for(folder);
  diag_open_stamped_log(nullptr);
  EXPECT_THAT(files(), ElementsAre("orv260215090405.log"));
}

TEST_F(StampedLog, of_december_carries_month_11) {
  support::set_time(k31December2030At235958);
  ask_for(folder);
  EXPECT_EQ(path_asked_for(""), path("orv301131235958.log"));
}

TEST_F(StampedLog, is_stamped_with_the_local_time) {
  ask_for(folder);
  setenv("TZ", "HERE-5:30", 1);
  EXPECT_EQ(path_asked_for(nullptr), path("orv260215143405.log"));
  setenv("TZ", "THERE+10", 1);
  EXPECT_EQ(path_asked_for(nullptr), path("orv260214230405.log"));
}

TEST_F(StampedLog, tells_years_of_the_last_century_below_zero) {
  support::set_time(86400);
  ask_for(folder);
  EXPECT_EQ(path_asked_for(nullptr), path("orv-300002000000.log"));
}

TEST_F(StampedLog, empties_a_file_of_that_name) {
  write_file("orv260215090405.log", "an earlier log\n");
  ask_for(folder);
  diag_open_stamped_log(nullptr);
  EXPECT_EQ(contents_of(path("orv260215090405.log")), "");
}

TEST_F(StampedLog, is_opened_one_second_after_it_was_named) {
  static long opened_while_asleep;
  const long slept = support::calls("sleep");
  const long opened = support::calls("fopen");
  support::replace_sleep([] {
    support::set_time(k31December2030At235958);
    opened_while_asleep = support::calls("fopen");
  });
  ask_for(folder);
  diag_open_stamped_log(nullptr);
  EXPECT_EQ(support::calls("sleep"), slept + 1);
  EXPECT_EQ(support::last_size("sleep"), 1U);
  EXPECT_EQ(opened_while_asleep, opened);
  EXPECT_THAT(files(), ElementsAre("orv260215090405.log"));
}

TEST_F(StampedLog, falls_back_to_the_first_variable_that_is_set) {
  ask_for(path("missing"));
  setenv("TEMP", "/third", 1);
  EXPECT_EQ(path_asked_for(nullptr), "/third/orv260215090405.log");
  setenv("TMP", "/second", 1);
  EXPECT_EQ(path_asked_for(nullptr), "/second/orv260215090405.log");
  setenv("ORV_TMPDIR", "/first", 1);
  EXPECT_EQ(path_asked_for(nullptr), "/first/orv260215090405.log");
}

TEST_F(StampedLog, falls_back_when_the_value_is_a_file) {
  write_file("file", "");
  ask_for(path("file"));
  setenv("TMP", folder.c_str(), 1);
  EXPECT_EQ(path_asked_for("-x"), path("orv260215090405-x.log"));
}

TEST_F(StampedLog, falls_back_when_the_directory_may_not_be_written) {
  chmod(folder.c_str(), 0555);
  const auto outcome = support::run_in_child(
      [this] {
        ask_for(folder);
        become_nobody();
        puts(path_asked_for(nullptr).c_str());
      },
      {{"TMP", "/fallback"}});
  EXPECT_EQ(outcome.out, "/fallback/orv260215090405.log\n");
}

TEST_F(StampedLog, falls_back_to_the_root_directory_at_last) {
  ask_for(path("missing"));
  EXPECT_EQ(path_asked_for("x"), "/orv260215090405x.log");
}

TEST_F(StampedLog, goes_to_the_root_directory_when_the_fallback_is_set_to_nothing) {
  ask_for(path("missing"));
  setenv("ORV_TMPDIR", "", 1);
  setenv("TMP", folder.c_str(), 1);
  EXPECT_EQ(path_asked_for("x"), "/orv260215090405x.log");
}

TEST_F(StampedLog, does_not_use_the_stored_directory) {
  diag_set_dir(folder.c_str());
  ask_for(path("missing"));
  EXPECT_EQ(path_asked_for(nullptr), "/orv260215090405.log");
}

TEST_F(StampedLog, does_not_test_the_fallback) {
  const long slept = support::calls("sleep");
  ask_for(path("missing"));
  setenv("TMP", path("missing too").c_str(), 1);
  diag_open_stamped_log(nullptr);
  EXPECT_EQ(support::last_path_opened(), path("missing too/orv260215090405.log"));
  EXPECT_EQ(support::calls("sleep"), slept + 1);
  EXPECT_EQ(destinations().count, 0);
}

TEST_F(StampedLog, leaves_tracing_as_it_was_silently_when_it_cannot_be_opened) {
  const auto outcome = support::run_in_child(
      [] {
        msg_add_stream(MSG_DIAG, stdout);
        diag_open_stamped_log(nullptr);
        diag_printf("still here\n");
      },
      {{"ORV_DIAGNOSTICS_PATH", "/no/such"}, {"ORV_TMPDIR", "/no/such"}});
  EXPECT_EQ(outcome.out, "still here\n");
  EXPECT_EQ(outcome.err, "");
}

TEST_F(StampedLog, is_opened_under_the_longest_path) {
  ask_for(stretched(folder, 4095 - strlen("/orv260215090405x.log")));
  diag_open_stamped_log("x");
  EXPECT_EQ(destinations().count, 1);
  EXPECT_THAT(files(), ElementsAre("orv260215090405x.log"));
}

TEST_F(StampedLog, is_refused_under_a_longer_path) {
  const long slept = support::calls("sleep");
  ask_for(stretched(folder, 4095 - strlen("/orv260215090405.log")));
  EXPECT_EQ(path_asked_for("x"), "none");
  ask_for(folder);
  EXPECT_EQ(path_asked_for(std::string(100000, 'x').c_str()), "none");
  ask_for(stretched(folder, 100000));
  setenv("TMP", stretched(folder, 100000).c_str(), 1);
  EXPECT_EQ(path_asked_for(nullptr), "none");
  EXPECT_EQ(support::calls("sleep"), slept);
}

TEST_F(StampedLog, falls_back_from_a_directory_that_is_too_long_to_exist) {
  ask_for(stretched(folder, 100000));
  setenv("TMP", folder.c_str(), 1);
  EXPECT_EQ(path_asked_for(nullptr), path("orv260215090405.log"));
}

TEST_F(StampedLog, is_closed_again_when_the_list_has_no_room_for_it) {
  const auto outcome = support::run_in_child([this] {
    for (int i = 0; i < 5; i++)
      msg_add_stream(MSG_DIAG, stdout);
    const int lowest_free = dup(0);
    close(lowest_free);
    support::refuse("realloc", ENOMEM);
    ask_for(folder);
    diag_open_stamped_log(nullptr);
    const int still_free = dup(0);
    _exit(destinations().count == 5 && still_free == lowest_free ? 0 : 1);
  });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.err, "Warning: Couldn't allocate more storage for stream array.  Not adding "
                         "stream.\n");
}

} // namespace
