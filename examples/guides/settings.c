/*
 * Settings: saves one line in a file, and trusts every call that it makes.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static char *line_of(const char *name, const char *value) {
  const size_t size = strlen(name) + strlen(value) + 3;
  char *line = malloc(size);
  snprintf(line, size, "%s=%s\n", name, value);
  return line;
}

int main(int argc, char **argv) {
  if (argc != 3)
    return 2;
  char *line = line_of(argv[1], argv[2]);
  FILE *file = fopen("saved", "w");
  fputs(line, file);
  fclose(file);
  free(line);
  return 0;
}
