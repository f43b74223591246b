// The debug operations: their grammar, their effects, their failures.
#include "launch_support.h"

#include <cstring>

using support::Outcome;

namespace {

class Operation : public support::ResourceTest {};

char *kNoArguments[] = {nullptr};

// Carries the operation out for /opt/x/prog with the arguments a and b; says so if it returns.
Outcome carry_out(const std::string &operation, const std::string &input = "") {
  return launch(
      [&] {
        CommandLine line{"/opt/x/prog", "a", "b"};
        platform_debug_op("/opt/x/prog", line.args(), operation.c_str());
        printf("sleeps %ld of %zu", support::calls("sleep"), support::last_size("sleep"));
      },
      input);
}

TEST_F(Operation, delays_30_seconds_by_default) {
  EXPECT_EQ(carry_out("delay").out, "sleeps 1 of 30");
}

TEST_F(Operation, delays_for_the_first_operand_and_ignores_the_others) {
  EXPECT_EQ(carry_out("delay 2 3 x").out, "sleeps 1 of 2");
}

TEST_F(Operation, reads_the_delay_as_a_decimal_number) {
  EXPECT_EQ(carry_out("delay 010").out, "sleeps 1 of 10");
  EXPECT_EQ(carry_out("delay 0x10").out, "sleeps 1 of 0");
  EXPECT_EQ(carry_out("delay 12days").out, "sleeps 1 of 12");
  EXPECT_EQ(carry_out("delay soon").out, "sleeps 1 of 0");
}

TEST_F(Operation, delays_not_at_all_for_a_negative_number) {
  EXPECT_EQ(carry_out("delay -5").out, "sleeps 1 of 0");
}

TEST_F(Operation, delays_as_long_as_it_can_for_a_number_too_large) {
  EXPECT_EQ(carry_out("delay 4294967297").out, "sleeps 1 of 4294967295");
  EXPECT_EQ(carry_out("delay 99999999999999999999").out, "sleeps 1 of 4294967295");
}

TEST_F(Operation, knows_its_names_in_any_letter_case) {
  EXPECT_EQ(carry_out("DeLay 1").out, "sleeps 1 of 1");
  EXPECT_EQ(carry_out("PROMPT").err, "ORV_DEBUG prompt>\n");
  EXPECT_EQ(carry_out("Using echo x").out, "x\n");
  EXPECT_EQ(carry_out("eXec /bin/echo x").out, "x\n");
}

TEST_F(Operation, splits_at_runs_of_blanks_and_tabs) {
  EXPECT_EQ(carry_out(" \t delay\t\t 4 ").out, "sleeps 1 of 4");
  EXPECT_EQ(carry_out("exec\t/bin/echo  a \t b\t").out, "a b\n");
}

TEST_F(Operation, does_not_split_at_newlines) {
  EXPECT_EQ(carry_out("prompt a\nb").err, "a\nb \n");
}

TEST_F(Operation, leaves_the_given_text_as_it_is) {
  const Outcome outcome = launch([] {
    char text[] = "delay 1 2";
    platform_debug_op("prog", kNoArguments, text);
    printf("%s", text);
  });
  EXPECT_EQ(outcome.out, "delay 1 2");
}

TEST_F(Operation, leaves_a_tokenizer_in_use_by_the_caller_alone) {
  const Outcome outcome = launch([] {
    char words[] = "one,two";
    strtok(words, ",");
    platform_debug_op("prog", kNoArguments, "delay 1 2 3");
    printf("%s", strtok(nullptr, ","));
  });
  EXPECT_EQ(outcome.out, "two");
}

TEST_F(Operation, prompts_with_the_name_of_the_variable) {
  const Outcome outcome = carry_out("prompt", "go\n");
  EXPECT_EQ(outcome.err, "ORV_DEBUG prompt>\n");
  EXPECT_EQ(outcome.out, "sleeps 0 of 0");
}

TEST_F(Operation, prompts_with_its_operands) {
  EXPECT_EQ(carry_out("prompt press  Enter").err, "press Enter \n");
}

TEST_F(Operation, takes_percent_signs_of_a_prompt_as_text) {
  EXPECT_EQ(carry_out("prompt 100%s %n").err, "100%s %n \n");
}

TEST_F(Operation, reads_one_line_after_the_prompt) {
  const Outcome outcome = launch(
      [] {
        platform_debug_op("prog", kNoArguments, "prompt");
        char rest[100] = "";
        printf("%s", fgets(rest, sizeof rest, stdin));
      },
      "first\nsecond\n");
  EXPECT_EQ(outcome.out, "second\n");
}

TEST_F(Operation, reads_at_most_254_characters_after_the_prompt) {
  const Outcome outcome = launch(
      [] {
        platform_debug_op("prog", kNoArguments, "prompt");
        char rest[100] = "";
        printf("%s", fgets(rest, sizeof rest, stdin));
      },
      times(254, "x") + "yz\n");
  EXPECT_EQ(outcome.out, "yz\n");
}

TEST_F(Operation, goes_on_when_there_is_no_reply) {
  EXPECT_EQ(carry_out("prompt", "").out, "sleeps 0 of 0");
}

TEST_F(Operation, shows_the_prompt_before_it_waits_for_the_reply) {
  for (const char *operation : {"prompt", "prompt word"}) {
    const Outcome outcome = launch([&] {
      static char area[1000];
      setvbuf(stderr, area, _IOFBF, sizeof area);
      platform_debug_op("prog", kNoArguments, operation);
      if (write(STDERR_FILENO, "later", 5) != 5)
        abort();
    });
    EXPECT_THAT(outcome.err, testing::EndsWith("\nlater")) << operation;
  }
}

TEST_F(Operation, uses_the_shell_with_the_operands_joined) {
  const Outcome outcome = carry_out("using echo \t a;   echo \"$0,$ORV_EXE,$ORV_EXE_PARMS\"");
  EXPECT_EQ(outcome.out, "a\nsh,/opt/x/prog,a b\n");
}

TEST_F(Operation, joins_the_operands_with_single_blanks) {
  EXPECT_EQ(carry_out("using echo 'a  \t  b'").out, "a b\n");
}

TEST_F(Operation, exports_the_prompt_for_a_command) {
  EXPECT_EQ(carry_out("using echo \"[$ORV_DEBUG_PROMPT]\"").out, "[debug prog]\n");
}

TEST_F(Operation, replaces_the_process_by_the_command) {
  const Outcome outcome = launch([] {
    printf("%d\n", getpid());
    fflush(stdout);
    platform_debug_op("prog", kNoArguments, "using echo $$; exit 7");
  });
  const size_t end = outcome.out.find('\n') + 1;
  EXPECT_EQ(outcome.out.substr(0, end), outcome.out.substr(end));
  EXPECT_EQ(outcome.exit_status, 7);
}

TEST_F(Operation, uses_the_users_shell_when_no_command_is_given) {
  for (const char *operation : {"using", "", " \t ", "USING  "}) {
    const Outcome outcome = launch([&] {
      setenv("SHELL", "echo \"  $0 $ORV_EXE\"", 1);
      platform_debug_op("/opt/x/prog", kNoArguments, operation);
    });
    EXPECT_EQ(outcome.out, "  sh /opt/x/prog\n") << operation;
  }
}

TEST_F(Operation, takes_a_null_request_for_an_empty_one) {
  const Outcome outcome = launch([] {
    setenv("SHELL", "echo shell", 1);
    platform_debug_op("prog", nullptr, nullptr);
  });
  EXPECT_EQ(outcome.out, "shell\n");
}

TEST_F(Operation, uses_tcsh_when_no_shell_is_set) {
  TemporaryFolder folder;
  const std::string shell = folder.path + "/tcsh";
  std::ofstream(shell) << "#!/bin/sh\necho this is tcsh\n";
  std::filesystem::permissions(shell, std::filesystem::perms::owner_all);
  for (const char *operation : {"using", ""}) {
    const Outcome outcome = launch([&] {
      setenv("PATH", folder.path.c_str(), 1);
      platform_debug_op("prog", kNoArguments, operation);
    });
    EXPECT_EQ(outcome.out, "this is tcsh\n");
  }
}

TEST_F(Operation, takes_a_shell_set_empty_as_it_is) {
  const Outcome outcome = launch([] {
    setenv("SHELL", "", 1);
    platform_debug_op("prog", kNoArguments, "using");
  });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.err, "");
}

