// Streams that fail while a message is written to them, and messages within messages.
#include "messages/capture.h"
#include "support/child.h"
#include "support/system.h"

#include <cerrno>
#include <cstdarg>
#include <functional>
#include <memory>

namespace {

using support::Capture;
using support::run_in_child;

constexpr char kOutputWarning[] =
    "Warning: Error during output of informational message.  This stream will no longer be used.\n";
constexpr char kNoSpace[] = "         Stream error was: No space left on device\n";

class FailingStream : public support::MessagesTest {
protected:
  FailingStream() { msg_set_width_limit(0); }
  Capture warn{MSG_WARN};
};

TEST_F(FailingStream, is_dropped_with_a_warning_and_the_reason) {
  Capture bad(MSG_INFO);
  bad.fail(ENOSPC);
  msg_print("text");
  EXPECT_EQ(warn.text(), std::string(kOutputWarning) + kNoSpace);
  EXPECT_FALSE(bad.listed(MSG_INFO));
}

TEST_F(FailingStream, is_not_written_to_again) {
  Capture bad(MSG_INFO);
  bad.fail(ENOSPC, 0);
  msg_print("text");
  bad.recover();
  msg_print("text");
  EXPECT_EQ(bad.text(), "");
}

TEST_F(FailingStream, without_a_reason_is_dropped_with_one_warning) {
  Capture bad(MSG_INFO);
  bad.fail(0);
  msg_print("text");
  EXPECT_EQ(warn.text(), "Warning: EOF error during output of informational message.  This stream "
                         "will no longer be used.\n");
  EXPECT_FALSE(bad.listed(MSG_INFO));
}

TEST_F(FailingStream, fails_at_the_flush) {
  Capture bad(MSG_INFO, Capture::kBuffered);
  bad.fail(ENOSPC);
  msg_print("text");
  EXPECT_EQ(warn.text(),
            "Warning: Error during flush of informational message.  This stream will "
            "no longer be used.\n         Stream error was: No space left on device\n");
  EXPECT_FALSE(bad.listed(MSG_INFO));
}

TEST_F(FailingStream, without_a_reason_fails_at_the_flush) {
  Capture bad(MSG_INFO, Capture::kBuffered);
  bad.fail(0);
  msg_print("text");
  EXPECT_EQ(warn.text(), "Warning: EOF error during flush of informational message.  This stream "
                         "will no longer be used.\n");
}

TEST_F(FailingStream, is_flushed_once_more) {
  Capture bad(MSG_INFO, Capture::kBuffered);
  bad.fail(EIO);
  const long flushes = support::calls("fflush");
  msg_print("text");
  EXPECT_EQ(support::calls("fflush"), flushes + 4)
      << "the failing one, once more, and one for each line of the warning";
}

TEST_F(FailingStream, is_explained_by_the_error_of_its_last_flush) {
  Capture bad(MSG_INFO, Capture::kBuffered);
  bad.fail(EIO);
  support::refuse("fflush", EPIPE, 1, 1);
  msg_print("text");
  EXPECT_EQ(warn.text().substr(warn.text().find("Stream")), "Stream error was: Broken pipe\n");
}

TEST_F(FailingStream, is_named_with_the_type_of_the_message) {
  msg_add_stream(MSG_DIAG, stdout);
  expect_blocks_left(1);
  msg_clear_streams(MSG_DIAG);
  const struct {
    int type;
    const char *name;
  } rows[] = {
      {MSG_INFO, "informational"}, {MSG_DEBUG, "debug"}, {MSG_ERROR, "error"}, {MSG_DIAG, "diag"}};
  for (const auto &row : rows) {
    Capture bad(row.type);
    bad.fail(ENOSPC);
    warn.forget();
    const auto say = [&](const char *format, ...) {
      va_list args;
      va_start(args, format);
      msg_output(row.type, MSG_FMT_LINE, 0, 0, "", format, args);
      va_end(args);
    };
    say("text");
    EXPECT_EQ(warn.text().find(std::string("Warning: Error during output of ") + row.name +
                               " message.  This"),
              0U)
        << warn.text();
  }
}

TEST_F(FailingStream, leaves_the_list_of_that_type_alone) {
  Capture bad(MSG_INFO | MSG_ERROR);
  bad.fail(ENOSPC);
  msg_print("text");
  EXPECT_FALSE(bad.listed(MSG_INFO));
  EXPECT_TRUE(bad.listed(MSG_ERROR));
}

TEST_F(FailingStream, at_the_end_of_an_open_line_is_dropped_too) {
  Capture bad(MSG_INFO);
  msg_print_wrap("open");
  bad.fail(ENOSPC);
  msg_print("text");
  EXPECT_EQ(warn.text(), "\n" + std::string(kOutputWarning) + kNoSpace)
      << "the line still counts as open when the warning is written";
}

TEST_F(FailingStream, at_the_flush_of_an_open_line_is_dropped_too) {
  Capture bad(MSG_INFO, Capture::kBuffered);
  msg_print_wrap("open");
  bad.fail(ENOSPC);
  msg_print_wrap("text");
  EXPECT_EQ(warn.text().find("Warning: Error during flush of informational message."), 0U)
      << warn.text();
}

TEST_F(FailingStream, makes_the_one_that_takes_its_place_miss_the_rest_of_that_write) {
  Capture first(MSG_INFO);
  Capture second(MSG_INFO);
  Capture third(MSG_INFO);
  first.fail(ENOSPC);
  msg_print_with_prefix("> ", "text");
  EXPECT_EQ(second.text(), "text\n");
  EXPECT_EQ(third.text(), "> text\n");
}

TEST_F(FailingStream, later_in_the_list_leaves_those_before_it_whole) {
  Capture first(MSG_INFO);
  Capture second(MSG_INFO);
  second.fail(ENOSPC, 1);
  msg_print_with_prefix("> ", "text");
  EXPECT_EQ(first.text(), "> text\n");
  EXPECT_EQ(second.text(), "> ");
}

TEST_F(FailingStream, makes_the_one_that_takes_its_place_miss_the_flush) {
  Capture first(MSG_INFO, Capture::kBuffered);
  Capture second(MSG_INFO, Capture::kBuffered);
  first.fail(ENOSPC);
  msg_print("text");
  EXPECT_EQ(second.text(), "");
  fflush(second.stream());
  EXPECT_EQ(second.text(), "text\n");
}

TEST_F(FailingStream, that_is_listed_twice_is_dropped_once) {
  Capture bad(MSG_INFO);
  msg_add_stream(MSG_INFO, bad.stream());
  bad.fail(ENOSPC);
  msg_print_raw("text");
  EXPECT_TRUE(bad.listed(MSG_INFO));
  msg_print_raw("text");
  EXPECT_FALSE(bad.listed(MSG_INFO));
}

TEST_F(FailingStream, of_a_solo_message_is_told_in_a_solo_warning) {
  expect_blocks_left(1);
  msg_set_mp_prefix("m|");
  Capture bad(MSG_INFO);
  bad.fail(ENOSPC);
  msg_print_solo("text");
  EXPECT_EQ(warn.text(), std::string(kOutputWarning) + kNoSpace);
}

TEST_F(FailingStream, of_a_shared_message_is_told_in_a_shared_warning) {
  expect_blocks_left(1);
  msg_set_mp_prefix("m|");
  msg_set_solo_output(0);
  Capture bad(MSG_INFO);
  bad.fail(ENOSPC);
  msg_print("text");
  EXPECT_EQ(warn.text(), "m|" + std::string(kOutputWarning) + "m|" + kNoSpace);
}

TEST_F(FailingStream, does_not_change_what_a_continuation_goes_on_with) {
  Capture good(MSG_INFO);
  Capture bad(MSG_INFO);
  bad.fail(ENOSPC, 2);
  msg_print_with_prefix("> ", "text");
  msg_cont("more");
  EXPECT_EQ(good.text(), "> text\n  more\n");
}

TEST_F(FailingStream, leaves_the_text_after_the_warning_in_a_line_of_its_own) {
  Capture bad(MSG_INFO);
  Capture filler(MSG_INFO);
  Capture good(MSG_INFO);
  bad.fail(ENOSPC);
  msg_print_wrap("text");
  msg_cont(" more");
  EXPECT_EQ(good.text(), "text more") << "the text was counted after the warning";
}

TEST_F(FailingStream, is_known_by_its_write_and_not_by_an_error_of_old) {
  Capture mended(MSG_INFO);
  mended.fail(ENOSPC);
  EXPECT_EQ(fputc('x', mended.stream()), EOF);
  EXPECT_NE(ferror(mended.stream()), 0);
  mended.recover();
  msg_print("text");
  EXPECT_EQ(mended.text(), "text\n");
  EXPECT_TRUE(mended.listed(MSG_INFO));
  EXPECT_EQ(warn.text(), "");
}

// Warnings that fail themselves

TEST_F(FailingStream, that_carries_the_warnings_too_ends_in_silence) {
  Capture bad(MSG_INFO | MSG_WARN);
  msg_remove_stream(MSG_WARN, warn.stream());
  bad.fail(ENOSPC);
  msg_print("text");
  EXPECT_FALSE(bad.listed(MSG_INFO));
  EXPECT_FALSE(bad.listed(MSG_WARN));
  EXPECT_EQ(msg_has_warn_streams(), 0);
}

TEST_F(FailingStream, of_warnings_is_told_to_the_other_warning_streams) {
  Capture bad(MSG_WARN);
  msg_remove_stream(MSG_WARN, warn.stream());
  msg_add_stream(MSG_WARN, warn.stream());
  bad.fail(EIO, 1);
  msg_warn("text");
  EXPECT_EQ(warn.text(),
            "Warning: \n" // misses the text, whose failure ends the open line first
            "Warning: Error during output of warning message.  This stream will no longer be "
            "used.\n         Stream error was: Input/output error\n\n");
}

TEST_F(FailingStream, everywhere_leaves_every_list_empty) {
  std::vector<std::unique_ptr<Capture>> streams;
  for (int i = 0; i < 12; i++) {
    streams.push_back(std::make_unique<Capture>(MSG_WARN | MSG_INFO));
    streams.back()->fail(i % 2 == 0 ? EIO : 0, i / 3);
  }
  warn.fail(EIO);
  for (int i = 0; i < 20; i++)
    msg_print("text");
  EXPECT_EQ(msg_has_print_streams(), 0);
  EXPECT_EQ(msg_has_warn_streams(), 0);
}

TEST_F(FailingStream, is_explained_by_the_error_number_after_the_warning) {
  Capture bad(MSG_INFO);
  Capture bad_warning(MSG_WARN);
  bad.fail(ENOSPC);
  bad_warning.fail(EIO);
  msg_print("text");
  EXPECT_EQ(warn.text().substr(warn.text().rfind("Stream error was")),
            "Stream error was: Input/output error\n");
}

TEST_F(FailingStream, under_a_heap_that_refuses_is_told_all_the_same) {
  Capture bad(MSG_INFO);
  bad.fail(ENOSPC);
  support::refuse("malloc", ENOMEM);
  msg_print("text %d", 1);
  support::refuse_nothing();
  EXPECT_EQ(warn.text(), std::string(kOutputWarning) + kNoSpace);
}

TEST_F(FailingStream, of_the_system_is_dropped) {
  expect_descriptors_left(0);
  FILE *full = fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  msg_add_stream(MSG_INFO, full);
  msg_print("text");
  EXPECT_EQ(warn.text(),
            "Warning: Error during flush of informational message.  This stream will "
            "no longer be used.\n         Stream error was: No space left on device\n");
  EXPECT_EQ(msg_has_print_streams(), 0);
  fclose(full);
}

TEST_F(FailingStream, that_is_open_for_reading_is_dropped) {
  FILE *reading = fopen("/dev/null", "r");
  ASSERT_NE(reading, nullptr);
  msg_add_stream(MSG_INFO, reading);
  msg_print("text");
  EXPECT_EQ(warn.text(),
            std::string(kOutputWarning) + "         Stream error was: Bad file descriptor\n");
  fclose(reading);
}

TEST_F(FailingStream, does_not_keep_a_fatal_call_from_ending_the_process) {
  Capture bad(MSG_ERROR);
  const auto outcome = run_in_child([&] {
    bad.fail(ENOSPC);
    msg_clear_streams(MSG_WARN);
    msg_add_stream(MSG_WARN, stderr);
    errno = ENOENT;
    msg_fatal_syserr("text");
  });
  EXPECT_EQ(outcome.err, "Warning: Error during output of error message.  This stream will no "
                         "longer be used.\n         Stream error was: No space left on device\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

// Messages within messages: a stream's own write calls back into the library.

class Reentry : public support::MessagesTest {
protected:
  // Runs once, at the next write to `info`.
  void during_the_next_write(std::function<void()> action) {
    info.on_write = [this, action = std::move(action)] {
      const auto once = action;
      info.on_write = nullptr;
      once();
    };
  }

  Capture info{MSG_INFO};
  Capture warn{MSG_WARN};
};

TEST_F(Reentry, may_replace_the_prefix_that_is_being_written) {
  expect_blocks_left(1);
  msg_set_print_prefix("old> ");
  during_the_next_write([] {
    msg_set_print_prefix("new");
    msg_set_print_prefix("newer");
  });
  msg_print("one\ntwo");
  msg_print("three");
  EXPECT_EQ(info.text(), "old> one\n     two\nnewerthree\n");
}

TEST_F(Reentry, may_replace_the_mp_prefix_of_the_lines_to_come) {
  expect_blocks_left(1);
  msg_set_mp_prefix("old|");
  during_the_next_write([] { msg_set_mp_prefix("new"); });
  msg_print("one\ntwo");
  msg_print("three");
  EXPECT_EQ(info.text(), "old|one\nold|two\nnewthree\n");
}

TEST_F(Reentry, may_leave_a_prefix_behind_where_the_heap_refuses) {
  expect_blocks_left(2); // the new prefix, and the old one that could not be noted for release
  msg_set_print_prefix("old> ");
  during_the_next_write([] {
    support::refuse("malloc", ENOMEM, 1);
    msg_set_print_prefix("new");
    support::refuse_nothing();
  });
  msg_print("one\ntwo");
  EXPECT_EQ(info.text(), "old> one\n     two\n");
}

void output(int continuation, const char *prefix, const char *format, ...) {
  va_list args;
  va_start(args, format);
  msg_output(MSG_INFO, MSG_FMT_WRAP, 0, continuation, prefix, format, args);
  va_end(args);
}

TEST_F(Reentry, may_replace_the_head_that_a_continuation_is_led_by) {
  msg_print_wrap("abc");
  output(1, "stored head: ", "def\n");
  msg_print_wrap("abc");
  output(1, "stored head: ", "def");
  output(1, "stored head: ", "\n");
  during_the_next_write([] { msg_warn("within"); });
  msg_cont("ghi\njkl");
  EXPECT_EQ(info.text().substr(info.text().rfind("stored")), "stored head: ghi\n             jkl");
  EXPECT_EQ(warn.text(), "Warning: within\n");
}

TEST_F(Reentry, may_replace_the_stored_head_of_a_continuation_that_stays_on_its_line) {
  msg_print_wrap("abc");
  output(1, "stored head: ", "def");
  during_the_next_write([] { msg_warn("within"); });
  msg_cont("ghi");
  msg_cont("\njkl");
  EXPECT_EQ(info.text(), "abcdefghi\nstored head: jkl");
}

TEST_F(Reentry, may_empty_the_list_that_is_being_written_to) {
  during_the_next_write([] { msg_clear_streams(MSG_INFO); });
  msg_print_with_prefix("> ", "text");
  EXPECT_EQ(info.text(), "> ");
}

TEST_F(Reentry, may_lengthen_the_list_that_is_being_written_to) {
  Capture late(0);
  during_the_next_write([&] {
    for (int i = 0; i < 6; i++)
      msg_add_stream(MSG_INFO, late.stream());
  });
  msg_print_raw("text");
  EXPECT_EQ(info.text(), "text");
  EXPECT_EQ(late.text(), "texttexttexttexttexttext");
}

TEST_F(Reentry, leaves_what_a_continuation_goes_on_with_to_the_outer_message) {
  during_the_next_write([] { msg_warn("within"); });
  msg_print_with_prefix("> ", "text");
  msg_cont("more");
  EXPECT_EQ(info.text(), "> text\n  more\n");
}

} // namespace
