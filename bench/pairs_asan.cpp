// Blocks obtained and given back under AddressSanitizer.
#include "pairs.h"

namespace {

struct Watched {
  static void *obtain(size_t size) { return malloc(size); }
  static void release(void *block) { free(block); }
};

constexpr bench::Contender kContenders[] = {{"asan", prepare<Watched>, work<Watched>}};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
