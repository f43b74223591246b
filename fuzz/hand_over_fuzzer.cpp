// What a companion makes of its hand-over variable, against a plain model: random values, with and
// without the switch to TCP, through all that a handle tells until it is closed. Descriptors,
// signals and connections are made up.
#include "bytes.h"
#include "judge.h"
#include "library_run.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <string>

namespace {

constexpr char kName[] = "FUZZ_LINK";
constexpr char kSwitch[] = "FUZZ_LINK_HYBRID";

// What the fuzzer's bytes mean here.
struct Input : Bytes {
  std::string number() {
    static const char *const numbers[] = {"0",           "7",
                                          "-1",          "+3",
                                          "00012",       "2147483647",
                                          "-2147483648", "2147483648",
                                          "99999999999", "9223372036854775807",
                                          "-",           "0x10",
                                          "- 5",         "-9223372036854775809"};
    return one_in(4) ? characters(12) : one_of(numbers);
  }

  std::string blanks() {
    static const char *const all[] = {" ", "", "  ", "\t", "\n", " \v\f\r "};
    return one_of(all);
  }

  std::string marker() {
    static const char *const markers[] = {
        "pid-rtx_fd_l", "pid-rtx_fd_w", "pid-rtx_fd", "pid-rtx_f",
        "PID-RTX_FD_L", "pid-rtx_fd_",  "",           "pid-rpid-rtx_fd_l"};
    return one_in(8) ? characters(30) : one_of(markers);
  }

  std::string value() {
    switch (byte() % 8) {
    case 0:
      return characters(40);
    case 1:
      return marker() + blanks() + number() + blanks() + number();
    case 2:
      return repeated(number() + blanks() + marker(), byte() * 64U);
    default:
      return blanks() + number() + blanks() + number() + blanks() + marker() + blanks() + marker();
    }
  }

  std::string switch_value() {
    static const char *const values[] = {"1", "0", "", "F", "f", "false", "true", "T", " 0", "no"};
    return one_in(4) ? characters(3) : one_of(values);
  }
};

// ---- the system ----

struct System {
  std::optional<std::string> value;
  std::optional<std::string> hybrid_switch;
  int connection; // what connecting gives: a descriptor, or the negative of an errno
  std::string happened;
};
System fake;

void happens(const char *what, long number) {
  fake.happened += what;
  fake.happened += std::to_string(number);
  fake.happened += ';';
}

// ---- the model ----

struct Handle {
  long pid = 0;
  int kind = 0;
  int hybrid = 0;
  int fd = -1;
  int saved_errno = 0;
  bool without_marker = false;
};

// Reads as "%d" does: an overlong number is taken at the end of a long, of which an int keeps the
// low half.
bool read_number(const char *&at, int &number) {
  while (isspace(static_cast<unsigned char>(*at)) != 0)
    at++;
  const bool negative = *at == '-';
  if (*at == '-' || *at == '+')
    at++;
  if (isdigit(static_cast<unsigned char>(*at)) == 0)
    return false;
  const uint64_t limit = static_cast<uint64_t>(LONG_MAX) + (negative ? 1 : 0);
  uint64_t sum = 0;
  for (; isdigit(static_cast<unsigned char>(*at)) != 0; at++) {
    const auto digit = static_cast<uint64_t>(*at - '0');
    sum = sum > (limit - digit) / 10 ? limit : sum * 10 + digit;
  }
  number = static_cast<int>(static_cast<unsigned>(negative ? -sum : sum));
  return true;
}

bool contains(const std::string &text, const char *part) {
  return text.find(part) != std::string::npos;
}

bool set_kind(Handle &handle, const std::string &value) {
  if (!contains(value, "pid-rtx_fd"))
    return false;
  const bool local = contains(value, "pid-rtx_fd_l");
  const bool hybrid = !local && contains(value, "pid-rtx_fd_w");
  handle.kind = local ? 12 : hybrid ? 13 : 10;
  handle.hybrid = hybrid ? 1 : 0;
  return true;
}

bool switched_on() {
  if (!fake.hybrid_switch || fake.hybrid_switch->empty())
    return false;
  const char first = (*fake.hybrid_switch)[0];
  return first != '0' && first != 'F' && first != 'f';
}

void connect_to_port(Handle &handle, int port, bool blocking, std::string &happened) {
  happened += "connect localhost " + std::to_string(port) + ";";
  if (fake.connection < 0) {
    handle.saved_errno = -fake.connection;
    happened += std::string("connection failed: ") + strerror(handle.saved_errno) + "\n";
    return;
  }
  handle.fd = fake.connection;
  if (blocking)
    happened += "blocking " + std::to_string(handle.fd) + ";";
}

void ignore_signals(std::string &happened) {
  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGABRT, SIGPIPE, SIGTERM, SIGURG})
    happened += "ignore " + std::to_string(number) + ";";
}

Handle open_handle(bool ignoring, bool blocking, std::string &happened) {
  Handle handle;
  if (!fake.value || !set_kind(handle, *fake.value)) {
    handle.without_marker = true;
    return handle;
  }
  const bool over_tcp = switched_on();
  if (ignoring && !over_tcp)
    ignore_signals(happened);
  int pid = 0;
  int number = 0;
  const char *at = fake.value->c_str();
  if (!read_number(at, pid) || !read_number(at, number)) {
    handle.saved_errno = -1;
    return handle;
  }
  handle.pid = pid;
  if (over_tcp)
    connect_to_port(handle, number, blocking, happened);
  else
    handle.fd = number;
  return handle;
}

