// One warning line an operation with spdlog, flushed, with as much in front of the text as the
// library has: no date.
#include "target.h"
#include "warning.h"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

namespace {

std::shared_ptr<spdlog::logger> logger;

void prepare(const bench::Job &job) {
  logger = spdlog::basic_logger_st("warnings", bench::target_path(job.parameter));
  logger->set_pattern("Warning: %v");
  logger->flush_on(spdlog::level::warn);
}

void warn(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    logger->warn("The disk {} is {} % full.", kDisk, kUsed);
}

constexpr bench::Contender kContenders[] = {{"spdlog", prepare, warn}};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
