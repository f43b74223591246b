// A plain model of the allocation debug mode: its records, counters, verdicts and report, written
// down step by step with no thought of speed. Where the bytes around a block count, it looks at
// them; what the library says is compared with what the model says.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace model {

constexpr uint32_t kLiveWord = 0x5739E56A;
constexpr uint32_t kReleasedWord = 0x7D2C5B7E;
constexpr uint32_t kTrailer = 0x35A7B641;
constexpr size_t kGrowth = 1024; // records that the table gains at a time

// How a call describes itself.
struct Site {
  bool located;
  const char *method;
  const char *function; // of a named caller; may be null
  int line;             // of a located call
  const char *fourth;   // purpose or file; a purpose may be null
};

struct Record {
  const char *block;
  size_t length;
  Site site;
  bool live;
  bool fresh; // its bytes are not written yet; until they are, it counts as sound
};

[[gnu::format(printf, 1, 2)]] inline std::string text_of(const char *format, ...) {
  char area[8192];
  va_list args;
  va_start(args, format);
  vsnprintf(area, sizeof area, format, args);
  va_end(args);
  return area;
}

inline uint32_t word_at(const char *bytes) {
  uint32_t word;
  memcpy(&word, bytes, sizeof word);
  return word;
}

inline unsigned long address_of(const char *block) {
  return reinterpret_cast<unsigned long>(block);
}

// Where the trailer of a block of so many bytes stands.
inline size_t trailer_offset(size_t length) {
  return length % 4 == 0 ? length : length + 4 - length % 4;
}

// What a block of so many bytes asks of the system; one that nobody can hold, if it would be more
// than can be counted.
inline size_t system_size(size_t length) {
  const size_t size = trailer_offset(length) + 12;
  return size < length || trailer_offset(length) < length ? SIZE_MAX : size;
}

struct Heap {
  int mode = 0; // 0: debug mode is off
  uint32_t requested = 0;
  uint32_t live_bytes = 0;
  long threshold = -1;
  std::vector<Record> records;
  std::vector<size_t> free_records; // the last is used next
  std::vector<size_t> fresh_records;
  std::string said;
  bool ended = false; // the process

  void say(const char *kind, const std::string &text) {
    said += kind;
    said += ": ";
    said += text;
    said += '\n';
  }

  void end(const std::string &text) {
    say("fatal", text);
    ended = true;
  }

  // ---- records ----

  void grow(size_t count = kGrowth) {
    const size_t before = records.size();
    records.resize(before + count, {nullptr, 0, {}, false, false});
    for (size_t i = before + count; i > before; i--)
      free_records.push_back(i - 1);
  }

  [[nodiscard]] size_t next_record() const {
    return free_records.empty() ? records.size() : free_records.back();
  }

  void record(const char *block, size_t length, const Site &site) {
    if (free_records.empty())
      grow();
    records[free_records.back()] = {block, length, site, true, true};
    fresh_records.push_back(free_records.back());
    free_records.pop_back();
    live_bytes += static_cast<uint32_t>(length);
  }

  // The call is over that recorded them: from here on their bytes count.
  void settle() {
    for (const size_t index : fresh_records)
      records[index].fresh = false;
    fresh_records.clear();
  }

  // The record that the block's own index leads to, if it is this block's.
  [[nodiscard]] const Record *named_record(const char *block, uint32_t index) const {
    if (index >= records.size() || records[index].block != block)
      return nullptr;
    return &records[index];
  }

  [[nodiscard]] static bool has_trailer(const Record &record) {
    return word_at(record.block + trailer_offset(record.length)) == kTrailer;
  }

  [[nodiscard]] const Record *fresh_record(const char *block) const {
    for (const size_t index : fresh_records)
      if (records[index].block == block && records[index].live && records[index].fresh)
        return &records[index];
    return nullptr;
  }

  // The record of a live block whose surroundings are whole, or null.
  [[nodiscard]] const Record *sound_record(const char *block) const {
    const Record *fresh = fresh_record(block);
    if (fresh != nullptr)
      return fresh;
    if (address_of(block) % 8 != 0 || word_at(block - 4) != kLiveWord)
      return nullptr;
    const Record *record = named_record(block, word_at(block - 8));
    return record != nullptr && record->live && has_trailer(*record) ? record : nullptr;
  }

  [[nodiscard]] bool is_sound(const char *block) const { return sound_record(block) != nullptr; }

  // The latest release at an address where no live block stands.
  [[nodiscard]] const Record *released_record(const char *block) const {
    for (const Record &record : records)
      if (record.live && record.block == block)
        return nullptr;
    for (size_t i = free_records.size(); i > 0; i--)
      if (records[free_records[i - 1]].block == block)
        return &records[free_records[i - 1]];
    return nullptr;
  }

  // ---- sentences ----

  [[nodiscard]] static std::string origin(const Record &record) {
    const Site &site = record.site;
    std::string text = text_of("pointer was allocated by %s with a length of %ld.  ", site.method,
                               static_cast<long>(record.length));
    const std::string line = text_of("(line %d)", site.line);
    const char *function = site.located ? line.c_str() : site.function;
    if (site.located && record.live)
      text += text_of("The storage was allocated in %s, line %d.  ", site.fourth, site.line);
    else if (function != nullptr && site.fourth != nullptr)
      text +=
          text_of("The storage was allocated in the function %s for %s.  ", function, site.fourth);
    else if (function != nullptr)
      text += text_of("The storage was allocated in the function %s.  ", function);
    else if (site.fourth != nullptr)
      text += text_of("The storage was allocated for %s.", site.fourth);
    return text;
  }

