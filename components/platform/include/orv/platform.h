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
#define ORV_API __attribute__((__visibility__("default")))
#define ORV_SENTINEL __attribute__((__sentinel__))
#define ORV_MUST_USE __attribute__((__warn_unused_result__))
#else
#define ORV_API
#define ORV_SENTINEL
#define ORV_MUST_USE
#endif
#if !defined(__clang__) && defined(__GNUC__) && __GNUC__ >= 11
#define ORV_RELEASED_BY(function) __attribute__((__malloc__(function, 1)))
#else
#define ORV_RELEASED_BY(function)
#endif
/* A null, and a size that is larger than its area, are warned of where a compiler sees them in a
 * call. The library's own sources, which test for them at run time, and its tests, which try them,
 * are left out. */
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wgcc-compat"
#endif
#if defined(__clang__) && !defined(ORV_BUILDING)
#define ORV_NOT_NULL(index, parameter)                                                             \
  __attribute__((                                                                                  \
      __diagnose_if__(!(parameter), "null where " #parameter " may not be null", "warning")))
#elif defined(__GNUC__) && !defined(ORV_BUILDING)
#define ORV_NOT_NULL(index, parameter) __attribute__((__nonnull__(index)))
#else
#define ORV_NOT_NULL(index, parameter)
#endif
#if !defined(__clang__) && defined(__GNUC__) && __GNUC__ >= 11 && !defined(ORV_BUILDING)
#define ORV_READS(pointer_index, size_index)                                                       \
  __attribute__((__access__(__read_only__, pointer_index, size_index)))
#define ORV_FILLS(pointer_index, size_index)                                                       \
  __attribute__((__access__(__write_only__, pointer_index, size_index)))
#else
#define ORV_READS(pointer_index, size_index)
#define ORV_FILLS(pointer_index, size_index)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @defgroup pair_connection Pair connection
 *
 * A parent process starts a companion program and exchanges bytes with it over a connected pair
 * of local stream sockets. The parent names an environment variable; the companion finds in it
 * which descriptor it inherited. What the two say to each other is their own business: a stream
 * of bytes without boundaries.
 *
 * An open call always returns a handle. Whether it can be used shows in the handle: after a
 * failed open both descriptors are -1, and the saved errno (platform_pair_errno()), the error
 * text (platform_pair_describe()) or both say why. A handle lives until platform_pair_close();
 * ending the companion (platform_pair_kill_child()) and closing are separate steps, usually in
 * this order.
 *
 * In the hybrid arrangement the companion connects to a TCP port of its parent on "localhost"
 * instead. The parent then listens, starts the companion and sets the two variables itself: the
 * value's second number is the port, and the variable with "_HYBRID" behind its name switches the
 * arrangement on.
 *
 * A handle is used from one thread. Every call on one asserts first that it is valid, with the
 * exceptions of platform_pair_valid() and platform_pair_describe(); the assertion ends the
 * process and names the call, in every build type.
 *
 * @code
 * // The parent.
 * #include <orv/platform.h>
 *
 * int main(void) {
 *   platform_pair_handle *ph = platform_pair_parent_open_lp(
 *       "DEMO_LINK", 1, 1, "demo-companion", NULL, "demo-companion", NULL);
 *   char answer[64];
 *   if (platform_pair_ok(ph) && platform_pair_send(ph, "hello", 5) == 5) {
 *     int length = platform_pair_recv(ph, answer, sizeof answer);
 *     if (length > 0)
 *       printf("%.*s\n", length, answer);
 *   } else {
 *     printf("%s\n", platform_pair_describe(ph, NULL));
 *   }
 *   if (platform_pair_companion_alive(ph))
 *     platform_pair_kill_child(ph);
 *   platform_pair_close(ph);
 *   return 0;
 * }
 * @endcode
 *
 * @code
 * // The companion.
 * #include <orv/platform.h>
 *
 * int main(int argc, char **argv) {
 *   platform_init_args(&argc, argv);
 *   platform_pair_handle *ph = platform_pair_child_open("DEMO_LINK", 0, 1);
 *   char question[64];
 *   int length;
 *   while (platform_pair_rx_fd(ph) >= 0 &&
 *          (length = platform_pair_recv(ph, question, sizeof question)) > 0)
 *     platform_pair_send(ph, question, length);
 *   platform_pair_close(ph);
 *   return 0;
 * }
 * @endcode
 * @{
 */

/**
 * One side of a pair connection.
 *
 * The open calls allocate it and platform_pair_close() frees it. Programs read it through the
 * calls below; the fields are here for debuggers and for describing.
 */
typedef struct platform_pair_handle {
  int32_t companion_pid;             /**< id of the process on the other side; 0 while unknown */
  int32_t side;                      /**< 1 on the parent's side, 0 on the companion's */
  int32_t kind;                      /**< hand-over: 12 socket pair ("pid-rtx_fd_l"), 13 hybrid
                                          ("pid-rtx_fd_w"), 10 plain ("pid-rtx_fd"), 0 none */
  int32_t hybrid;                    /**< 1 when the value carried the hybrid marker, else 0 */
  int32_t blocking;                  /**< the caller's choice: nonzero blocking, 0 non-blocking */
  int32_t read_fd;                   /**< what platform_pair_recv() reads; -1 when not open */
  int32_t write_fd;                  /**< what platform_pair_send() writes; -1 when not open */
  int32_t child_exit_status;         /**< the companion's exit status; 256 until it is collected */
  int32_t term_signal;               /**< the signal that ended the companion; 0 for none */
  int32_t saved_errno;               /**< the last error on this handle; -1 for a hand-over value
                                          without two numbers, 0 for none */
  const char *error_text;            /**< the step of opening that failed, never freed; or null */
  struct platform_pair_handle *self; /**< the handle's own address: what makes it valid */
} platform_pair_handle;

/* Declared ahead, see below, for the calls whose result it releases. */
ORV_API int platform_pair_close(platform_pair_handle *ph);

/** Bytes that always hold what platform_pair_describe() writes. */
#define PLATFORM_PAIR_DESCRIBE_SIZE 512

/**
 * @defgroup pair_open Opening
 *
 * The parent's side and the companion's.
 * @{
 */

/**
 * Starts a companion program and connects to it: the parent's side.
 *
 * Creates the socket pair, forks (up to 31 times while the system answers EAGAIN) and runs `file`
 * in the child, with the variable `name` set to "<parent's pid> <descriptor> pid-rtx_fd_l" in the
 * child's environment; the parent's is not touched. Neither end is closed by exec: programs that
 * the parent starts later inherit its end too, and the companion sees the end of the connection
 * only when they are gone as well.
 *
 * @param name           the hand-over variable's name, which the companion opens with; not null
 * @param ignore_sigpipe nonzero: the parent ignores SIGPIPE from here on. With 0, sending to a
 *                       companion that is gone ends the parent unless it handles the signal.
 * @param blocking       0 puts both ends in non-blocking mode; anything else leaves them blocking
 * @param file           the program; a bare name is searched for on PATH
 * @param std_fds        three descriptors that become the companion's standard input, output and
 *                       error, or null for the null device on all three. Entry by entry, in this
 *                       order, one that is not in its place already is duplicated there and
 *                       closed in the child. So list no descriptor twice (after its first use it
 *                       is closed) and no 0, 1 or 2 out of place. A negative entry leaves the
 *                       inherited one.
 * @param argv           the null-ended vector for the program, its name first by custom
 * @return a new handle, never null; the caller ends it with platform_pair_close(). On failure the
 *         saved errno is the system's and the error text is one of
 *         - "socketpair create failed"
 *         - "fork failed"; both sockets of the pair then stay open, two descriptors are lost
 *
 * A program that cannot be run is no failure of this call: the child exits with status 1,
 * receiving returns 0 at the end of the stream, and platform_pair_companion_alive() finds the
 * status. Without storage for the handle an assertion ends the process.
 */
ORV_API platform_pair_handle *platform_pair_parent_open_vp(const char *name, int ignore_sigpipe,
                                                           int blocking, const char *file,
                                                           const int *std_fds, char *const *argv)
    ORV_NOT_NULL(1, name) ORV_RELEASED_BY(platform_pair_close) ORV_MUST_USE;

/**
 * Does what platform_pair_parent_open_vp() does, with the arguments as a null-ended list.
 *
 * The list has at least one argument before its null: the first is stored as it is, even when it
 * is null, and the end is looked for behind it. Up to 256 arguments are taken; a further one ends
 * the process by the assertion "idx < 256".
 *
 * @param name           as for platform_pair_parent_open_vp()
 * @param ignore_sigpipe as for platform_pair_parent_open_vp()
 * @param blocking       as for platform_pair_parent_open_vp()
 * @param file           the program; a bare name is searched for on PATH
 * @param std_fds        as for platform_pair_parent_open_vp()
 * @param arg0,...       the program's arguments, its name first by custom, ended by null
 * @return as platform_pair_parent_open_vp()
 */
ORV_API platform_pair_handle *
platform_pair_parent_open_lp(const char *name, int ignore_sigpipe, int blocking, const char *file,
                             const int *std_fds, const char *arg0, ...) ORV_SENTINEL
    ORV_NOT_NULL(1, name) ORV_RELEASED_BY(platform_pair_close) ORV_MUST_USE;

/**
 * Opens the companion's side from the hand-over variable.
 *
 * The variable's value is two decimal numbers, the parent's process id and a descriptor, and
 * somewhere in it a marker: "pid-rtx_fd_l", "pid-rtx_fd_w" or "pid-rtx_fd", looked for in this
 * order.
 *
 * When the variable `name` followed by "_HYBRID" is set, not empty and begins with none of "0",
 * "F" and "f", the second number is a TCP port on "localhost", to which the call connects.
 *
 * @param name           the hand-over variable's name, as the parent gave it; not null
 * @param ignore_signals nonzero: ignores SIGHUP, SIGINT, SIGQUIT, SIGABRT, SIGPIPE, SIGTERM and
 *                       SIGURG from here on, even when the value turns out to be malformed.
 *                       Without effect over TCP and without a marker. A companion that ignores
 *                       SIGTERM is not ended by platform_pair_kill_child(), which then waits for
 *                       ever.
 * @param blocking       noted in the handle. An inherited descriptor keeps the mode that the
 *                       parent gave it; a TCP socket blocks, whatever is chosen here (for 0 use
 *                       platform_fd_set_blocking()).
 * @return a new handle, never null; the caller ends it with platform_pair_close(). On failure
 *         both descriptors are -1, and
 *         - without the variable, or without a marker: the error text is "Failing to start due to
 *           wrong type on linux" and the saved errno stays 0. So platform_pair_ok() says 1: look
 *           at platform_pair_rx_fd() instead.
 *         - without two numbers: the saved errno is -1
 *         - when the connection fails: the saved errno is the system's, and "connection failed: "
 *           with its text goes into the trace
 *
 * Joining the name with "_HYBRID" leaves three blocks of the allocation library allocated, which
 * its report shows under the method ORV_STRDUP.
 */
ORV_API platform_pair_handle *platform_pair_child_open(const char *name, int ignore_signals,
                                                       int blocking) ORV_NOT_NULL(1, name)
    ORV_RELEASED_BY(platform_pair_close) ORV_MUST_USE;

/** @} */

/**
 * @defgroup pair_exchange Sending and receiving
 *
 * A stream of bytes in both directions.
 * @{
 */

/**
 * Sends bytes with one send() call.
 *
 * @param ph     a valid handle
 * @param buffer the bytes
 * @param length how many; a negative length is refused with EINVAL
 * @return the bytes that the system took, which may be fewer than `length` (the rest is the
 *         caller's); 0 when nothing was sent. Then errno is the system's, and the handle saves it
 *         unless it is EAGAIN: a non-blocking connection without room leaves the saved errno
 *         alone.
 *
 * Sending 0 bytes returns 0 as well and saves whatever errno held before the call: do not send
 * nothing. SIGPIPE is raised when the other side is gone, unless it is ignored (see the open
 * calls); where it is, EPIPE is saved.
 */
ORV_API int platform_pair_send(platform_pair_handle *ph, const void *buffer, int length)
    ORV_NOT_NULL(1, ph) ORV_READS(2, 3);

/**
 * Receives bytes with one recv() call.
 *
 * @param ph     a valid handle
 * @param buffer room for `length` bytes
 * @param length how many at most; a negative length is refused with EINVAL
 * @return the bytes received; 0 at the end of the stream, when nothing is there yet
 *         (non-blocking) and on failure. The handle saves a failure's errno, EINTR included, but
 *         not EAGAIN; at the end of the stream it saves nothing. The saved errno is never
 *         cleared, so what tells the three apart is whether it changed, and errno after the call.
 */
ORV_API int platform_pair_recv(platform_pair_handle *ph, void *buffer, int length)
    ORV_NOT_NULL(1, ph) ORV_FILLS(2, 3);

/** @} */

/**
 * @defgroup pair_state Asking a handle
 *
 * What the handle knows, and whether the other side is alive.
 * @{
 */

/**
 * Tells the saved errno.
 * @param ph a valid handle
 * @return the error number; 0 for none, -1 for a hand-over value without two numbers
 */
ORV_API int platform_pair_errno(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells whether the saved errno is 0.
 * @param ph a valid handle
 * @return 1 or 0; 1 after an open that found no marker, too
 */
ORV_API int platform_pair_ok(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Gives strerror()'s text for the saved errno.
 * @param ph a valid handle
 * @return the text, also for 0 and -1; the next strerror() overwrites it
 */
ORV_API const char *platform_pair_errstr(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells the process id of the other side.
 * @param ph a valid handle
 * @return the id; 0 after a failed open
 */
ORV_API int platform_pair_companion_pid(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells the descriptor that is received from.
 * @param ph a valid handle
 * @return the descriptor, or -1. It stays the handle's own: do not close it.
 */
ORV_API int platform_pair_rx_fd(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells the descriptor that is sent to.
 * @param ph a valid handle
 * @return the descriptor, or -1; the same one as platform_pair_rx_fd()
 */
ORV_API int platform_pair_tx_fd(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells the companion's exit status.
 * @param ph a valid handle
 * @return the status, 0 to 255; 256 until platform_pair_companion_alive() collected it; 0 of a
 *         companion that a signal ended
 */
ORV_API int platform_pair_child_exit_status(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells the signal that ended the companion.
 * @param ph a valid handle
 * @return the signal; 0 for none, or until platform_pair_companion_alive() collected it
 */
ORV_API int platform_pair_child_term_signal(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells whether the hand-over value carried the hybrid marker "pid-rtx_fd_w".
 * @param ph a valid handle
 * @return 1 or 0
 */
ORV_API int platform_pair_hybrid_environment(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells whether this is the parent's side.
 * @param ph a valid handle
 * @return 1 or 0
 */
ORV_API int platform_pair_parent(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells whether this is the companion's side.
 * @param ph a valid handle
 * @return 1 or 0
 */
ORV_API int platform_pair_child(const platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells whether the other process is taken to be alive.
 *
 * On the parent's side an ended companion is collected: its exit status and signal go into the
 * handle, and from then on the answer is 0. A companion that ended but was collected by another
 * wait leaves no status: its exit status stays 256; and should its process id be in use again, the
 * answer is 1. On the companion's side the parent's process id is looked up; a parent of the hybrid
 * kind always counts as alive.
 *
 * @param ph a valid handle
 * @return 1 or 0
 */
ORV_API int platform_pair_companion_alive(platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Tells whether a handle is valid: not null and holding its own address.
 *
 * Nothing is asserted. A pointer to a handle that was closed must not be asked about.
 *
 * @param ph any pointer to a handle that was not closed; may be null
 * @return 1 or 0
 */
ORV_API int platform_pair_valid(const platform_pair_handle *ph);

/**
 * Describes a handle's state in one line without a newline.
 *
 * "handle intact; parent side; companion pid 4242; reads block; read FD 5; write FD 5; child
 * status 256; term signal 0; errno 0; orv: None" is such a line; on the companion's side there is
 * no child status. When a step of opening failed, the line is "orv: " and the error text, and
 * nothing else. A handle that does not hold its own address is described as corrupt, with both
 * addresses.
 *
 * @param ph     a handle, valid or corrupt, but not null
 * @param buffer at least PLATFORM_PAIR_DESCRIBE_SIZE bytes; or null for a static buffer, which
 *               the next such call overwrites
 * @return the buffer that was written
 */
ORV_API char *platform_pair_describe(const platform_pair_handle *ph, char *buffer)
    ORV_NOT_NULL(1, ph);

/** @} */

/**
 * @defgroup pair_end Ending
 *
 * Ending the companion, and closing the connection.
 * @{
 */

/**
 * Ends the companion and waits for it, from the parent's side.
 *
 * The result and the signals are those of platform_kill_and_wait(); the companion's exit status
 * and signal are consumed by the wait and not noted in the handle. After a failed open there is
 * no companion, and the result is 0.
 *
 * @param ph a valid handle
 * @return 1 or 0; 0 on the companion's side, where nothing is done
 */
ORV_API int platform_pair_kill_child(platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/**
 * Closes the connection and frees the handle.
 *
 * The other process is neither signalled nor waited for: a parent that has not collected its
 * companion does so by platform_wait_child() with the id it noted before. A connection of the
 * hybrid kind is shut down in both directions first; any other stays open where somebody else
 * inherited it. On a socket pair the one descriptor is closed twice, so no other thread may be
 * opening files meanwhile. errno is left alone.
 *
 * @param ph a valid handle, which is gone afterwards
 * @return 1
 */
ORV_API int platform_pair_close(platform_pair_handle *ph) ORV_NOT_NULL(1, ph);

/** @} */
/** @} */

/**
 * @defgroup child_processes Child processes
 *
 * Starting programs, waiting for them and ending them, and what goes with it: a descriptor on the
 * null device and the blocking mode of descriptors. A failing call leaves the system's errno.
 *
 * @code
 * #include <orv/platform.h>
 * #include <unistd.h>
 *
 * int main(void) {
 *   int pid = platform_spawn_list("tar", "tar", "-xf", "parts.tar", NULL);
 *   if (pid == 0)
 *     _exit(127); // in the child: tar could not be run
 *   int status = -1;
 *   if (pid > 0 && platform_wait_child(pid, &status) == pid && status == 0)
 *     puts("unpacked");
 *   return status;
 * }
 * @endcode
 * @{
 */

/**
 * Starts a program in a child process.
 *
 * @param program the program; a bare name is searched for on PATH
 * @param argv    the null-ended vector for the program, its name first by custom
 * @param std_fds three descriptors that are duplicated onto the child's 0, 1 and 2, one after the
 *                other, or null for none. A negative entry keeps the child's own. The originals
 *                stay open in the child; a 0, 1 or 2 out of its place is read after the earlier
 *                ones were replaced.
 * @return the child's process id; -1 when no child could be made (there is one attempt); and **0
 *         in the child** when the program could not be run: the caller's code then runs twice,
 *         and the child must end itself, with _exit(), so that buffered output is not written
 *         twice.
 */
ORV_API int platform_spawn_fds(const char *program, char *const *argv,
                               const int *std_fds) ORV_MUST_USE;

/**
 * Does what platform_spawn_fds() does, without descriptors: the child inherits all.
 * @param program the program; a bare name is searched for on PATH
 * @param argv    the null-ended vector for the program, its name first by custom
 * @return as platform_spawn_fds(), with the 0 in a child whose program could not be run
 */
ORV_API int platform_spawn(const char *program, char *const *argv) ORV_MUST_USE;

/**
 * Starts a program with a null-ended list of arguments, and with the null device for its standard
 * input, output and error.
 *
 * A list whose first argument is null is empty. Up to 8191 arguments are taken; a further one
 * ends the process by the assertion "idx < 8192". Where the null device cannot be opened the
 * child keeps its own descriptors.
 *
 * @param program  the program; a bare name is searched for on PATH
 * @param arg0,... the program's arguments, its name first by custom, ended by null
 * @return as platform_spawn_fds(), with the 0 in a child whose program could not be run
 */
ORV_API int platform_spawn_list_quiet(const char *program, const char *arg0,
                                      ...) ORV_SENTINEL ORV_MUST_USE;

/**
 * Does what platform_spawn_list_quiet() does, but the child inherits the standard descriptors.
 * @param program  the program; a bare name is searched for on PATH
 * @param arg0,... the program's arguments, its name first by custom, ended by null
 * @return as platform_spawn_fds(), with the 0 in a child whose program could not be run
 */
ORV_API int platform_spawn_list(const char *program, const char *arg0,
                                ...) ORV_SENTINEL ORV_MUST_USE;

/**
 * Waits until a child process ends.
 *
 * Each wait that fails is reported into the trace as "waitpid: : " and the system's text. After
 * EINTR and EAGAIN the wait begins again, as often as it takes, with errno 0.
 * @param pid    the child, or what else waitpid() understands
 * @param status where to store the status as waitpid() gives it, or null; untouched on failure,
 *               so let it start as something that counts as failure
 * @return waitpid()'s result: the process id, or -1 with errno set
 */
ORV_API int platform_wait_child(int pid, int *status);

/**
 * Looks whether a child process has ended, without waiting, and collects it if so.
 *
 * @param pid         the child
 * @param exit_status set to its exit status, 0 to 255, if it exited; else to 0. May be null.
 * @param term_signal set to the signal that ended it, if one did; else to 0. May be null.
 * @return `pid` when the child has ended; 0 while it runs; -1 with errno set when it is no child.
 *         For a `pid` that stands for several (-1, say) the child that was collected: its status
 *         is lost.
 */
ORV_API int platform_child_status(int pid, int *exit_status, int *term_signal);

/**
 * Ends a child process and waits for it.
 *
 * SIGTERM is sent; SIGKILL only where SIGTERM could not be sent. A child that survives SIGTERM is
 * therefore waited for as long as it runs.
 * @param pid the child. 0 and -1, which mean many processes to the system and are what a failed
 *            spawn leaves, are refused: 0 with ESRCH.
 * @return 1, also when the wait failed; 0 with errno set when no signal could be sent
 */
ORV_API int platform_kill_and_wait(int pid);

/**
 * Does the same as platform_kill_and_wait().
 * @param pid the child
 * @return as platform_kill_and_wait()
 */
ORV_API int platform_kill_and_wait_child(int pid);

/**
 * Takes a reference to the process-wide descriptor on the null device, open for reading and
 * writing.
 *
 * @return the descriptor, the same for all until the last reference is released; not to be
 *         closed. -1 with errno set, and no reference, when it cannot be opened.
 */
ORV_API int platform_null_fd_acquire(void);

/**
 * Releases a reference; the last one closes the descriptor.
 *
 * @param fd what platform_null_fd_acquire() returned; for any other descriptor nothing is done
 * @return the references left; a release too many leaves 0
 */
ORV_API int platform_null_fd_release(int fd);

/**
 * Tells whether a descriptor is in blocking mode.
 * @param fd the descriptor
 * @return 1; 0 if not, and for one that is not open
 */
ORV_API int platform_fd_is_blocking(int fd);

/**
 * Switches a descriptor's blocking mode; its other status flags are kept.
 *
 * The mode belongs to the open file: it changes for every descriptor and process that shares it.
 * @param fd       the descriptor
 * @param blocking nonzero for blocking, 0 for non-blocking
 * @return 0, or -1 with errno set when the system refused
 */
ORV_API int platform_fd_set_blocking(int fd, int blocking);

/** @} */

/**
 * @defgroup socket_messages Sockets and framed messages
 *
 * TCP sockets on "localhost", and messages of text lines over any stream socket.
 *
 * On the wire a line is its text followed by CR LF, and an empty line closes a message. The lines
 * "A" and "B" are the bytes A CR LF B CR LF CR LF. A message has at least one line; only the first
 * may be empty, because any later empty line is the end. A line feed or a carriage return alone
 * ends nothing. Text to be sent should hold neither of them: nothing is quoted.
 *
 * Received bytes collect in one process-wide buffer, the installed one. Complete messages are cut
 * there in place and handed to a handler; what follows a message stays for the next call. The
 * buffer is never enlarged: bytes that would reach its capacity end the process by an assertion,
 * so make it larger than the longest message that may come, plus 8192 bytes for what follows it.
 *
 * A descriptor may have any number, also one of 1024 and more. Failures that the system reports
 * leave its errno; those that are said to be reported also go through diag_perror(). One thread.
 *
 * @code
 * #include <orv/platform.h>
 *
 * static int handle(int sock, char *first, char **further) {
 *   for (int i = 0; further[i] != NULL; i++)
 *     printf("%s: %s\n", first, further[i]);
 *   return platform_sock_send_message(sock, "thanks", NULL); // 0, a failed send, ends the loop
 * }
 *
 * int main(void) {
 *   int port;
 *   int listening = platform_server_sock_open(5000, 5100, &port);
 *   if (listening < 0)
 *     return 1;
 *   printf("port %d\n", port);
 *   int sock = platform_sock_accept(listening); // closes the listening socket
 *   if (sock < 0)
 *     return 1;
 *   platform_msgbuf *buffer = platform_msgbuf_create(100000);
 *   platform_set_message_buffer(buffer);
 *   platform_message_loop(sock, handle, NULL, 0); // until the peer closes
 *   platform_set_message_buffer(NULL);
 *   platform_msgbuf_free(buffer);
 *   return platform_sock_close(sock);
 * }
 * @endcode
 * @{
 */

/**
 * @defgroup socket_setup Setting sockets up
 *
 * Listening, accepting, connecting, closing.
 * @{
 */

/**
 * Opens a socket that listens on "localhost", on the first free port of a range.
 *
 * The ports are tried in order. One that cannot be bound or listened on is passed over; no address
 * reuse is asked for, so a port that an earlier connection still holds counts as taken. A lookup
 * of "localhost" that fails, or that first finds something else than an IPv4 or IPv6 address that
 * is not multicast, fails the whole call. So does reaching a port outside 0 to 65535.
 *
 * @param first    the first port. Port 0 lets the system pick one, but `port_out` then tells 0.
 * @param end      the port after the last one; a range that is empty fails at once
 * @param port_out receives the port, or null; untouched on failure
 * @return the listening socket, for one connection: an accept call closes it. On failure -1,
 *         reported as "server sock open failed ". errno is the failure of the last port,
 *         EADDRNOTAVAIL after a lookup that found nothing of use and for a port out of range, or
 *         EINVAL for an empty range.
 *
 * The lookup behind a socket that was opened is never released.
 */
ORV_API int platform_server_sock_open(int first, int end, int *port_out) ORV_MUST_USE;

/**
 * Accepts one connection, and closes the listening socket, whether or not one was accepted.
 *
 * Every failed attempt is reported as "accept". After EINTR and EAGAIN the next follows at once, up
 * to 500 in all; so on a listening socket that does not block use
 * platform_sock_accept_timeout(), which waits first.
 *
 * The socket sends without delay (TCP_NODELAY), where that can be set.
 *
 * @param listening the listening socket
 * @return the connected socket, which the caller closes; or -1, with errno of the last attempt
 */
ORV_API int platform_sock_accept(int listening) ORV_MUST_USE;

/**
 * Waits for a connection and then does what platform_sock_accept() does.
 *
 * @param listening the listening socket
 * @param seconds   the longest wait, in whole seconds; 0 does not wait, a negative one fails. A
 *                  signal that is handled meanwhile begins the wait anew.
 * @return the connected socket; -2 when the time has passed, with the listening socket still open;
 *         -1 on failure. A failed wait, which only a bad descriptor, a negative time or want of
 *         memory brings about, is reported as "select failed" and leaves the listening socket as
 *         it was; a failed accept has closed it.
 */
ORV_API int platform_sock_accept_timeout(int listening, int seconds) ORV_MUST_USE;

/**
 * Connects to a host and port over TCP and IPv4.
 *
 * One socket is made, and tried with each address of the host in turn. It sends without delay
 * (TCP_NODELAY), where that can be set. The host's lookup is never released.
 *
 * @param host a name or a dotted address; null stands for the host itself
 * @param port the port, 0 to 65535
 * @return the connected socket, which the caller closes; or -1, with errno of the last address, or
 *         EADDRNOTAVAIL when the lookup found none or the port is out of range. Nothing is
 *         reported.
 */
ORV_API int platform_sock_connect(const char *host, int port) ORV_MUST_USE;

/**
 * Shuts a socket down in both directions and closes it.
 *
 * The connection ends even when other processes hold the same socket.
 *
 * @param sock the socket
 * @return the result of the close: 0, or -1 with errno
 */
ORV_API int platform_sock_close(int sock);

/** @} */

/**
 * @defgroup socket_send Sending
 *
 * No send raises SIGPIPE. Each blocks, on a socket that blocks, until the peer has made room.
 * After a failure it is unknown how much went out: close the socket.
 * @{
 */

/**
 * Sends all bytes, in as many pieces as it takes.
 *
 * @param sock   a connected socket
 * @param bytes  the bytes
 * @param length how many; with 0 or less nothing is sent and 0 returned
 * @return the length; or -1 at the first failure, with errno. EINTR and EAGAIN are failures too:
 *         send over sockets that block, with signal handlers installed with SA_RESTART.
 */
ORV_API int platform_sock_send_all(int sock, const void *bytes, int length) ORV_READS(2, 3);

/**
 * Sends one line: the text and CR LF, together.
 *
 * Texts of up to 8189 characters are sent from the stack, longer ones from a block of the system's
 * allocator.
 *
 * @param sock a connected socket
 * @param text the line; null or empty sends the empty line that closes a message
 * @return 1 when the line went out whole, else 0 with errno: EMSGSIZE for a text so long that an
 *         int does not hold the length of its line
 */
ORV_API int platform_sock_send_line(int sock, const char *text);

/**
 * Sends a message: its lines, and the empty line that closes it.
 *
 * The lines are gathered and leave together, as far as they fit 8 KB; a longer one goes by itself.
 *
 * @param sock   a connected socket
 * @param first  the first line; null sends an empty one
 * @param second the second line, or null for a message of one line: no argument is looked at after
 *               a null second
 * @param ...    further lines (const char *), ended by a null pointer. An empty line after the
 *               first ends the message for the peer, and what follows begins another.
 * @return 1 when the whole message went out, else 0 with errno; nothing is sent after a failure
 */
ORV_API int platform_sock_send_message(int sock, const char *first, const char *second, ...);

/** @} */

/**
 * @defgroup socket_receive Receiving
 *
 * Receiving bytes, at once or after a wait.
 * @{
 */

/** What a wait calls between its slices; the place for periodic work. */
typedef void (*platform_idle_callback)(void);

/**
 * Receives once, as the system's recv() does.
 *
 * @param sock   a connected socket
 * @param buffer receives up to `length` bytes
 * @param length the buffer's size
 * @return -3 when the length is 0 or less; else what recv() returned: the number of bytes, 0 at the
 *         end of the stream, -1 with errno on failure
 */
ORV_API int platform_sock_recv(int sock, void *buffer, int length) ORV_FILLS(2, 3);

/**
 * Receives once, after having waited for something to receive if that is wanted.
 *
 * The wait is a sequence of slices of a tenth of a second without an overall limit. It ends when
 * something is ready, and only then: close the connection from the other side, or have the idle
 * callback shut it down, to end it early. Signals do not.
 *
 * @param sock   a connected socket
 * @param buffer receives up to `length` bytes
 * @param length the buffer's size
 * @param wait   nonzero: waits; 0: only looks whether something is ready
 * @param idle   called after each look, whatever it found, also when something is ready; or null.
 *               What it does to errno does not matter.
 * @return the number of bytes, more than 0; 0 when the length is 0 or less; -1 on failure and at
 * the end of the stream (errno does not tell which); -2 when nothing was ready and `wait` is 0. A
 * failed wait is reported as "select failed"; a failed receive is not reported.
 */
ORV_API int platform_sock_recv_wait(int sock, void *buffer, int length, int wait,
                                    platform_idle_callback idle) ORV_FILLS(2, 3);

/** @} */

/**
 * @defgroup socket_buffer The message buffer
 *
 * Where received bytes collect until they make a message.
 * @{
 */

/**
 * A message buffer: pBuf <= p1 <= p2, and p2 - pBuf < len. The byte after the data is always spare.
 *
 * Programs may look at the fields, and fill the buffer themselves within these bounds. An idle
 * callback that does so moves `p2` or resets the buffer: bytes that it changes in place, with all
 * pointers left where they were, may already have been searched.
 */
typedef struct platform_msgbuf {
  char *pBuf;  /**< the storage, from the system's allocator; null for none */
  int32_t len; /**< its capacity in bytes; up to one byte less is filled */
  char *p1;    /**< the first byte that has not been consumed */
  char *p2;    /**< the end of the received bytes */
} platform_msgbuf;

/**
 * The installed buffer, or null, as it is at first. Set it with platform_set_message_buffer().
 */
extern ORV_API platform_msgbuf *gMsgBuf;

/* Declared ahead, see below, for the call whose result it releases. */
ORV_API void platform_msgbuf_free(platform_msgbuf *buffer);

/**
 * Creates an empty message buffer.
 *
 * @param capacity its size in bytes; a negative one makes a buffer of capacity 0, which takes no
 *                 byte
 * @return the buffer, which the caller frees with platform_msgbuf_free(); null, with errno, when
 *         the system refuses the storage
 */
ORV_API platform_msgbuf *platform_msgbuf_create(int capacity)
    ORV_RELEASED_BY(platform_msgbuf_free) ORV_MUST_USE;

/**
 * Empties a buffer; what it held is lost.
 * @param buffer the buffer; not null
 */
ORV_API void platform_msgbuf_reset(platform_msgbuf *buffer) ORV_NOT_NULL(1, buffer);

/**
 * Frees a buffer: its storage, when there is any, and the record.
 *
 * The installed buffer is uninstalled first, so a handler may free the buffer it was called from;
 * the lines it was given are gone then.
 *
 * @param buffer the buffer; null is ignored
 */
ORV_API void platform_msgbuf_free(platform_msgbuf *buffer);

/**
 * Installs a buffer, or none. The one before is not freed: it belongs to its creator.
 * @param buffer the buffer to install; null for none
 */
ORV_API void platform_set_message_buffer(platform_msgbuf *buffer);

/** @} */

/**
 * @defgroup socket_dispatch Handing messages over
 *
 * A message of more than 2047 lines is not handed over. It is consumed whole, a warning
 * (msg_warn()) names the limit, and the search goes on with what follows.
 * @{
 */

/**
 * What is called for each message.
 *
 * The lines are strings inside the installed buffer, valid until the handler returns or has one
 * of these calls change the buffer; the table is valid until it returns. A zero byte that the peer
 * sent ends its line early.
 *
 * The handler may send, install another buffer, reset or free the present one, and get further
 * messages itself, which moves the bytes its own lines stand in.
 *
 * @param sock    the socket that the message was asked for on
 * @param first   the first line, may be empty
 * @param further the lines after it, ended by null
 * @return 0 ends platform_message_loop()
 */
typedef int (*platform_message_handler)(int sock, char *first, char **further);

/**
 * Receives once, up to 8192 bytes, and appends them to the installed buffer.
 *
 * Blocks when nothing is there. Ends the process by an assertion when the bytes would reach the
 * buffer's capacity.
 *
 * @param sock a connected socket
 * @return what the receive returned: the number of bytes appended, 0 at the end of the stream, -1
 *         with errno on failure. Without a buffer nothing is received: -1 with ENOBUFS.
 */
ORV_API int platform_recv_messages(int sock);

/**
 * Hands every complete message of the installed buffer over, without receiving.
 *
 * Each call searches the buffer from its first byte. To receive one long message in many pieces
 * use platform_get_one_message(), which looks at each byte once.
 *
 * @param sock    passed on to the handler
 * @param handler called once a message; its results are ignored
 */
ORV_API void platform_dispatch_messages(int sock, platform_message_handler handler);

/**
 * Hands one message over: the next in the installed buffer, or else one that is received.
 *
 * A message that is in the buffer is used before anything is received. Ends the process by an
 * assertion when received bytes would reach the buffer's capacity. Uses about 24 KB of stack.
 *
 * @param sock    a connected socket
 * @param handler called with the message
 * @param idle    called after each look for something to receive, as in platform_sock_recv_wait();
 *                or null. It may use the buffer and install another.
 * @param wait    nonzero: waits for a message; 0: takes only what is ready
 * @return the handler's result; or 0 when no message could be completed: end of stream, failure,
 *         nothing ready, no buffer. Have the handler return something else to tell them apart.
 */
ORV_API int platform_get_one_message(int sock, platform_message_handler handler,
                                     platform_idle_callback idle, int wait);

/**
 * Hands messages over until the handler returns 0, the peer closes or a receive fails.
 *
 * @param sock    a connected socket, which stays open
 * @param handler called once a message
 * @param idle    called after each look for something to receive; or null
 * @param drain   nonzero: first discards what is waiting in the socket (not what is in the buffer),
 *                for as long as something is, without regard to where a message begins
 * @return 0. Without an installed buffer, after draining, the warning (msg_warn())
 *         "platform_message_loop has no buffer set!!!\n".
 */
ORV_API int platform_message_loop(int sock, platform_message_handler handler,
                                  platform_idle_callback idle, int drain);

/** @} */
/** @} */

/**
 * @defgroup orv_files Files and paths
 *
 * The file system of a Linux process in one place: the working directory, path names, status
 * tests, small changes, wildcard listings, whole trees and file signatures.
 *
 * - A yes/no question answers 1 or 0 and reports nothing. Links are followed.
 * - A call with a `buffer` parameter writes into it when it is given, and returns it. With a null
 *   `buffer` it returns a new block, which the caller releases with orv_free(). The caller's buffer
 *   may be the argument itself where nothing else is said.
 * - A path has up to 4096 characters, so a buffer for one has 4097 bytes; the system itself
 * resolves no path of more than 4095 characters.
 * - A null path counts as the empty path, which names no file, unless a call says otherwise.
 * - A call that fails leaves the system's errno for its caller. Only platform_set_cwd() and the
 * wait for a tool report anything, and those into the trace, through diag_perror().
 * - Refused storage is the matter of the allocation library; where its failure handler returns
 * null, the call returns null or 0.
 *
 * @code
 * #include <orv/alloc.h>
 * #include <orv/platform.h>
 *
 * int main(void) {
 *   platform_file_list_t sources;
 *   if (platform_list_dir("src/", "*.c", &sources)) {
 *     for (uint64_t i = 0; i < sources.count; i++) {
 *       char *name = platform_base_name(sources.paths[i], NULL);
 *       printf("%s: %lld bytes\n", name, (long long)platform_file_size(sources.paths[i]));
 *       orv_free(name);
 *     }
 *     platform_free_dir_list(&sources);
 *   }
 *   return 0;
 * }
 * @endcode
 * @{
 */

/**
 * @defgroup orv_paths Working directory and path names
 *
 * Where the process stands, and what the parts of a path are.
 * @{
 */

/**
 * Tells the working directory.
 * @param buffer where to write it, or null for a new block of 4097 bytes
 * @param size   the bytes of `buffer`; not looked at when `buffer` is null. 0 and less is refused
 *               like any size that is too small (EINVAL, ERANGE).
 * @return what getcwd() returned: the buffer, or null with errno set. A block that the call took
 *         itself is not released on failure: a program that may stand in a removed directory gives
 *         a buffer of its own.
 */
ORV_API char *platform_get_cwd(char *buffer, int size);

/**
 * Changes the working directory.
 * @param path the new working directory
 * @return 1; 0 with errno set when the system refused, which is then reported into the trace as
 *         "platform_set_cwd", a colon and the system's text
 */
ORV_API int platform_set_cwd(const char *path);

/**
 * Gives the directory part of a path: all that stands before its last "/".
 *
 * "/a/b/c" gives "/a/b" and "/a/b/" gives "/a/b". A path without "/" gives the empty text, and so
 * does one whose only "/" is its first character: "/usr" gives "", not "/".
 * @param path   the path; it need not exist. Null gives null.
 * @param buffer room for the whole path and its terminator (it is copied whole, then cut), or null
 *               for a new block of that size
 * @return the buffer that was written, or the new block, to be given back with orv_free(); null for
 *         a null path
 */
ORV_API char *platform_dir_name(const char *path, char *buffer);

/**
 * Gives the base name of a path: what stands after its last "/", or all of it.
 *
 * The base name of "/a/b/" and of "/" is empty.
 * @param path   the path; it need not exist. Null gives null.
 * @param buffer room for the base name and its terminator, or null for a new block of that size
 * @return the buffer that was written, or the new block, to be given back with orv_free(); null for
 *         a null path
 */
ORV_API char *platform_base_name(const char *path, char *buffer);

/**
 * Gives the extension of a path's base name: its last "." and what follows.
 *
 * "a.b.c" gives ".c", "a." gives ".". A "." that begins the name does not count: ".profile" has no
 * extension, but the second dot of ".." begins one.
 * @param path   the path; it need not exist. Null gives null.
 * @param buffer room for the extension and its terminator, or null for a new block of that size
 * @return the extension, or null when there is none; `buffer` is then not written
 */
ORV_API char *platform_extension(const char *path, char *buffer);

/**
 * Gives a path's base name without its extension: "/src/a.tar.gz" gives "a.tar".
 *
 * ".profile" stays whole, and ".." gives ".".
 * @param path   the path; it need not exist. Null gives null.
 * @param buffer room for the whole base name and its terminator, or null for a new block of that
 *               size
 * @return the buffer that was written, or the new block, to be given back with orv_free(); null for
 *         a null path
 */
ORV_API char *platform_root_name(const char *path, char *buffer);

/**
 * Resolves a path: absolute, without links, "." and "..", by realpath().
 * @param path   the path of something that exists
 * @param buffer at least 4096 bytes, or null for a new block of 4097 bytes
 * @return the resolved path; null with errno set when the system cannot resolve it. A block that
 *         the call took is then released; what a caller's buffer holds then is not defined.
 */
ORV_API char *platform_real_path(const char *path, char *buffer);

/**
 * Tells whether a path begins with "/".
 * @param path the path; may be null
 * @return 1 or 0; 0 for null
 */
ORV_API int platform_is_absolute(const char *path);

/**
 * Resolves a path like platform_real_path(), or leaves it as it is.
 * @param path the path
 * @return the resolved path in a static buffer, which every further call of this one overwrites,
 *         also one that fails; `path` itself when it cannot be resolved. Not to be freed. Do not
 *         pass the result of an earlier call.
 */
ORV_API const char *platform_canonical_path(const char *path);

/**
 * Gives the path that leads from a directory to another file.
 *
 * A path that begins with "/" is taken as it stands, without a look at the file system; any other
 * is resolved first and must exist. Only two empty paths are not resolved: they are equal. What
 * both begin with, character by character, is dropped:
 *
 * | from     | to       | result      |
 * |----------|----------|-------------|
 * | "/a/b/c" | "/a/x/y" | "../../x/y" |
 * | "/a/b/c" | "/a/b"   | "../../b"   |
 * | "/a/b"   | "/a/b/c" | "c"         |
 * | "/a/b"   | "/a/b"   | "."         |
 * | ""       | ""       | "."         |
 * | "/a/bx"  | "/a/b/c" | "c"         |
 * | "/"      | "/x"     | "../x"      |
 * | "/a/"    | "/a/x"   | "../x"      |
 * | "/a"     | "/a/"    | ""          |
 *
 * The last four rows are what the character-wise comparison makes of such paths, and not what a
 * change into `from` would need. For a dependable answer give resolved directories without a
 * trailing "/" that are not the root, none of which has the other's name as the beginning of its
 * own.
 * @param from   the directory to start from
 * @param to     what to reach
 * @param buffer 4097 bytes, or null for a new block of that size. Null is returned before anything
 *               is written or allocated.
 * @return the relative path; null with errno set when a path cannot be resolved, or when a path of
 *         more than 4095 characters is given or a result of more than 4096 would be made
 *         (ENAMETOOLONG)
 */
ORV_API char *platform_relative_path(const char *from, const char *to, char *buffer);

/**
 * Resolves a path as it is seen from a directory.
 *
 * The working directory of the whole process is changed and changed back for this. When the change
 * fails, that is reported as platform_set_cwd() does, and the path is resolved from where the
 * process stands: ask platform_is_dir() first when that would mislead. A change back that fails is
 * reported too, and leaves the process in the directory.
 * @param directory the directory to look from
 * @param path      the path to resolve
 * @param buffer    at least 4096 bytes, or null for a new block of 4097 bytes
 * @return the result of platform_real_path(). Also null, and nothing is changed, when the present
 *         working directory cannot be told or has more than 4095 characters.
 */
ORV_API char *platform_real_path_in(const char *directory, const char *path, char *buffer);

/** @} */

/**
 * @defgroup orv_file_status Status of a file
 *
 * Questions about one path.
 * @{
 */

/**
 * Tells when a file was last modified.
 * @param path the path; null names no file
 * @return the time in seconds since 1970; 0 when the status cannot be read
 */
ORV_API int64_t platform_file_mtime(const char *path);

/**
 * Tells the size of a file in bytes.
 * @param path the path; null names no file
 * @return the bytes; -1 when the status cannot be read
 */
ORV_API int64_t platform_file_size(const char *path);

/**
 * Tells the user name of a file's owner.
 * @param path the path; null names no file
 * @return the name, in storage of the system's password lookup that the next lookup overwrites (not
 *         to be freed); null when the status cannot be read or the owner has no password entry
 */
ORV_API const char *platform_file_owner(const char *path);

/**
 * Tells whether a path leads to a directory.
 * @param path the path; null names no file
 * @return 1 or 0
 */
ORV_API int platform_is_dir(const char *path);

/**
 * Tells whether a path leads to anything. A dangling link leads to nothing.
 * @param path the path; null names no file
 * @return 1 or 0
 */
ORV_API int platform_exists(const char *path);

/**
 * The same as platform_exists().
 * @param path the path; null names no file
 * @return 1 or 0
 */
ORV_API int platform_file_exists(const char *path);

/**
 * Tells whether the process's real user may read a file, by access().
 * @param path the path; null names no file
 * @return 1 or 0
 */
ORV_API int platform_is_readable(const char *path);

/**
 * Tells whether the process's real user may write a file, by access().
 * @param path the path; null names no file
 * @return 1 or 0
 */
ORV_API int platform_is_writable(const char *path);

/**
 * Tells whether the process's real user may execute a file or search a directory.
 * @param path the path; null names no file
 * @return 1 or 0
 */
ORV_API int platform_is_executable(const char *path);

/**
 * Tells whether a path leads to a directory that the process's real user may write.
 * @param path the path; null names no file
 * @return 1 or 0
 */
ORV_API int platform_is_writable_dir(const char *path);

/**
 * Tells how many bytes of a file system unprivileged users may still fill.
 *
 * Counted as the free blocks times the block size (f_bavail times f_bsize); on a file system that
 * counts in another fragment size (f_frsize), use statvfs() itself.
 * @param path any path on the file system
 * @return the bytes; all bits set ((uint64_t)-1) for a null or empty path; all but the lowest
 *         ((uint64_t)-2) with errno set when statvfs() fails
 */
ORV_API uint64_t platform_free_space(const char *path);

/** @} */

/**
 * @defgroup orv_file_changes Small changes
 *
 * Removing, renaming, copying, and making directories, within the process.
 * @{
 */

/**
 * Removes a file or an empty directory.
 * @param path the file or empty directory
 * @return 1; 0 when there is nothing at the path or the system refused. A dangling link counts as
 *         nothing and stays: unlink() removes it.
 */
ORV_API int platform_remove(const char *path);

/**
 * Renames a file or directory within its file system.
 * @param old_path what is there
 * @param new_path its new path; a file that is there is replaced
 * @return 1, or 0 with errno set
 */
ORV_API int platform_rename(const char *old_path, const char *new_path);

/**
 * Makes a directory with mode 0777 less the umask.
 * @param path the directory to make
 * @return 1, or 0 with errno set
 */
ORV_API int platform_mkdir(const char *path);

/**
 * The same as platform_mkdir().
 * @param path the directory to make
 * @return 1, or 0 with errno set
 */
ORV_API int platform_make_dir(const char *path);

/**
 * Removes an empty directory.
 * @param path the directory
 * @return 1, or 0 with errno set
 */
ORV_API int platform_rmdir(const char *path);

/**
 * Copies the bytes of a file; a destination that is new gets mode 0666 less the umask.
 *
 * Both files are opened first: the destination is emptied, or made, even when the source cannot be
 * opened, and a file copied onto itself is left empty. What the writes return is not looked at, so
 * a full disk leaves a short copy and still the result 1: compare platform_file_size() of both
 * where that matters.
 *
 * @param source      the file to copy
 * @param destination the file to write
 * @return 1 when the end of the source was reached; 0 with errno set when a file could not be
 *         opened or a read failed (the copy then holds what was read before)
 */
ORV_API int platform_copy_file(const char *source, const char *destination);

/**
 * Removes a directory and everything below it, without a child process.
 *
 * The contents are found with platform_list_dir() and the patterns "*" and ".*", and what is said
 * there holds here too:
 *
 * - wildcards and backslashes in the names of the directory and of those below it are interpreted,
 *   so that the entries of a *different* directory may be listed and removed;
 * - the listings leave small blocks allocated, four for every directory whose path does not end in
 *   "/", those below included.
 *
 * Links to directories are followed: the directory behind a link is emptied, the link itself then
 * stops the removal. A dangling link is passed over and keeps its directory from being removed, and
 * a link within the tree is dangling when its file has been removed before it. platform_rm_rf() has
 * none of these traits.
 * @param path a directory that the process may write
 * @return 1 when the directory is gone; 0 when it is not a writable directory, or at the first
 *         entry that could not be removed: what was removed before stays removed
 */
ORV_API int platform_remove_tree(const char *path);

/** @} */

/**
 * @defgroup orv_listing Listing by wildcard
 *
 * The entries of a directory that match a pattern.
 * @{
 */

/**
 * The result of a listing. Cleared to zero by the caller, filled by platform_list_dir() and
 * released as a whole by platform_free_dir_list().
 */
typedef struct platform_file_list_t {
  uint64_t count; /**< paths that matched */
  char **paths;   /**< the paths, each with its directory, sorted by the locale; then a null */
  glob_t *glob;   /**< what owns the paths; null while nothing is held */
} platform_file_list_t;

/**
 * Lists the entries of a directory that match a pattern.
 *
 * The directory and the pattern are joined with a "/" and handed to glob(). Wildcards and
 * backslashes in the directory are therefore interpreted too: the entries of a directory named
 * "[a]" are found as "\\[a]", not as "[a]".
 * @param directory the directory; null or empty gives 0. One without a trailing "/" costs two small
 *                  blocks that stay allocated (the copies that the two-text join leaves), so give
 *                  it with its "/" where that counts.
 * @param pattern   a shell wildcard; null or empty means "*". "*" does not match names that begin
 *                  with "."; ".*" does, and gives the entries "." and ".." as well.
 * @param list      the record to fill; null gives 0. What it held before is overwritten, not
 *                  released.
 * @return 1 when something matched; 0, with the record untouched, when nothing did or the search
 *         failed
 */
ORV_API int platform_list_dir(const char *directory, const char *pattern,
                              platform_file_list_t *list);

/**
 * Releases a listing, with its paths.
 *
 * The fields keep their values, so a second call for the same listing would release it again: clear
 * the record to use it anew.
 * @param list the record; null, and a record that holds nothing, are ignored
 */
ORV_API void platform_free_dir_list(platform_file_list_t *list);

/**
 * Tells whether a name matches a shell wildcard, by fnmatch() without flags.
 *
 * Here "*" matches "/" and a leading "." too.
 * @param name    the name; null gives 0
 * @param pattern the wildcard; null or empty means "*"
 * @return 1 or 0
 */
ORV_API int platform_name_matches(const char *name, const char *pattern);

/** @} */

/**
 * @defgroup orv_tree_tools Trees through the system's tools
 *
 * Each call runs rm, cp or mv as a child process with the caller's standard streams and waits for
 * it. The tool is taken from "/bin", else from "/usr/bin", else from PATH. What it complains about
 * goes to standard error.
 *
 * A path that begins with "-" would be read as an option by the tool: give it as "./-name".
 *
 * When neither fixed path can be executed and PATH has no such tool, or when the system refuses to
 * execute it, the call returns in *two* processes. In the new one, a copy of the caller, it returns
 * 0 and the copy goes on running the caller's code. The caller waits for that copy, and its own
 * result is 1 if the copy ends with exit status 0. A program that must reckon with a system without
 * these tools makes sure of them first.
 * @{
 */

/**
 * Removes a file or a tree (rm -r -f). Links are removed, not followed.
 * @param path the file or tree
 * @return 1 when the tool ended with 0, also when there was nothing at the path; else 0, also when
 *         no process could be started
 */
ORV_API int platform_rm_rf(const char *path);

/**
 * Copies a file or a tree with its links, modes and times (cp -a).
 * @param source      the file or tree to copy
 * @param destination the new path, or an existing directory to copy it into
 * @return 1 when the tool ended with 0; else 0, also when no process could be started
 */
ORV_API int platform_cp_a(const char *source, const char *destination);

/**
 * Moves a directory (mv -f).
 * @param source      a directory that the process may write; anything else, a plain file too, is
 *                    refused and nothing is run
 * @param destination the new path, or an existing directory to move it into
 * @return 1 when the tool ended with 0; else 0, also when no process could be started
 */
ORV_API int platform_mv(const char *source, const char *destination);

/** @} */

/**
 * @defgroup orv_signatures File signatures
 *
 * A signature is a small record, passed by value, by which a program tells later whether a file has
 * changed:
 *
 * @code
 * #include <orv/platform.h>
 *
 * int main(void) {
 *   platform_file_sig_t seen = platform_file_sig("orv.conf");
 *   while (platform_sig_valid(seen)) {
 *     platform_sleep(1);
 *     if (platform_file_changed("orv.conf", seen)) {
 *       puts("changed");
 *       seen = platform_file_sig("orv.conf");
 *     }
 *   }
 *   return 0;
 * }
 * @endcode
 *
 * Times are in whole seconds: a change within the second of the signature that keeps the size may
 * go unnoticed.
 * @{
 */

/** What a file's status was. All fields of the signature of an unreadable status are 0. */
typedef struct platform_file_sig_t {
  uint32_t gid;   /**< the file's group (its owner is not kept) */
  uint32_t ctime; /**< last change of the status, seconds, the low 32 bits */
  uint32_t mtime; /**< last modification, seconds, the low 32 bits */
  uint32_t atime; /**< last access, seconds, the low 32 bits; never compared */
  uint32_t dev;   /**< device number, the low 32 bits */
  uint32_t ino;   /**< inode number, the low 32 bits */
  uint32_t mode;  /**< type and permission bits */
  uint64_t size;  /**< bytes */
  uint64_t check; /**< size XOR 0x404040, which tells a signature from zeros; never compared */
} platform_file_sig_t;

/**
 * Takes the signature of a file, links followed.
 * @param path the file
 * @return the signature; the empty one when the status is unreadable
 */
ORV_API platform_file_sig_t platform_file_sig(const char *path);

/**
 * Takes the signature of an open file.
 * @param fd the descriptor
 * @return the signature; the empty one when `fd` is not open
 */
ORV_API platform_file_sig_t platform_fd_sig(int fd);

/**
 * Takes the signature of an open stream's file.
 *
 * What the stream still buffers is not in the file yet.
 *
 * @param stream the stream
 * @return the signature; the empty one for null and for a stream without a descriptor
 */
ORV_API platform_file_sig_t platform_stream_sig(FILE *stream);

/**
 * Tells whether two signatures differ.
 *
 * `atime` and `check` are not compared: reading a file does not change it.
 *
 * @param a one signature
 * @param b the other
 * @return 1 or 0
 */
ORV_API int platform_sig_differs(platform_file_sig_t a, platform_file_sig_t b);

/**
 * Tells whether `check` fits `size`.
 * @param sig the signature
 * @return 1 or 0; 0 for the empty signature
 */
ORV_API int platform_sig_valid(platform_file_sig_t sig);

/**
 * Tells whether a file has another signature than before.
 *
 * A file that is gone has changed, unless it was gone before too.
 *
 * @param path    the file
 * @param earlier the signature that was taken before
 * @return 1 or 0
 */
ORV_API int platform_file_changed(const char *path, platform_file_sig_t earlier);

/**
 * Tells the same as platform_file_changed(), for an open descriptor.
 * @param fd      the descriptor
 * @param earlier the signature that was taken before
 * @return 1 or 0
 */
ORV_API int platform_fd_changed(int fd, platform_file_sig_t earlier);

/**
 * Tells the same as platform_file_changed(), for an open stream.
 * @param stream  the stream
 * @param earlier the signature that was taken before
 * @return 1 or 0
 */
ORV_API int platform_stream_changed(FILE *stream, platform_file_sig_t earlier);

/**
 * Tests the type and the owner's permissions in a signature.
 *
 * @param request the lowest two bits name a type (0 any, 1 regular file, 2 directory, 3 socket);
 *                0x100 asks for the owner's read, 0x200 for the write and 0x400 for the execute
 *                permission, in any combination. Other bits are ignored.
 * @param sig     the signature; who asks plays no part
 * @return 1 when the type and every permission asked for hold, else 0
 */
ORV_API int platform_sig_mode_test(int request, platform_file_sig_t sig);

/** @} */
/** @} */

/**
 * @defgroup process_info Process information
 *
 * Whether a process exists and how much memory it uses, read afresh from /proc by each call. No
 * call here keeps state or allocates: any thread may use them at any time (a failure's report goes
 * through the diagnostic log, which belongs to one thread).
 *
 * @code
 * #include <inttypes.h>
 * #include <orv/msg.h>
 * #include <orv/platform.h>
 *
 * int main(void) {
 *   uint64_t resident_kb;
 *   if (platform_process_memory(-1, NULL, &resident_kb))
 *     msg_print("This process uses %" PRIu64 " KB of memory.", resident_kb);
 *   return platform_process_exists(1) ? 0 : 1;
 * }
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
 * @return 1 with the sizes stored, or 0 with nothing stored after a report through diag_perror():
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

/**
 * Tells the size of a page of memory.
 * @return bytes
 */
ORV_API int platform_page_size(void);

/**
 * Tells the id of the calling process.
 * @return the id
 */
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
 * #include <orv/alloc.h>
 * #include <orv/msg.h>
 * #include <orv/platform.h>
 *
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
 * Carries out a debug request or logs the arguments: platform_debug_args() without a log name.
 *
 * @param argc the argument count of main; shortened when the command line holds a request
 * @param argv the argument vector of main; cut in place with the count
 */
ORV_API void platform_init_args(int *argc, char **argv) ORV_NOT_NULL(1, argc);

/**
 * Looks for a debug request in the command line, then in the environment, and carries it out; logs
 * the arguments unless the command line held one.
 *
 * Arguments 1 to 510 are searched for the marker; one further back is not seen. With a marker, all
 * arguments after it are the request, the count and the vector are cut in front of it, and, if the
 * request lets the program go on, the call returns **without logging the arguments** and without
 * looking at `ORV_DEBUG`. Without one, a value of `ORV_DEBUG` that is not empty is the request: the
 * variable is set to the empty string first, so that a program started by the request does not act
 * on it again. Then platform_log_args() is called.
 *
 * Returns unless the process was replaced. Ends the process with status 1, after a line on standard
 * error, when the request is not understood, cannot be carried out, or is too long: more than 4095
 * bytes after the marker (the value of `ORV_DEBUG` may have any length), and see
 * platform_debug_op().
 *
 * @param argc points to the argument count, which may be 0
 * @param argv the argument vector, ended by null; entry 0 may be null
 * @param log_name the name of the diagnostic log, see platform_log_args(); may be null
 */
ORV_API void platform_debug_args(int *argc, char **argv, const char *log_name)
    ORV_NOT_NULL(1, argc);

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
 * "%s" is the operation's word:
 *
 * - `"__ORV_DEBUG__ %s" not a recognized debug op.`
 * - `"__ORV_DEBUG__ %s" operands too long.` for a command line of "using" longer than 1023 bytes
 *   or more than 256 operands of any operation: nothing is ever cut into another command
 * - `"__ORV_DEBUG__ %s" program arguments too long.` when they do not fit `ORV_EXE_PARMS`, see
 *   platform_debug_export()
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
 * diag_open_stamped_log(). As in every trace text, "%%" in an argument comes out as "%"; any other
 * percent sign is written as it is.
 *
 * @param argc points to the argument count, which may be 0
 * @param argv the argument vector
 * @param log_name a name that is used as it is; may be null
 */
ORV_API void platform_log_args(int *argc, char **argv, const char *log_name) ORV_NOT_NULL(1, argc);

/** Runs at the start of platform_log_args(), and does nothing: a place for a debugger to stop at.
 */
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
ORV_API int platform_setenv(const char *name, const char *value) ORV_NOT_NULL(1, name)
    ORV_NOT_NULL(2, value);

/**
 * Reads an environment variable.
 *
 * @param name the variable, not null
 * @return its value, which belongs to the environment, or null when it is not set
 */
ORV_API char *platform_getenv(const char *name) ORV_NOT_NULL(1, name);

/**
 * Reads the name of the distribution: the first word of the file `dist/DISTRIBUTION` in the
 * directory that `ORV_DIST` names, cut after 127 bytes.
 *
 * Each call that finds the file **leaves it open** (not for programs that the process becomes or
 * starts): ask once and keep a copy. A file without a word
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
#undef ORV_MUST_USE
#undef ORV_RELEASED_BY
#undef ORV_READS
#undef ORV_FILLS
#undef ORV_NOT_NULL
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

#endif
