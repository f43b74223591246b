// The stream lists: which streams a message of each type goes to, and their sync flags.
#include "messages/streams.h"
#include "common/end_process.h"
#include "common/guards.h"
#include "messages/state.h"

#include <cstddef>
#include <cstdlib>
#include <unistd.h>

namespace orv::messages {
namespace {

static_assert(offsetof(msg_stream_desc, count) == 0 && offsetof(msg_stream_desc, capacity) == 4 &&
              offsetof(msg_stream_desc, streams) == 8 && offsetof(msg_stream_desc, sync) == 16 &&
              sizeof(msg_stream_desc) == 24);

struct TypeRow {
  int type;
  const char *name;
};

constexpr TypeRow kTypes[] = {
    {MSG_INFO, "informational"}, {MSG_DEBUG, "debug"}, {MSG_WARN, "warning"},
    {MSG_ERROR, "error"},        {MSG_DIAG, "diag"},
};

constexpr bool rows_are_in_the_order_of_their_values() {
  for (int index = 0; index < kTypeCount; index++)
    if (kTypes[index].type != 1 << index)
      return false;
  return sizeof kTypes / sizeof kTypes[0] == kTypeCount;
}
static_assert(rows_are_in_the_order_of_their_values());

constexpr int32_t kSlotsAdded = 5;

bool in_mask(int types, int index) {
  return (types & kTypes[index].type) != 0;
}

FILE **allocate_slots(FILE **old, int32_t capacity) {
  const size_t size = static_cast<size_t>(capacity) * sizeof(FILE *);
  return static_cast<FILE **>(old == nullptr ? malloc(size) : realloc(old, size));
}

// No message could say it: the list that the message would go to is the one that has no room.
[[noreturn]] void end_without_streams() {
  constexpr char kText[] = "Couldn't allocate initial storage space for stream output array.";
  static_assert(sizeof kText - 1 == 64);
  fwrite(kText, 1, sizeof kText - 1, stderr);
  end_process_with_failure();
}

[[nodiscard]] bool make_room(msg_stream_desc &desc) {
  if (desc.count < desc.capacity)
    return true;
  desc.capacity += kSlotsAdded;
  FILE **slots = allocate_slots(desc.streams, desc.capacity);
  if (slots != nullptr) {
    desc.streams = slots;
    return true;
  }
  if (desc.streams == nullptr)
    end_without_streams();
  desc.capacity -= kSlotsAdded;
  msg_warn("Couldn't allocate more storage for stream array.  Not adding stream.");
  return false;
}

void initialise() {
  ErrnoGuard keep;
  for (msg_stream_desc &desc : state.streams)
    desc = {.count = 0, .capacity = 0, .streams = nullptr, .sync = 0};
  state.streams[index_of_type(MSG_INFO)].sync = 1;
  state.initialised = 1;
  msg_add_stream(MSG_INFO | MSG_DEBUG, stdout);
  msg_add_stream(MSG_WARN | MSG_ERROR, stderr);
}

void initialise_once() {
  if (state.initialised == 0)
    initialise();
}

void remove_first(msg_stream_desc &desc, const FILE *stream) {
  int32_t at = 0;
  while (at < desc.count && desc.streams[at] != stream)
    at++;
  if (at == desc.count)
    return;
  for (desc.count--; at < desc.count; at++)
    desc.streams[at] = desc.streams[at + 1];
}

void force_to_disk(const msg_stream_desc &desc) {
  for (int32_t i = 0; i < desc.count; i++) {
    fflush(desc.streams[i]);
    fsync(fileno(desc.streams[i]));
  }
}

void switch_sync_on(int types) {
  for (int index = 0; index < kTypeCount; index++) {
    msg_stream_desc &desc = state.streams[index];
    if (!in_mask(types, index) || desc.sync != 0)
      continue;
    desc.sync = 1;
    force_to_disk(desc);
  }
}

int query_sync(int types) {
  int result = -2;
  bool is_first = true;
  for (int index = 0; index < kTypeCount; index++) {
    if (!in_mask(types, index))
      continue;
    // Kept: the flag of a further type is compared with the query's own mode, which it never
    // equals, so that a query of several types answers -1 even when their flags are the same.
    if (is_first)
      result = state.streams[index].sync;
    else if (result >= 0)
      result = -1;
    is_first = false;
  }
  return result;
}

} // namespace

msg_stream_desc *streams_of_type(int type) {
  initialise_once();
  const int index = index_of_type(type);
  if (index >= 0)
    return &state.streams[index];
  msg_fatal("Internal error (_msg_get_stream_desc): Unknown message type: %d", type);
}

bool every_stream_has_a_descriptor() {
  const ErrnoGuard keep;
  for (const msg_stream_desc &desc : state.streams)
    for (int32_t i = 0; i < desc.count; i++)
      if (fileno(desc.streams[i]) < 0)
        return false;
  return true;
}

} // namespace orv::messages

using namespace orv::messages;

int msg_add_stream(int types, FILE *stream) {
  initialise_once();
  int count = 0;
  for (int index = 0; index < kTypeCount && stream != nullptr; index++) {
    msg_stream_desc &desc = state.streams[index];
    if (!in_mask(types, index) || !make_room(desc))
      continue;
    desc.streams[desc.count++] = stream;
    count = desc.count;
  }
  return count;
}

void msg_remove_stream(int types, FILE *stream) {
  initialise_once();
  for (int index = 0; index < kTypeCount; index++)
    if (in_mask(types, index))
      remove_first(state.streams[index], stream);
}

void msg_clear_streams(int types) {
  initialise_once();
  for (int index = 0; index < kTypeCount; index++)
    if (in_mask(types, index))
      state.streams[index].count = 0;
}

int msg_set_sync(int types, int mode) {
  initialise_once();
  if (mode < 0)
    return query_sync(types);
  // Kept: mode 0 changes nothing: a log that was asked to survive a crash cannot lose that promise
  // to another part of the program.
  if (mode == 1)
    switch_sync_on(types);
  return mode;
}

msg_stream_desc *_msg_get_stream_desc(int type) {
  return streams_of_type(type);
}

int msg_has_print_streams(void) {
  return streams_of_type(MSG_INFO)->count > 0;
}

int msg_has_warn_streams(void) {
  return streams_of_type(MSG_WARN)->count > 0;
}

const char *msg_type_name(int type) {
  const int index = index_of_type(type);
  if (index >= 0)
    return kTypes[index].name;
  msg_fatal("Internal error: Unknown message type: %d", type);
}
