// A small program as users write them: it starts through platform_init_args, then says what it was
// left with.
#include <cstdio>
#include <orv/platform.h>

static void show_variable(const char *name) {
  const char *value = platform_getenv(name);
  printf("%s=%s\n", name, value == nullptr ? "(unset)" : value);
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  printf("%d:", argc);
  for (char **argument = argv; *argument != nullptr; argument++)
    printf(" [%s]", *argument);
  printf("\n");
  show_variable("ORV_DEBUG");
  show_variable("ORV_DEBUG_PROMPT");
  show_variable("ORV_EXE");
  show_variable("ORV_EXE_PARMS");
  return 0;
}
