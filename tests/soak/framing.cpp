// Framed messages over a loopback connection, cut at random as they are sent: each must arrive
// whole, in order, and once, and nothing may be left behind.
//   soak_framing [MESSAGES]
#include "soak/level.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <orv/platform.h>
#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kBufferSize = 40000;
constexpr int kFirstPort = 20000;
constexpr int kEndPort = 60000;
constexpr size_t kMostPending = 4000;
constexpr long kWarmAfter = 100; // messages
constexpr int kSecondsToConnect = 20;

// Both sides make the same messages from the same numbers.
struct Maker {
  std::minstd_rand numbers{7};

  std::string line() {
    const unsigned long kind = numbers() % 64;
    const size_t length = 1 + (kind == 0 ? numbers() % 3000 : numbers() % 20);
    std::string text(length, static_cast<char>('a' + kind % 26));
    if (kind % 8 == 1)
      text[length / 2] = '\r'; // alone it ends nothing
    return text;
  }
};

int line_count(long number) {
  return 1 + static_cast<int>(number % 4);
}

// ---- the sending process ----

// The sizes of the pieces are another row of numbers: no piece knows of a message.
struct Sender {
  int sock;
  std::string pending;
  std::minstd_rand cuts{11};

  void send_piece() {
    const size_t wanted = cuts() % 4 == 0 ? 1 + cuts() % 5 : 1 + cuts() % 3000;
    const size_t size = std::min(wanted, pending.size());
    soak::expect(platform_sock_send_all(sock, pending.data(), static_cast<int>(size)) ==
                     static_cast<int>(size),
                 "a piece was not sent");
    pending.erase(0, size);
  }

  void finish() {
    while (!pending.empty())
      send_piece();
  }
};

[[noreturn]] void send_messages(int port, long count) {
  Sender sender{.sock = platform_sock_connect("localhost", port), .pending = {}};
  soak::expect(sender.sock >= 0, "no connection");
  Maker maker;
  for (long number = 0; number < count; number++) {
    for (int left = line_count(number); left > 0; left--)
      sender.pending += maker.line() + "\r\n";
    sender.pending += "\r\n";
    while (sender.pending.size() > kMostPending)
      sender.send_piece();
  }
  sender.finish();
  soak::expect(platform_sock_send_message(sender.sock, "end", nullptr) == 1, "no end was sent");
  platform_sock_close(sender.sock);
  _exit(0);
}

// ---- the receiving process ----

Maker expected;
long received = 0;
long wanted = 0;
soak::Level warm;

int take_end(const char *first, char *const *further) {
  soak::expect(strcmp(first, "end") == 0 && *further == nullptr, "a message too many");
  soak::expect_level(warm);
  return 0;
}

int take_message(int, char *first, char **further) {
  if (received == wanted)
    return take_end(first, further);
  if (received == kWarmAfter)
    warm = soak::level();
  soak::expect(expected.line() == first, "another first line");
  for (int left = line_count(received); left > 1; left--, further++)
    soak::expect(*further != nullptr && expected.line() == *further, "another line");
  soak::expect(*further == nullptr, "a line too many");
  received++;
  return 1;
}

void receive_messages(int sock) {
  platform_msgbuf *buffer = platform_msgbuf_create(kBufferSize);
  platform_set_message_buffer(buffer);
  platform_message_loop(sock, take_message, nullptr, 0);
  soak::expect(received == wanted, "messages are missing");
  soak::expect(buffer->p1 == buffer->p2, "bytes are left over");
  platform_msgbuf_free(buffer);
}

void end_sender(pid_t child) {
  int status = -1;
  platform_wait_child(child, &status);
  soak::expect(status == 0, "the sender has failed");
  soak::expect_no_children();
}

void run() {
  int port = 0;
  const int listening = platform_server_sock_open(kFirstPort, kEndPort, &port);
  soak::expect(listening >= 0, "no port is free");
  const pid_t child = fork();
  soak::expect(child >= 0, "no sender could be started");
  if (child == 0)
    send_messages(port, wanted);
  const int sock = platform_sock_accept_timeout(listening, kSecondsToConnect);
  soak::expect(sock >= 0, "nobody was accepted");
  receive_messages(sock);
  platform_sock_close(sock);
  end_sender(child);
}

} // namespace

int main(int argc, char **argv) {
  soak::count_every_block(argv);
  wanted = soak::count_of(argc, argv, 50000);
  soak::expect(wanted > kWarmAfter, "too few messages to tell a level by");
  run();
  printf("%ld messages came whole and in order\n", wanted);
  return 0;
}
