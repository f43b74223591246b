// The allocation calls against a plain model: random sequences of all of them in every mode, with
// refused storage, stale and foreign pointers, and bytes overwritten in and around the blocks. The
// library must grant, keep, count and report alike, and end with the same sentence. The system's
// heap is a row of slots, which hands out what the input says.
#include "../tests/alloc/heap_model.h"
#include "alloc/debug_records.h"
#include "alloc/state.h"
#include "bytes.h"
#include "judge.h"
#include "library_run.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <orv/alloc.h>
#include <sanitizer/asan_interface.h>
#include <string>
#include <vector>

namespace {

using model::Site;
using model::text_of;

// ---- the system's heap ----

constexpr size_t kSlotSize = 128;
constexpr size_t kSlots = 4000;
constexpr size_t kLeastTableSize = size_t{1024} * 48; // what is larger than a slot and not absurd
constexpr size_t kMostTableSize = size_t{1} << 30;

// Which storage the next calls get: both the library and its model go through it, each with a
// cursor of its own.
struct Plan {
  std::vector<char *> slots;
  int refused = -1; // the number of the request to be refused; -1 for none
  int error = 0;
};

struct Cursor {
  int requests = 0;
  size_t slots = 0;
};

struct System {
  alignas(16) char bytes[kSlots][kSlotSize];
  size_t untouched;               // the first slot that was never handed out
  std::vector<char *> given_back; // the last is handed out next, if any
  Plan plan;
  Cursor library;
  Cursor model;
  bool scribbles;   // over the beginning of what is given back
  bool in_place;    // resizes where it can
  void *substitute; // what the failure handler returns
  std::string said;
};
System fake;

// The next storage for one of the two sides; null, with errno set, when it is refused.
char *grant(Cursor &cursor, size_t size) {
  const bool refused = cursor.requests++ == fake.plan.refused;
  if (!refused && size <= kSlotSize)
    return fake.plan.slots[cursor.slots++];
  errno = refused ? fake.plan.error : ENOMEM;
  return nullptr;
}

void open_slot(char *slot, size_t size) {
  ASAN_UNPOISON_MEMORY_REGION(slot, kSlotSize);
  ASAN_POISON_MEMORY_REGION(slot + size, kSlotSize - size);
}

// Its bytes stay as they are, but for the system's own notes at their beginning.
void give_back(char *slot) {
  fake.given_back.push_back(slot);
  if (!fake.scribbles)
    return;
  ASAN_UNPOISON_MEMORY_REGION(slot, 16); // no block of a system's is smaller
  memset(slot, 0x11, 16);
}

bool is_table(size_t size) {
  return size >= kLeastTableSize && size < kMostTableSize;
}

// ---- what the fuzzer's bytes mean here ----

struct Input : Bytes {
  size_t size() {
    static constexpr size_t kAbsurd[] = {SIZE_MAX, SIZE_MAX - 3,    SIZE_MAX - 11, SIZE_MAX - 12,
                                         117,      size_t{1} << 40, SIZE_MAX - 16, SIZE_MAX / 2};
    if (one_in(16))
      return kAbsurd[byte() % std::size(kAbsurd)];
    return byte() % 48;
  }

  Site site(bool located, const char *method) {
    static const char *const functions[] = {nullptr, "main", "read_all"};
    static const char *const purposes[] = {nullptr, "a table", "the name"};
    static const char *const methods[] = {"MACRO", "ORV_MALLOC_ARRAY"};
    static const char *const files[] = {"src/parse.c", "x.c"};
    if (located)
      return {true, one_of(methods), nullptr, static_cast<int>(byte()), one_of(files)};
    return {false, method, one_of(functions), 0, one_of(purposes)};
  }
};

// ---- the model of the calls ----

struct Model {
  model::Heap heap;
  bool settled_plain = false; // something was allocated with debug mode off
  bool has_handler = false;

  static std::string refusal(size_t n, const Site &site, int error) {
    const bool no_room = error == ENOMEM;
    if (site.located)
      return text_of("%s in %s, line %d: Not enough memory to allocate %lu bytes.", site.method,
                     site.fourth, site.line, n);
    const bool named = site.function != nullptr && site.fourth != nullptr;
    std::string text =
        named ? text_of("%s (via %s): ", site.function, site.method) : text_of("%s: ", site.method);
    text += no_room ? "Not enough memory to allocate " : strerror(error);
    text += text_of(no_room ? "%lu bytes" : " while trying to allocate %lu bytes", n);
    return text + (named ? text_of(" for %s.", site.fourth) : ".");
  }

