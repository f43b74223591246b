// The steps of writing a message: line heads, the column, raw text, the text's buffer.
#include "messages/capture.h"
#include "messages/state.h"
#include "support/child.h"
#include "support/system.h"
#include "support/text_at_page_end.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <gmock/gmock.h>

namespace {

using support::Capture;
using support::run_in_child;
using testing::ElementsAre;

void output(int type, int format_type, int solo, int continuation, const char *prefix,
            const char *format, ...) {
  va_list args;
  va_start(args, format);
  msg_output(type, format_type, solo, continuation, prefix, format, args);
  va_end(args);
}

class Writer : public support::MessagesTest {
protected:
  Capture info{MSG_INFO};
  Capture warn{MSG_WARN};
  Capture error{MSG_ERROR};
};

// Line heads

TEST_F(Writer, indents_further_lines_under_the_prefix) {
  msg_error_shared("one\ntwo\nthree");
  EXPECT_EQ(error.text(), "Error: one\n       two\n       three\n");
}

TEST_F(Writer, leads_every_line_with_the_mp_prefix_then_the_prefix_or_indentation) {
  expect_blocks_left(1);
  msg_set_mp_prefix("[7] ");
  msg_error_shared("one\ntwo");
  EXPECT_EQ(error.text(), "[7] Error: one\n[7]        two\n");
}

TEST_F(Writer, writes_the_pieces_of_a_wrapped_message_one_by_one) {
  expect_blocks_left(1);
  msg_set_mp_prefix("m|");
  msg_set_width_limit(14);
  msg_error_shared("one two\n three");
  EXPECT_THAT(error.pieces(),
              ElementsAre("m|", "Error: ", "one", "\n", "m|", "       ", "two", "\n", "m|",
                          "       ", "\n", "m|", "       ", "three", "\n"));
}

TEST_F(Writer, writes_the_pieces_of_raw_text_with_their_newlines) {
  msg_error_raw(0, "one\ntwo\n\nthree");
  EXPECT_THAT(error.pieces(), ElementsAre("Error: ", "one\n", "       ", "two\n", "       ", "\n",
                                          "       ", "three"));
}

TEST_F(Writer, writes_each_piece_to_every_stream_before_the_next) {
  std::string order;
  Capture second(MSG_ERROR);
  error.on_write = [&] { order += "1"; };
  second.on_write = [&] { order += "2"; };
  msg_error_shared("text");
  EXPECT_EQ(order, "121212");
  EXPECT_EQ(second.text(), "Error: text\n");
}

TEST_F(Writer, indents_by_49_blanks_at_most) {
  const std::string wide(60, '>');
  msg_print_with_prefix(wide.c_str(), "a\nb");
  msg_print_with_prefix(std::string(49, '>').c_str(), "c\nd");
  msg_print_with_prefix(std::string(48, '>').c_str(), "e\nf");
  EXPECT_EQ(info.text(), wide + "a\n" + std::string(49, ' ') + "b\n" + std::string(49, '>') +
                             "c\n" + std::string(49, ' ') + "d\n" + std::string(48, '>') + "e\n" +
                             std::string(48, ' ') + "f\n");
}

TEST_F(Writer, counts_the_whole_prefix_at_every_line_head) {
  msg_set_width_limit(66);
  msg_print_with_prefix(std::string(60, '>').c_str(), "aa bb cc dd ee");
  EXPECT_EQ(info.text(), std::string(60, '>') + "aa bb\n" + std::string(49, ' ') + "cc dd\n" +
                             std::string(49, ' ') + "ee\n");
}

TEST_F(Writer, counts_the_mp_prefix_at_every_line_head) {
  expect_blocks_left(1);
  msg_set_mp_prefix("mmmm");
  msg_set_width_limit(9);
  msg_print("aa bb cc");
  EXPECT_EQ(info.text(), "mmmmaa bb\nmmmmcc\n");
  info.forget();
  msg_print_solo("aa bb cc");
  EXPECT_EQ(info.text(), "aa bb cc\n") << "a solo message has none";
}

TEST_F(Writer, writes_the_head_of_an_empty_text) {
  msg_warn("%s", "");
  msg_warn_raw("%s", "");
  EXPECT_EQ(warn.text(), "Warning: \nWarning: ");
}

TEST_F(Writer, writes_nothing_of_several_empty_texts) {
  msg_print_raw("%s%s", "", "");
  EXPECT_EQ(info.text(), "");
}

// The open line

TEST_F(Writer, ends_an_open_line_on_the_streams_of_the_new_message) {
  msg_print_wrap("abc");
  msg_warn("def");
  EXPECT_EQ(info.text(), "abc");
  EXPECT_EQ(warn.text(), "\nWarning: def\n");
}

TEST_F(Writer, ends_an_open_line_of_raw_text_too) {
  msg_print_raw("a\nb");
  msg_print_raw("c");
  EXPECT_EQ(info.text(), "a\nb\nc");
}

TEST_F(Writer, flushes_after_ending_an_open_line) {
  Capture buffered(MSG_WARN, Capture::kBuffered);
  msg_print_wrap("abc");
  msg_warn_wrap("def");
  EXPECT_EQ(buffered.text(), "\n");
}

TEST_F(Writer, does_not_flush_between_the_pieces) {
  Capture buffered(MSG_INFO, Capture::kBuffered);
  msg_set_width_limit(10);
  msg_print_wrap("several words and\nlines of text");
  msg_cont("and more");
  EXPECT_EQ(buffered.text(), "");
}

TEST_F(Writer, flushes_every_stream_of_the_type_at_the_end_of_a_line) {
  Capture first(MSG_INFO, Capture::kBuffered);
  Capture second(MSG_INFO, Capture::kBuffered);
  Capture other(MSG_WARN, Capture::kBuffered);
  fputs("kept back", other.stream());
  const long flushes = support::calls("fflush");
  msg_print("text");
  EXPECT_EQ(first.text(), "text\n");
  EXPECT_EQ(second.text(), "text\n");
  EXPECT_EQ(other.text(), "");
  EXPECT_EQ(support::calls("fflush"), flushes + 3) << "one for each stream of the type";
}

TEST_F(Writer, finds_no_open_line_after_a_newline) {
  msg_print_raw("raw\n");
  msg_warn("a");
  msg_print_wrap("wrapped\n");
  msg_warn("b");
  EXPECT_EQ(warn.text(), "Warning: a\nWarning: b\n");
}

TEST_F(Writer, finds_no_open_line_where_nothing_was_written_on_it) {
  msg_print_raw("%s", "");
  msg_warn("a");
  EXPECT_EQ(warn.text(), "Warning: a\n");
}

TEST_F(Writer, finds_an_open_line_behind_a_prefix_alone) {
  expect_blocks_left(1);
  msg_set_print_prefix("> ");
  msg_print_raw("%s", "");
  msg_warn("a");
  EXPECT_EQ(warn.text(), "\nWarning: a\n");
}

TEST_F(Writer, writes_an_empty_line_after_a_line_message_that_ends_in_a_newline) {
  msg_print("text\n");
  msg_set_width_limit(0);
  msg_print("text\n");
  EXPECT_EQ(info.text(), "text\n\ntext\n\n");
}

TEST_F(Writer, moves_the_column_for_a_type_without_streams) {
  msg_clear_streams(MSG_INFO);
  msg_print_wrap("unheard");
  msg_warn("a");
  EXPECT_EQ(warn.text(), "\nWarning: a\n");
}

TEST_F(Writer, wraps_behind_what_a_type_without_streams_has_counted) {
  msg_set_width_limit(10);
  msg_clear_streams(MSG_INFO);
  msg_print_wrap("12345");
  msg_add_stream(MSG_INFO, info.stream());
  msg_cont("678 9");
  EXPECT_EQ(info.text(), "678 9");
  msg_cont(" x");
  EXPECT_EQ(info.text(), "678 9\nx");
}

TEST_F(Writer, counts_raw_text_in_the_column) {
  msg_set_width_limit(10);
  output(MSG_INFO, MSG_FMT_RAW, 0, 0, "", "a\n12345");
  output(MSG_INFO, MSG_FMT_WRAP, 0, 1, "", "67890");
  output(MSG_INFO, MSG_FMT_WRAP, 0, 1, "", " x");
  EXPECT_EQ(info.text(), "a\n1234567890\nx");
}

TEST_F(Writer, stops_counting_at_the_largest_column) {
  orv::messages::state.column = INT_MAX - 2; // what two gigabytes without a newline lead to
  output(MSG_INFO, MSG_FMT_RAW, 0, 1, "", "text");
  EXPECT_EQ(orv::messages::state.column, INT_MAX);
  output(MSG_INFO, MSG_FMT_LINE, 0, 1, "", "several words");
  EXPECT_EQ(info.text(), "textseveral\nwords\n");
}

// Format types

TEST_F(Writer, leaves_raw_text_unwrapped) {
  msg_set_width_limit(10);
  msg_print_raw("several words in one line  \n and another ");
  EXPECT_EQ(info.text(), "several words in one line  \n and another ");
}

TEST_F(Writer, leaves_every_text_unwrapped_without_a_limit) {
  msg_set_width_limit(0);
  const std::string text(500, 'a');
  msg_print_wrap("%s %s\n", text.c_str(), text.c_str());
  msg_print("%s %s", text.c_str(), text.c_str());
  EXPECT_EQ(info.text(), text + " " + text + "\n" + text + " " + text + "\n");
}

TEST_F(Writer, flushes_the_end_of_a_line_without_a_limit) {
  Capture buffered(MSG_INFO, Capture::kBuffered);
  msg_set_width_limit(0);
  msg_print("text");
  EXPECT_EQ(buffered.text(), "text\n");
}

class BadFormatType : public support::ResourceTest, public testing::WithParamInterface<int> {};

TEST_P(BadFormatType, is_a_fatal_error_while_wrapping_is_on) {
  const auto outcome = run_in_child([] {
    msg_set_mp_prefix("m|");
    output(MSG_INFO, GetParam(), 0, 0, "> ", "text");
  });
  EXPECT_EQ(outcome.out, "m|> ");
  EXPECT_EQ(outcome.err,
            "\nm|Error: Internal error: Bad MSG_FMT_TYPE: " + std::to_string(GetParam()) + "\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_P(BadFormatType, of_a_solo_message_is_a_solo_fatal_error) {
  const auto outcome = run_in_child([] {
    msg_set_mp_prefix("m|");
    output(MSG_INFO, GetParam(), 1, 0, "", "text");
  });
  EXPECT_EQ(outcome.err,
            "Error: Internal error: Bad MSG_FMT_TYPE: " + std::to_string(GetParam()) + "\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_P(BadFormatType, is_like_raw_text_while_wrapping_is_off) {
  const auto outcome = run_in_child([] {
    msg_set_width_limit(0);
    output(MSG_INFO, GetParam(), 0, 0, "> ", "one\ntwo");
  });
  EXPECT_EQ(outcome.out, "> one\n  two");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_P(BadFormatType, of_a_continuation_is_told_at_the_end_of_the_open_line) {
  const auto outcome = run_in_child([] {
    msg_print_wrap("open");
    output(MSG_INFO, GetParam(), 0, 1, "> ", "text");
  });
  EXPECT_EQ(outcome.out, "open");
  EXPECT_EQ(outcome.err,
            "\nError: Internal error: Bad MSG_FMT_TYPE: " + std::to_string(GetParam()) + "\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_P(BadFormatType, is_what_a_continuation_goes_on_with_while_wrapping_is_off) {
  const auto outcome = run_in_child([] {
    msg_set_width_limit(0);
    output(MSG_INFO, GetParam(), 0, 0, "> ", "one");
    msg_set_width_limit(78);
    msg_cont("two");
  });
  EXPECT_EQ(outcome.out, "> one");
  EXPECT_EQ(outcome.err,
            "\nError: Internal error: Bad MSG_FMT_TYPE: " + std::to_string(GetParam()) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Values, BadFormatType, testing::Values(3, 77, -1));

TEST_F(Writer, refuses_an_unknown_type) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_ERROR, stderr);
    output(3, MSG_FMT_LINE, 0, 0, "", "$ text");
  });
  EXPECT_EQ(outcome.err, "Error: Internal error (_msg_get_stream_desc): Unknown message type: 3\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Writer, drops_a_solo_message_before_it_looks_at_anything_else) {
  msg_set_solo_output(0);
  msg_print_wrap("open");
  output(3, 77, 1, 0, "> ", "$ text");
  msg_cont("ed");
  EXPECT_EQ(info.text(), "opened");
}

TEST_F(Writer, writes_messages_of_the_other_types_as_well) {
  expect_blocks_left(1); // the list of MSG_DIAG
  Capture others(MSG_DEBUG | MSG_DIAG);
  output(MSG_DEBUG, MSG_FMT_LINE, 0, 0, "Debug: ", "a");
  output(MSG_DIAG, MSG_FMT_LINE, 0, 0, "Diag: ", "b");
  EXPECT_EQ(others.text(), "Debug: a\nDiag: b\n");
}

// The dollar rule

TEST_F(Writer, takes_two_dollar_signs_for_one) {
  msg_print("$$5");
  msg_print("$$");
  msg_print("$$$x");
  msg_print("a$b");
  msg_print("%s", "$c");
  EXPECT_EQ(info.text(), "$5\n$\n$$x\na$b\n$c\n");
}

TEST_F(Writer, refuses_a_format_that_begins_with_one_dollar_sign) {
  const auto outcome = run_in_child([] {
    msg_set_width_limit(0);
    msg_add_stream(MSG_ERROR, stderr);
    msg_set_mp_prefix("m|");
    msg_print("$%dx", 1);
  });
  EXPECT_EQ(
      outcome.err,
      "m|Error: Internationalization interface not yet supported.\n"
      "m|       However, the format string \"$%dx\" began with a dollar sign.  Use two dollar "
      "signs if you really want the string to begin a dollar sign.\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Writer, refuses_a_lone_dollar_sign) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_ERROR, stderr);
    msg_print("$");
  });
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_THAT(outcome.err, testing::StartsWith("Error: Internationalization interface not yet"));
}

TEST_F(Writer, refuses_the_dollar_sign_of_a_solo_message_in_a_solo_error) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_ERROR, stderr);
    msg_set_mp_prefix("m|");
    msg_print_solo("$");
  });
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_THAT(outcome.err, testing::StartsWith("Error: Internationalization interface not yet"));
}

