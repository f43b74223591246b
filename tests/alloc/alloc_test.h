// What the tests of the alloc component share: running pieces in a child with unwrapped messages,
// switching debug mode on, and reading what was said.
#pragma once

#include "support/child.h"
#include "support/resources.h"
#include "support/system.h"

#include <cstddef>
#include <functional>
#include <gtest/gtest.h>
#include <orv/alloc.h>
#include <orv/msg.h>
#include <regex>
#include <string>

namespace alloc_test {

using support::Outcome;

// A child whose messages come in one line each.
inline Outcome run_unwrapped(const std::function<void()> &body) {
  return support::run_in_child([&] {
    msg_set_width_limit(0);
    body();
  });
}

// The same in debug mode; blocks that are given back can still be looked at.
inline Outcome run_in_debug_mode(const std::function<void()> &body,
                                 int mode = ORV_MALLOC_CHECK_PTR) {
  return run_unwrapped([&] {
    support::keep_freed_blocks();
    orv_enable_malloc_debug(mode);
    body();
  });
}

// Every 16-digit address replaced by 0xADDRESS.
inline std::string masked(const std::string &text) {
  static const std::regex address("0x[0-9A-F]{16}");
  return std::regex_replace(text, address, "0xADDRESS");
}

// The process ended with exactly this error line.
inline void expect_fatal(const Outcome &outcome, const std::string &text) {
  EXPECT_EQ(masked(outcome.err), "Error: " + text + "\n");
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.signal, 0);
}

inline void expect_quiet_success(const Outcome &outcome) {
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
}

// A fixture with debug mode on and its table already there, so that only blocks are compared.
// The record with index 0 is the next one used.
class DebugMode : public support::ResourceTest {
protected:
  void SetUp() override {
    orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
    orv_free(orv_malloc(1, nullptr, nullptr));
    support::ResourceTest::SetUp();
  }
};

// A value that the compiler cannot see through, where it would rightly warn of a misuse.
template <typename Value> Value hidden(Value value) {
  volatile Value opaque = value;
  return opaque;
}

// orv_free without what the compiler knows of it: tests look at blocks that were given back.
inline void (*volatile release)(void *) = orv_free;

// Overwrites one byte in or around a block, whatever the compiler thinks of that.
inline void overwrite(void *block, ptrdiff_t offset) {
  static_cast<volatile char *>(block)[offset] = 0;
}

} // namespace alloc_test
