// A stranger's program in C++: each public header, and a call into each component.
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  char *name = ORV_STRDUP("orv");
  diag_printf("not traced: there is no log\n");
  msg_print("Hello from \"%s\", %d times.", name, 42);
  orv_free(name);
  return platform_is_dir("/") ? 0 : 1;
}
