// orv-torture: runs a program and refuses calls that it makes of the C library, one in one run or
// all of them, one after the other. See docs/guides/torture.md.
#include "sweep.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/wait.h>

using namespace torture;

namespace {

constexpr int kSignalBase = 128;

void tell_what_was_refused(const Record &record) {
  const KindRow &row = kKinds[static_cast<size_t>(record.order.kind)];
  const Refusal &first = record.first_refusal;
  if (record.refused == 0)
    fprintf(stderr, "orv-torture: nothing refused: %s was called %lu times\n", row.name,
            record.calls[static_cast<size_t>(record.order.kind)].load());
  else
    fprintf(stderr, "orv-torture: refused %s (%s), called from %s+0x%08lx in process %d\n",
            first.call, name_of_way(record.order.way), first.object, first.offset, first.process);
}

void pass_over(int) {}

int run_with_one_refusal(const Options &options, Record *record) {
  // What the terminal sends is for the program, which does not inherit handlers.
  signal(SIGINT, pass_over);
  signal(SIGQUIT, pass_over);
  const End end = run_once(options, options.order, false, record);
  tell_what_was_refused(*record);
  if (end.hung)
    fprintf(stderr, "orv-torture: killed after %g seconds\n", options.limit);
  if (WIFSIGNALED(end.status)) {
    fprintf(stderr, "orv-torture: ended by SIG%s\n", sigabbrev_np(WTERMSIG(end.status)));
    return kSignalBase + WTERMSIG(end.status);
  }
  return WEXITSTATUS(end.status);
}

} // namespace

int main(int argc, char **argv) {
  const Options options = read_options(argc, argv);
  Record *const record = set_up();
  return options.sweeps ? sweep(options, record) : run_with_one_refusal(options, record);
}
