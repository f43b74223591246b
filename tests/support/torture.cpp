// What is added to the tests where calls of the library are refused from outside: an assertion of
// the library, which its headers announce, ends a process by a status of its own, and a crash of
// any process of a test is written into the report (the file that TORTURE_REPORT names). Tests may
// await the end of a child that crashed, and fail as they may here: the crash must not be lost.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kAssertion = 3;
constexpr int kCrashes[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

pid_t first_process = 0;

// The action is the default again when the handler returns and the signal comes once more.
void report_crash(int signal_number) {
  const char *path = getenv("TORTURE_REPORT");
  const int fd = path != nullptr ? open(path, O_WRONLY | O_CREAT | O_APPEND, 0666) : -1;
  const char *name = sigabbrev_np(signal_number);
  char line[32] = "SIG";
  strcat(line, name);
  strcat(line, "\n");
  if (fd < 0 || write(fd, line, strlen(line)) < 0)
    _exit(99);
  close(fd);
  raise(signal_number);
}

[[gnu::constructor]] void report_crashes() {
  if (getenv("TORTURE_REPORT") == nullptr)
    return;
  first_process = getpid();
  struct sigaction action = {};
  action.sa_handler = report_crash;
  action.sa_flags = SA_RESETHAND;
  for (const int number : kCrashes)
    sigaction(number, &action, nullptr);
}

} // namespace

extern "C" [[noreturn]] void __assert_fail(const char *expression, const char *file, unsigned line,
                                           const char *function) noexcept {
  if (getpid() == first_process)
    _exit(kAssertion);
  signal(SIGABRT, SIG_DFL);
  fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name, file,
          line, function, expression);
  abort();
}
