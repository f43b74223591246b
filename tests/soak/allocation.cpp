// Allocations in the debug mode that looks at every block before each call, with few blocks alive
// at a time: nothing is lost, and neither table nor heap grows.
//   soak_allocation [CALLS]
#include "soak/level.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <orv/alloc.h>
#include <random>

namespace {

struct Block {
  unsigned char *bytes;
  size_t length;
};

Block blocks[60];
std::minstd_rand numbers{3};

// A block is full of its place's number.
void fill(size_t place) {
  memset(blocks[place].bytes, static_cast<int>(place), blocks[place].length);
}

void check(size_t place, size_t length) {
  for (size_t i = 0; i < length; i++)
    soak::expect(blocks[place].bytes[i] == place, "a block's bytes have changed");
}

void allocate(size_t place) {
  const size_t length = 1 + numbers() % 400;
  blocks[place] = {static_cast<unsigned char *>(orv_malloc(length, "allocate", "a block")), length};
  fill(place);
}

void resize(size_t place) {
  check(place, blocks[place].length);
  const size_t kept = blocks[place].length;
  const size_t length = 1 + numbers() % 400;
  blocks[place] = {
      static_cast<unsigned char *>(orv_realloc(blocks[place].bytes, length, "resize", "a block")),
      length};
  check(place, kept < length ? kept : length);
  fill(place);
}

void release(size_t place) {
  check(place, blocks[place].length);
  orv_free(blocks[place].bytes);
  blocks[place] = {nullptr, 0};
}

uint32_t bytes_alive() {
  uint32_t sum = 0;
  for (const Block &block : blocks)
    sum += static_cast<uint32_t>(block.length);
  return sum;
}

void run(long calls) {
  for (long call = 0; call < calls; call++) {
    const size_t place = numbers() % std::size(blocks);
    if (blocks[place].bytes == nullptr)
      allocate(place);
    else if (numbers() % 3 == 0)
      resize(place);
    else
      release(place);
    if (call % 1000 == 0)
      soak::expect(orv_malloc_mem_used() == bytes_alive(), "the count of bytes is wrong");
  }
  for (size_t place = 0; place < std::size(blocks); place++)
    if (blocks[place].bytes != nullptr)
      release(place);
  soak::expect(orv_malloc_mem_used() == 0, "storage is left");
}

} // namespace

int main(int argc, char **argv) {
  soak::count_every_block(argv);
  const long calls = soak::count_of(argc, argv, 50000);
  orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
  run(1000);
  const soak::Level warm = soak::level();
  run(calls);
  soak::expect_level(warm);
  orv_malloc_debug_report(0);
  printf("%ld calls, with every block looked at before each\n", calls);
  return 0;
}
