// The terminal, if there is one: how wide it is, and the line that shows progress on it.
#pragma once

#include <cstddef>

namespace survey {

// Lets messages wrap at the width of the terminal that standard output is. Elsewhere lines stay
// whole, so that other programs can read them. A width asked for in the environment comes first.
void set_line_width();

// Shows how far the counting is, when standard error is a terminal: one line, written over and
// over.
void show_progress(size_t done, size_t count);

// Ends the line of progress, so that something else can be written. Without one nothing happens.
void end_progress();

} // namespace survey
