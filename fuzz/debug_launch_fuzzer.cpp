// The debug launch against a plain model: random command lines, requests and environments must put
// the same texts into the environment, pause, prompt, trace and refuse alike, and run the same
// commands. Nothing is run, slept or read: what the library asks for is noted, in order.
#include "bytes.h"
#include "judge.h"
#include "library_run.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <string>
#include <strings.h>
#include <vector>

namespace {

using Text = std::string;
using MaybeText = std::optional<Text>;
using Words = std::vector<Text>;

// What the fuzzer's bytes mean here.
struct Input : Bytes {
  int slow_things_left = 2;

  // For what takes long to make and to judge.
  bool seldom(unsigned times) {
    if (!one_in(times) || slow_things_left == 0)
      return false;
    slow_things_left--;
    return true;
  }

  Text word() {
    static const char *const words[] = {
        "__ORV_DEBUG__", "__orv_debug__", "delay",  "PROMPT", "using", "Exec", "5", "-1",
        "99999999999",   "/bin/prog",     "--flag", "usin",   "%s%%n", "%",    "",  "\f7"};
    if (seldom(128))
      return long_word();
    return one_in(4) ? characters(12) : one_of(words);
  }

  // About as long as a command line, as all arguments, or as a line of the trace may be.
  Text long_word() {
    static constexpr size_t kLimits[] = {1023, 1023, 1023, 1023, 4095, 4095, 4095, 16383};
    const Text piece = characters(9);
    return repeated(piece, kLimits[byte() % std::size(kLimits)] - 24 + byte() % 32);
  }

  Text request() {
    static const char *const operations[] = {"delay", "prompt", "using", "exec", "", "debug"};
    static const char *const blanks[] = {" ", "", "\t", "  \t", "\n", " "};
    Text made = Text(one_of(blanks)) + (one_in(4) ? word() : Text(one_of(operations)));
    for (unsigned count = byte() % 6; count > 0; count--)
      made += one_of(blanks) + word();
    if (seldom(64))
      made += repeated(" x", 2 * (250 + byte() % 12));
    return made;
  }

  Text program() {
    static const char *const names[] = {"/usr/bin/prog.x", "orvprog", "ZO_tool.1", "Velta.d/velta",
                                        "a/.profile",      "",        "..",        "dir/"};
    if (one_in(16))
      return repeated("dir/name", 230 + byte());
    return one_in(4) ? characters(20) : one_of(names);
  }

  Words arguments() {
    Words made;
    if (seldom(128))
      made.assign(505 + byte() % 12, characters(9));
    for (unsigned count = byte() % 5; count > 0; count--)
      made.push_back(word());
    return made;
  }

  MaybeText maybe(const Text &text) { return one_in(4) ? std::nullopt : MaybeText(text); }
};

// ---- the system: what it holds, and what was asked of it ----

struct System {
  MaybeText request; // the value of ORV_DEBUG
  MaybeText shell;
  bool executes;  // whether a program can be executed
  bool attempted; // whether a stamped log was attempted already
  Text happened;
};
System fake;
FILE *standard_error;

void happens(const Text &text) {
  fake.happened += text;
  fake.happened += '\n';
}

// ---- the model ----

// What the library does next; it ends the process at most once.
struct Model {
  Text happened;
  bool ended = false;

  void happens(const Text &text) {
    if (!ended)
      happened += text + "\n";
  }

  void end() { ended = true; }

  void refuse(const Text &word, const Text &reason) {
    happens("\"__ORV_DEBUG__ " + word + "\" " + reason + ".");
    happens("exit 1");
    end();
  }

  static Text joined(const Words &words) {
    Text text;
    for (size_t i = 0; i < words.size(); i++)
      text += (i == 0 ? "" : " ") + words[i];
    return text;
  }

  static Words words_of(const Text &text) {
    Words words;
    Text word;
    for (const char c : text + " ") {
      if (c != ' ' && c != '\t') {
        word += c;
      } else if (!word.empty()) {
        words.push_back(word);
        word.clear();
      }
    }
    return words;
  }

