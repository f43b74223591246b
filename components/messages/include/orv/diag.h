/**
 * @defgroup diag Diagnostic log
 *
 * The diagnostic log: a plain trace print, the log files that give it a destination, and the report
 * of a failed system call.
 *
 * A trace goes to the streams of the message type MSG_DIAG (<orv/msg.h>). At first there is none,
 * so tracing costs one test and writes nothing. Three things switch it on:
 *
 *   - diag_set_dir(): a log of this process in a directory, "orv<process id><login name>.log";
 *   - diag_open_stamped_log(): a log with the time in its name, or standard output or standard
 *     error, as the user asks for in the environment (platform_init_args() makes this call at
 *     start-up);
 *   - msg_add_stream(MSG_DIAG, stream): any stream that the program has open.
 *
 * All calls share process-wide state without locks: use them from one thread.
 *
 * A program that traces into a directory of its own and reports a failed call:
 *
 * @code
 * #include <fcntl.h>
 * #include <orv/diag.h>
 * #include <orv/msg.h>
 *
 * int main(void) {
 *   msg_set_sync(MSG_DIAG, 1);    // every line is on disk before the program goes on
 *   diag_set_dir("/var/tmp");     // now /var/tmp/orv<pid><login>.log takes the trace
 *   diag_printf("round %d of %d\n", 1, 10);
 *   if (open("/no/such/file", O_RDONLY) < 0)
 *     diag_perror("open");        // "open: No such file or directory"
 *   return 0;
 * }
 * @endcode
 */
#ifndef ORV_DIAG_H
#define ORV_DIAG_H

#if defined(__GNUC__) || defined(__clang__)
#define ORV_API __attribute__((__visibility__("default")))
#define ORV_PRINTF(format_index, first_argument)                                                   \
  __attribute__((__format__(__printf__, format_index, first_argument)))
#else
#define ORV_API
#define ORV_PRINTF(format_index, first_argument)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @addtogroup diag
 * @{
 */

/**
 * Writes a line of trace to every stream of MSG_DIAG.
 *
 * Without a stream the call returns at once: the arguments are not formatted, nothing is allocated
 * and the system is not called. With one, the text is written as it is: no prefix, no wrapping, no
 * newline of its own, and the column that the messages count is left alone. When the sync flag of
 * MSG_DIAG is set (msg_set_sync()), each stream is flushed and forced to disk after the write.
 * Failed writes are ignored, and the stream stays in the list.
 *
 * @warning The text is interpreted twice. The format and the arguments give a text; that text is
 * then the format of a second print without arguments. A percent sign that comes out of an argument
 * is therefore taken for a conversion: "%%" in it is written as "%", while "%s" reads a pointer
 * that nobody passed and "%n" writes through one. Text that the program does not control (a file
 * name, a line from a peer, a user's argument) must not reach a trace as it is while a stream
 * exists: double its percent signs first. A percent sign meant to be seen is "%%%%" in the format.
 *
 * @param format  printf format of the text, its "\n" included; not null.
 *
 * A text of more than 16383 bytes is cut there and its last byte becomes a newline; a null
 * character in it ends it. A text that cannot be formatted (a wide character without a form in this
 * locale) is not written. errno is left as it stood.
 */
ORV_API void diag_printf(const char *format, ...) ORV_PRINTF(1, 2);

/**
 * Tells the diagnostic directory.
 *
 * @return The directory that diag_set_dir() stored; if none is stored, the value of the first of
 * ORV_DIAG_DIR, ORV_DIAGNOSTICS_PATH and ORV_TMPDIR that is set; if none is set, "/tmp". A variable
 * set to the empty string counts as set, and ORV_DIAGNOSTICS_PATH counts even where its value is a
 * word that only diag_open_stamped_log() understands ("0", "stderr"). Never null and not to be
 * freed: the stored directory (changed by the next diag_set_dir()) or the environment's own text.
 */
ORV_API const char *diag_get_dir(void);

/**
 * Sets the diagnostic directory and opens the log of this process in it.
 *
 * All streams of MSG_DIAG are forgotten first, those that the program added itself included, and
 * whether or not a log can be opened; files that the library opened stay open until the process
 * ends, and are closed in a program that it becomes or starts. Then, if the directory exists and
 * may be written to, the file "orv<process id><login name>.log" in it is created or emptied, and
 * becomes the only stream of MSG_DIAG. Where the system knows no login name the name is
 * "orv<process id>.log"; once known, the name is kept for the life of the process. Nothing is
 * reported when no log can be opened: tracing is then off.
 *
 * @param dir  the directory, copied. Null or empty: forget what is stored and store what
 *             diag_get_dir() then gives. The result of diag_get_dir() may be passed.
 *             More than 4095 bytes are refused: nothing is stored and no log is opened.
 * @return The stored directory: a static buffer, overwritten by the next diag_set_dir(); never
 *         null, empty when nothing is stored.
 */
ORV_API const char *diag_set_dir(const char *dir);

/**
 * Opens the trace that the user asks for in the environment variable ORV_DIAGNOSTICS_PATH.
 *
 * | value                            | destination                                             |
 * |----------------------------------|---------------------------------------------------------|
 * | unset, empty or "0"              | none: nothing changes                                   |
 * | "1" or "stdout", any letter case | standard output                                         |
 * | "2" or "stderr", any letter case | standard error                                          |
 * | a directory that may be written  | a stamped log in it                                     |
 * | anything else                    | a stamped log in the directory that the first set one of|
 * |                                  | ORV_TMPDIR, TMP and TEMP names, or in "/" if none is set |
 *
 * The stamped log is "orv<YYMMDDhhmmss><suffix>.log" in local time, created or emptied. The month
 * in the stamp counts from 0: 15 March 2026, 09:04:05 gives 260215090405. The call pauses for one
 * second before it opens the file. The destination joins the streams of MSG_DIAG and stays open
 * until the process ends; a file is closed in a program that the process becomes or starts. A path
 * of more than 4095 bytes is refused, without the pause; nothing is reported when no log can be
 * opened.
 *
 * @param suffix  what follows the stamp in the name, usually the program's name; null for nothing.
 */
ORV_API void diag_open_stamped_log(const char *suffix);

/**
 * Tells whether diag_open_stamped_log() was called in this process, whatever came of it.
 *
 * @return 1 if so, else 0.
 */
ORV_API int diag_stamped_log_attempted(void);

/**
 * Reports a system call that failed: the line "<what>: <text of errno>" goes to the trace.
 *
 * If ORV_PERROR holds anything but the empty string, the line also goes to standard output, which
 * is flushed. There is no way to send it to standard error: "2" and "stderr" mean standard output
 * as well. The variable is read by the first call of the process and never again.
 *
 * @warning In the trace, `what` is interpreted twice, as diag_printf() says; the copy on standard
 * output is not.
 *
 * @param what  the caller's word, for instance the name of the call; null shows as "(null)".
 *
 * errno is taken on entry and left as it stood.
 */
ORV_API void diag_perror(const char *what);

/** @} */

#ifdef __cplusplus
}
#endif

#undef ORV_API
#undef ORV_PRINTF

#endif
