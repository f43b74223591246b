// The start-up call: finds a request to run the program differently for debugging, after the marker
// word of the command line or in the environment, or else logs the program's arguments.
#include "debug_launch.h"

#include "common/assertion.h"
#include "common/guards.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <orv/diag.h>
#include <orv/platform.h>
#include <strings.h>

namespace orv::debug_launch {

constinit State state = {.request = nullptr, .operation = nullptr, .distribution_name = ""};

namespace {

constexpr char kMarker[] = "__ORV_DEBUG__";
constexpr char kVariable[] = "ORV_DEBUG";

// Product names that lead a program's name and say nothing in the name of its log.
constexpr std::string_view kLogPrefixes[] = {"velta", "orv", "zo_"};
static_assert(std::size(kLogPrefixes) == 3 && kLogPrefixes[0].size() == 5);

// The command line as the scan for the marker saw it.
struct CommandLine {
  int marker;                                 // its index, 0 for none
  char *arguments[kMostProgramArguments + 1]; // what precedes it, ended by null
};

bool is_marker(const char *argument) {
  return argument != nullptr && strcasecmp(argument, kMarker) == 0;
}

void scan(int argc, char **argv, CommandLine &line) {
  const int limit = std::min(argc, kMostProgramArguments + 1);
  line.marker = 0;
  line.arguments[0] = nullptr;
  for (int i = 1; i < limit; i++) {
    if (is_marker(argv[i])) {
      line.marker = i;
      return;
    }
    line.arguments[i - 1] = argv[i];
    line.arguments[i] = nullptr;
  }
}

const char *program_path(int argc, char **argv) {
  return argc > 0 ? text_or_empty(argv[0]) : "";
}

// The operation's name in words that could not be joined.
std::string_view operation_word(const char *const *words, size_t count) {
  for (size_t i = 0; i < count && words[i] != nullptr; i++) {
    const char *start = words[i] + strspn(words[i], kBlanks);
    if (*start != '\0')
      return {start, strcspn(start, kBlanks)};
  }
  return kUsing;
}

void run_operation_after_marker(int *argc, char **argv, const CommandLine &line) {
  const char *const *words = argv + line.marker + 1;
  const auto count = static_cast<size_t>(*argc - line.marker - 1);
  char operation[kOperationStringSize];
  if (!join_words(words, count, operation, sizeof operation))
    refuse(operation_word(words, count), "operands too long");
  *argc = line.marker;
  argv[line.marker] = nullptr;
  platform_debug_op(argv[0], line.arguments, operation);
}

void run_operation_of_environment(const char *program, const CommandLine &line) {
  const char *value = platform_getenv(kVariable);
  if (value == nullptr || *value == '\0')
    return;
  state.request = copy_for_life(value);
  // A program that the operation starts must not act on the same request again.
  platform_setenv(kVariable, "");
  platform_debug_op(program, line.arguments, state.request);
}

const char *without_product_prefix(const char *name) {
  for (const std::string_view prefix : kLogPrefixes)
    if (strncasecmp(name, prefix.data(), prefix.size()) == 0)
      return name + prefix.size();
  return name;
}

void open_log_named_after(const char *program) {
  // The area holds a name of any length, and is not one of the Orv MALLOC library: the program may
  // still want to switch the allocation debug mode on.
  const BlockGuard area(malloc(strlen(program) + 1));
  const char *name = nullptr;
  if (area.get() != nullptr)
    name = without_product_prefix(platform_root_name(program, static_cast<char *>(area.get())));
  diag_open_stamped_log(name);
}

// Copies an argument for the trace, which interprets percent signs a second time: "%%" becomes "%"
// there, as in every trace text, and any other percent sign would ask for an argument that nobody
// passed. Those are doubled.
void copy_for_trace(const char *argument, char *area, size_t size) {
  size_t used = 0;
  for (; *argument != '\0' && used + 2 < size; argument++) {
    area[used++] = *argument;
    if (*argument != '%')
      continue;
    area[used++] = '%';
    if (argument[1] == '%')
      argument++;
  }
  area[used] = '\0';
}

void log_argument(int index, const char *argument) {
  char area[kTracedArgumentSize];
  copy_for_trace(argument, area, sizeof area);
  diag_printf("argv[%d] = \"%s\"\n", index, area);
}

} // namespace

bool join_words(const char *const *words, size_t count, char *area, size_t size) {
  size_t used = 0;
  area[0] = '\0';
  for (size_t i = 0; i < count && words[i] != nullptr; i++) {
    const size_t blank = i == 0 ? 0 : 1;
    const size_t length = strlen(words[i]);
    if (length + blank >= size - used)
      return false;
    memcpy(area + used, " ", blank);
    memcpy(area + used + blank, words[i], length + 1);
    used += blank + length;
  }
  return true;
}

char *copy_for_life(const char *text) {
  // Kept: what start-up hands on stays for the life of the process, so that no program has to ask
  // who still holds a piece of it.
  char *copy = strdup(text);
  assert(copy != nullptr);
  return copy;
}

} // namespace orv::debug_launch

using namespace orv::debug_launch;

void platform_init_args(int *argc, char **argv) {
  platform_debug_args(argc, argv, nullptr);
}

void platform_debug_args(int *argc, char **argv, const char *log_name) {
  CommandLine line;
  scan(*argc, argv, line);
  if (line.marker != 0) {
    // Kept: a request after the marker is the whole start-up. The arguments are not logged, and the
    // variable is neither read nor cleared.
    run_operation_after_marker(argc, argv, line);
    return;
  }
  run_operation_of_environment(program_path(*argc, argv), line);
  platform_log_args(argc, argv, log_name);
}

void platform_log_args(int *argc, char **argv, const char *log_name) {
  platform_args_hook();
  if (diag_stamped_log_attempted() == 0) {
    if (log_name != nullptr)
      diag_open_stamped_log(log_name);
    else
      open_log_named_after(program_path(*argc, argv));
  }
  for (int i = 0; i < *argc; i++)
    log_argument(i, text_or_empty(argv[i]));
}

// Never folded into its caller: a debugger stops here.
[[gnu::noinline]] void platform_args_hook(void) {
  __asm__ volatile("");
}
