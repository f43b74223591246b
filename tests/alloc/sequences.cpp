// Long random sequences of valid allocation calls against a plain model of records, counters and
// report:
//   alloc_sequences MODE [STEPS [SEED]]
// MODE is the debug mode, 0 for none. Nothing is damaged or refused here, and the blocks are the
// system's; the fuzzer of the allocation calls does the rest.
#include "alloc/heap_model.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <orv/alloc.h>
#include <random>
#include <string>
#include <vector>

namespace {

using model::Heap;
using model::Site;

constexpr size_t kMostBytes = 300;
constexpr unsigned kStepsOfPhase = 4000;
constexpr unsigned kStepsToReport = 500;

// A block of this program, filled with bytes that follow from its seed.
struct Block {
  uint8_t *bytes;
  size_t length;
  unsigned seed;
};

std::mt19937 random_bits;
Heap expected;
std::vector<Block> blocks;
size_t wanted_blocks; // about as many are alive in this phase
long step = 0;

// What the library obtained from the system in the current call, and what it said.
std::vector<char *> granted;
bool watching = false;
std::string said;

size_t below(size_t limit) {
  return random_bits() % limit;
}

void check(bool holds, const char *what) {
  if (holds)
    return;
  fprintf(stderr, "step %ld: the library and the model differ: %s\n", step, what);
  abort();
}

template <typename Call> auto library(Call call) {
  granted.clear();
  watching = true;
  auto result = call();
  watching = false;
  return result;
}

// ---- blocks ----

uint8_t byte_of(unsigned seed, size_t at) {
  return static_cast<uint8_t>(seed + at * 7);
}

void fill(Block &block) {
  block.seed = static_cast<unsigned>(random_bits());
  for (size_t i = 0; i < block.length; i++)
    block.bytes[i] = byte_of(block.seed, i);
}

void check_bytes(const uint8_t *bytes, unsigned seed, size_t length) {
  for (size_t i = 0; i < length; i++)
    check(bytes[i] == byte_of(seed, i), "the bytes of a block");
}

void check_all(const void *bytes, size_t length, int value) {
  for (size_t i = 0; i < length; i++)
    check(static_cast<const uint8_t *>(bytes)[i] == value, "the filling of a new block");
}

void keep(void *bytes, size_t length) {
  check(bytes != nullptr, "a block");
  blocks.push_back({static_cast<uint8_t *>(bytes), length, 0});
  fill(blocks.back());
}

// The n-th block that the system granted during the call.
const char *granted_block(size_t n) {
  check(n < granted.size(), "the requests made of the system");
  return granted[n] + (expected.mode == 0 ? 0 : 8);
}

void record(const char *block, size_t length, const Site &site) {
  if (expected.mode != 0)
    expected.record(block, length, site);
}

// ---- the steps ----

Site random_site(const char *method) {
  static const char *const functions[] = {nullptr, "main", "read_all"};
  static const char *const purposes[] = {nullptr, "a table", "the name"};
  if (below(2) == 0)
    return {true, "MACRO", nullptr, static_cast<int>(below(1000)), "src/parse.c"};
  return {false, method, functions[below(3)], 0, purposes[below(3)]};
}

void allocate() {
  const Site site = random_site("orv_malloc");
  const size_t length = 1 + below(kMostBytes);
  expected.ask(length, site);
  void *bytes = library([&] {
    return site.located ? orv_malloc_at(length, site.method, site.line, site.fourth)
                        : orv_malloc(length, site.function, site.fourth);
  });
  record(granted_block(0), length, site);
  if (expected.mode != 0)
    check_all(bytes, length, 0xAB);
  keep(bytes, length);
}

void allocate_zeroed() {
  const Site site = random_site("orv_calloc");
  const size_t count = 1 + below(20);
  const size_t size = 1 + below(15);
  expected.ask(count * size, site);
  void *bytes = library([&] {
    return site.located ? orv_calloc_at(count, size, site.method, site.line, site.fourth)
                        : orv_calloc(count, size, site.function, site.fourth);
  });
  record(granted_block(0), count * size, site);
  check_all(bytes, count * size, 0);
  keep(bytes, count * size);
}

void allocate_if_room() {
  const Site site = {false, "orv_malloc_if_room", nullptr, 0, nullptr};
  const size_t length = 1 + below(kMostBytes);
  expected.ask(length, site);
  void *bytes = library([&] { return orv_malloc_if_room(length); });
  record(granted_block(0), length, site);
  keep(bytes, length);
}

Block take_block() {
  const size_t chosen = below(blocks.size());
  const Block block = blocks[chosen];
  blocks[chosen] = blocks.back();
  blocks.pop_back();
  check_bytes(block.bytes, block.seed, block.length);
  return block;
}

void give_up(const void *bytes, const Site &site) {
  if (expected.mode != 0)
    expected.release(static_cast<const char *>(bytes), site);
}

void release() {
  if (blocks.empty())
    return;
  const Block block = take_block();
  give_up(block.bytes, {false, "orv_free", nullptr, 0, nullptr});
  orv_free(block.bytes);
}

void resize() {
  if (blocks.empty())
    return;
  const Site site = random_site("orv_realloc");
  const Block block = take_block();
  const size_t length = below(kMostBytes);
  give_up(block.bytes, length == 0 ? Site{false, "orv_free", nullptr, 0, nullptr} : site);
  if (length != 0)
    expected.count(length);
  void *bytes = library([&] {
    return site.located ? orv_realloc_at(block.bytes, length, site.method, site.line, site.fourth)
                        : orv_realloc(block.bytes, length, site.function, site.fourth);
  });
  if (length == 0)
    return check(bytes == nullptr, "a resize to nothing");
  record(static_cast<char *>(bytes), length, site);
  check_bytes(static_cast<uint8_t *>(bytes), block.seed, std::min(length, block.length));
  keep(bytes, length);
}

std::string random_text(size_t most) {
  std::string text;
  for (size_t left = below(most); left > 0; left--)
    text += static_cast<char>('a' + below(26));
  return text;
}

void copy_text() {
  const Site site = random_site("orv_strdup");
  const std::string text = random_text(60);
  expected.ask(text.size() + 1, site);
  char *copy = library([&] {
    return site.located ? orv_strdup_at(text.c_str(), site.method, site.line, site.fourth)
                        : orv_strdup(text.c_str(), site.function, site.fourth);
  });
  record(granted_block(0), text.size() + 1, site);
  check(text == copy, "a copied text");
  keep(copy, text.size() + 1);
}

// The copies that joining leaves are given back here, or nothing would ever have an end.
void join_texts() {
  const Site site = {false, "orv_strdup2", "join_texts", 0, nullptr};
  const std::string text1 = random_text(30);
  const std::string text2 = random_text(30);
  const size_t lengths[] = {text1.size() + 1, text2.size() + 1, text1.size() + text2.size() + 1};
  for (const size_t length : lengths)
    expected.ask(length, site);
  char *joined = library(
      [&] { return orv_strdup2(text1.c_str(), text2.c_str(), site.function, site.fourth); });
  for (size_t i = 0; i < std::size(lengths); i++)
    record(granted_block(i), lengths[i], site);
  check(text1 + text2 == joined, "a joined text");
  keep(joined, lengths[2]);
  for (size_t i = 0; i < 2; i++)
    keep(const_cast<char *>(granted_block(i)), lengths[i]);
}

void print_text() {
  const Site first = {false, "orv_malloc", "orv_vprintf_strdup", 0, "buffer allocation"};
  const Site second = {false, "orv_realloc", "orv_vprintf_strdup", 0, "buffer resize"};
  const std::string text = random_text(200);
  expected.ask(16, first);
  char *printed = library([&] { return orv_printf_strdup("%s", text.c_str()); });
  check(text == printed, "a printed text");
  record(granted_block(0), 16, first);
  if (text.size() < 15)
    return keep(printed, 16);
  give_up(granted_block(0), second);
  const size_t length = text.size() == 15 ? 32 : text.size() + 2;
  expected.count(length);
  record(printed, length, second);
  keep(printed, length);
}

void exchange_modes() {
  if (expected.mode == 0)
    return;
  expected.mode = 1 + static_cast<int>(below(2));
  orv_enable_malloc_debug(expected.mode);
}

// ---- the comparison ----

void check_counters() {
  check(orv_malloc_bytes_requested() == expected.requested, "the bytes requested");
  check(orv_malloc_debug_mode() == expected.mode, "the mode");
  if (expected.mode != 0)
    check(orv_malloc_mem_used() == expected.live_bytes, "the bytes in use");
}

void check_report() {
  if (expected.mode == 0)
    return;
  said.clear();
  expected.said.clear();
  const bool verbose = below(2) == 0;
  orv_malloc_debug_report(verbose ? 1 : 0);
  expected.report(verbose);
  if (!blocks.empty()) {
    const auto *block = reinterpret_cast<const char *>(blocks[below(blocks.size())].bytes);
    orv_malloc_describe_ptr(block);
    expected.describe(block);
  }
  check(said == expected.said, "the report");
}

// What a step takes of the table depends on how many blocks there are to be.
void take_step() {
  static void (*const kGrowing[])() = {allocate,   allocate_zeroed, allocate_if_room, copy_text,
                                       join_texts, print_text,      resize,           release};
  static void (*const kShrinking[])() = {release, release, release, resize};
  if (blocks.size() < wanted_blocks)
    kGrowing[below(std::size(kGrowing))]();
  else
    kShrinking[below(std::size(kShrinking))]();
  check(!expected.ended && expected.said.empty(), "the end of the process");
  expected.settle();
  check_counters();
}

// Mostly few blocks; now and then more than the table had records.
void begin_phase(bool exchanging) {
  wanted_blocks = below(8) == 0 ? 1200 : 1 + below(80);
  if (exchanging)
    exchange_modes();
}

void run(long steps, bool exchanging) {
  for (; step < steps; step++) {
    if (step % kStepsOfPhase == 0)
      begin_phase(exchanging && step > 0);
    take_step();
    if (step % kStepsToReport == 0) {
      check_report();
      expected.said.clear();
    }
  }
  while (!blocks.empty())
    release();
  check_counters();
  check_report();
}

} // namespace