  static Text base_of(const Text &path) { return path.substr(path.rfind('/') + 1); }

  bool export_program(const Text &program, const Words &args) {
    const Text parameters = joined(args);
    if (parameters.size() > 4095)
      return false;
    happens("putenv ORV_DEBUG_PROMPT=" + ("debug " + base_of(program)).substr(0, 255));
    happens("putenv ORV_EXE=" + program);
    happens("putenv ORV_EXE_PARMS=" + parameters);
    return true;
  }

  static long number_of(const Text &text) {
    size_t at = 0;
    while (at < text.size() && isspace(static_cast<unsigned char>(text[at])) != 0)
      at++;
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
      at++;
    long sum = 0;
    for (; at < text.size() && isdigit(static_cast<unsigned char>(text[at])) != 0; at++)
      sum = std::min(sum * 10 + (text[at] - '0'), static_cast<long>(UINT_MAX));
    return negative ? 0 : sum;
  }

  void delay(const Words &operands) {
    happens("sleep " + std::to_string(operands.empty() ? 30 : number_of(operands[0])));
  }

  void prompt(const Words &operands) {
    Text line = operands.empty() ? "ORV_DEBUG prompt>" : "";
    for (const Text &operand : operands)
      line += operand + " ";
    happens(line);
    happens("fgets 255");
  }

  void use(const Text &word, const Text &program, const Words &args, const Words &operands) {
    const Text command = operands.empty() ? fake.shell.value_or("tcsh") : joined(operands);
    if (command.size() > 1023)
      return refuse(word, "operands too long");
    if (!export_program(program, args))
      return refuse(word, "program arguments too long");
    happens("exec /bin/sh\nsh\n-c\n" + command);
    if (fake.executes)
      return end();
    refuse("using", "w/execl() call failed");
  }

  void execute(const Text &word, const Text &program, const Words &args, const Words &operands) {
    if (!export_program(program, args))
      return refuse(word, "program arguments too long");
    if (!operands.empty()) {
      Text vector = "exec " + operands[0];
      for (const Text &operand : operands)
        vector += "\n" + operand;
      happens(vector);
      if (fake.executes)
        return end();
    }
    refuse("exec", "w/execv() call failed");
  }

  void operate(const Text &program, const Words &args, const Text &request) {
    const Words words = words_of(request);
    const Text word = words.empty() ? "using" : words[0];
    const Words operands(words.begin() + (words.empty() ? 0 : 1), words.end());
    if (operands.size() > 256)
      return refuse(word, "operands too long");
    const auto is = [&](const char *name) { return strcasecmp(word.c_str(), name) == 0; };
    if (is("delay"))
      return delay(operands);
    if (is("prompt"))
      return prompt(operands);
    if (is("using"))
      return use(word, program, args, operands);
    if (is("exec"))
      return execute(word, program, args, operands);
    refuse(word, "not a recognized debug op");
  }

  static Text log_name_of(const Text &program) {
    const Text base = base_of(program);
    const size_t dot = base.rfind('.');
    const Text name = base.substr(0, dot == 0 ? Text::npos : dot);
    for (const char *prefix : {"velta", "orv", "zo_"})
      if (strncasecmp(name.c_str(), prefix, strlen(prefix)) == 0)
        return name.substr(strlen(prefix));
    return name;
  }

  // Percent signs are interpreted again as the trace is written: two of them make one. What is
  // doubled for that takes room, and the trace has room for 16383 characters.
  static Text traced(size_t index, const Text &argument) {
    Text line = "argv[" + std::to_string(index) + "] = \"";
    for (size_t i = 0; i < argument.size(); i++) {
      line += argument[i];
      if (argument[i] != '%')
        continue;
      line += '%';
      if (i + 1 < argument.size() && argument[i + 1] == '%')
        i++;
    }
    line += "\"\n";
    if (line.size() > 16383)
      line = line.substr(0, 16382) + "\n";
    Text written;
    for (size_t i = 0; i < line.size(); i++) {
      written += line[i];
      if (line[i] == '%' && i + 1 < line.size() && line[i + 1] == '%')
        i++;
    }
    return written;
  }

