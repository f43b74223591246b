// What each call of the family fixes, continuation and the fatal calls.
#include "messages/capture.h"
#include "support/child.h"
#include "support/system.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

using support::Capture;
using support::run_in_child;

enum class Sharing { shared, solo };

struct CallRow {
  const char *name;
  void (*say)(const char *text);
  int type;
  const char *prefix; // as the fixture sets it
  int format_type;
  Sharing sharing;
};

std::ostream &operator<<(std::ostream &out, const CallRow &row) {
  return out << row.name;
}

#define ROW(call, type, prefix, format_type, sharing)                                              \
  {                                                                                                \
#call, [](const char *text) { call("%s", text); }, type, prefix, format_type, Sharing::sharing \
  }
#define ROW_SHARED(call, type, prefix, format_type)                                                \
  {                                                                                                \
#call "_called_shared",                                                                        \
        [](const char *text) { call(0, "%s", text); }, type, prefix, format_type, Sharing::shared  \
  }
#define ROW_SOLO(call, type, prefix, format_type)                                                  \
  {                                                                                                \
#call "_called_solo", [](const char *text) { call(2, "%s", text); }, type, prefix,             \
                                                                      format_type, Sharing::solo   \
  }

const CallRow kCalls[] = {
    ROW(msg_print_raw, MSG_INFO, "P:", MSG_FMT_RAW, shared),
    ROW(msg_print_wrap, MSG_INFO, "P:", MSG_FMT_WRAP, shared),
    ROW(msg_print, MSG_INFO, "P:", MSG_FMT_LINE, shared),
    {"msg_print_with_prefix", [](const char *text) { msg_print_with_prefix("G:", "%s", text); },
     MSG_INFO, "G:", MSG_FMT_LINE, Sharing::shared},
    ROW(msg_print_bare, MSG_INFO, "", MSG_FMT_LINE, shared),
    ROW(msg_print_solo_raw, MSG_INFO, "P:", MSG_FMT_RAW, solo),
    ROW(msg_print_solo_wrap, MSG_INFO, "P:", MSG_FMT_WRAP, solo),
    ROW(msg_print_solo, MSG_INFO, "P:", MSG_FMT_LINE, solo),
    ROW(msg_warn_raw, MSG_WARN, "W:", MSG_FMT_RAW, shared),
    ROW(msg_warn_wrap, MSG_WARN, "W:", MSG_FMT_WRAP, shared),
    ROW(msg_warn, MSG_WARN, "W:", MSG_FMT_LINE, shared),
    ROW(msg_warn_solo_raw, MSG_WARN, "W:", MSG_FMT_RAW, solo),
    ROW(msg_warn_solo_wrap, MSG_WARN, "W:", MSG_FMT_WRAP, solo),
    ROW(msg_warn_solo, MSG_WARN, "W:", MSG_FMT_LINE, solo),
    ROW_SHARED(msg_error_raw, MSG_ERROR, "E:", MSG_FMT_RAW),
    ROW_SHARED(msg_error_wrap, MSG_ERROR, "E:", MSG_FMT_WRAP),
    ROW_SHARED(msg_error, MSG_ERROR, "E:", MSG_FMT_LINE),
    ROW_SOLO(msg_error_raw, MSG_ERROR, "E:", MSG_FMT_RAW),
    ROW_SOLO(msg_error_wrap, MSG_ERROR, "E:", MSG_FMT_WRAP),
    ROW_SOLO(msg_error, MSG_ERROR, "E:", MSG_FMT_LINE),
    ROW(msg_error_shared, MSG_ERROR, "E:", MSG_FMT_LINE, shared),
    ROW_SHARED(msg_internal_error_raw, MSG_ERROR, "I:", MSG_FMT_RAW),
    ROW_SHARED(msg_internal_error_wrap, MSG_ERROR, "I:", MSG_FMT_WRAP),
    ROW_SHARED(msg_internal_error, MSG_ERROR, "I:", MSG_FMT_LINE),
    ROW_SOLO(msg_internal_error_raw, MSG_ERROR, "I:", MSG_FMT_RAW),
    ROW_SOLO(msg_internal_error_wrap, MSG_ERROR, "I:", MSG_FMT_WRAP),
    ROW_SOLO(msg_internal_error, MSG_ERROR, "I:", MSG_FMT_LINE),
};

