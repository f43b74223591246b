// The formatting of messages and trace lines, compared with the system's: the same length and the
// same bytes, whichever way it goes.
#include "messages/format.h"
#include "support/child.h"
#include "support/resources.h"
#include "support/system.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace {

using Formatter = int (*)(char *, size_t, const char *, va_list);

struct Result {
  int length;
  std::string area; // with everything behind the terminator

  bool operator==(const Result &) const = default;
};

constexpr char kUntouched = '#';

Result format_with(Formatter formatter, size_t size, const char *format, va_list args) {
  std::string area(size + 8, kUntouched);
  va_list copy;
  va_copy(copy, args);
  const int length = formatter(area.data(), size, format, copy);
  va_end(copy);
  return {length, area};
}

// What stands behind the text of a buffer that is large enough is nobody's business.
Result seen_by_a_reader(Result result, size_t size) {
  if (size != 0)
    result.area.replace(result.area.find('\0') + 1, std::string::npos, result.area.substr(size));
  return result;
}

class Format : public support::ResourceTest {};

void expect_the_same(const char *format, ...) {
  va_list args;
  va_start(args, format);
  for (size_t size = 0; size < 120; size++)
    EXPECT_EQ(seen_by_a_reader(format_with(orv::messages::format_text, size, format, args), size),
              seen_by_a_reader(format_with(vsnprintf, size, format, args), size))
        << format << " in " << size;
  va_end(args);
}

// How often the system's formatter was needed.
long effort_of(size_t size, const char *format, ...) {
  const long before = support::calls("vsnprintf");
  va_list args;
  va_start(args, format);
  std::string area(size, kUntouched);
  EXPECT_GE(orv::messages::format_text(area.data(), size, format, args), 0);
  va_end(args);
  return support::calls("vsnprintf") - before;
}

TEST_F(Format, is_the_systems_for_texts) {
  expect_the_same("");
  expect_the_same("plain");
  expect_the_same("%s", "");
  expect_the_same("%s", "text");
  expect_the_same("<%s|%s>", "one", "two words");
  expect_the_same("%s%s%s%s%s%s%s%s", "1", "2", "3", "4", "5", "6", "7", "8");
  expect_the_same("%s", "\xff\xfe not of any character set");
}

TEST_F(Format, is_the_systems_for_whole_numbers) {
  for (const int number : {0, 1, -1, 9, 10, 99, 100, 1234567890, INT_MAX, INT_MIN})
    expect_the_same("%d|%u", number, number);
  for (const long number : {0L, -1L, 9999999999L, LONG_MAX, LONG_MIN})
    expect_the_same("%ld|%lu", number, number);
}

TEST_F(Format, is_the_systems_for_percent_signs) {
  expect_the_same("%%");
  expect_the_same("100%% of %s%%", "it");
  expect_the_same("%%s%%d", 1);
}

TEST_F(Format, is_the_systems_for_every_other_conversion) {
  expect_the_same("%5s|%-5s|%.2s", "a", "b", "ccc");
  expect_the_same("%5d|%-5d|%05d|%+d|% d|%.3d", 1, 2, 3, 4, 5, 6);
  expect_the_same("%x %X %#o %c %i %p", 10, 11, 12, 'c', 13, nullptr);
  expect_the_same("%zu %lld %hd %hhu %jd %lx", size_t{1}, 2LL, 3, 4, intmax_t{5}, 6L);
  expect_the_same("%.3f %g %e", 1.5, 2.5, 3.5);
  expect_the_same("%*d %.*s", 5, 1, 2, "text");
  expect_the_same("%2$s %1$s", "one", "two");
}

TEST_F(Format, is_the_systems_where_conversions_of_both_kinds_stand_together) {
  expect_the_same("%s %d %5.2f %s %ld %c", "a", 1, 2.5, "b", 3L, 'c');
  expect_the_same("%d %s %u %s %ld %s %lu %s %5d", 1, "2", 3, "4", 5L, "6", 7UL, "8", 9);
}

TEST_F(Format, is_the_systems_for_formats_that_end_within_a_conversion) {
  expect_the_same("%s%", "text");
  expect_the_same("%l", 1L);
  expect_the_same("%d%l", 1, 2L);
}

TEST_F(Format, is_the_systems_for_a_null_text) {
  expect_the_same("%s", nullptr);
  expect_the_same("%d %s %d", 1, nullptr, 2);
}

TEST_F(Format, does_without_the_system_for_plain_conversions_whether_they_fit_or_not) {
  EXPECT_EQ(effort_of(100, "%s %d %u %ld %lu %%", "text", 1, 2U, 3L, 4UL), 0);
  EXPECT_EQ(effort_of(5, "%s", ""), 0);
  EXPECT_EQ(effort_of(5, "%s", "four"), 0);
  EXPECT_EQ(effort_of(4, "%s", "four"), 0);
  EXPECT_EQ(effort_of(1, "%ld%%", 1234567890123L), 0);
}

int length_of(const char *format, ...) {
  va_list args;
  va_start(args, format);
  char area[8];
  const int length = orv::messages::format_text(area, sizeof area, format, args);
  va_end(args);
  return length;
}

// The length of a text that so many copies of another make.
template <size_t... Copies>
int length_of_copies(const char *text, const char *last, std::index_sequence<Copies...>) {
  std::string format = "%s";
  for (size_t i = 0; i < sizeof...(Copies); i++)
    format += "%s";
  return length_of(format.c_str(), (static_cast<void>(Copies), text)..., last);
}

TEST_F(Format, leaves_a_length_that_no_int_holds_to_the_system) {
  if (support::under_valgrind())
    GTEST_SKIP() << "2 GB are too many for valgrind";
  support::refuse("vsnprintf", EOVERFLOW); // which takes its time, too
  const std::string text(8 << 20, 'x');
  const std::make_index_sequence<255> others;
  EXPECT_EQ(length_of_copies(text.c_str(), text.c_str() + 1, others), INT_MAX);
  EXPECT_EQ(length_of_copies(text.c_str(), text.c_str(), others), -1);
  EXPECT_EQ(errno, EOVERFLOW);
}

TEST_F(Format, asks_the_system_once_for_everything_else) {
  EXPECT_EQ(effort_of(100, "%s %5d", "text", 1), 1);
  EXPECT_EQ(effort_of(100, "%s", nullptr), 1);
}

} // namespace
