// The program at the other end of the tests' pair connections. Its first argument says what it
// does, its second names the hand-over variable; without a first argument it exits with 99.
#include "descriptors.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <orv/alloc.h>
#include <orv/platform.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using pair_test::own_descriptors;
using pair_test::target_of;

const char *access_mode(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags == -1)
    return "-";
  const char *modes[] = {"r", "w", "rw", "?"};
  return modes[flags & O_ACCMODE];
}

std::string listed(const std::vector<int> &numbers) {
  std::string list;
  for (const int number : numbers)
    list += std::to_string(number) + ",";
  return list;
}

const char *disposition(int signal_number) {
  struct sigaction now = {};
  sigaction(signal_number, nullptr, &now);
  return now.sa_handler == SIG_IGN ? "ignored" : "default";
}

// True when both numbers stand for one open file: a flag set through one shows through the other.
bool same_open_file(int a, int b) {
  const int flags = fcntl(a, F_GETFL);
  fcntl(a, F_SETFL, flags | O_APPEND);
  const bool shows = (fcntl(b, F_GETFL) & O_APPEND) != 0;
  fcntl(a, F_SETFL, flags);
  return shows;
}

std::string state_of_process(const char *name, const platform_pair_handle *ph, int argc,
                             char **argv) {
  const char *value = getenv(name);
  std::string text;
  text += "value=" + std::string(value != nullptr ? value : "(unset)") + "\n";
  text += "open=" + listed(own_descriptors()) + "\n";
  for (int fd = 0; fd < 3; fd++)
    text += "fd" + std::to_string(fd) + "=" + target_of(fd) + " " + access_mode(fd) + "\n";
  text += std::string("output and error=") + (same_open_file(1, 2) ? "one" : "two") + "\n";
  text += std::string("SIGPIPE=") + disposition(SIGPIPE) + "\n";
  text += "argc=" + std::to_string(argc) + "\n";
  text += std::string("last=") + argv[argc - 1] + "\n";
  if (ph != nullptr) {
    text += "end=" + std::to_string(platform_pair_rx_fd(ph)) +
            (platform_fd_is_blocking(platform_pair_rx_fd(ph)) ? " block" : " non-blocking") + "\n";
    text += "side=" + std::to_string(platform_pair_parent(ph)) +
            std::to_string(platform_pair_child(ph)) + "\n";
    text += "parent=" + std::to_string(platform_pair_companion_pid(ph)) + "\n";
  }
  return text;
}

void send_all(platform_pair_handle *ph, const std::string &text) {
  platform_fd_set_blocking(platform_pair_tx_fd(ph), 1);
  for (size_t sent = 0; sent < text.size();) {
    const int piece =
        platform_pair_send(ph, text.data() + sent, static_cast<int>(text.size() - sent));
    if (piece == 0)
      _exit(3);
    sent += static_cast<size_t>(piece);
  }
}

// Sends back whatever comes until the parent closes its end.
int echo(platform_pair_handle *ph) {
  char bytes[512];
  for (;;) {
    const int got = platform_pair_recv(ph, bytes, sizeof bytes);
    if (got == 0)
      return platform_pair_close(ph) == 1 ? 0 : 4;
    send_all(ph, std::string(bytes, static_cast<size_t>(got)));
  }
}

int report(const char *name, int argc, char **argv) {
  platform_pair_handle *ph = platform_pair_child_open(name, 0, 1);
  if (platform_pair_rx_fd(ph) < 0)
    return 5;
  send_all(ph, state_of_process(name, ph, argc, argv));
  platform_pair_close(ph);
  return 0;
}

// The same to a file that the third argument names: for a companion without a connection.
int report_to_file(const char *name, int argc, char **argv) {
  const std::string text = state_of_process(name, nullptr, argc, argv);
  FILE *file = fopen(argv[3], "w");
  if (file == nullptr)
    return 6;
  fputs(text.c_str(), file);
  return fclose(file) == 0 ? 0 : 6;
}

// Copies standard input to standard output, then says goodbye on standard error.
int copy() {
  char bytes[512];
  for (ssize_t got; (got = read(0, bytes, sizeof bytes)) > 0;)
    if (write(1, bytes, static_cast<size_t>(got)) != got)
      return 7;
  return write(2, "goodbye", 7) == 7 ? 0 : 7;
}

// Opens its side in allocation debug mode and reports what that left.
int report_allocations(const char *name) {
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  [[maybe_unused]] const platform_pair_handle *handle = platform_pair_child_open(name, 0, 1);
  orv_malloc_debug_report(1);
  return 0;
}

} // namespace

// Under the leak checker: opening the companion's side leaves blocks on purpose.
extern "C" const char *__lsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
  return "leak:platform_pair_child_open";
}
extern "C" const char *__lsan_default_options() { // NOLINT(bugprone-reserved-identifier)
  return "print_suppressions=0";
}

int main(int argc, char **argv) {
  if (argc < 2)
    return 99;
  const std::string task = argv[1];
  const char *name = argc > 2 ? argv[2] : "";
  if (task == "echo")
    return echo(platform_pair_child_open(name, 0, 1));
  if (task == "report")
    return report(name, argc, argv);
  if (task == "report-to-file")
    return report_to_file(name, argc, argv);
  if (task == "copy")
    return copy();
  if (task == "report-allocations")
    return report_allocations(name);
  if (task == "exit")
    return atoi(name);
  return 98;
}
