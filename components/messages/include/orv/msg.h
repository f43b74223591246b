/*
 * Messages for a person.
 *
 * A message has a type; each type owns a list of buffered output streams, so one message can go to
 * several places at once and a type is silenced by emptying its list.
 */
#ifndef ORV_MSG_H
#define ORV_MSG_H

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#if defined(__GNUC__) || defined(__clang__)
#define ORV_API __attribute__((visibility("default")))
#define ORV_PRINTF(format_index, first_argument)                                                   \
  __attribute__((format(printf, format_index, first_argument)))
#define ORV_NORETURN __attribute__((noreturn, cold))
#else
#define ORV_API
#define ORV_PRINTF(format_index, first_argument)
#define ORV_NORETURN
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Message types: bit values, so that a set of types is a mask. */
enum { MSG_INFO = 1, MSG_DEBUG = 2, MSG_WARN = 4, MSG_ERROR = 8, MSG_DIAG = 16 };

/* How the text of a message is laid out. */
typedef enum MSG_FMT_TYPE { MSG_FMT_RAW = 0, MSG_FMT_WRAP = 1, MSG_FMT_LINE = 2 } MSG_FMT_TYPE;

/* The streams of one type. */
typedef struct msg_stream_desc {
  int32_t count;
  int32_t capacity;
  FILE **streams;
  int32_t sync;
} msg_stream_desc;

ORV_API int msg_add_stream(int types, FILE *stream);
ORV_API void msg_remove_stream(int types, FILE *stream);
ORV_API void msg_clear_streams(int types);
ORV_API int msg_set_sync(int types, int mode);
ORV_API msg_stream_desc *_msg_get_stream_desc(int type);
ORV_API int msg_has_print_streams(void);
ORV_API int msg_has_warn_streams(void);
ORV_API const char *msg_type_name(int type);

ORV_API void msg_set_width_limit(int width);
ORV_API int msg_get_width_limit(void);
ORV_API int msg_get_solo_output(void);
ORV_API void msg_set_solo_output(int on);

ORV_API void msg_set_mp_prefix(const char *text);
ORV_API const char *msg_get_mp_prefix(void);
ORV_API void msg_set_warn_prefix(const char *text);
ORV_API const char *msg_get_warn_prefix(void);
ORV_API void msg_set_print_prefix(const char *text);
ORV_API const char *msg_get_print_prefix(void);
ORV_API void msg_set_internal_error_prefix(const char *text);
ORV_API const char *msg_get_internal_error_prefix(void);
ORV_API void msg_set_error_prefix(const char *text);
ORV_API const char *msg_get_error_prefix(void);

ORV_API void msg_output(int type, int fmt_type, int solo, int continuation, const char *prefix,
                        const char *format, va_list args) ORV_PRINTF(6, 0);

ORV_API void msg_print_raw(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_print_wrap(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_print(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_print_with_prefix(const char *prefix, const char *format, ...) ORV_PRINTF(2, 3);
ORV_API void msg_print_bare(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_print_solo_raw(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_print_solo_wrap(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_print_solo(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_warn_raw(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_warn_wrap(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_warn(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_warn_solo_raw(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_warn_solo_wrap(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_warn_solo(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_error_raw(int solo, const char *format, ...) ORV_PRINTF(2, 3);
ORV_API void msg_error_wrap(int solo, const char *format, ...) ORV_PRINTF(2, 3);
ORV_API void msg_error(int solo, const char *format, ...) ORV_PRINTF(2, 3);
ORV_API void msg_error_shared(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_internal_error_raw(int solo, const char *format, ...) ORV_PRINTF(2, 3);
ORV_API void msg_internal_error_wrap(int solo, const char *format, ...) ORV_PRINTF(2, 3);
ORV_API void msg_internal_error(int solo, const char *format, ...) ORV_PRINTF(2, 3);

ORV_API void msg_fatal(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;
ORV_API void msg_fatal_solo(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;
ORV_API void msg_fatal_internal(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;
ORV_API void msg_fatal_internal_solo(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;
ORV_API void msg_fatal_syserr(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;
ORV_API void msg_fatal_syserr_solo(const char *format, ...) ORV_PRINTF(1, 2) ORV_NORETURN;

ORV_API void msg_cont(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API void msg_vcont(const char *format, va_list args) ORV_PRINTF(1, 0);

#ifdef __cplusplus
}
#endif

#undef ORV_API
#undef ORV_PRINTF
#undef ORV_NORETURN

#endif