class Call : public support::MessagesTest, public testing::WithParamInterface<CallRow> {
protected:
  void SetUp() override {
    MessagesTest::SetUp();
    expect_blocks_left(5); // the prefixes
    msg_set_mp_prefix("m|");
    msg_set_print_prefix("P:");
    msg_set_warn_prefix("W:");
    msg_set_error_prefix("E:");
    msg_set_internal_error_prefix("I:");
    msg_set_width_limit(8);
  }
  // What a text of two words of four letters becomes under a limit of 8 columns.
  static std::string two_words(const CallRow &row) {
    const std::string mp = row.sharing == Sharing::shared ? "m|" : "";
    const std::string prefix = row.prefix;
    if (row.format_type == MSG_FMT_RAW)
      return mp + prefix + "aaaa bbbb";
    const std::string wrapped =
        mp + prefix + "aaaa\n" + mp + std::string(prefix.size(), ' ') + "bbbb";
    return wrapped + (row.format_type == MSG_FMT_LINE ? "\n" : "");
  }

  Capture &of_type(int type) { return type == MSG_INFO ? info : type == MSG_WARN ? warn : error; }

  Capture info{MSG_INFO};
  Capture debug{MSG_DEBUG};
  Capture warn{MSG_WARN};
  Capture error{MSG_ERROR};
};

TEST_P(Call, has_its_type_prefix_layout_and_sharing) {
  GetParam().say("aaaa bbbb");
  for (int type : {MSG_INFO, MSG_WARN, MSG_ERROR})
    EXPECT_EQ(of_type(type).text(), type == GetParam().type ? two_words(GetParam()) : "") << type;
  EXPECT_EQ(debug.text(), "");
}

TEST_P(Call, is_written_with_the_solo_switch_off_if_shared_alone) {
  msg_set_solo_output(0);
  GetParam().say("aaaa bbbb");
  EXPECT_EQ(of_type(GetParam().type).text(),
            GetParam().sharing == Sharing::shared ? two_words(GetParam()) : "");
}

TEST_P(Call, flushes_at_the_end_of_a_line_alone) {
  Capture buffered(GetParam().type, Capture::kBuffered);
  GetParam().say("aaaa bbbb");
  EXPECT_EQ(buffered.text(), GetParam().format_type == MSG_FMT_LINE ? two_words(GetParam()) : "");
}

TEST_P(Call, can_be_continued_with_its_own_layout) {
  GetParam().say("x");
  of_type(GetParam().type).forget();
  msg_cont("%s", "aaaa bbbb");
  const std::string mp = GetParam().sharing == Sharing::shared ? "m|" : "";
  const std::string head = mp + std::string(strlen(GetParam().prefix), ' ');
  switch (GetParam().format_type) {
  case MSG_FMT_RAW:
    EXPECT_EQ(of_type(GetParam().type).text(), "aaaa bbbb");
    break;
  case MSG_FMT_WRAP: {
    // "aaaa" no longer fits beside a prefix of four columns and the x, so it overruns.
    EXPECT_EQ(of_type(GetParam().type).text(), "aaaa\n" + head + "bbbb");
    break;
  }
  default:
    EXPECT_EQ(of_type(GetParam().type).text(), head + "aaaa\n" + head + "bbbb\n");
  }
}

INSTANTIATE_TEST_SUITE_P(Each, Call, testing::ValuesIn(kCalls),
                         [](const auto &each) { return std::string(each.param.name); });

class Print : public support::MessagesTest {
protected:
  Capture info{MSG_INFO};
};

TEST_F(Print, takes_a_null_prefix_for_an_empty_one) {
  msg_print_with_prefix(nullptr, "%s", "text\nmore");
  EXPECT_EQ(info.text(), "text\nmore\n");
}

TEST_F(Print, takes_a_null_format_for_an_empty_one) {
  const char *none = nullptr;
  msg_print_with_prefix("> ", none, 0);
  EXPECT_EQ(info.text(), "> \n");
}

TEST_F(Print, takes_the_prefix_that_is_set_at_the_time) {
  expect_blocks_left(1);
  msg_set_print_prefix("1 ");
  msg_print("a");
  msg_set_print_prefix("2 ");
  msg_print("b");
  EXPECT_EQ(info.text(), "1 a\n2 b\n");
}

class Continuation : public support::MessagesTest {
protected:
  Capture info{MSG_INFO};
  Capture warn{MSG_WARN};
};

