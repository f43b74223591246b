// One warning line an operation, flushed, to the target that the parameter names.
#include "warning.h"
#include "floor_messages.h"
#include "target.h"

#include <orv/msg.h>

namespace {

FILE *stream;

void prepare_raw(const bench::Job &job) {
  stream = bench::open_target(job.parameter);
}

void warn_raw(const bench::Job &job) {
  for (long i = 0; i < job.count; i++) {
    fprintf(stream, "Warning: " WARNING_FORMAT "\n", kDisk, kUsed);
    fflush(stream);
  }
}

void prepare_floor(const bench::Job &job) {
  floor_set_stream(bench::open_target(job.parameter));
}

void warn_floor(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    floor_warn(WARNING_FORMAT, kDisk, kUsed);
}

void prepare_orv(const bench::Job &job) {
  msg_clear_streams(MSG_WARN);
  msg_add_stream(MSG_WARN, bench::open_target(job.parameter));
}

void warn_orv(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    msg_warn(WARNING_FORMAT, kDisk, kUsed);
}

constexpr bench::Contender kContenders[] = {
    {"raw", prepare_raw, warn_raw},
    {"floor", prepare_floor, warn_floor},
    {"orv", prepare_orv, warn_orv},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
