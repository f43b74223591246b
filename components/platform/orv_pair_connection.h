// What the sources of the pair connection share: the kinds of hand-over, and the standard
// descriptors.
#pragma once

#include <cstdint>

namespace orv::pair {

// How the companion's side was handed over; the values are those of the handle's field `kind`.
enum Kind : std::int32_t {
  kNoMarker = 0,
  kPlainMarker = 10,
  kSocketPair = 12,
  kHybridMarker = 13,
};

// Set in the kinds whose companion is not watched through its process id alone.
constexpr std::int32_t kUnwatchedBit = 1;
static_assert((kHybridMarker & kUnwatchedBit) != 0);
static_assert(((kNoMarker | kPlainMarker | kSocketPair) & kUnwatchedBit) == 0);

// Standard input, output and error, with the numbers below this one.
constexpr int kStandardDescriptors = 3;

} // namespace orv::pair
