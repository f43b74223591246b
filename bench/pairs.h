// Blocks of 16 to 512 bytes obtained from any heap and given back: at once, or, with a number as
// the parameter, while so many others are live.
#pragma once

#include "bench.h"

#include <cstddef>
#include <cstdlib>

constexpr size_t kSizes = 4096;
constexpr size_t kSmallest = 16;
constexpr size_t kLargest = 512;
inline size_t sizes[kSizes];

// The live blocks of a case: each operation gives one of them back and obtains it anew.
inline void **live;
inline size_t live_count;

template <typename Heap> void prepare(const bench::Job &job) {
  bench::Random random;
  for (size_t &size : sizes)
    size = kSmallest + random.below(kLargest - kSmallest + 1);
  live_count = strtoul(job.parameter, nullptr, 10);
  live = static_cast<void **>(calloc(live_count + 1, sizeof *live));
  for (size_t i = 0; i < live_count; i++)
    live[i] = Heap::obtain(sizes[i % kSizes]);
}

template <typename Heap> void release_at_once(long count) {
  for (long i = 0; i < count; i++) {
    void *block = Heap::obtain(sizes[static_cast<size_t>(i) % kSizes]);
    bench::keep(block);
    Heap::release(block);
  }
}

template <typename Heap> void replace_live_blocks(long count) {
  size_t place = 0;
  for (long i = 0; i < count; i++) {
    Heap::release(live[place]);
    live[place] = Heap::obtain(sizes[static_cast<size_t>(i) % kSizes]);
    place = place + 1 == live_count ? 0 : place + 1;
  }
}

template <typename Heap> void work(const bench::Job &job) {
  if (live_count == 0)
    release_at_once<Heap>(job.count);
  else
    replace_live_blocks<Heap>(job.count);
}