  void log_arguments(const Words &command_line, const MaybeText &log_name) {
    if (!fake.attempted)
      happens("log " + log_name.value_or(log_name_of(command_line.empty() ? "" : command_line[0])));
    for (size_t i = 0; i < command_line.size() && !ended; i++)
      happened += traced(i, command_line[i]);
  }

  // Returns the new argument count.
  size_t start(const Words &command_line, const MaybeText &log_name) {
    const Text program = command_line.empty() ? "" : command_line[0];
    Words args;
    for (size_t i = 1; i < command_line.size() && i < 511; i++) {
      if (strcasecmp(command_line[i].c_str(), "__ORV_DEBUG__") == 0) {
        const Text request =
            joined({command_line.begin() + static_cast<long>(i) + 1, command_line.end()});
        const Words words = words_of(request);
        if (request.size() > 4095) {
          refuse(words.empty() ? "using" : words[0], "operands too long");
          return command_line.size();
        }
        operate(program, args, request);
        return i;
      }
      args.push_back(command_line[i]);
    }
    if (!fake.request.value_or("").empty()) {
      happens("putenv ORV_DEBUG=");
      operate(program, args, *fake.request);
    }
    if (!ended)
      log_arguments(command_line, log_name);
    return command_line.size();
  }
};

// ---- the comparison ----

// A vector as main gets it, in blocks of just its size.
struct Vector {
  std::vector<char *> entries;

  explicit Vector(const Words &words) {
    for (const Text &word : words)
      entries.push_back(strdup(word.c_str()));
    entries.push_back(nullptr);
    entries.shrink_to_fit();
  }
  Vector(const Vector &) = delete;
  Vector &operator=(const Vector &) = delete;
  ~Vector() {
    for (char *entry : entries)
      free(entry);
  }
};

// Runs a call whose standard error is noted; true when it returned.
template <typename Call> bool returns(Call call) {
  FILE *const system_error = stderr;
  stderr = standard_error;
  const bool returned = library_run::returns(call);
  fflush(standard_error);
  stderr = system_error;
  return returned;
}

void judge_ending(bool returned, const Model &model) {
  judge("what happened", fake.happened, model.happened);
  judge("whether the process goes on", returned ? 1 : 0, model.ended ? 0 : 1);
}

void start_program(Input &input) {
  Words words = input.arguments();
  if (!input.one_in(16))
    words.insert(words.begin(), input.program());
  const MaybeText log_name = input.one_in(4) ? MaybeText(input.word()) : std::nullopt;
  Model model;
  const size_t count = model.start(words, log_name);
  Vector vector(words);
  const std::vector<char *> owned = vector.entries;
  int argc = static_cast<int>(words.size());
  const bool returned = returns([&] {
    platform_debug_args(&argc, vector.entries.data(), log_name ? log_name->c_str() : nullptr);
  });
  const char *last = returned ? vector.entries[static_cast<size_t>(argc)] : nullptr;
  vector.entries = owned;
  judge_ending(returned, model);
  if (!returned)
    return;
  judge("the argument count", argc, static_cast<long>(count));
  judge("the end of the vector", last == nullptr ? 1 : 0, 1);
}

void operate(Input &input) {
  const Text program = input.program();
  const Words args = input.arguments();
  const Text request = input.request();
  Model model;
  model.operate(program, args, request);
  const Vector vector(args);
  const Vector texts({program, request});
  judge_ending(returns([&] {
                 platform_debug_op(texts.entries[0], vector.entries.data(), texts.entries[1]);
               }),
               model);
}

void export_program(Input &input) {
  const Text program = input.program();
  const Words args = input.arguments();
  Model model;
  model.export_program(program, args);
  const Vector vector(args);
  judge_ending(returns([&] { platform_debug_export(program.c_str(), vector.entries.data()); }),
               model);
}

// Standard error and the trace.
ssize_t take_output(void *, const char *bytes, size_t count) {
  fake.happened.append(bytes, count);
  return static_cast<ssize_t>(count);
}

FILE *stream_of(int buffering) {
  FILE *stream = fopencookie(
      nullptr, "w", {.read = nullptr, .write = take_output, .seek = nullptr, .close = nullptr});
  setvbuf(stream, nullptr, buffering, BUFSIZ);
  return stream;
}

void prepare() {
  standard_error = stream_of(_IOFBF);
  msg_add_stream(MSG_DIAG, stream_of(_IONBF));
}

// What the library asks to be run in place of this program: its path and its words.
void note_program(const char *path, const std::vector<const char *> &words) {
  Text vector = Text("exec ") + path;
  for (const char *word : words)
    vector += Text("\n") + word;
  happens(vector);
}

void note_listed_program(const char *path, const char *first, va_list rest) {
  std::vector<const char *> words;
  for (const char *word = first; word != nullptr; word = va_arg(rest, const char *))
    words.push_back(word);
  note_program(path, words);
}

void note_program_of_vector(const char *path, char *const *words) {
  size_t count = 0;
  while (words[count] != nullptr)
    count++;
  note_program(path, {words, words + count});
}

} // namespace

