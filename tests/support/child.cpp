// The child process of run_in_child.
#include "support/child.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace support {
namespace {

constexpr unsigned kSecondsAllowed = 20;

FILE *open_scratch() {
  FILE *scratch = tmpfile();
  if (scratch == nullptr)
    throw std::runtime_error("no temporary file for a child's output");
  return scratch;
}

std::string take_contents(FILE *scratch) {
  std::string contents;
  char piece[4096];
  rewind(scratch);
  for (size_t got; (got = fread(piece, 1, sizeof piece, scratch)) > 0;)
    contents.append(piece, got);
  fclose(scratch);
  return contents;
}

void apply(Environment environment) {
  for (const auto &[name, value] : environment) {
    if (value == nullptr)
      unsetenv(name);
    else
      setenv(name, value, 1);
  }
}

[[noreturn]] void be_child(const std::function<void()> &body, Environment environment, FILE *in,
                           FILE *out, FILE *err) {
  dup2(fileno(in), STDIN_FILENO);
  dup2(fileno(out), STDOUT_FILENO);
  dup2(fileno(err), STDERR_FILENO);
  fclose(in);
  fclose(out);
  fclose(err);
  apply(environment);
  alarm(kSecondsAllowed);
  body();
  exit(0);
}

} // namespace

Outcome run_in_child(const std::function<void()> &body, Environment environment,
                     const std::string &input) {
  FILE *in = open_scratch();
  FILE *out = open_scratch();
  FILE *err = open_scratch();
  fwrite(input.data(), 1, input.size(), in);
  rewind(in);
  fflush(nullptr);
  const pid_t child = fork();
  if (child < 0)
    throw std::runtime_error("no child process");
  if (child == 0)
    be_child(body, environment, in, out, err);
  int status = 0;
  waitpid(child, &status, 0);
  fclose(in);
  Outcome outcome;
  outcome.out = take_contents(out);
  outcome.err = take_contents(err);
  outcome.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  outcome.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  return outcome;
}

bool under_valgrind() {
  const char *preloaded = getenv("LD_PRELOAD");
  return preloaded != nullptr && std::string(preloaded).find("valgrind") != std::string::npos;
}

} // namespace support
