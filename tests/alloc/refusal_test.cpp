// What happens when the system refuses storage: the sentence, the failure handler, the calls that
// answer null.
#include "alloc/alloc_test.h"
#include "alloc/optimised_caller.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

using namespace alloc_test;

namespace {

// A handler that notes what it was told.
size_t told_size;
std::string told_message;
int told_errno;
long times_told;
void *substitute;
char substitute_area[64];

void *note_refusal(size_t size, const char *message) {
  told_errno = errno;
  told_size = size;
  told_message = message;
  times_told++;
  return substitute;
}

class Refusals : public support::ResourceTest {
protected:
  void SetUp() override {
    support::ResourceTest::SetUp();
    orv_set_malloc_failure_handler(note_refusal);
    memset(substitute_area, 'x', sizeof substitute_area);
    substitute = substitute_area;
  }

  // Every system allocation is refused, and `call` is made.
  template <typename Call> auto refused_with(int error, const Call &call) {
    support::refuse("malloc", error);
    support::refuse("realloc", error);
    auto result = call();
    support::refuse_nothing();
    return result;
  }

  bool substitute_is_untouched() {
    for (char byte : substitute_area)
      if (byte != 'x')
        return false;
    return true;
  }
};

class RefusalsInDebugMode : public Refusals {
protected:
  void SetUp() override {
    orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
    orv_free(orv_malloc(1, nullptr, nullptr));
    Refusals::SetUp();
  }
};

TEST_F(Refusals, a_named_caller_with_a_purpose_is_told_whole) {
  refused_with(ENOMEM, [] { return orv_malloc(100, "f", "p"); });
  EXPECT_EQ(told_message, "f (via orv_malloc): Not enough memory to allocate 100 bytes for p.");
  EXPECT_EQ(told_size, 100U);
  refused_with(ENOMEM, [] { return orv_calloc(3, 4, "f", "p"); });
  EXPECT_EQ(told_message, "f (via orv_calloc): Not enough memory to allocate 12 bytes for p.");
  EXPECT_EQ(told_size, 12U);
  refused_with(ENOMEM, [] { return orv_strdup("abc", "f", "p"); });
  EXPECT_EQ(told_message, "f (via orv_strdup): Not enough memory to allocate 4 bytes for p.");
  refused_with(ENOMEM, [] { return orv_realloc(nullptr, 7, "f", "p"); });
  EXPECT_EQ(told_message, "f (via orv_realloc): Not enough memory to allocate 7 bytes for p.");
}

TEST_F(Refusals, another_error_is_told_by_the_systems_text) {
  const std::string text = strerror(EAGAIN);
  refused_with(EAGAIN, [] { return orv_malloc(100, "f", "p"); });
  EXPECT_EQ(told_message,
            "f (via orv_malloc): " + text + " while trying to allocate 100 bytes for p.");
  refused_with(EAGAIN, [] { return orv_malloc(100, nullptr, "p"); });
  EXPECT_EQ(told_message, "orv_malloc: " + text + " while trying to allocate 100 bytes.");
}

TEST_F(Refusals, a_caller_lacking_function_or_purpose_is_told_by_the_method) {
  const std::string short_form = "orv_malloc: Not enough memory to allocate 100 bytes.";
  refused_with(ENOMEM, [] { return orv_malloc(100, "f", nullptr); });
  EXPECT_EQ(told_message, short_form);
  refused_with(ENOMEM, [] { return orv_malloc(100, nullptr, "p"); });
  EXPECT_EQ(told_message, short_form);
  refused_with(ENOMEM, [] { return orv_malloc(100, nullptr, nullptr); });
  EXPECT_EQ(told_message, short_form);
}

TEST_F(Refusals, a_located_call_is_told_by_its_place_whatever_the_error) {
  for (int error : {ENOMEM, EAGAIN, 0}) {
    refused_with(error, [] { return orv_malloc_at(100, "GET", 42, "src/parse.c"); });
    EXPECT_EQ(told_message,
              "GET in src/parse.c, line 42: Not enough memory to allocate 100 bytes.");
  }
  refused_with(ENOMEM, [] { return orv_calloc_at(5, 6, "GET", 43, "y.c"); });
  EXPECT_EQ(told_message, "GET in y.c, line 43: Not enough memory to allocate 30 bytes.");
  refused_with(ENOMEM, [] { return orv_strdup_at("abc", "DUP", 44, "y.c"); });
  EXPECT_EQ(told_message, "DUP in y.c, line 44: Not enough memory to allocate 4 bytes.");
  refused_with(ENOMEM, [] { return orv_realloc_at(nullptr, 9, "GROW", 45, "y.c"); });
  EXPECT_EQ(told_message, "GROW in y.c, line 45: Not enough memory to allocate 9 bytes.");
}

TEST_F(Refusals, a_refused_resize_is_told_and_leaves_the_block) {
  void *block = orv_malloc(8, "f", "p");
  ASSERT_NE(block, substitute);
  memcpy(block, "1234567", 8);
  EXPECT_EQ(refused_with(ENOMEM, [=] { return orv_realloc(block, 80, "f", "p"); }), substitute);
  EXPECT_EQ(told_message, "f (via orv_realloc): Not enough memory to allocate 80 bytes for p.");
  refused_with(ENOMEM, [=] { return orv_realloc_at(block, 81, "GROW", 7, "y.c"); });
  EXPECT_EQ(told_message, "GROW in y.c, line 7: Not enough memory to allocate 81 bytes.");
  refused_with(EAGAIN, [=] { return orv_realloc_if_room(block, 82); });
  EXPECT_EQ(told_message, std::string("orv_realloc_if_room: ") + strerror(EAGAIN) +
                              " while trying to allocate 82 bytes.");
  EXPECT_STREQ(static_cast<char *>(block), "1234567");
  orv_free(block);
}

TEST_F(Refusals, the_handlers_result_is_the_calls_result_untouched) {
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_malloc(10, "f", "p"); }), substitute);
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_calloc(5, 5, "f", "p"); }), substitute);
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_strdup("abc", "f", "p"); }), substitute);
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_strdup2("abc", "d", "f", "p"); }), substitute);
  EXPECT_EQ(refused_with(EAGAIN, [] { return orv_calloc_if_room(5, 5); }), substitute);
  EXPECT_TRUE(substitute_is_untouched());
  substitute = nullptr;
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_malloc(10, "f", "p"); }), nullptr);
}

