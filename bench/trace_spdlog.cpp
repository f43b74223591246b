// Trace lines of spdlog: its level off, or to a file where a target is the parameter.
#include "target.h"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

namespace {

std::shared_ptr<spdlog::logger> logger;

void prepare(const bench::Job &job) {
  if (job.parameter[0] == '\0') {
    logger = spdlog::null_logger_st("trace");
    return;
  }
  logger = spdlog::basic_logger_st("trace", bench::target_path(job.parameter));
  logger->set_pattern("%v");
  logger->set_level(spdlog::level::trace);
}

void trace(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    logger->trace("step {}", i);
}

constexpr bench::Contender kContenders[] = {{"spdlog", prepare, trace}};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
