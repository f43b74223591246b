// survey counts the lines, words and bytes of every file in a folder tree. It shows a whole program
// built on the library: start-up with debug requests and trace log, the allocation debug mode from
// the first allocation to the closing report, a companion process over a pair connection that does
// the counting and may die at any time, framed messages between the two, listings by wildcard,
// signatures that tell which files changed, and messages for everything that a person reads.
//
// The way through it: this file reads the command line and makes the passes; listing.cpp finds the
// files; hand_over.cpp hands them to the companion, which is companion.cpp and counting.cpp, in the
// words of protocol.h; report.cpp prints. Exit status: 0 when every file was counted, 1 when some
// could not be, 2 when there was nothing to do.
#include "survey.h"

#include "companion.h"
#include "hand_over.h"
#include "names.h"
#include "options.h"
#include "protocol.h"
#include "report.h"
#include "terminal.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/msg.h>

namespace {

using namespace survey;

constexpr int kAllCounted = 0;
constexpr int kSomeNotCounted = 1;
constexpr int kNothingToDo = 2;

constexpr size_t kPathArea = 4097; // what the platform calls want of a path buffer

// Set by an interrupt while watching: the passes end, and everything is given back.
volatile int stop = 0;

void ask_to_stop(int) {
  stop = 1;
}

void end_cleanly_when_interrupted() {
  struct sigaction action = {};
  action.sa_handler = ask_to_stop;
  action.sa_flags = SA_RESTART;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

// The path by which survey starts itself again as its own companion.
const char *own_path(const char *name, char *area) {
  const char *path = platform_real_path("/proc/self/exe", area);
  return path == nullptr ? name : path;
}

bool is_folder(const char *path) {
  if (platform_is_dir(path) != 0)
    return true;
  const bool exists = platform_exists(path) != 0;
  const int error = errno;
  char *name = escape_name(path);
  msg_error_shared("%s cannot be surveyed: %s.", name, strerror(exists ? ENOTDIR : error));
  orv_free(name);
  return false;
}

void report(const Options &options, const Tree &tree, const Tree &earlier, bool first_pass) {
  if (!first_pass) {
    if (print_changes(tree, earlier) > 0)
      print_totals(tree);
    return;
  }
  if (!options.totals_only)
    print_table(tree);
  print_totals(tree);
}

// One pass over the tree; returns the exit status if it is the last one. The earlier pass gives way
// to it.
int make_pass(const Options &options, CompanionStart &start, Tree &earlier, bool first_pass) {
  Tree tree = list_tree(options.folder);
  diag_printf("%zu entries listed\n", tree.count);
  take_over_unchanged(tree, earlier);
  const bool complete = count_waiting(tree, start, stop);
  const size_t unreadable = warn_of_unreadable(tree, earlier);
  report(options, tree, earlier, first_pass);
  free_tree(earlier);
  earlier = tree;
  return complete && unreadable == 0 ? kAllCounted : kSomeNotCounted;
}

int make_passes(const Options &options, CompanionStart &start) {
  Tree tree = {};
  int status = make_pass(options, start, tree, true);
  for (unsigned pass = 1; options.watch && stop == 0 && pass != options.passes; pass++) {
    platform_sleep(options.seconds);
    if (stop == 0)
      status = make_pass(options, start, tree, false);
  }
  end_companion();
  free_tree(tree);
  return status;
}

int survey_folder(const Options &options, const char *name) {
  if (!is_folder(options.folder))
    return kNothingToDo;
  if (options.watch)
    end_cleanly_when_interrupted();
  char area[kPathArea];
  const char *faults = platform_getenv("SURVEY_COMPANION_DIES");
  CompanionStart start = {.program = own_path(name, area),
                          .faults = faults == nullptr ? "" : faults};
  const int status = make_passes(options, start);
  orv_malloc_debug_report(1);
  // A reader that went away has cost the messages their stream.
  return msg_has_print_streams() != 0 ? status : kSomeNotCounted;
}

} // namespace

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  set_line_width();
  if (argc > 1 && strcmp(argv[1], kCompanionOption) == 0)
    return run_companion(argc > 2 ? argv[2] : "");
  Options options = {};
  switch (read_options(argc > 0 ? argv + 1 : argv, options)) {
  case Asked::help:
    print_help();
    return kAllCounted;
  case Asked::nonsense:
    return kNothingToDo;
  case Asked::survey:
    break;
  }
  return survey_folder(options, argv[0]);
}
