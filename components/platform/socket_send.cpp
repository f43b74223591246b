// Sending over a socket: bytes, one line, or the lines of a message, which are gathered so that a
// message leaves in one piece.
#include "common/guards.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <orv/platform.h>
#include <sys/socket.h>

namespace orv {
namespace {

constexpr char kLineEnd[] = {'\r', '\n'};
constexpr size_t kLongestLine = INT_MAX - sizeof kLineEnd;

// Lines on their way to a socket. Sent one by one they would wait for acknowledgements.
struct Outgoing {
  int sock;
  size_t used;
  char bytes[8192];
};

constexpr size_t kLongestGatheredLine = sizeof(Outgoing::bytes) - sizeof kLineEnd - 1;

char *write_line(char *to, const char *text, size_t length) {
  memcpy(to, text, length);
  memcpy(to + length, kLineEnd, sizeof kLineEnd);
  return to + length + sizeof kLineEnd;
}

bool send_whole(int sock, const char *bytes, size_t length) {
  const int size = static_cast<int>(length);
  return platform_sock_send_all(sock, bytes, size) == size;
}

bool send_gathered(Outgoing &out) {
  const size_t length = out.used;
  out.used = 0;
  return length == 0 || send_whole(out.sock, out.bytes, length);
}

bool send_long_line(int sock, const char *text, size_t length) {
  if (length > kLongestLine) {
    errno = EMSGSIZE;
    return false;
  }
  BlockGuard block(malloc(length + sizeof kLineEnd + 1));
  char *const line = static_cast<char *>(block.get());
  if (line == nullptr)
    return false;
  write_line(line, text, length);
  return send_whole(sock, line, length + sizeof kLineEnd);
}

void gather(Outgoing &out, const char *text, size_t length) {
  out.used = static_cast<size_t>(write_line(out.bytes + out.used, text, length) - out.bytes);
}

// A line that does not fit beside what has been gathered sends that first, so the order holds.
[[gnu::cold]] bool put_line_after_sending(Outgoing &out, const char *text, size_t length) {
  if (!send_gathered(out))
    return false;
  if (length > kLongestGatheredLine)
    return send_long_line(out.sock, text, length);
  gather(out, text, length);
  return true;
}

bool put_line(Outgoing &out, const char *text) {
  if (text == nullptr)
    text = "";
  const size_t length = strlen(text);
  if (out.used + length > kLongestGatheredLine)
    return put_line_after_sending(out, text, length);
  gather(out, text, length);
  return true;
}

bool put_lines_and_close(Outgoing &out, va_list lines) {
  const char *line;
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller has started the list.
  while ((line = va_arg(lines, const char *)) != nullptr)
    if (!put_line(out, line))
      return false;
  return put_line(out, nullptr);
}

} // namespace
} // namespace orv

int platform_sock_send_all(int sock, const void *bytes, int length) {
  const char *const start = static_cast<const char *>(bytes);
  int total = 0;
  while (total < length) {
    const ssize_t sent =
        send(sock, start + total, static_cast<size_t>(length - total), MSG_NOSIGNAL);
    // Kept: a signal or a full socket that does not block is a failure like any other. How much of
    // the bytes is out is then unknown, and the connection is of no further use.
    if (sent == -1)
      return -1;
    total += static_cast<int>(sent);
  }
  return total;
}

int platform_sock_send_line(int sock, const char *text) {
  orv::Outgoing out;
  out.sock = sock;
  out.used = 0;
  return orv::put_line(out, text) && orv::send_gathered(out) ? 1 : 0;
}

int platform_sock_send_message(int sock, const char *first, const char *second, ...) {
  orv::Outgoing out;
  out.sock = sock;
  out.used = 0;
  bool gathered = orv::put_line(out, first) && orv::put_line(out, second);
  // A null second line has gone out as the empty line that closes the message.
  if (gathered && second != nullptr) {
    va_list further;
    va_start(further, second);
    gathered = orv::put_lines_and_close(out, further);
    va_end(further);
  }
  return gathered && orv::send_gathered(out) ? 1 : 0;
}
