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

// A whole number of at least 1. False, after saying so, for anything else.
bool read_number(const char *option, const char *text, unsigned &number) {
  char *end = nullptr;
  const long value = text == nullptr ? 0 : strtol(text, &end, 10);
  if (value >= 1 && value <= INT_MAX && *end == '\0') {
    number = static_cast<unsigned>(value);
    return true;
  }
  msg_error_shared("%s takes a whole number from 1 on.\n%s", option, kUsage);
  return false;
}

} // namespace

Asked read_options(char **arguments, Options &options) {
  bool options_ended = false;
  for (char **at = arguments; *at != nullptr; at++) {
    const bool is_option = !options_ended && **at == '-';
    if (!is_option) {
      if (options.folder != nullptr)
        return refuse("One folder is enough; there is also", *at);
      options.folder = *at;
    } else if (strcmp(*at, "--") == 0) {
      options_ended = true;
    } else if (strcmp(*at, "--help") == 0) {
      return Asked::help;
    } else if (strcmp(*at, "--totals") == 0) {
      options.totals_only = true;
    } else if (strcmp(*at, "--watch") == 0) {
      options.watch = true;
      if (!read_number("--watch", *++at, options.seconds))
        return Asked::nonsense;
    } else if (strcmp(*at, "--passes") == 0) {
      if (!read_number("--passes", *++at, options.passes))
        return Asked::nonsense;
    } else {
      return refuse("There is no option", *at);
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
