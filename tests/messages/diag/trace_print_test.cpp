// The trace print: where a line goes, what it looks like, and what it costs without a destination.
#include "diag_test.h"
#include "support/child.h"

#include <cerrno>
#include <clocale>
#include <cstring>
#include <wchar.h>

namespace {

using ::testing::ElementsAre;

// A stream that notes each of its writes under its name in one list; it may also refuse them.
struct Recorder {
  std::string name;
  std::vector<std::string> *writes;
  bool refuses;
};

ssize_t record(void *cookie, const char *bytes, size_t length) {
  auto *recorder = static_cast<Recorder *>(cookie);
  if (recorder->refuses) {
    errno = EIO;
    return 0;
  }
  recorder->writes->push_back(recorder->name + ":" + std::string(bytes, length));
  return static_cast<ssize_t>(length);
}

FILE *open_recorder(Recorder *recorder) {
  FILE *stream = fopencookie(recorder, "w", {nullptr, record, nullptr, nullptr});
  setvbuf(stream, nullptr, _IONBF, 0);
  return stream;
}

class TracePrint : public DiagTest {
protected:
  // Adds a stream that is closed with the logs.
  void trace_to_file() { msg_add_stream(MSG_DIAG, fopen(path("trace").c_str(), "w")); }

  [[nodiscard]] std::string traced() const { return contents_of(path("trace")); }
};

TEST_F(TracePrint, writes_nothing_anywhere_without_a_stream) {
  const auto outcome = support::run_in_child([] { diag_printf("round %d\n", 1); });
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(TracePrint, does_not_format_allocate_or_flush_without_a_stream) {
  const long formatted = support::calls("vsnprintf");
  const long allocated = support::calls("malloc");
  const long flushed = support::calls("fflush");
  int reached = -1;
  diag_printf("round %d%n %s %f\n", 1, &reached, "of", 2.5);
  EXPECT_EQ(reached, -1);
  EXPECT_EQ(support::calls("vsnprintf"), formatted);
  EXPECT_EQ(support::calls("malloc"), allocated);
  EXPECT_EQ(support::calls("fflush"), flushed);
}

TEST_F(TracePrint, is_silent_again_after_its_streams_are_cleared) {
  FILE *stream = fopen(path("trace").c_str(), "w");
  msg_add_stream(MSG_DIAG, stream);
  diag_printf("one\n");
  msg_clear_streams(MSG_DIAG);
  diag_printf("two\n");
  fclose(stream);
  EXPECT_EQ(traced(), "one\n");
}

TEST_F(TracePrint, formats_arguments_of_every_kind) {
  trace_to_file();
  diag_printf("%d %s %ld %c %x %lld %u %s|%.1f %.2f %.3f %g %g %g %g %g %g\n", 1, "two", 3L, '4',
              0x5, 6LL, 7U, "eight", 1.5, 2.25, 3.125, 4.0, 5.0, 6.0, 7.0, 8.0, 9.0);
  EXPECT_EQ(traced(), "1 two 3 4 5 6 7 eight|1.5 2.25 3.125 4 5 6 7 8 9\n");
}

TEST_F(TracePrint, writes_the_text_as_it_is) {
  const std::string words = "some words that are longer than any limit that was set for messages";
  const auto outcome = support::run_in_child([&] {
    msg_add_stream(MSG_DIAG, stdout);
    msg_set_mp_prefix("node 3: ");
    msg_set_print_prefix("Note: ");
    msg_set_width_limit(20);
    diag_printf("%s", words.c_str());
    diag_printf("\n\tand more");
  });
  EXPECT_EQ(outcome.out, words + "\n\tand more");
}

TEST_F(TracePrint, treats_a_leading_dollar_sign_like_any_character) {
  trace_to_file();
  diag_printf("$HOME\n");
  EXPECT_EQ(traced(), "$HOME\n");
}

TEST_F(TracePrint, goes_to_every_stream_in_the_order_of_the_list) {
  std::vector<std::string> writes;
  Recorder a{"a", &writes, false};
  Recorder b{"b", &writes, false};
  FILE *stream_b = open_recorder(&b);
  msg_add_stream(MSG_DIAG, stream_b);
  msg_add_stream(MSG_DIAG, open_recorder(&a));
  diag_printf("x\n");
  EXPECT_THAT(writes, ElementsAre("b:x\n", "a:x\n"));
}

TEST_F(TracePrint, goes_twice_to_a_stream_that_was_added_twice) {
  FILE *stream = fopen(path("trace").c_str(), "w");
  msg_add_stream(MSG_DIAG, stream);
  msg_add_stream(MSG_DIAG, stream);
  diag_printf("x\n");
  EXPECT_EQ(traced(), "x\nx\n");
  msg_remove_stream(MSG_DIAG, stream);
}

TEST_F(TracePrint, goes_to_no_other_type) {
  const auto outcome = support::run_in_child([this] {
    trace_to_file();
    diag_printf("hidden\n");
  });
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_EQ(traced(), "hidden\n");
}

TEST_F(TracePrint, leaves_the_column_of_the_messages_alone) {
  const auto outcome = support::run_in_child([] {
    msg_add_stream(MSG_DIAG, stderr);
    diag_printf("an open line ");
    msg_warn("one");
    msg_print_raw("open");
    diag_printf("trace\n");
    msg_warn("two");
  });
  EXPECT_EQ(outcome.err, "an open line Warning: one\ntrace\n\nWarning: two\n");
  EXPECT_EQ(outcome.out, "open");
}

TEST_F(TracePrint, interprets_percent_signs_of_the_expanded_text_again) {
  trace_to_file();
  diag_printf("%s%%%% %%\n", "100%%");
  EXPECT_EQ(traced(), "100%% %\n");
}

TEST_F(TracePrint, takes_a_conversion_in_an_argument_for_one) {
  trace_to_file();
  errno = ENOENT;
  diag_printf("<%s>\n", "%m");
  EXPECT_EQ(traced(), "<No such file or directory>\n");
}

TEST_F(TracePrint, interprets_the_text_again_for_each_stream) {
  trace_to_file();
  msg_add_stream(MSG_DIAG, fopen(path("second").c_str(), "w"));
  diag_printf("%s\n", "%%%%");
  EXPECT_EQ(traced(), "%%\n");
  EXPECT_EQ(contents_of(path("second")), "%%\n");
}

TEST_F(TracePrint, keeps_back_what_it_writes_without_the_sync_flag) {
  trace_to_file();
  const long flushed = support::calls("fflush");
  const long synced = support::calls("fsync");
  diag_printf("kept back\n");
  EXPECT_EQ(std::filesystem::file_size(path("trace")), 0U);
  EXPECT_EQ(support::calls("fflush"), flushed);
  EXPECT_EQ(support::calls("fsync"), synced);
}

TEST_F(TracePrint, forces_each_stream_to_disk_with_the_sync_flag) {
  trace_to_file();
  FILE *second = fopen(path("second").c_str(), "w");
  msg_add_stream(MSG_DIAG, second);
  msg_set_sync(MSG_DIAG, 1);
  const long flushed = support::calls("fflush");
  const long synced = support::calls("fsync");
  diag_printf("on disk\n");
  EXPECT_EQ(std::filesystem::file_size(path("trace")), 8U);
  EXPECT_EQ(std::filesystem::file_size(path("second")), 8U);
  EXPECT_EQ(support::calls("fflush"), flushed + 2);
  EXPECT_EQ(support::calls("fsync"), synced + 2);
  EXPECT_EQ(support::last_size("fsync"), static_cast<size_t>(fileno(second)));
  _msg_get_stream_desc(MSG_DIAG)->sync = 0;
}

TEST_F(TracePrint, of_an_empty_text_forces_to_disk_what_was_kept_back) {
  trace_to_file();
  msg_set_sync(MSG_DIAG, 1);
  fputs("kept back", destinations().streams[0]);
  const long synced = support::calls("fsync");
  diag_printf("%s", "");
  EXPECT_EQ(std::filesystem::file_size(path("trace")), 9U);
  EXPECT_EQ(support::calls("fsync"), synced + 1);
  _msg_get_stream_desc(MSG_DIAG)->sync = 0;
}

TEST_F(TracePrint, flushes_a_stream_before_it_is_forced_to_disk) {
  static long synced_at_write;
  FILE *stream = fopencookie(nullptr, "w",
                             {nullptr,
                              [](void *, const char *, size_t length) {
                                synced_at_write = support::calls("fsync");
                                return static_cast<ssize_t>(length);
                              },
                              nullptr, nullptr});
  msg_add_stream(MSG_DIAG, stream);
  msg_set_sync(MSG_DIAG, 1);
  const long synced = support::calls("fsync");
  synced_at_write = -1;
  diag_printf("on disk\n");
  EXPECT_EQ(synced_at_write, synced);
  EXPECT_EQ(support::calls("fsync"), synced + 1);
  _msg_get_stream_desc(MSG_DIAG)->sync = 0;
}

TEST_F(TracePrint, ignores_failed_writes_and_keeps_the_stream) {
  std::vector<std::string> writes;
  Recorder broken{"broken", &writes, true};
  Recorder good{"good", &writes, false};
  const auto outcome = support::run_in_child([&] {
    msg_add_stream(MSG_DIAG, open_recorder(&broken));
    msg_add_stream(MSG_DIAG, open_recorder(&good));
    msg_set_sync(MSG_DIAG, 1);
    errno = ENOENT;
    diag_printf("x\n");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(destinations().count, 2);
    broken.refuses = false;
    diag_printf("y\n");
    EXPECT_THAT(writes, ElementsAre("good:x\n", "broken:y\n", "good:y\n"));
    if (HasFailure())
      _exit(1);
  });
  EXPECT_EQ(outcome.exit_status, 0) << outcome.out;
  EXPECT_EQ(outcome.err, "");
}

TEST_F(TracePrint, writes_a_text_that_just_fits_whole) {
  trace_to_file();
  const std::string text = std::string(16382, 'x') + "y";
  diag_printf("%s", text.c_str());
  EXPECT_EQ(traced(), text);
}

TEST_F(TracePrint, cuts_a_longer_text_and_still_ends_its_line) {
  trace_to_file();
  for (const size_t length : {16384U, 16385U, 50000U})
    diag_printf("%s", std::string(length, 'x').c_str());
  const std::string cut = std::string(16382, 'x') + "\n";
  EXPECT_EQ(traced(), cut + cut + cut);
}

TEST_F(TracePrint, ends_the_text_at_a_null_character) {
  trace_to_file();
  diag_printf("one%ctwo\n", '\0');
  EXPECT_EQ(traced(), "one");
}

TEST_F(TracePrint, writes_nothing_of_a_text_that_cannot_be_formatted) {
  trace_to_file();
  setlocale(LC_ALL, "C");
  const wchar_t outside_the_locale[] = {0x20AC, 0};
  diag_printf("price %ls\n", outside_the_locale);
  diag_printf("after\n");
  EXPECT_EQ(traced(), "after\n");
}

TEST_F(TracePrint, leaves_errno_as_it_stood) {
  trace_to_file();
  msg_set_sync(MSG_DIAG, 1);
  support::refuse("fsync", EIO);
  errno = EINTR;
  diag_printf("x\n");
  EXPECT_EQ(errno, EINTR);
  _msg_get_stream_desc(MSG_DIAG)->sync = 0;
}

} // namespace
