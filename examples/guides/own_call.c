/*
 * Own call: debug messages, which have a type and streams but no call of their own, get one.
 */
#include <orv/msg.h>
#include <stdarg.h>
#include <string.h>

__attribute__((format(printf, 1, 2))) static void msg_debug(const char *format, ...) {
  va_list args;
  va_start(args, format);
  msg_output(MSG_DEBUG, MSG_FMT_LINE, 0, 0, "debug: ", format, args);
  va_end(args);
}

int main(int argc, char **argv) {
  if (argc < 2 || strcmp(argv[1], "--debug") != 0)
    msg_clear_streams(MSG_DEBUG);
  msg_print("Sorting.");
  msg_debug("%d names, %s first", 3, "Ada");
  msg_print("Sorted.");
  return 0;
}
