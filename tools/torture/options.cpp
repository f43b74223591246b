// The command line of orv-torture.
#include "options.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

namespace torture {
namespace {

constexpr char kHelp[] =
    R"(usage: orv-torture --fail KIND:N[+] [OPTION]... [--] PROGRAM [ARGUMENT]...
       orv-torture --sweep KIND[,KIND]...|all [OPTION]... [--] PROGRAM [ARGUMENT]...

Runs a dynamically linked program and refuses calls that it makes of the C library.

  --fail KIND:N[+]   refuse the Nth call of this kind (with + every one from there on); the exit
                     status is the program's, or 128 and its signal
  --sweep KINDS      run the program again and again, with the 1st, the 2nd, the 3rd ... call of each
                     kind refused in each way, until a run makes no such call any more; print a line
                     a run; the exit status is 1 when a run ended by a signal, took too long or ended
                     with a status that is not accepted, else 0
  --errno NAME       refuse with this error (EINTR, ENOSPC ...), or "short" to let the call have only
                     half of its bytes; without it --fail takes the first way of the kind, --sweep all
  --only OBJECT      refuse and count only calls that this object file makes: the base name of a
                     library as it is loaded (liborv.so.1), or of the program; may be given again
  --children         count and refuse in all processes that the program starts; without it in the
                     first process alone
  --onward           in a sweep: refuse the Nth call and all that follow
  --sparse           in a sweep: refuse the 1st, 2nd, 3rd, 5th, 8th ... call, fewer and fewer
  --limit SECONDS    kill a run that takes longer; 0 for no limit, which --fail begins with; a sweep
                     begins with 10
  --accept STATUS,.. the exit statuses that are in order in a sweep; without it all are
  --quiet            in a sweep: print only the runs that are not in order, and the count
  --list             print the kinds and their ways
  --help             print this

In a sweep the program reads from and writes to the null device. The exit status is 2 for a mistake in
these arguments and 127 for a program that cannot be run.
)";

[[noreturn]] void misuse(const char *what, const char *argument) {
  fprintf(stderr, "orv-torture: %s: %s\nTry 'orv-torture --help'.\n", what, argument);
  exit(kUsageError);
}

[[noreturn]] void print_kinds() {
  for (const KindRow &row : kKinds) {
    printf("%-12s", row.name);
    for (size_t i = 0; i < kMostWays && row.ways[i] != 0; i++)
      printf(" %s", name_of_way(row.ways[i]));
    printf("\n");
  }
  exit(0);
}

bool is_name(const char *name, const char *text, size_t length) {
  return strlen(name) == length && strncmp(name, text, length) == 0;
}

Kind read_kind(const char *text, size_t length) {
  for (size_t i = 0; i < kKindCount; i++)
    if (is_name(kKinds[i].name, text, length))
      return static_cast<Kind>(i);
  misuse("no such kind of call (see --list)", text);
}

void read_fail(const char *text, Options &options) {
  const char *colon = strchr(text, ':');
  if (colon == nullptr)
    misuse("--fail takes KIND:N", text);
  char *rest = nullptr;
  options.order.refuses = true;
  options.order.kind = read_kind(text, static_cast<size_t>(colon - text));
  options.order.number = strtoull(colon + 1, &rest, 10);
  options.order.onward = *rest == '+';
  if (options.order.number == 0 || rest[options.order.onward ? 1 : 0] != '\0')
    misuse("--fail takes KIND:N, and N is 1 for the first call", text);
}

void read_sweep(const char *text, Options &options) {
  options.sweeps = true;
  if (strcmp(text, "all") == 0) {
    for (bool &swept : options.swept)
      swept = true;
    return;
  }
  for (const char *at = text;;) {
    const size_t length = strcspn(at, ",");
    options.swept[static_cast<size_t>(read_kind(at, length))] = true;
    if (at[length] == '\0')
      return;
    at += length + 1;
  }
}

int read_way(const char *text) {
  constexpr int kHighestErrno = 133;
  if (strcmp(text, "short") == 0)
    return kShort;
  for (int error = 1; error <= kHighestErrno; error++) {
    const char *name = strerrorname_np(error);
    if (name != nullptr && strcmp(name, text) == 0)
      return error;
  }
  misuse("no such error", text);
}

void add_object(const char *name, Order &order) {
  if (order.object_count == kMostObjects || strlen(name) >= kNameSize)
    misuse("too many objects, or too long a name", name);
  memcpy(order.objects[order.object_count++], name, strlen(name) + 1);
}

// Longer than the milliseconds of poll no run can be waited for.
double read_limit(const char *text) {
  constexpr int kLongest = INT_MAX / 1000;
  char *rest = nullptr;
  const double seconds = strtod(text, &rest);
  if (rest == text || *rest != '\0' || !(seconds >= 0 && seconds <= kLongest))
    misuse("--limit takes seconds, 2147483 at most", text);
  return seconds;
}

void read_statuses(const char *text, bool (&accepted)[kMostStatuses]) {
  memset(accepted, 0, sizeof accepted);
  const char *at = text;
  for (;;) {
    char *rest = nullptr;
    const long status = strtol(at, &rest, 10);
    if (rest == at || status < 0 || status >= kMostStatuses || (*rest != ',' && *rest != '\0'))
      misuse("--accept takes exit statuses, separated by commas", text);
    accepted[status] = true;
    if (*rest == '\0')
      return;
    at = rest + 1;
  }
}

enum Option {
  kFail = 1,
  kSweep,
  kErrno,
  kOnly,
  kChildren,
  kOnward,
  kSparse,
  kLimit,
  kAccept,
  kQuiet,
  kList,
  kHelpOption
};

constexpr option kOptions[] = {
    {"fail", required_argument, nullptr, kFail},
    {"sweep", required_argument, nullptr, kSweep},
    {"errno", required_argument, nullptr, kErrno},
    {"only", required_argument, nullptr, kOnly},
    {"children", no_argument, nullptr, kChildren},
    {"onward", no_argument, nullptr, kOnward},
    {"sparse", no_argument, nullptr, kSparse},
    {"limit", required_argument, nullptr, kLimit},
    {"accept", required_argument, nullptr, kAccept},
    {"quiet", no_argument, nullptr, kQuiet},
    {"list", no_argument, nullptr, kList},
    {"help", no_argument, nullptr, kHelpOption},
    {nullptr, 0, nullptr, 0},
};

// What is on when it is named.
void read_switch(int found, Options &options) {
  switch (found) {
  case kChildren:
    options.order.children = true;
    return;
  case kOnward:
    options.order.onward = true;
    return;
  case kSparse:
    options.sparse = true;
    return;
  case kQuiet:
    options.quiet = true;
    return;
  default: // getopt_long has said what is wrong
    exit(kUsageError);
  }
}

void read_option(int found, Options &options) {
  switch (found) {
  case kFail:
    return read_fail(optarg, options);
  case kSweep:
    return read_sweep(optarg, options);
  case kErrno:
    options.order.way = read_way(optarg);
    return;
  case kOnly:
    return add_object(optarg, options.order);
  case kLimit:
    options.limit = read_limit(optarg);
    return;
  case kAccept:
    return read_statuses(optarg, options.accepted);
  case kList:
    print_kinds();
  case kHelpOption:
    fputs(kHelp, stdout);
    exit(0);
  default:
    return read_switch(found, options);
  }
}

// "short" is for calls that take a number of bytes.
void check_way(const Order &order) {
  const KindRow &row = kKinds[static_cast<size_t>(order.kind)];
  bool can_be_short = false;
  for (const int way : row.ways)
    can_be_short = can_be_short || way == kShort;
  if (order.way == kShort && !can_be_short)
    misuse("no call of this kind can be short", row.name);
}

} // namespace

const char *name_of_way(int way) {
  return way == kShort ? "short" : strerrorname_np(way);
}

Options read_options(int argc, char **argv) {
  constexpr double kNotGiven = -1;
  constexpr double kSweepLimit = 10;
  Options options = {};
  options.limit = kNotGiven;
  memset(options.accepted, 1, sizeof options.accepted);
  int found;
  while ((found = getopt_long(argc, argv, "+", kOptions, nullptr)) != -1)
    read_option(found, options);
  if (options.sweeps == options.order.refuses)
    misuse("either --fail or --sweep", argv[0]);
  if (argv[optind] == nullptr)
    misuse("no program", argv[0]);
  if (!options.sweeps)
    check_way(options.order);
  if (!options.sweeps && options.order.way == 0)
    options.order.way = kKinds[static_cast<size_t>(options.order.kind)].ways[0];
  if (options.limit == kNotGiven)
    options.limit = options.sweeps ? kSweepLimit : 0;
  options.program = argv + optind;
  return options;
}

} // namespace torture
