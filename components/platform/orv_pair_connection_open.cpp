// Opening the two sides of a pair connection: the parent creates a socket pair and starts the
// companion with one end of it; the companion finds that end, or its parent's TCP port, through the
// hand-over variable.
#include "common/assertion.h"
#include "platform/orv_pair_connection.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/platform.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace orv;
using orv::pair::kStandardDescriptors;

namespace {

constexpr int kForkAttempts = 31;
constexpr int kStatusNotCollected = 256;
constexpr int kMalformedValue = -1;

struct Marker {
  const char *text;
  int kind;
  int hybrid;
};

// Sought in this order, anywhere in the value: the last is the beginning of the other two.
constexpr Marker kMarkers[] = {
    {"pid-rtx_fd_l", pair::kSocketPair, 0},
    {"pid-rtx_fd_w", pair::kHybridMarker, 1},
    {"pid-rtx_fd", pair::kPlainMarker, 0},
};
static_assert(sizeof kMarkers / sizeof *kMarkers == 3);

constexpr int kIgnoredByCompanion[] = {SIGHUP, SIGINT, SIGQUIT, SIGABRT, SIGPIPE, SIGTERM, SIGURG};

// What the child between fork and exec makes the companion from.
struct Launch {
  const char *name;
  int blocking;
  const char *file;
  const int *std_fds;
  char *const *argv;
  int parent_pid;
  int parent_end;
  int companion_end;
};

// The two numbers of a hand-over value; the second is a descriptor or a port.
struct HandOver {
  int pid;
  int number;
};

platform_pair_handle *new_handle(int side, int kind, int hybrid, int blocking) {
  void *block = malloc(sizeof(platform_pair_handle));
  assert(block != nullptr);
  auto *ph = static_cast<platform_pair_handle *>(block);
  *ph = {.companion_pid = 0,
         .side = side,
         .kind = kind,
         .hybrid = hybrid,
         .blocking = blocking,
         .read_fd = -1,
         .write_fd = -1,
         .child_exit_status = kStatusNotCollected,
         .term_signal = 0,
         .saved_errno = 0,
         .error_text = nullptr,
         .self = ph};
  return ph;
}

platform_pair_handle *failed(platform_pair_handle *ph, const char *step) {
  ph->saved_errno = errno;
  ph->error_text = step;
  return ph;
}

void ignore_signal(int signal_number) {
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  sigaction(signal_number, &ignore, nullptr);
}

// A parent without standard descriptors would get an end numbered 0, 1 or 2, and the companion's
// standard descriptors would replace it.
bool lift_above_standard(int &fd) {
  if (fd >= kStandardDescriptors)
    return true;
  const int lifted = fcntl(fd, F_DUPFD, kStandardDescriptors);
  if (lifted < 0)
    return false;
  close(fd);
  fd = lifted;
  return true;
}

bool create_ends(int ends[2]) {
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
    return false;
  if (lift_above_standard(ends[0]) && lift_above_standard(ends[1]))
    return true;
  const int error = errno;
  close(ends[0]);
  close(ends[1]);
  errno = error;
  return false;
}

pid_t fork_patiently() {
  pid_t pid = fork();
  for (int made = 1; pid < 0 && errno == EAGAIN && made < kForkAttempts; made++)
    pid = fork();
  return pid;
}

void take_over(const int *std_fds) {
  for (int i = 0; i < kStandardDescriptors; i++) {
    if (std_fds[i] == i)
      continue;
    dup2(std_fds[i], i);
    // Kept: closed at once, so a descriptor that stands for two of them serves the first only.
    close(std_fds[i]);
  }
}

void duplicate(FILE *stream, int fd) {
  if (stream != nullptr)
    dup2(fileno(stream), fd);
}

// A stream that was opened as a standard descriptor is what the companion is to have there.
void close_beyond_standard(FILE *stream) {
  if (stream != nullptr && fileno(stream) >= kStandardDescriptors)
    fclose(stream);
}

void take_null_device() {
  FILE *source = fopen("/dev/null", "r");
  FILE *sink = fopen("/dev/null", "w");
  duplicate(source, STDIN_FILENO);
  duplicate(sink, STDOUT_FILENO);
  duplicate(sink, STDERR_FILENO);
  close_beyond_standard(source);
  close_beyond_standard(sink);
}

bool put_hand_over(const Launch &launch) {
  char *assignment = nullptr; // left so where there is no storage
  if (asprintf(&assignment, "%s=%d %d %s", launch.name, launch.parent_pid, launch.companion_end,
               kMarkers[0].text) >= 0 &&
      putenv(assignment) == 0)
    return true; // the text belongs to the environment from here on
  free(assignment);
  return false;
}

// Runs in the child. It ends with _exit: what the parent's streams still hold is the parent's.
[[noreturn]] void become_companion(platform_pair_handle *ph, const Launch &launch) {
  if (launch.std_fds != nullptr)
    take_over(launch.std_fds);
  else
    take_null_device();
  close(launch.parent_end);
  if (launch.blocking == 0)
    platform_fd_set_blocking(launch.companion_end, 0);
  if (!put_hand_over(launch))
    _exit(1);
  execvp(launch.file, launch.argv);
  ph->error_text = "execvp failed";
  _exit(1);
}

const Marker *find_marker(const char *value) {
  for (const Marker &marker : kMarkers)
    if (strstr(value, marker.text) != nullptr)
      return &marker;
  return nullptr;
}

bool read_hand_over(const char *value, HandOver *read) {
  return sscanf(value, "%d %d", &read->pid, &read->number) == 2;
}

// Not inlined: leak checkers know the name that is left by this function's.
[[gnu::noinline]] bool hybrid_switch_on(const char *name) {
  // Kept: the joined name is never given back, nor are the copies that joining makes; a process
  // opens its companion's side once.
  const char *value = getenv(ORV_STRDUP(name, "_HYBRID"));
  return value != nullptr && strchr("0Ff", *value) == nullptr;
}

void connect_to_parent(platform_pair_handle *ph, int port) {
  ph->read_fd = platform_sock_connect("localhost", port);
  if (ph->read_fd == -1) {
    ph->saved_errno = errno;
    diag_printf("connection failed: %s\n", strerror(ph->saved_errno));
    return;
  }
  ph->write_fd = ph->read_fd;
  // Kept: a non-blocking choice leaves the socket as it was created, which is blocking.
  if (ph->blocking != 0)
    platform_fd_set_blocking(ph->write_fd, 1);
}

void open_over_tcp(platform_pair_handle *ph, const char *value) {
  HandOver read = {};
  if (!read_hand_over(value, &read)) {
    ph->saved_errno = kMalformedValue;
    return;
  }
  ph->companion_pid = read.pid;
  connect_to_parent(ph, read.number);
}

void open_inherited(platform_pair_handle *ph, const char *value, int ignore_signals) {
  if (ignore_signals != 0)
    for (const int signal_number : kIgnoredByCompanion)
      ignore_signal(signal_number);
  HandOver read = {};
  if (!read_hand_over(value, &read)) {
    ph->saved_errno = kMalformedValue;
    return;
  }
  ph->companion_pid = read.pid;
  ph->read_fd = read.number;
  ph->write_fd = read.number;
}

} // namespace

