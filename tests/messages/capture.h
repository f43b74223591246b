// A stream that keeps what is written to it, piece by piece, and fails where a test has planned so;
// and the fixture of the tests of messages, which starts with every stream list empty.
#pragma once

#include "support/resources.h"

#include <cstdio>
#include <functional>
#include <orv/msg.h>
#include <string>
#include <vector>

namespace support {

constexpr int kAllTypes = MSG_INFO | MSG_DEBUG | MSG_WARN | MSG_ERROR | MSG_DIAG;

class Capture {
public:
  // An unbuffered stream sees every write of the library by itself; a buffered one sees what has
  // been flushed.
  enum Buffering { kUnbuffered, kBuffered };

  // Opens the stream and adds it to the types of the mask.
  explicit Capture(int types, Buffering buffering = kUnbuffered);
  Capture(const Capture &) = delete;
  Capture &operator=(const Capture &) = delete;
  // Takes the stream out of all lists and closes it.
  ~Capture();

  [[nodiscard]] FILE *stream() const { return opened; }
  // Everything that has arrived, and the same by write.
  [[nodiscard]] std::string text() const;
  [[nodiscard]] const std::vector<std::string> &pieces() const { return arrived; }
  void forget() { arrived.clear(); }
  [[nodiscard]] bool listed(int type) const;

  // Lets `passed` writes through; every later one fails, with `error` in errno.
  void fail(int error, int passed = 0);
  void recover() { failing = false; }
  // Is called at each write, before the piece is kept.
  std::function<void()> on_write;

private:
  static ssize_t take(void *cookie, const char *bytes, size_t size);

  FILE *opened;
  std::vector<std::string> arrived;
  bool failing = false;
  int still_passing = 0;
  int error_number = 0;
};

// "%m": the text of errno. Not written out in the calls, whose formats the compiler holds to ISO C.
const char *format_of_errno();

// Clears the lists on construction, so that a fixture may hold captures as members.
class MessagesTest : public ResourceTest {
protected:
  MessagesTest() { msg_clear_streams(kAllTypes); }
};

} // namespace support
