// Companions that are opened, talked to, and ended in turn by a signal, by their own will, and
// after the connection was closed: no process, descriptor or block may be left.
//   soak_pairs [PAIRS]
#include "soak/level.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <orv/platform.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char kLink[] = "SOAK_LINK";
constexpr int kExitStatus = 7;

// ---- the companion: says everything back, and goes when told to or when nobody is there ----

int be_companion() {
  platform_pair_handle *ph = platform_pair_child_open(kLink, 0, 1);
  if (platform_pair_rx_fd(ph) < 0)
    return 1;
  platform_fd_set_blocking(platform_pair_rx_fd(ph), 1); // whatever the parent has chosen
  char words[256];
  int length = 0;
  while ((length = platform_pair_recv(ph, words, sizeof words)) > 0) {
    if (memcmp(words, "bye", 3) == 0)
      break;
    platform_pair_send(ph, words, length);
  }
  platform_pair_close(ph);
  return kExitStatus;
}

// ---- the parent ----

platform_pair_handle *open_pair(const char *program, int blocking) {
  platform_pair_handle *ph = platform_pair_parent_open_lp(kLink, 1, blocking, program, nullptr,
                                                          program, "companion", nullptr);
  soak::expect(platform_pair_ok(ph) == 1, "a pair could not be opened");
  return ph;
}

// Until as many bytes have come; without blocking there may be nothing yet.
void talk(platform_pair_handle *ph, long number) {
  const std::string words = "pair " + std::to_string(number);
  soak::expect(platform_pair_send(ph, words.data(), static_cast<int>(words.size())) ==
                   static_cast<int>(words.size()),
               "the companion cannot be told anything");
  std::string answer;
  while (answer.size() < words.size()) {
    char area[256];
    const int length = platform_pair_recv(ph, area, sizeof area);
    soak::expect(length > 0 || platform_pair_ok(ph) == 1, "the companion does not answer");
    answer.append(area, static_cast<size_t>(length));
    if (length == 0)
      usleep(50);
  }
  soak::expect(answer == words, "the companion says something else");
}

void end_by_signal(platform_pair_handle *ph) {
  soak::expect(platform_pair_companion_alive(ph) == 1, "the companion is gone");
  soak::expect(platform_pair_kill_child(ph) == 1, "the companion cannot be ended");
  platform_pair_close(ph);
}

void end_by_word(platform_pair_handle *ph) {
  platform_pair_send(ph, "bye", 3);
  while (platform_pair_companion_alive(ph) == 1)
    usleep(50);
  soak::expect(platform_pair_child_exit_status(ph) == kExitStatus, "another exit status");
  platform_pair_close(ph);
}

void end_by_closing(platform_pair_handle *ph) {
  const int pid = platform_pair_companion_pid(ph);
  platform_pair_close(ph);
  int status = -1;
  soak::expect(platform_wait_child(pid, &status) == pid, "the companion cannot be waited for");
  soak::expect(WIFEXITED(status) && WEXITSTATUS(status) == kExitStatus, "another status");
}

void run(const char *program, long count) {
  static void (*const kEnds[])(platform_pair_handle * ph) = {end_by_signal, end_by_word,
                                                             end_by_closing};
  for (long number = 0; number < count; number++) {
    platform_pair_handle *ph = open_pair(program, static_cast<int>(number % 2));
    talk(ph, number);
    kEnds[number % 3](ph);
  }
}

} // namespace

int main(int argc, char **argv) {
  // Without a look for leaks: opening a companion's side leaves three blocks on purpose.
  if (argc > 1 && strcmp(argv[1], "companion") == 0)
    _exit(be_companion());
  soak::count_every_block(argv);
  const long count = soak::count_of(argc, argv, 60);
  run(argv[0], 6);
  const soak::Level warm = soak::level();
  run(argv[0], count);
  soak::expect_level(warm);
  soak::expect_no_children();
  printf("%ld companions were opened, talked to and ended\n", count);
  return 0;
}