platform_pair_handle *platform_pair_parent_open_vp(const char *name, int ignore_sigpipe,
                                                   int blocking, const char *file,
                                                   const int *std_fds, char *const *argv) {
  platform_pair_handle *ph = new_handle(1, pair::kSocketPair, 0, blocking);
  const pid_t parent_pid = getpid();
  int ends[2];
  if (!create_ends(ends))
    return failed(ph, "socketpair create failed");
  const pid_t pid = fork_patiently();
  if (pid < 0)
    // Kept: both ends stay open; a caller that goes on after this has two descriptors fewer.
    return failed(ph, "fork failed");
  if (pid == 0)
    become_companion(ph, {.name = name,
                          .blocking = blocking,
                          .file = file,
                          .std_fds = std_fds,
                          .argv = argv,
                          .parent_pid = parent_pid,
                          .parent_end = ends[0],
                          .companion_end = ends[1]});
  if (ignore_sigpipe != 0)
    ignore_signal(SIGPIPE);
  close(ends[1]);
  if (blocking == 0)
    platform_fd_set_blocking(ends[0], 0);
  ph->companion_pid = pid;
  ph->read_fd = ends[0];
  ph->write_fd = ends[0];
  return ph;
}

platform_pair_handle *platform_pair_child_open(const char *name, int ignore_signals, int blocking) {
  const char *value = getenv(name);
  const Marker *marker = value != nullptr ? find_marker(value) : nullptr;
  if (marker == nullptr) {
    platform_pair_handle *ph = new_handle(0, pair::kNoMarker, 0, blocking);
    // Kept: the saved errno stays 0, so this handle counts as in order; its descriptors are -1.
    ph->error_text = "Failing to start due to wrong type on linux";
    return ph;
  }
  platform_pair_handle *ph = new_handle(0, marker->kind, marker->hybrid, blocking);
  if (hybrid_switch_on(name))
    open_over_tcp(ph, value);
  else
    open_inherited(ph, value, ignore_signals);
  return ph;
}
