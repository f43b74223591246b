// Start-up and debug launch: a request is carried out as it was made, or the process ends with a
// sentence; a log that cannot be opened is no reason not to start.
#include "scenario.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace scenario;

namespace {

// The words of a command line, for calls that cut it.
struct CommandLine {
  int count;
  char *words[8];
};

CommandLine command_line(std::initializer_list<const char *> words) {
  CommandLine line = {};
  for (const char *word : words)
    line.words[line.count++] = const_cast<char *>(word);
  return line;
}

// Where its folder is refused, the log lies in the root, the last resort, and is to go with the
// run.
void remove_log(FILE *log) {
  char link[40];
  char path[300] = {};
  snprintf(link, sizeof link, "/proc/self/fd/%d", fileno(log));
  if (readlink(link, path, sizeof path - 1) > 0)
    unlink(path);
}

void log_arguments() {
  folder();
  setenv("ORV_DIAGNOSTICS_PATH", folder(), 1);
  CommandLine line = command_line({"/bin/orv_program.x", "an argument", "100%"});
  const Level level;
  platform_init_args(&line.count, line.words);
  EXPECT(line.count == 3 && strcmp(line.words[2], "100%") == 0);
  EXPECT(diag_stamped_log_attempted() == 1);
  const msg_stream_desc *logs = _msg_get_stream_desc(MSG_DIAG);
  level.expect_descriptors(logs->count);
  if (logs->count == 1)
    remove_log(logs->streams[0]);
}

void delay_on_request() {
  setenv("ORV_DEBUG", "delay 2", 1);
  CommandLine line = command_line({"/bin/program", "argument"});
  platform_init_args(&line.count, line.words);
  EXPECT(line.count == 2);
}

void prompt_on_request() {
  CommandLine line = command_line({"/bin/program", "argument", "__ORV_DEBUG__", "prompt", "ready"});
  platform_init_args(&line.count, line.words);
  EXPECT(line.count == 2 && line.words[2] == nullptr);
}

// What takes over writes a file: the command is the whole one or none at all.
void become_a_command() {
  char command[300];
  snprintf(command, sizeof command, "using exit 0 # %s", folder());
  rmdir(folder()); // nobody will be there to do it
  CommandLine line = command_line({"/bin/program", "argument"});
  platform_debug_op(line.words[0], line.words + 1, command);
  EXPECT(!"the operation came back");
}

void become_a_program() {
  platform_debug_op("/bin/program", nullptr, "exec /bin/true and words");
  EXPECT(!"the operation came back");
}

void set_variables() {
  const Level level;
  EXPECT(platform_setenv("TORTURE_VARIABLE", "value") == 0);
  const char *value = platform_getenv("TORTURE_VARIABLE");
  EXPECT(value == nullptr || strcmp(value, "value") == 0);
  platform_debug_export("/bin/program", nullptr);
  level.expect_heap(5000); // texts and the table of the environment
}

void name_the_distribution() {
  mkdir(in_folder("dist"), 0777);
  write_file(in_folder("dist/DISTRIBUTION"), "bookworm and more");
  setenv("ORV_DIST", folder(), 1);
  const Level level;
  const char *name = platform_distribution();
  EXPECT(name == nullptr || strcmp(name, "bookworm") == 0);
  level.expect_descriptors(name == nullptr ? 0 : 1);
}

constexpr Scenario kScenarios[] = {
    {"start-log", log_arguments, true, {}},
    {"start-delay", delay_on_request, false, {"copy != nullptr", "variable != nullptr"}},
    {"start-prompt", prompt_on_request, false, {"copy != nullptr", "variable != nullptr"}},
    {"start-using", become_a_command, true, {"copy != nullptr", "variable != nullptr"}},
    {"start-exec", become_a_program, true, {"copy != nullptr", "variable != nullptr"}},
    {"start-variables", set_variables, false, {"variable != nullptr"}},
    {"start-distribution", name_the_distribution, false, {}},
};

} // namespace

Table scenario::start_scenarios() {
  return {kScenarios, std::size(kScenarios)};
}
