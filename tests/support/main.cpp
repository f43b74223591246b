// The main function of the test programs. With --each-in-own-process every selected test runs in
// a forked process of its own within one start of the program: process-wide state starts fresh for
// each, and a checker that is slow to start (valgrind) starts once.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned kSecondsAllowed = 120;

std::vector<std::string> all_test_names() {
  std::vector<std::string> names;
  const auto &tests = *testing::UnitTest::GetInstance();
  for (int s = 0; s < tests.total_test_suite_count(); s++) {
    const auto &suite = *tests.GetTestSuite(s);
    for (int t = 0; t < suite.total_test_count(); t++)
      names.push_back(std::string(suite.name()) + "." + suite.GetTestInfo(t)->name());
  }
  return names;
}

bool passes_in_own_process(const std::string &name) {
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    alarm(kSecondsAllowed);
    testing::GTEST_FLAG(filter) = name;
    exit(RUN_ALL_TESTS());
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

int run_each_in_own_process() {
  int passed = 0;
  int failed = 0;
  for (const std::string &name : all_test_names()) {
    if (passes_in_own_process(name)) {
      passed++;
    } else {
      failed++;
      printf("FAILED in its own process: %s\n", name.c_str());
      if (testing::GTEST_FLAG(fail_fast))
        break;
    }
  }
  printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 && passed > 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc > 1 && strcmp(argv[1], "--each-in-own-process") == 0)
    return run_each_in_own_process();
  return RUN_ALL_TESTS();
}
