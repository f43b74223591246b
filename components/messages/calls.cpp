// The message calls: each fixes the type, the prefix, the format type and whether it is solo, and
// leaves the rest to msg_output.
#include "common/end_process.h"
#include "messages/state.h"

#include <cerrno>
#include <cstring>

using namespace orv::messages;

// Writes one message out of the format and the arguments of the variadic call that it stands in.
#define WRITE(type, prefix, format_type, solo)                                                     \
  va_list args;                                                                                    \
  va_start(args, format);                                                                          \
  msg_output(type, format_type, solo, 0, prefix, format, args);                                    \
  va_end(args)

#define SHARED_CALL(name, type, slot, format_type)                                                 \
  void name(const char *format, ...) {                                                             \
    WRITE(type, prefix_text(slot), format_type, 0);                                                \
  }
#define SOLO_CALL(name, type, slot, format_type)                                                   \
  void name(const char *format, ...) {                                                             \
    WRITE(type, prefix_text(slot), format_type, 1);                                                \
  }
#define CHOICE_CALL(name, type, slot, format_type)                                                 \
  void name(int solo, const char *format, ...) {                                                   \
    WRITE(type, prefix_text(slot), format_type, solo);                                             \
  }

// clang-format off
SHARED_CALL(msg_print_raw,           MSG_INFO,  kPrintPrefix,         MSG_FMT_RAW)
SHARED_CALL(msg_print_wrap,          MSG_INFO,  kPrintPrefix,         MSG_FMT_WRAP)
SHARED_CALL(msg_print,               MSG_INFO,  kPrintPrefix,         MSG_FMT_LINE)
SOLO_CALL  (msg_print_solo_raw,      MSG_INFO,  kPrintPrefix,         MSG_FMT_RAW)
SOLO_CALL  (msg_print_solo_wrap,     MSG_INFO,  kPrintPrefix,         MSG_FMT_WRAP)
SOLO_CALL  (msg_print_solo,          MSG_INFO,  kPrintPrefix,         MSG_FMT_LINE)
SHARED_CALL(msg_warn_raw,            MSG_WARN,  kWarnPrefix,          MSG_FMT_RAW)
SHARED_CALL(msg_warn_wrap,           MSG_WARN,  kWarnPrefix,          MSG_FMT_WRAP)
SHARED_CALL(msg_warn,                MSG_WARN,  kWarnPrefix,          MSG_FMT_LINE)
SOLO_CALL  (msg_warn_solo_raw,       MSG_WARN,  kWarnPrefix,          MSG_FMT_RAW)
SOLO_CALL  (msg_warn_solo_wrap,      MSG_WARN,  kWarnPrefix,          MSG_FMT_WRAP)
SOLO_CALL  (msg_warn_solo,           MSG_WARN,  kWarnPrefix,          MSG_FMT_LINE)
CHOICE_CALL(msg_error_raw,           MSG_ERROR, kErrorPrefix,         MSG_FMT_RAW)
CHOICE_CALL(msg_error_wrap,          MSG_ERROR, kErrorPrefix,         MSG_FMT_WRAP)
CHOICE_CALL(msg_error,               MSG_ERROR, kErrorPrefix,         MSG_FMT_LINE)
SHARED_CALL(msg_error_shared,        MSG_ERROR, kErrorPrefix,         MSG_FMT_LINE)
CHOICE_CALL(msg_internal_error_raw,  MSG_ERROR, kInternalErrorPrefix, MSG_FMT_RAW)
CHOICE_CALL(msg_internal_error_wrap, MSG_ERROR, kInternalErrorPrefix, MSG_FMT_WRAP)
CHOICE_CALL(msg_internal_error,      MSG_ERROR, kInternalErrorPrefix, MSG_FMT_LINE)
// clang-format on

void msg_print_with_prefix(const char *prefix, const char *format, ...) {
  WRITE(MSG_INFO, prefix, MSG_FMT_LINE, 0);
}

void msg_print_bare(const char *format, ...) {
  WRITE(MSG_INFO, "", MSG_FMT_LINE, 0);
}

void msg_fatal(const char *format, ...) {
  WRITE(MSG_ERROR, prefix_text(kErrorPrefix), MSG_FMT_LINE, 0);
  orv::end_process_with_failure();
}

void msg_fatal_solo(const char *format, ...) {
  WRITE(MSG_ERROR, prefix_text(kErrorPrefix), MSG_FMT_LINE, 1);
  orv::end_process_with_failure();
}

void msg_fatal_internal(const char *format, ...) {
  WRITE(MSG_ERROR, prefix_text(kInternalErrorPrefix), MSG_FMT_LINE, 0);
  orv::end_process_with_failure();
}

void msg_fatal_internal_solo(const char *format, ...) {
  WRITE(MSG_ERROR, prefix_text(kInternalErrorPrefix), MSG_FMT_LINE, 1);
  orv::end_process_with_failure();
}

namespace {

[[noreturn]] void tell_system_error_and_end(int error) {
  msg_cont("System error message: %s", strerror(error));
  orv::end_process_with_failure();
}

} // namespace

void msg_fatal_syserr(const char *format, ...) {
  const int error = errno;
  WRITE(MSG_ERROR, prefix_text(kErrorPrefix), MSG_FMT_LINE, 0);
  tell_system_error_and_end(error);
}

// Kept: the line about the system error goes on with whatever message was written last, also while
// the solo switch is 0 and the error itself was dropped.
void msg_fatal_syserr_solo(const char *format, ...) {
  const int error = errno;
  WRITE(MSG_ERROR, prefix_text(kErrorPrefix), MSG_FMT_LINE, 1);
  tell_system_error_and_end(error);
}

void msg_cont(const char *format, ...) {
  va_list args;
  va_start(args, format);
  msg_vcont(format, args);
  va_end(args);
}

void msg_vcont(const char *format, va_list args) {
  const LastMessage &last = state.last;
  if (last.type == 0)
    msg_fatal("MSG_CONT called before any other message function.");
  msg_output(last.type, last.format_type, last.solo, 1, last.head, format, args);
}
