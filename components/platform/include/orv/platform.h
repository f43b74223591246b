/*
 * The platform layer: parent and companion processes, child processes, framed socket messages,
 * files and paths, process information, and the start-up call that launches a program for
 * debugging.
 */
#ifndef ORV_PLATFORM_H
#define ORV_PLATFORM_H

#include <glob.h>
#include <stdint.h>
#include <stdio.h>

#if defined(__GNUC__) || defined(__clang__)
#define ORV_API __attribute__((visibility("default")))
#define ORV_SENTINEL __attribute__((sentinel))
#else
#define ORV_API
#define ORV_SENTINEL
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct platform_pair_handle {
  int32_t companion_pid;
  int32_t side;
  int32_t kind;
  int32_t hybrid;
  int32_t blocking;
  int32_t read_fd;
  int32_t write_fd;
  int32_t child_exit_status;
  int32_t term_signal;
  int32_t saved_errno;
  const char *error_text;
  struct platform_pair_handle *self;
} platform_pair_handle;

/* Bytes that always hold what platform_pair_describe writes. */
#define PLATFORM_PAIR_DESCRIBE_SIZE 512

ORV_API platform_pair_handle *platform_pair_parent_open_vp(const char *name, int ignore_sigpipe,
                                                           int blocking, const char *file,
                                                           const int *std_fds, char *const *argv);
ORV_API platform_pair_handle *platform_pair_parent_open_lp(const char *name, int ignore_sigpipe,
                                                           int blocking, const char *file,
                                                           const int *std_fds, const char *arg0,
                                                           ...) ORV_SENTINEL;
ORV_API platform_pair_handle *platform_pair_child_open(const char *name, int ignore_signals,
                                                       int blocking);
ORV_API int platform_pair_send(platform_pair_handle *ph, const void *buffer, int length);
ORV_API int platform_pair_recv(platform_pair_handle *ph, void *buffer, int length);
ORV_API int platform_pair_errno(const platform_pair_handle *ph);
ORV_API int platform_pair_ok(const platform_pair_handle *ph);
ORV_API const char *platform_pair_errstr(const platform_pair_handle *ph);
ORV_API int platform_pair_companion_pid(const platform_pair_handle *ph);
ORV_API int platform_pair_rx_fd(const platform_pair_handle *ph);
ORV_API int platform_pair_tx_fd(const platform_pair_handle *ph);
ORV_API int platform_pair_child_exit_status(const platform_pair_handle *ph);
ORV_API int platform_pair_child_term_signal(const platform_pair_handle *ph);
ORV_API int platform_pair_hybrid_environment(const platform_pair_handle *ph);
ORV_API int platform_pair_parent(const platform_pair_handle *ph);
ORV_API int platform_pair_child(const platform_pair_handle *ph);
ORV_API int platform_pair_companion_alive(platform_pair_handle *ph);
ORV_API int platform_pair_kill_child(platform_pair_handle *ph);
ORV_API int platform_pair_close(platform_pair_handle *ph);
ORV_API int platform_pair_valid(const platform_pair_handle *ph);
ORV_API char *platform_pair_describe(const platform_pair_handle *ph, char *buffer);

ORV_API int platform_spawn_fds(const char *program, char *const *argv, const int *std_fds);
ORV_API int platform_spawn(const char *program, char *const *argv);
ORV_API int platform_spawn_list_quiet(const char *program, const char *arg0, ...) ORV_SENTINEL;
ORV_API int platform_spawn_list(const char *program, const char *arg0, ...) ORV_SENTINEL;
ORV_API int platform_wait_child(int pid, int *status);
ORV_API int platform_child_status(int pid, int *exit_status, int *term_signal);
ORV_API int platform_kill_and_wait(int pid);
ORV_API int platform_kill_and_wait_child(int pid);
ORV_API int platform_null_fd_acquire(void);
ORV_API int platform_null_fd_release(int fd);
ORV_API int platform_fd_is_blocking(int fd);
ORV_API int platform_fd_set_blocking(int fd, int blocking);

typedef struct platform_msgbuf {
  char *pBuf;
  int32_t len;
  char *p1;
  char *p2;
} platform_msgbuf;
extern ORV_API platform_msgbuf *gMsgBuf;

typedef int (*platform_message_handler)(int sock, char *first, char **further);
typedef void (*platform_idle_callback)(void);

ORV_API int platform_server_sock_open(int first, int end, int *port_out);
ORV_API int platform_sock_accept(int listening);
ORV_API int platform_sock_accept_timeout(int listening, int seconds);
ORV_API int platform_sock_connect(const char *host, int port);
ORV_API int platform_sock_close(int sock);
ORV_API int platform_sock_send_all(int sock, const void *bytes, int length);
ORV_API int platform_sock_send_line(int sock, const char *text);
ORV_API int platform_sock_send_message(int sock, const char *first, const char *second, ...);
ORV_API int platform_sock_recv(int sock, void *buffer, int length);
ORV_API int platform_sock_recv_wait(int sock, void *buffer, int length, int wait,
                                    platform_idle_callback idle);
