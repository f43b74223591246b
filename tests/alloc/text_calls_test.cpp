// The calls that build texts: duplicates, joins with the copies they keep, formatted texts.
#include "alloc/alloc_test.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <vector>

using namespace alloc_test;

namespace {

class TextCalls : public support::ResourceTest {};

TEST_F(TextCalls, a_duplicate_is_a_new_copy_with_its_terminator) {
  const char text[] = "some text";
  for (char *copy : {orv_strdup(text, "f", "p"), orv_strdup_at(text, "M", 1, "x.c")}) {
    EXPECT_NE(copy, text);
    EXPECT_STREQ(copy, text);
    EXPECT_EQ(support::last_size("malloc"), sizeof text);
    orv_free(copy);
  }
}

TEST_F(TextCalls, an_empty_text_is_duplicated_in_one_byte) {
  char *copy = orv_strdup("", "f", "p");
  EXPECT_STREQ(copy, "");
  EXPECT_EQ(support::last_size("malloc"), 1U);
  orv_free(copy);
}

TEST_F(TextCalls, a_null_text_has_no_duplicate) {
  const long calls_before = support::calls("malloc");
  EXPECT_EQ(orv_strdup(nullptr, "f", "p"), nullptr);
  EXPECT_EQ(orv_strdup_at(nullptr, "M", 1, "x.c"), nullptr);
  EXPECT_EQ(support::calls("malloc"), calls_before);
}

TEST_F(TextCalls, a_join_holds_both_texts_and_leaves_a_copy_of_each) {
  const long calls_before = support::calls("malloc");
  char *joined = orv_strdup2("a", "b", "f", "p");
  EXPECT_STREQ(joined, "ab");
  EXPECT_EQ(support::calls("malloc"), calls_before + 3);
  EXPECT_EQ(orv_malloc_bytes_requested(), 2U + 2U + 3U);
  orv_free(joined);
  char *located = orv_strdup2_at("long ", "", "M", 1, "x.c");
  EXPECT_STREQ(located, "long ");
  EXPECT_EQ(orv_malloc_bytes_requested(), 7U + 6U + 1U + 6U);
  orv_free(located);
  expect_blocks_left(4);
}

TEST_F(TextCalls, the_copies_of_a_join_stay_in_the_report) {
  const Outcome outcome = run_in_debug_mode([] {
    orv_free(orv_strdup2("one", "three", "f", "p"));
    orv_malloc_debug_report(1);
  });
  EXPECT_EQ(masked(outcome.out),
            "Note: a `*' in the first column indicates an invalid or corrupted pointer.\n"
            "X  ID    Pointer           Length Method               Function/Line        "
            "Purpose/File\n"
            "     0 0xADDRESS       4 orv_strdup2          f                    p\n"
            "     1 0xADDRESS       6 orv_strdup2          f                    p\n"
            "orv_malloc_debug_report: 10 bytes allocated, 2 pointers\n");
}

// Tells, when an assertion has ended the process, how many bytes were asked for until then.
void tell_bytes_requested(int) {
  char text[32];
  const int length = snprintf(text, sizeof text, "%u", orv_malloc_bytes_requested());
  (void)!write(STDOUT_FILENO, text, static_cast<size_t>(length));
}

Outcome join_in_child(const char *text1, const char *text2) {
  return run_unwrapped([=] {
    signal(SIGABRT, tell_bytes_requested);
    (void)!orv_strdup2(text1, text2, "f", "p");
  });
}

void expect_assertion(const Outcome &outcome) {
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_NE(outcome.err.find("components/alloc/alloc.cpp"), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.err.find("Assertion `text1 != nullptr && text2 != nullptr' failed"),
            std::string::npos)
      << outcome.err;
}

TEST_F(TextCalls, a_join_without_the_first_text_copies_the_second_and_asserts) {
  const Outcome outcome = join_in_child(nullptr, "three");
  expect_assertion(outcome);
  EXPECT_EQ(outcome.out, "6");
}

TEST_F(TextCalls, a_join_without_the_second_text_asserts_with_nothing_copied) {
  for (const char *text1 : {"one", static_cast<const char *>(nullptr)}) {
    const Outcome outcome = join_in_child(text1, nullptr);
    expect_assertion(outcome);
    EXPECT_EQ(outcome.out, "0");
  }
}

char *format_list(const char *format, ...) {
  va_list args;
  va_start(args, format);
  char *text = orv_vprintf_strdup(format, args);
  va_end(args);
  return text;
}

TEST_F(TextCalls, a_formatted_text_may_be_empty) {
  char *text = format_list("%s", "");
  EXPECT_STREQ(text, "");
  EXPECT_EQ(support::calls("vsnprintf"), 1);
  orv_free(text);
}

TEST_F(TextCalls, a_formatted_text_of_14_characters_stays_in_the_first_buffer) {
  char *text = orv_printf_strdup("%s%d", "twelve chars", 14);
  EXPECT_STREQ(text, "twelve chars14");
  EXPECT_EQ(support::last_size("malloc"), 16U);
  EXPECT_EQ(support::calls("realloc"), 0);
  EXPECT_EQ(support::calls("vsnprintf"), 1);
  orv_free(text);
}

TEST_F(TextCalls, a_formatted_text_of_15_characters_just_fits_and_grows_the_buffer) {
  char *text = format_list("%s%d", "thirteen char", 15);
  EXPECT_STREQ(text, "thirteen char15");
  EXPECT_EQ(support::last_size("realloc"), 32U);
  EXPECT_EQ(support::calls("realloc"), 1);
  orv_free(text);
}

TEST_F(TextCalls, a_longer_formatted_text_grows_the_buffer_to_its_length_plus_2) {
  char *text = format_list("%s%d", "fourteen chars", 16);
  EXPECT_STREQ(text, "fourteen chars16");
  EXPECT_EQ(support::last_size("realloc"), 18U);
  orv_free(text);
  const std::string longer(5000, 'x');
  text = orv_printf_strdup("%s", longer.c_str());
  EXPECT_EQ(text, longer);
  EXPECT_EQ(support::last_size("realloc"), 5002U);
  EXPECT_EQ(support::calls("realloc"), 2);
  orv_free(text);
}

TEST_F(TextCalls, a_formatting_failure_gives_the_buffer_back_and_null) {
  support::refuse("vsnprintf", EILSEQ, 0, 1);
  EXPECT_EQ(orv_printf_strdup("text"), nullptr);
  EXPECT_EQ(errno, EILSEQ);
}

TEST_F(TextCalls, a_formatting_failure_after_a_growth_gives_the_buffer_back_too) {
  support::refuse("vsnprintf", EINVAL, 1, 1);
  EXPECT_EQ(orv_printf_strdup("%s", "more than sixteen characters"), nullptr);
  EXPECT_EQ(support::calls("realloc"), 1);
}

TEST_F(TextCalls, failures_without_errno_or_with_erange_double_the_buffer) {
  support::refuse("vsnprintf", 0, 0, 2);
  char *text = orv_printf_strdup("text");
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(support::last_size("realloc"), 64U);
  EXPECT_EQ(support::calls("realloc"), 2);
  orv_free(text);
  support::refuse("vsnprintf", ERANGE, 0, 3);
  text = orv_printf_strdup("text");
  EXPECT_EQ(errno, 0);
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(support::last_size("realloc"), 128U);
  orv_free(text);
}

TEST_F(TextCalls, formatting_starts_with_errno_at_0) {
  errno = EILSEQ;
  support::refuse("vsnprintf", 0, 0, 0);
  char *text = orv_printf_strdup("text");
  EXPECT_EQ(errno, 0);
  orv_free(text);
}

void *answer_null(size_t, const char *) {
  return nullptr;
}

std::vector<std::string> told;
void *note_and_answer_null(size_t, const char *message) {
  told.emplace_back(message);
  return nullptr;
}

TEST_F(TextCalls, a_refused_buffer_of_a_formatted_text_is_told_and_answered_with_null) {
  orv_set_malloc_failure_handler(note_and_answer_null);
  support::refuse("malloc", ENOMEM, 0, 1);
  EXPECT_EQ(orv_printf_strdup("text"), nullptr);
  support::refuse("realloc", ENOMEM, 0, 1);
  EXPECT_EQ(orv_printf_strdup("%s", "more than sixteen characters"), nullptr);
  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(told[0], "orv_vprintf_strdup (via orv_malloc): Not enough memory to allocate 16 bytes "
                     "for buffer allocation.");
  EXPECT_EQ(told[1], "orv_vprintf_strdup (via orv_realloc): Not enough memory to allocate 30 bytes "
                     "for buffer resize.");
}

// A formatter that never succeeds and never says why is not asked for ever.
TEST_F(TextCalls, doubling_ends_when_storage_is_refused) {
  orv_set_malloc_failure_handler(answer_null);
  support::refuse("vsnprintf", 0);
  support::refuse("realloc", ENOMEM, 10);
  EXPECT_EQ(orv_printf_strdup("text"), nullptr);
  EXPECT_EQ(support::last_size("realloc"), size_t{16} << 11);
}

class TextCallsInDebugMode : public DebugMode {};

TEST_F(TextCallsInDebugMode, a_refused_growth_leaves_no_storage_behind) {
  orv_set_malloc_failure_handler(answer_null);
  support::refuse("realloc", ENOMEM, 0, 1);
  EXPECT_EQ(orv_printf_strdup("%s", "more than sixteen characters"), nullptr);
  EXPECT_EQ(orv_malloc_mem_used(), 0U);
}

TEST_F(TextCalls, formatted_texts_are_recorded_under_the_call_that_gave_their_buffer) {
  const Outcome outcome = run_in_debug_mode([] {
    (void)!orv_printf_strdup("short");
    (void)!orv_printf_strdup("%s", "more than sixteen characters");
    orv_malloc_debug_report(1);
  });
  const std::string shown = masked(outcome.out);
  for (const char *line :
       {"     0 0xADDRESS      16 orv_malloc           orv_vprintf_strdup   buffer allocation\n",
        "     1 0xADDRESS      30 orv_realloc          orv_vprintf_strdup   buffer resize\n"})
    EXPECT_NE(shown.find(line), std::string::npos) << line << "in\n" << shown;
}

TEST_F(TextCallsInDebugMode, formatted_texts_are_blocks_of_the_library) {
  char *text = orv_printf_strdup("%s", "more than sixteen characters");
  EXPECT_STREQ(text, "more than sixteen characters");
  EXPECT_EQ(orv_malloc_mem_used(), 30U);
  orv_free(text);
  EXPECT_EQ(orv_malloc_mem_used(), 0U);
}

} // namespace
