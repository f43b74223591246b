// Framed messages over a connection, whoever frames them: the messages, and the works that are
// measured. A peer class of each benchmark program sends and receives in its own way:
//   Peer(int receive_fd, int send_fd, size_t longest)
//   void send()                  one message of three lines
//   void receive(long messages)  returns when so many have come, in time or waiting
#pragma once

#include "bench.h"
#include "connection.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace framing {

#define FRAMING_LINE "a line of text of 30 character"

constexpr const char *kLine = FRAMING_LINE;
constexpr int kLines = 3;
constexpr char kMessage[] = FRAMING_LINE "\r\n" FRAMING_LINE "\r\n" FRAMING_LINE "\r\n\r\n";
constexpr size_t kMessageSize = sizeof kMessage - 1;
constexpr size_t kReceiveSize = 65536; // of those who choose for themselves

// What is waiting when receiving is measured: as much as a receive of 64 KiB takes.
constexpr long kWaitingMessages = 664;
constexpr long kMessagesASend = 83; // almost 8 KiB

// How many messages are on their way when the whole path is measured.
constexpr long kUnderWay = 16;

// "receive pair", "path tcp", "trip tcp", "long pair 65536": the work, the connection, and for long
// messages their size.
struct Plan {
  char work[16];
  char connection[16];
  size_t size;
};

inline Plan plan_of(const bench::Job &job) {
  Plan plan{};
  if (sscanf(job.parameter, "%15s %15s %zu", plan.work, plan.connection, &plan.size) < 2)
    bench::die("WORK CONNECTION [SIZE]");
  return plan;
}

inline bench::Ends ends;

template <typename Peer> Peer *peer;

inline void fill_connection() {
  static const std::string batch = [] {
    std::string messages;
    for (long i = 0; i < kMessagesASend; i++)
      messages += kMessage;
    return messages;
  }();
  for (long sent = 0; sent < kWaitingMessages; sent += kMessagesASend)
    bench::send_all(ends.theirs, batch.data(), batch.size());
}

template <typename Peer> void receive_waiting(long count) {
  for (long left = count; left > 0; left -= kWaitingMessages) {
    {
      const bench::Unmeasured filling;
      fill_connection();
    }
    peer<Peer>->receive(kWaitingMessages);
  }
}

template <typename Peer> void send_and_receive(long count) {
  for (long left = count; left > 0; left -= kUnderWay) {
    for (long i = 0; i < kUnderWay; i++)
      peer<Peer>->send();
    peer<Peer>->receive(kUnderWay);
  }
}

template <typename Peer> void serve_trips() {
  Peer server(ends.theirs, ends.theirs, kMessageSize);
  for (;;) {
    server.receive(1);
    server.send();
  }
}

template <typename Peer> void make_trips(long count) {
  for (long i = 0; i < count; i++) {
    peer<Peer>->send();
    peer<Peer>->receive(1);
  }
}

// Messages of one line, as many a send as fill a receive.
inline void send_long_messages(size_t size) {
  const std::string message = std::string(size - 4, 'x') + "\r\n\r\n";
  std::string messages;
  do
    messages += message;
  while (messages.size() < kReceiveSize);
  for (;;)
    bench::send_all(ends.theirs, messages.data(), messages.size());
}

template <typename Peer> void prepare(const bench::Job &job) {
  const Plan plan = plan_of(job);
  ends = strcmp(plan.connection, "tcp") == 0 ? bench::open_tcp() : bench::open_socket_pair();
  if (strcmp(plan.work, "long") == 0)
    bench::serve_in_child([&plan] { send_long_messages(plan.size); });
  if (strcmp(plan.work, "trip") == 0)
    bench::serve_in_child(serve_trips<Peer>);
  const bool other_end_is_served = plan.size > 0 || strcmp(plan.work, "trip") == 0;
  peer<Peer> = new Peer(ends.ours, other_end_is_served ? ends.ours : ends.theirs,
                        plan.size > 0 ? plan.size : kMessageSize);
}

template <typename Peer> void work(const bench::Job &job) {
  const Plan plan = plan_of(job);
  if (strcmp(plan.work, "receive") == 0)
    receive_waiting<Peer>(job.count);
  else if (strcmp(plan.work, "path") == 0)
    send_and_receive<Peer>(job.count);
  else if (strcmp(plan.work, "trip") == 0)
    make_trips<Peer>(job.count);
  else
    peer<Peer>->receive(job.count);
}

} // namespace framing