TEST_F(Writer, refuses_the_dollar_sign_of_a_fatal_call_once) {
  for (auto call : {msg_fatal, msg_fatal_solo, msg_fatal_internal, msg_fatal_syserr}) {
    const auto outcome = run_in_child([call] {
      msg_set_width_limit(0);
      msg_add_stream(MSG_ERROR, stderr);
      call("$x");
    });
    EXPECT_EQ(outcome.err,
              "Error: Internationalization interface not yet supported.\n"
              "       However, the format string \"$x\" began with a dollar sign.  Use two dollar "
              "signs if you really want the string to begin a dollar sign.\n");
    EXPECT_EQ(outcome.exit_status, 1);
  }
}

TEST_F(Writer, passes_over_the_dollar_sign_of_a_dropped_fatal_call) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_ERROR, stderr);
    msg_set_solo_output(0);
    msg_fatal_solo("$x");
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Writer, refuses_the_dollar_sign_before_it_ends_an_open_line) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_INFO, stdout);
    msg_add_stream(MSG_ERROR, stderr);
    msg_print_wrap("open");
    msg_print("$x");
  });
  EXPECT_EQ(outcome.out, "open") << "the newline goes to the streams of the error";
  EXPECT_THAT(outcome.err, testing::StartsWith("\nError: Internationalization interface"));
}

