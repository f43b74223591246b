/*
 * Abort on warning: the first warning ends the program where it is written, so that a debugger or a
 * core file shows who wrote it.
 */
#define _GNU_SOURCE
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdio.h>
#include <stdlib.h>

static ssize_t end_here(void *cookie, const char *text, size_t size) {
  (void)cookie;
  (void)text;
  (void)size;
  abort();
}

/* The stream joins behind standard error, which has got the whole warning by then. */
static void abort_on_warning(void) {
  msg_add_stream(MSG_WARN, fopencookie(NULL, "w", (cookie_io_functions_t){.write = end_here}));
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  if (platform_getenv("ABORT_ON_WARNING") != NULL)
    abort_on_warning();
  msg_print("So far, so good.");
  msg_warn("This should not happen.");
  msg_print("But it did.");
  return 0;
}
