// Blocks obtained from GLib and given back.
#include "pairs.h"

#include <glib.h>

namespace {

struct GLib {
  static void *obtain(size_t size) { return g_malloc(size); }
  static void release(void *block) { g_free(block); }
};

constexpr bench::Contender kContenders[] = {{"glib", prepare<GLib>, work<GLib>}};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
