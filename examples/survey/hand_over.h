// The parent's side of the counting: hands files over to a companion and collects its answers.
#pragma once

#include "survey.h"

namespace survey {

// How to start companions.
struct CompanionStart {
  const char *program; // the path of survey itself
  const char *faults;  // when the first, the second ... companion dies, separated by commas
};

// Counts every entry that waits. Starts a companion when there is none, and another one when it
// ends: what it did not answer is handed over again. False when companions end without ever
// answering, or when `stop` became non-zero: then some entries still wait.
bool count_waiting(Tree &tree, CompanionStart &start, const volatile int &stop);

// Tells the companion to report and end, and waits for it. Without one nothing happens.
void end_companion();

} // namespace survey
