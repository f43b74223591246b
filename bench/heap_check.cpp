// Every live block of the heap checked once an operation: COUNT checks of a heap with as many
// blocks as the parameter says. With "aged" behind the number the blocks have been given back and
// obtained anew in random order, so that neighbours in the records are none in memory.
#include "bench.h"
#include "floor_alloc.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <mcheck.h>
#include <orv/alloc.h>

namespace {

constexpr size_t kSmallest = 16;
constexpr size_t kLargest = 512;
constexpr int kGenerations = 4;

struct Raw {
  static void *obtain(size_t size) { return malloc(size); }
  static void release(void *block) { free(block); }
};

struct Floor {
  static void *obtain(size_t size) { return floor_malloc(size, "heap_check", "a block"); }
  static void release(void *block) { floor_free(block); }
};

struct Orv {
  static void *obtain(size_t size) { return orv_malloc(size, "heap_check", "a block"); }
  static void release(void *block) { orv_free(block); }
};

struct Blocks {
  void **block;
  size_t count;
  bench::Random random;

  size_t size() { return kSmallest + random.below(kLargest - kSmallest + 1); }
};

void shuffle(Blocks &blocks) {
  for (size_t i = blocks.count - 1; i > 0; i--)
    std::swap(blocks.block[i], blocks.block[blocks.random.below(i + 1)]);
}

// Half of the blocks, chosen and ordered by chance, are given back and obtained anew.
template <typename Heap> void replace_half(Blocks &blocks) {
  shuffle(blocks);
  for (size_t i = 0; i < blocks.count / 2; i++)
    Heap::release(blocks.block[i]);
  for (size_t i = 0; i < blocks.count / 2; i++)
    blocks.block[i] = Heap::obtain(blocks.size());
}

template <typename Heap> void populate(const bench::Job &job) {
  Blocks blocks{};
  char *rest = nullptr;
  blocks.count = strtoul(job.parameter, &rest, 10);
  blocks.block = static_cast<void **>(calloc(blocks.count, sizeof *blocks.block));
  for (size_t i = 0; i < blocks.count; i++)
    blocks.block[i] = Heap::obtain(blocks.size());
  if (strstr(rest, "aged") == nullptr)
    return;
  for (int i = 0; i < kGenerations; i++)
    replace_half<Heap>(blocks);
}

void prepare_floor(const bench::Job &job) {
  floor_enable_debug();
  populate<Floor>(job);
}

void prepare_orv(const bench::Job &job) {
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  populate<Orv>(job);
  orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
}

void prepare_mcheck(const bench::Job &job) {
  if (mcheck(nullptr) != 0)
    bench::die("mcheck cannot be switched on");
  populate<Raw>(job);
}

int (*dmalloc_verify)(const void *);

void prepare_dmalloc(const bench::Job &job) {
  dmalloc_verify =
      reinterpret_cast<decltype(dmalloc_verify)>(dlsym(RTLD_DEFAULT, "dmalloc_verify"));
  if (dmalloc_verify == nullptr)
    bench::die("dmalloc is not loaded");
  populate<Raw>(job);
}

// The words before and behind each block are read and compared, and nothing else.
[[gnu::noinline]] bool words_are_sound(std::span<const FloorRecord> records) {
  bool sound = true;
  for (const FloorRecord &record : records)
    if (record.block != nullptr)
      sound &= floor_header(record.block) >> 32U == kFloorAllocated && floor_has_trailer(record);
  return sound;
}

bool is_sound(const FloorRecord &record, size_t index) {
  return reinterpret_cast<uintptr_t>(record.block) % 8 == 0 &&
         floor_header(record.block) == (kFloorAllocated << 32U | index) &&
         floor_has_trailer(record);
}

void prefetch(const FloorRecord &record) {
  const auto address = reinterpret_cast<uintptr_t>(record.block);
  __builtin_prefetch(reinterpret_cast<const void *>(address - sizeof(uint64_t)));
  __builtin_prefetch(reinterpret_cast<const void *>(address + record.length));
}

// The whole check of each live block, with its words fetched in advance where the caches do not
// hold them all.
[[gnu::noinline]] bool blocks_are_sound(std::span<const FloorRecord> records) {
  constexpr size_t kAhead = 12;
  constexpr size_t kTooManyForCaches = 4096;
  const size_t prefetch_end = records.size() < kTooManyForCaches ? 0 : records.size();
  for (size_t i = 0; i < records.size(); i++) {
    if (i + kAhead < prefetch_end)
      prefetch(records[i + kAhead]);
    if (records[i].status == kFloorLive && !is_sound(records[i], i)) [[unlikely]]
      return false;
  }
  return true;
}

template <auto Check> void check_records(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    if (!Check(floor_records()))
      bench::die("the heap of the floor is damaged");
}

// In the mode that verifies the heap each allocation and each release checks all blocks.
void check_with_orv(const bench::Job &job) {
  for (long i = 0; i < job.count; i += 2)
    Orv::release(Orv::obtain(kSmallest));
}

void check_with_mcheck(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    mcheck_check_all();
}

void check_with_dmalloc(const bench::Job &job) {
  for (long i = 0; i < job.count; i++)
    bench::keep(dmalloc_verify(nullptr));
}

constexpr bench::Contender kContenders[] = {
    {"raw", prepare_floor, check_records<words_are_sound>},
    {"floor", prepare_floor, check_records<blocks_are_sound>},
    {"orv", prepare_orv, check_with_orv},
    {"mcheck", prepare_mcheck, check_with_mcheck},
    {"dmalloc", prepare_dmalloc, check_with_dmalloc},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