  void *refused(size_t n, const Site &site, bool if_room) {
    if (if_room && errno == ENOMEM)
      return nullptr;
    const std::string text = refusal(n, site, errno);
    if (!has_handler) {
      heap.end(text);
      return nullptr;
    }
    heap.say("handler", text_of("%zu ", n) + text);
    return fake.substitute;
  }

  void *keep(char *slot, size_t n, const Site &site) {
    if (heap.mode == 0)
      return slot;
    heap.record(slot + 8, n, site);
    return slot + 8;
  }

  // Blocks of 0 bytes come here only as an overflown product.
  void *obtain(size_t n, const Site &site, bool if_room) {
    heap.ask(n, site);
    settled_plain |= heap.mode == 0;
    if (heap.ended)
      return nullptr;
    char *slot = grant(fake.model, heap.mode == 0 ? n : model::system_size(n));
    return slot != nullptr ? keep(slot, n, site) : refused(n, site, if_room);
  }

  void *allocate(size_t n, const Site &site, bool if_room) {
    return n == 0 ? nullptr : obtain(n, site, if_room);
  }

  void invalid(const void *block, const char *method) {
    heap.end(text_of("%s was passed an invalid pointer: 0x%016lX", method,
                     reinterpret_cast<unsigned long>(block)));
  }

  void release(const char *block) {
    if (block == nullptr)
      return;
    if (model::address_of(block) % 8 != 0)
      invalid(block, "orv_free");
    else if (heap.mode != 0)
      heap.release(block, {false, "orv_free", nullptr, 0, nullptr});
  }

  void *resize(char *block, size_t n, const Site &site, bool if_room) {
    if (n == 0) {
      release(block);
      return nullptr;
    }
    if (block == nullptr)
      return allocate(n, site, if_room);
    if (model::address_of(block) % 8 != 0) {
      invalid(block, site.method);
      return nullptr;
    }
    settled_plain |= heap.mode == 0;
    if (heap.mode != 0)
      heap.release(block, site);
    if (heap.ended)
      return nullptr;
    heap.count(n);
    char *slot =
        granted_again(block - (heap.mode != 0 ? 8 : 0), heap.mode != 0 ? model::system_size(n) : n);
    return slot != nullptr ? keep(slot, n, site) : refused(n, site, if_room);
  }

  static char *granted_again(char *slot, size_t size) {
    Cursor before = fake.model;
    char *granted = grant(fake.model, size);
    if (granted == nullptr || !fake.in_place)
      return granted;
    fake.model.slots = before.slots;
    return slot;
  }

  void *join(const std::string &first, const std::string &second, const Site &site) {
    obtain(first.size() + 1, site, false);
    if (!heap.ended)
      obtain(second.size() + 1, site, false);
    return heap.ended ? nullptr : obtain(first.size() + second.size() + 1, site, false);
  }

  // A text that just fills the first buffer counts as cut and doubles it.
  static size_t printed_size(const std::string &text) {
    return text.size() < 15 ? 16 : text.size() == 15 ? 32 : text.size() + 2;
  }

  void *print(const std::string &text) {
    const char *formatter = "orv_vprintf_strdup";
    void *buffer = obtain(16, {false, "orv_malloc", formatter, 0, "buffer allocation"}, false);
    if (buffer == nullptr || text.size() < 15)
      return buffer;
    return resize(static_cast<char *>(buffer), printed_size(text),
                  {false, "orv_realloc", formatter, 0, "buffer resize"}, false);
  }

  void enable(int mode) {
    const char *const name = "orv_enable_malloc_debug";
    if (mode == 0) {
      if (heap.mode != 0)
        heap.end(text_of("%s: Once enabled, malloc debugging cannot be disabled.", name));
    } else if (mode != 1 && mode != 2) {
      heap.end(text_of("%s: Bad mode.  Should be either ORV_MALLOC_CHECK_PTR or "
                       "ORV_MALLOC_VERIFY_HEAP.",
                       name));
    } else if (settled_plain) {
      heap.end(text_of("%s cannot be called once one of the Orv MALLOC library allocation "
                       "functions have been called.",
                       name));
    } else {
      heap.mode = mode;
    }
  }