// The text's buffer

struct Effort {
  long expansions;
  long allocations;
  size_t last_allocation;
};

Effort effort_of(const std::function<void()> &message) {
  const long expansions = support::calls("vsnprintf");
  const long allocations = support::calls("malloc");
  message();
  return {support::calls("vsnprintf") - expansions, support::calls("malloc") - allocations,
          support::last_size("malloc")};
}

// The widths of 1 below make no difference to the text, but leave the formatting to the system,
// whose calls are counted and refused.
class TextBuffer : public Writer, public testing::WithParamInterface<size_t> {};

TEST_F(TextBuffer, of_10000_bytes_takes_an_ordinary_text_in_one_pass) {
  const Effort effort = effort_of([] { msg_print("text %1d", 1); });
  EXPECT_EQ(effort.expansions, 1);
  EXPECT_EQ(effort.allocations, 0) << "the library's own area";
}

TEST_F(TextBuffer, is_not_needed_for_a_format_without_conversions) {
  const Effort effort = effort_of([] { msg_print("text"); });
  EXPECT_EQ(info.text(), "text\n");
  EXPECT_EQ(effort.expansions, 0);
}

TEST_F(TextBuffer, of_a_message_within_a_long_one_comes_from_the_heap) {
  Effort within{};
  info.on_write = [&] {
    info.on_write = nullptr;
    within = effort_of([] { msg_warn("within %d", 1); });
  };
  const std::string text(9000, 'x');
  msg_print_raw("%s", text.c_str());
  EXPECT_EQ(within.allocations, 1);
  EXPECT_EQ(within.last_allocation, 10000U);
  EXPECT_EQ(info.text(), text);
  EXPECT_EQ(warn.text(), "Warning: within 1\n");
}