extern "C" {

char *__real_getenv(const char *name);
char *__wrap_getenv(const char *name) {
  if (!library_run::active)
    return __real_getenv(name);
  MaybeText &value = strcmp(name, "SHELL") == 0 ? fake.shell : fake.request;
  if (strcmp(name, "SHELL") != 0 && strcmp(name, "ORV_DEBUG") != 0)
    differ("the variable asked for", name, "another");
  return value ? value->data() : nullptr;
}

int __real_putenv(char *assignment);
int __wrap_putenv(char *assignment) {
  if (!library_run::active)
    return __real_putenv(assignment);
  happens(Text("putenv ") + assignment);
  return 0;
}

unsigned __real_sleep(unsigned seconds);
unsigned __wrap_sleep(unsigned seconds) {
  if (!library_run::active)
    return __real_sleep(seconds);
  happens("sleep " + std::to_string(seconds));
  return 0;
}

char *__real_fgets(char *area, int size, FILE *stream);
char *__wrap_fgets(char *area, int size, FILE *stream) {
  if (!library_run::active)
    return __real_fgets(area, size, stream);
  happens("fgets " + std::to_string(size));
  memset(area, 'x', static_cast<size_t>(size - 1));
  area[size - 1] = '\0';
  return area;
}

int __wrap_execv(const char *path, char *const *words) {
  note_program_of_vector(path, words);
  if (fake.executes)
    library_run::leave();
  return -1;
}

int __wrap_execl(const char *path, const char *first, ...) {
  va_list rest;
  va_start(rest, first);
  note_listed_program(path, first, rest);
  va_end(rest);
  if (fake.executes)
    library_run::leave();
  return -1;
}

[[noreturn]] void __real_exit(int status);
[[noreturn]] void __wrap_exit(int status) {
  if (!library_run::active)
    __real_exit(status);
  happens("exit " + std::to_string(status));
  library_run::leave();
}

int __wrap_diag_stamped_log_attempted() {
  return fake.attempted ? 1 : 0;
}

void __wrap_diag_open_stamped_log(const char *suffix) {
  happens(Text("log ") + suffix);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool prepared = (prepare(), true);
  static_cast<void>(prepared);
  Input input{{.data = data, .left = size}};
  const unsigned entry = input.byte();
  fake.executes = input.one_in(2);
  fake.attempted = input.one_in(2);
  fake.request = input.maybe(input.request());
  fake.shell = input.maybe(input.word());
  fake.happened.clear();
  if (entry % 8 == 0)
    export_program(input);
  else if (entry % 2 == 0)
    operate(input);
  else
    start_program(input);
  library_run::release_left_blocks();
  return 0;
}

} // extern "C"
