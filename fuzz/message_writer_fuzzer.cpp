// The message writer against a plain model: random sequences of message calls, widths, prefixes,
// solo switches and continuations must give the same bytes on every type's stream.
#include "bytes.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <orv/msg.h>
#include <string>

namespace {

// What the fuzzer's bytes mean here.
struct Input : Bytes {
  std::string text(size_t longest) {
    static const char kinds[] = "abcdefgh   \t\n  xyz\n";
    size_t length = byte() % 8 == 0 ? (byte() * 256U + byte()) % longest : byte() % 40U;
    std::string made;
    while (made.size() < length && left > 0) {
      const unsigned chosen = byte();
      made += chosen < 250 ? kinds[chosen % (sizeof kinds - 1)] : static_cast<char>(chosen);
    }
    return made;
  }

  std::string prefix() {
    std::string made = text(90);
    for (char &c : made)
      if (c == '\n')
        c = ' ';
    return made;
  }
};

constexpr int kTypes[] = {MSG_INFO, MSG_DEBUG, MSG_WARN, MSG_ERROR};

// ---- the model: one growing text a type, written as slowly and plainly as possible ----

struct Message {
  int type;
  int format;
  bool solo;
  bool continuation;
  std::string prefix;
  std::string text;
};

struct Model {
  std::string out[17];
  long column = 0;
  long width = 78;
  bool solo_output = true;
  std::string mp_prefix;
  int last_type = 0;
  int last_format = 0;
  bool last_solo = false;
  std::string last_head;

  static bool blank(char c) { return c == ' ' || c == '\t'; }

  void write(const Message &m, const std::string &bytes) { out[m.type] += bytes; }

  void line_head(const Message &m, std::string &head) {
    if (!m.solo)
      write(m, mp_prefix);
    write(m, head);
    const auto full = static_cast<long>(m.prefix.size() + (m.solo ? 0 : mp_prefix.size()));
    head = std::string(m.prefix.size() < 49 ? m.prefix.size() : 49, ' ');
    column += full;
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

  size_t break_point(const std::string &t, size_t start) const {
    const size_t newline = t.find('\n', start);
    const size_t end = newline == std::string::npos ? t.size() : newline;
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
    for (;;) {
      const size_t stop = break_point(m.text, at);
      write(m, m.text.substr(at, stop - at));
      column += static_cast<long>(stop - at);
      at = stop;
      while (at < m.text.size() && blank(m.text[at]))
        at++;
      if (at < m.text.size() && m.text[at] == '\n') {
        write(m, "\n");
        column = 0;
        at++;
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

  void message(const Message &m) {
    if (m.solo && !solo_output)
      return;
    std::string head = m.prefix;
    if (!m.continuation && column != 0) {
      write(m, "\n");
      column = 0;
    }
    if (!(m.continuation && column != 0))
      line_head(m, head);
    if (width == 0 || m.format == MSG_FMT_RAW)
      unwrapped(m, head);
    else
      wrapped(m, head);
    if (m.format == MSG_FMT_LINE) {
      write(m, "\n");
      column = 0;
    }
    last_type = m.type;
    last_format = m.format;
    last_solo = m.solo;
    last_head = head;
  }

  void cont(const std::string &text) {
    message({last_type, last_format, last_solo, true, last_head, text});
  }
};

// ---- the library, its streams kept in memory ----

struct Streams {
  FILE *stream[17] = {};
  char *bytes[17] = {};
  size_t length[17] = {};

  void open() {
    for (int type : kTypes) {
      stream[type] = open_memstream(&bytes[type], &length[type]);
      msg_clear_streams(type);
      msg_add_stream(type, stream[type]);
    }
  }

  void close() {
    for (int type : kTypes) {
      msg_clear_streams(type);
      fclose(stream[type]);
      free(bytes[type]);
    }
  }
};

void send(const Message &m, const char *format, ...) {
  va_list args;
  va_start(args, format);
  msg_output(m.type, m.format, m.solo, m.continuation, m.prefix.c_str(), format, args);
  va_end(args);
}

void one_step(Input &input, Model &model) {
  switch (input.byte() % 8) {
  case 0:
    model.width = input.byte() % 4 == 0 ? 0 : input.byte() % 100;
    msg_set_width_limit(static_cast<int>(model.width));
    break;
  case 1:
    model.mp_prefix = input.prefix();
    msg_set_mp_prefix(model.mp_prefix.c_str());
    break;
  case 2:
    model.solo_output = input.byte() % 3 != 0;
    msg_set_solo_output(model.solo_output);
    break;
  case 3:
  case 4: {
    if (model.last_type == 0)
      break;
    const std::string text = input.text(3000);
    msg_cont("%s", text.c_str());
    model.cont(text.c_str());
    break;
  }
  default: {
    const unsigned choice = input.byte();
    Message m{.type = kTypes[choice % 4],
              .format = static_cast<int>(choice / 4 % 3),
              .solo = choice / 12 % 3 == 0,
              .continuation = choice / 36 % 7 == 0,
              .prefix = input.prefix().c_str(),
              .text = input.text(20000).c_str()};
    send(m, "%s", m.text.c_str());
    model.message(m);
  }
  }
}

void compare(Streams &streams, const Model &model) {
  for (int type : kTypes) {
    fflush(streams.stream[type]);
    const std::string written(streams.bytes[type], streams.length[type]);
    if (written != model.out[type]) {
      fprintf(stderr, "type %d\nwritten:  [%s]\nexpected: [%s]\n", type, written.c_str(),
              model.out[type].c_str());
      abort();
    }
  }
}

// Both sides start on a fresh line; what an earlier input left to continue is carried over.
void start_afresh(Model &model, const Model &before) {
  msg_set_width_limit(78);
  msg_set_mp_prefix("");
  msg_set_solo_output(1);
  model.last_type = before.last_type;
  model.last_format = before.last_format;
  model.last_solo = before.last_solo;
  model.last_head = before.last_head;
  const Message first{MSG_INFO, MSG_FMT_LINE, false, false, "", ""};
  model.column = before.column;
  send(first, "%s", "");
  model.message(first);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Model carried;
  Input input{data, size};
  Streams streams;
  streams.open();
  Model model;
  start_afresh(model, carried);
  while (input.left > 0) {
    one_step(input, model);
  }
  compare(streams, model);
  streams.close();
  for (std::string &text : model.out)
    text.clear();
  carried = model;
  return 0;
}