TEST_F(TextBuffer, of_a_message_within_another_is_the_area_while_10000_bytes_are_left) {
  for (const auto &[length, allocations] : {std::pair{6383U, 0L}, {6384U, 1L}}) {
    Effort within{};
    info.on_write = [&] {
      info.on_write = nullptr;
      within = effort_of([] { msg_warn("within %d", 1); });
    };
    msg_print_raw("%s", std::string(length, 'x').c_str());
    EXPECT_EQ(within.allocations, allocations) << length;
  }
}

TEST_F(TextBuffer, takes_9998_characters_at_once) {
  const std::string text(9998, 'x');
  const Effort effort = effort_of([&] { msg_print_raw("%1s", text.c_str()); });
  EXPECT_EQ(info.text(), text);
  EXPECT_EQ(effort.expansions, 1);
}

TEST_F(TextBuffer, is_doubled_for_a_text_that_just_fills_it) {
  const std::string text(9999, 'x');
  const Effort effort = effort_of([&] { msg_print_raw("%1s", text.c_str()); });
  EXPECT_EQ(info.text(), text);
  EXPECT_EQ(effort.expansions, 2);
  EXPECT_EQ(effort.last_allocation, 20000U);
}

TEST_F(TextBuffer, grows_to_the_length_and_two_for_a_longer_text) {
  for (size_t length : {10000U, 10001U, 123456U}) {
    info.forget();
    const std::string text(length, 'x');
    const Effort effort = effort_of([&] { msg_print("%1s", text.c_str()); });
    EXPECT_EQ(info.text(), text + "\n");
    EXPECT_EQ(effort.expansions, 2);
    EXPECT_EQ(effort.last_allocation, length + 2);
  }
}

