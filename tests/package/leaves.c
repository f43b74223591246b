/* Makes the calls that leave blocks allocated on purpose. With an argument it loses three blocks of
 * its own besides, by calls that leave some. */
#include <orv/alloc.h>
#include <orv/platform.h>
#include <stdlib.h>
#include <string.h>

static void leave_what_the_calls_leave(int argc, char **argv) {
  char *const none[] = {NULL};
  char top[] = "/tmp/orv-leaves-XXXXXX";
  platform_file_list_t list = {0, NULL, NULL};
  int port = 0;
  int listening = platform_server_sock_open(20000, 30000, &port);

  platform_debug_op("leaves", none, "delay 0");
  setenv("ORV_DEBUG", "delay 0", 1);
  platform_init_args(&argc, argv);
  platform_setenv("LEAVES", "a text");
  platform_setenv("LEAVES", "another");
  orv_free(orv_strdup2("one", "two", "leave", "a sum"));
  orv_free(ORV_STRDUP("one", "two"));
  setenv("LEAVES_LINK", "1 2 no marker", 1);
  platform_pair_close(platform_pair_child_open("LEAVES_LINK", 0, 1));
  if (mkdtemp(top) == NULL || !platform_list_dir("/usr", "*", &list))
    exit(1);
  platform_free_dir_list(&list);
  platform_remove_tree(top);
  platform_sock_close(platform_sock_connect("localhost", port));
  platform_sock_close(listening);
}

static void lose_blocks(void) {
  platform_file_list_t list = {0, NULL, NULL};
  char *volatile lost = orv_strdup2("lost", "sum", "lose", "a sum");
  lost = ORV_STRDUP("lost", "too");
  lost = NULL;
  if (!platform_list_dir("/usr/", "bin", &list))
    exit(1);
  (void)lost;
}

/* So that no pointer stays on the stack where the program has been. */
static void wipe_the_stack(void) {
  volatile char area[16384];
  for (size_t i = 0; i < sizeof area; i++)
    area[i] = 0;
}

int main(int argc, char **argv) {
  const int loses = argc > 1;
  leave_what_the_calls_leave(argc, argv);
  if (loses)
    lose_blocks();
  wipe_the_stack();
  return 0;
}
