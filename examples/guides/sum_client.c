/*
 * Sum client: reads the server's port from its standard input, and asks for two things.
 */
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdio.h>
#include <stdlib.h>

enum { buffer_size = 100000 };

static int read_port(void) {
  char line[20] = "";
  if (fgets(line, sizeof line, stdin) == NULL)
    msg_fatal("No server told its port.");
  return (int)strtol(line, NULL, 10);
}

/* Not 0, so that it can be told from a message that did not come. */
static int show(int sock, char *first, char **further) {
  (void)sock;
  msg_print("%s: %s", first, further[0] != NULL ? further[0] : "nothing");
  return 1;
}

static void wait_for_answer(int sock) {
  if (!platform_get_one_message(sock, show, NULL, 1))
    msg_fatal("The server has left.");
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  const int sock = platform_sock_connect("localhost", read_port());
  if (sock < 0)
    msg_fatal_syserr("The server cannot be reached.");
  platform_msgbuf *buffer = platform_msgbuf_create(buffer_size);
  platform_set_message_buffer(buffer);

  platform_sock_send_message(sock, "add", "20", "20", "2", (char *)NULL);
  wait_for_answer(sock);
  platform_sock_send_message(sock, "divide", NULL);
  wait_for_answer(sock);

  platform_msgbuf_free(buffer);
  platform_sock_close(sock);
  return EXIT_SUCCESS;
}