  void used_only_in_debug_mode(const char *call) {
    heap.say("warning",
             text_of("%s should only be called when the malloc debug mode is enabled.", call));
  }
};
Model expected;

// ---- the blocks of this run ----

struct Block {
  char *bytes;
  size_t length;
  bool live;
};
std::vector<Block> blocks;

alignas(16) char foreign[64]; // was never handed out
alignas(16) char substitute[128];

// A block of this run or a pointer beside one; with debug mode off, which checks nothing, a live
// block.
char *some_pointer(Input &input) {
  const size_t chosen = input.byte();
  if (expected.heap.mode == 0) {
    for (size_t i = 0; i < blocks.size(); i++)
      if (blocks[(chosen + i) % blocks.size()].live)
        return blocks[(chosen + i) % blocks.size()].bytes;
    return nullptr;
  }
  if (input.one_in(32))
    return foreign + 16 + input.byte() % 2 * 4;
  if (blocks.empty())
    return nullptr;
  const Block &block = blocks[chosen % blocks.size()];
  const size_t beside = input.one_in(32) ? input.byte() % 3 * 4 : 0;
  return block.bytes + (block.length > 0 ? beside : 0);
}

void forget(const char *bytes) {
  for (Block &block : blocks)
    if (block.bytes == bytes)
      block.live = false;
}

// What the library wrote around the blocks that the call recorded.
void judge_surroundings() {
  for (const size_t index : expected.heap.fresh_records) {
    const model::Record &record = expected.heap.records[index];
    if (!record.live)
      continue;
    judge("the index", model::word_at(record.block - 8), static_cast<long>(index));
    judge("the word", model::word_at(record.block - 4), model::kLiveWord);
    judge("the trailer", model::word_at(record.block + model::trailer_offset(record.length)),
          model::kTrailer);
  }
  expected.heap.settle();
}

void judge_counters() {
  judge("the bytes requested", orv_malloc_bytes_requested(), expected.heap.requested);
  judge("the mode", orv_malloc_debug_mode(), expected.heap.mode);
  if (expected.heap.mode != 0)
    judge("the bytes in use", orv_malloc_mem_used(), expected.heap.live_bytes);
}

// Runs the library's side of a call that the model has made already. The process's end and all
// that was said are judged here; true when the library returned.
template <typename Call> bool made(Call call) {
  const bool returned = library_run::returns(call);
  judge("what was said", fake.said, expected.heap.said);
  judge("whether the process ends", returned ? 0 : 1, expected.heap.ended ? 1 : 0);
  fake.said.clear();
  expected.heap.said.clear();
  if (!returned)
    return false;
  judge_surroundings();
  judge_counters();
  return true;
}

void note_block(void *bytes, size_t length) {
  if (bytes != nullptr && bytes != fake.substitute)
    blocks.push_back({static_cast<char *>(bytes), length, true});
}

// ---- the steps ----

// Storage for the requests of one call: slots that were given back first, if the input says so.
void plan_storage(Input &input) {
  const unsigned how = input.byte();
  fake.scribbles = how % 2 != 0;
  fake.in_place = how % 4 >= 2;
  const size_t reused = how % 8 >= 4 ? std::min<size_t>(fake.given_back.size(), 3) : 0;
  fake.plan = {.slots = {}, .refused = -1, .error = ENOMEM};
  for (size_t i = 0; i < reused; i++) {
    fake.plan.slots.push_back(fake.given_back.back());
    fake.given_back.pop_back();
  }
  for (size_t i = reused; i < 3; i++)
    fake.plan.slots.push_back(fake.bytes[fake.untouched++]);
  if (input.one_in(16)) {
    fake.plan.refused = static_cast<int>(input.byte() % 3);
    fake.plan.error = input.byte() % 2 == 0 ? ENOMEM : EAGAIN;
  }
  fake.library = fake.model = {};
}

// What the call did not take comes back.
void return_spare_slots() {
  for (size_t i = fake.plan.slots.size(); i > fake.library.slots; i--)
    fake.given_back.push_back(fake.plan.slots[i - 1]);
  fake.plan.slots.clear();
}

void judge_filled(const void *block, size_t length, int fill) {
  if (block == nullptr || block == fake.substitute)
    return;
  for (size_t i = 0; i < length; i++)
    judge("a byte of a new block", static_cast<const uint8_t *>(block)[i], fill);
}

void judge_text(const void *block, const std::string &text) {
  if (block != nullptr && block != fake.substitute)
    judge("the text of a new block", static_cast<const char *>(block), text);
}

bool allocate(Input &input) {
  const unsigned call = input.byte() % 4;
  const bool located = call == 1;
  const bool if_room = call == 2;
  const Site site = if_room ? Site{false, "orv_malloc_if_room", nullptr, 0, nullptr}
                            : input.site(located, "orv_malloc");
  const size_t n = input.size();
  void *const wanted = expected.allocate(n, site, if_room);
  void *got = nullptr;
  if (!made([&] {
        got = if_room   ? orv_malloc_if_room(n)
              : located ? orv_malloc_at(n, site.method, site.line, site.fourth)
                        : orv_malloc(n, site.function, site.fourth);
      }))
    return false;
  judge("the block", reinterpret_cast<long>(got), reinterpret_cast<long>(wanted));
  if (expected.heap.mode != 0)
    judge_filled(got, n, 0xAB);
  note_block(got, n);
  return true;
}

bool allocate_zeroed(Input &input) {
  const unsigned call = input.byte() % 4;
  const bool located = call == 1;
  const bool if_room = call == 2;
  const Site site = if_room ? Site{false, "orv_calloc_if_room", nullptr, 0, nullptr}
                            : input.site(located, "orv_calloc");
  const size_t count = input.one_in(16) ? size_t{1} << 60 : input.byte() % 7;
  const size_t size = input.one_in(8) ? 16 : input.byte() % 7;
  const size_t n = count * size;
  void *const wanted = count == 0 || size == 0 ? nullptr : expected.obtain(n, site, if_room);
  void *got = nullptr;
  if (!made([&] {
        got = if_room   ? orv_calloc_if_room(count, size)
              : located ? orv_calloc_at(count, size, site.method, site.line, site.fourth)
                        : orv_calloc(count, size, site.function, site.fourth);
      }))
    return false;
  judge("the block", reinterpret_cast<long>(got), reinterpret_cast<long>(wanted));
  judge_filled(got, n, 0);
  note_block(got, n);
  return true;
}

bool resize(Input &input) {
  const unsigned call = input.byte() % 4;
  const bool located = call == 1;
  const bool if_room = call == 2;
  const Site site = if_room ? Site{false, "orv_realloc_if_room", nullptr, 0, nullptr}
                            : input.site(located, "orv_realloc");
  char *block = some_pointer(input);
  const size_t n = input.size();
  const model::Record *record =
      expected.heap.mode != 0 && block != nullptr ? expected.heap.sound_record(block) : nullptr;
  const std::string before =
      record != nullptr ? std::string(block, std::min(n, record->length)) : "";
  void *const wanted = expected.resize(block, n, site, if_room);
  void *got = nullptr;
  if (!made([&] {
        got = if_room   ? orv_realloc_if_room(block, n)
              : located ? orv_realloc_at(block, n, site.method, site.line, site.fourth)
                        : orv_realloc(block, n, site.function, site.fourth);
      }))
    return false;
  judge("the block", reinterpret_cast<long>(got), reinterpret_cast<long>(wanted));
  const bool moved_in = got != nullptr && got != fake.substitute;
  if (moved_in && n < kSlotSize)
    judge("what a resized block keeps", std::string(static_cast<char *>(got), before.size()),
          before);
  if (moved_in || n == 0)
    forget(block);
  note_block(got, n);
  return true;
}

bool release(Input &input) {
  char *block = some_pointer(input);
  expected.release(block);
  if (!made([&] { orv_free(block); }))
    return false;
  forget(block);
  return true;
}

bool copy_text(Input &input) {
  const bool located = input.byte() % 2 != 0;
  const Site site = input.site(located, "orv_strdup");
  const std::string text = input.characters(40);
  void *const wanted = expected.obtain(text.size() + 1, site, false);
  char *got = nullptr;
  if (!made([&] {
        got = located ? orv_strdup_at(text.c_str(), site.method, site.line, site.fourth)
                      : orv_strdup(text.c_str(), site.function, site.fourth);
      }))
    return false;
  judge("the block", reinterpret_cast<long>(got), reinterpret_cast<long>(wanted));
  judge_text(got, text);
  note_block(got, text.size() + 1);
  return true;
}

bool join_texts(Input &input) {
  const bool located = input.byte() % 2 != 0;
  const Site site = input.site(located, "orv_strdup2");
  const std::string first = input.characters(30);
  const std::string second = input.characters(30);
  void *const wanted = expected.join(first, second, site);
  char *got = nullptr;
  if (!made([&] {
        got = located ? orv_strdup2_at(first.c_str(), second.c_str(), site.method, site.line,
                                       site.fourth)
                      : orv_strdup2(first.c_str(), second.c_str(), site.function, site.fourth);
      }))
    return false;
  judge("the block", reinterpret_cast<long>(got), reinterpret_cast<long>(wanted));
  judge_text(got, first + second);
  note_block(got, first.size() + second.size() + 1);
  return true;
}

// The failure handler has nothing to offer here: its block would become the text's buffer.
bool print_text(Input &input) {
  const std::string text = input.characters(60);
  fake.substitute = nullptr;
  void *const wanted = expected.print(text);
  char *got = nullptr;
  if (!made([&] { got = orv_printf_strdup("%s", text.c_str()); }))
    return false;
  judge("the block", reinterpret_cast<long>(got), reinterpret_cast<long>(wanted));
  judge_text(got, text);
  note_block(got, Model::printed_size(text));
  return true;
}

// The bytes of a pointer's header, or a byte in or behind its block.
bool overwrite(Input &input) {
  char *block = some_pointer(input);
  if (expected.heap.mode == 0 || block == nullptr || model::address_of(block) % 8 != 0)
    return true;
  static constexpr uint32_t kWords[] = {
      model::kLiveWord, model::kReleasedWord, 0, 1024, UINT32_MAX, 1, 1023, 2};
  const unsigned where = input.byte() % 4;
  const uint32_t word = input.one_in(4) ? input.byte() : kWords[input.byte() % std::size(kWords)];
  if (where < 2) {
    memcpy(block - 8 + where * 4, &word, sizeof word);
    return true;
  }
  const model::Record *record = expected.heap.sound_record(block);
  if (record == nullptr)
    return true;
  const size_t room = model::trailer_offset(record->length) + 4;
  block[where == 2 ? room - 1 - input.byte() % 4 : input.byte() % room] ^= static_cast<char>(word);
  return true;
}

bool describe(Input &input) {
  const char *pointer = input.one_in(16) ? nullptr : some_pointer(input);
  if (expected.heap.mode != 0)
    expected.heap.describe(pointer);
  else
    expected.used_only_in_debug_mode("orv_malloc_describe_ptr");
  return made([&] { orv_malloc_describe_ptr(pointer); });
}

bool report(Input &input) {
  const bool verbose = input.byte() % 2 == 0;
  if (expected.heap.mode != 0)
    expected.heap.report(verbose);
  else
    expected.used_only_in_debug_mode("orv_malloc_debug_report");
  return made([&] { orv_malloc_debug_report(verbose ? 1 : 0); });
}

void *handle_failure(size_t size, const char *message) {
  fake.said += text_of("handler: %zu ", size) + message + "\n";
  return fake.substitute;
}

bool change_setting(Input &input) {
  switch (input.byte() % 4) {
  case 0: {
    const int mode =
        input.one_in(8) ? static_cast<int>(input.byte() % 5) - 1 : 1 + input.byte() % 2;
    expected.enable(mode);
    return made([&] { orv_enable_malloc_debug(mode); });
  }
  case 1:
    expected.heap.threshold = static_cast<long>(input.byte() % 64) - 16;
    orv_set_malloc_free_report_threshold(static_cast<int>(expected.heap.threshold));
    return true;
  default:
    expected.has_handler = input.byte() % 3 != 0;
    orv_set_malloc_failure_handler(expected.has_handler ? handle_failure : nullptr);
    return true;
  }
}

// More blocks than the table has records.
bool fill_table(Input &input) {
  if (!input.one_in(64) || expected.heap.mode != 1 || fake.untouched + 1100 > kSlots)
    return true;
  const Site site = input.site(false, "orv_malloc");
  for (size_t i = 0; i < 1030; i++) {
    fake.plan = {.slots = {fake.bytes[fake.untouched++]}, .refused = -1, .error = ENOMEM};
    fake.library = fake.model = {};
    void *const wanted = expected.allocate(1, site, false);
    void *got = nullptr;
    if (!made([&] { got = orv_malloc(1, site.function, site.fourth); }))
      return false;
    judge("the block", reinterpret_cast<long>(got), reinterpret_cast<long>(wanted));
    note_block(got, 1);
  }
  return true;
}

constexpr bool (*kSteps[])(Input &input) = {
    allocate,   allocate_zeroed, resize,   release, copy_text,      join_texts,
    print_text, overwrite,       describe, report,  change_setting, fill_table,
    release,    allocate,        resize,   release,
};

// False when the process is over.
bool take_step(Input &input) {
  const unsigned step = input.byte() % std::size(kSteps);
  plan_storage(input);
  fake.substitute = input.one_in(4) ? substitute + 16 : nullptr;
  const bool goes_on = kSteps[step](input);
  return_spare_slots();
  return goes_on;
}

// ---- a fresh process ----

constexpr size_t kFewRecords = 64;

// A table of few records, so that looking at all of them is quick. The process that begins without
// one is the true one, and slower.
void give_few_records() {
  using orv::alloc::state;
  if (state.records == nullptr)
    state.records =
        static_cast<orv::alloc::debug_info *>(malloc(kFewRecords * sizeof(orv::alloc::debug_info)));
  for (size_t i = 0; i < kFewRecords; i++) {
    state.records[i] = {};
    state.records[i].status = static_cast<int32_t>(i + 1);
  }
  state.records[kFewRecords - 1].status = orv::alloc::kEndOfFreeList;
  state.capacity = kFewRecords;
  state.free_head = 0;
  expected.heap.grow(kFewRecords);
}

void start_afresh(bool with_records) {
  using orv::alloc::state;
  orv::alloc::debug_info *table = state.records;
  if (!with_records || state.capacity != kFewRecords) {
    free(table);
    table = nullptr;
  }
  state = orv::alloc::State();
  state.records = table;
  expected = Model();
  if (with_records)
    give_few_records();
  blocks.clear();
  fake.untouched = 0;
  fake.given_back.clear();
  fake.said.clear();
  memset(foreign, 0, sizeof foreign);
}

} // namespace

