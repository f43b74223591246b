// The width limit, the solo switch and the prefixes.
#include "messages/capture.h"
#include "support/child.h"
#include "support/system.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

using support::Capture;
using support::run_in_child;

class WidthLimit : public support::MessagesTest {};

// The limit that a process finds with ORV_MSGERR_WRAP set so.
std::string limit_found(const char *value) {
  return run_in_child([] { printf("%d", msg_get_width_limit()); }, {{"ORV_MSGERR_WRAP", value}})
      .out;
}

TEST_F(WidthLimit, is_78_without_the_variable) {
  EXPECT_EQ(limit_found(nullptr), "78");
  EXPECT_EQ(limit_found(""), "78");
}

TEST_F(WidthLimit, stays_where_the_variable_holds_no_number) {
  EXPECT_EQ(limit_found("abc"), "78");
  EXPECT_EQ(limit_found("-"), "78");
  EXPECT_EQ(limit_found("x200"), "78");
  EXPECT_EQ(limit_found("  "), "78");
}

TEST_F(WidthLimit, is_widened_by_the_variable) {
  EXPECT_EQ(limit_found("79"), "79");
  EXPECT_EQ(limit_found("200"), "200");
  EXPECT_EQ(limit_found("200 columns"), "200");
  EXPECT_EQ(limit_found(" +200"), "200");
  EXPECT_EQ(limit_found("0200"), "200") << "base 10";
  EXPECT_EQ(limit_found("32766"), "32766");
}

TEST_F(WidthLimit, is_never_narrowed_by_the_variable) {
  EXPECT_EQ(limit_found("1"), "78");
  EXPECT_EQ(limit_found("40"), "78");
  EXPECT_EQ(limit_found("77"), "78");
  EXPECT_EQ(limit_found("78"), "78");
}

TEST_F(WidthLimit, becomes_0_for_a_number_outside_1_to_32766) {
  EXPECT_EQ(limit_found("0"), "0");
  EXPECT_EQ(limit_found("-5"), "0");
  EXPECT_EQ(limit_found("32767"), "0");
  EXPECT_EQ(limit_found("40000"), "0");
  EXPECT_EQ(limit_found("4294967396"), "0") << "100 in 32 bits";
  EXPECT_EQ(limit_found("99999999999999999999"), "0");
  EXPECT_EQ(limit_found("-99999999999999999999"), "0");
}

TEST_F(WidthLimit, is_read_from_the_environment_once) {
  const auto outcome = run_in_child(
      [] {
        msg_get_width_limit();
        setenv("ORV_MSGERR_WRAP", "300", 1);
        printf("%d", msg_get_width_limit());
      },
      {{"ORV_MSGERR_WRAP", "abc"}});
  EXPECT_EQ(outcome.out, "78") << "settled even by a variable without a number";
}

TEST_F(WidthLimit, is_read_by_the_first_message) {
  const auto outcome = run_in_child(
      [] {
        msg_add_stream(MSG_INFO, stdout);
        msg_print("%0100d %d", 0, 1);
        setenv("ORV_MSGERR_WRAP", "300", 1);
        printf("%d", msg_get_width_limit());
      },
      {{"ORV_MSGERR_WRAP", "102"}});
  EXPECT_EQ(outcome.out, std::string(100, '0') + " 1\n102");
}

TEST_F(WidthLimit, is_read_by_a_raw_message_too) {
  const auto outcome = run_in_child(
      [] {
        msg_print_raw("text");
        setenv("ORV_MSGERR_WRAP", "300", 1);
        printf("%d", msg_get_width_limit());
      },
      {{"ORV_MSGERR_WRAP", "102"}});
  EXPECT_EQ(outcome.out, "102");
}

TEST_F(WidthLimit, is_not_read_by_a_dropped_message) {
  const auto outcome = run_in_child(
      [] {
        msg_set_solo_output(0);
        msg_print_solo("dropped");
        setenv("ORV_MSGERR_WRAP", "300", 1);
        printf("%d", msg_get_width_limit());
      },
      {{"ORV_MSGERR_WRAP", "102"}});
  EXPECT_EQ(outcome.out, "300");
}

TEST_F(WidthLimit, once_set_is_not_looked_up_in_the_environment) {
  const auto outcome = run_in_child(
      [] {
        msg_set_width_limit(40);
        printf("%d", msg_get_width_limit());
      },
      {{"ORV_MSGERR_WRAP", "200"}});
  EXPECT_EQ(outcome.out, "40");
}

TEST_F(WidthLimit, can_be_set_after_the_environment_was_read) {
  const auto outcome = run_in_child(
      [] {
        msg_get_width_limit();
        msg_set_width_limit(33);
        printf("%d", msg_get_width_limit());
      },
      {{"ORV_MSGERR_WRAP", "200"}});
  EXPECT_EQ(outcome.out, "33");
}

TEST_F(WidthLimit, below_0_is_a_fatal_error) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_ERROR, stderr);
    msg_set_solo_output(0); // the error is a shared one
    msg_set_width_limit(-1);
  });
  EXPECT_EQ(outcome.err, "Error: msg_set_width_limit: Width cannot be less than 0!\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(WidthLimit, of_0_switches_wrapping_off) {
  Capture capture(MSG_INFO);
  msg_set_width_limit(0);
  EXPECT_EQ(msg_get_width_limit(), 0);
  const std::string text = std::string(100, 'a') + " " + std::string(100, 'b');
  msg_print("%s", text.c_str());
  EXPECT_EQ(capture.text(), text + "\n");
}

