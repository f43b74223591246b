// Assertions that are live in every build type: whatever a build defines, NDEBUG never reaches
// them. The report is the C library's own: program, source, line, function and expression.
#pragma once

#undef NDEBUG
#include <assert.h>
