/*
 * The diagnostic log: a plain trace print whose destinations are the streams of the message type
 * MSG_DIAG, the log files that give it one, and the report of a failed system call.
 */
#ifndef ORV_DIAG_H
#define ORV_DIAG_H

#if defined(__GNUC__) || defined(__clang__)
#define ORV_API __attribute__((visibility("default")))
#define ORV_PRINTF(format_index, first_argument)                                                   \
  __attribute__((format(printf, format_index, first_argument)))
#else
#define ORV_API
#define ORV_PRINTF(format_index, first_argument)
#endif

#ifdef __cplusplus
extern "C" {
#endif

ORV_API void diag_printf(const char *format, ...) ORV_PRINTF(1, 2);
ORV_API const char *diag_get_dir(void);
ORV_API const char *diag_set_dir(const char *dir);
ORV_API void diag_open_stamped_log(const char *suffix);
ORV_API int diag_stamped_log_attempted(void);
ORV_API void diag_perror(const char *what);

#ifdef __cplusplus
}
#endif

#undef ORV_API
#undef ORV_PRINTF

#endif
