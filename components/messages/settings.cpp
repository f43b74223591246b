// What a program may set about its messages: the width limit, the solo switch and the prefixes.
#include "common/guards.h"
#include "messages/state.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace orv::messages {
namespace {

constexpr long kWidestFromEnvironment = 32766;

// The limit that a value of the environment variable asks for, beside the current one.
int32_t limit_asked_for(const char *value, int32_t current) {
  char *rest = nullptr;
  const long width = strtol(value, &rest, 10);
  if (rest == value)
    return current;
  if (width < 1 || width > kWidestFromEnvironment)
    return 0;
  // Kept: the environment widens the limit and never narrows it: a program's own layout is made
  // for at least that width.
  return std::max(static_cast<int32_t>(width), current);
}

[[gnu::cold, gnu::noinline]] void settle_width_from_environment() {
  ErrnoGuard keep;
  const char *value = getenv("ORV_MSGERR_WRAP");
  if (value != nullptr)
    state.width_limit = limit_asked_for(value, state.width_limit);
  state.width_settled = 1;
}

void set_prefix(PrefixSlot slot, const char *text, const char *setter) {
  const char *wanted = text == nullptr ? "" : text;
  const size_t size = strlen(wanted) + 1;
  auto *copy = static_cast<char *>(malloc(size));
  if (copy == nullptr) {
    // Kept: the sentence says "print prefix" whichever prefix was to be set; the setter's name in
    // front of it tells them apart.
    msg_warn("%s: Couldn't allocate %zu characters to store print prefix. Prefix unchanged.",
             setter, size);
    return;
  }
  memcpy(copy, wanted, size);
  Prefix &prefix = state.prefixes[slot];
  const Prefix replaced = prefix;
  prefix = {.text = copy, .owned = true};
  if (replaced.owned)
    release_text_when_idle(replaced.text);
}

} // namespace
} // namespace orv::messages

using namespace orv::messages;

void msg_set_width_limit(int width) {
  if (width < 0)
    msg_fatal("msg_set_width_limit: Width cannot be less than 0!");
  state.width_limit = width;
  state.width_settled = 1;
}

int msg_get_width_limit(void) {
  if (state.width_settled == 0)
    settle_width_from_environment();
  return state.width_limit;
}

int msg_get_solo_output(void) {
  return state.solo_output;
}

void msg_set_solo_output(int on) {
  state.solo_output = on;
}

void msg_set_mp_prefix(const char *text) {
  set_prefix(kMpPrefix, text, __func__);
}

const char *msg_get_mp_prefix(void) {
  return prefix_text(kMpPrefix);
}

void msg_set_warn_prefix(const char *text) {
  set_prefix(kWarnPrefix, text, __func__);
}

const char *msg_get_warn_prefix(void) {
  return prefix_text(kWarnPrefix);
}

void msg_set_print_prefix(const char *text) {
  set_prefix(kPrintPrefix, text, __func__);
}

const char *msg_get_print_prefix(void) {
  return prefix_text(kPrintPrefix);
}

void msg_set_internal_error_prefix(const char *text) {
  set_prefix(kInternalErrorPrefix, text, __func__);
}

const char *msg_get_internal_error_prefix(void) {
  return prefix_text(kInternalErrorPrefix);
}

void msg_set_error_prefix(const char *text) {
  set_prefix(kErrorPrefix, text, __func__);
}

const char *msg_get_error_prefix(void) {
  return prefix_text(kErrorPrefix);
}
