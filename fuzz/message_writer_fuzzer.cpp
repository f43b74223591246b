// The message calls against a plain model: random sequences of all of them, with widths, prefixes,
// solo switches, continuations, long texts, refused storage, failing streams and formats that end
// the process, must give the same bytes on every type's stream.
#include "bytes.h"
#include "judge.h"
#include "library_run.h"
#include "messages/state.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <orv/msg.h>
#include <string>

namespace {

// What the fuzzer's bytes mean here.
struct Input : Bytes {
  int long_texts_left = 2;

  std::string piece(unsigned most) {
    static const char kinds[] = "abcdefgh   \t\n  xyz\n";
    std::string made;
    for (unsigned length = byte() % most; length > 0 && left > 0; length--) {
      const unsigned chosen = byte();
      made += chosen < 250 ? kinds[chosen % (sizeof kinds - 1)] : static_cast<char>(chosen);
    }
    return made;
  }

  // Some are about as long as the library's own areas.
  std::string text() {
    static constexpr size_t kSizes[] = {200, 1000, 9998, 16384};
    if (!one_in(32) || long_texts_left == 0)
      return piece(40);
    long_texts_left--;
    return repeated(piece(40), kSizes[byte() % 4] - 8 + byte() % 16);
  }

  std::string prefix() {
    std::string made = one_in(8) ? repeated(piece(20), 44 + byte() % 10) : piece(16);
    std::replace(made.begin(), made.end(), '\n', ' ');
    return made;
  }
};

// ---- the calls, as a table of what each fixes ----

enum Prefix { kMpPrefix, kWarnPrefix, kPrintPrefix, kInternalErrorPrefix, kErrorPrefix };

struct SharedCall {
  void (*write)(const char *format, ...);
  int type;
  Prefix prefix;
  int format;
  bool solo;
  bool ends;         // the process
  bool system_error; // tells it too
};

constexpr SharedCall kSharedCalls[] = {
    {msg_print_raw, MSG_INFO, kPrintPrefix, MSG_FMT_RAW, false, false, false},
    {msg_print_wrap, MSG_INFO, kPrintPrefix, MSG_FMT_WRAP, false, false, false},
    {msg_print, MSG_INFO, kPrintPrefix, MSG_FMT_LINE, false, false, false},
    {msg_print_solo_raw, MSG_INFO, kPrintPrefix, MSG_FMT_RAW, true, false, false},
    {msg_print_solo_wrap, MSG_INFO, kPrintPrefix, MSG_FMT_WRAP, true, false, false},
    {msg_print_solo, MSG_INFO, kPrintPrefix, MSG_FMT_LINE, true, false, false},
    {msg_warn_raw, MSG_WARN, kWarnPrefix, MSG_FMT_RAW, false, false, false},
    {msg_warn_wrap, MSG_WARN, kWarnPrefix, MSG_FMT_WRAP, false, false, false},
    {msg_warn, MSG_WARN, kWarnPrefix, MSG_FMT_LINE, false, false, false},
    {msg_warn_solo_raw, MSG_WARN, kWarnPrefix, MSG_FMT_RAW, true, false, false},
    {msg_warn_solo_wrap, MSG_WARN, kWarnPrefix, MSG_FMT_WRAP, true, false, false},
    {msg_warn_solo, MSG_WARN, kWarnPrefix, MSG_FMT_LINE, true, false, false},
    {msg_error_shared, MSG_ERROR, kErrorPrefix, MSG_FMT_LINE, false, false, false},
    {msg_fatal, MSG_ERROR, kErrorPrefix, MSG_FMT_LINE, false, true, false},
    {msg_fatal_solo, MSG_ERROR, kErrorPrefix, MSG_FMT_LINE, true, true, false},
    {msg_fatal_internal, MSG_ERROR, kInternalErrorPrefix, MSG_FMT_LINE, false, true, false},
    {msg_fatal_internal_solo, MSG_ERROR, kInternalErrorPrefix, MSG_FMT_LINE, true, true, false},
    {msg_fatal_syserr, MSG_ERROR, kErrorPrefix, MSG_FMT_LINE, false, true, true},
    {msg_fatal_syserr_solo, MSG_ERROR, kErrorPrefix, MSG_FMT_LINE, true, true, true},
};

struct ChoiceCall {
  void (*write)(int solo, const char *format, ...);
  Prefix prefix;
  int format;
};

constexpr ChoiceCall kChoiceCalls[] = {
    {msg_error_raw, kErrorPrefix, MSG_FMT_RAW},
    {msg_error_wrap, kErrorPrefix, MSG_FMT_WRAP},
    {msg_error, kErrorPrefix, MSG_FMT_LINE},
    {msg_internal_error_raw, kInternalErrorPrefix, MSG_FMT_RAW},
    {msg_internal_error_wrap, kInternalErrorPrefix, MSG_FMT_WRAP},
    {msg_internal_error, kInternalErrorPrefix, MSG_FMT_LINE},
};

struct PrefixCall {
  void (*set)(const char *text);
  const char *(*get)();
  const char *name;
};

constexpr PrefixCall kPrefixCalls[] = {
    {msg_set_mp_prefix, msg_get_mp_prefix, "msg_set_mp_prefix"},
    {msg_set_warn_prefix, msg_get_warn_prefix, "msg_set_warn_prefix"},
    {msg_set_print_prefix, msg_get_print_prefix, "msg_set_print_prefix"},
    {msg_set_internal_error_prefix, msg_get_internal_error_prefix, "msg_set_internal_error_prefix"},
    {msg_set_error_prefix, msg_get_error_prefix, "msg_set_error_prefix"},
};
static_assert(std::size(kPrefixCalls) == kErrorPrefix + 1);

// ---- the model: one growing text a type, written as slowly and plainly as possible ----

constexpr int kTypes[] = {MSG_INFO, MSG_DEBUG, MSG_WARN, MSG_ERROR, MSG_DIAG};
constexpr int kMostType = MSG_DIAG;
constexpr size_t kAreaSize = 16384;   // what is left to texts where the heap has refused
constexpr size_t kMostAtFirst = 9998; // characters, for which nothing is asked of the heap

const char *name_of_type(int type) {
  switch (type) {
  case MSG_INFO:
    return "informational";
  case MSG_DEBUG:
    return "debug";
  case MSG_WARN:
    return "warning";
  case MSG_ERROR:
    return "error";
  default:
    return "diag";
  }
}

// How the stream of a type fails from now on: with an error number, or in silence.
constexpr int kWorks = -1;
constexpr int kAllWork[kMostType + 1] = {-1, -1, -1, -1, -1, -1, -1, -1, -1,
                                         -1, -1, -1, -1, -1, -1, -1, -1};
int failures[kMostType + 1];

struct Message {
  int type;
  int format;
  bool solo;
  bool continuation;
  std::string prefix;
  std::string text;
  bool is_last_head = false; // the prefix is what the library keeps for continuations
  bool is_format = false;    // the text, for want of storage: it takes nothing of the area
};

struct Model {
  std::string out[kMostType + 1];
  long column = 0;
  long width = 78;
  bool solo_output = true;
  std::string prefixes[std::size(kPrefixCalls)] = {"", "Warning: ", "",
                                                   "Internal error: ", "Error: "};
  int last_type = 0;
  int last_format = 0;
  bool last_solo = false;
  std::string last_head;
  bool ended = false;
  bool dropped[kMostType + 1] = {}; // the type's stream has failed
  size_t held = 0;                  // bytes of the area, by messages within messages
  long remembered = 0;              // messages that have left something for a continuation

