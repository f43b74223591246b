// The pair connection: what a side does with its handle, from the validity test that begins every
// call to closing. Opening, describing and the child-process calls have files of their own.
#include "platform/orv_pair_connection.h"
#include "common/assertion.h"
#include "common/guards.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <orv/platform.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace orv;

static_assert(sizeof(platform_pair_handle) == 56);
static_assert(offsetof(platform_pair_handle, companion_pid) == 0);
static_assert(offsetof(platform_pair_handle, side) == 4);
static_assert(offsetof(platform_pair_handle, kind) == 8);
static_assert(offsetof(platform_pair_handle, hybrid) == 12);
static_assert(offsetof(platform_pair_handle, blocking) == 16);
static_assert(offsetof(platform_pair_handle, read_fd) == 20);
static_assert(offsetof(platform_pair_handle, write_fd) == 24);
static_assert(offsetof(platform_pair_handle, child_exit_status) == 28);
static_assert(offsetof(platform_pair_handle, term_signal) == 32);
static_assert(offsetof(platform_pair_handle, saved_errno) == 36);
static_assert(offsetof(platform_pair_handle, error_text) == 40);
static_assert(offsetof(platform_pair_handle, self) == 48);

namespace {

constexpr int kListArguments = 256;

// An empty non-blocking connection is no failure of the handle.
void save_errno(platform_pair_handle *ph) {
  if (errno != EAGAIN)
    ph->saved_errno = errno;
}

// Taken as a size, a negative length would let the system run past the buffer.
ssize_t refuse_length() {
  errno = EINVAL;
  return -1;
}

// Asks for the child's end without waiting; what it left behind goes into the handle.
bool collect_child(platform_pair_handle *ph) {
  int exit_status = 0;
  int term_signal = 0;
  if (platform_child_status(ph->companion_pid, &exit_status, &term_signal) != ph->companion_pid)
    return false;
  ph->child_exit_status = exit_status;
  ph->term_signal = term_signal;
  return true;
}

int child_alive(platform_pair_handle *ph) {
  if ((ph->kind & pair::kUnwatchedBit) != 0 && ph->companion_pid == 0)
    return 1;
  if (!platform_process_exists(ph->companion_pid))
    return 0;
  return collect_child(ph) ? 0 : 1;
}

int parent_alive(const platform_pair_handle *ph) {
  if ((ph->kind & pair::kUnwatchedBit) != 0)
    return 1;
  return platform_process_exists(ph->companion_pid);
}

} // namespace

int platform_pair_valid(const platform_pair_handle *ph) {
  return ph != nullptr && ph->self == ph;
}

platform_pair_handle *platform_pair_parent_open_lp(const char *name, int ignore_sigpipe,
                                                   int blocking, const char *file,
                                                   const int *std_fds, const char *arg0, ...) {
  char *argv[kListArguments + 1];
  argv[0] = const_cast<char *>(arg0);
  int idx = 1;
  va_list rest;
  va_start(rest, arg0);
  for (char *arg = va_arg(rest, char *); arg != nullptr; arg = va_arg(rest, char *)) {
    assert(idx < 256);
    argv[idx++] = arg;
  }
  va_end(rest);
  argv[idx] = nullptr;
  return platform_pair_parent_open_vp(name, ignore_sigpipe, blocking, file, std_fds, argv);
}

int platform_pair_send(platform_pair_handle *ph, const void *buffer, int length) {
  assert(platform_pair_valid(ph));
  const ssize_t sent = length < 0 ? refuse_length()
                                  : send(ph->write_fd, buffer, static_cast<std::size_t>(length), 0);
  if (sent > 0)
    return static_cast<int>(sent);
  // Kept: sending nothing comes this way too, and saves an errno that some earlier call left;
  // receiving nothing does not. Programs rely on the result alone, which is 0 either way.
  save_errno(ph);
  return 0;
}

int platform_pair_recv(platform_pair_handle *ph, void *buffer, int length) {
  assert(platform_pair_valid(ph));
  const ssize_t received =
      length < 0 ? refuse_length() : recv(ph->read_fd, buffer, static_cast<std::size_t>(length), 0);
  if (received >= 0)
    return static_cast<int>(received);
  save_errno(ph);
  return 0;
}

int platform_pair_errno(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->saved_errno;
}

int platform_pair_ok(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->saved_errno == 0;
}

const char *platform_pair_errstr(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return strerror(ph->saved_errno);
}

int platform_pair_companion_pid(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->companion_pid;
}

int platform_pair_rx_fd(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->read_fd;
}

int platform_pair_tx_fd(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->write_fd;
}

int platform_pair_child_exit_status(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->child_exit_status;
}

int platform_pair_child_term_signal(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->term_signal;
}

int platform_pair_hybrid_environment(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->hybrid;
}

int platform_pair_parent(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->side;
}

int platform_pair_child(const platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->side == 0;
}

int platform_pair_companion_alive(platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->side != 0 ? child_alive(ph) : parent_alive(ph);
}

int platform_pair_kill_child(platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  return ph->side != 0 ? platform_kill_and_wait(ph->companion_pid) : 0;
}

int platform_pair_close(platform_pair_handle *ph) {
  assert(platform_pair_valid(ph));
  const ErrnoGuard keep;
  if (ph->kind == pair::kHybridMarker) {
    platform_sock_close(ph->read_fd);
  } else {
    close(ph->read_fd);
    // Kept: on a socket pair this closes the same number again and fails; nothing in between can
    // have taken the number, because one thread uses a handle.
    close(ph->write_fd);
  }
  free(ph);
  return 1;
}
