/**
 * @defgroup messages Messages
 *
 * Messages for a person.
 *
 * A message has a type; each type owns a list of buffered output streams, so one message can go to
 * several places at once and a type is silenced by emptying its list. A message starts with its
 * type's prefix, its further lines are indented under that prefix, long text is wrapped at a width
 * limit, and a later call may go on in the line that an earlier one left open.
 *
 * Nothing needs to be set up or torn down. The library keeps one process-wide state and takes no
 * locks: use it from one thread.
 *
 * @code
 * #include <orv/msg.h>
 *
 * int main(void) {
 *   msg_set_mp_prefix("[worker] ");
 *   msg_print_wrap("Reading %d files: ", 3);
 *   msg_cont("one, ");
 *   msg_cont("two, three");
 *   msg_print("Done.  The next line\nstarts under this one.");
 *   msg_warn("Disk %s is nearly full", "sda");
 *   msg_cont("Free: %d %%", 2);
 *   msg_set_solo_output(0);
 *   msg_print_solo("Only one process of the group says this; this one does not.");
 *   return 0;
 * }
 * @endcode
 *
 * Standard output, then standard error, of that program:
 *
 *     [worker] Reading 3 files: one, two, three
 *     [worker] Done.  The next line
 *     [worker] starts under this one.
 *
 *     [worker] Warning: Disk sda is nearly full
 *     [worker]          Free: 2 %
 */
#ifndef ORV_MSG_H
#define ORV_MSG_H

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#if defined(__GNUC__) || defined(__clang__)
#define ORV_API __attribute__((__visibility__("default")))
#define ORV_PRINTF(format_index, first_argument)                                                   \
  __attribute__((__format__(__printf__, format_index, first_argument)))
