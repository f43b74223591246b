// Requests too long for their areas: what just fits works, what does not is refused in words.
#include "launch_support.h"

using support::Outcome;

namespace {

class Overlong : public support::ResourceTest {};

void expect_refused(const Outcome &outcome, const std::string &word, const std::string &reason) {
  EXPECT_EQ(outcome.err, "\"__ORV_DEBUG__ " + word + "\" " + reason + ".\n");
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.out, kNothingExported);
}

// Starts a program up with these words after the marker.
Outcome start(std::vector<std::string> words) {
  return launch([&] {
    show_exports_at_exit();
    words.insert(words.begin(), {"prog", "__ORV_DEBUG__"});
    CommandLine line(words);
    platform_init_args(&line.count, line.argv());
    printf("slept %zu\n", support::last_size("sleep"));
  });
}

Outcome carry_out(const std::string &operation, std::vector<std::string> args = {}) {
  return launch([&] {
    show_exports_at_exit();
    args.insert(args.begin(), "prog");
    CommandLine line(args);
    platform_debug_op("prog", line.args(), operation.c_str());
    printf("slept %zu\n", support::last_size("sleep"));
  });
}

TEST_F(Overlong, words_after_the_marker_fit_up_to_4095_bytes) {
  const std::string start_of_it = "delay 3 ";
  const Outcome one = start({start_of_it + times(4095 - start_of_it.size(), "x")});
  EXPECT_THAT(one.out, testing::StartsWith("slept 3\n"));
  const Outcome three = start({"delay", "4", times(4095 - start_of_it.size(), "x")});
  EXPECT_THAT(three.out, testing::StartsWith("slept 4\n"));
  const Outcome empty_last = start({"delay", "5", times(4094 - start_of_it.size(), "x"), ""});
  EXPECT_THAT(empty_last.out, testing::StartsWith("slept 5\n"));
}

TEST_F(Overlong, words_after_the_marker_are_refused_from_4096_bytes_on) {
  const std::string start_of_it = "delay 3 ";
  expect_refused(start({start_of_it + times(4096 - start_of_it.size(), "x")}), "delay",
                 "operands too long");
  expect_refused(start({"delay", "3", times(4096 - start_of_it.size(), "x")}), "delay",
                 "operands too long");
  expect_refused(start({"delay", "3", times(4095 - start_of_it.size(), "x"), ""}), "delay",
                 "operands too long");
  expect_refused(start({"exec", "/bin/echo", times(100000, "x")}), "exec", "operands too long");
}

TEST_F(Overlong, a_refusal_names_the_operation_wherever_its_word_stands) {
  expect_refused(start({"", " \t", " Using\techo", times(5000, "x")}), "Using",
                 "operands too long");
  expect_refused(start({times(5000, "x")}), times(5000, "x"), "operands too long");
  expect_refused(start({times(5000, " ")}), "using", "operands too long");
}

TEST_F(Overlong, a_refusal_names_no_word_behind_the_count) {
  const Outcome outcome = launch([] {
    show_exports_at_exit();
    CommandLine line{"prog", "__ORV_DEBUG__", times(5000, " "), "unseen"};
    line.count = 3;
    platform_init_args(&line.count, line.argv());
  });
  expect_refused(outcome, "using", "operands too long");
}

TEST_F(Overlong, the_variable_may_have_any_length) {
  const Outcome outcome = launch([] {
    setenv("ORV_DEBUG", ("delay " + times(20000, " ") + "6 " + times(20000, "x")).c_str(), 1);
    CommandLine line{"prog"};
    platform_init_args(&line.count, line.argv());
    printf("slept %zu\n", support::last_size("sleep"));
  });
  EXPECT_THAT(outcome.out, testing::EndsWith("slept 6\n"));
}

TEST_F(Overlong, a_command_line_fits_up_to_1023_bytes) {
  EXPECT_EQ(carry_out("using echo " + times(1018, "x")).out, times(1018, "x") + "\n");
  EXPECT_EQ(carry_out("using  echo  " + times(100, "xxxxxxxxx  ") + times(18, "y")).out,
            times(100, "xxxxxxxxx ") + times(18, "y") + "\n");
}

TEST_F(Overlong, a_command_line_is_refused_from_1024_bytes_on) {
  expect_refused(carry_out("using echo " + times(1019, "x")), "using", "operands too long");
  expect_refused(carry_out("USING echo " + times(100, "xxxxxxxxx ") + times(19, "y")), "USING",
                 "operands too long");
  expect_refused(carry_out("using " + times(9000, "x")), "using", "operands too long");
}