  static bool blank(char c) { return c == ' ' || c == '\t'; }

  static std::string indentation(size_t length) {
    return std::string(std::min<size_t>(length, 49), ' ');
  }

  // A text of the library's own, beside its format.
  struct Words {
    std::string format;
    std::string text;
  };

  // A message that may come in the middle of another one: without heap it gets what the other has
  // left of the area.
  [[nodiscard]] Message within(const Words &words, Message m) const {
    m.text = words.text;
    if (!library_run::refuses_storage)
      return m;
    m.is_format = held == kAreaSize;
    m.text = m.is_format ? words.format : words.text.substr(0, kAreaSize - held - 1);
    return m;
  }

  static size_t size_in_area(const Message &m) {
    const bool in_area = m.text.size() <= kMostAtFirst || library_run::refuses_storage;
    return in_area && !m.is_format ? m.text.size() + 1 : 0;
  }

  // A stream that fails is no longer used; a message says so in the middle of the present one.
  void drop_stream(const Message &m) {
    const int lines_of_message = lines_written;
    const int error = failures[m.type];
    dropped[m.type] = true;
    const std::string opening = error == 0 ? "EOF error" : "Error";
    const std::string end = " message.  This stream will no longer be used.";
    const Words words = {opening + " during %s of %s" + end,
                         opening + " during output of " + name_of_type(m.type) + end};
    message(within(words, {MSG_WARN, MSG_FMT_LINE, m.solo, false, prefixes[kWarnPrefix], ""}));
    if (error != 0)
      continue_within(
          {"Stream error was: %s", std::string("Stream error was: ") + strerror(error)});
    lines_written = lines_of_message;
  }