void close_handle(const Handle &handle, std::string &happened) {
  happened += "close " + std::to_string(handle.fd) + ";";
  if (handle.kind != 13)
    happened += "close " + std::to_string(handle.fd) + ";";
}

std::string description(const Handle &handle, bool blocking) {
  if (handle.without_marker)
    return "orv: Failing to start due to wrong type on linux";
  return "handle intact; child side; companion pid " + std::to_string(handle.pid) + "; reads " +
         (blocking ? "block" : "non-blocking") + "; read FD " + std::to_string(handle.fd) +
         "; write FD " + std::to_string(handle.fd) + "; term signal 0; errno " +
         std::to_string(handle.saved_errno) + "; orv: None";
}

bool parent_is_alive(const Handle &handle) {
  return (handle.kind & 1) != 0 || handle.pid % 2 != 0; // as the process table below has it
}

// ---- the comparison ----

void compare(platform_pair_handle *ph, const Handle &expected, bool blocking) {
  judge("valid", platform_pair_valid(ph), 1);
  judge("companion pid", platform_pair_companion_pid(ph), expected.pid);
  judge("read descriptor", platform_pair_rx_fd(ph), expected.fd);
  judge("write descriptor", platform_pair_tx_fd(ph), expected.fd);
  judge("errno", platform_pair_errno(ph), expected.saved_errno);
  judge("ok", platform_pair_ok(ph), expected.saved_errno == 0);
  judge("kind", ph->kind, expected.kind);
  judge("hybrid", platform_pair_hybrid_environment(ph), expected.hybrid);
  judge("parent", platform_pair_parent(ph), 0);
  judge("child", platform_pair_child(ph), 1);
  judge("child status", platform_pair_child_exit_status(ph), 256);
  judge("signal", platform_pair_child_term_signal(ph), 0);
  judge("alive", platform_pair_companion_alive(ph), parent_is_alive(expected));
  judge("killed", platform_pair_kill_child(ph), 0);
  char *area = static_cast<char *>(malloc(PLATFORM_PAIR_DESCRIBE_SIZE));
  judge("description", platform_pair_describe(ph, area), description(expected, blocking));
  free(area);
}

// The trace, where a failed connection is told.
ssize_t take_trace(void *, const char *bytes, size_t count) {
  fake.happened.append(bytes, count);
  return static_cast<ssize_t>(count);
}

void open_trace() {
  FILE *trace = fopencookie(
      nullptr, "w", {.read = nullptr, .write = take_trace, .seek = nullptr, .close = nullptr});
  setvbuf(trace, nullptr, _IONBF, 0);
  msg_add_stream(MSG_DIAG, trace);
}

void read_input(Input &input) {
  fake.value = input.one_in(16) ? std::nullopt : std::optional(input.value());
  fake.hybrid_switch = input.one_in(2) ? std::nullopt : std::optional(input.switch_value());
  fake.connection =
      input.one_in(2) ? -static_cast<int>(1 + input.byte() % 110) : static_cast<int>(input.byte());
  fake.happened.clear();
}

} // namespace

extern "C" {

char *__real_getenv(const char *name);
char *__wrap_getenv(const char *name) {
  if (!library_run::active)
    return __real_getenv(name);
  auto &value = strcmp(name, kName) == 0 ? fake.value : fake.hybrid_switch;
  if (strcmp(name, kName) != 0 && strcmp(name, kSwitch) != 0)
    differ("the variable asked for", name, kSwitch);
  return value ? value->data() : nullptr;
}

int __real_sigaction(int number, const struct sigaction *action, struct sigaction *before);
int __wrap_sigaction(int number, const struct sigaction *action, struct sigaction *before) {
  if (!library_run::active)
    return __real_sigaction(number, action, before);
  happens(action->sa_handler == SIG_IGN ? "ignore " : "another handler for ", number);
  return 0;
}

int __real_close(int fd);
int __wrap_close(int fd) {
  if (!library_run::active)
    return __real_close(fd);
  happens("close ", fd);
  return 0;
}

int __wrap_platform_sock_connect(const char *host, int port) {
  fake.happened += std::string("connect ") + host + " " + std::to_string(port) + ";";
  if (fake.connection >= 0)
    return fake.connection;
  errno = -fake.connection;
  return -1;
}

int __wrap_platform_sock_close(int fd) {
  happens("close ", fd);
  return 0;
}

int __wrap_platform_fd_set_blocking(int fd, int blocking) {
  happens(blocking == 1 ? "blocking " : "not blocking ", fd);
  return 0;
}

int __wrap_platform_process_exists(int pid) {
  return pid % 2 != 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool prepared = (open_trace(), true);
  static_cast<void>(prepared);
  Input input = {{.data = data, .left = size}};
  const bool ignoring = input.one_in(2);
  const bool blocking = input.one_in(2);
  read_input(input);
  std::string expected_to_happen;
  const Handle expected = open_handle(ignoring, blocking, expected_to_happen);
  platform_pair_handle *ph =
      library_run::run([&] { return platform_pair_child_open(kName, ignoring, blocking); });
  judge("what opening did", fake.happened, expected_to_happen);
  compare(ph, expected, blocking);
  close_handle(expected, expected_to_happen);
  judge("closing", library_run::run([&] { return platform_pair_close(ph); }), 1);
  judge("what closing did", fake.happened, expected_to_happen);
  library_run::release_left_blocks();
  return 0;
}

} // extern "C"
