// The socket message loop against a plain model that searches a byte at a time: random bytes in
// random pieces, handlers and idle callbacks that reset, replace and use the buffer in the middle.
// After each step both must have handed over the same messages and hold the same bytes. The socket
// is a text that the library receives from.
#include "../tests/platform/socket/message_model.h"
#include "bytes.h"
#include "library_run.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <orv/msg.h>
#include <orv/platform.h>
#include <string>
#include <sys/select.h>
#include <sys/types.h>
#include <vector>

namespace {

constexpr size_t kReceiveSize = 8192;
constexpr size_t kLongPiece = 9000; // more than a receive, and room for more lines than a table has
constexpr size_t kMostWaiting = 60000;
constexpr int kSocket = 5;

// What happens between two steps, while a callback runs.
enum class Action { nothing, feed, reset, replace, receive, dispatch };

struct Step {
  Action action;
  std::string bytes;
};

std::string piece_of(Bytes &input) {
  static constexpr char kKinds[] = {'\r', '\n', '\0', 'a'};
  std::string bytes;
  const bool long_one = input.one_in(32);
  const unsigned length = input.byte();
  for (unsigned i = 0; i < length % 48; i++) {
    const unsigned chosen = input.byte();
    bytes += chosen % 5 == 4 ? std::string("\r\n") : std::string(1, kKinds[chosen % 5]);
  }
  if (long_one) { // more lines than a table holds, or a line longer than a receive
    const std::string line = input.one_in(2) ? "a\r\n" : bytes.substr(0, 20);
    return repeated(line, std::min(line.size() * length * 10, kLongPiece)) + bytes;
  }
  return bytes;
}

Step step_of(Bytes &input) {
  static constexpr Action kBare[] = {Action::reset, Action::replace, Action::receive,
                                     Action::dispatch, Action::nothing};
  const unsigned choice = input.byte() % 8;
  if (choice < std::size(kBare))
    return {kBare[choice], ""};
  return {Action::feed, piece_of(input)};
}

// The steps that callbacks take, in order; the model and the library take the same.
struct Script {
  std::vector<Step> steps;
  size_t next;

  const Step &take() {
    static const Step nothing = {Action::nothing, ""};
    return next < steps.size() ? steps[next++] : nothing;
  }
};

// ---- the model ----

struct Model {
  std::vector<model::Buffer> buffers;
  size_t installed = 0;
  std::string waiting; // in the socket
  std::vector<model::Lines> messages;
  int dropped = 0;
  bool overflow = false;
  Script handler_script;
  Script idle_script;

  model::Buffer &buffer() { return buffers[installed]; }

  void feed(const std::string &bytes) {
    if (waiting.size() + bytes.size() <= kMostWaiting)
      waiting += bytes;
  }

  std::string receive() {
    const std::string bytes = waiting.substr(0, kReceiveSize);
    waiting.erase(0, bytes.size());
    return bytes;
  }

  void append(const std::string &bytes) {
    if (buffer().fits(bytes.size()))
      buffer().append(bytes);
    else
      overflow = true;
  }

  // A handler's own step; it neither receives nor dispatches.
  void act_in_handler() {
    const Step &step = handler_script.take();
    if (step.action == Action::reset)
      buffer().p1 = buffer().p2 = 0;
    if (step.action == Action::replace)
      installed = 1 - installed;
    if (step.action == Action::feed)
      feed(step.bytes);
  }

  bool hand_over_next() {
    model::Lines lines;
    if (!model::next_message(buffer(), lines, dropped))
      return false;
    messages.push_back(lines);
    act_in_handler();
    buffer().compact();
    return true;
  }

  void recv_messages() {
    if (!waiting.empty())
      append(receive());
  }

  void dispatch() {
    while (hand_over_next()) {
    }
  }

  void act(const Step &step) {
    switch (step.action) {
    case Action::feed:
      feed(step.bytes);
      break;
    case Action::reset:
      buffer().p1 = buffer().p2 = 0;
      break;
    case Action::replace:
      installed = 1 - installed;
      break;
    case Action::receive:
      recv_messages();
      break;
    case Action::dispatch:
      dispatch();
      break;
    case Action::nothing:
      break;
    }
  }