TEST_F(Refusals, the_handlers_result_is_known_to_an_optimised_caller) {
  EXPECT_TRUE(refused_with(ENOMEM, [] { return malloc_gives_what_was_lent(); }));
  EXPECT_TRUE(refused_with(ENOMEM, [] { return strdup_gives_what_was_lent(); }));
  EXPECT_EQ(refused_with(ENOMEM, [] { return written_through_a_lent_block('n'); }), 'n');
}

TEST_F(Refusals, a_join_tells_each_of_its_three_refusals) {
  times_told = 0;
  refused_with(ENOMEM, [] { return orv_strdup2("abc", "de", "f", "p"); });
  EXPECT_EQ(times_told, 3);
  EXPECT_EQ(told_message, "f (via orv_strdup2): Not enough memory to allocate 6 bytes for p.");
  EXPECT_EQ(orv_malloc_bytes_requested(), 4U + 3U + 6U);
}

TEST_F(Refusals, calls_for_where_there_is_room_answer_null_on_enomem_alone) {
  void *block = orv_malloc(8, "f", "p");
  ASSERT_NE(block, substitute);
  times_told = 0;
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_malloc_if_room(10); }), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_calloc_if_room(10, 1); }), nullptr);
  EXPECT_EQ(refused_with(ENOMEM, [=] { return orv_realloc_if_room(block, 10); }), nullptr);
  EXPECT_EQ(refused_with(ENOMEM, [=] { return orv_realloc_if_room(nullptr, 10); }), nullptr);
  EXPECT_EQ(times_told, 0);
  EXPECT_EQ(refused_with(EAGAIN, [] { return orv_malloc_if_room(10); }), substitute);
  EXPECT_EQ(told_message, std::string("orv_malloc_if_room: ") + strerror(EAGAIN) +
                              " while trying to allocate 10 bytes.");
  EXPECT_EQ(refused_with(EAGAIN, [] { return orv_calloc_if_room(10, 2); }), substitute);
  EXPECT_EQ(told_message, std::string("orv_calloc_if_room: ") + strerror(EAGAIN) +
                              " while trying to allocate 20 bytes.");
  EXPECT_EQ(refused_with(EAGAIN, [] { return orv_realloc_if_room(nullptr, 30); }), substitute);
  EXPECT_EQ(times_told, 3);
  orv_free(block);
}

