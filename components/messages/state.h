// Everything that the message library keeps between two calls, in one record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <orv/msg.h>

namespace orv::messages {

constexpr int kTypeCount = 5;
constexpr int kDiagIndex = 4; // of MSG_DIAG in State::streams
constexpr size_t kTextAreaSize = 16384;

// The prefixes that a program may set, as indices of State::prefixes.
enum PrefixSlot { kMpPrefix, kWarnPrefix, kPrintPrefix, kInternalErrorPrefix, kErrorPrefix };
constexpr int kPrefixCount = 5;

struct Prefix {
  const char *text; // never null
  bool owned;       // the text is a heap copy; the initial texts are constants
};

// What msg_cont goes on with.
struct LastMessage {
  int type;         // 0 until the first message has been written
  const char *head; // leads a fresh line of that message
  bool head_owned;  // the head is a heap copy; mostly it is a piece of the constant blanks
  bool solo;
  int format_type;
};

// A heap text that was replaced while a message that may read it was being written.
struct RetiredText {
  RetiredText *next;
  char *text;
};

constexpr size_t kDirectoryBytes = 4096;
constexpr size_t kLoginNameBytes = 256;

// What the diagnostic log keeps.
struct DiagState {
  char directory[kDirectoryBytes];  // what diag_set_dir stored; empty: the default directory
  char login_name[kLoginNameBytes]; // empty until the system could tell it
  int stamped_log_attempted;        // 1 once diag_open_stamped_log was called
  bool echo_decided;                // the environment was asked about the echo
  FILE *echo;                       // takes diag_perror's lines too; null: none
};

struct State {
  // In the order of the types' values. First: diag_printf tests a count at a fixed place.
  msg_stream_desc streams[kTypeCount];
  int32_t width_limit;   // columns; 0 switches wrapping off
  int32_t width_settled; // 1 once the environment has been read or a limit has been set
  int32_t solo_output;   // 0 silences the solo messages
  int32_t column;        // characters on the current output line, of all types and streams together
  Prefix prefixes[kPrefixCount];
  LastMessage last;
  int32_t initialised;          // 1 once the stream lists hold their defaults
  int32_t messages_in_progress; // nested when a stream fails while a message is written
  RetiredText *retired;         // given back when no message is in progress
  size_t area_held;             // bytes of the area that messages in progress take up
  char area[kTextAreaSize];     // holds ordinary texts, and what fits when the heap refuses
  DiagState diag;
};

extern constinit State state __attribute__((visibility("hidden")));

[[nodiscard]] inline const char *prefix_text(PrefixSlot slot) {
  return state.prefixes[slot].text;
}

// The index of a type's streams in State::streams, -1 for a value that is no single type.
constexpr int index_of_type(int type) {
  for (int index = 0; index < kTypeCount; index++)
    if (type == 1 << index)
      return index;
  return -1;
}
static_assert(index_of_type(MSG_DIAG) == kDiagIndex);

// Frees a heap text of this record, but not under a message that may still be reading it.
void release_text_when_idle(const char *text);
void free_retired_texts();

} // namespace orv::messages
