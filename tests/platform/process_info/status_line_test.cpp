// The status line and the rounding of process information, in every shape that the system's own
// files do not show.
#include "platform/process_info.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using orv::platform::kilobytes_of_bytes;
using orv::platform::kilobytes_of_pages;
using orv::platform::kilobytes_per_page;
using orv::platform::parse_process_status;
using orv::platform::ProcessStatus;

constexpr uint64_t kLargest = UINT64_MAX;

// A line whose every number from field 4 on is the number of its field.
std::string status_line(const std::string &name, int last_field = 52) {
  std::string line = "4242 ";
  line.append(name).append(" S");
  for (int field = 4; field <= last_field; field++)
    line.append(" ").append(std::to_string(field));
  return line.append("\n");
}

TEST(StatusLine, holds_the_sizes_in_fields_23_and_24) {
  const ProcessStatus status = parse_process_status(status_line("(orv)").c_str());
  EXPECT_EQ(status.virtual_bytes, 23U);
  EXPECT_EQ(status.resident_pages, 24U);
}

TEST(StatusLine, may_hold_negative_numbers_where_numbers_are_signed) {
  const ProcessStatus status = parse_process_status(
      "1 (a) S -4 -5 -6 -7 -8 9 10 11 12 13 -14 -15 -16 -17 -18 -19 20 21 -22 1025 77 25\n");
  EXPECT_EQ(status.virtual_bytes, 1025U);
  EXPECT_EQ(status.resident_pages, 77U);
}

TEST(StatusLine, holds_unsigned_sizes_of_64_bits) {
  const ProcessStatus status =
      parse_process_status("1 (a) S 4 5 6 7 8 18446744073709551615 10 11 12 13 14 15 16 17 18 19 "
                           "20 21 22 18446744073709551615 18446744073709551614 25\n");
  EXPECT_EQ(status.virtual_bytes, kLargest);
  EXPECT_EQ(status.resident_pages, kLargest - 1);
}

TEST(StatusLine, gives_zero_for_fields_that_it_does_not_hold) {
  EXPECT_EQ(parse_process_status(status_line("(a)", 23).c_str()).virtual_bytes, 23U);
  EXPECT_EQ(parse_process_status(status_line("(a)", 23).c_str()).resident_pages, 0U);
  EXPECT_EQ(parse_process_status(status_line("(a)", 22).c_str()).virtual_bytes, 0U);
  for (const char *line : {"", "\n", "x", "4242", "4242 (a)", "4242 (a) S"}) {
    EXPECT_EQ(parse_process_status(line).virtual_bytes, 0U) << line;
    EXPECT_EQ(parse_process_status(line).resident_pages, 0U) << line;
  }
}

TEST(StatusLine, may_end_behind_the_sizes) {
  EXPECT_EQ(parse_process_status(status_line("(a)", 24).c_str()).resident_pages, 24U);
}

TEST(StatusLine, stops_giving_numbers_at_the_rest_of_a_name_with_a_blank) {
  for (const char *name : {"(a b)", "(a 1)", "(a )", "( a)", "(a 1 2 3)", "(tmux: server)"}) {
    const ProcessStatus status = parse_process_status(status_line(name).c_str());
    EXPECT_EQ(status.virtual_bytes, 0U) << name;
    EXPECT_EQ(status.resident_pages, 0U) << name;
  }
}

TEST(StatusLine, gives_its_neighbours_when_a_name_of_two_words_shifts_the_columns) {
  // The second word stands for the state, so every number stands one column further on.
  std::string line = status_line("(a b");
  line[line.find('S')] = '3';
  const ProcessStatus status = parse_process_status(line.c_str());
  EXPECT_EQ(status.virtual_bytes, 22U);
  EXPECT_EQ(status.resident_pages, 23U);
}

TEST(StatusLine, may_hold_a_name_as_long_as_itself) {
  std::string line(1023, 'n');
  line[0] = '1';
  line[1] = ' ';
  EXPECT_EQ(parse_process_status(line.c_str()).virtual_bytes, 0U);
}

TEST(Kilobytes, of_bytes_are_rounded_up) {
  EXPECT_EQ(kilobytes_of_bytes(0), 0U);
  EXPECT_EQ(kilobytes_of_bytes(1), 1U);
  EXPECT_EQ(kilobytes_of_bytes(1023), 1U);
  EXPECT_EQ(kilobytes_of_bytes(1024), 1U);
  EXPECT_EQ(kilobytes_of_bytes(1025), 2U);
  EXPECT_EQ(kilobytes_of_bytes(kLargest - 1023), kLargest >> 10);
}

TEST(Kilobytes, of_a_page_are_its_1024th) {
  EXPECT_EQ(kilobytes_per_page(4096), 4.0);
  EXPECT_EQ(kilobytes_per_page(65536), 64.0);
  EXPECT_EQ(kilobytes_per_page(1024), 1.0);
  EXPECT_EQ(kilobytes_per_page(512), 0.5);
  EXPECT_EQ(kilobytes_per_page(2), 0.001953125);
}

TEST(Kilobytes, of_a_page_of_one_byte_are_one) {
  EXPECT_EQ(kilobytes_per_page(1), 1.0);
}

TEST(Kilobytes, of_pages_are_rounded_down) {
  EXPECT_EQ(kilobytes_of_pages(10, 4.0), 40U);
  EXPECT_EQ(kilobytes_of_pages(0, 4.0), 0U);
  EXPECT_EQ(kilobytes_of_pages(1, 0.5), 0U);
  EXPECT_EQ(kilobytes_of_pages(3, 0.5), 1U);
}

TEST(Kilobytes, of_pages_are_worked_out_in_doubles) {
  EXPECT_EQ(kilobytes_of_pages((uint64_t{1} << 53) + 1, 1.0), uint64_t{1} << 53);
}

TEST(Kilobytes, of_many_pages_go_through_the_unsigned_range) {
  EXPECT_EQ(kilobytes_of_pages(uint64_t{1} << 61, 4.0), uint64_t{1} << 63);
  EXPECT_EQ(kilobytes_of_pages((uint64_t{1} << 63) + 2048, 1.0), (uint64_t{1} << 63) + 2048);
  EXPECT_EQ(kilobytes_of_pages(kLargest - 2047, 1.0), kLargest - 2047);
}

TEST(Kilobytes, beyond_64_bits_have_none_left) {
  EXPECT_EQ(kilobytes_of_pages(uint64_t{1} << 62, 4.0), 0U);
  EXPECT_EQ(kilobytes_of_pages(kLargest, 64.0), 0U);
}

} // namespace
