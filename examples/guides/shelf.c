/*
 * Shelf: keeps titles in blocks, and has a mistake in how large it makes one of them.
 */
#include <orv/alloc.h>
#include <orv/msg.h>
#include <string.h>

enum { shelf_size = 3 };

static void show(char **titles) {
  for (int i = 0; i < shelf_size; i++)
    msg_print("%d: %s", i + 1, titles[i]);
}

int main(void) {
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  const char *novel = "Middlemarch";
  char *titles[shelf_size];
  titles[0] = orv_strdup("Emma", "main", "a short title");
  titles[1] = ORV_MALLOC_ARRAY(char, strlen(novel) - 3); /* the mistake: a sign is wrong */
  for (size_t i = 0; i <= strlen(novel); i++)
    titles[1][i] = novel[i];
  titles[2] = orv_strdup("Ulysses", "main", "a title");
  orv_free(titles[0]);
  titles[0] = titles[2];
  show(titles);
  return 0;
}