  void write(const Message &m, const std::string &bytes) {
    if (bytes.empty() || dropped[m.type])
      return;
    if (failures[m.type] == kWorks)
      out[m.type] += bytes;
    else
      drop_stream(m);
  }

  void line_head(const Message &m, std::string &head) {
    if (!m.solo)
      write(m, prefixes[kMpPrefix]);
    write(m, head);
    const auto full =
        static_cast<long>(m.prefix.size() + (m.solo ? 0 : prefixes[kMpPrefix].size()));
    head = indentation(m.prefix.size());
    column += full;
    lines_written++;
  }

  void unwrapped(const Message &m, std::string &head) {
    size_t at = 0;
    for (;;) {
      const size_t newline = m.text.find('\n', at);
      if (newline == std::string::npos) {
        write(m, m.text.substr(at));
        column += static_cast<long>(m.text.size() - at);
        return;
      }
      write(m, m.text.substr(at, newline + 1 - at));
      column = 0;
      at = newline + 1;
      if (at == m.text.size())
        return;
      line_head(m, head);
    }
  }

  static size_t end_of_line(const std::string &t, size_t start) {
    return std::min(t.find('\n', start), t.size());
  }

  size_t break_point(const std::string &t, size_t start, size_t end) const {
    const long room = width - column;
    if (static_cast<long>(end - start) <= room)
      return end;
    size_t word = start;
    while (word < t.size() && blank(t[word]))
      word++;
    const auto blanks = static_cast<long>(word - start);
    if (word < t.size() && blanks <= room) {
      for (size_t at = start + static_cast<size_t>(room); at + 1 > word; at--) {
        if (blank(t[at]))
          return at;
        if (at == 0)
          break;
      }
    }
    if (word != start)
      return start;
    size_t after = start;
    while (after < t.size() && !blank(t[after]))
      after++;
    return after >= end ? end : after;
  }

  void wrapped(const Message &m, std::string &head) {
    size_t at = 0;
    size_t end = end_of_line(m.text, at);
    for (;;) {
      const size_t stop = break_point(m.text, at, end);
      write(m, m.text.substr(at, stop - at));
      column += static_cast<long>(stop - at);
      at = stop;
      while (at < m.text.size() && blank(m.text[at]))
        at++;
      if (at < m.text.size() && m.text[at] == '\n') {
        write(m, "\n");
        column = 0;
        at++;
        end = end_of_line(m.text, at);
      }
      if (at == m.text.size())
        return;
      if (column != 0) {
        write(m, "\n");
        column = 0;
      }
      line_head(m, head);
    }
  }

  void fatal(bool solo, const Words &words) {
    message(within(words, {MSG_ERROR, MSG_FMT_LINE, solo, false, prefixes[kErrorPrefix], ""}));
    ended = true;
  }

  // What a message leaves for a continuation.
  void remember(const Message &m, bool head_was_written, bool head_is_kept) {
    if (head_was_written)
      last_head = indentation(m.prefix.size());
    else if (!head_is_kept)
      last_head = library_run::refuses_storage ? indentation(m.prefix.size()) : m.prefix;
    last_type = m.type;
    last_format = m.format;
    last_solo = m.solo;
    remembered++;
  }

  void message(const Message &m) {
    if (m.solo && !solo_output)
      return;
    if (std::find(std::begin(kTypes), std::end(kTypes), m.type) == std::end(kTypes))
      return fatal(false, {"", "Internal error (_msg_get_stream_desc): Unknown message type: " +
                                   std::to_string(m.type)});
    std::string head = m.prefix;
    const long remembered_before = remembered;
    lines_written = 0;
    const size_t held_before = held;
    held += size_in_area(m);
    const bool stays_on_line = m.continuation && column != 0;
    if (!m.continuation && column != 0) {
      write(m, "\n");
      column = 0;
    }
    if (!stays_on_line)
      line_head(m, head);
    if (width == 0 || m.format == MSG_FMT_RAW)
      unwrapped(m, head);
    else if (m.format != MSG_FMT_WRAP && m.format != MSG_FMT_LINE)
      return fatal(m.solo, {"Internal error: Bad MSG_FMT_TYPE: %d",
                            "Internal error: Bad MSG_FMT_TYPE: " + std::to_string(m.format)});
    else
      wrapped(m, head);
    held = held_before;
    if (m.format == MSG_FMT_LINE) {
      write(m, "\n");
      column = 0;
    }
    remember(m, lines_written > 0, m.is_last_head && remembered == remembered_before);
  }

