/* What is unusual and right: no compiler has a word to say about it. */
#include <glob.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

/* Names of attributes that a program has made its own. */
#ifndef __cplusplus
#include <stdnoreturn.h>
#endif
#define cold 1
#define nonnull 2
#define sentinel 3
#define visibility 4
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>

void nulls_that_are_allowed(int sock);
void nulls_that_are_allowed(int sock) {
  char area[PLATFORM_PAIR_DESCRIBE_SIZE];
  char *block = (char *)orv_realloc(NULL, 10, NULL, NULL);
  orv_free(NULL);
  orv_free(orv_strdup(NULL, NULL, NULL));
  orv_free(block);
  orv_set_malloc_failure_handler(NULL);
  orv_malloc_describe_ptr(NULL);
  msg_print_with_prefix(NULL, "%d", 1);
  msg_set_mp_prefix(NULL);
  msg_add_stream(MSG_INFO, NULL);
  diag_set_dir(NULL);
  diag_open_stamped_log(NULL);
  diag_perror(NULL);
  platform_sock_send_line(sock, NULL);
  platform_sock_send_message(sock, NULL, "second", (char *)NULL);
  platform_sock_send_message(sock, "first", NULL);
  platform_sock_send_message(sock, NULL, NULL);
  platform_sock_recv_wait(sock, area, sizeof area, 0, NULL);
  platform_set_message_buffer(NULL);
  platform_msgbuf_free(NULL);
  platform_free_dir_list(NULL);
  orv_free(platform_get_cwd(NULL, 0));
  orv_free(platform_get_cwd(NULL, 4097));
  platform_dir_name("/a/b", area);
  platform_base_name(NULL, NULL);
  if (platform_is_dir(NULL) || platform_pair_valid(NULL))
    platform_process_memory(-1, NULL, NULL);
  platform_wait_child(1, NULL);
  platform_debug_op(NULL, NULL, NULL);
}

void a_whole_life(const char *text);
void a_whole_life(const char *text) {
  platform_pair_handle *ph =
      platform_pair_parent_open_lp("LINK", 1, 1, "cat", NULL, "cat", (char *)NULL);
  platform_msgbuf *buffer = platform_msgbuf_create(9000);
  char *copy = orv_printf_strdup("%s", text);
  char area[10];
  int pid = platform_spawn_list("true", "true", (char *)NULL);
  if (pid == 0)
    _exit(127);
  copy = (char *)orv_realloc(copy, 100, "a_whole_life", "more room");
  platform_pair_send(ph, copy, 10);
  platform_pair_recv(ph, area, sizeof area);
  platform_pair_kill_child(ph);
  platform_pair_close(ph);
  platform_set_message_buffer(buffer);
  platform_set_message_buffer(NULL);
  platform_msgbuf_free(buffer);
  platform_kill_and_wait(pid);
  orv_free(copy);
}
