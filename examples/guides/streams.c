/*
 * Streams: warnings and errors also go to a file, informational messages can be silenced, and a
 * stream that fails is given up.
 */
#include <orv/msg.h>
#include <stdio.h>

/* Everything that has a type in the mask is written into the file too. */
static FILE *also_write(int types, const char *path) {
  FILE *file = fopen(path, "w");
  if (file == NULL)
    msg_warn("The log \"%s\" cannot be written.", path);
  msg_add_stream(types, file); /* null is ignored */
  return file;
}

static void stop_writing(int types, FILE *file) {
  msg_remove_stream(types, file); /* first out of the lists, then closed */
  if (file != NULL)
    fclose(file);
}

int main(void) {
  FILE *log = also_write(MSG_WARN | MSG_ERROR, "trouble.log");
  FILE *full = also_write(MSG_INFO, "/dev/full");
  msg_print("All is well.");
  msg_print("And it stays so.");

  msg_clear_streams(MSG_INFO);
  msg_print("Nobody reads this.");
  if (!msg_has_print_streams())
    msg_warn("Messages are off, but not warnings.");

  stop_writing(MSG_WARN | MSG_ERROR, log);
  stop_writing(MSG_INFO, full);
  return 0;
}
