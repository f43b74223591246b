// Names of files on their way through lines and onto terminals. A name may hold any byte but "/"
// and NUL: newlines, percent signs, bytes that are no text.
#pragma once

namespace survey {

// A copy of the name that is a line of clean text: a backslash doubled, control characters and
// bytes that are not UTF-8 as \xHH. Give it back with orv_free.
char *escape_name(const char *name);

// Turns an escaped name back, in place. False for a text that escape_name did not make.
bool unescape_name(char *text);

// Writes "event: name" into the diagnostic trace.
void trace_name(const char *event, const char *name);

} // namespace survey
