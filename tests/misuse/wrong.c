/* Mistakes that a compiler finds with the help of the public headers, in C and in C++. The comment
 * at the end of a line names the compilers that warn of it and the option they say; a line without
 * one must compile in silence. */
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdlib.h>

void formats(const char *text);
void formats(const char *text) {
  msg_print("%d files", text);          /* gcc -Wformat= clang -Wformat */
  msg_error(0, "%s and %s", text);      /* gcc -Wformat= clang -Wformat-insufficient-args */
  msg_print_with_prefix("", "%d", 1.5); /* gcc -Wformat= clang -Wformat */
  msg_cont("no conversion", text);      /* gcc -Wformat-extra-args clang -Wformat-extra-args */
  diag_printf("%ld\n", 1);              /* gcc -Wformat= clang -Wformat */
  orv_free(orv_printf_strdup("%s", 1)); /* gcc -Wformat= clang -Wformat */
  msg_warn(text);                       /* gcc -Wformat-security clang -Wformat-security */
}

void unused_results(void);
void unused_results(void) {
  char *const arguments[] = {NULL};
  orv_malloc(10, "main", "nothing");                 /* gcc -Wunused-result clang -Wunused-result */
  orv_realloc_if_room(NULL, 10);                     /* gcc -Wunused-result clang -Wunused-result */
  orv_printf_strdup("lost");                         /* gcc -Wunused-result clang -Wunused-result */
  orv_strdup("a", "f", "p");                         /* gcc -Wunused-result clang -Wunused-result */
  platform_msgbuf_create(100);                       /* gcc -Wunused-result clang -Wunused-result */
  platform_pair_child_open("LINK", 0, 1);            /* gcc -Wunused-result clang -Wunused-result */
  platform_sock_connect("localhost", 80);            /* gcc -Wunused-result clang -Wunused-result */
  platform_sock_accept(3);                           /* gcc -Wunused-result clang -Wunused-result */
  platform_server_sock_open(5000, 5001, NULL);       /* gcc -Wunused-result clang -Wunused-result */
  platform_spawn("true", arguments);                 /* gcc -Wunused-result clang -Wunused-result */
  platform_spawn_list("true", "true", (char *)NULL); /* gcc -Wunused-result clang -Wunused-result */
}

void releases(void);
void releases(void) {
  char *text = orv_strdup("text", "main", "text");
  void *block = malloc(10);
  platform_msgbuf *buffer = platform_msgbuf_create(100);
  platform_pair_handle *ph = platform_pair_child_open("LINK", 0, 1);
  free(text);       /* gcc -Wmismatched-dealloc */
  orv_free(block);  /* gcc -Wmismatched-dealloc */
  orv_free(buffer); /* gcc -Wmismatched-dealloc */
  free(ph);         /* gcc -Wmismatched-dealloc */
}

char use_after_release(void);
char use_after_release(void) {
  char *text = orv_strdup("text", "main", "text");
  orv_free(text);
  return text[0]; /* gcc -Wuse-after-free */
}

void nulls(platform_pair_handle *ph);
void nulls(platform_pair_handle *ph) {
  char area[10];
  int count = 0;
  orv_free(orv_strdup2("a", NULL, "main", "sum")); /* gcc -Wnonnull clang -Wuser-defined-warnings */
  orv_free(orv_malloc_at(8, NULL, 1, "wrong.c"));  /* gcc -Wnonnull clang -Wuser-defined-warnings */
  ph = platform_pair_child_open(NULL, 0, 1);       /* gcc -Wnonnull clang -Wuser-defined-warnings */
  platform_pair_close(ph);
  platform_pair_send(NULL, "a", 1);   /* gcc -Wnonnull clang -Wuser-defined-warnings */
  platform_pair_recv(NULL, area, 10); /* gcc -Wnonnull clang -Wuser-defined-warnings */
  platform_pair_close(NULL);          /* gcc -Wnonnull clang -Wuser-defined-warnings */
  platform_pair_describe(NULL, NULL); /* gcc -Wnonnull clang -Wuser-defined-warnings */
  platform_msgbuf_reset(NULL);        /* gcc -Wnonnull clang -Wuser-defined-warnings */
  platform_setenv("NAME", NULL);      /* gcc -Wnonnull clang -Wuser-defined-warnings */
  platform_init_args(NULL, NULL);     /* gcc -Wnonnull clang -Wuser-defined-warnings */
  platform_log_args(&count, NULL, NULL);
}

int sentinels(void);
int sentinels(void) {
  return platform_spawn_list_quiet("ls", "ls", "-l"); /* gcc -Wformat= clang -Wsentinel */
}

void sizes(platform_pair_handle *ph, int sock);
void sizes(platform_pair_handle *ph, int sock) {
  char area[10];
  char *block = (char *)orv_malloc(4, "sizes", "too few bytes");
  platform_pair_recv(ph, area, 20);                 /* gcc -Wstringop-overflow= */
  platform_pair_send(ph, "four", 100);              /* gcc -Wstringop-overread */
  platform_sock_recv(sock, area, 11);               /* gcc -Wstringop-overflow= */
  platform_sock_recv_wait(sock, area, 11, 1, NULL); /* gcc -Wstringop-overflow= */
  platform_sock_send_all(sock, area, 11);           /* gcc -Wstringop-overread */
  platform_sock_recv(sock, block, 5);               /* gcc -Wstringop-overflow= */
  orv_free(block);
}

int after_the_end(void);
int after_the_end(void) {
  msg_fatal("the end");
} /* no result is missing here: the call never returns */