TEST_F(TextBuffer, takes_a_text_of_any_length) {
  const std::string text(3000000, 'x');
  msg_print("%s|%s", text.c_str(), text.c_str());
  EXPECT_EQ(info.text(), text + "|" + text + "\n");
}

TEST_F(TextBuffer, is_taken_once_for_a_long_text_that_stands_alone_and_given_back) {
  for (const size_t length : {10000U, 10001U, 3000000U}) {
    const std::string text(length, 'x');
    info.forget();
    const Effort effort = effort_of([&] { msg_print("%s", text.c_str()); });
    EXPECT_EQ(info.text(), text + "\n");
    EXPECT_EQ(effort.last_allocation, length + 2);
  }
}

TEST_F(TextBuffer, of_a_format_without_conversions_is_the_area_up_to_9998_bytes) {
  const std::string longest(9998, 'x');
  EXPECT_EQ(effort_of([&] { msg_print(longest.c_str(), 0); }).allocations, 0);
  EXPECT_EQ(info.text(), longest + "\n");
  for (const size_t length : {9999U, 10000U, 3000000U}) {
    const std::string text(length, 'x');
    info.forget();
    const Effort effort = effort_of([&] { msg_print(text.c_str(), 0); });
    EXPECT_EQ(info.text(), text + "\n");
    EXPECT_EQ(effort.allocations, 1);
    EXPECT_EQ(effort.last_allocation, length + 2);
  }
}

TEST_F(TextBuffer, takes_a_long_text_with_any_character_beside_it) {
  const std::string text(10000, 'x');
  for (char character = ' '; character <= '~'; character++) {
    if (character == '%' || character == '$')
      continue; // which mean something in a format
    const std::string beside(1, character);
    info.forget();
    msg_print_raw((beside + "%s\n").c_str(), text.c_str());
    msg_print_raw(("%s" + beside + "\n").c_str(), text.c_str());
    EXPECT_EQ(info.text(), beside + text + "\n" + text + beside + "\n");
  }
}

TEST_F(TextBuffer, is_doubled_after_a_failure_that_names_no_reason) {
  for (int reason : {0, ERANGE}) {
    info.forget();
    support::refuse("vsnprintf", reason, 0, 2);
    const Effort effort = effort_of([] { msg_print("text %1d", 1); });
    EXPECT_EQ(info.text(), "text 1\n");
    EXPECT_EQ(effort.expansions, 3);
    EXPECT_EQ(effort.last_allocation, 40000U);
  }
}

TEST_F(TextBuffer, does_not_grow_after_any_other_failure) {
  support::refuse("vsnprintf", EILSEQ);
  const Effort effort = effort_of([] { msg_print("text %1d", 1); });
  EXPECT_EQ(info.text(), "text %1d\n") << "the format stands for the text";
  EXPECT_EQ(effort.expansions, 1);
  EXPECT_EQ(effort.allocations, 0);
}

