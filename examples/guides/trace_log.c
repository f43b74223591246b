/*
 * Trace log: a program that keeps a log of its own, complete even when it crashes.
 */
#include <orv/diag.h>
#include <orv/msg.h>
#include <stdlib.h>

int main(void) {
  msg_set_sync(MSG_DIAG, 1); /* each line is on disk before the program goes on */
  const char *folder = diag_set_dir("logs");
  msg_print("This process logs into \"%s\".", folder);
  diag_printf("The last thing that it did.\n");
  abort();
}
