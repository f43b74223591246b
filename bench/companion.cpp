// A companion process started, asked once and ended; and bytes sent through a pair connection that
// is open. The companions are contenders too, which the others run as programs.
#include "companion.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <orv/platform.h>
#include <sys/wait.h>

namespace {

using companion::kCallsAnExchange;
using companion::kSize;

constexpr const char *kVariable = "BENCH_PAIR";
constexpr int kStandardDescriptors[] = {0, 1, 2};

void reap(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || status != 0)
    bench::die("the companion");
}

// ---- by hand ----

[[noreturn]] void become_companion(int fd) {
  char number[16];
  snprintf(number, sizeof number, "%d", fd);
  execl(companion::path(), "companion", "serve-descriptor", "1", number, nullptr);
  _exit(1);
}

void start_by_hand(const bench::Job &job) {
  for (long i = 0; i < job.count; i++) {
    const bench::Ends ends = bench::open_socket_pair();
    const pid_t pid = fork();
    if (pid == 0) {
      close(ends.ours);
      become_companion(ends.theirs);
    }
    close(ends.theirs);
    companion::ask(ends.ours);
    close(ends.ours);
    reap(pid);
  }
}

void serve_descriptor(const bench::Job &job) {
  companion::serve(static_cast<int>(strtol(job.parameter, nullptr, 10)));
}

// ---- the least that the library's behaviour allows: the descriptor goes by the environment, and
// the program's path is searched ----

[[noreturn]] void become_companion_by_environment(int fd, pid_t parent) {
  char assignment[64];
  snprintf(assignment, sizeof assignment, "%s=%d %d pid-rtx_fd_l", kVariable, parent, fd);
  putenv(assignment);
  char *argv[] = {strdup("companion"), strdup("serve-environment"), strdup("1"), nullptr};
  execvp(companion::path(), argv);
  _exit(1);
}

void start_tightly(const bench::Job &job) {
  for (long i = 0; i < job.count; i++) {
    const pid_t parent = getpid();
    const bench::Ends ends = bench::open_socket_pair();
    const pid_t pid = fork();
    if (pid == 0) {
      close(ends.ours);
      become_companion_by_environment(ends.theirs, parent);
    }
    close(ends.theirs);
    companion::ask(ends.ours);
    close(ends.ours);
    reap(pid);
  }
}

void serve_environment(const bench::Job &) {
  const char *value = getenv(kVariable);
  int parent = 0;
  int fd = -1;
  if (value == nullptr || sscanf(value, "%d %d", &parent, &fd) != 2)
    bench::die(kVariable);
  companion::serve(fd);
}

// ---- the library ----

void start_through_library(const bench::Job &job) {
  for (long i = 0; i < job.count; i++) {
    platform_pair_handle *const ph =
        platform_pair_parent_open_lp(kVariable, 1, 1, companion::path(), kStandardDescriptors,
                                     "companion", "serve-orv", "1", nullptr);
    char bytes[kSize] = {};
    if (platform_pair_send(ph, bytes, kSize) != kSize ||
        platform_pair_recv(ph, bytes, kSize) != kSize)
      bench::die("the pair connection");
    const pid_t pid = platform_pair_companion_pid(ph);
    platform_pair_close(ph);
    int status = 0;
    if (platform_wait_child(pid, &status) != pid || status != 0)
      bench::die("the companion");
  }
}

void serve_through_library(const bench::Job &) {
  platform_pair_handle *const ph = platform_pair_child_open(kVariable, 0, 1);
  char bytes[kSize];
  int length;
  while ((length = platform_pair_recv(ph, bytes, kSize)) > 0)
    platform_pair_send(ph, bytes, length);
  _exit(0);
}

// ---- an open connection ----

bench::Ends ends;
platform_pair_handle *sender;
platform_pair_handle *receiver;

void open_ends(const bench::Job &) {
  ends = bench::open_socket_pair();
}

// A side of the pair in this process, from one of the ends.
platform_pair_handle *open_side(int fd) {
  char value[64];
  snprintf(value, sizeof value, "%d %d pid-rtx_fd_l", getpid(), fd);
  setenv(kVariable, value, 1);
  return platform_pair_child_open(kVariable, 0, 1);
}

void open_sides(const bench::Job &job) {
  open_ends(job);
  sender = open_side(ends.ours);
  receiver = open_side(ends.theirs);
}

void exchange_by_hand(const bench::Job &job) {
  char bytes[kSize] = {};
  for (long calls = 0; calls < job.count; calls += kCallsAnExchange)
    if (send(ends.ours, bytes, kSize, 0) != kSize || recv(ends.theirs, bytes, kSize, 0) != kSize)
      bench::die("send, recv");
}

void exchange_through_library(const bench::Job &job) {
  char bytes[kSize] = {};
  for (long calls = 0; calls < job.count; calls += kCallsAnExchange)
    if (platform_pair_send(sender, bytes, kSize) != kSize ||
        platform_pair_recv(receiver, bytes, kSize) != kSize)
      bench::die("the pair connection");
}

constexpr bench::Contender kContenders[] = {
    {"raw", nullptr, start_by_hand},
    {"floor", nullptr, start_tightly},
    {"orv", nullptr, start_through_library},
    {"serve-descriptor", nullptr, serve_descriptor},
    {"serve-environment", nullptr, serve_environment},
    {"serve-orv", nullptr, serve_through_library},
    {"raw-open", open_ends, exchange_by_hand},
    {"orv-open", open_sides, exchange_through_library},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
