// The record of the message library with its initial values, and the release of texts that leave
// it.
#include "messages/state.h"
#include "common/guards.h"

#include <cstdlib>

namespace orv::messages {

constinit State state = {
    .streams = {},
    .width_limit = 78,
    .width_settled = 0,
    .solo_output = 1,
    .column = 0,
    .prefixes = {{"", false},
                 {"Warning: ", false},
                 {"", false},
                 {"Internal error: ", false},
                 {"Error: ", false}},
    .last = {.type = 0, .head = "", .head_owned = false, .solo = false, .format_type = 0},
    .initialised = 0,
    .messages_in_progress = 0,
    .retired = nullptr,
    .area_held = 0,
    .area = {},
    .diag = {},
};

void release_text_when_idle(const char *text) {
  ErrnoGuard keep;
  char *block = const_cast<char *>(text);
  if (state.messages_in_progress == 0) {
    free(block);
    return;
  }
  auto *entry = static_cast<RetiredText *>(malloc(sizeof(RetiredText)));
  if (entry == nullptr)
    return; // left behind: freed here, it would be read after that
  *entry = {.next = state.retired, .text = block};
  state.retired = entry;
}

void free_retired_texts() {
  ErrnoGuard keep;
  while (state.retired != nullptr) {
    RetiredText *first = state.retired;
    state.retired = first->next;
    free(first->text);
    free(first);
  }
}

} // namespace orv::messages
