/*
 * Columns: wrapped text, a line that several calls fill, and what ends an open line.
 */
#include <orv/msg.h>

int main(void) {
  msg_set_width_limit(40);
  msg_set_print_prefix("Note: ");

  msg_print("A text that is longer than a line is wrapped at a blank, below its prefix.");
  msg_print("A newline\nbreaks the line, and a "
            "word_that_is_longer_than_a_whole_line_is_written_whole.");

  msg_print_wrap("The primes below 60 are");
  for (int i = 2; i < 60; i++) {
    int divisor = 2;
    while (i % divisor != 0)
      divisor++;
    if (divisor == i)
      msg_cont(" %d", i);
  }
  msg_cont(".\n");

  msg_print_wrap("This line is open");
  msg_print("so this message ends it first.");
  msg_print_raw("As it is:\n\tno wrapping, and the only\nnewlines are the text's own.\n");
  return 0;
}