TEST_F(TextBuffer, does_not_grow_where_the_failure_names_the_error_of_the_caller) {
  support::refuse("vsnprintf", EILSEQ);
  errno = EILSEQ;
  const Effort effort = effort_of([] { msg_print("text %1d", 1); });
  EXPECT_EQ(info.text(), "text %1d\n");
  EXPECT_EQ(effort.expansions, 2) << "the second asks whether the error was named anew";
  EXPECT_EQ(effort.allocations, 0);
  EXPECT_EQ(errno, EILSEQ);
}

TEST_F(TextBuffer, is_doubled_where_the_error_of_the_caller_is_left_standing) {
  support::refuse("vsnprintf", EILSEQ, 0, 1);
  errno = EILSEQ;
  const Effort effort = effort_of([] { msg_print(support::format_of_errno(), 0); });
  EXPECT_EQ(info.text(), "Invalid or incomplete multibyte or wide character\n");
  EXPECT_EQ(effort.last_allocation, 20000U);
}

TEST_F(TextBuffer, is_not_needed_for_a_format_that_stands_for_the_text) {
  support::refuse("vsnprintf", EILSEQ);
  msg_print("$$ %1d", 1);
  EXPECT_EQ(info.text(), "$ %1d\n");
}

TEST_F(TextBuffer, that_is_refused_does_not_keep_a_message_from_being_written) {
  support::refuse("malloc", ENOMEM);
  msg_warn("%s %d", "no storage", 1);
  EXPECT_EQ(warn.text(), "Warning: no storage 1\n");
}

TEST_F(TextBuffer, that_is_refused_leaves_a_long_format_without_conversions_whole) {
  support::refuse("malloc", ENOMEM);
  const std::string text(100000, 'x');
  msg_print_raw(text.c_str(), 0);
  EXPECT_EQ(info.text(), text);
}

TEST_F(TextBuffer, that_is_refused_as_it_grows_leaves_what_fits_the_area) {
  support::refuse("malloc", ENOMEM);
  const std::string text(12000, 'x');
  msg_print_raw("%s", text.c_str());
  EXPECT_EQ(info.text(), text);
}

TEST_P(TextBuffer, that_is_refused_keeps_at_most_16383_characters) {
  support::refuse("malloc", ENOMEM);
  const std::string text(GetParam(), 'x');
  msg_print_raw("%s", text.c_str());
  EXPECT_EQ(info.text(), text.substr(0, 16383));
}

INSTANTIATE_TEST_SUITE_P(Lengths, TextBuffer, testing::Values(16382, 16383, 16384, 100000));

// A text whose source changes after the first write, as that of a stream in memory does when the
// stream takes more. A short one, the longest that is expanded in one pass, and longer ones.
class TextSource : public Writer, public testing::WithParamInterface<size_t> {
protected:
  const std::string text = std::string(GetParam(), 'x');
  std::string source = text;

  std::function<void()> overwriting() {
    return [this] { source.assign(source.size(), 'z'); };
  }

  static std::string written_to(FILE *file) {
    std::string bytes(static_cast<size_t>(ftell(file)), '\0');
    rewind(file);
    EXPECT_EQ(fread(bytes.data(), 1, bytes.size(), file), bytes.size());
    return bytes;
  }
};

TEST_P(TextSource, may_change_while_an_argument_is_written) {
  info.on_write = overwriting();
  msg_print_with_prefix("P: ", "%s", source.c_str());
  EXPECT_EQ(info.text(), "P: " + text + "\n");
}

TEST_P(TextSource, may_change_while_a_format_is_written) {
  info.on_write = overwriting();
  msg_print_with_prefix("P: ", source.c_str(), 0);
  EXPECT_EQ(info.text(), "P: " + text + "\n");
}

TEST_P(TextSource, may_change_in_the_warning_about_a_stream_that_fails) {
  FILE *kept = tmpfile();
  FILE *full = fopen("/dev/full", "w");
  ASSERT_TRUE(kept != nullptr && full != nullptr);
  setvbuf(full, nullptr, _IONBF, 0);
  msg_clear_streams(MSG_INFO);
  msg_add_stream(MSG_INFO, kept);
  msg_add_stream(MSG_INFO, full);
  warn.on_write = overwriting();
  msg_print_with_prefix("P: ", "%s", source.c_str());
  EXPECT_NE(source, text) << "the warning was written";
  EXPECT_EQ(written_to(kept), "P: " + text + "\n");
  msg_clear_streams(MSG_INFO);
  fclose(kept);
  fclose(full);
}

