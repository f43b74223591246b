// The fixture of tests that must leave nothing behind: open descriptors, child processes and live
// blocks are compared before and after each test.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace support {

class ResourceTest : public ::testing::Test {
protected:
  void SetUp() override;
  void TearDown() override;

  // Blocks that the calls under test leave on purpose.
  void expect_blocks_left(long count) { blocks_left_on_purpose = count; }
  // Descriptors that the calls under test leave open on purpose.
  void expect_descriptors_left(int count) { descriptors_left_on_purpose = count; }

private:
  std::vector<std::string> descriptors_before;
  long blocks_before = 0;
  long blocks_left_on_purpose = 0;
  int descriptors_left_on_purpose = 0;
};

} // namespace support
