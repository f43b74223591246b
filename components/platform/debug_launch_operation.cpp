// The debug operations: pause, prompt, or replace the process by a shell command or by another
// program that finds the launching program described in its environment.
#include "debug_launch.h"

#include "common/end_process.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <orv/platform.h>
#include <strings.h>
#include <unistd.h>

namespace orv::debug_launch {
namespace {

constexpr unsigned kDefaultDelay = 30; // seconds

// An operation string that was cut into its words, and the program that it is to be done for.
struct Request {
  const char *program;
  char *const *args;                 // the program's own, ended by null
  const char *shell;                 // the user's
  std::string_view word;             // the operation's name as it was given
  char *operands[kMostOperands + 1]; // ended by null
};

struct Operation {
  std::string_view name;
  void (*carry_out)(const Request &request);
};

const char *user_shell() {
  const char *shell = platform_getenv("SHELL");
  return shell == nullptr ? "tcsh" : shell;
}

void read_reply() {
  char reply[kReplySize];
  // One byte less than the area holds: the reply is of at most 254 characters.
  [[maybe_unused]] const char *line = fgets(reply, sizeof reply - 1, stdin);
}

void delay(const Request &request) {
  unsigned seconds = kDefaultDelay;
  if (request.operands[0] != nullptr) {
    const long given = strtol(request.operands[0], nullptr, 10);
    seconds = static_cast<unsigned>(std::clamp<long>(given, 0, UINT_MAX));
  }
  platform_sleep(seconds);
}

void prompt(const Request &request) {
  if (request.operands[0] == nullptr)
    fputs("ORV_DEBUG prompt>", stderr);
  for (char *const *operand = request.operands; *operand != nullptr; operand++)
    fprintf(stderr, "%s ", *operand);
  fputs("\n", stderr);
  fflush(stderr);
  read_reply();
}

// The replaced process finds its launcher described, or nothing is replaced.
void describe_program(const Request &request) {
  if (!export_program(request.program, request.args))
    refuse(request.word, "program arguments too long");
}

void use(const Request &request) {
  const char *shell_alone[] = {request.shell, nullptr};
  const bool given = request.operands[0] != nullptr;
  char command_line[kCommandLineSize];
  if (!join_words(given ? request.operands : shell_alone, kWholeList, command_line,
                  sizeof command_line))
    refuse(request.word, "operands too long");
  describe_program(request);
  execl("/bin/sh", "sh", "-c", command_line, static_cast<char *>(nullptr));
  refuse(kUsing, "w/execl() call failed");
}

void execute(const Request &request) {
  describe_program(request);
  if (request.operands[0] != nullptr)
    execv(request.operands[0], request.operands);
  refuse("exec", "w/execv() call failed");
}

constexpr Operation kOperations[] = {
    {"delay", delay},
    {"prompt", prompt},
    {kUsing, use},
    {"exec", execute},
};
static_assert(std::size(kOperations) == 4);

const Operation *find_operation(std::string_view word) {
  for (const Operation &operation : kOperations)
    if (word.size() == operation.name.size() &&
        strncasecmp(word.data(), operation.name.data(), word.size()) == 0)
      return &operation;
  return nullptr;
}

// Cuts the text in place. The tokenizer keeps its place with its caller, not hidden.
void split(char *text, Request &request) {
  char *rest = nullptr;
  const char *word = strtok_r(text, kBlanks, &rest);
  if (word != nullptr)
    request.word = word;
  for (int count = 0; count <= kMostOperands; count++) {
    request.operands[count] = word == nullptr ? nullptr : strtok_r(nullptr, kBlanks, &rest);
    if (request.operands[count] == nullptr)
      return;
  }
  refuse(request.word, "operands too long");
}

} // namespace

void refuse(std::string_view word, const char *reason) {
  fprintf(stderr, "\"__ORV_DEBUG__ %.*s\" %s.\n", static_cast<int>(word.size()), word.data(),
          reason);
  fflush(stderr);
  end_process_with_failure();
}

} // namespace orv::debug_launch

using namespace orv::debug_launch;

void platform_debug_op(const char *program, char *const *args, const char *operation) {
  Request request = {.program = program,
                     .args = args,
                     .shell = user_shell(),
                     .word = kUsing,
                     .operands = {nullptr}};
  state.operation = copy_for_life(text_or_empty(operation));
  split(state.operation, request);
  const Operation *found = find_operation(request.word);
  if (found == nullptr)
    refuse(request.word, "not a recognized debug op");
  found->carry_out(request);
}
