// One warning line an operation with glog, to standard error, where it keeps to one stream.
#include "target.h"
#include "warning.h"

#include <glog/logging.h>

namespace {

void prepare(const bench::Job &job) {
  bench::redirect_errors_to_target(job);
  FLAGS_logtostderr = true;
  google::InitGoogleLogging("warning_glog");
}

void warn(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    LOG(WARNING) << "The disk " << kDisk << " is " << kUsed << " % full.";
}

constexpr bench::Contender kContenders[] = {{"glog", prepare, warn}};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
