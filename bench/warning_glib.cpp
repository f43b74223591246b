// One warning line an operation with GLib, which writes to standard error.
#include "target.h"
#include "warning.h"

#include <glib.h>

namespace {

void warn(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    g_warning(WARNING_FORMAT, kDisk, kUsed);
}

constexpr bench::Contender kContenders[] = {{"glib", bench::redirect_errors_to_target, warn}};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
