/*
 * Worker: the companion of manager. It squares numbers, and ends when it is asked for one whose
 * square would be too large for it.
 */
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdint.h>
#include <stdlib.h>

enum { largest = 100, too_large = 3 };

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  platform_pair_handle *ph = platform_pair_child_open("SQUARES_LINK", 0, 1);
  if (platform_pair_rx_fd(ph) < 0)
    msg_fatal("This program is started by manager.");

  int status = EXIT_SUCCESS;
  int32_t number;
  while (status == EXIT_SUCCESS &&
         platform_pair_recv(ph, &number, sizeof number) == sizeof number) {
    const int32_t answer = number * number;
    if (number > largest)
      status = too_large;
    else
      platform_pair_send(ph, &answer, sizeof answer);
  }
  platform_pair_close(ph);
  return status;
}
