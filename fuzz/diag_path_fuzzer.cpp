// The trace log's choice of destination against a plain model: random environments, directories,
// suffixes, login names and times must open the same paths, in the same mode and after the same
// pauses, and must leave the same streams. The files themselves are made up.
#include "bytes.h"
#include "judge.h"
#include "library_run.h"
#include "messages/state.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <orv/diag.h>
#include <orv/msg.h>
#include <string>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// What the fuzzer's bytes mean here.
struct Input : Bytes {
  int long_texts_left = 2;

  std::string text() {
    static const char *const words[] = {"",       "0",      "1",    "2",  "stdout", "StdOut",
                                        "stderr", "STDERR", "/tmp", "00", "/",      "stderr "};
    if (!one_in(4))
      return one_of(words);
    const std::string made = characters(23);
    if (!one_in(16) || long_texts_left == 0)
      return made;
    long_texts_left--;
    return repeated(made, 4096 - 40 + byte() % 80);
  }

  std::optional<std::string> text_or_none() {
    if (byte() % 4 == 0)
      return std::nullopt;
    return text();
  }
};

// ---- what the system answers while the library runs ----

struct System {
  time_t now;
  std::optional<std::string> login;
  bool opens;
  FILE *log; // stands for every log
  std::vector<std::string> happened;
};
System fake;

// A path may be written, exist and be a directory as its bytes have it.
unsigned nature_of(const std::string &path) {
  unsigned sum = 1;
  for (const char c : path)
    sum = sum * 31 + static_cast<unsigned char>(c);
  return sum ^ (sum >> 7);
}
bool may_be_written(const std::string &path) {
  return nature_of(path) % 8 != 0;
}
bool exists(const std::string &path) {
  return nature_of(path) % 5 != 0;
}
bool is_directory(const std::string &path) {
  return nature_of(path) % 3 != 0;
}

// ---- the model ----

enum Variable { kDiagDir, kDiagnosticsPath, kOrvTmpdir, kTmp, kTemp, kVariableCount };
constexpr const char *kNames[] = {"ORV_DIAG_DIR", "ORV_DIAGNOSTICS_PATH", "ORV_TMPDIR", "TMP",
                                  "TEMP"};

struct Model {
  std::optional<std::string> environment[kVariableCount];
  std::string stored;
  std::string login; // what was found out once stays
  bool attempted = false;
  std::vector<FILE *> streams;
  std::vector<std::string> happened;

  std::string directory() const {
    if (!stored.empty())
      return stored;
    if (environment[kDiagDir])
      return *environment[kDiagDir];
    if (environment[kDiagnosticsPath])
      return *environment[kDiagnosticsPath];
    if (environment[kOrvTmpdir])
      return *environment[kOrvTmpdir];
    return "/tmp";
  }

  static bool usable(const std::string &path) {
    return may_be_written(path) && exists(path) && is_directory(path);
  }

  void open(const std::string &path) {
    happened.push_back("fopen we " + path);
    if (fake.opens)
      streams.push_back(fake.log);
  }

  void set_dir(const std::optional<std::string> &wish) {
    std::string next;
    if (wish && !wish->empty()) {
      next = *wish;
    } else {
      stored = "";
      next = directory();
    }
    stored = next.size() > 4095 ? "" : next;
    streams.clear();
    if (stored.empty() || !usable(stored))
      return;
    if (login.empty() && fake.login && fake.login->size() < 256)
      login = *fake.login;
    const std::string path = stored + "/orv" + std::to_string(getpid()) + login + ".log";
    if (path.size() <= 4095)
      open(path);
  }

  static std::string two_digits(int number) {
    const std::string digits = std::to_string(number);
    return digits.size() == 1 ? "0" + digits : digits;
  }

  std::string stamp() const {
    tm now = {};
    gmtime_r(&fake.now, &now);
    return two_digits(now.tm_year + 1900 - 2000) + two_digits(now.tm_mon) +
           two_digits(now.tm_mday) + two_digits(now.tm_hour) + two_digits(now.tm_min) +
           two_digits(now.tm_sec);
  }

  std::string stamped_directory() const {
    const std::string &wish = *environment[kDiagnosticsPath];
    if (usable(wish))
      return wish;
    for (const Variable variable : {kOrvTmpdir, kTmp, kTemp})
      if (environment[variable])
        return *environment[variable];
    return "";
  }

  void open_stamped_log(const std::optional<std::string> &suffix) {
    attempted = true;
    const std::string wish = environment[kDiagnosticsPath].value_or("");
    if (wish.empty() || wish == "0")
      return;
    if (wish == "1" || strcasecmp(wish.c_str(), "stdout") == 0) {
      streams.push_back(stdout);
      return;
    }
    if (wish == "2" || strcasecmp(wish.c_str(), "stderr") == 0) {
      streams.push_back(stderr);
      return;
    }
    const std::string path = stamped_directory() + "/orv" + stamp() + suffix.value_or("") + ".log";
    if (path.size() > 4095)
      return;
    happened.push_back("sleep 1");
    open(path);
  }
};
Model model;