TEST_F(Continuation, goes_on_in_an_open_line) {
  msg_print_wrap("abc");
  msg_cont("def");
  msg_cont("%d", 7);
  EXPECT_EQ(info.text(), "abcdef7");
}

TEST_F(Continuation, of_a_finished_line_starts_one_aligned_under_the_text) {
  msg_warn("disk");
  msg_cont("full");
  EXPECT_EQ(warn.text(), "Warning: disk\n         full\n");
}

TEST_F(Continuation, of_raw_text_that_ended_its_line_starts_one_aligned_under_the_text) {
  msg_warn_raw("disk\n");
  msg_cont("full\n");
  EXPECT_EQ(warn.text(), "Warning: disk\n         full\n");
}

TEST_F(Continuation, of_a_continuation_keeps_the_alignment) {
  msg_warn("1");
  msg_cont("2");
  msg_cont("3\n4");
  EXPECT_EQ(warn.text(), "Warning: 1\n         2\n         3\n         4\n");
}

TEST_F(Continuation, of_an_open_line_aligns_what_it_wraps) {
  msg_set_width_limit(15);
  msg_warn_wrap("one");
  msg_cont(" two three");
  msg_cont(" four");
  EXPECT_EQ(warn.text(), "Warning: one\n         two\n         three\n         four");
}

TEST_F(Continuation, goes_to_the_type_of_the_last_message_whatever_its_streams) {
  msg_print("a");
  msg_warn("b");
  msg_cont("c");
  EXPECT_EQ(info.text(), "a\n");
  EXPECT_EQ(warn.text(), "Warning: b\n         c\n");
}

TEST_F(Continuation, of_a_shared_message_carries_the_mp_prefix) {
  expect_blocks_left(1);
  msg_set_mp_prefix("[1] ");
  msg_warn("a");
  msg_cont("b");
  EXPECT_EQ(warn.text(), "[1] Warning: a\n[1]          b\n");
}

TEST_F(Continuation, of_a_solo_message_is_solo) {
  expect_blocks_left(1);
  msg_set_mp_prefix("[1] ");
  msg_warn_solo("a");
  msg_cont("b");
  msg_set_solo_output(0);
  msg_cont("c");
  EXPECT_EQ(warn.text(), "Warning: a\n         b\n");
}

TEST_F(Continuation, passes_over_a_dropped_solo_message) {
  msg_warn("a");
  msg_set_solo_output(0);
  msg_print_solo("dropped");
  msg_cont("b");
  EXPECT_EQ(warn.text(), "Warning: a\n         b\n");
  EXPECT_EQ(info.text(), "");
}

TEST_F(Continuation, passes_over_a_dropped_solo_message_in_an_open_line) {
  msg_print_wrap("a");
  msg_set_solo_output(0);
  msg_warn_solo("dropped");
  msg_cont("b");
  EXPECT_EQ(info.text(), "ab");
  EXPECT_EQ(warn.text(), "");
}

TEST_F(Continuation, before_any_message_is_a_fatal_error) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_ERROR, stderr);
    msg_set_solo_output(0); // the error is a shared one
    msg_cont("text");
  });
  EXPECT_EQ(outcome.err, "Error: MSG_CONT called before any other message function.\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Continuation, after_a_dropped_message_alone_is_a_fatal_error) {
  const auto outcome = run_in_child([] {
    msg_add_stream(MSG_ERROR, stderr);
    msg_set_solo_output(0);
    msg_print_solo("dropped");
    msg_cont("text");
  });
  EXPECT_EQ(outcome.err, "Error: MSG_CONT called before any other message function.\n");
}

TEST_F(Continuation, applies_the_dollar_rule) {
  msg_print_wrap("a");
  msg_cont("$$5");
  EXPECT_EQ(info.text(), "a$5");
}

void continue_with_list(const char *format, ...) {
  va_list args;
  va_start(args, format);
  msg_vcont(format, args);
  va_end(args);
}

TEST_F(Continuation, takes_an_argument_list_too) {
  msg_print_wrap("a");
  continue_with_list("%s%d", "b", 3);
  EXPECT_EQ(info.text(), "ab3");
}

class Fatal : public support::ResourceTest {};