TEST_P(TextSource, may_stay_as_it_is_while_it_is_written_to_files) {
  FILE *file = tmpfile();
  ASSERT_NE(file, nullptr);
  msg_clear_streams(support::kAllTypes);
  msg_add_stream(MSG_INFO, file);
  msg_print("%s", source.c_str());
  msg_print(source.c_str(), 0);
  EXPECT_EQ(written_to(file), text + "\n" + text + "\n");
  msg_clear_streams(MSG_INFO);
  fclose(file);
}

INSTANTIATE_TEST_SUITE_P(Lengths, TextSource, testing::Values(1, 9998, 9999, 20000));

TEST_F(TextBuffer, that_is_refused_and_cannot_be_formatted_leaves_the_format) {
  support::refuse("malloc", ENOMEM);
  support::refuse("vsnprintf", EILSEQ);
  msg_print("text %1d", 1);
  EXPECT_EQ(info.text(), "text %1d\n");
}

TEST_F(TextBuffer, that_is_refused_as_it_grows_and_cannot_be_formatted_leaves_the_format) {
  support::refuse("malloc", ENOMEM);
  support::refuse("vsnprintf", ERANGE, 0, 2);
  const Effort effort = effort_of([] { msg_print("text %1d", 1); });
  EXPECT_EQ(info.text(), "text %1d\n");
  EXPECT_EQ(effort.expansions, 2);
  support::refuse_nothing();
  msg_print("text %1d", 1);
  EXPECT_EQ(info.text(), "text %1d\ntext 1\n");
}

TEST_F(TextBuffer, that_is_refused_serves_one_message_after_another) {
  support::refuse("malloc", ENOMEM);
  for (int i = 0; i < 5; i++)
    msg_print_raw("%s\n", std::string(10000, 'x').c_str());
  EXPECT_EQ(info.text().size(), 50005U);
}

TEST_F(TextBuffer, that_is_refused_keeps_as_much_of_each_message) {
  support::refuse("malloc", ENOMEM);
  const std::string text(16384, 'x');
  for (int i = 0; i < 3; i++) {
    info.forget();
    msg_print("%s", text.c_str());
    EXPECT_EQ(info.text(), text.substr(0, 16383) + "\n") << i;
  }
}

TEST_F(TextBuffer, that_is_refused_serves_messages_within_messages) {
  support::refuse("malloc", ENOMEM);
  info.on_write = [this] {
    info.on_write = nullptr;
    msg_warn("%s %d", "within", 1);
  };
  msg_print_raw("%s %d", "around", 2);
  EXPECT_EQ(info.text(), "around 2");
  EXPECT_EQ(warn.text(), "Warning: within 1\n");
}

TEST_F(TextBuffer, that_is_refused_within_a_message_from_the_heap_keeps_as_much) {
  const std::string text(20000, 'x');
  info.on_write = [&] {
    info.on_write = nullptr;
    support::refuse("malloc", ENOMEM);
    msg_warn("%s", text.c_str());
  };
  msg_print_raw("%s", text.c_str());
  EXPECT_EQ(warn.text(), "Warning: " + text.substr(0, 16383) + "\n");
  EXPECT_EQ(info.text(), text);
}

TEST_F(TextBuffer, that_is_refused_beside_a_long_message_serves_an_empty_text) {
  support::refuse("malloc", ENOMEM);
  info.on_write = [this] {
    info.on_write = nullptr;
    msg_warn("%s", "");
  };
  msg_print_raw("%s", std::string(9000, 'x').c_str());
  EXPECT_EQ(warn.text(), "Warning: \n");
}

TEST_F(TextBuffer, that_is_refused_while_the_area_is_full_leaves_the_format) {
  support::refuse("malloc", ENOMEM);
  info.on_write = [this] {
    info.on_write = nullptr;
    msg_warn("within %d", 1);
  };
  msg_print_raw("%s", std::string(20000, 'x').c_str());
  EXPECT_EQ(info.text(), std::string(16383, 'x'));
  EXPECT_EQ(warn.text(), "Warning: within %d\n");
}

// The error number

TEST_F(Writer, expands_the_error_number_of_the_caller) {
  errno = ENOENT;
  msg_print(support::format_of_errno(), 0);
  errno = EACCES;
  msg_error_shared(support::format_of_errno(), 0);
  EXPECT_EQ(info.text(), "No such file or directory\n");
  EXPECT_EQ(error.text(), "Error: Permission denied\n");
}

