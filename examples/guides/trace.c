/*
 * Trace: a program that tells its debuggers what it does, where they have asked for that.
 */
#include <errno.h>
#include <fcntl.h>
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <string.h>
#include <unistd.h>

static void look_at(const char *path) {
  diag_printf("look_at: begins\n");
  const int fd = open(path, O_RDONLY);
  if (fd < 0) {
    diag_perror("open"); /* for debuggers; errno is still the system's */
    msg_warn("\"%s\" is left out: %s", path, strerror(errno));
    return;
  }
  diag_printf("look_at: descriptor %d, %lld bytes, 100%%%%\n", fd,
              (long long)platform_file_size(path));
  close(fd);
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  for (int i = 1; i < argc; i++)
    look_at(argv[i]);
  msg_print("All %d files were looked at.", argc - 1);
  return 0;
}
