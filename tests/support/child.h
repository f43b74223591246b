// Runs a piece of a test in a process of its own, and brings back what it wrote and how it ended:
// for calls that end the process, write to the standard streams or change process-wide state.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>

namespace support {

struct Outcome {
  std::string out; // what went to standard output
  std::string err; // what went to standard error
  int exit_status; // -1 when a signal ended the process
  int signal;      // 0 when it exited
};

using Environment = std::initializer_list<std::pair<const char *, const char *>>;

// Runs `body` in a forked child whose standard output and error are files; the child ends with
// exit(0) when `body` returns. Variables in `environment` are set before (a null value unsets one).
// A child that takes longer than 20 seconds is killed.
Outcome run_in_child(const std::function<void()> &body, Environment environment = {},
                     const std::string &input = "");

// True under valgrind, which does not pass every request on to the system as it is: a limit on
// descriptors, say, or an exec with more arguments than the system takes.
bool under_valgrind();

} // namespace support