TEST_F(Overlong, a_shell_fits_up_to_1023_bytes) {
  for (const char *operation : {"using", ""}) {
    const Outcome fits = launch([&] {
      setenv("SHELL", ("echo " + times(1018, "x")).c_str(), 1);
      platform_debug_op("prog", nullptr, operation);
    });
    EXPECT_EQ(fits.out, times(1018, "x") + "\n");
    const Outcome refused = launch([&] {
      show_exports_at_exit();
      setenv("SHELL", ("echo " + times(1019, "x")).c_str(), 1);
      platform_debug_op("prog", nullptr, operation);
    });
    expect_refused(refused, "using", "operands too long");
  }
}

TEST_F(Overlong, only_a_command_line_is_limited_to_1023_bytes) {
  EXPECT_EQ(carry_out("exec /bin/echo " + times(3000, "x")).out, times(3000, "x") + "\n");
  EXPECT_EQ(carry_out("prompt " + times(3000, "x")).err, times(3000, "x") + " \n");
}

TEST_F(Overlong, operands_fit_up_to_256) {
  EXPECT_EQ(carry_out("exec /bin/echo " + times(255, "x ")).out, times(254, "x ") + "x\n");
  EXPECT_EQ(carry_out("prompt " + times(256, "x ")).err, times(256, "x ") + "\n");
  EXPECT_EQ(carry_out("using echo " + times(255, "x ")).out, times(254, "x ") + "x\n");
}

TEST_F(Overlong, operands_are_refused_from_257_on) {
  for (const std::string word : {"exec", "prompt", "using", "delay"})
    expect_refused(carry_out(word + " " + times(257, "1 ")), word, "operands too long");
  expect_refused(carry_out("exec " + times(2000, "x ")), "exec", "operands too long");
}

TEST_F(Overlong, program_arguments_fit_up_to_4095_bytes) {
  const std::vector<std::string> args = {"a", times(4093, "x")};
  for (const char *operation :
       {"using echo \"$ORV_EXE_PARMS\"", "exec /usr/bin/printenv ORV_EXE_PARMS"})
    EXPECT_EQ(carry_out(operation, args).out, "a " + args[1] + "\n");
}

TEST_F(Overlong, program_arguments_are_refused_from_4096_bytes_on) {
  const std::vector<std::string> args = {"a", times(4094, "x")};
  for (const std::string word : {"using", "exec", "Exec"}) {
    expect_refused(carry_out(word + " /bin/echo x", args), word, "program arguments too long");
    expect_refused(carry_out(word, args), word, "program arguments too long");
  }
  expect_refused(carry_out("", args), "using", "program arguments too long");
}

TEST_F(Overlong, program_arguments_of_any_length_go_with_delay_and_prompt) {
  const std::vector<std::string> args = {times(100000, "x")};
  EXPECT_THAT(carry_out("delay 2", args).out, testing::StartsWith("slept 2\n"));
  EXPECT_EQ(carry_out("prompt", args).exit_status, 0);
}

TEST_F(Overlong, program_arguments_are_not_exported_in_part) {
  const Outcome outcome = launch([] {
    show_exports_at_exit();
    CommandLine fits{"prog", times(4095, "x")};
    platform_debug_export("fits", fits.args());
    CommandLine line{"prog", times(4096, "x")};
    platform_debug_export("/opt/prog", line.args());
  });
  EXPECT_EQ(outcome.out,
            "ORV_DEBUG_PROMPT=debug fits\nORV_EXE=fits\nORV_EXE_PARMS=" + times(4095, "x") + "\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(Overlong, the_prompt_holds_249_bytes_of_a_base_name) {
  const auto prompt_of = [](const std::string &name) {
    const Outcome outcome = launch([&] {
      show_exports_at_exit();
      platform_debug_export(("/opt/" + name).c_str(), nullptr);
    });
    EXPECT_THAT(outcome.out, testing::HasSubstr("ORV_EXE=/opt/" + name + "\n"));
    return outcome.out.substr(0, outcome.out.find('\n'));
  };
  EXPECT_EQ(prompt_of(times(249, "x")), "ORV_DEBUG_PROMPT=debug " + times(249, "x"));
  EXPECT_EQ(prompt_of(times(249, "x") + "y"), "ORV_DEBUG_PROMPT=debug " + times(249, "x"));
  EXPECT_EQ(prompt_of(times(9000, "x")), "ORV_DEBUG_PROMPT=debug " + times(249, "x"));
}

} // namespace
