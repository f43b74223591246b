// What survey tells a person about a pass: the table, the totals, what could not be read, what
// changed.
#pragma once

#include "survey.h"

namespace survey {

// A line for each file that was counted, under a head.
void print_table(const Tree &tree);

// The totals, and what was left out of them.
void print_totals(const Tree &tree);

// A line for each file that is new, has changed, or is gone since the earlier pass. Returns how
// many.
size_t print_changes(const Tree &tree, const Tree &earlier);

// A warning for each entry that could not be read, unless the earlier pass gave the same one.
// Returns how many entries could not be read, with and without a warning.
size_t warn_of_unreadable(const Tree &tree, const Tree &earlier);

} // namespace survey
