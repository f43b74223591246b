// Line width and progress. The line of progress goes through the messages, as an open line that is
// continued, so a warning in the middle of it would start on a line of its own.
#include "terminal.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <orv/msg.h>
#include <orv/platform.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace survey {
namespace {

// The line of progress as it stands.
struct Progress {
  bool shown;
  size_t percent;
};
Progress progress;

int terminal_columns() {
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
    return size.ws_col;
  const char *columns = platform_getenv("COLUMNS");
  return columns == nullptr ? 0 : static_cast<int>(strtoul(columns, nullptr, 10) & 0x7FFF);
}

// Starts a line on standard error that has no prefix and stays open.
__attribute__((format(printf, 1, 2))) void start_line(const char *format, ...) {
  va_list args;
  va_start(args, format);
  msg_output(MSG_WARN, MSG_FMT_RAW, 0, 0, "", format, args);
  va_end(args);
}

} // namespace

void set_line_width() {
  const char *wanted = platform_getenv("ORV_MSGERR_WRAP");
  if (wanted != nullptr && *wanted != '\0')
    return;
  if (isatty(STDOUT_FILENO) == 0) {
    msg_set_width_limit(0);
    return;
  }
  const int columns = terminal_columns();
  if (columns > 0)
    msg_set_width_limit(columns);
}

void show_progress(size_t done, size_t count) {
  if (count == 0 || isatty(STDERR_FILENO) == 0)
    return;
  const size_t percent = 100 * done / count;
  if (!progress.shown)
    start_line("Counted %zu of %zu files (%zu%%)", done, count, percent);
  else if (percent != progress.percent)
    msg_cont("\rCounted %zu of %zu files (%zu%%)", done, count, percent);
  progress = {.shown = true, .percent = percent};
}

void end_progress() {
  if (progress.shown)
    msg_cont("\n");
  progress.shown = false;
}

} // namespace survey
