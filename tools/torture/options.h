// What the command line of orv-torture asks for.
#pragma once

#include "control.h"

#include <cstdint>

namespace torture {

// What shells and env answer for a program that cannot be started, and this one for a mistake in
// its own arguments.
constexpr int kUsageError = 2;
constexpr int kCannotRun = 127;

constexpr int kMostStatuses = 256;

struct Options {
  bool sweeps;                  // or refuses one call of one run
  bool sparse;                  // a sweep leaves out more and more calls
  bool swept[kKindCount];       // the kinds to go through
  Order order;                  // of the one run; its way is 0 while none was named
  double limit;                 // seconds that a run may take; 0: for ever
  bool accepted[kMostStatuses]; // exit statuses that are in order
  bool quiet;                   // a sweep tells the runs that are not in order alone
  char *const *program;         // its name and arguments, ended by null
};

// Reads the command line; ends the process where it asks for help or makes no sense.
Options read_options(int argc, char **argv);

// A way as people write it: the name of an error number, or "short".
const char *name_of_way(int way);

} // namespace torture
