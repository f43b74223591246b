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
inline size_t sizes_used;

inline size_t next_size() {
  return sizes[sizes_used++ % kSizes];
}

// The live blocks of a case: each operation gives the oldest of them back and obtains another.
inline void **live;
inline size_t live_count;

template <typename Heap> void release_at_once(long count) {
  for (long i = 0; i < count; i++) {
    void *block = Heap::obtain(next_size());
    bench::keep(block);
    Heap::release(block);
  }
}

template <typename Heap> void replace_live_blocks(long count) {
  size_t oldest = 0;
  for (long i = 0; i < count; i++) {
    Heap::release(live[oldest]);
    live[oldest] = Heap::obtain(next_size());
    oldest = oldest + 1 == live_count ? 0 : oldest + 1;
  }
}

// Every live block has been replaced once when the measured part begins.
template <typename Heap> void prepare(const bench::Job &job) {
  bench::Random random;
  for (size_t &size : sizes)
    size = kSmallest + random.below(kLargest - kSmallest + 1);
  live_count = strtoul(job.parameter, nullptr, 10);
  if (live_count == 0)
    return;
  live = static_cast<void **>(malloc(live_count * sizeof *live));
  for (size_t i = 0; i < live_count; i++)
    live[i] = Heap::obtain(next_size());
  replace_live_blocks<Heap>(static_cast<long>(live_count));
}

template <typename Heap> void work(const bench::Job &job) {
  if (live_count == 0)
    release_at_once<Heap>(job.count);
  else
    replace_live_blocks<Heap>(job.count);
}
