// The capturing stream, made with fopencookie.
#include "messages/capture.h"

#include <cerrno>
#include <stdexcept>

namespace support {

ssize_t Capture::take(void *cookie, const char *bytes, size_t size) {
  auto *self = static_cast<Capture *>(cookie);
  if (self->on_write)
    self->on_write();
  if (self->failing && self->still_passing-- <= 0) {
    errno = self->error_number;
    return 0;
  }
  self->arrived.emplace_back(bytes, size);
  return static_cast<ssize_t>(size);
}

Capture::Capture(int types, Buffering buffering)
    : opened(fopencookie(this, "w",
                         {.read = nullptr, .write = take, .seek = nullptr, .close = nullptr})) {
  if (opened == nullptr)
    throw std::runtime_error("no stream to capture messages");
  if (buffering == kUnbuffered)
    setvbuf(opened, nullptr, _IONBF, 0);
  msg_add_stream(types, opened);
}

Capture::~Capture() {
  for (int type = MSG_INFO; type <= MSG_DIAG; type *= 2)
    while (listed(type))
      msg_remove_stream(type, opened);
  on_write = nullptr;
  failing = false;
  fclose(opened);
}

std::string Capture::text() const {
  std::string all;
  for (const std::string &piece : arrived)
    all += piece;
  return all;
}

bool Capture::listed(int type) const {
  const msg_stream_desc *desc = _msg_get_stream_desc(type);
  for (int32_t i = 0; i < desc->count; i++)
    if (desc->streams[i] == opened)
      return true;
  return false;
}

void Capture::fail(int error, int passed) {
  failing = true;
  still_passing = passed;
  error_number = error;
}

const char *format_of_errno() {
  return "%m";
}

} // namespace support
