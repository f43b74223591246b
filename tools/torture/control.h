// What the launcher and the layer inside the program share: one record in memory that both map. The
// launcher writes what is to be refused, the layer what came of it.
#pragma once

#include "kinds.h"

#include <atomic>
#include <cstdint>

namespace torture {

// Names the file of the record to the layer.
inline constexpr char kRecordVariable[] = "ORV_TORTURE_RECORD";

inline constexpr size_t kNameSize = 128;
inline constexpr size_t kMostObjects = 8;

// What is to be refused.
struct Order {
  bool refuses; // false: only count
  bool onward;  // every call from `number` on, not this one alone
  bool children;
  Kind kind;
  int way;         // an error number or kShort
  uint64_t number; // 1 for the first call
  size_t object_count;
  char objects[kMostObjects][kNameSize]; // base names; none: calls made from anywhere
};

// The first call that was refused.
struct Refusal {
  char call[kNameSize];
  char object[kNameSize];
  uint64_t offset; // of the return address in the object
  int process;
};

// What the first process of the program left when it ended by itself.
struct Remains {
  bool known;
  int descriptors;
  int children;
  int zombies; // those of the children that had ended
};

struct Record {
  Order order;
  int first_process; // below 0: the error for which the program could not be run
  bool was_loaded;   // the layer came into a process
  std::atomic<uint64_t> calls[kKindCount];
  std::atomic<uint64_t> refused;
  Refusal first_refusal;
  Remains remains;
};
static_assert(std::atomic<uint64_t>::is_always_lock_free);

} // namespace torture
