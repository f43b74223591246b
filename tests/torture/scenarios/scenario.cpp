// The scenarios' main program and what they share. It calls nothing of the library, and where it
// can no calls that take storage: those may be the ones that are refused.
#include "scenario.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace scenario {
namespace {

constexpr int kSentence = 1;
constexpr int kNothingToJudge = 2;
constexpr int kAssertion = 3;
constexpr int kCopy = 4;
constexpr int kViolation = 99;

const Scenario *running = nullptr;
pid_t first_process = 0;
bool finished = false;
int captured_errors = -1;
char own_folder[] = "/tmp/orv-torture.XXXXXX";
bool has_folder = false;

int remove_entry(const char *path, const struct stat *, int, FTW *) {
  remove(path);
  return 0;
}

void remove_folder() {
  if (has_folder)
    nftw(own_folder, remove_entry, 10, FTW_DEPTH | FTW_PHYS);
}

void report(const char *text, const char *more) {
  const char *path = getenv("TORTURE_REPORT");
  const int fd = path != nullptr ? open(path, O_WRONLY | O_CREAT | O_APPEND, 0666) : -1;
  dprintf(fd < 0 ? captured_errors : fd, "%s: %s%s\n",
          running == nullptr ? "?" : running->name.data(), text, more);
}

// Standard error as a file in memory, so that it can be told whether a sentence was written. What
// prevents the sentence is a refused write, and that shows in the stream.
void capture_errors() {
  captured_errors = memory_file("errors");
  dup2(captured_errors, STDERR_FILENO);
}

bool has_sentence() {
  return !contents(captured_errors).empty() || ferror(stderr) != 0;
}

// Whoever ends the process comes by here.
void judge_end(int status, void *) {
  if (finished || getpid() != first_process)
    return;
  remove_folder();
  if (status == kSentence && running->sentence_allowed && has_sentence())
    return;
  report("ended with a status of its own", "");
  _exit(kViolation);
}

bool is_allowed(std::string_view expression) {
  return running != nullptr && (running->assertions_allowed[0] == expression ||
                                running->assertions_allowed[1] == expression);
}

[[noreturn]] void run(const Scenario &scenario) {
  running = &scenario;
  first_process = getpid();
  on_exit(judge_end, nullptr);
  scenario.body();
  end_copies();
  finished = true;
  remove_folder();
  exit(0);
}

} // namespace

// Takes the place of the C library's own, to tell an assertion of the library from other aborts.
extern "C" [[noreturn]] void __assert_fail(const char *expression, const char *, unsigned,
                                           const char *function) noexcept {
  if (getpid() == first_process) {
    remove_folder();
    if (!is_allowed(expression)) {
      report("unexpected assertion in ", function);
      _exit(kViolation);
    }
  }
  _exit(kAssertion);
}

// Logs are named by the second, and the library sleeps one. Not here.
extern "C" unsigned sleep(unsigned) {
  return 0;
}

void violated(const char *condition, const char *file, int line) {
  char text[300];
  snprintf(text, sizeof text, "%s:%d: expected ", strrchr(file, '/') + 1, line);
  report(text, condition);
  if (getpid() == first_process)
    remove_folder();
  _exit(kViolation);
}

void need(bool granted) {
  if (granted)
    return;
  remove_folder();
  _exit(kNothingToJudge);
}

void end_copies() {
  if (getpid() != first_process)
    _exit(kCopy);
}

int open_descriptors() {
  int count = 0;
  for (int fd = 0; fd < 2000; fd++)
    count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

Level::Level() : descriptors(open_descriptors()), bytes(mallinfo2().uordblks) {}

void Level::expect_descriptors(int more) const {
  EXPECT(open_descriptors() == descriptors + more);
}

void Level::expect_heap(size_t more_at_most) const {
  const size_t now = mallinfo2().uordblks;
  EXPECT(now <= bytes + more_at_most);
}

void Level::expect_no_children() {
  EXPECT(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD);
}

int memory_file(const char *name) {
  const int fd = memfd_create(name, MFD_CLOEXEC);
  need(fd >= 0);
  fcntl(fd, F_SETFL, O_APPEND);
  return fd;
}

std::string_view contents(int fd) {
  static char area[200000];
  const ssize_t length = pread(fd, area, sizeof area, 0);
  return {area, length > 0 ? static_cast<size_t>(length) : 0};
}

const char *folder() {
  if (!has_folder) {
    need(mkdtemp(own_folder) != nullptr);
    has_folder = true;
  }
  return own_folder;
}

const char *in_folder(const char *name) {
  static char paths[8][200];
  static unsigned next = 0;
  char *path = paths[next++ % 8];
  snprintf(path, sizeof paths[0], "%s/%s", folder(), name);
  return path;
}

void write_file(const char *path, std::string_view text) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  need(fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  close(fd);
}

bool exists(const char *path) {
  return access(path, F_OK) == 0;
}

} // namespace scenario

using namespace scenario;

namespace {

char own_path[1000];

constexpr Table (*kTables[])() = {message_scenarios, allocation_scenarios, pair_scenarios,
                                  socket_scenarios,  file_scenarios,       start_scenarios};

} // namespace

const char *const scenario::kSelf = own_path;

// A name runs that scenario, "list" names them all.
int main(int argc, char **argv) {
  static char buffer[1000];
  setvbuf(stdout, buffer, _IOFBF, sizeof buffer); // no block of its own
  const ssize_t length = readlink("/proc/self/exe", own_path, sizeof own_path - 1);
  own_path[length < 0 ? 0 : length] = '\0';
  const std::string_view wish = argc > 1 ? argv[1] : "";
  if (wish == "companion")
    be_companion();
  const bool lists = wish == "list";
  if (!lists)
    capture_errors();
  for (const auto table : kTables)
    for (size_t i = 0; i < table().count; i++) {
      if (lists)
        printf("%s\n", table().first[i].name.data());
      else if (table().first[i].name == wish)
        run(table().first[i]);
    }
  return lists ? 0 : kViolation;
}