#define ORV_NORETURN __attribute__((__noreturn__, __cold__))
#else
#define ORV_API
#define ORV_PRINTF(format_index, first_argument)
#define ORV_NORETURN
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @addtogroup messages
 * @{
 */

/**
 * @defgroup msg_types Types and layout
 *
 * Who a message is for, and how its text is laid out.
 * @{
 */

/**
 * The message types: bit values, so that a set of types is a mask.
 *
 * Internal errors are of type MSG_ERROR with another prefix. MSG_DEBUG has streams and no message
 * call of its own; MSG_DIAG is what diag_printf() writes to.
 */
enum {
  MSG_INFO = 1,  /**< informational; at first to standard output */
  MSG_DEBUG = 2, /**< debug; at first to standard output */
  MSG_WARN = 4,  /**< warnings; at first to standard error */
  MSG_ERROR = 8, /**< errors, internal errors, fatal errors; at first to standard error */
  MSG_DIAG = 16  /**< the diagnostic trace; at first to no stream */
};

/** How the text of a message is laid out. */
typedef enum MSG_FMT_TYPE {
  MSG_FMT_RAW = 0,  /**< as it is: only its own newlines break lines, nothing is added */
  MSG_FMT_WRAP = 1, /**< wrapped at the width limit; the line stays open */
  MSG_FMT_LINE = 2  /**< wrapped, then a newline is written and the streams are flushed */
} MSG_FMT_TYPE;

/** The streams of one message type. */
typedef struct msg_stream_desc {
  int32_t count;    /**< streams in use */
  int32_t capacity; /**< slots in the array */
  FILE **streams; /**< the library's array (null before the first stream) of the caller's streams */
  int32_t sync;   /**< 1: the trace is flushed and forced to disk after each write */
} msg_stream_desc;

/** @} */

/**
 * @defgroup msg_streams Where messages go
 *
 * The lists hold streams that belong to the caller: the library never closes one. Take a stream
 * out of every list before you close it.
 *
 * A stream whose write or flush fails leaves the list of the message's type, with a warning that
 * names the operation and the type ("Error during output of informational message.  This stream
 * will no longer be used.") and a continuation line with the system's reason ("Stream error was:
 * No space left on device"); where the system names none, the warning begins "EOF error during"
 * and stands alone. Other types that hold the same stream keep it until they meet the failure.
 * @{
 */

/**
 * Appends a stream to the list of every type in a mask.
 *
 * There is no check for duplicates: a stream that is added twice receives each message twice. A
 * type whose array cannot grow is left as it is, with a warning; when not even the first array of
 * a type can be allocated, the process ends with exit status 1.
 *
 * @param types mask of message types, handled from MSG_INFO up; other bits are ignored
 * @param stream a stream open for writing, which must stay open while it is listed; null is ignored
 * @return the new count of the last type that received the stream, 0 when none did
 */
ORV_API int msg_add_stream(int types, FILE *stream);

/**
 * Removes the first occurrence of a stream from the list of every type in a mask.
 *
 * Later streams move down and keep their order. A stream that is not listed is ignored.
 *
 * @param types mask of message types
 * @param stream the stream; it is not closed and may be closed already
 */
ORV_API void msg_remove_stream(int types, FILE *stream);

/**
 * Empties the list of every type in a mask, which silences these types. No stream is closed.
 *
 * @param types mask of message types
 */
ORV_API void msg_clear_streams(int types);

/**
 * Switches a type's sync flag on, or asks for it.
 *
 * Only the diagnostic print looks at the flag later on; the message calls do not. A flag cannot be
 * switched off.
 *
 * @param types mask of message types
 * @param mode 1 switches the flag of every type in the mask on and, where it was off, flushes the
 *   type's streams and forces them to disk at once (failures are ignored); 0 and values above 1
 *   change nothing; a negative value is a query
 * @return for a query the flag (0 or 1) when the mask holds one type, -1 when it holds several
 *   (even if their flags are equal) and -2 when it holds none; otherwise `mode`
 */
ORV_API int msg_set_sync(int types, int mode);

/**
 * Gives the library's own record of one type's streams. It stays valid for the life of the process.
 *
 * @param type one message type; any other value is a fatal error
 * @return the record, which belongs to the library; its array may move when a stream is added
 */
ORV_API msg_stream_desc *_msg_get_stream_desc(int type);

/**
 * Tells whether informational messages go anywhere.
 * @return 1 if MSG_INFO has at least one stream, else 0
 */
ORV_API int msg_has_print_streams(void);

/**
 * Tells whether warnings go anywhere.
 * @return 1 if MSG_WARN has at least one stream, else 0
 */
ORV_API int msg_has_warn_streams(void);

/**
 * Names a message type.
 *
 * @param type one message type; any other value is a fatal error
 * @return "informational", "debug", "warning", "error" or "diag": a constant
 */
ORV_API const char *msg_type_name(int type);

/** @} */

/**
 * @defgroup msg_settings Width, solo output and prefixes
 *
 * What can be set for all messages.
 * @{
 */

/**
 * Sets the column at which text is wrapped. From then on the environment is not consulted.
 *
 * @param width columns, 0 switches wrapping off; a negative width is a fatal error. Prefixes should
 *   leave room for text: beside a prefix that does not, every word gets a line of its own.
 */
ORV_API void msg_set_width_limit(int width);

/**
 * Gives the column at which text is wrapped.
 *
 * The limit is 78 at first. Unless a limit has been set, the first message or the first call reads
 * ORV_MSGERR_WRAP, once: a decimal number below 1 or above 32766 switches wrapping off, any other
 * number widens the limit but never narrows it, and text without a number is ignored.
 *
 * @return columns, 0 when wrapping is off
 */
ORV_API int msg_get_width_limit(void);

/**
 * Gives the solo switch: while it is 0, solo messages are dropped.
 * @return the switch; 1 at first
 */
ORV_API int msg_get_solo_output(void);

/**
 * Sets the solo switch.
 *
 * In a group of processes that run the same code, all but one switch it to 0, so that a solo
 * message appears once. A dropped message writes nothing and changes nothing; a solo fatal call
 * still ends the process.
 *
 * @param on 0 drops solo messages, any other value writes them
 */
ORV_API void msg_set_solo_output(int on);

/**
 * @name Prefixes
 *
 * A setter copies its text, so the caller keeps the ownership of it; null stands for "". When the
 * copy cannot be allocated, a warning says so and the prefix stays as it was (the warning always
 * speaks of the "print prefix"; the setter's name leads it).
 *
 * A getter returns the current text, never null, owned by the library and valid until the same
 * prefix is set again.
 * @{
 */

/**
 * Sets what leads every line of every shared message, before its own prefix: "" at first.
 * @param text the prefix, which is copied; null stands for ""
 */
ORV_API void msg_set_mp_prefix(const char *text);
/**
 * Gives what leads every line of a shared message.
 * @return the prefix
 */
ORV_API const char *msg_get_mp_prefix(void);
/**
 * Sets the prefix of warnings: "Warning: " at first.
 * @param text the prefix, which is copied; null stands for ""
 */
ORV_API void msg_set_warn_prefix(const char *text);
/**
 * Gives the prefix of warnings.
 * @return the prefix
 */
ORV_API const char *msg_get_warn_prefix(void);
/**
 * Sets the prefix of informational messages: "" at first.
 * @param text the prefix, which is copied; null stands for ""
 */
ORV_API void msg_set_print_prefix(const char *text);
/**
 * Gives the prefix of informational messages.
 * @return the prefix
 */
ORV_API const char *msg_get_print_prefix(void);
/**
 * Sets the prefix of internal errors: "Internal error: " at first.
 * @param text the prefix, which is copied; null stands for ""
 */
ORV_API void msg_set_internal_error_prefix(const char *text);
/**
 * Gives the prefix of internal errors.
 * @return the prefix
 */
ORV_API const char *msg_get_internal_error_prefix(void);
/**
 * Sets the prefix of errors and fatal errors: "Error: " at first.
 * @param text the prefix, which is copied; null stands for ""
 */
ORV_API void msg_set_error_prefix(const char *text);
/**
 * Gives the prefix of errors and fatal errors.
 * @return the prefix
 */
ORV_API const char *msg_get_error_prefix(void);

/** @} */
/** @} */

/**
 * @defgroup msg_calls Writing messages
 *
 * Every call takes a printf format with its arguments (null stands for ""); "%m" gives the text of
 * errno as it stood when the call was made. Texts may have any length. A format must not begin with
 * a dollar sign, which is reserved and a fatal error; begin it with two to print one.
 *
 * A name that ends in `_raw` lays the text out as MSG_FMT_RAW, in `_wrap` as MSG_FMT_WRAP, any
 * other as MSG_FMT_LINE. A name with `_solo`, or a nonzero `solo` argument, makes the message a
 * solo one: dropped while the solo switch is 0, and without the mp prefix. All others are shared.
 *
 * - The first line is led by the prefix, every further line by as many blanks, but at most 49. The
 *   library nevertheless counts the whole prefix, so text under a wider one wraps early.
 * - One current column is counted for all types and streams together, whether or not a type has a
 *   stream. A message that finds a line left open first ends it: the newline goes to the streams
 *   of the new message, even if the open line stands elsewhere.
 * - A MSG_FMT_LINE text that ends in a newline is followed by an empty line.
 * - Wrapping breaks at blanks and tabs and drops those at the break. A word that is longer than a
 *   line is written whole, beyond the limit. Columns are counted in bytes.
 * - When the heap refuses the text's buffer, the text is cut at 16383 bytes; when the C library
 *   cannot format it, the format itself is written.
 *
 * None of the calls reports an error to its caller; a failing stream is dropped (@ref msg_streams).
 * @{
 */

/**
 * Writes one message: the routine behind all the others, for calls of your own.
 *
 * @param type one message type; any other value is a fatal error
 * @param fmt_type an MSG_FMT_TYPE; any other value is a fatal error while wrapping is on, and like
 *   MSG_FMT_RAW while it is off
 * @param solo nonzero for a solo message
 * @param continuation nonzero to go on in the current line if one is open
 * @param prefix leads the first line; null stands for ""; not kept after the call
 * @param format a printf format
 * @param args its arguments; not consumed: the caller still calls va_end
 */
ORV_API void msg_output(int type, int fmt_type, int solo, int continuation, const char *prefix,
                        const char *format, va_list args) ORV_PRINTF(6, 0);

/**
 * Writes an informational text as it is, with the print prefix.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_print_raw(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Writes an informational text, wrapped, and leaves its line open.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_print_wrap(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Writes an informational message.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_print(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Writes an informational message with a prefix of the caller's.
 * @param prefix leads the first line; null stands for ""
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_print_with_prefix(const char *prefix, const char *format, ...) ORV_PRINTF(2, 3);
/**
 * Writes an informational message without the print prefix.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_print_bare(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Like msg_print_raw(), solo.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_print_solo_raw(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Like msg_print_wrap(), solo.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_print_solo_wrap(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Like msg_print(), solo.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_print_solo(const char *format, ...) ORV_PRINTF(1, 2);

/**
 * Writes a warning as it is, and leaves its line open.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_warn_raw(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Writes a warning, wrapped, and leaves its line open.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_warn_wrap(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Writes a warning.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_warn(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Like msg_warn_raw(), solo.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_warn_solo_raw(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Like msg_warn_wrap(), solo.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_warn_solo_wrap(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Like msg_warn(), solo.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_warn_solo(const char *format, ...) ORV_PRINTF(1, 2);

/**
 * Writes an error as it is, and leaves its line open.
 * @param solo nonzero for a solo message
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_error_raw(int solo, const char *format, ...) ORV_PRINTF(2, 3);
/**
 * Writes an error, wrapped, and leaves its line open.
 * @param solo nonzero for a solo message
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_error_wrap(int solo, const char *format, ...) ORV_PRINTF(2, 3);
/**
 * Writes an error; the process goes on.
 * @param solo nonzero for a solo message
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_error(int solo, const char *format, ...) ORV_PRINTF(2, 3);
/**
 * Writes a shared error.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_error_shared(const char *format, ...) ORV_PRINTF(1, 2);
/**
 * Like msg_error_raw(), with the internal error prefix.
 * @param solo nonzero for a solo message
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_internal_error_raw(int solo, const char *format, ...) ORV_PRINTF(2, 3);
/**
 * Like msg_error_wrap(), with the internal error prefix.
 * @param solo nonzero for a solo message
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_internal_error_wrap(int solo, const char *format, ...) ORV_PRINTF(2, 3);
/**
 * Like msg_error(), with the internal error prefix.
 * @param solo nonzero for a solo message
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_internal_error(int solo, const char *format, ...) ORV_PRINTF(2, 3);

/**
 * Goes on with the last message that was written: with its type, layout and solo flag.
 *
 * An open line is continued where it stands. After a finished line the text starts a new one,
 * indented under the text of the message. Before any message it is a fatal error.
 *
 * Warnings about failing streams are messages, too: one that was written after yours is what is
 * continued.
 *
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_cont(const char *format, ...) ORV_PRINTF(1, 2);

/**
 * Like msg_cont(), with an argument list.
 * @param format a printf format; null stands for ""
 * @param args its arguments; not consumed: the caller still calls va_end
 */
ORV_API void msg_vcont(const char *format, va_list args) ORV_PRINTF(1, 0);

/** @} */

/**
 * @defgroup msg_fatal Fatal errors
 *
 * Each writes an error line and ends the process through exit() with status 1: handlers installed
 * with atexit() run and buffered streams are flushed. They never return. The solo ones end the
 * process silently while the solo switch is 0.
 * @{
 */

/**
 * Writes a shared error and ends the process.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_fatal(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;
/**
 * Writes a solo error and ends the process.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_fatal_solo(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;
/**
 * Writes a shared internal error and ends the process.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_fatal_internal(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;
/**
 * Writes a solo internal error and ends the process.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_fatal_internal_solo(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;
/**
 * Writes a shared error, then under it "System error message: " with the text of errno as it stood
 * when the call was made, and ends the process.
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_fatal_syserr(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;
/**
 * Like msg_fatal_syserr(), solo.
 *
 * While the solo switch is 0 the error is dropped, but the line with the system's text still
 * continues whatever message was written last; if there was none, it is an error of its own.
 *
 * @param format,... a printf format (null stands for "") and its arguments
 */
ORV_API void msg_fatal_syserr_solo(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;

/** @} */
/** @} */

#ifdef __cplusplus
}
#endif

#undef ORV_API
#undef ORV_PRINTF
#undef ORV_NORETURN

#endif
