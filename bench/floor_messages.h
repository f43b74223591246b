// The least that messages and trace have to do, for comparison.
#pragma once

#include <cstdio>

// A warning line: the text expanded, searched for line breaks, written behind its prefix, flushed,
// and what a later message has to know remembered.
[[gnu::format(printf, 1, 2)]] void floor_warn(const char *format, ...);

// A text wrapped at 78 columns and written line by line.
void floor_print(const char *text);

// Where both write to.
void floor_set_stream(FILE *stream);

// A trace call that finds no stream, and a function that does nothing.
void floor_trace(const char *format, long number);
[[gnu::format(printf, 1, 2)]] void floor_nothing(const char *format, ...);
