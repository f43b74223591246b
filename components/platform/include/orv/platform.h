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

/**
 * @defgroup process_info Process information
 *
 * Whether a process exists and how much memory it uses, read afresh from /proc by each call. No
 * call here keeps state or allocates: any thread may use them at any time (a failure's report goes
 * through the diagnostic log, which belongs to one thread).
 *
 * @code
 * uint64_t resident_kb;
 * if (platform_process_memory(-1, NULL, &resident_kb))
 *   msg_print("This process uses %" PRIu64 " KB of memory.", resident_kb);
 * @endcode
 * @{
 */

/**
 * Tells whether a process exists.
 *
 * A process that has ended and was not waited for yet still exists.
 *
 * @param pid  process id; 0 and negative values name no process.
 * @return 1 if /proc holds the process, else 0. Nothing is reported; with 0, errno says why.
 */
ORV_API int platform_process_exists(int pid);

/**
 * Tells the memory use of a process, in kilobytes of 1024 bytes.
 *
 * @param pid          process id; any negative value stands for the calling process.
 * @param virtual_kb   where to store the size of the address space, rounded up; may be null.
 * @param resident_kb  where to store what is held in memory, rounded down; may be null.
 * @return 1 with the sizes stored, or 0 with nothing stored after a report through diag_perror:
 *         "Can't open pinfo file" (no such process, no /proc), "Can't open pinfo stat file" or
 *         "Can't read pinfo stat file". errno is left as the failed step set it.
 *
 * @warning The command name in the status line is read as one word. For a process whose name holds
 * a blank (threads and renamed processes may) the sizes are taken from wrong columns, or are 0
 * where the columns cannot be read as numbers; the result is 1 all the same.
 */
ORV_API int platform_process_memory(int pid, uint64_t *virtual_kb, uint64_t *resident_kb);

/**
 * Sleeps.
 *
 * @param seconds  how long.
 * @return 0, or the seconds that were left when a signal ended the sleep.
 */
ORV_API unsigned int platform_sleep(unsigned int seconds);

/** Tells the size of a page of memory, in bytes. */
ORV_API int platform_page_size(void);

/** Tells the id of the calling process. */
ORV_API int platform_getpid(void);

/** @} */

/**
 * @defgroup debug_launch Debug launch
 *
 * What a program does first thing in its main function, before any other thread exists: one call
 * that logs the program's arguments or, on request, pauses the program, prompts, or replaces it by
 * a shell command or another program, so that a program can be brought up under a debugger where it
 * is started by something else.
 *
 * A request is a line of words separated by blanks and tabs. It stands after the marker word
 * `__ORV_DEBUG__` (in any letter case) at the end of the command line, or else in the variable
 * `ORV_DEBUG`:
 *
 * - `delay [SECONDS]` sleeps, 30 seconds by default; the program goes on.
 * - `prompt [TEXT...]` writes the text to standard error and reads one line from standard input;
 * the program goes on.
 * - `using [COMMAND...]` becomes `/bin/sh -c COMMAND`, with the user's shell as the default
 * command.
 * - `exec PROGRAM [ARG...]` becomes the program: a path, PATH is not searched.
 * - No words at all mean the same as `using`.
 *
 * The command or program that takes over finds the launching program in three variables:
 * `ORV_EXE` (its path as it stood in the command line), `ORV_EXE_PARMS` (its own arguments joined
 * with single blanks) and `ORV_DEBUG_PROMPT` ("debug " and its base name). So this starts a program
 * under a debugger:
 *
 *     prog a b __ORV_DEBUG__ using 'gdb --args $ORV_EXE $ORV_EXE_PARMS'
 *
 * @code
 * int main(int argc, char **argv) {
 *   platform_init_args(&argc, argv);
 *   orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
 *   for (int i = 1; i < argc; i++)
 *     msg_print("%s", argv[i]);
 *   return 0;
 * }
 * @endcode
 *
 * No call of this group uses the Orv MALLOC library, so the allocation debug mode may be switched
 * on right after start-up. None may run while another thread reads the environment.
 * @{
 */

/**
 * Carries out a debug request or logs the arguments: platform_debug_args without a log name.
 *
 * @param argc the argument count of main; shortened when the command line holds a request
 * @param argv the argument vector of main; cut in place with the count
 */
ORV_API void platform_init_args(int *argc, char **argv);

/**
 * Looks for a debug request in the command line, then in the environment, and carries it out; logs
 * the arguments unless the command line held one.
 *
 * Arguments 1 to 510 are searched for the marker; one further back is not seen. With a marker, all
 * arguments after it are the request, the count and the vector are cut in front of it, and, if the
 * request lets the program go on, the call returns **without logging the arguments** and without
 * looking at `ORV_DEBUG`. Without one, a value of `ORV_DEBUG` that is not empty is the request: the
 * variable is set to the empty string first, so that a program started by the request does not act
 * on it again. Then platform_log_args is called.
 *
 * Returns unless the process was replaced. Ends the process with status 1, after a line on standard
 * error, when the request is not understood, cannot be carried out, or is too long: more than 4095
 * bytes after the marker (the value of `ORV_DEBUG` may have any length), and see platform_debug_op.
 *
 * @param argc points to the argument count, which may be 0
 * @param argv the argument vector, ended by null; entry 0 may be null
 * @param log_name the name of the diagnostic log, see platform_log_args; may be null
 */
