/*
 * Group: processes that run the same code. What all of them would say alike is said by one.
 */
#include <orv/msg.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

static void work(int number) {
  char name[20];
  snprintf(name, sizeof name, "[worker %d] ", number);
  msg_set_mp_prefix(name);
  msg_set_solo_output(number == 1);

  msg_print_solo("Settings read.");
  msg_print("My part is done.");
  if (number == 2)
    msg_warn("One file was skipped.\nIt is empty.");
}

int main(void) {
  for (int number = 1; number <= 2; number++) {
    const pid_t pid = fork();
    if (pid == 0) {
      work(number);
      _exit(0);
    }
    waitpid(pid, NULL, 0); /* one after the other, so that this guide can show what they say */
  }
  return 0;
}
