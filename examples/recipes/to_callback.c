/*
 * To callback: a function of the program's own is called with each message of a type.
 */
#define _GNU_SOURCE
#include <orv/msg.h>
#include <stdio.h>

enum { longest_message = 10000 };

/* What a program with windows would show in one. */
static void show_in_window(const char *text, size_t size) {
  printf("+----\n%.*s+----\n", (int)size, text);
}

static ssize_t call_back(void *cookie, const char *text, size_t size) {
  (void)cookie;
  show_in_window(text, size);
  return (ssize_t)size; /* a message from in here would come back to this stream: print elsewhere */
}

int main(void) {
  static char area[longest_message];
  FILE *window = fopencookie(NULL, "w", (cookie_io_functions_t){.write = call_back});
  setvbuf(window, area, _IOFBF, sizeof area); /* one call a message, unless it is longer */
  msg_clear_streams(MSG_WARN);
  msg_add_stream(MSG_WARN, window);

  msg_warn(
      "The folder \"%s\" is empty, so there is nothing that could be copied to the other disk.",
      "drafts");
  msg_warn("Done.");

  msg_remove_stream(MSG_WARN, window);
  return fclose(window);
}
