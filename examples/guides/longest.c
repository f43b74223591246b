/*
 * Longest: prints the longest line of a file.
 */
#include <orv/alloc.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { line_size = 1000 };

static char *longest_line(FILE *file) {
  char line[line_size];
  char *longest = orv_strdup("", "longest_line", "the longest line so far");
  while (fgets(line, sizeof line, file) != NULL) {
    line[strcspn(line, "\n")] = '\0';
    if (strlen(line) > strlen(longest)) {
      orv_free(longest);
      longest = orv_strdup(line, "longest_line", "the longest line so far");
    }
  }
  return longest;
}

static FILE *open_file(const char *path) {
  FILE *file = fopen(path, "r");
  if (file != NULL)
    return file;
  msg_fatal_syserr("The file \"%s\" cannot be read.", path);
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  if (argc != 2)
    msg_fatal("Usage: longest FILE");

  FILE *file = open_file(argv[1]);
  char *line = longest_line(file);
  msg_print("The longest line has %zu characters:", strlen(line));
  msg_cont("%s", line);

  orv_free(line);
  fclose(file);
  orv_malloc_debug_report(1);
  return EXIT_SUCCESS;
}
