/*
 * Manager: starts a companion, sends it numbers and prints the answers, until the companion ends.
 * An argument is a debug request for the companion.
 */
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdint.h>

static int ask(platform_pair_handle *ph, int32_t number) {
  int32_t answer;
  if (platform_pair_send(ph, &number, sizeof number) != sizeof number ||
      platform_pair_recv(ph, &answer, sizeof answer) != sizeof answer)
    return 0;
  msg_print("%d squared is %d.", number, answer);
  return 1;
}

/* The companion is known to be at its end: what is left of it is collected. */
static void tell_how_it_ended(platform_pair_handle *ph) {
  while (platform_pair_companion_alive(ph))
    platform_sleep(1);
  if (platform_pair_child_term_signal(ph) != 0)
    msg_warn("Signal %d ended the companion.", platform_pair_child_term_signal(ph));
  else
    msg_print("The companion ended with %d.", platform_pair_child_exit_status(ph));
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  if (argc > 1)
    platform_setenv("ORV_DEBUG", argv[1]);
  platform_pair_handle *ph =
      platform_pair_parent_open_lp("SQUARES_LINK", 1, 1, "./worker", NULL, "./worker", NULL);
  if (!platform_pair_ok(ph))
    msg_fatal("No companion: %s", platform_pair_describe(ph, NULL));

  int32_t number = 1;
  while (number <= 1000 && ask(ph, number))
    number *= 10;
  tell_how_it_ended(ph);
  platform_pair_close(ph);
  return 0;
}
