/*
 * Overrun: a loop writes one element too many. With an argument, every allocation call looks at
 * every block; without one, a block is looked at when it is given back.
 */
#include <orv/alloc.h>
#include <orv/msg.h>

static void fill_squares(int *squares, int count) {
  for (int i = 0; i <= count; i++) /* the mistake: < is meant */
    squares[i] = i * i;
}

int main(int argc, char **argv) {
  (void)argv;
  orv_enable_malloc_debug(argc > 1 ? ORV_MALLOC_VERIFY_HEAP : ORV_MALLOC_CHECK_PTR);
  int *squares = ORV_MALLOC_ARRAY(int, 10);
  char *title = orv_strdup("Squares", "main", "the title");
  fill_squares(squares, 10);
  orv_free(title);
  msg_print("The title is given back.");
  orv_malloc_debug_report(1);
  orv_free(squares);
  return 0;
}