  // The text as it is expanded; where it is the format itself, nothing is.
  static std::string expanded(const std::string &text, bool is_format) {
    const bool needs_heap = !is_format && text.size() > kMostAtFirst;
    return needs_heap && library_run::refuses_storage ? text.substr(0, kAreaSize - 1) : text;
  }

  // A message whose text is its format: a dollar sign at its beginning is reserved.
  void message_of_format(Message m) {
    if (m.solo && !solo_output)
      return;
    if (m.text[0] == '$' && m.text[1] != '$')
      return fatal(m.solo, {"", "Internationalization interface not yet supported.\n"
                                "However, the format string \"" +
                                    m.text +
                                    "\" began with a dollar sign.  Use two dollar signs if you "
                                    "really want the string to begin a dollar sign."});
    if (m.text[0] == '$')
      m.text.erase(0, 1);
    m.is_format = m.text.size() > kMostAtFirst && library_run::refuses_storage;
    message(m);
  }

  void continue_within(const Words &words) {
    message(within(words, {last_type, last_format, last_solo, true, last_head, "", true}));
  }

  void cont(const std::string &text) {
    if (last_type == 0)
      return fatal(false, {"", "MSG_CONT called before any other message function."});
    message({last_type, last_format, last_solo, true, last_head, text, true});
  }

  void set_prefix(Prefix slot, const std::string &text) {
    if (!library_run::refuses_storage)
      prefixes[slot] = text;
    else
      message({MSG_WARN, MSG_FMT_LINE, false, false, prefixes[kWarnPrefix],
               std::string(kPrefixCalls[slot].name) + ": Couldn't allocate " +
                   std::to_string(text.size() + 1) +
                   " characters to store print prefix. Prefix unchanged."});
  }

