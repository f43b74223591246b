// The diagnostic log: the log files that give the trace print a destination, and the report of a
// failed system call.
#include <orv/diag.h>

#include "common/guards.h"
#include "messages/state.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <orv/msg.h>
#include <span>
#include <sys/stat.h>
#include <unistd.h>

namespace orv::messages {
namespace {

constexpr size_t kPathBytes = 4096; // no longer path can be opened
constexpr size_t kErrorTextBytes = 256;

constexpr const char *kPathVariable = "ORV_DIAGNOSTICS_PATH";

// Kept: the path variable names a directory here even where its value is a word that sends the
// stamped log elsewhere ("stderr", "0"): the two logs share the variable, not its meaning.
constexpr const char *kDirectoryVariables[] = {"ORV_DIAG_DIR", kPathVariable, "ORV_TMPDIR"};
static_assert(std::size(kDirectoryVariables) == 3);

constexpr const char *kFallbackVariables[] = {"ORV_TMPDIR", "TMP", "TEMP"};
static_assert(std::size(kFallbackVariables) == 3);

enum class Destination { none, standard_output, standard_error, file };

struct DestinationWord {
  const char *word; // in any letter case
  Destination destination;
};
constexpr DestinationWord kDestinationWords[] = {
    {"", Destination::none},
    {"0", Destination::none},
    {"1", Destination::standard_output},
    {"stdout", Destination::standard_output},
    {"2", Destination::standard_error},
    {"stderr", Destination::standard_error},
};
static_assert(std::size(kDestinationWords) == 6);

// The value of the first variable that is set, even if to nothing.
const char *first_set(std::span<const char *const> variables, const char *otherwise) {
  for (const char *variable : variables) {
    const char *value = getenv(variable);
    if (value != nullptr)
      return value;
  }
  return otherwise;
}

bool is_writable_directory(const char *path) {
  struct stat status;
  return access(path, W_OK) == 0 && stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// Whether snprintf wrote a whole path. A path that was cut would name another file.
bool is_whole_path(int length) {
  return length >= 0 && static_cast<size_t>(length) < kPathBytes;
}

// Adds the log at `path` to the trace, where it stays open until the process ends or becomes
// another program. One that finds no place in the list is closed again.
void trace_to_file(const char *path) {
  StreamGuard log(fopen(path, "we"));
  if (log.get() == nullptr)
    return;
  const int count_before = _msg_get_stream_desc(MSG_DIAG)->count;
  if (msg_add_stream(MSG_DIAG, log.get()) > count_before)
    (void)log.release();
}

// Stores the directory, which may lie in the store itself. One that does not fit is refused.
void store_directory(const char *directory) {
  const size_t length = strlen(directory);
  if (length < sizeof state.diag.directory)
    memmove(state.diag.directory, directory, length + 1);
  else
    state.diag.directory[0] = '\0';
}

const char *login_name() {
  if (state.diag.login_name[0] == '\0') {
    const char *name = getlogin();
    if (name != nullptr && strlen(name) < sizeof state.diag.login_name)
      memcpy(state.diag.login_name, name, strlen(name) + 1);
  }
  return state.diag.login_name;
}

void open_process_log() {
  char path[kPathBytes];
  const int length =
      snprintf(path, sizeof path, "%s/orv%d%s.log", state.diag.directory, getpid(), login_name());
  if (is_whole_path(length))
    trace_to_file(path);
}

Destination destination_of(const char *wish) {
  for (const auto &[word, destination] : kDestinationWords)
    if (strcasecmp(wish, word) == 0)
      return destination;
  return Destination::file;
}

// Kept: with no fallback variable set the directory is empty, which makes the path one in the root
// directory.
const char *stamped_log_directory(const char *wish) {
  return is_writable_directory(wish) ? wish : first_set(kFallbackVariables, "");
}

struct tm local_time() {
  const time_t now = time(nullptr);
  struct tm parts = {};
  tzset(); // localtime_r alone would not notice a change of TZ
  localtime_r(&now, &parts);
  return parts;
}

// Kept: the month in the stamp counts from 0, as the system's broken-down time does; tools that
// read the names of logs expect it so.
int write_stamped_path(char *path, const char *directory, const char *suffix) {
  const struct tm now = local_time();
  return snprintf(path, kPathBytes, "%s/orv%02d%02d%02d%02d%02d%02d%s.log", directory,
                  now.tm_year - 100, now.tm_mon, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec,
                  suffix);
}

// Kept: the pause between name and file. No other log of the program gets the same stamp while it
// lasts.
void open_stamped_log(const char *directory, const char *suffix) {
  char path[kPathBytes];
  if (!is_whole_path(write_stamped_path(path, directory, suffix)))
    return;
  sleep(1);
  trace_to_file(path);
}

// Kept: any value of the variable, "2" and "stderr" included, means standard output; errors that
// the program handles do not belong among its error messages.
FILE *echo_stream() {
  if (!state.diag.echo_decided) {
    const char *wish = getenv("ORV_PERROR");
    state.diag.echo = wish != nullptr && *wish != '\0' ? stdout : nullptr;
    state.diag.echo_decided = true;
  }
  return state.diag.echo;
}

} // namespace
} // namespace orv::messages

using namespace orv::messages;

const char *diag_get_dir() {
  if (state.diag.directory[0] != '\0')
    return state.diag.directory;
  return first_set(kDirectoryVariables, "/tmp");
}

const char *diag_set_dir(const char *dir) {
  if (dir == nullptr || *dir == '\0') {
    state.diag.directory[0] = '\0';
    dir = diag_get_dir();
  }
  store_directory(dir);
  // Kept: every destination is forgotten, streams that the program added itself too and even when
  // no log can be opened; the files that were open stay so.
  msg_clear_streams(MSG_DIAG);
  if (is_writable_directory(state.diag.directory))
    open_process_log();
  return state.diag.directory;
}

void diag_open_stamped_log(const char *suffix) {
  state.diag.stamped_log_attempted = 1;
  const char *value = getenv(kPathVariable);
  const char *wish = value != nullptr ? value : "";
  switch (destination_of(wish)) {
  case Destination::none:
    return;
  case Destination::standard_output:
    msg_add_stream(MSG_DIAG, stdout);
    return;
  case Destination::standard_error:
    msg_add_stream(MSG_DIAG, stderr);
    return;
  case Destination::file:
    open_stamped_log(stamped_log_directory(wish), suffix != nullptr ? suffix : "");
  }
}

int diag_stamped_log_attempted() {
  return state.diag.stamped_log_attempted;
}

void diag_perror(const char *what) {
  const orv::ErrnoGuard failure;
  char area[kErrorTextBytes];
  const char *text = strerror_r(failure.value(), area, sizeof area);
  FILE *echo = echo_stream();
  diag_printf("%s: %s\n", what, text);
  if (echo != nullptr) {
    fprintf(echo, "%s: %s\n", what, text);
    fflush(echo);
  }
}
