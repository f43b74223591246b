// Blocks obtained and given back: the library, the floor, and the system's allocator, alone or
// under its own checks. Nothing here allocates before main, for mcheck has to be first.
#include "pairs.h"
#include "floor_alloc.h"

#include <mcheck.h>
#include <orv/alloc.h>

namespace {

struct Raw {
  static void *obtain(size_t size) { return malloc(size); }
  static void release(void *block) { free(block); }
};

struct Floor {
  static void *obtain(size_t size) { return floor_malloc(size, "pairs", "a block"); }
  static void release(void *block) { floor_free(block); }
};

struct Orv {
  static void *obtain(size_t size) { return orv_malloc(size, "pairs", "a block"); }
  static void release(void *block) { orv_free(block); }
};

void prepare_mcheck(const bench::Job &job) {
  if (mcheck(nullptr) != 0)
    bench::die("mcheck cannot be switched on");
  prepare<Raw>(job);
}

void prepare_floor_debug(const bench::Job &job) {
  floor_enable_debug();
  prepare<Floor>(job);
}

void prepare_orv_debug(const bench::Job &job) {
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  prepare<Orv>(job);
}

constexpr bench::Contender kContenders[] = {
    {"raw", prepare<Raw>, work<Raw>},       {"mcheck", prepare_mcheck, work<Raw>},
    {"floor", prepare<Floor>, work<Floor>}, {"floor-debug", prepare_floor_debug, work<Floor>},
    {"orv", prepare<Orv>, work<Orv>},       {"orv-debug", prepare_orv_debug, work<Orv>},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
