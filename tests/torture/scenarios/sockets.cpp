// Sockets and framed messages: what is handed over is what was sent, in order and whole, whatever
// is refused on the way; and a loop that ended early goes on where it was.
#include "scenario.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <netinet/in.h>
#include <orv/platform.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace scenario;

namespace {

struct Ends {
  int library; // what the library's calls are given
  int peer;    // the scenario's own
};

Ends connected() {
  int ends[2];
  need(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  return {ends[0], ends[1]};
}

void close_ends(const Ends &ends) {
  close(ends.library);
  close(ends.peer);
}

// One process is both sides: the system takes the connection before it is accepted.
void connect_and_accept() {
  const Level level;
  const int first = 21000 + getpid() % 20000;
  int port = 0;
  const int listening = platform_server_sock_open(first, first + 50, &port);
  if (listening < 0) {
    EXPECT(errno != 0 && port == 0);
    return level.expect_descriptors();
  }
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  EXPECT(getsockname(listening, reinterpret_cast<sockaddr *>(&address), &size) == 0);
  EXPECT(ntohs(address.sin_port) == port && port >= first && port < first + 50);
  errno = 0;
  const int client = platform_sock_connect("localhost", port);
  if (client < 0) {
    EXPECT(errno != 0);
    EXPECT(platform_sock_accept_timeout(listening, 0) < 0);
    // Closed already where the wait went well and the accept did not.
    close(listening);
    return level.expect_descriptors();
  }
  const int server = platform_sock_accept_timeout(listening, 20);
  if (server >= 0) {
    EXPECT(platform_sock_send_all(client, "x", 1) <= 1);
    platform_sock_close(server);
  } else {
    EXPECT(server == -1);
    close(listening);
  }
  platform_sock_close(client);
  level.expect_descriptors();
}

// What arrived is the message, or where the call said so a first part of it.
void expect_sent(int result, int peer, std::string_view message) {
  static char received[200000];
  size_t length = 0;
  ssize_t got;
  while ((got = recv(peer, received + length, sizeof received - length, MSG_DONTWAIT)) > 0)
    length += static_cast<size_t>(got);
  const std::string_view arrived(received, length);
  EXPECT(result == 1 ? arrived == message : message.starts_with(arrived) && arrived != message);
}

void send_messages() {
  static char line[20001];
  static char long_message[20100];
  memset(line, 'x', sizeof line - 1);
  const Ends ends = connected();
  const Level level;
  expect_sent(platform_sock_send_line(ends.library, "one line"), ends.peer, "one line\r\n");
  expect_sent(platform_sock_send_message(ends.library, "one", "two", "three", nullptr), ends.peer,
              "one\r\ntwo\r\nthree\r\n\r\n");
  const int length =
      snprintf(long_message, sizeof long_message, "first\r\n%s\r\nlast\r\n\r\n", line);
  expect_sent(platform_sock_send_message(ends.library, "first", line, "last", nullptr), ends.peer,
              {long_message, static_cast<size_t>(length)});
  errno = 0;
  const int sent = platform_sock_send_all(ends.library, line, 20000);
  EXPECT(sent == 20000 || (sent == -1 && errno != 0));
  level.expect_heap();
  level.expect_descriptors();
  close_ends(ends);
}

// The messages that are sent are numbered; the handler expects them in order.
constexpr int kMessages = 12;
int handed_over = 0;

int take_next(int, char *first, char **further) {
  char expected[20];
  snprintf(expected, sizeof expected, "message %d", handed_over);
  EXPECT(strcmp(first, expected) == 0);
  EXPECT(further[0] != nullptr && strcmp(further[0], "with a second line") == 0);
  EXPECT(further[1] == nullptr);
  handed_over++;
  return 1;
}

void put_messages(int peer) {
  char text[2000];
  int length = 0;
  for (int i = 0; i < kMessages; i++)
    length += snprintf(text + length, sizeof text - static_cast<size_t>(length),
                       "message %d\r\nwith a second line\r\n\r\n", i);
  need(send(peer, text, static_cast<size_t>(length), 0) == length);
  shutdown(peer, SHUT_WR);
}

platform_msgbuf *install_buffer() {
  platform_msgbuf *buffer = platform_msgbuf_create(20000);
  if (buffer == nullptr)
    EXPECT(errno == ENOMEM);
  need(buffer != nullptr);
  platform_set_message_buffer(buffer);
  return buffer;
}

void remove_buffer(platform_msgbuf *buffer) {
  platform_msgbuf_free(buffer);
  EXPECT(gMsgBuf == nullptr);
}

// A receive that is refused takes nothing, so the next loop gets the rest.
void receive_messages() {
  const Ends ends = connected();
  const Level level;
  platform_msgbuf *buffer = install_buffer();
  put_messages(ends.peer);
  EXPECT(platform_message_loop(ends.library, take_next, nullptr, 0) == 0);
  if (handed_over < kMessages)
    EXPECT(platform_message_loop(ends.library, take_next, nullptr, 0) == 0);
  EXPECT(handed_over == kMessages);
  remove_buffer(buffer);
  level.expect_heap();
  level.expect_descriptors();
  close_ends(ends);
}

void receive_one_by_one() {
  const Ends ends = connected();
  platform_msgbuf *buffer = install_buffer();
  put_messages(ends.peer);
  int failures = 0;
  while (handed_over < kMessages) {
    if (platform_get_one_message(ends.library, take_next, nullptr, 1) == 0)
      failures++;
    EXPECT(failures <= 1);
  }
  EXPECT(platform_get_one_message(ends.library, take_next, nullptr, 0) == 0);
  remove_buffer(buffer);
  close_ends(ends);
}

void receive_and_dispatch() {
  const Ends ends = connected();
  platform_msgbuf *buffer = install_buffer();
  put_messages(ends.peer);
  int failures = 0;
  while (handed_over < kMessages && failures <= 1) {
    errno = 0;
    const int length = platform_recv_messages(ends.library);
    EXPECT(length != 0);
    if (length < 0)
      EXPECT(errno != 0 && ++failures <= 1);
    platform_dispatch_messages(ends.library, take_next);
  }
  EXPECT(handed_over == kMessages);
  remove_buffer(buffer);
  close_ends(ends);
}

void wait_and_receive(int fd) {
  char bytes[10];
  errno = 0;
  int length = platform_sock_recv_wait(fd, bytes, sizeof bytes, 1, nullptr);
  EXPECT(length > 0 || length == -1);
  if (length == -1) {
    EXPECT(errno != 0);
    errno = 0;
    length = platform_sock_recv_wait(fd, bytes, sizeof bytes, 0, nullptr);
    if (length == -1 && errno == ENOMEM)
      return; // the shortage lasts
  }
  EXPECT(length >= 1 && memcmp(bytes, "0123456789", static_cast<size_t>(length)) == 0);
}

void receive_once() {
  const Ends ends = connected();
  need(send(ends.peer, "0123456789", 10, 0) == 10);
  const Level level;
  wait_and_receive(ends.library);
  level.expect_heap();
  close_ends(ends);
}

// A descriptor beyond what a set of the C library holds.
void receive_beyond_1024() {
  constexpr int kWide = 1500;
  rlimit limit;
  need(getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_max > kWide);
  limit.rlim_cur = limit.rlim_max;
  need(setrlimit(RLIMIT_NOFILE, &limit) == 0);
  const Ends ends = connected();
  need(dup2(ends.library, kWide) == kWide);
  need(send(ends.peer, "0123456789", 10, 0) == 10);
  const Level level;
  wait_and_receive(kWide);
  level.expect_heap();
  close(kWide);
  close_ends(ends);
}

// What waits is discarded, and then the loop begins with the next message.
void drain_first() {
  const Ends ends = connected();
  platform_msgbuf *buffer = install_buffer();
  need(send(ends.peer, "old\r\nlines\r\n", 12, 0) == 12);
  shutdown(ends.peer, SHUT_WR);
  const auto handler = [](int, char *, char **) {
    EXPECT(!"what was drained is handed over");
    return 0;
  };
  EXPECT(platform_message_loop(ends.library, handler, nullptr, 1) == 0);
  remove_buffer(buffer);
  close_ends(ends);
}

constexpr Scenario kScenarios[] = {
    {"socket-connect", connect_and_accept, false, {}},
    {"socket-send", send_messages, false, {}},
    {"socket-loop", receive_messages, false, {}},
    {"socket-one-by-one", receive_one_by_one, false, {}},
    {"socket-dispatch", receive_and_dispatch, false, {}},
    {"socket-receive", receive_once, false, {}},
    {"socket-wide", receive_beyond_1024, false, {}},
    {"socket-drain", drain_first, false, {}},
};

} // namespace

Table scenario::socket_scenarios() {
  return {kScenarios, std::size(kScenarios)};
}
