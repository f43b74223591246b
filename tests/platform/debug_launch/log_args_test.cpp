// Logging the arguments: the name of the log, when it is opened, what is written.
#include "launch_support.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

class LogArguments : public support::ResourceTest {
protected:
  // The part of the log's name between the stamp and the extension.
  std::string log_suffix(const std::string &program, const char *log_name = nullptr) {
    TemporaryFolder folder;
    const auto outcome = support::run_in_child(
        [&] {
          support::refuse("sleep", 0);
          setenv("ORV_DIAGNOSTICS_PATH", folder.path.c_str(), 1);
          CommandLine line{program};
          platform_log_args(&line.count, line.argv(), log_name);
        },
        kNoRequest);
    EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
    const auto names = folder.names();
    EXPECT_THAT(names, ElementsAre(MatchesRegex("orv[0-9]{12}.*\\.log")));
    return names.size() == 1 ? names[0].substr(15, names[0].size() - 19) : "";
  }
};

TEST_F(LogArguments, names_the_log_after_the_program) {
  EXPECT_EQ(log_suffix("/opt/x/tool"), "tool");
  EXPECT_EQ(log_suffix("tool.bin"), "tool");
  EXPECT_EQ(log_suffix("a.tar.gz"), "a.tar");
  EXPECT_EQ(log_suffix("/opt/.profile"), ".profile");
}

TEST_F(LogArguments, strips_a_product_prefix) {
  EXPECT_EQ(log_suffix("/opt/x/veltaServe.bin"), "Serve");
  EXPECT_EQ(log_suffix("ORVtool"), "tool");
  EXPECT_EQ(log_suffix("zo_view"), "view");
  EXPECT_EQ(log_suffix("Zo_View"), "View");
  EXPECT_EQ(log_suffix("VELTAx"), "x");
}

TEST_F(LogArguments, strips_one_prefix_only) {
  EXPECT_EQ(log_suffix("veltaorvx"), "orvx");
  EXPECT_EQ(log_suffix("orvvelta"), "velta");
  EXPECT_EQ(log_suffix("orvorvx"), "orvx");
  EXPECT_EQ(log_suffix("zo_zo_x"), "zo_x");
}

TEST_F(LogArguments, strips_a_prefix_at_the_start_only) {
  EXPECT_EQ(log_suffix("myorvtool"), "myorvtool");
  EXPECT_EQ(log_suffix("zoview"), "zoview");
  EXPECT_EQ(log_suffix("velt"), "velt");
}

TEST_F(LogArguments, strips_a_prefix_that_is_the_whole_name) {
  EXPECT_EQ(log_suffix("orv"), "");
  EXPECT_EQ(log_suffix("velta.exe"), "");
}

TEST_F(LogArguments, names_the_log_after_nothing_when_no_argument_is_counted) {
  TemporaryFolder folder;
  const auto outcome = support::run_in_child(
      [&] {
        support::refuse("sleep", 0);
        setenv("ORV_DIAGNOSTICS_PATH", folder.path.c_str(), 1);
        CommandLine line{"tool"};
        line.count = 0;
        platform_log_args(&line.count, line.argv(), nullptr);
      },
      kNoRequest);
  EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
  EXPECT_THAT(folder.names(), ElementsAre(MatchesRegex("orv[0-9]{12}\\.log")));
}

TEST_F(LogArguments, takes_a_given_name_as_it_is) {
  EXPECT_EQ(log_suffix("/opt/x/tool", "orvMine.x"), "orvMine.x");
  EXPECT_EQ(log_suffix("/opt/x/tool", ""), "");
}

TEST_F(LogArguments, writes_the_arguments_into_the_log) {
  TemporaryFolder folder;
  support::run_in_child(
      [&] {
        support::refuse("sleep", 0);
        setenv("ORV_DIAGNOSTICS_PATH", folder.path.c_str(), 1);
        CommandLine line{"tool", "a \"b\"", "c"};
        platform_log_args(&line.count, line.argv(), nullptr);
      },
      kNoRequest);
  const auto names = folder.names();
  ASSERT_EQ(names.size(), 1U);
  std::ifstream log(folder.path + "/" + names[0]);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(log), {}),
            "argv[0] = \"tool\"\nargv[1] = \"a \"b\"\"\nargv[2] = \"c\"\n");
}

