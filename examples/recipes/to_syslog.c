/*
 * To syslog: warnings and errors go to the system's log too, a line an entry.
 */
#define _GNU_SOURCE
#include <orv/msg.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>

/* Called when the stream is flushed, which the library does at the end of each message. */
static ssize_t log_lines(void *cookie, const char *text, size_t size) {
  (void)cookie;
  const char *end = text + size;
  while (text < end) {
    const char *newline = memchr(text, '\n', (size_t)(end - text));
    const char *line_end = newline != NULL ? newline : end;
    if (line_end > text)
      syslog(LOG_WARNING, "%.*s", (int)(line_end - text), text);
    text = line_end + 1;
  }
  return (ssize_t)size;
}

static FILE *open_syslog_stream(void) {
  openlog("to_syslog", LOG_PERROR,
          LOG_USER); /* LOG_PERROR: on standard error too, for this guide */
  return fopencookie(NULL, "w", (cookie_io_functions_t){.write = log_lines});
}

int main(void) {
  FILE *log = open_syslog_stream();
  msg_clear_streams(MSG_WARN | MSG_ERROR);
  msg_add_stream(MSG_WARN | MSG_ERROR, log);

  msg_warn("The disk \"%s\" is nearly full.", "sda");
  msg_cont("2 %% are left.");
  msg_print("This one is no warning.");

  msg_remove_stream(MSG_WARN | MSG_ERROR, log);
  return fclose(log);
}