TEST_F(WidthLimit, lookup_keeps_the_error_number) {
  setenv("ORV_MSGERR_WRAP", "99999999999999999999", 1);
  errno = EINTR;
  EXPECT_EQ(msg_get_width_limit(), 0);
  EXPECT_EQ(errno, EINTR);
}

class SoloSwitch : public support::MessagesTest {};

TEST_F(SoloSwitch, is_1_at_first) {
  EXPECT_EQ(msg_get_solo_output(), 1);
}

TEST_F(SoloSwitch, keeps_what_it_is_set_to) {
  msg_set_solo_output(0);
  EXPECT_EQ(msg_get_solo_output(), 0);
  msg_set_solo_output(-3);
  EXPECT_EQ(msg_get_solo_output(), -3);
}

TEST_F(SoloSwitch, of_any_nonzero_value_lets_solo_messages_through) {
  Capture capture(MSG_INFO);
  msg_set_solo_output(-3);
  msg_print_solo("said");
  EXPECT_EQ(capture.text(), "said\n");
}

struct PrefixRow {
  const char *name;
  void (*set)(const char *);
  const char *(*get)();
  const char *initial;
  const char *setter;
};

std::ostream &operator<<(std::ostream &out, const PrefixRow &row) {
  return out << row.name;
}

constexpr PrefixRow kPrefixes[] = {
    {"mp", msg_set_mp_prefix, msg_get_mp_prefix, "", "msg_set_mp_prefix"},
    {"warn", msg_set_warn_prefix, msg_get_warn_prefix, "Warning: ", "msg_set_warn_prefix"},
    {"print", msg_set_print_prefix, msg_get_print_prefix, "", "msg_set_print_prefix"},
    {"internal", msg_set_internal_error_prefix, msg_get_internal_error_prefix,
     "Internal error: ", "msg_set_internal_error_prefix"},
    {"error", msg_set_error_prefix, msg_get_error_prefix, "Error: ", "msg_set_error_prefix"},
};

class Prefix : public support::MessagesTest, public testing::WithParamInterface<PrefixRow> {};

TEST_P(Prefix, has_its_initial_text) {
  EXPECT_STREQ(GetParam().get(), GetParam().initial);
}

TEST_P(Prefix, is_copied_when_set) {
  expect_blocks_left(1);
  char text[] = "chosen ";
  GetParam().set(text);
  memset(text, 'x', sizeof text - 1);
  EXPECT_STREQ(GetParam().get(), "chosen ");
}

TEST_P(Prefix, set_from_null_is_empty) {
  expect_blocks_left(1);
  GetParam().set(nullptr);
  EXPECT_STREQ(GetParam().get(), "");
}

TEST_P(Prefix, set_again_releases_the_copy_before) {
  expect_blocks_left(1);
  GetParam().set("first");
  GetParam().set("second");
  GetParam().set("third");
  EXPECT_STREQ(GetParam().get(), "third");
}

TEST_P(Prefix, may_be_set_from_itself) {
  expect_blocks_left(1);
  GetParam().set("kept");
  GetParam().set(GetParam().get());
  EXPECT_STREQ(GetParam().get(), "kept");
}

TEST_P(Prefix, set_alone_leaves_the_others) {
  expect_blocks_left(1);
  GetParam().set("chosen");
  for (const PrefixRow &row : kPrefixes)
    EXPECT_STREQ(row.get(), row.get == GetParam().get ? "chosen" : row.initial);
}

TEST_P(Prefix, asks_for_its_length_and_one) {
  expect_blocks_left(1);
  GetParam().set("12345");
  EXPECT_EQ(support::last_size("malloc"), 6U);
}

TEST_P(Prefix, stays_where_the_copy_is_refused_with_a_shared_warning) {
  expect_blocks_left(1);
  msg_set_width_limit(0);
  msg_set_solo_output(0);
  GetParam().set("");
  Capture warnings(MSG_WARN);
  support::refuse("malloc", ENOMEM, 0, 1);
  GetParam().set("chosen prefix");
  EXPECT_STREQ(GetParam().get(), "");
  EXPECT_EQ(warnings.text(),
            std::string(msg_get_warn_prefix()) + GetParam().setter +
                ": Couldn't allocate 14 characters to store print prefix. Prefix unchanged.\n");
}

INSTANTIATE_TEST_SUITE_P(Each, Prefix, testing::ValuesIn(kPrefixes),
                         [](const auto &each) { return std::string(each.param.name); });

TEST_F(WidthLimit, of_a_refused_prefix_warning_names_the_size_asked_for) {
  msg_set_width_limit(0);
  Capture warnings(MSG_WARN);
  support::refuse("malloc", ENOMEM, 0, 1);
  msg_set_print_prefix(nullptr);
  EXPECT_EQ(warnings.text(), "Warning: msg_set_print_prefix: Couldn't allocate 1 characters to "
                             "store print prefix. Prefix unchanged.\n");
}

} // namespace
