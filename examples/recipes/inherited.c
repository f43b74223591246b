/*
 * Inherited: which of the parent's descriptors a companion finds open, and how to keep one from it.
 */
#include <fcntl.h>
#include <orv/alloc.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>

/* Programs that are started from here on do not get the descriptor. */
static int keep_from_children(int fd) {
  return fcntl(fd, F_SETFD, FD_CLOEXEC);
}

/* The companion: its arguments are a name and a number, and so on. */
static int look_around(int argc, char **argv) {
  platform_pair_handle *ph = platform_pair_child_open("LOOK_LINK", 0, 1);
  for (int i = 2; i + 1 < argc; i += 2) {
    const int fd = (int)strtol(argv[i + 1], NULL, 10);
    msg_print("%s: %s", argv[i], fcntl(fd, F_GETFD) >= 0 ? "open" : "not open");
  }
  return platform_pair_close(ph) == 1 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  if (argc > 1 && strcmp(argv[1], "companion") == 0)
    return look_around(argc, argv);

  const int log = open("/dev/null", O_WRONLY);
  const int secret = open("/dev/null", O_RDONLY | O_CLOEXEC);
  platform_pair_handle *first =
      platform_pair_parent_open_lp("FIRST_LINK", 1, 1, "true", NULL, "true", NULL);
  keep_from_children(platform_pair_rx_fd(first));

  char log_number[12];
  char secret_number[12];
  char first_number[12];
  snprintf(log_number, sizeof log_number, "%d", log);
  snprintf(secret_number, sizeof secret_number, "%d", secret);
  snprintf(first_number, sizeof first_number, "%d", platform_pair_rx_fd(first));
  const int inherit_all[] = {-1, -1, -1}; /* no null devices: the companion prints */
  platform_pair_handle *second = platform_pair_parent_open_lp(
      "LOOK_LINK", 1, 1, argv[0], inherit_all, argv[0], "companion", "the log", log_number,
      "the secret", secret_number, "the first companion's connection", first_number, NULL);
  platform_wait_child(platform_pair_companion_pid(second), NULL);
  platform_wait_child(platform_pair_companion_pid(first), NULL);
  platform_pair_close(second);
  platform_pair_close(first);
  return 0;
}
