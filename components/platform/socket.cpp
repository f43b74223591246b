// The socket message loop: received bytes collect in the installed message buffer, complete
// messages are cut there in place and handed to the caller's handler.
#include "platform/socket_search.h"
#include "platform/socket_state.h"

#include "common/assertion.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <orv/msg.h>
#include <orv/platform.h>

static_assert(offsetof(platform_msgbuf, pBuf) == 0);
static_assert(offsetof(platform_msgbuf, len) == 8);
static_assert(offsetof(platform_msgbuf, p1) == 16);
static_assert(offsetof(platform_msgbuf, p2) == 24);
static_assert(sizeof(platform_msgbuf) == 32);

constinit platform_msgbuf *gMsgBuf = nullptr;

namespace orv {

constinit SocketState socket_state = {};

namespace {

constexpr int kReceiveSize = 8192;
constexpr int kDrainSize = 2048;

// The bytes that a search has seen: where they stood, and how often this library had changed a
// buffer by then.
struct SeenBytes {
  const char *start;
  const char *end;
  uint64_t changes;
};

SeenBytes seen_bytes() {
  return {.start = gMsgBuf->p1, .end = gMsgBuf->p2, .changes = socket_state.buffer_changes};
}

bool still_there(const SeenBytes &seen) {
  return gMsgBuf->p1 == seen.start && gMsgBuf->p2 == seen.end &&
         socket_state.buffer_changes == seen.changes;
}

// Kept: the buffer is never enlarged. Bytes that would reach its capacity end the process by the
// assertion before each append, so a peer cannot make this process grow.
void append(const char *bytes, int length) {
  memcpy(gMsgBuf->p2, bytes, static_cast<size_t>(length));
  gMsgBuf->p2 += length;
  socket_state.buffer_changes++;
}

// Moves what has not been consumed to the front of the buffer that is installed now.
void compact() {
  platform_msgbuf *const buffer = gMsgBuf;
  socket_state.buffer_changes++;
  if (buffer == nullptr)
    return;
  const ptrdiff_t left = buffer->p2 - buffer->p1;
  if (left > 0)
    memmove(buffer->pBuf, buffer->p1, static_cast<size_t>(left));
  buffer->p2 = buffer->pBuf + left;
  buffer->p1 = buffer->pBuf;
}

int hand_over(int sock, platform_message_handler handler, MessageSearch &search) {
  cut_lines(search);
  gMsgBuf->p1 = after_message(search);
  const int result = handler(sock, search.line_starts[0], search.line_starts + 1);
  compact(); // the handler may have installed another buffer
  return result;
}

// A message with more lines than the table holds goes unhandled, but not unsaid.
void drop_message(const MessageSearch &search) {
  gMsgBuf->p1 = after_message(search);
  compact();
  msg_warn("A message of more than %zu lines was received.  It is dropped.", kMostLines);
}

// Goes on with the search until it has found a message that can be handed over.
bool find_message(MessageSearch &search) {
  while (find_message_end(search, gMsgBuf->p2)) {
    if (search.line_count <= kMostLines)
      return true;
    drop_message(search);
    begin_search(search, gMsgBuf->p1);
  }
  return false;
}

// Kept: what is waiting is discarded without regard to where a message begins, for as long as the
// peer keeps sending.
void drain(int sock) {
  char discarded[kDrainSize];
  while (platform_sock_recv_wait(sock, discarded, kDrainSize, 0, nullptr) > 0) {
  }
}

} // namespace
} // namespace orv

platform_msgbuf *platform_msgbuf_create(int capacity) {
  if (capacity < 0)
    capacity = 0;
  auto *const buffer = static_cast<platform_msgbuf *>(malloc(sizeof(platform_msgbuf)));
  char *const storage = static_cast<char *>(malloc(static_cast<size_t>(capacity)));
  if (buffer == nullptr || storage == nullptr) {
    free(storage);
    free(buffer);
    return nullptr;
  }
  *buffer = {.pBuf = storage, .len = capacity, .p1 = storage, .p2 = storage};
  return buffer;
}

void platform_msgbuf_reset(platform_msgbuf *buffer) {
  buffer->p1 = buffer->pBuf;
  buffer->p2 = buffer->pBuf;
  orv::socket_state.buffer_changes++;
}

void platform_msgbuf_free(platform_msgbuf *buffer) {
  if (buffer == nullptr)
    return;
  if (buffer == gMsgBuf)
    platform_set_message_buffer(nullptr); // a handler may free the buffer that it was called from
  free(buffer->pBuf);
  free(buffer);
}

void platform_set_message_buffer(platform_msgbuf *buffer) {
  gMsgBuf = buffer;
  orv::socket_state.buffer_changes++;
}

int platform_recv_messages(int sock) {
  if (gMsgBuf == nullptr) {
    errno = ENOBUFS;
    return -1;
  }
  char received[orv::kReceiveSize];
  const int len = platform_sock_recv(sock, received, orv::kReceiveSize);
  assert(gMsgBuf->p2 + len - gMsgBuf->pBuf < gMsgBuf->len);
  if (len >= 1)
    orv::append(received, len);
  return len;
}

void platform_dispatch_messages(int sock, platform_message_handler handler) {
  orv::MessageSearch search;
  while (gMsgBuf != nullptr) {
    orv::begin_search(search, gMsgBuf->p1);
    if (!orv::find_message(search))
      return;
    orv::hand_over(sock, handler, search);
  }
}

int platform_get_one_message(int sock, platform_message_handler handler,
                             platform_idle_callback idle, int wait) {
  if (gMsgBuf == nullptr)
    return 0;
  orv::MessageSearch search;
  orv::begin_search(search, gMsgBuf->p1);
  while (!orv::find_message(search)) {
    char received[orv::kReceiveSize];
    const orv::SeenBytes seen = orv::seen_bytes();
    const int len = platform_sock_recv_wait(sock, received, orv::kReceiveSize, wait, idle);
    if (len < 0 || (len == 0 && wait == 0) || gMsgBuf == nullptr)
      return 0;
    if (!orv::still_there(seen))
      orv::begin_search(search, gMsgBuf->p1); // the idle callback has been at the buffer
    assert(gMsgBuf->p2 + len - gMsgBuf->pBuf < gMsgBuf->len);
    orv::append(received, len);
  }
  return orv::hand_over(sock, handler, search);
}

int platform_message_loop(int sock, platform_message_handler handler, platform_idle_callback idle,
                          int drain) {
  if (drain != 0)
    orv::drain(sock);
  if (gMsgBuf == nullptr) {
    msg_warn("platform_message_loop has no buffer set!!!\n");
    return 0;
  }
  while (platform_get_one_message(sock, handler, idle, 1) != 0) {
  }
  return 0;
}
