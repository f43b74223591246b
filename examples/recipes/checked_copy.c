/*
 * Checked copy: copies a file, and says so when the copy is not whole.
 */
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdlib.h>

static int is_same_file(const char *source, const char *destination) {
  const platform_file_sig_t from = platform_file_sig(source);
  const platform_file_sig_t to = platform_file_sig(destination);
  return platform_sig_valid(to) && from.dev == to.dev && from.ino == to.ino;
}

/* Null when the copy is whole, else what is wrong. The first two cases leave the destination as it
   was: the copy itself would have emptied it. */
static const char *copy_checked(const char *source, const char *destination) {
  if (!platform_is_readable(source))
    return "The source cannot be read.";
  if (is_same_file(source, destination))
    return "Both are the same file.";
  if (!platform_copy_file(source, destination))
    return "One of the files cannot be opened or read.";
  if (platform_file_size(source) != platform_file_size(destination))
    return "The copy is not whole.";
  return NULL;
}

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  if (argc != 3)
    msg_fatal("Usage: checked_copy SOURCE DESTINATION");
  const char *trouble = copy_checked(argv[1], argv[2]);
  if (trouble != NULL)
    msg_fatal("%s", trouble);
  msg_print("Copied.");
  return EXIT_SUCCESS;
}