extern "C" {

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size) {
  if (!library_run::active || is_table(size))
    return __real_malloc(size);
  char *slot = grant(fake.library, size);
  if (slot != nullptr) {
    open_slot(slot, size);
    memset(slot, 0xCC, size);
  }
  return slot;
}

void *__real_realloc(void *block, size_t size);
void *__wrap_realloc(void *block, size_t size) {
  if (!library_run::active || is_table(size))
    return __real_realloc(block, size);
  char *slot = grant(fake.library, size);
  if (slot == nullptr)
    return nullptr;
  if (fake.in_place) {
    fake.library.slots--;
    open_slot(static_cast<char *>(block), size);
    return block;
  }
  open_slot(slot, size);
  ASAN_UNPOISON_MEMORY_REGION(block, kSlotSize); // the system knows how long it was
  memcpy(slot, block, size);
  give_back(static_cast<char *>(block));
  return slot;
}

void __real_free(void *block);
void __wrap_free(void *block) {
  if (!library_run::active)
    __real_free(block);
  else if (block != nullptr)
    give_back(static_cast<char *>(block));
}

#define NOTE(kind)                                                                                 \
  char text[8192];                                                                                 \
  va_list args;                                                                                    \
  va_start(args, format);                                                                          \
  vsnprintf(text, sizeof text, format, args);                                                      \
  va_end(args);                                                                                    \
  fake.said += kind;                                                                               \
  fake.said += text;                                                                               \
  fake.said += '\n'

void __wrap_msg_print(const char *format, ...) {
  NOTE("print: ");
}

void __wrap_msg_print_raw(const char *format, ...) {
  NOTE("raw: ");
}

void __wrap_msg_warn(const char *format, ...) {
  NOTE("warning: ");
}

void __wrap_msg_fatal(const char *format, ...) {
  NOTE("fatal: ");
  library_run::leave();
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input input = {{.data = data, .left = size}};
  start_afresh(!input.one_in(32));
  const unsigned mode = (input.byte() + 1) % 8;
  if (mode != 0) {
    const int debug_mode = mode % 2 == 0 ? ORV_MALLOC_VERIFY_HEAP : ORV_MALLOC_CHECK_PTR;
    expected.enable(debug_mode);
    made([&] { orv_enable_malloc_debug(debug_mode); });
  }
  while (input.left > 0 && fake.untouched + 3 <= kSlots && take_step(input)) {
  }
  return 0;
}

} // extern "C"