  // Without waiting, on a socket that does not block.
  int get_one() {
    while (!overflow) {
      if (hand_over_next())
        return 1;
      const bool ready = !waiting.empty();
      act(idle_script.take());
      if (!ready || waiting.empty() || overflow)
        return 0;
      append(receive());
    }
    return 0;
  }
};

// ---- the library ----

struct Real {
  std::string waiting; // in the socket
  platform_msgbuf *buffers[2];
  size_t installed;
  std::vector<model::Lines> messages;
  Script handler_script;
  Script idle_script;
};
Real real;

void check(bool holds, const char *what) {
  if (!holds) {
    fprintf(stderr, "the library and the model differ: %s\n", what);
    abort();
  }
}

void feed(const std::string &bytes) {
  if (real.waiting.size() + bytes.size() <= kMostWaiting)
    real.waiting += bytes;
}

void replace() {
  real.installed = 1 - real.installed;
  platform_set_message_buffer(real.buffers[real.installed]);
}

int handle(int, char *first, char **further) {
  model::Lines lines{first};
  for (; *further != nullptr; further++)
    lines.emplace_back(*further);
  real.messages.push_back(lines);
  const Step &step = real.handler_script.take();
  if (step.action == Action::reset)
    platform_msgbuf_reset(gMsgBuf);
  if (step.action == Action::replace)
    replace();
  if (step.action == Action::feed)
    feed(step.bytes);
  return 1;
}

void act(const Step &step) {
  switch (step.action) {
  case Action::feed:
    feed(step.bytes);
    break;
  case Action::reset:
    platform_msgbuf_reset(gMsgBuf);
    break;
  case Action::replace:
    replace();
    break;
  case Action::receive:
    platform_recv_messages(kSocket);
    break;
  case Action::dispatch:
    platform_dispatch_messages(kSocket, handle);
    break;
  case Action::nothing:
    break;
  }
}

void idle() {
  act(real.idle_script.take());
}

// ---- both ----

void open_real(const Model &expected, char fill) {
  real.waiting.clear();
  for (size_t i = 0; i < 2; i++) {
    const size_t capacity = expected.buffers[i].capacity;
    real.buffers[i] = platform_msgbuf_create(static_cast<int>(capacity));
    memset(real.buffers[i]->pBuf, fill, capacity);
  }
  real.installed = 0;
  real.messages.clear();
  platform_set_message_buffer(real.buffers[0]);
}

void close_real() {
  platform_set_message_buffer(nullptr);
  for (platform_msgbuf *buffer : real.buffers)
    platform_msgbuf_free(buffer);
}

void compare(Model &expected) {
  check(real.messages == expected.messages, "the messages");
  real.messages.clear();
  expected.messages.clear();
  check(real.installed == expected.installed, "the installed buffer");
  check(real.waiting == expected.waiting, "the bytes in the socket");
  for (size_t i = 0; i < 2; i++) {
    const model::Buffer &buffer = expected.buffers[i];
    const platform_msgbuf *held = real.buffers[i];
    check(static_cast<size_t>(held->p1 - held->pBuf) == buffer.p1, "p1");
    check(static_cast<size_t>(held->p2 - held->pBuf) == buffer.p2, "p2");
    check(memcmp(held->pBuf, buffer.storage.data(), buffer.capacity) == 0, "the storage");
  }
}

// Both get the same steps for the callbacks of the next call.
void write_scripts(Bytes &input, Model &expected) {
  Script handler = {.steps = {}, .next = 0};
  Script idling = {.steps = {}, .next = 0};
  for (unsigned i = input.byte() % 4; i > 0; i--)
    handler.steps.push_back(step_of(input));
  for (unsigned i = input.byte() % 6; i > 0; i--)
    idling.steps.push_back(step_of(input));
  expected.handler_script = real.handler_script = handler;
  expected.idle_script = real.idle_script = idling;
}

// False when the step would end the process by the buffer's assertion.
bool take_step(Bytes &input, Model &expected) {
  write_scripts(input, expected);
  if (input.byte() % 2 == 0) {
    const Step step = step_of(input);
    expected.act(step);
    if (expected.overflow)
      return false;
    return library_run::run([&] {
      act(step);
      return true;
    });
  }
  const int result = expected.get_one();
  if (expected.overflow)
    return false;
  check(library_run::run([] { return platform_get_one_message(kSocket, handle, idle, 0); }) ==
            result,
        "the result");
  return true;
}

} // namespace

extern "C" {

ssize_t __real_recv(int fd, void *buffer, size_t size, int flags);
ssize_t __wrap_recv(int fd, void *buffer, size_t size, int flags) {
  if (!library_run::active)
    return __real_recv(fd, buffer, size, flags);
  if (real.waiting.empty()) {
    errno = EAGAIN;
    return -1;
  }
  const size_t received = std::min(size, real.waiting.size());
  memcpy(buffer, real.waiting.data(), received);
  real.waiting.erase(0, received);
  return static_cast<ssize_t>(received);
}

int __real_select(int count, fd_set *reading, fd_set *writing, fd_set *failing, timeval *limit);
int __wrap_select(int count, fd_set *reading, fd_set *writing, fd_set *failing, timeval *limit) {
  if (!library_run::active)
    return __real_select(count, reading, writing, failing, limit);
  check(count == kSocket + 1 && FD_ISSET(kSocket, reading), "what is waited for");
  return real.waiting.empty() ? 0 : 1;
}

// Whether the descriptor is open.
int __wrap_fcntl(int, int, ...) {
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  msg_clear_streams(MSG_WARN); // of messages with too many lines
  Bytes input = {.data = data, .left = size};
  const char fill = "\r\n?"[input.byte() % 3];
  Model expected;
  for (int i = 0; i < 2; i++) {
    const size_t capacity = input.one_in(16) ? 20000 : 1 + input.byte();
    expected.buffers.emplace_back(capacity, fill);
  }
  open_real(expected, fill);
  while (input.left > 0 && take_step(input, expected))
    compare(expected);
  close_real();
  return 0;
}

} // extern "C"
