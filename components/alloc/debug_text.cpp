// What debug mode says: descriptions of pointers, the sentence about the current call, and the
// report of all live blocks.
#include "alloc/debug_text.h"

#include <cstdarg>
#include <cstdio>
#include <orv/msg.h>

namespace orv::alloc {
namespace {

constexpr int kPointerDigits = 16;

// A text under construction in a static area; what does not fit is cut off.
struct Text {
  char *area;
  size_t used;
};

Text start_text(char *area) {
  area[0] = '\0';
  return {area, 0};
}

[[gnu::format(printf, 2, 3)]] void append(Text &text, const char *format, ...) {
  const size_t room = kTextAreaSize - text.used;
  va_list args;
  va_start(args, format);
  const int written = vsnprintf(text.area + text.used, room, format, args);
  va_end(args);
  if (written > 0)
    text.used += static_cast<size_t>(written) < room ? static_cast<size_t>(written) : room - 1;
}

unsigned long address_of(const void *pointer) {
  return reinterpret_cast<unsigned long>(pointer);
}

// Which record a description speaks of.
struct Finding {
  const debug_info *record; // null: none
  bool consistent;          // the block's own index leads to it, and it is live
};

Finding find_record(const void *pointer, BlockHeader header, const debug_info *given) {
  if (names_a_record(header.index)) {
    const debug_info &named = state.records[header.index];
    if (named.ptr == pointer && (given == nullptr || given == &named))
      return {&named, is_live(named)};
  }
  return {given, false};
}

void append_corruption(Text &text, const char *where) {
  append(text, "referenced data that was corrupted %s.", where);
}

void append_verdict(Text &text, const void *pointer, BlockHeader header, Finding found,
                    Wording wording) {
  if (header.word == kFreedMagic)
    append(text, "%s",
           wording == Wording::after_release ? "was referenced after it was free'd."
                                             : "referenced free'd data.");
  else if (header.word != kAllocatedMagic)
    append_corruption(text, "at the beginning");
  else if (found.record != nullptr && !has_trailer(pointer, found.record->length))
    append_corruption(text, "at the end");
  else if (!names_a_record(header.index))
    append_corruption(text, "at the beginning");
  else if (found.consistent)
    append(text, "referenced valid data.");
  else
    append(text, "had invalid debugging information (possible internal error).");
}

void append_caller(Text &text, const char *function, const char *purpose) {
  if (function != nullptr && purpose != nullptr)
    append(text, "The storage was allocated in the function %s for %s.  ", function, purpose);
  else if (function != nullptr)
    append(text, "The storage was allocated in the function %s.  ", function);
  else if (purpose != nullptr)
    append(text, "The storage was allocated for %s.", purpose);
}

// Kept: a released record is told by the rule for named callers even when a located call had made
// it, because its status no longer says so; the line then stands in for the function.
void append_released_location(Text &text, const debug_info &record) {
  char line[32];
  snprintf(line, sizeof line, "(line %d)", record.third.line);
  append_caller(text, line, record.fourth.file);
}

void append_origin(Text &text, const debug_info &record, const char *opening) {
  append(text, "%spointer was allocated by %s with a length of %ld.  ", opening, record.method,
         static_cast<long>(record.length));
  if (record.status == kLiveLocated)
    append(text, "The storage was allocated in %s, line %d.  ", record.fourth.file,
           record.third.line);
  else if (record.kind == SiteKind::located)
    append_released_location(text, record);
  else
    append_caller(text, record.third.function, record.fourth.purpose);
}

bool has_magic(BlockHeader header) {
  return header.word == kAllocatedMagic || header.word == kFreedMagic;
}

// The header as the library left it. That of a null pointer cannot be read and counts as
// overwritten; that of a released block mostly is, because the system keeps its own notes there,
// but the table still knows of the release.
BlockHeader header_to_judge(const void *pointer, const debug_info *given) {
  if (pointer == nullptr)
    return {-1, 0};
  const BlockHeader header = header_of(pointer);
  if (has_magic(header) || given != nullptr)
    return header;
  const debug_info *released = find_released_record(pointer);
  if (released == nullptr)
    return header;
  return {static_cast<int32_t>(released - state.records), kFreedMagic};
}

} // namespace

const char *describe_ptr(const void *pointer, const debug_info *given, Wording wording) {
  Text text = start_text(state.description);
  append(text, "The pointer 0x%0*lX ", kPointerDigits, address_of(pointer));
  if (!is_aligned(pointer)) {
    append(text, "was not valid on this platform (should be a multiple of %d).  ",
           static_cast<int>(kPointerAlignment));
    if (given != nullptr)
      append_origin(text, *given, "  The ");
    return state.description;
  }
  const BlockHeader header = header_to_judge(pointer, given);
  const Finding found = find_record(pointer, header, given);
  append_verdict(text, pointer, header, found, wording);
  if (found.record != nullptr)
    append_origin(text, *found.record,
                  header.word == kFreedMagic ? "  Before being free'd, the " : "  The ");
  return state.description;
}

const char *compose_site_sentence(const alloc_site &site) {
  Text text = start_text(state.site_sentence);
  if (site.kind == SiteKind::located) {
    append(text, "(Currently inside of %s at %s line %d)", site.method, site.fourth.file,
           site.third.line);
    return state.site_sentence;
  }
  const char *function = site.third.function;
  const char *purpose = site.fourth.purpose;
  if (function != nullptr && purpose != nullptr)
    append(text, "(Currently inside of %s, allocating storage for %s)", function, purpose);
  else if (function != nullptr)
    append(text, "(Currently inside of %s)", function);
  else if (purpose != nullptr)
    append(text, "(Currently allocating storage for %s)", purpose);
  return state.site_sentence;
}

} // namespace orv::alloc

