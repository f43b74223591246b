/*
 * Kinds: each type of message, its prefix, and a message that a later call goes on with.
 */
#include <orv/msg.h>

int main(void) {
  msg_print("Backing up %d folders.", 3);
  msg_cont("This may take a while.");

  msg_warn("The folder \"%s\" is empty.", "drafts");
  msg_error(0, "The folder \"%s\" cannot be read.  It is left out.", "private");
  msg_internal_error(0, "The count of files is %d.", -1);

  msg_set_error_prefix("backup: ");
  msg_set_print_prefix("- ");
  msg_error_shared("Only 2 of 3 folders\nwere backed up.");
  msg_print("Done.");
  msg_print_bare("This one has no prefix.");
  return 0;
}
