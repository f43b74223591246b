// The sweep: a run that is left alone shows which calls the program makes and what it leaves
// behind; then each of them is refused in a run of its own.
#include "sweep.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/wait.h>

namespace torture {
namespace {

struct Counts {
  unsigned long runs;
  unsigned long signalled;
  unsigned long hung;
  unsigned long unaccepted;
};

struct Sweep {
  const Options &options;
  Record *record;
  Remains untouched; // what the program leaves when nothing is refused
  Counts counts;
};

bool is_in_order(const Options &options, const End &end) {
  return !end.hung && WIFEXITED(end.status) && options.accepted[WEXITSTATUS(end.status)];
}

void count(Sweep &sweep, const End &end) {
  sweep.counts.runs++;
  if (end.hung)
    sweep.counts.hung++;
  else if (WIFSIGNALED(end.status))
    sweep.counts.signalled++;
  else if (!is_in_order(sweep.options, end))
    sweep.counts.unaccepted++;
}

void describe_end(const End &end, char *text, size_t size) {
  if (end.hung)
    snprintf(text, size, "HUNG");
  else if (WIFSIGNALED(end.status))
    snprintf(text, size, "SIG%s", sigabbrev_np(WTERMSIG(end.status)));
  else
    snprintf(text, size, "exit %d", WEXITSTATUS(end.status));
}

void print_more(const char *what, int found, int usual) {
  if (found > usual)
    printf("  +%d %s", found - usual, what);
}

// What the run left beyond what an untouched one leaves. A run that was ended could not say.
void print_remains(const Remains &found, const Remains &usual) {
  if (!found.known || !usual.known)
    return;
  print_more("descriptors", found.descriptors, usual.descriptors);
  print_more("children", found.children, usual.children);
  print_more("zombies", found.zombies, usual.zombies);
}

void print_run(const Sweep &sweep, const Order &order, const End &end) {
  char call[64];
  char how[16];
  snprintf(call, sizeof call, "%s:%lu%s", kKinds[static_cast<size_t>(order.kind)].name,
           order.number, order.onward ? "+" : "");
  describe_end(end, how, sizeof how);
  const Refusal &refusal = sweep.record->first_refusal;
  printf("%-14s %-12s %-8s %s from %s+0x%08lx", call, name_of_way(order.way), how, refusal.call,
         refusal.object, refusal.offset);
  print_remains(sweep.record->remains, sweep.untouched);
  printf("\n");
  fflush(stdout);
}

// False when there was no such call to refuse.
bool refuse_one(Sweep &sweep, const Order &order) {
  const End end = run_once(sweep.options, order, true, sweep.record);
  if (sweep.record->refused == 0)
    return false;
  count(sweep, end);
  if (!sweep.options.quiet || !is_in_order(sweep.options, end))
    print_run(sweep, order, end);
  return true;
}

void refuse_each(Sweep &sweep, Kind kind, int way) {
  Order order = sweep.options.order;
  order.refuses = true;
  order.kind = kind;
  order.way = way;
  uint64_t before = 1; // the number that a sparse sweep adds to find the next one
  for (order.number = 1; refuse_one(sweep, order);) {
    const uint64_t number = order.number;
    order.number += sweep.options.sparse ? before : 1;
    before = number;
  }
}

bool has_way(const KindRow &row, int way) {
  for (const int known : row.ways)
    if (known == way)
      return true;
  return false;
}

// A way that was asked for is taken for every kind, but only what has bytes can be short.
void sweep_kind(Sweep &sweep, Kind kind) {
  const KindRow &row = kKinds[static_cast<size_t>(kind)];
  const int asked = sweep.options.order.way;
  if (asked != 0) {
    if (asked != kShort || has_way(row, kShort))
      refuse_each(sweep, kind, asked);
    return;
  }
  for (size_t i = 0; i < kMostWays && row.ways[i] != 0; i++)
    refuse_each(sweep, kind, row.ways[i]);
}

int conclude(const Counts &counts) {
  const unsigned long bad = counts.signalled + counts.hung + counts.unaccepted;
  printf("orv-torture: %lu runs with a refusal: %lu in order, %lu ended by a signal, %lu hung, "
         "%lu with another status\n",
         counts.runs, counts.runs - bad, counts.signalled, counts.hung, counts.unaccepted);
  return bad == 0 ? 0 : 1;
}

} // namespace

int sweep(const Options &options, Record *record) {
  Sweep sweep = {.options = options, .record = record, .untouched = {}, .counts = {}};
  const End end = run_once(options, options.order, true, record);
  if (!is_in_order(options, end)) {
    char how[16];
    describe_end(end, how, sizeof how);
    printf("orv-torture: left alone, the program ends with %s\n", how);
    return 1;
  }
  sweep.untouched = record->remains;
  bool called[kKindCount];
  for (size_t i = 0; i < kKindCount; i++)
    called[i] = options.swept[i] && record->calls[i] != 0;
  for (size_t i = 0; i < kKindCount; i++)
    if (called[i])
      sweep_kind(sweep, static_cast<Kind>(i));
  return conclude(sweep.counts);
}

} // namespace torture