TEST_F(Operation, executes_a_program_with_the_operands_as_its_arguments) {
  const TemporaryFolder folder;
  const std::string probe = probe_without_blanks(folder);
  const Outcome outcome = carry_out("exec " + probe + " one two");
  EXPECT_EQ(outcome.out,
            "3: [" + probe +
                "] [one] [two]\nORV_DEBUG=(unset)\n"
                "ORV_DEBUG_PROMPT=debug prog\nORV_EXE=/opt/x/prog\nORV_EXE_PARMS=a b\n");
}

TEST_F(Operation, executes_a_program_without_arguments) {
  EXPECT_EQ(carry_out("exec /bin/echo").out, "\n");
}

TEST_F(Operation, executes_without_a_shell) {
  EXPECT_EQ(carry_out("exec /bin/echo $ORV_EXE; 'x'").out, "$ORV_EXE; 'x'\n");
}

TEST_F(Operation, does_not_search_the_path_for_a_program) {
  const Outcome outcome = carry_out("exec echo x");
  EXPECT_EQ(outcome.err, "\"__ORV_DEBUG__ exec\" w/execv() call failed.\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Operation, says_that_a_program_could_not_be_executed) {
  for (const char *operation : {"exec /no/such", "EXEC /no/such", "exec"}) {
    const Outcome outcome = launch([&] {
      show_exports_at_exit();
      platform_debug_op("/opt/x/prog", kNoArguments, operation);
    });
    EXPECT_EQ(outcome.err, "\"__ORV_DEBUG__ exec\" w/execv() call failed.\n") << operation;
    EXPECT_EQ(outcome.exit_status, 1);
    EXPECT_EQ(outcome.out, "ORV_DEBUG_PROMPT=debug prog\nORV_EXE=/opt/x/prog\nORV_EXE_PARMS=\n");
  }
}

TEST_F(Operation, says_that_the_shell_could_not_be_executed) {
  if (support::under_valgrind())
    GTEST_SKIP() << "valgrind ends the process itself";
  for (const char *operation : {"using true", "USING", ""}) {
    const Outcome outcome = launch([&] {
      setenv("TOO_LARGE_FOR_ANY_PROGRAM", times(300000, "x").c_str(), 1);
      platform_debug_op("prog", kNoArguments, operation);
    });
    EXPECT_EQ(outcome.err, "\"__ORV_DEBUG__ using\" w/execl() call failed.\n");
    EXPECT_EQ(outcome.exit_status, 1);
  }
}

TEST_F(Operation, refuses_a_word_that_it_does_not_know) {
  for (const char *word : {"start", "Usin", "using2", "delays", "100%n"}) {
    const Outcome outcome = launch([&] {
      show_exports_at_exit();
      platform_debug_op("prog", kNoArguments, (std::string(word) + " operand").c_str());
    });
    EXPECT_EQ(outcome.err,
              "\"__ORV_DEBUG__ " + std::string(word) + "\" not a recognized debug op.\n");
    EXPECT_EQ(outcome.exit_status, 1);
    EXPECT_EQ(outcome.out, kNothingExported);
  }
}

TEST_F(Operation, delay_and_prompt_export_nothing) {
  for (const char *operation : {"delay 1", "prompt"}) {
    const Outcome outcome = launch([&] {
      show_exports_at_exit();
      platform_debug_op("prog", kNoArguments, operation);
    });
    EXPECT_EQ(outcome.out, kNothingExported);
  }
}

} // namespace
