// The survey under a debugger, as the start-up call brings it up.
#include "survey_support.h"

#include <unistd.h>

using support::Outcome;
using testing::HasSubstr;

namespace {

// A leak checker cannot look at a program that is being debugged.
const std::pair<std::string, std::string> kNoLeakCheck = {"ASAN_OPTIONS", "detect_leaks=0"};

class Debugger : public SurveyTest {
protected:
  // True when there is one that may do its work here.
  bool is_there() {
    const Outcome outcome = support::run_in_child([] {
      execlp("gdb", "gdb", "-nx", "-batch", "-ex", "run", "--args", "/bin/true",
             static_cast<char *>(nullptr));
      _exit(99);
    });
    return outcome.out.find("exited normally") != std::string::npos;
  }
};

TEST_F(Debugger, runs_the_survey_with_its_arguments) {
  if (!is_there())
    GTEST_SKIP() << "there is no gdb that can run a program here";
  tree.add_file("file", "one two\n");
  const Outcome outcome =
      run_survey({"--totals", tree.path, "__ORV_DEBUG__", "using",
                  "gdb -nx -batch -ex 'break platform_args_hook' -ex run -ex continue --args "
                  "\"$ORV_EXE\" $ORV_EXE_PARMS"},
                 {kNoLeakCheck});
  EXPECT_THAT(outcome.out, HasSubstr("Breakpoint 1, "));
  EXPECT_THAT(outcome.out, HasSubstr("    1     2     8  total of 1 file\n"));
  EXPECT_THAT(outcome.out, HasSubstr("orv_malloc_debug_report: No storage was allocated\n"));
  EXPECT_THAT(outcome.out, HasSubstr("exited normally"));
  EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
}

TEST_F(Debugger, is_asked_for_in_the_environment_too) {
  if (!is_there())
    GTEST_SKIP() << "there is no gdb that can run a program here";
  const Outcome outcome =
      run_survey({tree.path},
                 {{"ORV_DEBUG", "using gdb -nx -batch -ex run --args \"$ORV_EXE\" $ORV_EXE_PARMS"},
                  kNoLeakCheck});
  EXPECT_THAT(outcome.out, HasSubstr("total of 0 files\n"));
  EXPECT_THAT(outcome.out, HasSubstr("exited normally"));
}

} // namespace
