// A real program that starts through platform_init_args.
#include "launch_support.h"

#include <unistd.h>

using support::Outcome;

namespace {

class Program : public support::ResourceTest {};

Outcome run(std::vector<std::string> words, const char *request = nullptr,
            const std::string &input = "") {
  words.insert(words.begin(), LAUNCH_PROBE);
  return support::run_in_child(
      [&] {
        if (request != nullptr)
          setenv("ORV_DEBUG", request, 1);
        CommandLine line(words);
        execv(LAUNCH_PROBE, line.argv());
        _exit(99);
      },
      kNoRequest, input);
}

TEST_F(Program, starts_undisturbed_without_a_request) {
  EXPECT_EQ(run({"a", "b"}).out, "3: [" LAUNCH_PROBE "] [a] [b]\nORV_DEBUG=(unset)\n"
                                 "ORV_DEBUG_PROMPT=(unset)\nORV_EXE=(unset)\n"
                                 "ORV_EXE_PARMS=(unset)\n");
}

TEST_F(Program, goes_on_with_its_own_arguments_after_a_delay) {
  EXPECT_EQ(run({"a", "__ORV_DEBUG__", "delay", "0"}).out,
            "2: [" LAUNCH_PROBE "] [a]\nORV_DEBUG=(unset)\nORV_DEBUG_PROMPT=(unset)\n"
            "ORV_EXE=(unset)\nORV_EXE_PARMS=(unset)\n");
}

TEST_F(Program, waits_for_a_line_on_request) {
  const Outcome outcome = run({}, "prompt", "go\n");
  EXPECT_EQ(outcome.err, "ORV_DEBUG prompt>\n");
  EXPECT_EQ(outcome.out, "1: [" LAUNCH_PROBE "]\nORV_DEBUG=\nORV_DEBUG_PROMPT=(unset)\n"
                         "ORV_EXE=(unset)\nORV_EXE_PARMS=(unset)\n");
}

TEST_F(Program, starts_again_under_a_command) {
  EXPECT_EQ(run({"a", "b", "__ORV_DEBUG__", "using", "\"$ORV_EXE\" $ORV_EXE_PARMS c"}).out,
            "4: [" LAUNCH_PROBE "] [a] [b] [c]\nORV_DEBUG=(unset)\n"
            "ORV_DEBUG_PROMPT=debug launch_probe\nORV_EXE=" LAUNCH_PROBE "\nORV_EXE_PARMS=a b\n");
}

TEST_F(Program, does_not_start_itself_over_and_over) {
  const TemporaryFolder folder;
  const std::string probe = probe_without_blanks(folder);
  EXPECT_EQ(run({"a"}, ("exec " + probe + " again").c_str()).out,
            "2: [" + probe +
                "] [again]\nORV_DEBUG=\nORV_DEBUG_PROMPT=debug launch_probe\n"
                "ORV_EXE=" LAUNCH_PROBE "\nORV_EXE_PARMS=a\n");
}

TEST_F(Program, ends_with_status_1_for_a_request_it_does_not_know) {
  const Outcome outcome = run({}, "start");
  EXPECT_EQ(outcome.err, "\"__ORV_DEBUG__ start\" not a recognized debug op.\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Program, ends_with_status_1_for_a_program_that_is_not_there) {
  const Outcome outcome = run({}, "exec /no/such");
  EXPECT_EQ(outcome.err, "\"__ORV_DEBUG__ exec\" w/execv() call failed.\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Program, becomes_the_users_shell_for_the_marker_alone) {
  const Outcome outcome = support::run_in_child(
      [] {
        setenv("SHELL", "cat; echo \"$ORV_EXE,$ORV_EXE_PARMS\"", 1);
        CommandLine line{LAUNCH_PROBE, "__ORV_DEBUG__"};
        execv(LAUNCH_PROBE, line.argv());
        _exit(99);
      },
      kNoRequest, "typed\n");
  EXPECT_EQ(outcome.out, "typed\n" LAUNCH_PROBE ",\n");
}

} // namespace
