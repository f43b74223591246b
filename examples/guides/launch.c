/*
 * Launch: prints the initials of its arguments, and has a mistake in how it collects them.
 */
#include <orv/alloc.h>
#include <orv/msg.h>
#include <orv/platform.h>

static char *initials_of(int count, char **names) {
  char *initials = orv_malloc((size_t)count, "initials_of", "the initials");
  for (int i = 0; i < count; i++)
    initials[i] = names[i][0];
  initials[count] = '\0'; /* the mistake: there is no room for the end */
  return initials;
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  const int count = argc - 1;
  char *initials = initials_of(count, argv + 1);
  msg_print("The initials are %.*s.", count, initials);
  orv_free(initials);
  return 0;
}
