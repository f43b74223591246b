// The writes of a message to its streams, and the end of a stream that fails.
#include "messages/writer.h"

#include <cerrno>
#include <cstring>

namespace orv::messages {
namespace {

// The warning goes through the writer again; it ends because every round drops a stream.
void drop_stream(const char *operation, const Message &message, FILE *stream) {
  msg_remove_stream(message.type, stream);
  fflush(stream);
  const char *type = msg_type_name(message.type);
  const auto warn = message.solo ? msg_warn_solo : msg_warn;
  if (errno == 0) {
    warn("EOF error during %s of %s message.  This stream will no longer be used.", operation,
         type);
    return;
  }
  warn("Error during %s of %s message.  This stream will no longer be used.", operation, type);
  // Kept: the error number is read after the warning, which may have met a failing stream itself.
  msg_cont("Stream error was: %s", strerror(errno));
}

// Kept: a stream that moves into the slot of a dropped one misses the rest of that one write.
template <typename Write>
void on_every_stream(const Message &message, const char *operation, Write succeeds) {
  for (int32_t i = 0; i < message.streams->count; i++) {
    FILE *stream = message.streams->streams[i];
    if (!succeeds(stream))
      drop_stream(operation, message, stream);
  }
}

} // namespace

void write_piece_to_streams(const Message &message, std::string_view piece) {
  on_every_stream(message, "output", [piece](FILE *stream) {
    return fwrite(piece.data(), 1, piece.size(), stream) == piece.size();
  });
}

void write_newline_to_streams(const Message &message) {
  on_every_stream(message, "output", [](FILE *stream) { return putc('\n', stream) != EOF; });
}

void flush_streams(const Message &message) {
  on_every_stream(message, "flush", [](FILE *stream) { return fflush(stream) == 0; });
}

} // namespace orv::messages