ORV_API void platform_debug_args(int *argc, char **argv, const char *log_name);

/**
 * Carries out one debug request; returns only after "delay" and "prompt".
 *
 * The first word names the operation in any letter case. "delay" takes its first operand as a
 * decimal number (0 when it is none or negative) and ignores the others. "prompt" writes each
 * operand and a blank, or "ORV_DEBUG prompt>", then a newline to standard error, and reads one
 * line, of which it takes at most 254 characters. "using" joins its operands with single blanks, so
 * runs of blanks inside quotes shrink to one, and lets `/bin/sh` make of them what it can; without
 * operands the value of `SHELL`, or "tcsh" when that is not set, is the command. "exec" hands its
 * operands over as they are: the first is the path of the program and its own name.
 *
 * Otherwise one of these lines goes to standard error and the process ends with status 1, where
 * `%s` is the operation's word:
 *
 * - `"__ORV_DEBUG__ %s" not a recognized debug op.`
 * - `"__ORV_DEBUG__ %s" operands too long.` for a command line of "using" longer than 1023 bytes
 *   or more than 256 operands of any operation: nothing is ever cut into another command
 * - `"__ORV_DEBUG__ %s" program arguments too long.` when they do not fit `ORV_EXE_PARMS`, see
 *   platform_debug_export
 * - `"__ORV_DEBUG__ using" w/execl() call failed.` when there is no `/bin/sh`
 * - `"__ORV_DEBUG__ exec" w/execv() call failed.` when the program cannot be executed
 *
 * The copy of the request that is cut into words stays allocated (the system's allocator).
 *
 * @param program the path of this program, for `ORV_EXE`; null counts as empty
 * @param args this program's own arguments, ended by null; null counts as none
 * @param operation the request; null counts as empty
 */
ORV_API void platform_debug_op(const char *program, char *const *args, const char *operation);

/**
 * Sets `ORV_DEBUG_PROMPT`, `ORV_EXE` and `ORV_EXE_PARMS`, which describe this program to a
 * debugging command.
 *
 * The base name in the prompt is cut after 249 bytes. Arguments that make more than 4095 bytes when
 * joined are not cut: none of the three variables is set then, and nothing is said.
 *
 * @param program the path of the program; null counts as empty
 * @param args the program's arguments, ended by null, without its path; null counts as none
 */
ORV_API void platform_debug_export(const char *program, char *const *args);

/**
 * Opens the time-stamped diagnostic log, unless that was attempted before, and writes one line for
 * each argument into the trace: its index and, in double quotes, its text.
 *
 * The log is named after the program when `log_name` is null: the base name without its extension
 * and without one leading product prefix ("velta", "orv" or "zo_", in any letter case). Opening a
 * log takes a second; nothing is opened unless `ORV_DIAGNOSTICS_PATH` asks for it, see
 * diag_open_stamped_log. An argument that holds a percent sign is interpreted a second time by
 * diag_printf, like any trace text.
 *
 * @param argc points to the argument count, which may be 0
 * @param argv the argument vector
 * @param log_name a name that is used as it is; may be null
 */
ORV_API void platform_log_args(int *argc, char **argv, const char *log_name);

/** Runs at the start of platform_log_args, and does nothing: a place for a debugger to stop at. */
ORV_API void platform_args_hook(void);

/**
 * Sets an environment variable, replacing an earlier value.
 *
 * The text `name=value` is a new block of the system's allocator that belongs to the environment
 * and is **never freed**, also when the variable is set again: do not call this in a loop. The
 * process ends with an assertion when there is no storage.
 *
 * @param name the variable, not null and without "="
 * @param value its value, not null
 * @return 0
 */
ORV_API int platform_setenv(const char *name, const char *value);

/**
 * Reads an environment variable.
 *
 * @param name the variable, not null
 * @return its value, which belongs to the environment, or null when it is not set
 */
ORV_API char *platform_getenv(const char *name);

/**
 * Reads the name of the distribution: the first word of the file `dist/DISTRIBUTION` in the
 * directory that `ORV_DIST` names, cut after 127 bytes.
 *
 * Each call that finds the file **leaves it open**: ask once and keep a copy. A file without a word
 * gives what an earlier call found, or the empty string.
 *
 * @return a static area that the next call overwrites; null, without a report, when `ORV_DIST` is
 *         not set, the file cannot be opened (errno says why) or its path is longer than 4095 bytes
 */
ORV_API const char *platform_distribution(void);

/** @} */

#ifdef __cplusplus
}
#endif

#undef ORV_API
#undef ORV_SENTINEL

#endif
