// The start-up call: where a request is looked for, what is cut, what is logged.
#include "launch_support.h"

using support::Outcome;
using testing::ElementsAre;

namespace {

class StartUp : public support::ResourceTest {};

void show(const CommandLine &line) {
  for (const std::string &word : line.left())
    printf("<%s>", word.c_str());
  printf(" sleeps %ld of %zu\n", support::calls("sleep"), support::last_size("sleep"));
}

// Starts up with the command line and shows what is left of it.
Outcome start(CommandLine line, const char *request = nullptr, const std::string &input = "") {
  return launch(
      [&] {
        if (request != nullptr)
          setenv("ORV_DEBUG", request, 1);
        platform_debug_args(&line.count, line.argv(), nullptr);
        if (line.argv()[line.count] != nullptr)
          printf("the vector does not end with the count\n");
        show(line);
        const char *left = getenv("ORV_DEBUG");
        printf("ORV_DEBUG %s\n", left == nullptr ? "unset" : left);
      },
      input);
}

TEST_F(StartUp, logs_every_argument_when_nothing_is_asked) {
  const Outcome outcome = start({"prog", "a", "b c", ""});
  EXPECT_EQ(outcome.out, "argv[0] = \"prog\"\nargv[1] = \"a\"\nargv[2] = \"b c\"\nargv[3] = \"\"\n"
                         "<prog><a><b c><> sleeps 0 of 0\nORV_DEBUG unset\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(StartUp, cuts_the_command_line_at_the_marker_and_does_not_log) {
  const Outcome outcome = start({"prog", "a", "b", "__ORV_DEBUG__", "delay", "2"});
  EXPECT_EQ(outcome.out, "<prog><a><b> sleeps 1 of 2\nORV_DEBUG unset\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(StartUp, cuts_the_command_line_before_the_request_is_carried_out) {
  const Outcome outcome = launch([] {
    static CommandLine line{"prog", "a", "__ORV_DEBUG__", "delay", "2"};
    support::refuse_nothing();
    support::replace_sleep([] { show(line); });
    platform_debug_args(&line.count, line.argv(), nullptr);
  });
  EXPECT_THAT(outcome.out, testing::StartsWith("<prog><a> sleeps"));
}

TEST_F(StartUp, knows_the_marker_in_any_letter_case) {
  const Outcome outcome = start({"prog", "__orv_Debug__", "delay", "7"});
  EXPECT_EQ(outcome.out, "<prog> sleeps 1 of 7\nORV_DEBUG unset\n");
}

TEST_F(StartUp, takes_only_the_whole_word_for_the_marker) {
  const Outcome outcome = start({"prog", "__ORV_DEBUG__x", "x__ORV_DEBUG__", "_ORV_DEBUG_"});
  EXPECT_THAT(outcome.out, testing::StartsWith("argv[0]"));
  EXPECT_THAT(outcome.out, testing::HasSubstr("<_ORV_DEBUG_> sleeps 0"));
}

TEST_F(StartUp, does_not_take_the_program_itself_for_the_marker) {
  const Outcome outcome = start({"__ORV_DEBUG__", "delay", "2"});
  EXPECT_THAT(outcome.out, testing::HasSubstr("<__ORV_DEBUG__><delay><2> sleeps 0 of 0"));
}

TEST_F(StartUp, cuts_at_the_first_of_two_markers) {
  const Outcome outcome =
      start({"prog", "a", "__ORV_DEBUG__", "delay", "3", "__ORV_DEBUG__", "delay", "4"});
  EXPECT_EQ(outcome.out, "<prog><a> sleeps 1 of 3\nORV_DEBUG unset\n");
}

TEST_F(StartUp, joins_the_words_after_the_marker_with_single_blanks) {
  const Outcome outcome = start({"prog", "__ORV_DEBUG__", "prompt", "two words", "", "end"});
  EXPECT_EQ(outcome.err, "two words end \n");
  EXPECT_EQ(outcome.out, "<prog> sleeps 0 of 0\nORV_DEBUG unset\n");
}

TEST_F(StartUp, leaves_the_variable_alone_when_the_command_line_has_a_request) {
  const Outcome outcome = start({"prog", "__ORV_DEBUG__", "delay", "1"}, "delay 9");
  EXPECT_EQ(outcome.out, "<prog> sleeps 1 of 1\nORV_DEBUG delay 9\n");
}

TEST_F(StartUp, obeys_the_variable_then_logs_the_arguments) {
  const Outcome outcome = start({"prog", "a"}, "delay 5");
  EXPECT_EQ(outcome.out, "argv[0] = \"prog\"\nargv[1] = \"a\"\n<prog><a> sleeps 1 of 5\n"
                         "ORV_DEBUG \n");
}

TEST_F(StartUp, prompts_for_the_variable_and_empties_it) {
  const Outcome outcome = start({"prog"}, "prompt", "\n");
  EXPECT_EQ(outcome.err, "ORV_DEBUG prompt>\n");
  EXPECT_EQ(outcome.out, "argv[0] = \"prog\"\n<prog> sleeps 0 of 0\nORV_DEBUG \n");
}

TEST_F(StartUp, ignores_an_empty_variable) {
  const Outcome outcome = start({"prog"}, "");
  EXPECT_EQ(outcome.out, "argv[0] = \"prog\"\n<prog> sleeps 0 of 0\nORV_DEBUG \n");
  EXPECT_EQ(outcome.err, "");
}

TEST_F(StartUp, empties_the_variable_before_the_request_is_carried_out) {
  const Outcome outcome = start({"prog", "a"}, "using echo \"[${ORV_DEBUG-unset}]\"");
  EXPECT_EQ(outcome.out, "[]\n");
}

TEST_F(StartUp, hands_path_and_arguments_over_for_the_variable) {
  const Outcome outcome =
      start({"/opt/prog", "a", "b"}, "using echo \"$ORV_EXE,$ORV_EXE_PARMS,$ORV_DEBUG_PROMPT\"");
  EXPECT_EQ(outcome.out, "/opt/prog,a b,debug prog\n");
}

TEST_F(StartUp, hands_over_the_arguments_before_the_marker) {
  const Outcome outcome = start({"/opt/prog", "a", "b", "__ORV_DEBUG__", "using", "echo",
                                 "\"$ORV_EXE,$ORV_EXE_PARMS\"", ";", "echo", "end"});
  EXPECT_EQ(outcome.out, "/opt/prog,a b\nend\n");
}

TEST_F(StartUp, becomes_the_program_that_is_named_after_the_marker) {
  const Outcome outcome = start({"prog", "a", "__ORV_DEBUG__", "exec", "/bin/echo", "x  y", "z"});
  EXPECT_EQ(outcome.out, "x y z\n");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(StartUp, ends_with_status_1_for_a_request_after_the_marker_that_fails) {
  const Outcome unknown = start({"prog", "__ORV_DEBUG__", "start", "x"});
  EXPECT_EQ(unknown.err, "\"__ORV_DEBUG__ start\" not a recognized debug op.\n");
  EXPECT_EQ(unknown.exit_status, 1);
  EXPECT_EQ(unknown.out, "");
  const Outcome missing = start({"prog", "__ORV_DEBUG__", "exec", "/no/such"});
  EXPECT_EQ(missing.err, "\"__ORV_DEBUG__ exec\" w/execv() call failed.\n");
  EXPECT_EQ(missing.exit_status, 1);
  EXPECT_EQ(missing.out, "");
}

TEST_F(StartUp, starts_the_shell_for_a_variable_of_blanks_only) {
  const Outcome outcome = launch([] {
    setenv("SHELL", "echo \"[$ORV_EXE][$ORV_EXE_PARMS][$ORV_DEBUG]\"", 1);
    setenv("ORV_DEBUG", " \t", 1);
    CommandLine line{"prog", "a"};
    platform_debug_args(&line.count, line.argv(), nullptr);
  });
  EXPECT_EQ(outcome.out, "[prog][a][]\n");
}

TEST_F(StartUp, starts_the_shell_when_nothing_follows_the_marker) {
  const Outcome outcome = launch([] {
    setenv("SHELL", "echo \"[$ORV_EXE][$ORV_EXE_PARMS]\"", 1);
    CommandLine line{"prog", "__orv_debug__"};
    platform_debug_args(&line.count, line.argv(), nullptr);
  });
  EXPECT_EQ(outcome.out, "[prog][]\n");
}

TEST_F(StartUp, sees_a_marker_at_index_510) {
  std::vector<std::string> words(510, "a");
  words.front() = "prog";
  words.insert(words.end(), {"__ORV_DEBUG__", "delay", "6"});
  const Outcome outcome = start(CommandLine(words));
  EXPECT_THAT(outcome.out, testing::EndsWith("<a> sleeps 1 of 6\nORV_DEBUG unset\n"));
}

TEST_F(StartUp, does_not_see_a_marker_at_index_511) {
  std::vector<std::string> words(511, "a");
  words.front() = "prog";
  words.insert(words.end(), {"__ORV_DEBUG__", "delay", "6"});
  const Outcome outcome = start(CommandLine(words), "delay 8");
  EXPECT_THAT(outcome.out, testing::HasSubstr("argv[513] = \"6\"\n"));
  EXPECT_THAT(outcome.out, testing::EndsWith("<6> sleeps 1 of 8\nORV_DEBUG \n"));
}

TEST_F(StartUp, joins_words_beyond_the_scan_limit) {
  std::vector<std::string> words(500, "a");
  words.front() = "prog";
  words.insert(words.end(), {"__ORV_DEBUG__", "prompt"});
  std::string expected;
  for (int i = 0; i < 200; i++) {
    words.push_back(std::to_string(i));
    expected += std::to_string(i) + " ";
  }
  const Outcome outcome = start(CommandLine(words));
  EXPECT_EQ(outcome.err, expected + "\n");
}

TEST_F(StartUp, joins_words_up_to_the_count_it_was_given) {
  const Outcome outcome = launch([] {
    CommandLine line{"prog", "__ORV_DEBUG__", "prompt", "seen", "unseen"};
    line.count = 4;
    platform_debug_args(&line.count, line.argv(), nullptr);
  });
  EXPECT_EQ(outcome.err, "seen \n");
}

TEST_F(StartUp, hands_over_the_first_510_arguments_at_most) {
  std::vector<std::string> words(700, "b");
  words.front() = "prog";
  const Outcome outcome = start(CommandLine(words), "using echo \"$ORV_EXE_PARMS\"");
  EXPECT_EQ(outcome.out, times(509, "b ") + "b\n");
}

TEST_F(StartUp, bears_a_command_line_without_even_a_name) {
  const Outcome outcome = launch([] {
    int none = 0;
    char *vector[] = {nullptr};
    platform_init_args(&none, vector);
    printf("%d\n", none);
  });
  EXPECT_EQ(outcome.out, "0\n");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(StartUp, bears_a_null_name) {
  const Outcome outcome = launch([] {
    int one = 1;
    char *vector[] = {nullptr, nullptr};
    setenv("ORV_DEBUG", "using echo \"[$ORV_EXE][$ORV_EXE_PARMS][$ORV_DEBUG_PROMPT]\"", 1);
    platform_init_args(&one, vector);
  });
  EXPECT_EQ(outcome.out, "[][][debug ]\n");
}

TEST_F(StartUp, logs_a_null_name_as_an_empty_one) {
  const Outcome outcome = launch([] {
    int one = 1;
    char *vector[] = {nullptr, nullptr};
    platform_init_args(&one, vector);
  });
  EXPECT_EQ(outcome.out, "argv[0] = \"\"\n");
}

TEST_F(StartUp, bears_a_null_name_before_the_marker) {
  const Outcome outcome = launch([] {
    char marker[] = "__ORV_DEBUG__";
    char operation[] = "using echo \"[$ORV_EXE]\"";
    char *vector[] = {nullptr, marker, operation, nullptr};
    int count = 3;
    platform_init_args(&count, vector);
  });
  EXPECT_EQ(outcome.out, "[]\n");
}

TEST_F(StartUp, leaves_the_allocation_debug_mode_to_be_switched_on) {
  TemporaryFolder folder;
  for (const char *request : {"", "delay 1", "prompt"}) {
    const Outcome outcome = launch([&] {
      setenv("ORV_DIAGNOSTICS_PATH", folder.path.c_str(), 1);
      setenv("ORV_DEBUG", request, 1);
      CommandLine line{"/opt/prog", "a"};
      platform_init_args(&line.count, line.argv());
      orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
      printf("bytes %u", orv_malloc_bytes_requested());
    });
    EXPECT_THAT(outcome.out, testing::EndsWith("bytes 0")) << request;
    EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
  }
}

TEST_F(StartUp, copies_the_request_of_the_variable) {
  // The request is cut into words in a copy: setting the variable again does not reach it.
  const Outcome outcome = start({"prog"}, "delay\t 4  5");
  EXPECT_THAT(outcome.out, testing::HasSubstr("sleeps 1 of 4"));
}

TEST_F(StartUp, ends_when_the_request_cannot_be_copied) {
  const Outcome outcome = launch([] {
    setenv("ORV_DEBUG", "delay 1", 1);
    CommandLine line{"prog"};
    support::refuse("malloc", ENOMEM);
    platform_init_args(&line.count, line.argv());
  });
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_THAT(outcome.err, testing::HasSubstr("debug_launch"));
}

TEST_F(StartUp, init_args_has_no_log_name_of_its_own) {
  TemporaryFolder folder;
  launch([&] {
    setenv("ORV_DIAGNOSTICS_PATH", folder.path.c_str(), 1);
    CommandLine line{"/opt/x/veltaServe.bin"};
    platform_init_args(&line.count, line.argv());
  });
  EXPECT_THAT(folder.names(), ElementsAre(testing::MatchesRegex("orv[0-9]{12}Serve\\.log")));
}

TEST_F(StartUp, passes_the_log_name_on) {
  TemporaryFolder folder;
  launch([&] {
    setenv("ORV_DIAGNOSTICS_PATH", folder.path.c_str(), 1);
    CommandLine line{"/opt/x/veltaServe.bin"};
    platform_debug_args(&line.count, line.argv(), "mine");
  });
  EXPECT_THAT(folder.names(), ElementsAre(testing::MatchesRegex("orv[0-9]{12}mine\\.log")));
}

} // namespace
