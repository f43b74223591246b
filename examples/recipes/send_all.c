/*
 * Send all: a buffer that is larger than what the connection takes at once, on a pair that does not
 * block.
 */
#include <errno.h>
#include <orv/alloc.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <poll.h>
#include <stdint.h>
#include <string.h>

enum { length_to_send = 10 * 1000 * 1000 };

static int wait_for_room(platform_pair_handle *ph) {
  struct pollfd room = {.fd = platform_pair_tx_fd(ph), .events = POLLOUT};
  return poll(&room, 1, -1) > 0 || errno == EINTR;
}

/* Sends all bytes, whether or not the pair blocks: 1, or 0 with errno when that fails. */
static int send_all(platform_pair_handle *ph, const char *bytes, int length) {
  while (length > 0) {
    const int sent = platform_pair_send(ph, bytes, length);
    bytes += sent;
    length -= sent;
    if (sent > 0 || errno == EINTR)
      continue;
    if (errno != EAGAIN || !wait_for_room(ph))
      return 0;
  }
  return 1;
}

/* The companion: counts what comes, and answers with the count. */
static int count_bytes(void) {
  platform_pair_handle *ph = platform_pair_child_open("COUNT_LINK", 0, 1);
  platform_fd_set_blocking(platform_pair_rx_fd(ph), 1); /* its own end: the parent's stays */
  static char bytes[65536];
  int32_t count = 0;
  int received;
  while (count < length_to_send && (received = platform_pair_recv(ph, bytes, sizeof bytes)) > 0)
    count += received;
  platform_pair_send(ph, &count, sizeof count);
  platform_pair_close(ph);
  return 0;
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  if (argc > 1 && strcmp(argv[1], "companion") == 0)
    return count_bytes();

  platform_pair_handle *ph =
      platform_pair_parent_open_lp("COUNT_LINK", 1, 0, argv[0], NULL, argv[0], "companion", NULL);
  char *bytes = ORV_CALLOC_ARRAY(char, length_to_send);
  int32_t count = 0;
  if (!send_all(ph, bytes, length_to_send))
    msg_fatal_syserr("The companion does not take everything.");
  platform_fd_set_blocking(platform_pair_rx_fd(ph), 1);
  platform_pair_recv(ph, &count, sizeof count);
  msg_print("The companion has got %d bytes.", count);
  orv_free(bytes);
  platform_pair_kill_child(ph);
  platform_pair_close(ph);
  return 0;
}
