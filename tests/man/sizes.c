/*
 * The program of the manual page's examples: it tells the sizes of files.
 */
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  if (argc < 2)
    msg_fatal("No files were given.  Name one or more of them, and the size of each is told on a "
              "line of its own.");
  for (int i = 1; i < argc; i++) {
    const int64_t size = platform_file_size(argv[i]);
    if (size < 0) {
      diag_perror("stat");
      msg_warn("The size of %s is not known.", argv[i]);
    } else {
      msg_print("%s: %lld bytes", argv[i], (long long)size);
    }
  }
  return 0;
}
