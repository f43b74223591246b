// What the tests of pair connections share: the companion program, and the companion's words.
#pragma once

#include "descriptors.h"
#include "support/child.h"
#include "support/resources.h"
#include "support/system.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <orv/alloc.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace pair_test {

using support::calls;
using support::refuse;
using support::ResourceTest;
using support::run_in_child;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAreArray;

constexpr const char *kCompanion = ORV_TEST_COMPANION;
constexpr const char *kName = "ORV_TEST_HAND_OVER";
constexpr const char *kSwitch = "ORV_TEST_HAND_OVER_HYBRID";
constexpr const char *kMissing = "/no/such/folder/program";

// Opens the parent's side with the companion program at `task`.
inline platform_pair_handle *open_companion(const char *task, int blocking = 1,
                                            const int *std_fds = nullptr,
                                            const char *argument = nullptr) {
  return platform_pair_parent_open_lp(kName, 0, blocking, kCompanion, std_fds, kCompanion, task,
                                      kName, argument, nullptr);
}

// Everything that comes until the other side closes.
inline std::string receive_all(platform_pair_handle *ph) {
  platform_fd_set_blocking(platform_pair_rx_fd(ph), 1);
  std::string text;
  char bytes[1024];
  for (int got; (got = platform_pair_recv(ph, bytes, sizeof bytes)) > 0;)
    text.append(bytes, static_cast<size_t>(got));
  return text;
}

// Waits until the child has ended and leaves its status to be collected.
inline void await_end(int pid) {
  siginfo_t info;
  while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) == -1 && errno == EINTR) {
  }
}

// Closes the handle, then collects the companion; its exit status, or minus the signal.
inline int finish(platform_pair_handle *ph) {
  const int pid = platform_pair_companion_pid(ph);
  platform_pair_close(ph);
  int status = -1;
  if (waitpid(pid, &status, 0) != pid)
    return -1000;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// The value of "key=value" in the companion's report.
inline std::string field(const std::string &report, const std::string &key) {
  std::istringstream lines(report);
  for (std::string line; std::getline(lines, line);)
    if (line.rfind(key + "=", 0) == 0)
      return line.substr(key.size() + 1);
  return "(no " + key + ")";
}

// The descriptors of the companion's report, in order.
inline std::vector<int> open_descriptors(const std::string &report) {
  std::istringstream list(field(report, "open"));
  std::vector<int> numbers;
  for (std::string number; std::getline(list, number, ',');)
    numbers.push_back(atoi(number.c_str()));
  return numbers;
}

// Two connected stream sockets; a number that a test has closed itself is set to -1.
struct Sockets {
  Sockets() {
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fd) != 0)
      abort();
  }
  Sockets(const Sockets &) = delete;
  Sockets &operator=(const Sockets &) = delete;
  ~Sockets() {
    close_end(0);
    close_end(1);
  }
  void close_end(int i) {
    if (fd[i] >= 0)
      close(fd[i]);
    fd[i] = -1;
  }
  int fd[2];
};

// A handle over a descriptor, without a process behind it; close it with platform_pair_close.
inline platform_pair_handle *make_handle(int fd, int side = 1, int kind = 12) {
  auto *ph = static_cast<platform_pair_handle *>(malloc(sizeof(platform_pair_handle)));
  if (ph == nullptr)
    throw std::runtime_error("no handle");
  *ph = {};
  ph->side = side;
  ph->kind = kind;
  ph->read_fd = fd;
  ph->write_fd = fd;
  ph->child_exit_status = 256;
  ph->self = ph;
  return ph;
}

// Leaves the process no room for a further descriptor while it lives; for a child of its own.
class DescriptorsExhausted {
public:
  DescriptorsExhausted() {
    const rlimit few = {256, 256};
    setrlimit(RLIMIT_NOFILE, &few);
    for (int fd; (fd = dup(2)) >= 0;)
      taken.push_back(fd);
  }
  DescriptorsExhausted(const DescriptorsExhausted &) = delete;
  DescriptorsExhausted &operator=(const DescriptorsExhausted &) = delete;
  ~DescriptorsExhausted() {
    for (const int fd : taken)
      close(fd);
  }

private:
  std::vector<int> taken;
};

// The id of a process that has existed and does no more.
inline int gone_process() {
  const pid_t pid = fork();
  if (pid == 0)
    _exit(0);
  waitpid(pid, nullptr, 0);
  return pid;
}

// A file of its own folder, removed with it.
class ScratchFile {
public:
  ScratchFile() {
    char folder[] = "/tmp/orv_pair_XXXXXX";
    directory = mkdtemp(folder);
    path = directory + "/report";
  }
  ScratchFile(const ScratchFile &) = delete;
  ScratchFile &operator=(const ScratchFile &) = delete;
  ~ScratchFile() { std::filesystem::remove_all(directory); }
  std::string contents() const {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  std::string path;

private:
  std::string directory;
};

} // namespace pair_test