TEST_F(Writer, expands_the_error_number_of_the_caller_again_in_a_larger_buffer) {
  errno = ENOENT;
  support::refuse("vsnprintf", ERANGE, 0, 1);
  msg_print(support::format_of_errno(), 0);
  EXPECT_EQ(info.text(), "No such file or directory\n");
}

TEST_F(Writer, expands_the_error_number_of_the_caller_without_the_heap) {
  errno = ENOENT;
  support::refuse("malloc", ENOMEM);
  support::refuse("vsnprintf", ERANGE, 0, 1);
  msg_print(support::format_of_errno(), 0);
  EXPECT_EQ(info.text(), "No such file or directory\n");
}

TEST_F(Writer, leaves_the_error_number_alone) {
  errno = ENOENT;
  support::refuse("malloc", ENOMEM);
  msg_print("%s", std::string(12000, 'x').c_str());
  EXPECT_EQ(errno, ENOENT);
}

// What a continuation goes on with

TEST_F(Writer, remembers_the_prefix_of_a_message_that_wrote_no_head) {
  msg_print_wrap("abc");
  char prefix[] = "more: ";
  output(MSG_INFO, MSG_FMT_LINE, 0, 1, prefix, "def");
  prefix[0] = 'X';
  msg_cont("ghi");
  msg_cont("jkl");
  EXPECT_EQ(info.text(), "abcdef\nmore: ghi\n      jkl\n");
}

TEST_F(Writer, leads_the_first_new_line_of_a_continuation_with_its_prefix) {
  msg_print_wrap("abc");
  output(MSG_INFO, MSG_FMT_LINE, 0, 1, "more: ", "def\nghi\njkl");
  msg_cont("mno");
  EXPECT_EQ(info.text(), "abcdef\nmore: ghi\n      jkl\n      mno\n");
}

TEST_F(Writer, remembers_a_prefix_of_any_length) {
  const std::string prefix(300, '>');
  msg_print_wrap("abc");
  output(MSG_INFO, MSG_FMT_RAW, 0, 1, prefix.c_str(), "def\n");
  EXPECT_EQ(support::last_size("malloc"), prefix.size() + 1);
  msg_cont("ghi");
  EXPECT_EQ(info.text(), "abcdef\n" + prefix + "ghi");
}

TEST_F(Writer, reads_a_prefix_that_it_remembers_no_further_than_its_end) {
  msg_print_wrap("abc");
  const support::TextAtPageEnd prefix("more: ");
  output(MSG_INFO, MSG_FMT_LINE, 0, 1, prefix.get(), "def");
  msg_cont("ghi");
  EXPECT_EQ(info.text(), "abcdef\nmore: ghi\n");
}

TEST_F(Writer, remembers_the_indentation_where_the_prefix_cannot_be_copied) {
  msg_print_wrap("abc");
  support::refuse("malloc", ENOMEM);
  output(MSG_INFO, MSG_FMT_LINE, 0, 1, "more: ", "def");
  support::refuse_nothing();
  msg_cont("ghi");
  EXPECT_EQ(info.text(), "abcdef\n      ghi\n");
}

TEST_F(Writer, releases_a_remembered_prefix_with_the_next_message) {
  const long before = support::live_blocks();
  msg_print_wrap("abc");
  output(MSG_INFO, MSG_FMT_LINE, 0, 1, "more: ", "def");
  output(MSG_INFO, MSG_FMT_LINE, 0, 0, "more: ", "def");
  EXPECT_EQ(support::live_blocks(), before);
}

TEST_F(Writer, remembers_type_layout_and_sharing) {
  expect_blocks_left(1);
  msg_set_mp_prefix("m|");
  msg_set_width_limit(10);
  output(MSG_ERROR, MSG_FMT_LINE, 5, 0, "> ", "a");
  msg_cont("bbbb cccc");
  EXPECT_EQ(error.text(), "> a\n  bbbb\n  cccc\n");
}

TEST_F(Writer, counts_the_49_blanks_of_a_continuation_below_a_wider_prefix) {
  msg_set_width_limit(66);
  msg_print_with_prefix(std::string(60, '>').c_str(), "a");
  info.forget();
  msg_cont("aa bb cc dd ee ff gg");
  const std::string blanks(49, ' ');
  EXPECT_EQ(info.text(), blanks + "aa bb cc dd ee ff\n" + blanks + "gg\n");
}

TEST_F(Writer, starts_a_continuation_at_column_0_with_a_head) {
  output(MSG_INFO, MSG_FMT_LINE, 0, 1, "> ", "text");
  EXPECT_EQ(info.text(), "> text\n");
}

} // namespace
