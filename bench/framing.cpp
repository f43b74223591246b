// Framed messages: as a user would write it by hand, the least that the library's behaviour allows,
// and the library.
#include "framing.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <orv/platform.h>
#include <sys/select.h>

namespace {

using framing::kLine;

constexpr size_t kRoom = 4 * framing::kReceiveSize; // behind the longest message

// A user who knows what he sends and looks for the empty line only.
class Raw {
public:
  Raw(int receive_fd, int send_fd, size_t longest)
      : receive_fd_(receive_fd), send_fd_(send_fd), buffer_(new char[longest + kRoom]),
        limit_(buffer_ + longest + kRoom) {
    start_ = line_ = searched_ = end_ = buffer_;
  }

  void send() { bench::send_all(send_fd_, framing::kMessage, framing::kMessageSize); }

  void receive(long messages) {
    while (messages > 0) {
      auto *const newline =
          static_cast<char *>(memchr(searched_, '\n', static_cast<size_t>(end_ - searched_)));
      if (newline == nullptr) {
        fill();
        continue;
      }
      const bool empty = newline - line_ <= 1;
      line_ = searched_ = newline + 1;
      if (empty) {
        start_ = line_;
        messages--;
      }
    }
  }

private:
  void fill() {
    searched_ = end_;
    if (start_ == end_ || limit_ - end_ < static_cast<ptrdiff_t>(framing::kReceiveSize))
      move_to_front();
    const ssize_t received = recv(receive_fd_, end_, framing::kReceiveSize, 0);
    if (received <= 0)
      bench::die("recv");
    end_ += received;
  }

  void move_to_front() {
    const ptrdiff_t distance = start_ - buffer_;
    memmove(buffer_, start_, static_cast<size_t>(end_ - start_));
    start_ -= distance;
    line_ -= distance;
    searched_ -= distance;
    end_ -= distance;
  }

  int receive_fd_;
  int send_fd_;
  char *buffer_;
  char *limit_;
  char *start_;    // of the message
  char *line_;     // the one being searched for its end
  char *searched_; // what comes before has been looked at
  char *end_;
};

// The steps that the library's behaviour asks for, and nothing besides: a select before each
// receive of 8192 bytes, lines made strings in place, and the rest of the bytes moved to the front
// after each message: or only where there is need, to show what that costs.
template <bool Compacting> class Floor {
public:
  Floor(int receive_fd, int send_fd, size_t longest)
      : receive_fd_(receive_fd), send_fd_(send_fd), buffer_(new char[longest + kRoom]),
        limit_(buffer_ + longest + kRoom) {
    start_ = searched_ = end_ = buffer_;
  }

  void send() { send_lines(send_fd_, kLine, kLine, kLine, nullptr); }

  void receive(long messages) {
    begin_message();
    while (messages > 0) {
      if (!find_end()) {
        fill();
        continue;
      }
      hand_over();
      consume();
      messages--;
    }
  }

private:
  static void send_lines(int sock, const char *first, ...) {
    char bytes[8192];
    char *end = bytes;
    va_list lines;
    va_start(lines, first);
    for (const char *line = first; line != nullptr; line = va_arg(lines, const char *)) {
      const size_t length = strlen(line);
      if (length > static_cast<size_t>(bytes + sizeof bytes - end) - 4)
        abort();
      end = static_cast<char *>(mempcpy(mempcpy(end, line, length), "\r\n", 2));
    }
    va_end(lines);
    end = static_cast<char *>(mempcpy(end, "\r\n", 2));
    bench::send_all(sock, bytes, static_cast<size_t>(end - bytes));
  }

  void begin_message() {
    lines_[0] = searched_ = start_;
    line_count_ = 1;
  }

  bool find_end() {
    char *from = searched_;
    while (end_ - from >= 4) {
      auto *const found =
          static_cast<char *>(memchr(from, '\r', static_cast<size_t>(end_ - from - 3)));
      searched_ = found != nullptr ? found : end_ - 3;
      if (found == nullptr)
        return false;
      if (memcmp(found, "\r\n\r\n", 4) == 0)
        return true;
      from = found + 1;
      if (*from == '\n' && line_count_ < kMostLines)
        lines_[line_count_++] = ++from;
    }
    searched_ = from;
    return false;
  }

  void hand_over() {
    for (size_t line = 1; line < line_count_; line++)
      lines_[line][-2] = '\0';
    searched_[0] = searched_[2] = '\0';
    lines_[line_count_] = nullptr;
    bench::keep(static_cast<char **>(lines_));
    start_ = searched_ + 4;
  }

  void consume() {
    const bool full = limit_ - end_ < static_cast<ptrdiff_t>(framing::kReceiveSize);
    if (Compacting || start_ == end_ || full) {
      const auto left = static_cast<size_t>(end_ - start_);
      memmove(buffer_, start_, left);
      start_ = buffer_;
      end_ = buffer_ + left;
    }
    begin_message();
  }

  void fill() {
    char received[8192];
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(receive_fd_, &readable);
    timeval slice{.tv_sec = 0, .tv_usec = 100000};
    if (select(receive_fd_ + 1, &readable, nullptr, nullptr, &slice) <= 0)
      return;
    const ssize_t length = recv(receive_fd_, received, sizeof received, 0);
    if (length <= 0 || length >= limit_ - end_)
      bench::die("recv");
    end_ = static_cast<char *>(mempcpy(end_, received, static_cast<size_t>(length)));
  }

  static constexpr size_t kMostLines = 2047;

  int receive_fd_;
  int send_fd_;
  char *buffer_;
  char *limit_;
  char *start_;
  char *searched_;
  char *end_;
  char *lines_[kMostLines + 1];
  size_t line_count_ = 0;
};

long messages_to_come;

int handle(int, char *first, char **further) {
  bench::keep(first);
  bench::keep(further);
  return --messages_to_come > 0;
}

class Orv {
public:
  Orv(int receive_fd, int send_fd, size_t longest) : receive_fd_(receive_fd), send_fd_(send_fd) {
    platform_set_message_buffer(platform_msgbuf_create(static_cast<int>(longest + kRoom)));
  }

  void send() { platform_sock_send_message(send_fd_, kLine, kLine, kLine, nullptr); }

  void receive(long messages) {
    messages_to_come = messages;
    platform_message_loop(receive_fd_, handle, nullptr, 0);
  }

private:
  int receive_fd_;
  int send_fd_;
};

using framing::prepare;
using framing::work;

constexpr bench::Contender kContenders[] = {
    {"raw", prepare<Raw>, work<Raw>},
    {"floor", prepare<Floor<true>>, work<Floor<true>>},
    {"floor-uncompacted", prepare<Floor<false>>, work<Floor<false>>},
    {"orv", prepare<Orv>, work<Orv>},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