TEST_F(LogArguments, attempts_the_log_once_a_process) {
  TemporaryFolder folder;
  const auto outcome = launch([&] {
    CommandLine line{"tool"};
    platform_log_args(&line.count, line.argv(), "first");
    printf("%d\n", diag_stamped_log_attempted());
    setenv("ORV_DIAGNOSTICS_PATH", folder.path.c_str(), 1);
    platform_log_args(&line.count, line.argv(), "second");
  });
  EXPECT_EQ(outcome.out, "argv[0] = \"tool\"\n1\nargv[0] = \"tool\"\n");
  EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(LogArguments, does_not_open_a_log_that_somebody_else_attempted) {
  TemporaryFolder folder;
  launch([&] {
    diag_open_stamped_log("theirs");
    setenv("ORV_DIAGNOSTICS_PATH", folder.path.c_str(), 1);
    CommandLine line{"tool"};
    platform_log_args(&line.count, line.argv(), nullptr);
  });
  EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(LogArguments, writes_as_many_arguments_as_are_counted) {
  const auto outcome = launch([] {
    CommandLine line{"tool", "a", "b"};
    line.count = 2;
    platform_log_args(&line.count, line.argv(), nullptr);
  });
  EXPECT_EQ(outcome.out, "argv[0] = \"tool\"\nargv[1] = \"a\"\n");
}

TEST_F(LogArguments, writes_percent_signs_that_would_ask_for_more_than_was_passed) {
  const auto outcome = launch([] {
    CommandLine line{"tool", "100%", "%s%n %5$d", "%"};
    platform_log_args(&line.count, line.argv(), nullptr);
  });
  EXPECT_EQ(outcome.out, "argv[0] = \"tool\"\nargv[1] = \"100%\"\nargv[2] = \"%s%n %5$d\"\n"
                         "argv[3] = \"%\"\n");
}

TEST_F(LogArguments, leaves_pairs_of_percent_signs_to_the_second_interpretation) {
  const auto outcome = launch([] {
    CommandLine line{"tool", "a%%b", "%%%", "%%%%n"};
    platform_log_args(&line.count, line.argv(), nullptr);
  });
  EXPECT_EQ(outcome.out, "argv[0] = \"tool\"\nargv[1] = \"a%b\"\nargv[2] = \"%%\"\n"
                         "argv[3] = \"%%n\"\n");
}

TEST_F(LogArguments, cuts_an_argument_longer_than_a_trace_line) {
  for (const char *piece : {"x", "%"}) {
    const auto outcome = launch([&] {
      CommandLine line{"tool", times(200000, piece)};
      platform_log_args(&line.count, line.argv(), nullptr);
    });
    EXPECT_EQ(outcome.exit_status, 0);
    EXPECT_THAT(outcome.out,
                testing::StartsWith("argv[0] = \"tool\"\nargv[1] = \"" + times(8000, piece)));
    EXPECT_LT(outcome.out.size(), 16500U);
  }
}

TEST_F(LogArguments, writes_nothing_when_nobody_traces) {
  const auto outcome = support::run_in_child(
      [] {
        CommandLine line{"tool", "a"};
        platform_log_args(&line.count, line.argv(), nullptr);
      },
      kNoRequest);
  EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST_F(LogArguments, bears_a_path_longer_than_any_file_has) {
  const auto outcome = launch([] {
    CommandLine line{times(5000, "x") + ".y"};
    platform_log_args(&line.count, line.argv(), nullptr);
  });
  EXPECT_EQ(outcome.out, "argv[0] = \"" + times(5000, "x") + ".y\"\n");
}

TEST_F(LogArguments, bears_a_name_that_fills_its_area_to_the_last_byte) {
  // Some of these lengths are as large as a block of the system's allocator, which notices.
  for (size_t length = 5000; length < 5016; length++) {
    const auto outcome = launch([&] {
      CommandLine line{times(length, "x")};
      platform_log_args(&line.count, line.argv(), nullptr);
    });
    EXPECT_EQ(outcome.out, "argv[0] = \"" + times(length, "x") + "\"\n");
    EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
  }
}

TEST_F(LogArguments, names_the_log_of_a_very_long_path) {
  EXPECT_EQ(log_suffix("/" + times(3000, "x/") + "orvdeep.bin"), "deep");
}

TEST_F(LogArguments, opens_a_log_without_a_name_when_storage_is_refused) {
  TemporaryFolder folder;
  support::run_in_child(
      [&] {
        support::refuse("sleep", 0);
        setenv("ORV_DIAGNOSTICS_PATH", folder.path.c_str(), 1);
        CommandLine line{"tool"};
        msg_has_print_streams();
        support::refuse("malloc", ENOMEM, 0, 1);
        platform_log_args(&line.count, line.argv(), nullptr);
      },
      kNoRequest);
  EXPECT_THAT(folder.names(), ElementsAre(MatchesRegex("orv[0-9]{12}\\.log")));
}

TEST_F(LogArguments, has_a_hook_that_does_nothing) {
  const auto outcome = launch([] { platform_args_hook(); });
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
}

} // namespace
