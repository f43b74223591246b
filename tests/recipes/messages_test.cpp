// Recipes for messages: open lines, prefixes, layout, settings, and streams that fail.
#include "messages/capture.h"
#include "support/child.h"
#include "support/system.h"

#include <cerrno>
#include <gmock/gmock.h>

namespace {

using support::Capture;
using support::refuse;
using support::run_in_child;
using testing::StartsWith;

class MessageRecipes : public support::MessagesTest {
protected:
  Capture info{MSG_INFO};
  Capture warnings{MSG_WARN};
};

TEST_F(MessageRecipes, end_an_open_line_before_a_message_that_goes_elsewhere) {
  msg_print_wrap("Working");
  msg_cont("\n");
  msg_warn("Slowly.");
  EXPECT_EQ(info.text(), "Working\n");
  EXPECT_EQ(warnings.text(), "Warning: Slowly.\n");
}

TEST_F(MessageRecipes, silence_types_that_write_whole_lines) {
  msg_clear_streams(MSG_INFO);
  msg_print("Nobody reads this.");
  msg_warn("But this.");
  EXPECT_EQ(warnings.text(), "Warning: But this.\n");
}

TEST_F(MessageRecipes, keep_prefixes_shorter_than_50) {
  const std::string prefix(49, '>');
  msg_set_print_prefix(prefix.c_str());
  const std::string word(78 - 49, 'x');
  msg_print("%s %s", word.c_str(), word.c_str());
  EXPECT_EQ(info.text(), prefix + word + "\n" + std::string(49, ' ') + word + "\n");
  expect_blocks_left(1); // the prefix's copy
}

TEST_F(MessageRecipes, leave_the_newline_to_the_call) {
  msg_print("A line.");
  msg_print("Another.");
  EXPECT_EQ(info.text(), "A line.\nAnother.\n");
}

TEST_F(MessageRecipes, put_one_blank_between_words) {
  const std::string word(40, 'x');
  msg_print("%s %s", word.c_str(), word.c_str());
  EXPECT_EQ(info.text(), word + "\n" + word + "\n");
}

void output(int fmt_type, const char *format, ...) {
  va_list args;
  va_start(args, format);
  msg_output(MSG_INFO, fmt_type, 0, 0, "", format, args);
  va_end(args);
}

TEST_F(MessageRecipes, pass_one_of_the_three_format_types) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_INFO, stdout);
    for (const int width : {78, 0}) {
      msg_set_width_limit(width);
      for (const int type : {MSG_FMT_RAW, MSG_FMT_WRAP, MSG_FMT_LINE})
        output(type, "text\n");
    }
  });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.out, "text\ntext\ntext\n\ntext\ntext\ntext\n\n");
}

TEST_F(MessageRecipes, begin_with_two_dollar_signs_or_print_the_text_as_an_argument) {
  msg_print("$$5 a piece");
  msg_print("%s", "$5 a piece");
  EXPECT_EQ(info.text(), "$5 a piece\n$5 a piece\n");
}

TEST_F(MessageRecipes, set_a_narrower_width_in_the_program) {
  const auto outcome = run_in_child(
      [] {
        printf("%d ", msg_get_width_limit());
        msg_set_width_limit(40);
        printf("%d", msg_get_width_limit());
      },
      {{"ORV_MSGERR_WRAP", "40"}});
  EXPECT_EQ(outcome.out, "78 40");
}

TEST_F(MessageRecipes, read_the_setters_name_in_front_of_the_warning) {
  refuse("malloc", ENOMEM, 0, 1);
  msg_set_error_prefix("Mistake: ");
  EXPECT_THAT(warnings.text(), StartsWith("Warning: msg_set_error_prefix"));
}

TEST_F(MessageRecipes, set_the_sync_flag_of_the_trace_alone) {
  const auto outcome = run_in_child([] {
    msg_set_sync(MSG_DIAG, 1);
    printf("%d %d", msg_set_sync(MSG_DIAG, -1), msg_set_sync(MSG_WARN, -1));
  });
  EXPECT_EQ(outcome.out, "1 0");
}

TEST_F(MessageRecipes, ask_for_the_sync_flag_of_one_type_at_a_time) {
  const auto outcome = run_in_child([] {
    msg_set_sync(MSG_DIAG | MSG_ERROR, 1);
    printf("%d %d", msg_set_sync(MSG_DIAG, -1), msg_set_sync(MSG_ERROR, -1));
  });
  EXPECT_EQ(outcome.out, "1 1");
}

TEST_F(MessageRecipes, list_streams_that_may_fail_behind_the_others) {
  Capture other(MSG_INFO);
  Capture failing(MSG_INFO);
  failing.fail(ENOSPC);
  msg_print("Two words\nand a line.");
  EXPECT_FALSE(failing.listed(MSG_INFO));
  EXPECT_EQ(info.text(), "Two words\nand a line.\n");
  EXPECT_EQ(other.text(), info.text());
}

TEST_F(MessageRecipes, keep_a_sound_stream_for_warnings) {
  info.fail(ENOSPC);
  msg_print("Nobody gets this.");
  EXPECT_THAT(warnings.text(), testing::EndsWith("Stream error was: No space left on device\n"));
}

TEST_F(MessageRecipes, end_silently_with_msg_fatal_solo) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_INFO, stdout);
    msg_add_stream(MSG_ERROR, stderr);
    msg_set_solo_output(0);
    msg_print("The last message.");
    msg_fatal_solo("One process of the group says this.");
  });
  EXPECT_EQ(outcome.out, "The last message.\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 1);
}

} // namespace