  int lines_written = 0; // heads of lines, of the present message
};

// ---- the library, its streams kept in memory ----

std::string written[kMostType + 1];
const char *environment; // the value of the width's variable
orv::messages::State pristine;

ssize_t take(void *cookie, const char *bytes, size_t count) {
  auto *text = static_cast<std::string *>(cookie);
  const int failure = failures[text - written];
  if (failure != kWorks) {
    errno = failure;
    return 0;
  }
  text->append(bytes, count);
  return static_cast<ssize_t>(count);
}

void prepare() {
  for (const int type : kTypes) {
    FILE *stream = fopencookie(&written[type], "w",
                               {.read = nullptr, .write = take, .seek = nullptr, .close = nullptr});
    setvbuf(stream, nullptr, _IONBF, 0);
    msg_clear_streams(type);
    msg_add_stream(type, stream);
  }
  pristine = orv::messages::state;
}

// What precedes the area for texts is all that a message leaves behind.
void start_afresh() {
  library_run::release_left_blocks();
  memcpy(&orv::messages::state, &pristine, offsetof(orv::messages::State, area));
  for (std::string &text : written)
    text.clear();
  memcpy(failures, kAllWork, sizeof failures);
}

void compare(const Model &model) {
  for (const int type : kTypes)
    judge("what was written", written[type], model.out[type]);
}

// ---- the steps: each true when the library returned ----

void output(const Message &m, const char *format, ...) {
  va_list args;
  va_start(args, format);
  msg_output(m.type, m.format, m.solo, m.continuation, m.prefix.c_str(), format, args);
  va_end(args);
}

bool write_message(Input &input, Model &model) {
  Message m{.type =
                input.one_in(64) ? static_cast<int>(input.byte() % 20) : kTypes[input.byte() % 5],
            .format = input.one_in(64) ? static_cast<int>(input.byte())
                                       : static_cast<int>(input.byte() % 3),
            .solo = input.byte() % 3 == 0,
            .continuation = input.byte() % 4 == 1,
            .prefix = input.prefix(),
            .text = input.text()};
  const bool is_format = input.one_in(4) && m.text.find('%') == std::string::npos;
  const std::string text = m.text;
  if (is_format) {
    model.message_of_format(m);
    return library_run::returns([&] { output(m, text.c_str()); });
  }
  m.text = Model::expanded(m.text, false);
  model.message(m);
  return library_run::returns([&] { output(m, "%s", text.c_str()); });
}

bool call_shared(Input &input, Model &model) {
  const SharedCall &call = kSharedCalls[input.byte() % std::size(kSharedCalls)];
  const std::string text = input.text();
  const int error = static_cast<int>(input.byte() % 100);
  model.message({call.type, call.format, call.solo, false, model.prefixes[call.prefix],
                 Model::expanded(text, false)});
  if (call.system_error)
    model.cont(std::string("System error message: ") + strerror(error));
  model.ended |= call.ends;
  return library_run::returns([&] {
    errno = error;
    call.write("%s", text.c_str());
  });
}

bool call_choice(Input &input, Model &model) {
  const ChoiceCall &call = kChoiceCalls[input.byte() % std::size(kChoiceCalls)];
  const std::string text = input.text();
  const bool solo = input.byte() % 2 == 0;
  model.message({MSG_ERROR, call.format, solo, false, model.prefixes[call.prefix],
                 Model::expanded(text, false)});
  return library_run::returns([&] { call.write(solo ? 1 : 0, "%s", text.c_str()); });
}

bool print_otherwise(Input &input, Model &model) {
  const bool bare = input.byte() % 2 == 0;
  const std::string prefix = bare ? "" : input.prefix();
  const std::string text = input.text();
  model.message({MSG_INFO, MSG_FMT_LINE, false, false, prefix, Model::expanded(text, false)});
  return library_run::returns([&] {
    if (bare)
      msg_print_bare("%s", text.c_str());
    else
      msg_print_with_prefix(prefix.c_str(), "%s", text.c_str());
  });
}

bool continue_message(Input &input, Model &model) {
  const std::string text = input.text();
  model.cont(Model::expanded(text, false));
  return library_run::returns([&] { msg_cont("%s", text.c_str()); });
}

bool set_width(Input &input, Model &model) {
  const int width = input.one_in(4) ? 0 : static_cast<int>(input.byte() % 100);
  if (input.one_in(64)) {
    model.fatal(false, {"", "msg_set_width_limit: Width cannot be less than 0!"});
    return library_run::returns([&] { msg_set_width_limit(-1 - width); });
  }
  model.width = width;
  return library_run::returns([&] { msg_set_width_limit(width); });
}

bool set_prefix(Input &input, Model &model) {
  const auto slot = static_cast<Prefix>(input.byte() % std::size(kPrefixCalls));
  const std::string text = input.prefix();
  model.set_prefix(slot, text);
  if (!library_run::returns([&] { kPrefixCalls[slot].set(text.c_str()); }))
    return false;
  judge("the prefix", kPrefixCalls[slot].get(), model.prefixes[slot]);
  return true;
}

bool switch_solo(Input &input, Model &model) {
  model.solo_output = input.byte() % 3 != 0;
  return library_run::returns([&] { msg_set_solo_output(model.solo_output ? 1 : 0); });
}

bool break_stream(Input &input, Model &) {
  static constexpr int kErrors[] = {EIO, 0, ENOSPC};
  const int type = kTypes[input.byte() % 5];
  if (input.one_in(4))
    failures[type] = kErrors[input.byte() % 3];
  return true;
}

constexpr bool (*kSteps[])(Input &input, Model &model) = {
    write_message,   continue_message, call_shared,   call_choice,      set_width,   set_prefix,
    print_otherwise, switch_solo,      write_message, continue_message, call_shared, break_stream,
};

// ---- the environment ----

struct Width {
  const char *value;
  long limit;
};

// What the variable makes of the initial limit of 78.
constexpr Width kWidths[] = {{nullptr, 78},    {nullptr, 78}, {"", 78},
                             {"abc", 78},      {"0", 0},      {"40", 78},
                             {"100", 100},     {" 90x", 90},  {"-5", 0},
                             {"32766", 32766}, {"32767", 0},  {"99999999999999999999", 0}};

} // namespace

extern "C" {

char *__real_getenv(const char *name);
char *__wrap_getenv(const char *name) {
  if (!library_run::active)
    return __real_getenv(name);
  judge("the variable asked for", name, "ORV_MSGERR_WRAP");
  return const_cast<char *>(environment);
}

[[noreturn]] void __real_exit(int status);
[[noreturn]] void __wrap_exit(int status) {
  if (!library_run::active)
    __real_exit(status);
  judge("the exit status", status, 1);
  library_run::leave();
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool prepared = (prepare(), true);
  static_cast<void>(prepared);
  Input input{{.data = data, .left = size}};
  Model model;
  const Width &width = kWidths[input.byte() % std::size(kWidths)];
  environment = width.value;
  model.width = width.limit;
  start_afresh();
  while (input.left > 0 && !model.ended) {
    library_run::refuses_storage = input.one_in(32);
    const bool returned = kSteps[input.byte() % std::size(kSteps)](input, model);
    judge("whether the process ends", returned ? 0 : 1, model.ended ? 1 : 0);
  }
  library_run::refuses_storage = false;
  compare(model);
  return 0;
}

} // extern "C"
