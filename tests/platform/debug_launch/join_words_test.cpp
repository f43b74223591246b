// The joining of words in an area of a fixed size: to its last byte, and never beyond it.
#include "platform/debug_launch.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using orv::debug_launch::join_words;
using orv::debug_launch::kWholeList;

// What the joined words leave in an area of this size, a terminator as "0" and bytes beyond the
// area as they stood, ".".
std::string joined(std::vector<const char *> words, size_t size) {
  std::string area(size + 3, '.');
  words.push_back(nullptr);
  EXPECT_TRUE(join_words(words.data(), kWholeList, area.data(), size));
  for (char &byte : area)
    if (byte == '\0')
      byte = '0';
  return area;
}

bool fit(std::vector<const char *> words, size_t size) {
  std::string area(size, '.');
  words.push_back(nullptr);
  return join_words(words.data(), kWholeList, area.data(), size);
}

TEST(JoinWords, fill_the_area_to_its_last_byte) {
  EXPECT_EQ(joined({"abcd"}, 5), "abcd0...");
  EXPECT_EQ(joined({"ab", "c"}, 5), "ab c0...");
  EXPECT_EQ(joined({"", "", "cd"}, 5), "  cd0...");
  EXPECT_EQ(joined({"abc", ""}, 5), "abc 0...");
  EXPECT_EQ(joined({}, 1), "0...");
}

TEST(JoinWords, do_not_fit_with_a_byte_more) {
  EXPECT_FALSE(fit({"abcde"}, 5));
  EXPECT_FALSE(fit({"ab", "cd"}, 5));
  EXPECT_FALSE(fit({"abcd", ""}, 5));
  EXPECT_FALSE(fit({"", ""}, 1));
}

TEST(JoinWords, are_as_many_as_were_counted) {
  const char *const words[] = {"a", "b", "c", nullptr};
  char area[10];
  EXPECT_TRUE(join_words(words, 2, area, sizeof area));
  EXPECT_STREQ(area, "a b");
  EXPECT_TRUE(join_words(words, 9, area, sizeof area));
  EXPECT_STREQ(area, "a b c");
}

} // namespace