using namespace orv::alloc;

namespace {

struct Totals {
  long pointers;
  // Kept: a sum of 32 bits, whose sign is extended when it is printed.
  int32_t bytes;
  long unsound;
};

void print_heading() {
  msg_print("Note: a `*' in the first column indicates an invalid or corrupted pointer.");
  msg_print_raw("X  ID    %-*s  Length Method               Function/Line        Purpose/File\n",
                kPointerDigits, "Pointer");
}

const char *shown(const char *text) {
  return text != nullptr ? text : "???";
}

void print_record(const debug_info &record, int index, const char *mark) {
  const auto address = reinterpret_cast<unsigned long>(record.ptr);
  const auto length = static_cast<long>(record.length);
  if (record.status == kLiveLocated)
    msg_print_raw("%s%5d 0x%0*lX%8ld %-20s %-20d %s\n", mark, index, kPointerDigits, address,
                  length, record.method, record.third.line, record.fourth.file);
  else
    msg_print_raw("%s%5d 0x%0*lX%8ld %-20s %-20s %s\n", mark, index, kPointerDigits, address,
                  length, record.method, shown(record.third.function),
                  shown(record.fourth.purpose));
}

// Each record is copied, because the table may grow while a line goes out through streams of the
// program's.
Totals walk_live_records(bool verbose) {
  Totals totals = {};
  for (uint64_t i = 0; i < state.capacity; i++) {
    const debug_info record = state.records[i];
    if (!is_live(record))
      continue;
    const bool sound = is_aligned(record.ptr) && find_sound_record(record.ptr) != nullptr;
    if (verbose && totals.pointers == 0)
      print_heading();
    if (verbose)
      print_record(record, static_cast<int>(i), sound ? " " : "*");
    totals.pointers++;
    totals.bytes = static_cast<int32_t>(static_cast<uint32_t>(totals.bytes) +
                                        static_cast<uint32_t>(record.length));
    totals.unsound += sound ? 0 : 1;
  }
  return totals;
}

void print_totals(const Totals &totals) {
  const auto bytes = static_cast<unsigned long>(totals.bytes);
  if (totals.pointers == 0)
    msg_print("orv_malloc_debug_report: No storage was allocated");
  else if (totals.unsound == 0)
    msg_print("orv_malloc_debug_report: %lu bytes allocated, %ld pointers", bytes, totals.pointers);
  else
    msg_print("orv_malloc_debug_report: %lu bytes allocated, %ld pointers (%ld invalid or "
              "corrupted!)",
              bytes, totals.pointers, totals.unsound);
}

} // namespace

void orv_malloc_describe_ptr(const void *pointer) {
  if (!is_debugging()) {
    msg_warn("orv_malloc_describe_ptr should only be called when the malloc debug mode is "
             "enabled.");
    return;
  }
  msg_print("%s", describe_ptr(pointer, nullptr, Wording::ordinary));
}

void orv_malloc_debug_report(int verbose) {
  if (!is_debugging()) {
    msg_warn("orv_malloc_debug_report should only be called when the malloc debug mode is "
             "enabled.");
    return;
  }
  print_totals(walk_live_records(verbose != 0));
}