TEST_F(Refusals, the_other_calls_never_answer_null_by_themselves) {
  times_told = 0;
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_malloc_at(10, "GET", 1, "x.c"); }), substitute);
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_malloc(10, nullptr, nullptr); }), substitute);
  EXPECT_EQ(times_told, 2);
}

TEST_F(Refusals, the_handler_sees_the_systems_errno) {
  refused_with(EAGAIN, [] { return orv_malloc(10, "f", "p"); });
  EXPECT_EQ(told_errno, EAGAIN);
}

TEST_F(Refusals, installing_a_handler_returns_the_one_before) {
  EXPECT_EQ(orv_set_malloc_failure_handler(nullptr), note_refusal);
  EXPECT_EQ(orv_set_malloc_failure_handler(note_refusal), nullptr);
  EXPECT_EQ(orv_set_malloc_failure_handler(note_refusal), note_refusal);
}

TEST_F(Refusals, a_sentence_is_cut_at_9999_characters) {
  const std::string longest(9999 - strlen("f (via orv_malloc): Not enough memory to allocate 100 "
                                          "bytes for ."),
                            'p');
  refused_with(ENOMEM, [&] { return orv_malloc(100, "f", longest.c_str()); });
  EXPECT_EQ(told_message,
            "f (via orv_malloc): Not enough memory to allocate 100 bytes for " + longest + ".");
  EXPECT_EQ(told_message.size(), 9999U);
  const std::string too_long = longest + "qq";
  refused_with(ENOMEM, [&] { return orv_malloc(100, "f", too_long.c_str()); });
  EXPECT_EQ(told_message,
            "f (via orv_malloc): Not enough memory to allocate 100 bytes for " + longest + "q");
}

void *allocate_in_handler(size_t size, const char *message) {
  note_refusal(size, message);
  support::refuse_nothing();
  orv_free(orv_malloc(1, "handler", "trial"));
  return orv_malloc(size, "handler", "second attempt");
}

TEST_F(Refusals, a_handler_may_allocate_itself) {
  orv_set_malloc_failure_handler(allocate_in_handler);
  void *block = refused_with(ENOMEM, [] { return orv_malloc(100, "f", "p"); });
  EXPECT_EQ(told_message, "f (via orv_malloc): Not enough memory to allocate 100 bytes for p.");
  ASSERT_NE(block, nullptr);
  memset(block, 1, 100);
  orv_free(block);
}

TEST_F(RefusalsInDebugMode, a_handler_may_allocate_itself) {
  orv_set_malloc_failure_handler(allocate_in_handler);
  void *block = refused_with(ENOMEM, [] { return orv_malloc(100, "f", "p"); });
  EXPECT_EQ(orv_malloc_mem_used(), 100U);
  void *resized = orv_realloc(block, 200, "f", "p");
  EXPECT_EQ(orv_malloc_mem_used(), 200U);
  orv_free(resized);
  EXPECT_EQ(orv_malloc_mem_used(), 0U);
}

