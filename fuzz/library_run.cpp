// What the library takes of the heap while it runs is noted here, so that what it leaves on purpose
// can be given back between two inputs.
#include "library_run.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

std::vector<void *> blocks;

void *noted(void *block) {
  if (library_run::active && block != nullptr)
    blocks.push_back(block);
  return block;
}

// Blocks that the library gets elsewhere, or gives back when nobody watches, are not listed.
void forget(void *block) {
  for (size_t i = blocks.size(); i > 0; i--)
    if (blocks[i - 1] == block) {
      blocks[i - 1] = blocks.back();
      blocks.pop_back();
      return;
    }
}

} // namespace

void library_run::release_left_blocks() {
  for (void *block : blocks)
    free(block);
  blocks.clear();
}

extern "C" {

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size) {
  if (library_run::active && library_run::refuses_storage) {
    errno = ENOMEM;
    return nullptr;
  }
  return noted(__real_malloc(size));
}

char *__real_strdup(const char *text);
char *__wrap_strdup(const char *text) {
  char *copy = __real_strdup(text);
  noted(copy);
  return copy;
}

void __real_free(void *block);
void __wrap_free(void *block) {
  if (library_run::active)
    forget(block);
  __real_free(block);
}

} // extern "C"
