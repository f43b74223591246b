/*
 * Whole lines: two processes write into the same stream at the same time, and no message is torn.
 */
#include <orv/msg.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

enum { messages_each = 2000 };

/* A message is flushed at its end. With room for all of it in the stream, that is one write, and
   the system does not mix the writes of processes. Call it before anything is written. */
static void write_whole_messages(void) {
  static char output_area[BUFSIZ];
  static char error_area[BUFSIZ];
  setvbuf(stdout, output_area, _IOFBF, sizeof output_area);
  setvbuf(stderr, error_area, _IOFBF, sizeof error_area);
}

static void write_warnings(const char *name) {
  msg_set_mp_prefix(name);
  for (int i = 0; i < messages_each; i++)
    msg_warn("There is something that has to be said, and it takes more than one line to say it.");
}

int main(int argc, char **argv) {
  (void)argv;
  if (argc == 1)
    write_whole_messages();
  const pid_t other = fork();
  write_warnings(other == 0 ? "[one] " : "[two] ");
  if (other == 0)
    _exit(0);
  waitpid(other, NULL, 0);
  return 0;
}
