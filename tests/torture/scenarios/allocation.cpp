// Allocation: every call in plain and in debug mode, with and without a failure handler, and what a
// refusal leaves.
#include "scenario.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <orv/alloc.h>
#include <orv/msg.h>

using namespace scenario;

namespace {

char long_text[5000];

int refusals = 0;
char latest_sentence[300];

// A program that goes on without the block.
void *answer_null(size_t size, const char *sentence) {
  EXPECT(size > 0);
  EXPECT(strstr(sentence, "allocate") != nullptr);
  snprintf(latest_sentence, sizeof latest_sentence, "%s", sentence);
  refusals++;
  return nullptr;
}

bool is_filled(const void *block, int byte, size_t size) {
  const auto *bytes = static_cast<const unsigned char *>(block);
  for (size_t i = 0; i < size; i++)
    if (bytes[i] != byte)
      return false;
  return true;
}

// Each result is a block, or null after one refusal more.
struct Outcome {
  int refusals_before = refusals;
  bool holds(const void *result) const {
    return (result == nullptr) == (refusals > refusals_before);
  }
};

void resize_one() {
  Outcome outcome;
  auto *block = static_cast<char *>(orv_malloc(100, "resize_one", "the block"));
  EXPECT(outcome.holds(block));
  if (block == nullptr)
    return;
  memset(block, 7, 100);
  outcome = {};
  auto *grown = static_cast<char *>(orv_realloc(block, 100000, "resize_one", "more"));
  EXPECT(outcome.holds(grown));
  if (grown != nullptr)
    EXPECT(is_filled(grown, 7, 100));
  else
    EXPECT(is_filled(block, 7, 100)); // the old block stays valid
  // In debug mode it can no longer be given back.
  if (grown != nullptr || orv_malloc_debug_mode() == 0)
    orv_free(grown != nullptr ? grown : block);
}

void allocate_and_give_back() {
  Outcome outcome;
  void *block = orv_malloc(1000, "scenario", "a block");
  EXPECT(outcome.holds(block));
  orv_free(block);
  outcome = {};
  block = orv_calloc(10, 100, "scenario", "zeros");
  EXPECT(outcome.holds(block) && (block == nullptr || is_filled(block, 0, 1000)));
  orv_free(block);
  outcome = {};
  block = orv_malloc_at(10, "ROOM", 12, "scenario.c");
  EXPECT(outcome.holds(block));
  if (block == nullptr)
    EXPECT(strcmp(latest_sentence, "ROOM in scenario.c, line 12: Not enough memory to allocate 10 "
                                   "bytes.") == 0);
  orv_free(block);
  outcome = {};
  char *text = orv_strdup("text", "scenario", nullptr);
  EXPECT(outcome.holds(text) && (text == nullptr || strcmp(text, "text") == 0));
  orv_free(text);
  resize_one();
}

void format_texts() {
  Outcome outcome;
  char *text = orv_printf_strdup("%d", 42);
  EXPECT(outcome.holds(text) && (text == nullptr || strcmp(text, "42") == 0));
  orv_free(text);
  outcome = {};
  text = orv_printf_strdup("%s %s", "one", long_text);
  EXPECT(outcome.holds(text) && (text == nullptr || strlen(text) == 4 + strlen(long_text)));
  orv_free(text);
}

void fill_long_text() {
  memset(long_text, 'x', sizeof long_text - 1);
}

// Without a handler a refusal is the end, so what comes back is good.
void use_plain_blocks() {
  fill_long_text();
  const Level level;
  allocate_and_give_back();
  format_texts();
  level.expect_heap();
}

void use_plain_blocks_with_handler() {
  fill_long_text();
  orv_set_malloc_failure_handler(answer_null);
  const Level level;
  allocate_and_give_back();
  format_texts();
  level.expect_heap();
}

// Every refused block but a resized one is gone without a trace.
void use_debug_blocks_with_handler(int mode) {
  fill_long_text();
  orv_set_malloc_failure_handler(answer_null);
  orv_enable_malloc_debug(mode);
  allocate_and_give_back();
  format_texts();
  EXPECT(orv_malloc_mem_used() == 0);
  orv_malloc_debug_report(1);
}

void use_checked_blocks() {
  use_debug_blocks_with_handler(ORV_MALLOC_CHECK_PTR);
}

void use_verified_blocks() {
  use_debug_blocks_with_handler(ORV_MALLOC_VERIFY_HEAP);
}

// More blocks than the table of records holds at first.
void use_many_debug_blocks() {
  static void *blocks[1500];
  orv_set_malloc_failure_handler(answer_null);
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  uint32_t live = 0;
  for (void *&block : blocks) {
    block = orv_malloc_at(16, "MANY", 1, "scenario.c");
    live += block != nullptr ? 16 : 0;
  }
  EXPECT(orv_malloc_mem_used() == live);
  EXPECT(live == 16 * (std::size(blocks) - static_cast<size_t>(refusals)));
  for (void *block : blocks)
    orv_free(block);
  EXPECT(orv_malloc_mem_used() == 0);
}

// Without storage these answer null with ENOMEM; any other error is the handler's or the end.
void use_blocks_if_room() {
  const Level level;
  errno = 0;
  void *block = orv_malloc_if_room(100);
  EXPECT(block != nullptr || errno == ENOMEM);
  void *zeros = orv_calloc_if_room(10, 10);
  EXPECT(zeros != nullptr ? is_filled(zeros, 0, 100) : errno == ENOMEM);
  if (block != nullptr)
    memset(block, 5, 100);
  void *grown = orv_realloc_if_room(block, 100000);
  EXPECT(grown != nullptr || errno == ENOMEM);
  if (block != nullptr)
    EXPECT(is_filled(grown != nullptr ? grown : block, 5, 100));
  orv_free(grown != nullptr ? grown : block);
  orv_free(zeros);
  level.expect_heap();
}

// The join keeps a copy of each text.
void join_texts() {
  orv_set_malloc_failure_handler(answer_null);
  const Level level;
  const int before = refusals;
  char *joined = orv_strdup2("one", "two", "scenario", "both");
  EXPECT(joined != nullptr ? strcmp(joined, "onetwo") == 0 : refusals > before);
  orv_free(joined);
  level.expect_heap(64);
}

constexpr Scenario kScenarios[] = {
    {"alloc-plain", use_plain_blocks, true, {}},
    {"alloc-handler", use_plain_blocks_with_handler, false, {}},
    {"alloc-checked", use_checked_blocks, true, {"records != nullptr"}},
    {"alloc-verified", use_verified_blocks, true, {"records != nullptr"}},
    {"alloc-many", use_many_debug_blocks, false, {"records != nullptr"}},
    {"alloc-if-room", use_blocks_if_room, true, {}},
    {"alloc-join", join_texts, false, {}},
};

} // namespace

Table scenario::allocation_scenarios() {
  return {kScenarios, std::size(kScenarios)};
}
