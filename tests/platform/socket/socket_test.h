// The fixture of the socket tests: two connected stream sockets, a message buffer, and a handler
// that keeps what it was given.
#pragma once

#include "support/resources.h"
#include "support/system.h"

#include <cstring>
#include <gmock/gmock.h>
#include <orv/platform.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace sockets {

using Lines = std::vector<std::string>;

inline std::vector<Lines> handled;  // what the handlers were given, in order
inline std::vector<int> handled_on; // the sockets they were called with
inline int idle_calls = 0;          // how often count_idle was called
inline const std::string kEnd = "\r\n\r\n";

inline Lines lines_of(char *first, char **further) {
  Lines lines{first};
  for (; *further != nullptr; further++)
    lines.emplace_back(*further);
  return lines;
}

// A handler that keeps the message and wants more.
inline int keep(int sock, char *first, char **further) {
  handled.push_back(lines_of(first, further));
  handled_on.push_back(sock);
  return 1;
}

// A handler that keeps the message and ends the loop.
inline int keep_and_stop(int sock, char *first, char **further) {
  keep(sock, first, further);
  return 0;
}

inline void count_idle() {
  idle_calls++;
}

inline void write_whole(int fd, const std::string &bytes) {
  for (size_t done = 0; done < bytes.size();) {
    const ssize_t wrote = write(fd, bytes.data() + done, bytes.size() - done);
    if (wrote <= 0)
      return;
    done += static_cast<size_t>(wrote);
  }
}

// Reads until the other side has closed.
inline std::string read_to_end(int fd) {
  std::string bytes;
  char piece[8192];
  for (ssize_t got; (got = recv(fd, piece, sizeof piece, 0)) > 0;)
    bytes.append(piece, static_cast<size_t>(got));
  return bytes;
}

// What has arrived by now.
inline std::string read_waiting(int fd) {
  std::string bytes;
  char piece[8192];
  for (ssize_t got; (got = recv(fd, piece, sizeof piece, MSG_DONTWAIT)) > 0;)
    bytes.append(piece, static_cast<size_t>(got));
  return bytes;
}

// A fresh buffer: without it a test has nothing to go on with.
inline platform_msgbuf *created(int capacity) {
  platform_msgbuf *buffer = platform_msgbuf_create(capacity);
  if (buffer == nullptr)
    throw std::runtime_error("no message buffer");
  return buffer;
}

class SocketTest : public support::ResourceTest {
protected:
  void SetUp() override {
    ResourceTest::SetUp();
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    ours = ends[0];
    theirs = ends[1];
    handled.clear();
    handled_on.clear();
    idle_calls = 0;
  }

  void TearDown() override {
    close(ours);
    close_theirs();
    uninstall();
    ResourceTest::TearDown();
  }

  // Installs a fresh buffer whose storage is filled with `stale` bytes.
  platform_msgbuf *install(int capacity, char stale = '?') {
    uninstall();
    installed = created(capacity);
    memset(installed->pBuf, stale, static_cast<size_t>(capacity));
    platform_set_message_buffer(installed);
    return installed;
  }

  void uninstall() {
    platform_set_message_buffer(nullptr);
    platform_msgbuf_free(installed);
    installed = nullptr;
  }

  void peer_sends(const std::string &bytes) const { write_whole(theirs, bytes); }

  void close_theirs() {
    if (theirs >= 0)
      close(theirs);
    theirs = -1;
  }

  // The bytes of the installed buffer that have not been consumed.
  static std::string unconsumed() { return {gMsgBuf->p1, gMsgBuf->p2}; }

  int ours = -1;
  int theirs = -1;
  platform_msgbuf *installed = nullptr;
};

} // namespace sockets
