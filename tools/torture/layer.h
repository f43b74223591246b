// What the sources of the preloaded layer share: the record, the verdict on a call, and the search
// for the function that the layer stands in front of.
#pragma once

#include "control.h"

namespace torture {

struct Verdict {
  int error; // 0: the call is made
  bool cut;  // the call is made for half of its bytes
};

// Counts a call and tells what becomes of it; errno is set when it is refused. Safe at any time:
// before constructors, in signal handlers, between fork and exec.
[[nodiscard]] Verdict judge(Kind kind, const char *call, const void *return_address);

// A function of the C library that the layer stands in front of.
struct Next {
  const char *name;
  void *address; // null until it was looked for
};

[[nodiscard]] void *find(Next &next);

// Every Next there is, one after the other.
extern "C" Next first_next asm("__start_torture_next");
extern "C" Next end_of_next asm("__stop_torture_next");

// The record, or null where no launcher stands behind this process.
[[nodiscard]] Record *record();

// Writes down what this process leaves, if it is the first of the program.
void report_remains();

} // namespace torture
