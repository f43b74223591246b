/*
 * Stubborn: a supervisor that asks its companion to end, and ends it when it does not.
 */
#include <orv/msg.h>
#include <orv/platform.h>
#include <signal.h>
#include <string.h>
#include <time.h>

enum { looks_per_second = 20 };

static void pause_between_looks(void) {
  const struct timespec length = {0, 1000000000 / looks_per_second};
  nanosleep(&length, NULL);
}

/* Whether the companion ended within the time; platform_pair_companion_alive collects it. */
static int has_ended_within(platform_pair_handle *ph, int seconds) {
  for (int look = 0; look < seconds * looks_per_second; look++) {
    if (!platform_pair_companion_alive(ph))
      return 1;
    pause_between_looks();
  }
  return !platform_pair_companion_alive(ph);
}

/* Ends the companion: with SIGTERM, and after some seconds with SIGKILL, which none survives. */
static void end_companion(platform_pair_handle *ph, int seconds) {
  const int pid = platform_pair_companion_pid(ph);
  if (!platform_pair_companion_alive(ph))
    return; /* collected: the id may belong to somebody else by now */
  kill(pid, SIGTERM);
  if (has_ended_within(ph, seconds))
    return;
  msg_warn("The companion does not end.");
  kill(pid, SIGKILL);
  while (platform_pair_companion_alive(ph))
    pause_between_looks();
}

/* The companion: ignores the signals that ask it to end, says so, and stays with its parent. */
static int be_stubborn(void) {
  platform_pair_handle *ph = platform_pair_child_open("STUBBORN_LINK", 1, 1);
  platform_pair_send(ph, "no", 2);
  while (platform_pair_companion_alive(ph))
    platform_sleep(1);
  platform_pair_close(ph);
  return 0;
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  if (argc > 1 && strcmp(argv[1], "companion") == 0)
    return be_stubborn();

  platform_pair_handle *ph = platform_pair_parent_open_lp("STUBBORN_LINK", 1, 1, argv[0], NULL,
                                                          argv[0], "companion", NULL);
  char word[2];
  if (platform_pair_recv(ph, word, sizeof word) == sizeof word)
    msg_print("The companion says \"%.2s\".", word);
  end_companion(ph, 1);
  msg_print("It was ended by signal %d.", platform_pair_child_term_signal(ph));
  platform_pair_close(ph);
  return 0;
}
