// Setting sockets up: a listening socket on the first free port of a range, the one connection it
// accepts, a connection to a host, and closing.
#include "platform/socket_state.h"
#include "platform/socket_wait.h"

#include "common/guards.h"

#include <cerrno>
#include <cstdio>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <orv/platform.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orv {
namespace {

constexpr int kHighestPort = 65535;
constexpr int kListenBacklog = 1;
constexpr int kAcceptAttempts = 500;

// What open_on_port returns instead of a socket.
constexpr int kTryNextPort = -1;
constexpr int kGiveUp = -2;

// Null, with errno set, when the lookup failed.
addrinfo *look_up(const char *host, int port) {
  // The system would cut the number to 16 bits, and so find a port that nobody asked for.
  if (port < 0 || port > kHighestPort) {
    errno = EADDRNOTAVAIL;
    return nullptr;
  }
  char service[16];
  snprintf(service, sizeof service, "%d", port);
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo *found = nullptr;
  const int error = getaddrinfo(host, service, &hints, &found);
  if (error == 0)
    return found;
  if (error != EAI_SYSTEM)
    errno = EADDRNOTAVAIL;
  return nullptr;
}

void release_lookup(addrinfo *found) {
  ErrnoGuard keep;
  freeaddrinfo(found);
}

// Kept: the lookups of opened ports and of connections are never released, and they stay as the
// system made them.
void keep_lookup(const addrinfo *found) {
  for (const addrinfo *&place : socket_state.kept_lookups)
    if (place == nullptr) {
      place = found;
      return;
    }
}

bool is_multicast_stream(const addrinfo &address) {
  if (address.ai_socktype != SOCK_STREAM || address.ai_family != AF_INET)
    return false;
  const auto *ipv4 = reinterpret_cast<const sockaddr_in *>(address.ai_addr);
  return IN_MULTICAST(ntohl(ipv4->sin_addr.s_addr));
}

bool can_serve_at(const addrinfo &address) {
  const bool known_family = address.ai_family == AF_INET || address.ai_family == AF_INET6;
  return known_family && !is_multicast_stream(address);
}

// What failed before is what errno goes on telling.
void close_after_failure(int sock) {
  ErrnoGuard keep;
  platform_sock_close(sock);
}

int create_socket(const addrinfo &address) {
  return socket(address.ai_family, address.ai_socktype, address.ai_protocol);
}

bool bind_and_listen(int sock, const addrinfo &address) {
  // Kept: no address reuse is asked for, so a port that an earlier socket still holds counts as
  // taken: two servers never share what they believe to be their own port.
  if (bind(sock, address.ai_addr, address.ai_addrlen) != 0)
    return false;
  return address.ai_socktype != SOCK_STREAM || listen(sock, kListenBacklog) == 0;
}

int serve_at(const addrinfo &address) {
  const int sock = create_socket(address);
  if (sock < 0 || bind_and_listen(sock, address))
    return sock;
  close_after_failure(sock);
  return -1;
}

// The socket, or kTryNextPort or kGiveUp.
int open_on_port(int port) {
  addrinfo *const found = look_up("localhost", port);
  if (found == nullptr)
    return kGiveUp;
  if (!can_serve_at(*found)) {
    release_lookup(found);
    errno = EADDRNOTAVAIL;
    return kGiveUp;
  }
  const int sock = serve_at(*found);
  if (sock < 0) {
    release_lookup(found);
    return kTryNextPort;
  }
  keep_lookup(found);
  return sock;
}

// A message never waits in this process for the acknowledgement of the one before.
void send_without_delay(int sock) {
  ErrnoGuard keep;
  const int on = 1;
  setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

int try_to_accept(int listening) {
  // Kept: no pause between attempts: an interrupted accept is expected to succeed the next time,
  // and the number of attempts bounds what a socket that does not block can cost.
  errno = 0;
  for (int attempt = 0; attempt < kAcceptAttempts; attempt++) {
    const int sock = accept(listening, nullptr, nullptr);
    if (sock >= 0)
      return sock;
    report_system_error("accept");
    if (errno != EAGAIN && errno != EINTR)
      return -1;
  }
  return -1;
}

bool connect_to_any(int sock, const addrinfo *addresses) {
  for (const addrinfo *address = addresses; address != nullptr; address = address->ai_next)
    if (connect(sock, address->ai_addr, address->ai_addrlen) == 0)
      return true;
  return false;
}

int connect_socket(const addrinfo *addresses) {
  // Kept: one socket, made for the first address, is tried with every address of the host. All of
  // them are of one family, and a stream socket may be connected again after a refusal.
  const int sock = create_socket(*addresses);
  if (sock < 0)
    return -1;
  if (!connect_to_any(sock, addresses)) {
    close_after_failure(sock);
    return -1;
  }
  send_without_delay(sock);
  return sock;
}

} // namespace
} // namespace orv

int platform_server_sock_open(int first, int end, int *port_out) {
  if (first >= end)
    errno = EINVAL;
  int sock = orv::kTryNextPort;
  for (int port = first; port < end && sock == orv::kTryNextPort; port++) {
    sock = orv::open_on_port(port);
    if (sock >= 0 && port_out != nullptr)
      *port_out = port;
  }
  if (sock >= 0)
    return sock;
  orv::report_system_error("server sock open failed ");
  return -1;
}

int platform_sock_accept(int listening) {
  const int sock = orv::try_to_accept(listening);
  // Kept: a listening socket serves one connection, so it is closed whether or not one came.
  orv::close_after_failure(listening);
  if (sock >= 0)
    orv::send_without_delay(sock);
  return sock;
}

int platform_sock_accept_timeout(int listening, int seconds) {
  // Kept: a signal begins the wait anew with the full time, so a program that is interrupted more
  // often than that waits on.
  for (;;) {
    const int ready = orv::select_readable(listening, {.tv_sec = seconds, .tv_usec = 0});
    if (ready > 0)
      return platform_sock_accept(listening);
    if (ready == 0)
      return -2;
    if (!orv::select_may_go_on())
      return -1;
  }
}

int platform_sock_connect(const char *host, int port) {
  addrinfo *const found = orv::look_up(host, port);
  if (found == nullptr)
    return -1;
  const int sock = orv::connect_socket(found);
  orv::keep_lookup(found);
  return sock;
}

int platform_sock_close(int sock) {
  shutdown(sock, SHUT_RDWR);
  return close(sock);
}
