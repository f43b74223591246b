// The command line of survey.
#include "options.h"

#include "names.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <orv/alloc.h>
#include <orv/msg.h>

namespace survey {
namespace {

constexpr char kUsage[] =
    "usage: survey [--totals] [--watch SECONDS [--passes NUMBER]] [--] [FOLDER]";

Asked refuse(const char *what, const char *argument) {
  char *text = escape_name(argument);
  msg_error_shared("%s \"%s\".\n%s", what, text, kUsage);
  orv_free(text);
  return Asked::nonsense;
}

// Reads a whole number of at least 1.
Asked read_number(const char *option, const char *text, unsigned &number) {
  char *end = nullptr;
  const long value = text == nullptr ? 0 : strtol(text, &end, 10);
  if (value < 1 || value > INT_MAX || *end != '\0') {
    msg_error_shared("%s takes a whole number from 1 on.\n%s", option, kUsage);
    return Asked::nonsense;
  }
  number = static_cast<unsigned>(value);
  return Asked::survey;
}

// Reads the option at hand, and the number after it if it takes one.
Asked read_option(char **&at, Options &options) {
  const char *option = *at;
  if (strcmp(option, "--help") == 0)
    return Asked::help;
  if (strcmp(option, "--totals") == 0) {
    options.totals_only = true;
    return Asked::survey;
  }
  if (strcmp(option, "--watch") == 0) {
    options.watch = true;
    return read_number(option, *++at, options.seconds);
  }
  if (strcmp(option, "--passes") == 0)
    return read_number(option, *++at, options.passes);
  return refuse("There is no option", option);
}

} // namespace

Asked read_options(char **arguments, Options &options) {
  bool options_ended = false;
  for (char **at = arguments; *at != nullptr; at++) {
    if (!options_ended && strcmp(*at, "--") == 0) {
      options_ended = true;
    } else if (!options_ended && **at == '-') {
      const Asked asked = read_option(at, options);
      if (asked != Asked::survey)
        return asked;
    } else if (options.folder == nullptr) {
      options.folder = *at;
    } else {
      return refuse("One folder is enough; there is also", *at);
    }
  }
  if (options.folder == nullptr)
    options.folder = ".";
  return Asked::survey;
}

void print_help() {
  msg_print("%s", kUsage);
  msg_print("Counts the lines, words and bytes of every file below FOLDER, by default the current "
            "folder.");
  msg_print_with_prefix("  --totals            ", "print the totals only, not the table");
  msg_print_with_prefix("  --watch SECONDS     ",
                        "look again and again, and tell which files changed");
  msg_print_with_prefix("  --passes NUMBER     ", "end after so many passes");
}

} // namespace survey
