// Process information of real processes: the calling one, children that wait, end or were renamed.
#include "support/child.h"
#include "support/resources.h"
#include "support/system.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A child process under a name of its own that stands still, so that its memory does not change.
class StoppedChild {
public:
  explicit StoppedChild(const char *name) : child(fork()) {
    if (child == 0) {
      prctl(PR_SET_NAME, name);
      raise(SIGSTOP);
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, WUNTRACED);
  }
  StoppedChild(const StoppedChild &) = delete;
  StoppedChild &operator=(const StoppedChild &) = delete;
  ~StoppedChild() {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  [[nodiscard]] int pid() const { return child; }

private:
  pid_t child;
};

int pid_of_no_process() {
  const pid_t child = fork();
  if (child == 0)
    _exit(0);
  waitpid(child, nullptr, 0);
  return child;
}

struct Sizes {
  uint64_t virtual_kb;
  uint64_t resident_kb;
};

// The sizes that the status line holds, whatever the name in it looks like.
Sizes sizes_of(int pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(file, line);
  std::istringstream fields(line.substr(line.rfind(')') + 1));
  std::string passed;
  for (int field = 3; field < 23; field++)
    fields >> passed;
  uint64_t bytes = 0;
  uint64_t pages = 0;
  fields >> bytes >> pages;
  return {bytes / 1024, pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024};
}

constexpr uint64_t kUntouched = 12345;

class ProcessInfo : public support::ResourceTest {
protected:
  // What a query writes into the trace.
  static std::string report_of(int pid) {
    const auto outcome = support::run_in_child([pid] {
      uint64_t virtual_kb = kUntouched;
      uint64_t resident_kb = kUntouched;
      msg_add_stream(MSG_DIAG, stdout);
      const int result = platform_process_memory(pid, &virtual_kb, &resident_kb);
      exit(result == 0 && virtual_kb == kUntouched && resident_kb == kUntouched ? 0 : 1);
    });
    EXPECT_EQ(outcome.exit_status, 0) << "it succeeded or stored something";
    return outcome.out;
  }
};

TEST_F(ProcessInfo, finds_the_calling_process) {
  EXPECT_EQ(platform_process_exists(getpid()), 1);
}

TEST_F(ProcessInfo, finds_a_process_until_it_was_waited_for) {
  const pid_t child = fork();
  if (child == 0)
    _exit(0);
  siginfo_t ended;
  waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
  EXPECT_EQ(platform_process_exists(child), 1);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(platform_process_exists(child), 0);
}

TEST_F(ProcessInfo, finds_no_process_under_zero_or_below) {
  for (const int pid : {0, -1, -getpid(), INT_MIN})
    EXPECT_EQ(platform_process_exists(pid), 0) << pid;
}

TEST_F(ProcessInfo, finds_no_process_that_it_cannot_open) {
  if (support::under_valgrind())
    GTEST_SKIP() << "valgrind keeps the limit to itself";
  const auto outcome = support::run_in_child([] {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 0;
    setrlimit(RLIMIT_NOFILE, &limit);
    _exit(platform_process_exists(getpid()));
  });
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(ProcessInfo, finds_a_process_without_standard_input) {
  const auto outcome = support::run_in_child([] {
    close(STDIN_FILENO);
    exit(platform_process_exists(getpid()) == 1 &&
                 platform_process_memory(-1, nullptr, nullptr) == 1
             ? 0
             : 3);
  });
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(ProcessInfo, does_not_report_a_process_that_does_not_exist) {
  const auto outcome = support::run_in_child(
      [] {
        msg_add_stream(MSG_DIAG, stdout);
        platform_process_exists(-1);
      },
      {{"ORV_PERROR", "1"}});
  EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST_F(ProcessInfo, tells_the_memory_of_a_process_in_kilobytes) {
  const StoppedChild child("plain");
  const Sizes sizes = sizes_of(child.pid());
  ASSERT_GT(sizes.resident_kb, 0U);
  uint64_t virtual_kb = 0;
  uint64_t resident_kb = 0;
  EXPECT_EQ(platform_process_memory(child.pid(), &virtual_kb, &resident_kb), 1);
  EXPECT_EQ(virtual_kb, sizes.virtual_kb);
  EXPECT_EQ(resident_kb, sizes.resident_kb);
}

TEST_F(ProcessInfo, stores_only_what_was_asked_for) {
  const StoppedChild child("plain");
  const Sizes sizes = sizes_of(child.pid());
  ASSERT_GT(sizes.resident_kb, 0U);
  uint64_t kilobytes = 0;
  EXPECT_EQ(platform_process_memory(child.pid(), &kilobytes, nullptr), 1);
  EXPECT_EQ(kilobytes, sizes.virtual_kb);
  EXPECT_EQ(platform_process_memory(child.pid(), nullptr, &kilobytes), 1);
  EXPECT_EQ(kilobytes, sizes.resident_kb);
}

TEST_F(ProcessInfo, reads_the_status_even_if_nothing_was_asked_for) {
  const long opened = support::calls("fopen");
  const long read = support::calls("fgets");
  EXPECT_EQ(platform_process_memory(getpid(), nullptr, nullptr), 1);
  EXPECT_EQ(support::calls("fopen"), opened + 1);
  EXPECT_EQ(support::calls("fgets"), read + 1);
  EXPECT_EQ(support::last_path_opened(), "/proc/" + std::to_string(getpid()) + "/stat");
}

TEST_F(ProcessInfo, takes_any_negative_id_for_the_calling_process) {
  for (const int pid : {-1, -5, INT_MIN}) {
    uint64_t virtual_kb = 0;
    uint64_t resident_kb = 0;
    EXPECT_EQ(platform_process_memory(pid, &virtual_kb, &resident_kb), 1);
    EXPECT_EQ(support::last_path_opened(), "/proc/" + std::to_string(getpid()) + "/stat");
    EXPECT_GT(virtual_kb, resident_kb);
    EXPECT_GT(resident_kb, 0U);
  }
}

TEST_F(ProcessInfo, reports_a_process_that_does_not_exist) {
  EXPECT_EQ(report_of(pid_of_no_process()), "Can't open pinfo file: No such file or directory\n");
  EXPECT_EQ(report_of(0), "Can't open pinfo file: No such file or directory\n");
}

TEST_F(ProcessInfo, reports_a_status_file_that_cannot_be_opened) {
  support::refuse("fopen", EACCES);
  EXPECT_EQ(report_of(getpid()), "Can't open pinfo stat file: Permission denied\n");
}

TEST_F(ProcessInfo, reports_a_status_file_that_yields_no_line) {
  support::refuse("fgets", ESRCH);
  EXPECT_EQ(report_of(getpid()), "Can't read pinfo stat file: No such process\n");
}

TEST_F(ProcessInfo, leaves_the_errno_of_the_step_that_failed_and_nothing_open) {
  support::refuse("fgets", ESRCH);
  errno = 0;
  EXPECT_EQ(platform_process_memory(-1, nullptr, nullptr), 0);
  EXPECT_EQ(errno, ESRCH);
  support::refuse("fopen", EACCES);
  EXPECT_EQ(platform_process_memory(-1, nullptr, nullptr), 0);
  EXPECT_EQ(errno, EACCES);
}

TEST_F(ProcessInfo, allocates_nothing) {
  const long allocated = support::calls("malloc");
  platform_process_exists(getpid());
  platform_process_memory(-1, nullptr, nullptr);
  EXPECT_EQ(support::calls("malloc"), allocated);
}

TEST_F(ProcessInfo, finds_no_sizes_behind_a_command_name_with_a_blank) {
  const StoppedChild child("a b");
  uint64_t virtual_kb = kUntouched;
  uint64_t resident_kb = kUntouched;
  EXPECT_EQ(platform_process_memory(child.pid(), &virtual_kb, &resident_kb), 1);
  EXPECT_EQ(virtual_kb, 0U);
  EXPECT_EQ(resident_kb, 0U);
}

TEST_F(ProcessInfo, reads_a_command_name_of_parentheses_as_any_word) {
  const StoppedChild child("()))((");
  uint64_t virtual_kb = 0;
  EXPECT_EQ(platform_process_memory(child.pid(), &virtual_kb, nullptr), 1);
  EXPECT_EQ(virtual_kb, sizes_of(child.pid()).virtual_kb);
}

TEST_F(ProcessInfo, sleeps_for_the_seconds_asked_for) {
  support::replace_sleep(nullptr);
  const long slept = support::calls("sleep");
  EXPECT_EQ(platform_sleep(7), 0U);
  EXPECT_EQ(support::calls("sleep"), slept + 1);
  EXPECT_EQ(support::last_size("sleep"), 7U);
}

TEST_F(ProcessInfo, tells_the_seconds_left_when_a_signal_ends_a_sleep) {
  const auto outcome = support::run_in_child([] {
    signal(SIGALRM, [](int) {});
    const itimerval soon = {{0, 0}, {0, 20000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    _exit(platform_sleep(1000) > 900 ? 0 : 1);
  });
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(ProcessInfo, tells_the_page_size_and_the_own_id) {
  EXPECT_EQ(platform_page_size(), sysconf(_SC_PAGESIZE));
  EXPECT_EQ(platform_getpid(), getpid());
}

} // namespace