TEST_F(RefusalsInDebugMode, the_wanted_size_is_told_and_the_padded_size_counted) {
  const uint32_t before = orv_malloc_bytes_requested();
  refused_with(ENOMEM, [] { return orv_malloc(101, "f", "p"); });
  EXPECT_EQ(told_message, "f (via orv_malloc): Not enough memory to allocate 101 bytes for p.");
  EXPECT_EQ(told_size, 101U);
  EXPECT_EQ(orv_malloc_bytes_requested(), before + 116);
}

TEST_F(RefusalsInDebugMode, the_handlers_result_is_neither_recorded_nor_filled) {
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_malloc(10, "f", "p"); }), substitute);
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_calloc(10, 1, "f", "p"); }), substitute);
  EXPECT_EQ(refused_with(ENOMEM, [] { return orv_strdup("abc", "f", "p"); }), substitute);
  EXPECT_TRUE(substitute_is_untouched());
  EXPECT_EQ(orv_malloc_mem_used(), 0U);
}

TEST_F(RefusalsInDebugMode, a_size_that_would_wrap_around_is_refused_by_the_system) {
  const uint32_t before = orv_malloc_bytes_requested();
  for (size_t below_top = 0; below_top < 12; below_top++) {
    const size_t size = hidden(SIZE_MAX - below_top);
    EXPECT_EQ(refused_with(ENOMEM, [=] { return orv_malloc(size, "f", "p"); }), substitute);
    EXPECT_EQ(told_message, "f (via orv_malloc): Not enough memory to allocate " +
                                std::to_string(size) + " bytes for p.");
    EXPECT_GE(support::last_size("malloc"), size);
  }
  // 12 from each of the three sizes at the top, 8 from the next four, 4 from the next four, 0 from
  // the last: modulo 2^32, like everything that is counted.
  EXPECT_EQ(orv_malloc_bytes_requested(), before + 3 * 12 + 4 * 8 + 4 * 4);
  void *block = orv_malloc(8, "f", "p");
  const size_t size = hidden(SIZE_MAX);
  EXPECT_EQ(refused_with(ENOMEM, [=] { return orv_realloc(block, size, "f", "p"); }), substitute);
  EXPECT_EQ(support::last_size("realloc"), SIZE_MAX);
  free(static_cast<char *>(block) - 8);
}

TEST_F(RefusalsInDebugMode, a_product_that_overflows_to_nothing_still_gets_a_whole_block) {
  const size_t half = hidden(SIZE_MAX / 2 + 1);
  void *block = orv_calloc(half, 2, "f", "p");
  EXPECT_EQ(support::last_size("malloc"), 12U);
  orv_free(block);
}

TEST_F(Refusals, without_a_handler_the_sentence_is_a_fatal_error) {
  const auto refuse_without_handler = [](const std::function<void()> &call) {
    return run_unwrapped([&] {
      orv_set_malloc_failure_handler(nullptr);
      support::refuse("malloc", ENOMEM, 0, 1);
      call();
    });
  };
  expect_fatal(refuse_without_handler([] { (void)!orv_malloc(100, "f", "p"); }),
               "f (via orv_malloc): Not enough memory to allocate 100 bytes for p.");
  expect_fatal(refuse_without_handler([] { (void)!orv_malloc(100, "f", nullptr); }),
               "orv_malloc: Not enough memory to allocate 100 bytes.");
  expect_fatal(run_unwrapped([] {
                 orv_set_malloc_failure_handler(nullptr);
                 support::refuse("malloc", EAGAIN, 0, 1);
                 (void)!orv_malloc_if_room(100);
               }),
               std::string("orv_malloc_if_room: ") + strerror(EAGAIN) +
                   " while trying to allocate 100 bytes.");
  expect_fatal(refuse_without_handler([] { (void)!orv_malloc_at(100, "100%s", 1, "%d.c"); }),
               "100%s in %d.c, line 1: Not enough memory to allocate 100 bytes.");
#line 1234 "refusal_test.cpp"
  expect_fatal(refuse_without_handler([] { (void)!ORV_STRDUP("abc"); }),
               "ORV_STRDUP in refusal_test.cpp, line 1234: Not enough memory to allocate 4 bytes.");
}

} // namespace
