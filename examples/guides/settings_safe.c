/*
 * Settings, safe: the same, but a refused call ends in a sentence, and the old file stays until the
 * new one is whole.
 */
#include <orv/alloc.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdio.h>

static int write_line(const char *path, const char *line) {
  FILE *file = fopen(path, "w");
  if (file == NULL)
    return 0;
  const int written = fputs(line, file) != EOF;
  return fclose(file) == 0 && written;
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  if (argc != 3)
    return 2;
  char *line = orv_printf_strdup("%s=%s\n", argv[1], argv[2]);
  if (!write_line("saved.new", line) || !platform_rename("saved.new", "saved")) {
    platform_remove("saved.new");
    msg_fatal_syserr("The settings could not be saved");
  }
  orv_free(line);
  return 0;
}
