// Runs one contender of a benchmark program and measures it.
#include "bench.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/resource.h>
#include <sys/time.h>

namespace bench {
namespace {

constexpr long kNanoseconds = 1'000'000'000;

long nanoseconds_of(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return time.tv_sec * kNanoseconds + time.tv_nsec;
}

long nanoseconds_in(const timeval &time) {
  return time.tv_sec * kNanoseconds + time.tv_usec * 1000;
}

// Of this process and of the children that have ended and were waited for.
long processor_nanoseconds() {
  rusage children{};
  getrusage(RUSAGE_CHILDREN, &children);
  return nanoseconds_of(CLOCK_PROCESS_CPUTIME_ID) + nanoseconds_in(children.ru_utime) +
         nanoseconds_in(children.ru_stime);
}

struct UnmeasuredTime {
  long wall;
  long processor;
};
UnmeasuredTime unmeasured;

const Contender *find_contender(std::span<const Contender> contenders, const char *name) {
  for (const Contender &contender : contenders)
    if (strcmp(contender.name, name) == 0)
      return &contender;
  return nullptr;
}

int explain(const char *program, std::span<const Contender> contenders) {
  fprintf(stderr, "usage: %s CONTENDER COUNT [PARAMETER]\ncontenders:", program);
  for (const Contender &contender : contenders)
    fprintf(stderr, " %s", contender.name);
  fputs("\n", stderr);
  return 2;
}

} // namespace

int run(int argc, char **argv, std::span<const Contender> contenders) {
  const Contender *contender = argc < 3 ? nullptr : find_contender(contenders, argv[1]);
  if (contender == nullptr)
    return explain(argv[0], contenders);
  const Job job{.count = strtol(argv[2], nullptr, 10), .parameter = argc > 3 ? argv[3] : ""};
  if (contender->prepare != nullptr)
    contender->prepare(job);
  const long wall_start = nanoseconds_of(CLOCK_MONOTONIC);
  const long start = processor_nanoseconds();
  contender->work(job);
  const long spent = processor_nanoseconds() - start - unmeasured.processor;
  const long wall_spent = nanoseconds_of(CLOCK_MONOTONIC) - wall_start - unmeasured.wall;
  printf("%ld %ld\n", spent, wall_spent);
  return 0;
}

Unmeasured::Unmeasured()
    : wall_start_(nanoseconds_of(CLOCK_MONOTONIC)), start_(processor_nanoseconds()) {}

Unmeasured::~Unmeasured() {
  unmeasured.processor += processor_nanoseconds() - start_;
  unmeasured.wall += nanoseconds_of(CLOCK_MONOTONIC) - wall_start_;
}

void die(const char *what) {
  fprintf(stderr, "%s: %s\n", what, strerror(errno));
  exit(1);
}

} // namespace bench
