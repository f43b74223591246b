// Text wrapped at 78 columns, to /dev/null: one message of as many bytes as the parameter says an
// operation, in one piece or, with "lines" behind the number, with line breaks in it. The tools get
// all messages in one file, so that their start weighs little.
#include "floor_messages.h"
#include "target.h"

#include <orv/msg.h>
#include <spawn.h>
#include <sys/wait.h>

extern char **environ;

namespace {

constexpr size_t kLongestWord = 10;
constexpr size_t kLineLength = 300;

char *message;
int input = -1;

// Words of one to ten letters with a blank between them.
char *make_message(size_t size, bool with_lines) {
  bench::Random random;
  auto *text = static_cast<char *>(malloc(size + 1));
  size_t line_start = 0;
  for (size_t i = 0; i < size; i++) {
    for (size_t left = 1 + random.below(kLongestWord); left > 0 && i < size - 1; left--)
      text[i++] = static_cast<char>('a' + random.below(26));
    const bool ends_line = with_lines && i - line_start > kLineLength;
    text[i] = ends_line ? '\n' : ' ';
    if (ends_line)
      line_start = i;
  }
  text[size - 1] = '.';
  text[size] = '\0';
  return text;
}

void prepare_text(const bench::Job &job) {
  char *rest = nullptr;
  const size_t size = strtoul(job.parameter, &rest, 10);
  message = make_message(size, strstr(rest, "lines") != nullptr);
}

void prepare_tool(const bench::Job &job) {
  prepare_text(job);
  input = open("/dev/shm", O_TMPFILE | O_RDWR, 0600);
  const size_t size = strlen(message);
  message[size] = '\n';
  for (long i = 0; i < job.count; i++)
    if (write(input, message, size + 1) != static_cast<ssize_t>(size + 1))
      bench::die("/dev/shm");
  lseek(input, 0, SEEK_SET);
}

void run_tool(const char *const *arguments) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t tool = 0;
  int status = 0;
  if (posix_spawnp(&tool, arguments[0], &actions, nullptr, const_cast<char **>(arguments),
                   environ) != 0 ||
      waitpid(tool, &status, 0) != tool || status != 0)
    bench::die(arguments[0]);
  posix_spawn_file_actions_destroy(&actions);
}

void wrap_with_fold(const bench::Job &) {
  constexpr const char *kFold[] = {"fold", "-s", "-w", "78", nullptr};
  run_tool(kFold);
}

void wrap_with_fmt(const bench::Job &) {
  constexpr const char *kFmt[] = {"fmt", "-w", "78", nullptr};
  run_tool(kFmt);
}

void prepare_floor(const bench::Job &job) {
  prepare_text(job);
  floor_set_stream(bench::open_target("/dev/null"));
}

void wrap_with_floor(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    floor_print(message);
}

// With the text formatted into a block of its own first, as a message's is.
void wrap_copy_with_floor(const bench::Job &job) {
  const size_t size = strlen(message) + 1;
  for (long i = 0; i < job.count; i++) {
    auto *copy = static_cast<char *>(malloc(size));
    floor_print(static_cast<char *>(memcpy(copy, message, size)));
    free(copy);
  }
}

void prepare_orv(const bench::Job &job) {
  prepare_text(job);
  msg_clear_streams(MSG_INFO);
  msg_add_stream(MSG_INFO, bench::open_target("/dev/null"));
}

void wrap_with_orv(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    msg_print("%s", message);
}

constexpr bench::Contender kContenders[] = {
    {"fold", prepare_tool, wrap_with_fold},
    {"fmt", prepare_tool, wrap_with_fmt},
    {"floor", prepare_floor, wrap_with_floor},
    {"floor-copied", prepare_floor, wrap_copy_with_floor},
    {"orv", prepare_orv, wrap_with_orv},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
