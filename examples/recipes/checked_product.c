/*
 * Checked product: an array whose size comes from outside.
 */
#include <errno.h>
#include <inttypes.h>
#include <orv/alloc.h>
#include <orv/msg.h>

typedef struct point {
  double x, y;
} point;

/* A zeroed array; null when there cannot be one of that size. */
static point *new_points(uintmax_t count) {
  if (count > SIZE_MAX / sizeof(point))
    return NULL; /* the product would be a small number */
  return orv_calloc_if_room((size_t)count, sizeof(point));
}

int main(int argc, char **argv) {
  for (int i = 1; i < argc; i++) {
    const uintmax_t count = strtoumax(argv[i], NULL, 10);
    point *points = new_points(count);
    if (points == NULL)
      msg_error_shared("There is no room for %" PRIuMAX " points.", count);
    else
      msg_print("Here are %" PRIuMAX " points.", count);
    orv_free(points);
  }
  return 0;
}