  [[nodiscard]] static std::string verdict(uint32_t word, bool has_index, bool consistent,
                                           const Record *record, bool after_release) {
    if (word == kReleasedWord)
      return after_release ? "was referenced after it was free'd." : "referenced free'd data.";
    if (word != kLiveWord)
      return "referenced data that was corrupted at the beginning.";
    if (record != nullptr && !has_trailer(*record))
      return "referenced data that was corrupted at the end.";
    if (!has_index)
      return "referenced data that was corrupted at the beginning.";
    return consistent ? "referenced valid data."
                      : "had invalid debugging information (possible internal error).";
  }

  // `given` is the record that the pointer was taken from, or null.
  [[nodiscard]] std::string description(const char *block, const Record *given,
                                        bool after_release) const {
    std::string text = text_of("The pointer 0x%016lX ", address_of(block));
    if (address_of(block) % 8 != 0)
      return text + "was not valid on this platform (should be a multiple of 8).  " +
             (given != nullptr ? "  The " + origin(*given) : "");
    uint32_t index = block != nullptr ? word_at(block - 8) : UINT32_MAX;
    uint32_t word = block != nullptr ? word_at(block - 4) : 0;
    if (word != kLiveWord && word != kReleasedWord && given == nullptr && block != nullptr) {
      const Record *released = released_record(block);
      if (released != nullptr) {
        index = static_cast<uint32_t>(released - records.data());
        word = kReleasedWord;
      }
    }
    const Record *named = named_record(block, index);
    if (given != nullptr && named != given)
      named = nullptr;
    const Record *record = named != nullptr ? named : given;
    text += verdict(word, index < records.size(), named != nullptr && named->live, record,
                    after_release);
    if (record != nullptr)
      text += (word == kReleasedWord ? "  Before being free'd, the " : "  The ") + origin(*record);
    return text;
  }

  [[nodiscard]] static std::string place(const Site &site) {
    if (site.located)
      return text_of("(Currently inside of %s at %s line %d)", site.method, site.fourth, site.line);
    if (site.function != nullptr && site.fourth != nullptr)
      return text_of("(Currently inside of %s, allocating storage for %s)", site.function,
                     site.fourth);
    if (site.function != nullptr)
      return text_of("(Currently inside of %s)", site.function);
    return site.fourth != nullptr ? text_of("(Currently allocating storage for %s)", site.fourth)
                                  : "";
  }

  // ---- steps of the calls ----

  void verify_heap(const Site &site) {
    bool sound = true;
    for (const Record &record : records)
      if (record.live && !is_sound(record.block)) {
        say("warning", description(record.block, &record, false));
        sound = false;
      }
    if (!sound)
      end(text_of("%s: The heap was corrupted. ", site.method) + place(site));
  }

  // Before the system is asked for a block.
  void ask(size_t length, const Site &site) {
    if (mode == 2)
      verify_heap(site);
    if (!ended)
      count(length);
  }

  void count(size_t length) {
    requested += static_cast<uint32_t>(mode == 0 ? length : trailer_offset(length) + 12);
  }

  // A block that is given back or resized.
  void release(const char *block, const Site &site) {
    const Record *sound = sound_record(block);
    if (sound == nullptr)
      return end(text_of("%s: ", site.method) + description(block, nullptr, true) + " " +
                 place(site));
    if (mode == 2)
      verify_heap(site);
    if (ended)
      return;
    const auto index = static_cast<size_t>(sound - records.data());
    Record &record = records[index];
    live_bytes -= static_cast<uint32_t>(record.length);
    if (threshold >= 0 && record.length >= static_cast<size_t>(threshold))
      say("warning",
          text_of("(%s): Freeing a pointer (0x%016lX) which pointed to %lu bytes of data.  ",
                  site.method, address_of(block), record.length) +
              place(site));
    record.live = false;
    free_records.push_back(index);
  }

  // ---- what is asked of debug mode itself ----

  void describe(const char *block) { say("print", description(block, nullptr, false)); }

  void list(const Record &record, size_t index) {
    const Site &site = record.site;
    const std::string third = site.located               ? std::to_string(site.line)
                              : site.function != nullptr ? site.function
                                                         : "???";
    say("raw", text_of("%s%5zu 0x%016lX%8ld %-20s %-20s %s\n", is_sound(record.block) ? " " : "*",
                       index, address_of(record.block), static_cast<long>(record.length),
                       site.method, third.c_str(), site.fourth != nullptr ? site.fourth : "???"));
  }

  void report(bool verbose) {
    long count = 0;
    long unsound = 0;
    int32_t bytes = 0;
    for (size_t i = 0; i < records.size(); i++) {
      if (!records[i].live)
        continue;
      if (verbose && count == 0) {
        say("print", "Note: a `*' in the first column indicates an invalid or corrupted pointer.");
        say("raw", text_of("X  ID    %-16s  Length Method               Function/Line        "
                           "Purpose/File\n",
                           "Pointer"));
      }
      if (verbose)
        list(records[i], i);
      count++;
      unsound += is_sound(records[i].block) ? 0 : 1;
      bytes = static_cast<int32_t>(static_cast<uint32_t>(bytes) +
                                   static_cast<uint32_t>(records[i].length));
    }
    const auto total = static_cast<unsigned long>(bytes);
    if (count == 0)
      say("print", "orv_malloc_debug_report: No storage was allocated");
    else if (unsound == 0)
      say("print",
          text_of("orv_malloc_debug_report: %lu bytes allocated, %ld pointers", total, count));
    else
      say("print", text_of("orv_malloc_debug_report: %lu bytes allocated, %ld pointers (%ld "
                           "invalid or corrupted!)",
                           total, count, unsound));
  }
};

} // namespace model
