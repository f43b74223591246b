// The child-process calls: starting a program, waiting for it, ending it, the shared descriptor on
// the null device, and a descriptor's blocking mode.
#include "common/assertion.h"
#include "common/guards.h"
#include "platform/orv_pair_connection.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <orv/diag.h>
#include <orv/platform.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace orv;
using orv::pair::kStandardDescriptors;

namespace {

constexpr int kListEntries = 8192;

struct NullDevice {
  FILE *stream;   // what the descriptor was opened from, null while nobody holds it
  int fd;         // -1 while nobody holds it
  int references; // how many acquired it and have not released it
};

constinit NullDevice null_device = {.stream = nullptr, .fd = -1, .references = 0};

void take_standard_descriptors(const int *std_fds) {
  for (int i = 0; i < kStandardDescriptors; i++)
    if (std_fds[i] >= 0)
      dup2(std_fds[i], i);
}

// The vector has kListEntries entries; the null that ends the list takes one of them.
void gather_list(char **vector, const char *arg0, va_list *rest) {
  int idx = 0;
  for (auto *arg = const_cast<char *>(arg0); arg != nullptr; arg = va_arg(*rest, char *)) {
    vector[idx++] = arg;
    assert(idx < 8192);
  }
  vector[idx] = nullptr;
}

// To the system these two ids mean everyone in the caller's group, and everyone at all. They are
// what a handle without a companion and a failed spawn hold, and name no child.
bool names_no_child(int pid) {
  return pid == 0 || pid == -1;
}

} // namespace

int platform_spawn_fds(const char *program, char *const *argv, const int *std_fds) {
  const pid_t pid = fork();
  if (pid != 0)
    return pid;
  if (std_fds != nullptr)
    take_standard_descriptors(std_fds);
  execvp(program, argv);
  // Kept: a child whose program cannot be run comes back with 0 instead of ending; whoever called
  // decides how it ends.
  return 0;
}

int platform_spawn(const char *program, char *const *argv) {
  return platform_spawn_fds(program, argv, nullptr);
}

int platform_spawn_list_quiet(const char *program, const char *arg0, ...) {
  char *argv[kListEntries];
  va_list rest;
  va_start(rest, arg0);
  gather_list(argv, arg0, &rest);
  va_end(rest);
  const int fd = platform_null_fd_acquire();
  const int std_fds[kStandardDescriptors] = {fd, fd, fd};
  const int pid = platform_spawn_fds(program, argv, std_fds);
  const ErrnoGuard keep;
  platform_null_fd_release(fd);
  return pid;
}

int platform_spawn_list(const char *program, const char *arg0, ...) {
  char *argv[kListEntries];
  va_list rest;
  va_start(rest, arg0);
  gather_list(argv, arg0, &rest);
  va_end(rest);
  return platform_spawn(program, argv);
}

int platform_wait_child(int pid, int *status) {
  for (;;) {
    const pid_t waited = waitpid(pid, status, 0);
    if (waited != -1)
      return waited;
    const int error = errno;
    // Kept: the report adds a colon of its own, so the line carries two.
    diag_perror("waitpid: ");
    errno = error;
    if (error != EAGAIN && error != EINTR)
      return -1;
    errno = 0;
  }
}

int platform_child_status(int pid, int *exit_status, int *term_signal) {
  if (exit_status != nullptr)
    *exit_status = 0;
  if (term_signal != nullptr)
    *term_signal = 0;
  int status = 0;
  const pid_t waited = waitpid(pid, &status, WNOHANG);
  if (waited != pid)
    return waited;
  if (exit_status != nullptr && WIFEXITED(status))
    *exit_status = WEXITSTATUS(status);
  if (term_signal != nullptr && WIFSIGNALED(status))
    *term_signal = WTERMSIG(status);
  return waited;
}

int platform_kill_and_wait(int pid) {
  if (names_no_child(pid)) {
    errno = ESRCH;
    return 0;
  }
  // Kept: only a SIGTERM that cannot be sent brings the SIGKILL, so a child that ignores SIGTERM
  // is waited for as long as it runs.
  if (kill(pid, SIGTERM) == -1 && kill(pid, SIGKILL) == -1)
    return 0;
  int status = 0;
  platform_wait_child(pid, &status);
  return 1;
}

int platform_kill_and_wait_child(int pid) {
  return platform_kill_and_wait(pid);
}

int platform_null_fd_acquire(void) {
  if (null_device.references > 0) {
    null_device.references++;
    return null_device.fd;
  }
  null_device.stream = fopen("/dev/null", "r+");
  if (null_device.stream == nullptr)
    return -1;
  null_device.fd = fileno(null_device.stream);
  null_device.references = 1;
  return null_device.fd;
}

int platform_null_fd_release(int fd) {
  if (null_device.stream == nullptr || fd != null_device.fd)
    return null_device.references;
  if (--null_device.references == 0) {
    fclose(null_device.stream);
    null_device = {.stream = nullptr, .fd = -1, .references = 0};
  }
  return null_device.references;
}

int platform_fd_is_blocking(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  return flags != -1 && (flags & O_NONBLOCK) == 0;
}

int platform_fd_set_blocking(int fd, int blocking) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags == -1)
    return -1;
  return fcntl(fd, F_SETFL, blocking != 0 ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}
