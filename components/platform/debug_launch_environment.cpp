// The environment calls of the debug launch: set and read a variable, describe the program to a
// debugging command, and read the name of the distribution.
#include "debug_launch.h"

#include "common/assertion.h"
#include "common/guards.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <orv/platform.h>

namespace orv::debug_launch {
namespace {

const char *base_name(const char *path) {
  const char *slash = strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

} // namespace

bool export_program(const char *program, char *const *args) {
  const char *path = text_or_empty(program);
  char parameters[kProgramArgumentsSize] = "";
  if (args != nullptr && !join_words(args, kWholeList, parameters, sizeof parameters))
    return false;
  char prompt[kPromptSize];
  snprintf(prompt, sizeof prompt, "debug %s", base_name(path));
  platform_setenv("ORV_DEBUG_PROMPT", prompt);
  platform_setenv("ORV_EXE", path);
  platform_setenv("ORV_EXE_PARMS", parameters);
  return true;
}

} // namespace orv::debug_launch

using namespace orv::debug_launch;

void platform_debug_export(const char *program, char *const *args) {
  [[maybe_unused]] const bool fitted = export_program(program, args);
}

int platform_setenv(const char *name, const char *value) {
  const size_t size = strlen(name) + 1 + strlen(value) + 1;
  auto *variable = static_cast<char *>(malloc(size));
  assert(variable != nullptr);
  snprintf(variable, size, "%s=%s", name, value);
  // Kept: the block is part of the environment from now on and is never freed, not even when the
  // variable is set again: somebody may still hold what platform_getenv returned.
  putenv(variable);
  return 0;
}

char *platform_getenv(const char *name) {
  return getenv(name);
}

const char *platform_distribution(void) {
  const char *top = platform_getenv("ORV_DIST");
  if (top == nullptr)
    return nullptr;
  char path[kDistributionPathSize];
  const int length = snprintf(path, sizeof path, "%s/dist/DISTRIBUTION", top);
  if (length < 0 || static_cast<size_t>(length) >= sizeof path)
    return nullptr;
  orv::StreamGuard file(fopen(path, "re"));
  if (file.get() == nullptr)
    return nullptr;
  // Kept: the stream stays open, and the area is returned as it stands even when the file holds no
  // word: it then keeps the name found earlier, or is empty.
  static_assert(kDistributionNameSize == 127 + 1);
  [[maybe_unused]] const int words = fscanf(file.get(), "%127s", state.distribution_name);
  [[maybe_unused]] const FILE *left_open = file.release();
  return state.distribution_name;
}
