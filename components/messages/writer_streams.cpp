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

} // namespace

// Kept: a stream that moves into the slot of a dropped one misses the rest of that one write.
void write_to_streams(const Message &message, std::string_view piece) {
  if (piece.empty())
    return;
  for (int32_t i = 0; i < message.streams->count; i++) {
    FILE *stream = message.streams->streams[i];
    if (fwrite(piece.data(), 1, piece.size(), stream) != piece.size())
      drop_stream("output", message, stream);
  }
}

void flush_streams(const Message &message) {
  for (int32_t i = 0; i < message.streams->count; i++) {
    FILE *stream = message.streams->streams[i];
    if (fflush(stream) != 0)
      drop_stream("flush", message, stream);
  }
}

} // namespace orv::messages
