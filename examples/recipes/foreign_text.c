/*
 * Foreign text: a file name that the program did not choose, in the trace.
 */
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/msg.h>
#include <stdio.h>
#include <string.h>

/* A copy of the text, with each of its percent signs doubled. */
static char *for_trace(const char *text) {
  char *copy = orv_malloc(2 * strlen(text) + 1, "for_trace", "a text to be traced");
  char *end = copy;
  for (; *text != '\0'; text++) {
    *end++ = *text;
    if (*text == '%')
      *end++ = '%';
  }
  *end = '\0';
  return copy;
}

int main(int argc, char **argv) {
  msg_add_stream(MSG_DIAG, stderr);
  for (int i = 1; i < argc; i++) {
    char *name = for_trace(argv[i]);
    diag_printf("main: argument %d is \"%s\"\n", i, name);
    orv_free(name);
  }
  return 0;
}
