// Which streams a message of each type goes to.
#include "messages/capture.h"
#include "support/child.h"
#include "support/system.h"

#include <cerrno>
#include <cstddef>
#include <gmock/gmock.h>

namespace {

using support::Capture;
using support::kAllTypes;
using support::run_in_child;

std::vector<FILE *> streams_of(int type) {
  const msg_stream_desc *desc = _msg_get_stream_desc(type);
  return {desc->streams, desc->streams + desc->count};
}

// The lists as they are before anybody has changed them.
class DefaultStreams : public support::ResourceTest {};

TEST_F(DefaultStreams, are_standard_output_for_informational_and_debug_messages) {
  EXPECT_THAT(streams_of(MSG_INFO), testing::ElementsAre(stdout));
  EXPECT_THAT(streams_of(MSG_DEBUG), testing::ElementsAre(stdout));
}

TEST_F(DefaultStreams, are_standard_error_for_warnings_and_errors) {
  EXPECT_THAT(streams_of(MSG_WARN), testing::ElementsAre(stderr));
  EXPECT_THAT(streams_of(MSG_ERROR), testing::ElementsAre(stderr));
}

TEST_F(DefaultStreams, are_none_for_the_diagnostic_type) {
  const msg_stream_desc *desc = _msg_get_stream_desc(MSG_DIAG);
  EXPECT_EQ(desc->count, 0);
  EXPECT_EQ(desc->capacity, 0);
  EXPECT_EQ(desc->streams, nullptr);
}

TEST_F(DefaultStreams, carry_the_messages_of_their_types) {
  const auto outcome = run_in_child([] {
    msg_print("to standard output");
    msg_warn("disk %s is full", "a");
    msg_error_shared("to standard error");
  });
  EXPECT_EQ(outcome.out, "to standard output\n");
  EXPECT_EQ(outcome.err, "Warning: disk a is full\nError: to standard error\n");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(DefaultStreams, have_the_sync_flag_of_informational_messages_set_alone) {
  EXPECT_EQ(_msg_get_stream_desc(MSG_INFO)->sync, 1);
  for (int type : {MSG_DEBUG, MSG_WARN, MSG_ERROR, MSG_DIAG})
    EXPECT_EQ(_msg_get_stream_desc(type)->sync, 0) << type;
}

// The first call of a process; no fixture, whose set-up would be the first.
TEST(FirstCall, of_clear_finds_the_default_streams_and_clears_them_for_good) {
  msg_clear_streams(MSG_WARN);
  EXPECT_EQ(_msg_get_stream_desc(MSG_WARN)->count, 0);
  EXPECT_EQ(_msg_get_stream_desc(MSG_ERROR)->count, 1);
}

TEST(FirstCall, of_remove_finds_the_default_streams) {
  msg_remove_stream(MSG_WARN, stderr);
  EXPECT_EQ(_msg_get_stream_desc(MSG_WARN)->count, 0);
}

TEST(FirstCall, of_add_appends_to_the_default_streams) {
  EXPECT_EQ(msg_add_stream(MSG_WARN, stdout), 2);
  EXPECT_THAT(streams_of(MSG_WARN), testing::ElementsAre(stderr, stdout));
}

TEST(FirstCall, of_set_sync_finds_the_flags) {
  EXPECT_EQ(msg_set_sync(MSG_INFO, -1), 1);
}

TEST(FirstCall, of_set_sync_keeps_the_flag_that_it_sets) {
  EXPECT_EQ(msg_set_sync(MSG_DIAG, 1), 1);
  EXPECT_EQ(_msg_get_stream_desc(MSG_DIAG)->sync, 1);
}

TEST(FirstCall, of_has_print_streams_finds_standard_output) {
  EXPECT_EQ(msg_has_print_streams(), 1);
}

TEST(FirstCall, of_has_warn_streams_finds_standard_error) {
  EXPECT_EQ(msg_has_warn_streams(), 1);
}

TEST(FirstCall, keeps_the_error_number_of_its_caller_for_the_text) {
  const auto outcome = run_in_child([] {
    errno = ENOENT;
    msg_print(support::format_of_errno(), 0);
  });
  EXPECT_EQ(outcome.out, "No such file or directory\n");
}

TEST(FirstCall, ends_the_process_where_the_lists_cannot_be_allocated) {
  const auto outcome = run_in_child([] {
    support::refuse("malloc", ENOMEM);
    msg_has_print_streams();
  });
  EXPECT_EQ(outcome.err, "Couldn't allocate initial storage space for stream output array.");
  EXPECT_EQ(outcome.exit_status, 1);
}

class Types : public support::MessagesTest {};

TEST_F(Types, are_bits_in_this_order) {
  EXPECT_EQ(MSG_INFO, 1);
  EXPECT_EQ(MSG_DEBUG, 2);
  EXPECT_EQ(MSG_WARN, 4);
  EXPECT_EQ(MSG_ERROR, 8);
  EXPECT_EQ(MSG_DIAG, 16);
}

TEST_F(Types, have_names) {
  EXPECT_STREQ(msg_type_name(MSG_INFO), "informational");
  EXPECT_STREQ(msg_type_name(MSG_DEBUG), "debug");
  EXPECT_STREQ(msg_type_name(MSG_WARN), "warning");
  EXPECT_STREQ(msg_type_name(MSG_ERROR), "error");
  EXPECT_STREQ(msg_type_name(MSG_DIAG), "diag");
}

TEST_F(Types, have_records_with_their_fields_in_this_order) {
  EXPECT_EQ(offsetof(msg_stream_desc, count), 0U);
  EXPECT_EQ(offsetof(msg_stream_desc, capacity), 4U);
  EXPECT_EQ(offsetof(msg_stream_desc, streams), 8U);
  EXPECT_EQ(offsetof(msg_stream_desc, sync), 16U);
}

class UnknownType : public support::ResourceTest, public testing::WithParamInterface<int> {};

TEST_P(UnknownType, has_no_name) {
  const auto outcome = run_in_child([] {
    msg_set_solo_output(0); // the error is a shared one
    msg_type_name(GetParam());
  });
  EXPECT_EQ(outcome.err,
            "Error: Internal error: Unknown message type: " + std::to_string(GetParam()) + "\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_P(UnknownType, has_no_streams) {
  const auto outcome = run_in_child([] {
    msg_set_width_limit(0);
    msg_set_solo_output(0); // the error is a shared one
    _msg_get_stream_desc(GetParam());
  });
  EXPECT_EQ(outcome.err, "Error: Internal error (_msg_get_stream_desc): Unknown message type: " +
                             std::to_string(GetParam()) + "\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

INSTANTIATE_TEST_SUITE_P(Values, UnknownType, testing::Values(0, 3, 31, 32, -1, -1073741824));

class AddStream : public support::MessagesTest {};

TEST_F(AddStream, gives_the_stream_to_every_type_of_the_mask_and_to_no_other) {
  Capture capture(MSG_INFO | MSG_ERROR);
  EXPECT_TRUE(capture.listed(MSG_INFO));
  EXPECT_FALSE(capture.listed(MSG_DEBUG));
  EXPECT_FALSE(capture.listed(MSG_WARN));
  EXPECT_TRUE(capture.listed(MSG_ERROR));
  EXPECT_FALSE(capture.listed(MSG_DIAG));
}

TEST_F(AddStream, returns_the_count_of_the_last_type_handled) {
  EXPECT_EQ(msg_add_stream(MSG_WARN, stderr), 1);
  EXPECT_EQ(msg_add_stream(MSG_WARN | MSG_ERROR, stderr), 1);
  EXPECT_EQ(msg_add_stream(MSG_INFO | MSG_WARN, stderr), 3);
}

TEST_F(AddStream, returns_0_for_a_mask_without_a_type) {
  EXPECT_EQ(msg_add_stream(0, stderr), 0);
  EXPECT_EQ(msg_add_stream(32, stderr), 0);
}

TEST_F(AddStream, ignores_a_null_stream) {
  EXPECT_EQ(msg_add_stream(MSG_WARN, nullptr), 0);
  EXPECT_EQ(_msg_get_stream_desc(MSG_WARN)->count, 0);
}

TEST_F(AddStream, appends_so_that_messages_reach_the_streams_in_order) {
  std::string order;
  Capture first(MSG_INFO);
  Capture second(MSG_INFO);
  first.on_write = [&] { order += "1"; };
  second.on_write = [&] { order += "2"; };
  msg_print_raw("x");
  EXPECT_EQ(order, "12");
}

TEST_F(AddStream, makes_no_check_for_duplicates) {
  Capture twice(MSG_INFO);
  EXPECT_EQ(msg_add_stream(MSG_INFO, twice.stream()), 2);
  msg_print_raw("x");
  EXPECT_EQ(twice.text(), "xx");
}

TEST_F(AddStream, allocates_five_slots_at_a_time) {
  expect_blocks_left(1); // the list of MSG_DIAG
  const msg_stream_desc *desc = _msg_get_stream_desc(MSG_DIAG);
  for (int count = 1; count <= 5; count++) {
    EXPECT_EQ(msg_add_stream(MSG_DIAG, stderr), count);
    EXPECT_EQ(desc->capacity, 5);
  }
  EXPECT_EQ(support::last_size("malloc"), 5 * sizeof(FILE *));
  const long growths = support::calls("realloc");
  EXPECT_EQ(msg_add_stream(MSG_DIAG, stdout), 6);
  EXPECT_EQ(desc->capacity, 10);
  EXPECT_EQ(support::calls("realloc"), growths + 1);
  EXPECT_EQ(support::last_size("realloc"), 10 * sizeof(FILE *));
  EXPECT_THAT(streams_of(MSG_DIAG),
              testing::ElementsAre(stderr, stderr, stderr, stderr, stderr, stdout));
}

TEST_F(AddStream, ends_the_process_where_the_first_array_is_refused) {
  const auto outcome = run_in_child([] {
    support::refuse("malloc", ENOMEM);
    msg_add_stream(MSG_DIAG, stdout);
  });
  EXPECT_EQ(outcome.err, "Couldn't allocate initial storage space for stream output array.");
  EXPECT_EQ(outcome.err.size(), 64U);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(AddStream, warns_where_an_array_cannot_grow_and_goes_on_with_the_next_type) {
  Capture warnings(MSG_WARN);
  for (int i = 0; i < 5; i++)
    msg_add_stream(MSG_INFO, stdout);
  support::refuse("realloc", ENOMEM);
  EXPECT_EQ(msg_add_stream(MSG_INFO | MSG_ERROR, stderr), 1);
  support::refuse_nothing();
  EXPECT_EQ(warnings.text(), "Warning: Couldn't allocate more storage for stream array.  Not "
                             "adding stream.\n");
  EXPECT_EQ(_msg_get_stream_desc(MSG_INFO)->count, 5);
  EXPECT_EQ(_msg_get_stream_desc(MSG_INFO)->capacity, 5);
  EXPECT_THAT(streams_of(MSG_ERROR), testing::ElementsAre(stderr));
}

TEST_F(AddStream, warns_of_a_refused_growth_before_the_next_type_gets_the_stream) {
  Capture late(0);
  msg_add_stream(MSG_WARN, stderr);
  msg_clear_streams(MSG_WARN);
  for (int i = 0; i < 5; i++)
    msg_add_stream(MSG_INFO, stdout);
  support::refuse("realloc", ENOMEM);
  EXPECT_EQ(msg_add_stream(MSG_INFO | MSG_WARN, late.stream()), 1);
  EXPECT_EQ(late.text(), "");
}

TEST_F(AddStream, tells_the_last_count_that_grew_where_a_later_growth_is_refused) {
  for (int i = 0; i < 5; i++)
    msg_add_stream(MSG_ERROR, stderr);
  support::refuse("realloc", ENOMEM);
  msg_add_stream(MSG_INFO, stdout);
  EXPECT_EQ(msg_add_stream(MSG_INFO | MSG_ERROR, stdout), 2);
}

TEST_F(AddStream, works_again_after_a_refused_growth) {
  for (int i = 0; i < 5; i++)
    msg_add_stream(MSG_INFO, stdout);
  support::refuse("realloc", ENOMEM);
  EXPECT_EQ(msg_add_stream(MSG_INFO, stderr), 0);
  support::refuse_nothing();
  EXPECT_EQ(msg_add_stream(MSG_INFO, stderr), 6);
  EXPECT_EQ(_msg_get_stream_desc(MSG_INFO)->capacity, 10);
}

TEST_F(AddStream, warns_about_a_refused_growth_in_a_shared_message) {
  msg_set_solo_output(0);
  Capture warnings(MSG_WARN);
  for (int i = 0; i < 5; i++)
    msg_add_stream(MSG_INFO, stdout);
  support::refuse("realloc", ENOMEM);
  msg_add_stream(MSG_INFO, stderr);
  EXPECT_NE(warnings.text(), "");
}

class RemoveStream : public support::MessagesTest {};

TEST_F(RemoveStream, takes_the_first_occurrence_and_keeps_the_order_of_the_others) {
  for (FILE *stream : {stdin, stdout, stderr, stdout})
    msg_add_stream(MSG_INFO, stream);
  msg_remove_stream(MSG_INFO, stdout);
  EXPECT_THAT(streams_of(MSG_INFO), testing::ElementsAre(stdin, stderr, stdout));
  msg_remove_stream(MSG_INFO, stdout);
  EXPECT_THAT(streams_of(MSG_INFO), testing::ElementsAre(stdin, stderr));
  msg_clear_streams(MSG_INFO);
}

TEST_F(RemoveStream, shortens_a_full_list_from_either_end) {
  for (FILE *stream : {stdin, stdout, stdout, stdout, stderr})
    msg_add_stream(MSG_INFO, stream);
  ASSERT_EQ(_msg_get_stream_desc(MSG_INFO)->capacity, 5);
  msg_remove_stream(MSG_INFO, stdin);
  EXPECT_THAT(streams_of(MSG_INFO), testing::ElementsAre(stdout, stdout, stdout, stderr));
  msg_add_stream(MSG_INFO, stdin);
  msg_remove_stream(MSG_INFO, stdin);
  EXPECT_THAT(streams_of(MSG_INFO), testing::ElementsAre(stdout, stdout, stdout, stderr));
  msg_clear_streams(MSG_INFO);
}

TEST_F(RemoveStream, leaves_the_types_outside_the_mask_alone) {
  msg_add_stream(MSG_INFO | MSG_WARN | MSG_ERROR, stdout);
  msg_remove_stream(MSG_INFO | MSG_ERROR, stdout);
  EXPECT_EQ(_msg_get_stream_desc(MSG_INFO)->count, 0);
  EXPECT_EQ(_msg_get_stream_desc(MSG_WARN)->count, 1);
  EXPECT_EQ(_msg_get_stream_desc(MSG_ERROR)->count, 0);
}

TEST_F(RemoveStream, ignores_a_stream_that_is_not_listed) {
  msg_add_stream(MSG_INFO, stdout);
  msg_remove_stream(MSG_INFO | MSG_DIAG, stderr);
  EXPECT_THAT(streams_of(MSG_INFO), testing::ElementsAre(stdout));
}

class ClearStreams : public support::MessagesTest {};

TEST_F(ClearStreams, empties_the_types_of_the_mask_and_keeps_their_arrays) {
  msg_add_stream(MSG_INFO | MSG_WARN, stdout);
  const msg_stream_desc before = *_msg_get_stream_desc(MSG_INFO);
  msg_clear_streams(MSG_INFO);
  const msg_stream_desc *after = _msg_get_stream_desc(MSG_INFO);
  EXPECT_EQ(after->count, 0);
  EXPECT_EQ(after->capacity, before.capacity);
  EXPECT_EQ(after->streams, before.streams);
  EXPECT_EQ(_msg_get_stream_desc(MSG_WARN)->count, 1);
}

TEST_F(ClearStreams, closes_no_stream) {
  Capture capture(MSG_INFO);
  msg_clear_streams(MSG_INFO);
  EXPECT_EQ(fputs("still open", capture.stream()), 1);
  EXPECT_EQ(capture.text(), "still open");
}

class HasStreams : public support::MessagesTest {};

TEST_F(HasStreams, tells_of_the_informational_type_alone) {
  EXPECT_EQ(msg_has_print_streams(), 0);
  msg_add_stream(kAllTypes & ~(MSG_INFO | MSG_DIAG), stdout);
  EXPECT_EQ(msg_has_print_streams(), 0);
  msg_add_stream(MSG_INFO, stdout);
  msg_add_stream(MSG_INFO, stdout);
  EXPECT_EQ(msg_has_print_streams(), 1);
}

TEST_F(HasStreams, tells_of_the_warning_type_alone) {
  EXPECT_EQ(msg_has_warn_streams(), 0);
  msg_add_stream(kAllTypes & ~(MSG_WARN | MSG_DIAG), stdout);
  EXPECT_EQ(msg_has_warn_streams(), 0);
  msg_add_stream(MSG_WARN, stdout);
  msg_add_stream(MSG_WARN, stdout);
  EXPECT_EQ(msg_has_warn_streams(), 1);
}

class SetSync : public support::MessagesTest {};

TEST_F(SetSync, answers_a_query_of_one_type_with_its_flag) {
  EXPECT_EQ(msg_set_sync(MSG_INFO, -1), 1);
  EXPECT_EQ(msg_set_sync(MSG_DEBUG, -1), 0);
  EXPECT_EQ(msg_set_sync(MSG_DIAG, -7), 0);
}

TEST_F(SetSync, answers_a_query_of_several_types_with_minus_1) {
  EXPECT_EQ(msg_set_sync(MSG_INFO | MSG_DEBUG, -1), -1);
  EXPECT_EQ(msg_set_sync(MSG_WARN | MSG_ERROR, -1), -1) << "even of equal flags";
  EXPECT_EQ(msg_set_sync(kAllTypes, -1), -1);
}

TEST_F(SetSync, answers_a_query_of_several_types_with_a_first_flag_that_is_negative) {
  for (const int flag : {-1, -2, -5}) {
    _msg_get_stream_desc(MSG_DEBUG)->sync = flag;
    EXPECT_EQ(msg_set_sync(MSG_DEBUG | MSG_ERROR, -1), flag);
    EXPECT_EQ(msg_set_sync(MSG_INFO | MSG_DEBUG | MSG_ERROR, -1), -1);
  }
}

TEST_F(SetSync, answers_a_query_of_no_type_with_minus_2) {
  EXPECT_EQ(msg_set_sync(0, -1), -2);
  EXPECT_EQ(msg_set_sync(32, -1), -2);
}

TEST_F(SetSync, changes_nothing_in_a_query) {
  const long forced = support::calls("fsync");
  msg_set_sync(kAllTypes, -1);
  EXPECT_EQ(support::calls("fsync"), forced);
  EXPECT_EQ(msg_set_sync(MSG_WARN, -1), 0);
  EXPECT_EQ(msg_set_sync(MSG_INFO, -1), 1);
}

TEST_F(SetSync, switched_on_flushes_the_streams_and_forces_them_to_disk) {
  Capture first(MSG_WARN, Capture::kBuffered);
  Capture second(MSG_WARN, Capture::kBuffered);
  Capture other(MSG_DEBUG, Capture::kBuffered);
  for (const Capture *capture : {&first, &second, &other})
    fputs("waiting", capture->stream());
  const long forced = support::calls("fsync");
  EXPECT_EQ(msg_set_sync(MSG_WARN, 1), 1);
  EXPECT_EQ(msg_set_sync(MSG_WARN, -1), 1);
  EXPECT_EQ(first.text(), "waiting");
  EXPECT_EQ(second.text(), "waiting");
  EXPECT_EQ(other.text(), "");
  EXPECT_EQ(support::calls("fsync"), forced + 2);
}

TEST_F(SetSync, forces_a_stream_to_disk_once_it_is_flushed) {
  FILE *log = tmpfile();
  ASSERT_NE(log, nullptr);
  Capture capture(MSG_WARN, Capture::kBuffered);
  msg_add_stream(MSG_WARN, log);
  fputs("waiting", capture.stream());
  const long forced = support::calls("fsync");
  long forced_before_the_flush = -1;
  int flag_at_the_flush = -1;
  capture.on_write = [&] {
    forced_before_the_flush = support::calls("fsync");
    flag_at_the_flush = _msg_get_stream_desc(MSG_WARN)->sync;
  };
  msg_set_sync(MSG_WARN, 1);
  EXPECT_EQ(forced_before_the_flush, forced);
  EXPECT_EQ(flag_at_the_flush, 1);
  EXPECT_EQ(support::last_size("fsync"), static_cast<size_t>(fileno(log)));
  msg_remove_stream(MSG_WARN, log);
  fclose(log);
}

TEST_F(SetSync, keeps_a_stream_whose_flush_fails) {
  Capture capture(MSG_WARN, Capture::kBuffered);
  fputs("waiting", capture.stream());
  capture.fail(ENOSPC);
  EXPECT_EQ(msg_set_sync(MSG_WARN, 1), 1);
  EXPECT_TRUE(capture.listed(MSG_WARN));
}

TEST_F(SetSync, visits_the_types_in_order) {
  Capture diag(MSG_DIAG, Capture::kBuffered);
  Capture error(MSG_ERROR, Capture::kBuffered);
  Capture debug(MSG_DEBUG, Capture::kBuffered);
  expect_blocks_left(1); // the list of MSG_DIAG
  std::string order;
  for (const auto &[capture, letter] : {std::pair{&diag, 'd'}, {&error, 'e'}, {&debug, 'b'}}) {
    fputs("waiting", capture->stream());
    capture->on_write = [&order, letter = letter] { order += letter; };
  }
  msg_set_sync(kAllTypes, 1);
  EXPECT_EQ(order, "bed");
}

TEST_F(SetSync, switched_on_again_flushes_nothing) {
  Capture capture(MSG_WARN, Capture::kBuffered);
  msg_set_sync(MSG_WARN, 1);
  fputs("waiting", capture.stream());
  const long forced = support::calls("fsync");
  EXPECT_EQ(msg_set_sync(MSG_WARN, 1), 1);
  EXPECT_EQ(capture.text(), "");
  EXPECT_EQ(support::calls("fsync"), forced);
}

TEST_F(SetSync, switches_every_type_of_the_mask_on) {
  EXPECT_EQ(msg_set_sync(kAllTypes, 1), 1);
  for (int type = MSG_INFO; type <= MSG_DIAG; type *= 2)
    EXPECT_EQ(msg_set_sync(type, -1), 1) << type;
}

TEST_F(SetSync, returns_any_other_mode_and_changes_nothing) {
  Capture capture(MSG_INFO | MSG_WARN, Capture::kBuffered);
  fputs("waiting", capture.stream());
  for (int mode : {0, 2, 77}) {
    EXPECT_EQ(msg_set_sync(MSG_INFO | MSG_WARN, mode), mode);
    EXPECT_EQ(msg_set_sync(MSG_INFO, -1), 1) << "a flag is never cleared";
    EXPECT_EQ(msg_set_sync(MSG_WARN, -1), 0);
  }
  EXPECT_EQ(capture.text(), "");
}

TEST_F(SetSync, does_not_make_the_message_calls_force_to_disk) {
  Capture capture(MSG_INFO);
  ASSERT_EQ(msg_set_sync(MSG_INFO, -1), 1);
  const long forced = support::calls("fsync");
  msg_print("not forced");
  EXPECT_EQ(support::calls("fsync"), forced);
}

} // namespace
