/*
 * Sum server: serves one client over TCP. A message "add" with numbers in its further lines is
 * answered with "sum" and their sum, any other with "unknown".
 */
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { first_port = 5700, port_after_last = 5800, buffer_size = 100000 };

/* The result goes back to the message loop: 0, a failed send, ends it. */
static int answer(int sock, char *first, char **further) {
  char sum_text[30];
  long sum = 0;
  if (strcmp(first, "add") != 0)
    return platform_sock_send_message(sock, "unknown", first, (char *)NULL);
  for (; *further != NULL; further++)
    sum += strtol(*further, NULL, 10);
  snprintf(sum_text, sizeof sum_text, "%ld", sum);
  return platform_sock_send_message(sock, "sum", sum_text, (char *)NULL);
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  int port;
  const int listening = platform_server_sock_open(first_port, port_after_last, &port);
  if (listening < 0)
    msg_fatal_syserr("No port is free.");
  msg_print("%d", port);

  const int sock = platform_sock_accept(listening); /* closes the listening socket */
  if (sock < 0)
    msg_fatal_syserr("Nobody came.");
  platform_msgbuf *buffer = platform_msgbuf_create(buffer_size);
  platform_set_message_buffer(buffer);
  platform_message_loop(sock, answer, NULL, 0); /* until the client closes */
  platform_msgbuf_free(buffer);
  platform_sock_close(sock);
  return EXIT_SUCCESS;
}
