// Debug messages of GLib that nobody has asked for.
#include "bench.h"

#include <glib.h>

namespace {

void trace(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    g_debug("step %ld", i);
}

constexpr bench::Contender kContenders[] = {{"glib", nullptr, trace}};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
