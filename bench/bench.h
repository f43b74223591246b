// What every benchmark program shares: it carries out one contender's operations and prints what
// they cost.
#pragma once

#include <span>

namespace bench {

struct Job {
  long count;            // operations to carry out
  const char *parameter; // what the case asks for besides; "" for nothing
};

struct Contender {
  const char *name;
  void (*prepare)(const Job &job); // what comes before the measured part; may be null
  void (*work)(const Job &job);    // the measured part
};

// The whole of a benchmark program's main: `PROGRAM CONTENDER COUNT [PARAMETER]` prints the
// processor time of the measured part, that of the children it has waited for included, and the
// time by the wall clock, both in nanoseconds. Returns the exit status.
int run(int argc, char **argv, std::span<const Contender> contenders);

// What happens while one of these lives is not measured: making ready what is used up, say.
class Unmeasured {
public:
  Unmeasured();
  Unmeasured(const Unmeasured &) = delete;
  Unmeasured &operator=(const Unmeasured &) = delete;
  ~Unmeasured();

private:
  long wall_start_;
  long start_;
};

// Says what has failed, with the system's reason, and ends the program.
[[noreturn]] void die(const char *what);

// Lets the compiler assume nothing about what becomes of a value.
template <typename Value> void keep(const Value &value) {
  asm volatile("" : : "r"(value) : "memory");
}

// Numbers that look random and are the same in every run.
class Random {
public:
  // A number below the limit.
  unsigned long below(unsigned long limit) {
    state_ ^= state_ << 13U;
    state_ ^= state_ >> 7U;
    state_ ^= state_ << 17U;
    return state_ % limit;
  }

private:
  unsigned long state_ = 88172645463325252UL;
};

} // namespace bench