ORV_API platform_msgbuf *platform_msgbuf_create(int capacity);
ORV_API void platform_msgbuf_reset(platform_msgbuf *buffer);
ORV_API void platform_msgbuf_free(platform_msgbuf *buffer);
ORV_API void platform_set_message_buffer(platform_msgbuf *buffer);
ORV_API int platform_recv_messages(int sock);
ORV_API void platform_dispatch_messages(int sock, platform_message_handler handler);
ORV_API int platform_get_one_message(int sock, platform_message_handler handler,
                                     platform_idle_callback idle, int wait);
ORV_API int platform_message_loop(int sock, platform_message_handler handler,
                                  platform_idle_callback idle, int drain);

typedef struct platform_file_list_t {
  uint64_t count;
  char **paths;
  glob_t *glob;
} platform_file_list_t;

typedef struct platform_file_sig_t {
  uint32_t gid;
  uint32_t ctime;
  uint32_t mtime;
  uint32_t atime;
  uint32_t dev;
  uint32_t ino;
  uint32_t mode;
  uint64_t size;
  uint64_t check;
} platform_file_sig_t;

ORV_API char *platform_get_cwd(char *buffer, int size);
ORV_API int platform_set_cwd(const char *path);
ORV_API char *platform_dir_name(const char *path, char *buffer);
ORV_API char *platform_base_name(const char *path, char *buffer);
ORV_API char *platform_extension(const char *path, char *buffer);
ORV_API char *platform_root_name(const char *path, char *buffer);
ORV_API char *platform_real_path(const char *path, char *buffer);
ORV_API int platform_is_absolute(const char *path);
ORV_API const char *platform_canonical_path(const char *path);
ORV_API char *platform_relative_path(const char *from, const char *to, char *buffer);
ORV_API char *platform_real_path_in(const char *directory, const char *path, char *buffer);

ORV_API int64_t platform_file_mtime(const char *path);
ORV_API int64_t platform_file_size(const char *path);
ORV_API const char *platform_file_owner(const char *path);
ORV_API int platform_is_dir(const char *path);
ORV_API int platform_exists(const char *path);
ORV_API int platform_file_exists(const char *path);
ORV_API int platform_is_readable(const char *path);
ORV_API int platform_is_writable(const char *path);
ORV_API int platform_is_executable(const char *path);
ORV_API int platform_is_writable_dir(const char *path);
ORV_API uint64_t platform_free_space(const char *path);

ORV_API int platform_remove(const char *path);
ORV_API int platform_rename(const char *old_path, const char *new_path);
ORV_API int platform_mkdir(const char *path);
ORV_API int platform_make_dir(const char *path);
ORV_API int platform_rmdir(const char *path);
ORV_API int platform_copy_file(const char *source, const char *destination);
ORV_API int platform_remove_tree(const char *path);

ORV_API int platform_list_dir(const char *directory, const char *pattern,
                              platform_file_list_t *list);
ORV_API void platform_free_dir_list(platform_file_list_t *list);
ORV_API int platform_name_matches(const char *name, const char *pattern);

ORV_API int platform_rm_rf(const char *path);
ORV_API int platform_cp_a(const char *source, const char *destination);
ORV_API int platform_mv(const char *source, const char *destination);

ORV_API platform_file_sig_t platform_file_sig(const char *path);
ORV_API platform_file_sig_t platform_fd_sig(int fd);
ORV_API platform_file_sig_t platform_stream_sig(FILE *stream);
ORV_API int platform_sig_differs(platform_file_sig_t a, platform_file_sig_t b);
ORV_API int platform_sig_valid(platform_file_sig_t sig);
ORV_API int platform_file_changed(const char *path, platform_file_sig_t earlier);
ORV_API int platform_fd_changed(int fd, platform_file_sig_t earlier);
ORV_API int platform_stream_changed(FILE *stream, platform_file_sig_t earlier);
ORV_API int platform_sig_mode_test(int request, platform_file_sig_t sig);

ORV_API int platform_process_exists(int pid);
ORV_API int platform_process_memory(int pid, uint64_t *virtual_kb, uint64_t *resident_kb);
ORV_API unsigned int platform_sleep(unsigned int seconds);
ORV_API int platform_page_size(void);
ORV_API int platform_getpid(void);

ORV_API void platform_init_args(int *argc, char **argv);
ORV_API void platform_debug_args(int *argc, char **argv, const char *log_name);
ORV_API void platform_debug_op(const char *program, char *const *args, const char *operation);
ORV_API void platform_debug_export(const char *program, char *const *args);
ORV_API void platform_log_args(int *argc, char **argv, const char *log_name);
ORV_API void platform_args_hook(void);
ORV_API int platform_setenv(const char *name, const char *value);
ORV_API char *platform_getenv(const char *name);
ORV_API const char *platform_distribution(void);

#ifdef __cplusplus
}
#endif

#undef ORV_API
#undef ORV_SENTINEL

#endif