// ---- the comparison ----

std::string joined(const std::vector<std::string> &lines) {
  std::string text;
  for (const std::string &line : lines)
    text += line + "\n";
  return text;
}

std::string listed(FILE *const *streams, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; i++)
    text += streams[i] == stdout ? 'o' : streams[i] == stderr ? 'e' : 'f';
  return text;
}

void compare() {
  const msg_stream_desc *desc = _msg_get_stream_desc(MSG_DIAG);
  judge("streams", listed(desc->streams, static_cast<size_t>(desc->count)),
        listed(model.streams.data(), model.streams.size()));
  judge("directory", library_run::run([] { return diag_get_dir(); }), model.directory());
  judge("calls", joined(fake.happened), joined(model.happened));
  judge("attempted", diag_stamped_log_attempted(), model.attempted ? 1 : 0);
  fake.happened.clear();
  model.happened.clear();
}

void set_dir(const std::optional<std::string> &wish) {
  model.set_dir(wish);
  const char *result =
      library_run::run([&] { return diag_set_dir(wish ? wish->c_str() : nullptr); });
  judge("stored", result, model.stored);
}

// The directory given lies in the library's own store, or in the environment.
void set_dir_from_within(size_t offset) {
  const char *current = library_run::run([] { return diag_get_dir(); });
  const std::string whole = current;
  offset %= whole.size() + 1;
  model.set_dir(whole.substr(offset));
  const char *result = library_run::run([&] { return diag_set_dir(current + offset); });
  judge("stored", result, model.stored);
}

void open_stamped_log(const std::optional<std::string> &suffix) {
  model.open_stamped_log(suffix);
  library_run::run([&] {
    diag_open_stamped_log(suffix ? suffix->c_str() : nullptr);
    return 0;
  });
}

void set_variable(Input &input) {
  const unsigned variable = input.byte() % kVariableCount;
  model.environment[variable] = input.text_or_none();
}

void take_step(Input &input) {
  switch (input.byte() % 8) {
  case 0:
  case 1:
  case 2:
    set_variable(input);
    return;
  case 3:
    set_dir(input.text_or_none());
    return;
  case 4:
    set_dir_from_within(input.byte());
    return;
  case 5:
    open_stamped_log(input.text_or_none());
    return;
  case 6:
    fake.login = input.text_or_none();
    fake.opens = input.byte() % 4 != 0;
    return;
  default:
    fake.now = static_cast<time_t>((input.byte() << 24U) + (input.byte() << 16U) +
                                   (input.byte() << 8U) + input.byte());
  }
}

void start_afresh() {
  orv::messages::state.diag = {};
  msg_clear_streams(MSG_DIAG);
  model = Model();
  fake.opens = true;
  fake.now = 0;
  fake.login = std::nullopt;
  fake.happened.clear();
}

} // namespace

extern "C" {

char *__real_getenv(const char *name);
char *__wrap_getenv(const char *name) {
  if (!library_run::active)
    return __real_getenv(name);
  for (unsigned i = 0; i < kVariableCount; i++)
    if (strcmp(name, kNames[i]) == 0)
      return model.environment[i] ? model.environment[i]->data() : nullptr;
  differ("the variable asked for", name, "another");
}

int __real_access(const char *path, int mode);
int __wrap_access(const char *path, int mode) {
  if (!library_run::active)
    return __real_access(path, mode);
  if (mode != W_OK)
    fake.happened.push_back("access with another mode");
  return may_be_written(path) && *path != '\0' ? 0 : -1;
}

int __real_stat(const char *path, struct stat *status);
int __wrap_stat(const char *path, struct stat *status) {
  if (!library_run::active)
    return __real_stat(path, status);
  *status = {};
  status->st_mode = is_directory(path) ? S_IFDIR : S_IFREG;
  return exists(path) ? 0 : -1;
}

FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode) {
  if (!library_run::active)
    return __real_fopen(path, mode);
  fake.happened.push_back(std::string("fopen ") + mode + " " + path);
  return fake.opens ? fake.log : nullptr;
}

unsigned __real_sleep(unsigned seconds);
unsigned __wrap_sleep(unsigned seconds) {
  if (!library_run::active)
    return __real_sleep(seconds);
  fake.happened.push_back("sleep " + std::to_string(seconds));
  return 0;
}

time_t __real_time(time_t *result);
time_t __wrap_time(time_t *result) {
  return library_run::active ? fake.now : __real_time(result);
}

char *__real_getlogin(void);
char *__wrap_getlogin(void) {
  if (!library_run::active)
    return __real_getlogin();
  return fake.login ? fake.login->data() : nullptr;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool prepared = [] {
    setenv("TZ", "UTC0", 1); // the model knows no other
    fake.log = fopencookie(nullptr, "w", {});
    return true;
  }();
  (void)prepared;
  start_afresh();
  Input input{{.data = data, .left = size}};
  while (input.left > 0) {
    take_step(input);
    compare();
  }
  return 0;
}

} // extern "C"
