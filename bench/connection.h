// What the benchmarks of connections share: a connected pair of sockets, and a process at the other
// end of it.
#pragma once

#include "bench.h"

#include <csignal>
#include <cstddef>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

struct Ends {
  int ours;
  int theirs;
};

inline Ends open_socket_pair() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
    die("socketpair");
  return {ends[0], ends[1]};
}

inline void send_without_delay(int sock) {
  constexpr int kOn = 1;
  if (setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn) != 0)
    die("TCP_NODELAY");
}

// Over the loopback interface. Both ends send without delay, as those of the library do.
inline Ends open_tcp() {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto *const plain = reinterpret_cast<sockaddr *>(&address);
  const int listening = socket(AF_INET, SOCK_STREAM, 0);
  if (bind(listening, plain, size) != 0 || listen(listening, 1) != 0 ||
      getsockname(listening, plain, &size) != 0)
    die("listening");
  const int ours = socket(AF_INET, SOCK_STREAM, 0);
  if (connect(ours, plain, size) != 0)
    die("connect");
  const int theirs = accept(listening, nullptr, nullptr);
  if (theirs < 0)
    die("accept");
  close(listening);
  send_without_delay(ours);
  send_without_delay(theirs);
  return {ours, theirs};
}

inline void send_all(int sock, const char *bytes, size_t length) {
  while (length > 0) {
    const ssize_t sent = send(sock, bytes, length, MSG_NOSIGNAL);
    if (sent < 0)
      die("send");
    bytes += sent;
    length -= static_cast<size_t>(sent);
  }
}

// Starts a process that serves the other end. It ends with this one.
template <typename Serve> void serve_in_child(Serve serve) {
  const pid_t pid = fork();
  if (pid < 0)
    die("fork");
  if (pid > 0)
    return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  serve();
  _exit(0);
}

} // namespace bench
