/*
 * Double free: texts that are shared by two entries of a list, and given back once an entry.
 */
#include <orv/alloc.h>
#include <orv/msg.h>
#include <string.h>

enum { most_names = 10 };

static char *names[most_names];

static void collect(int count, char **texts) {
  for (int i = 0; i < count; i++) {
    if (i > 0 && strcmp(texts[i], names[i - 1]) == 0)
      names[i] = names[i - 1]; /* the pointer is copied, not the text */
    else
      names[i] = orv_strdup(texts[i], "collect", "a name");
  }
}

int main(int argc, char **argv) {
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  const int count = argc - 1 < most_names ? argc - 1 : most_names;
  collect(count, argv + 1);
  for (int i = 0; i < count; i++) {
    msg_print("Giving back name %d.", i + 1);
    orv_free(names[i]);
  }
  return 0;
}