TEST_F(Fatal, error_is_written_as_a_shared_error_line_and_ends_with_status_1) {
  const auto outcome = run_in_child([] {
    msg_set_mp_prefix("m|");
    msg_set_solo_output(0);
    msg_fatal("%s\n%d", "one", 2);
  });
  EXPECT_EQ(outcome.err, "m|Error: one\nm|       2\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Fatal, solo_error_is_written_without_the_mp_prefix) {
  const auto outcome = run_in_child([] {
    msg_set_mp_prefix("m|");
    msg_fatal_solo("%s", "one");
  });
  EXPECT_EQ(outcome.err, "Error: one\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Fatal, internal_error_has_its_prefix) {
  const auto outcome = run_in_child([] {
    msg_set_mp_prefix("m|");
    msg_fatal_internal("%s", "one");
  });
  EXPECT_EQ(outcome.err, "m|Internal error: one\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Fatal, solo_internal_error_is_written_without_the_mp_prefix) {
  const auto outcome = run_in_child([] {
    msg_set_mp_prefix("m|");
    msg_fatal_internal_solo("%s", "one");
  });
  EXPECT_EQ(outcome.err, "Internal error: one\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Fatal, solo_calls_end_the_process_silently_with_the_switch_off) {
  for (auto call : {msg_fatal_solo, msg_fatal_internal_solo}) {
    const auto outcome = run_in_child([call] {
      msg_set_solo_output(0);
      call("text");
    });
    EXPECT_EQ(outcome.err + outcome.out, "");
    EXPECT_EQ(outcome.exit_status, 1);
  }
}

TEST_F(Fatal, call_flushes_what_other_streams_hold) {
  const auto outcome = run_in_child([] {
    msg_print_wrap("held back");
    msg_clear_streams(MSG_ERROR);
    msg_fatal("unheard");
  });
  EXPECT_EQ(outcome.out, "held back");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Fatal, system_error_is_told_under_the_error) {
  const auto outcome = run_in_child([] {
    msg_set_mp_prefix("m|");
    errno = ENOENT;
    msg_fatal_syserr("cannot open %s", "it");
  });
  EXPECT_EQ(outcome.err, "m|Error: cannot open it\n"
                         "m|       System error message: No such file or directory\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Fatal, system_error_is_the_one_at_entry) {
  Capture failing(MSG_ERROR);
  msg_remove_stream(MSG_ERROR, stderr);
  const auto outcome = run_in_child([&] {
    failing.on_write = [] { errno = EIO; };
    msg_add_stream(MSG_ERROR, stderr);
    errno = ENOENT;
    msg_fatal_syserr(support::format_of_errno(), 0);
  });
  EXPECT_EQ(outcome.err, "Error: No such file or directory\n"
                         "       System error message: No such file or directory\n");
}

TEST_F(Fatal, unknown_system_error_is_told_by_number) {
  const auto outcome = run_in_child([] {
    errno = 12345;
    msg_fatal_syserr("x");
  });
  EXPECT_EQ(outcome.err, "Error: x\n       System error message: Unknown error 12345\n");
}

TEST_F(Fatal, solo_system_error_is_written_without_the_mp_prefix) {
  const auto outcome = run_in_child([] {
    msg_set_mp_prefix("m|");
    errno = EACCES;
    msg_fatal_syserr_solo("x");
  });
  EXPECT_EQ(outcome.err, "Error: x\n       System error message: Permission denied\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Fatal, solo_system_error_with_the_switch_off_continues_the_last_message) {
  const auto outcome = run_in_child([] {
    msg_set_solo_output(0);
    msg_warn("older");
    errno = EACCES;
    msg_fatal_syserr_solo("dropped");
  });
  EXPECT_EQ(outcome.err, "Warning: older\n         System error message: Permission denied\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Fatal, solo_system_error_with_the_switch_off_and_no_message_before_says_so) {
  const auto outcome = run_in_child([] {
    msg_set_solo_output(0);
    msg_fatal_syserr_solo("dropped");
  });
  EXPECT_EQ(outcome.err, "Error: MSG_CONT called before any other message function.\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Fatal, solo_system_error_after_a_solo_message_with_the_switch_off_is_silent) {
  const auto outcome = run_in_child([] {
    msg_warn_solo("older");
    msg_set_solo_output(0);
    msg_fatal_syserr_solo("dropped");
  });
  EXPECT_EQ(outcome.err, "Warning: older\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

} // namespace
