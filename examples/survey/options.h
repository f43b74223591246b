// What the user asks for on the command line.
#pragma once

namespace survey {

struct Options {
  const char *folder;
  bool totals_only;
  bool watch;
  unsigned seconds; // between two passes
  unsigned passes;  // 0 for no limit
};

enum class Asked { survey, help, nonsense };

// Reads the arguments, ended by null and without the program's name. Nonsense was told already.
Asked read_options(char **arguments, Options &options);

void print_help();

} // namespace survey
