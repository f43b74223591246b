/*
 * Chat: a server and a client, written in C, that talk in framed messages over "localhost". It
 * shows the socket message loop from both sides: a server on the first free port of a range that
 * serves its client from platform_message_loop() until the client leaves; a client that sends what
 * it reads line by line and waits for each answer with platform_get_one_message(); messages of one
 * line and of many; and an idle callback by which a side that waits shows that it is alive.
 *
 *     chat server [FIRST_PORT]      serves one client, then ends
 *     chat client PORT [NAME]       sends the lines of its standard input
 *
 * The first line of a message says what it is about, the lines after it are text:
 *
 *     client to server              server to client
 *     "hello", NAME                 "welcome", greeting
 *     "say", text                   "noted", how much has been said
 *     "recall"                      "recalled", everything that has been said
 *
 * The client sends "recall" for an input line of that one word, and "say" for any other.
 */
#include <orv/alloc.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum {
  first_default_port = 5600,
  port_count = 100,
  buffer_size = 1 << 20, /* a message that is larger ends the program */
  line_size = 1024,
  most_said = 1000, /* lines that are remembered: fewer than a message may have */
  looks_per_sign = 20
};

/* An idle callback: one sign of life at first, then one in every two seconds of silence. */
static void show_alive(void) {
  static int looks = 0;
  if (looks++ % looks_per_sign == 0)
    msg_print("... listening");
}

/* ---- the server ---- */

/* What the client has said. */
static struct {
  char *lines[most_said];
  int count;
} said;

static void remember(const char *text) {
  if (said.count < most_said)
    said.lines[said.count++] = orv_strdup(text, "remember", "what the client said");
}

static void forget_all(void) {
  while (said.count > 0)
    orv_free(said.lines[--said.count]);
}

/* A message whose number of lines is not known beforehand is sent a line at a time. */
static int send_all_that_was_said(int sock) {
  int sent = platform_sock_send_line(sock, "recalled");
  for (int i = 0; sent && i < said.count; i++)
    sent = platform_sock_send_line(sock, said.lines[i]);
  return sent && platform_sock_send_line(sock, NULL);
}

static int greet(int sock, const char *name) {
  char *greeting = orv_printf_strdup("Good day, %s.", name);
  msg_print("%s has joined.", name);
  const int sent = platform_sock_send_message(sock, "welcome", greeting, (char *)NULL);
  orv_free(greeting);
  return sent;
}

static int note(int sock, char **texts) {
  for (; *texts != NULL; texts++) {
    msg_print("< %s", *texts);
    remember(*texts);
  }
  char *answer = orv_printf_strdup("%d so far", said.count);
  const int sent = platform_sock_send_message(sock, "noted", answer, (char *)NULL);
  orv_free(answer);
  return sent;
}

/* The result goes back to the message loop: an answer that could not be sent ends it. */
static int answer_client(int sock, char *about, char **texts) {
  if (strcmp(about, "hello") == 0 && texts[0] != NULL)
    return greet(sock, texts[0]);
  if (strcmp(about, "say") == 0)
    return note(sock, texts);
  if (strcmp(about, "recall") == 0)
    return send_all_that_was_said(sock);
  return platform_sock_send_message(sock, "what?", NULL);
}

static int run_server(int first_port) {
  int port;
  const int listening = platform_server_sock_open(first_port, first_port + port_count, &port);
  if (listening < 0) {
    msg_error_shared("No port from %d on is free.", first_port);
    return EXIT_FAILURE;
  }
  msg_print("Serving on port %d.", port);
  const int sock = platform_sock_accept(listening); /* closes the listening socket */
  if (sock < 0) {
    msg_error_shared("Nobody could be let in.");
    return EXIT_FAILURE;
  }
  platform_message_loop(sock, answer_client, show_alive, 0);
  msg_print("The client has left.  It said %d things.", said.count);
  forget_all();
  platform_sock_close(sock);
  return EXIT_SUCCESS;
}

/* ---- the client ---- */

static int show_answer(int sock, char *about, char **texts) {
  (void)sock;
  msg_print("%s:", about);
  for (; *texts != NULL; texts++)
    msg_print("> %s", *texts);
  return 1;
}

/* 0 when the server is gone. */
static int wait_for_answer(int sock) {
  return platform_get_one_message(sock, show_answer, show_alive, 1);
}

static int send_input_line(int sock, const char *line) {
  if (strcmp(line, "recall") == 0)
    return platform_sock_send_message(sock, "recall", NULL);
  return platform_sock_send_message(sock, "say", line, (char *)NULL);
}

/* Answers every line of the input; 0 when the server left before the input ended. */
static int converse(int sock, const char *name) {
  char line[line_size];
  if (!platform_sock_send_message(sock, "hello", name, (char *)NULL) || !wait_for_answer(sock))
    return 0;
  while (fgets(line, sizeof line, stdin) != NULL) {
    line[strcspn(line, "\r\n")] = '\0';
    if (line[0] == '\0')
      continue; /* an empty line would end its message early */
    if (!send_input_line(sock, line) || !wait_for_answer(sock))
      return 0;
  }
  return 1;
}

static int run_client(int port, const char *name) {
  const int sock = platform_sock_connect("localhost", port);
  if (sock < 0) {
    msg_error_shared("Nobody serves on port %d.", port);
    return EXIT_FAILURE;
  }
  const int finished = converse(sock, name);
  if (!finished)
    msg_error_shared("The server has left.");
  platform_sock_close(sock);
  return finished ? EXIT_SUCCESS : EXIT_FAILURE;
}

static int show_usage(void) {
  msg_error_shared("Usage: chat server [FIRST_PORT] | chat client PORT [NAME]");
  return 2;
}

/* Both sides receive into the one buffer of their process. */
static int run(int argc, char **argv) {
  if (argc >= 2 && strcmp(argv[1], "server") == 0)
    return run_server(argc > 2 ? atoi(argv[2]) : first_default_port);
  if (argc >= 3 && strcmp(argv[1], "client") == 0)
    return run_client(atoi(argv[2]), argc > 3 ? argv[3] : "somebody");
  return show_usage();
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  platform_msgbuf *buffer = platform_msgbuf_create(buffer_size);
  if (buffer == NULL)
    return EXIT_FAILURE;
  platform_set_message_buffer(buffer);
  const int status = run(argc, argv);
  platform_msgbuf_free(buffer);
  return status;
}