extern "C" {

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size) {
  void *block = __real_malloc(size);
  // The library's table is no block of a program's.
  if (watching && size < model::kGrowth)
    granted.push_back(static_cast<char *>(block));
  return block;
}

#define HEAR(kind)                                                                                 \
  char text[8192];                                                                                 \
  va_list args;                                                                                    \
  va_start(args, format);                                                                          \
  vsnprintf(text, sizeof text, format, args);                                                      \
  va_end(args);                                                                                    \
  said += kind;                                                                                    \
  said += text;                                                                                    \
  said += '\n'

void __wrap_msg_print(const char *format, ...) {
  HEAR("print: ");
}

void __wrap_msg_print_raw(const char *format, ...) {
  HEAR("raw: ");
}

} // extern "C"

int main(int argc, char **argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: %s MODE [STEPS [SEED]]\n", argv[0]);
    return 2;
  }
  const int mode = atoi(argv[1]);
  const long steps = argc > 2 ? atol(argv[2]) : 10000;
  const unsigned long seed = argc > 3 ? strtoul(argv[3], nullptr, 10) : 1;
  random_bits.seed(static_cast<std::mt19937::result_type>(seed));
  orv_enable_malloc_debug(mode);
  expected.mode = mode;
  run(steps, mode != 0);
  printf("%ld steps in mode %d from seed %lu: alike\n", steps, mode, seed);
  return 0;
}
