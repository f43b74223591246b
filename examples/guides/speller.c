/*
 * Speller: framed messages between a parent and its companion, which are one program here.
 */
#include <orv/msg.h>
#include <orv/platform.h>
#include <string.h>

enum { buffer_size = 100000 };

/* The companion's handler: answers a word with its letters, a line each. */
static int spell(int sock, char *first, char **further) {
  (void)further;
  int sent = platform_sock_send_line(sock, "letters");
  for (const char *letter = first; sent && *letter != '\0'; letter++) {
    const char line[2] = {*letter, '\0'};
    sent = platform_sock_send_line(sock, line);
  }
  return sent && platform_sock_send_line(sock, NULL); /* the message ends */
}

/* The parent's handler. */
static int show(int sock, char *first, char **further) {
  (void)sock;
  msg_print_wrap("%s:", first);
  for (; *further != NULL; further++)
    msg_cont(" %s", *further);
  msg_cont("\n");
  return 1;
}

static void be_companion(void) {
  platform_pair_handle *ph = platform_pair_child_open("SPELLER_LINK", 0, 1);
  if (platform_pair_rx_fd(ph) >= 0)
    platform_message_loop(platform_pair_rx_fd(ph), spell, NULL, 0); /* until the parent closes */
  platform_pair_close(ph);
}

static void be_parent(char *program, char **words) {
  platform_pair_handle *ph = platform_pair_parent_open_lp("SPELLER_LINK", 1, 1, program, NULL,
                                                          program, "--companion", NULL);
  const int pid = platform_pair_companion_pid(ph);
  for (; *words != NULL; words++)
    if (!platform_sock_send_message(platform_pair_tx_fd(ph), *words, NULL) ||
        !platform_get_one_message(platform_pair_rx_fd(ph), show, NULL, 1))
      msg_fatal("The companion has left.");
  platform_pair_close(ph); /* the companion's loop ends, and with it the companion */
  platform_wait_child(pid, NULL);
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  platform_msgbuf *buffer = platform_msgbuf_create(buffer_size);
  platform_set_message_buffer(buffer);
  if (argc > 1 && strcmp(argv[1], "--companion") == 0)
    be_companion();
  else
    be_parent(argv[0], argv + 1);
  platform_msgbuf_free(buffer);
  return 0;
}
