// The least that checked allocation has to do, for comparison: outside debug mode the tests and the
// counter, in debug mode header, record, trailer and both fillings.
#pragma once

#include <cstddef>

void *floor_malloc(size_t size, const char *function, const char *purpose);
void floor_free(void *block);

void floor_enable_debug();
