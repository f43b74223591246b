// Trace calls: without a stream, or with one that is not synced where a target is the parameter.
#include "floor_messages.h"
#include "target.h"

#include <orv/diag.h>
#include <orv/msg.h>

namespace {

FILE *stream;

void loop(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    bench::keep(i);
}

void call_nothing(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    floor_nothing("step %ld\n", i);
}

void trace_floor(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    floor_trace("step %ld\n", i);
}

void prepare_raw(const bench::Job &job) {
  stream = bench::open_target(job.parameter);
}

void trace_raw(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    fprintf(stream, "step %ld\n", i);
}

void prepare_orv(const bench::Job &job) {
  if (job.parameter[0] != '\0')
    msg_add_stream(MSG_DIAG, bench::open_target(job.parameter));
}

void trace_orv(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    diag_printf("step %ld\n", i);
}

constexpr bench::Contender kContenders[] = {
    {"loop", nullptr, loop},         {"nothing", nullptr, call_nothing},
    {"floor", nullptr, trace_floor}, {"raw", prepare_raw, trace_raw},
    {"orv", prepare_orv, trace_orv},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
