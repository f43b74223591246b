/* The calls of optimised_caller.h. */
#include "optimised_caller.h"

#include <orv/alloc.h>
#include <stddef.h>

static char area[64];

static void *lend_area(size_t size, const char *message) {
  (void)size;
  (void)message;
  return area;
}

int malloc_gives_what_was_lent(void) {
  orv_set_malloc_failure_handler(lend_area);
  return orv_malloc(10, "f", "p") == (void *)area;
}

int strdup_gives_what_was_lent(void) {
  orv_set_malloc_failure_handler(lend_area);
  return orv_strdup("abc", "f", "p") == area;
}

char written_through_a_lent_block(char byte) {
  char *block;

  orv_set_malloc_failure_handler(lend_area);
  area[0] = 'o';
  block = (char *)orv_malloc(10, "f", "p");
  block[0] = byte;
  return area[0];
}

void overrun_text(int offset) {
  char *text = orv_strdup("abc", "f", "p");

  text[offset] = 0;
  orv_free(orv_malloc(1, "g", "q"));
}
