// Receiving from a socket: at once, or with a wait in slices between which an idle callback runs.
#include "platform/socket_wait.h"

#include "common/guards.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <orv/diag.h>
#include <orv/platform.h>
#include <sys/select.h>
#include <sys/socket.h>

namespace orv {
namespace {

using SetWord = unsigned long;
constexpr size_t kBitsPerWord = sizeof(SetWord) * CHAR_BIT;
constexpr size_t kNarrowWords = FD_SETSIZE / kBitsPerWord;

constexpr suseconds_t kWaitSliceMicroseconds = 100000;

// `words` is an empty set.
int select_in(SetWord *words, int fd, timeval limit) {
  const auto bit = static_cast<size_t>(fd);
  words[bit / kBitsPerWord] |= SetWord{1} << bit % kBitsPerWord;
  const int ready = select(fd + 1, reinterpret_cast<fd_set *>(words), nullptr, nullptr, &limit);
  // The system passes over numbers beyond its present table of descriptors; waiting for one of them
  // would never end.
  return ready == 0 && fcntl(fd, F_GETFD) == -1 ? -1 : ready;
}

// The callback may fail calls of its own: the outcome of the select is what errno has to tell.
void call_idle(platform_idle_callback idle) {
  if (idle != nullptr) {
    ErrnoGuard keep;
    idle();
  }
}

// Kept: the end of the stream is -1, because 0 already stands for a length of nothing.
int receive_once(int sock, void *buffer, int length) {
  const int received = platform_sock_recv(sock, buffer, length);
  return received == 0 ? -1 : received;
}

} // namespace

// FD_SET writes beyond its set for a descriptor of 1024 or more; the system itself reads just as
// many words as the descriptor needs.
int select_readable(int fd, timeval limit) {
  if (fd < 0 || fd == INT_MAX) { // select takes the number after the descriptor
    errno = EBADF;
    return -1;
  }
  const size_t count = static_cast<size_t>(fd) / kBitsPerWord + 1;
  if (count <= kNarrowWords) {
    SetWord narrow[kNarrowWords] = {};
    return select_in(narrow, fd, limit);
  }
  BlockGuard wide(calloc(count, sizeof(SetWord)));
  if (wide.get() == nullptr)
    return -1;
  return select_in(static_cast<SetWord *>(wide.get()), fd, limit);
}

bool select_may_go_on() {
  if (errno == 0 || errno == EINTR || errno == EAGAIN) {
    errno = 0;
    return true;
  }
  report_system_error("select failed");
  return false;
}

void report_system_error(const char *what) {
  ErrnoGuard keep;
  diag_perror(what);
}

} // namespace orv

int platform_sock_recv(int sock, void *buffer, int length) {
  if (length <= 0)
    return -3;
  return static_cast<int>(recv(sock, buffer, static_cast<size_t>(length), 0));
}

int platform_sock_recv_wait(int sock, void *buffer, int length, int wait,
                            platform_idle_callback idle) {
  if (length <= 0)
    return 0;
  const suseconds_t slice = wait != 0 ? orv::kWaitSliceMicroseconds : 0;
  for (;;) {
    const int ready = orv::select_readable(sock, {.tv_sec = 0, .tv_usec = slice});
    orv::call_idle(idle);
    if (ready > 0)
      return orv::receive_once(sock, buffer, length);
    if (ready == -1 && !orv::select_may_go_on())
      return -1;
    if (ready == 0 && wait == 0)
      return -2;
  }
}
