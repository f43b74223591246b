// The allocation calls outside debug mode: results, counting, resizing, the pointer test.
#include "alloc/alloc_test.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

using namespace alloc_test;

namespace {

class Calls : public support::ResourceTest {};

bool all_bytes_are(const void *block, size_t size, unsigned char value) {
  const auto *bytes = static_cast<const unsigned char *>(block);
  for (size_t i = 0; i < size; i++)
    if (bytes[i] != value)
      return false;
  return true;
}

// Whether debug mode may still be switched on, that is, no allocation has been noted.
bool allocation_was_noted(const std::function<void()> &body) {
  const Outcome outcome = run_unwrapped([&] {
    body();
    orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  });
  return outcome.exit_status == 1;
}

TEST_F(Calls, malloc_asks_the_system_for_just_the_size) {
  const long calls_before = support::calls("malloc");
  void *block = orv_malloc(100, "f", "p");
  EXPECT_EQ(support::calls("malloc"), calls_before + 1);
  EXPECT_EQ(support::last_size("malloc"), 100U);
  ASSERT_NE(block, nullptr);
  memset(block, 1, 100);
  orv_free(block);
}

TEST_F(Calls, malloc_of_nothing_is_null_and_asks_nothing) {
  const long calls_before = support::calls("malloc");
  EXPECT_EQ(orv_malloc(0, "f", "p"), nullptr);
  EXPECT_EQ(orv_malloc_if_room(0), nullptr);
  EXPECT_EQ(orv_malloc_at(0, "M", 1, "x.c"), nullptr);
  EXPECT_EQ(support::calls("malloc"), calls_before);
  EXPECT_EQ(orv_malloc_bytes_requested(), 0U);
}

TEST_F(Calls, calloc_with_either_factor_0_is_null_and_asks_nothing) {
  const long calls_before = support::calls("malloc");
  EXPECT_EQ(orv_calloc(0, 5, "f", "p"), nullptr);
  EXPECT_EQ(orv_calloc(5, 0, "f", "p"), nullptr);
  EXPECT_EQ(orv_calloc_if_room(0, 5), nullptr);
  EXPECT_EQ(orv_calloc_if_room(5, 0), nullptr);
  EXPECT_EQ(orv_calloc_at(0, 5, "M", 1, "x.c"), nullptr);
  EXPECT_EQ(orv_calloc_at(5, 0, "M", 1, "x.c"), nullptr);
  EXPECT_EQ(support::calls("malloc"), calls_before);
  EXPECT_EQ(orv_malloc_bytes_requested(), 0U);
}

TEST_F(Calls, calloc_fills_the_product_of_count_and_size_with_zeros) {
  void *used = orv_malloc(120, "f", "p");
  memset(used, 0x5A, 120);
  orv_free(used);
  for (void *block : {orv_calloc(10, 12, "f", "p"), orv_calloc_if_room(10, 12),
                      orv_calloc_at(10, 12, "M", 1, "x.c")}) {
    EXPECT_EQ(support::last_size("malloc"), 120U);
    EXPECT_TRUE(all_bytes_are(block, 120, 0));
    memset(block, 0x5A, 120);
    orv_free(block);
  }
}

TEST_F(Calls, calloc_lets_the_product_overflow) {
  const size_t half = hidden(SIZE_MAX / 2 + 1);
  void *block = orv_calloc(half + 8, 2, "f", "p");
  EXPECT_EQ(support::last_size("malloc"), 16U);
  EXPECT_TRUE(all_bytes_are(block, 16, 0));
  orv_free(block);
}

TEST_F(Calls, realloc_resizes_and_keeps_the_content) {
  auto *block = static_cast<char *>(orv_malloc(6, "f", "p"));
  memcpy(block, "hello", 6);
  block = static_cast<char *>(orv_realloc(block, 1000, "f", "p"));
  EXPECT_EQ(support::last_size("realloc"), 1000U);
  EXPECT_STREQ(block, "hello");
  block = static_cast<char *>(orv_realloc_at(block, 2000, "M", 1, "x.c"));
  EXPECT_EQ(support::last_size("realloc"), 2000U);
  EXPECT_STREQ(block, "hello");
  block = static_cast<char *>(orv_realloc_if_room(block, 6));
  EXPECT_EQ(support::last_size("realloc"), 6U);
  EXPECT_STREQ(block, "hello");
  orv_free(block);
}

TEST_F(Calls, realloc_to_nothing_gives_the_block_back) {
  EXPECT_EQ(orv_realloc(orv_malloc(8, "f", "p"), 0, "f", "p"), nullptr);
  EXPECT_EQ(orv_realloc_if_room(orv_malloc(8, "f", "p"), 0), nullptr);
  EXPECT_EQ(orv_realloc_at(orv_malloc(8, "f", "p"), 0, "M", 1, "x.c"), nullptr);
  EXPECT_EQ(orv_realloc(nullptr, 0, "f", "p"), nullptr);
  EXPECT_EQ(support::calls("realloc"), 0);
}

TEST_F(Calls, realloc_of_null_allocates) {
  const long calls_before = support::calls("malloc");
  void *first = orv_realloc(nullptr, 10, "f", "p");
  void *second = orv_realloc_if_room(nullptr, 11);
  void *third = orv_realloc_at(nullptr, 12, "M", 1, "x.c");
  EXPECT_EQ(support::calls("malloc"), calls_before + 3);
  EXPECT_EQ(support::calls("realloc"), 0);
  EXPECT_EQ(support::last_size("malloc"), 12U);
  EXPECT_EQ(orv_malloc_bytes_requested(), 33U);
  orv_free(first);
  orv_free(second);
  orv_free(third);
}

TEST_F(Calls, free_ignores_null) {
  orv_free(nullptr);
}

TEST_F(Calls, requested_bytes_count_every_call_and_never_decrease) {
  EXPECT_EQ(orv_malloc_bytes_requested(), 0U);
  void *block = orv_malloc(10, "f", "p");
  EXPECT_EQ(orv_malloc_bytes_requested(), 10U);
  block = orv_realloc(block, 100, "f", "p");
  EXPECT_EQ(orv_malloc_bytes_requested(), 110U);
  orv_free(block);
  EXPECT_EQ(orv_malloc_bytes_requested(), 110U);
  orv_free(orv_calloc(3, 5, "f", "p"));
  EXPECT_EQ(orv_malloc_bytes_requested(), 125U);
  orv_free(orv_strdup("four", "f", "p"));
  EXPECT_EQ(orv_malloc_bytes_requested(), 130U);
  orv_free(orv_malloc_at(1, "M", 1, "x.c"));
  orv_free(orv_malloc_if_room(2));
  EXPECT_EQ(orv_malloc_bytes_requested(), 133U);
}

TEST_F(Calls, requested_bytes_count_refused_requests) {
  support::refuse("malloc", ENOMEM);
  EXPECT_EQ(orv_malloc_if_room(10), nullptr);
  EXPECT_EQ(orv_malloc_bytes_requested(), 10U);
  EXPECT_EQ(orv_calloc_if_room(10, 10), nullptr);
  EXPECT_EQ(orv_malloc_bytes_requested(), 110U);
  support::refuse_nothing();
  void *block = orv_malloc(1, "f", "p");
  support::refuse("realloc", ENOMEM);
  EXPECT_EQ(orv_realloc_if_room(block, 1000), nullptr);
  EXPECT_EQ(orv_malloc_bytes_requested(), 1111U);
  orv_free(block);
}

TEST_F(Calls, requested_bytes_wrap_silently_at_32_bits) {
  support::refuse("malloc", ENOMEM);
  EXPECT_EQ(orv_malloc_if_room(hidden(size_t{0xFFFFFFFF})), nullptr);
  EXPECT_EQ(orv_malloc_bytes_requested(), 0xFFFFFFFFU);
  EXPECT_EQ(orv_malloc_if_room(hidden(size_t{0x500000003})), nullptr);
  EXPECT_EQ(orv_malloc_bytes_requested(), 2U);
}

TEST_F(Calls, trivial_calls_and_free_are_not_noted_as_allocations) {
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_malloc(0, "f", "p"); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_malloc_at(0, "M", 1, "x.c"); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_calloc(0, 5, "f", "p"); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_calloc(5, 0, "f", "p"); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_strdup(nullptr, "f", "p"); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_strdup_at(nullptr, "M", 1, "x.c"); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_realloc(nullptr, 0, "f", "p"); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_realloc(malloc(8), 0, "f", "p"); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_realloc_if_room(malloc(8), 0); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_realloc_at(malloc(8), 0, "M", 1, "x.c"); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_malloc_if_room(0); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_calloc_if_room(0, 5); }));
  EXPECT_FALSE(allocation_was_noted([] { (void)!orv_calloc_at(5, 0, "M", 1, "x.c"); }));
  EXPECT_FALSE(allocation_was_noted([] { orv_free(malloc(8)); }));
  EXPECT_FALSE(allocation_was_noted([] { orv_free(nullptr); }));
}

TEST_F(Calls, every_other_allocation_call_is_noted) {
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_malloc(1, "f", "p"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_calloc(1, 1, "f", "p"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_strdup("", "f", "p"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_strdup2("", "", "f", "p"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_realloc(nullptr, 1, "f", "p"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_realloc(malloc(8), 1, "f", "p"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_malloc_if_room(1); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_calloc_if_room(1, 1); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_realloc_if_room(malloc(8), 1); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_realloc_if_room(nullptr, 1); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_malloc_at(1, "M", 1, "x.c"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_calloc_at(1, 1, "M", 1, "x.c"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_realloc_at(nullptr, 1, "M", 1, "x.c"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_realloc_at(malloc(8), 1, "M", 1, "x.c"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_strdup_at("", "M", 1, "x.c"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_strdup2_at("", "", "M", 1, "x.c"); }));
  EXPECT_TRUE(allocation_was_noted([] { (void)!orv_printf_strdup("x"); }));
}

TEST_F(Calls, a_product_that_overflows_to_nothing_is_noted_too) {
  const size_t half = hidden(SIZE_MAX / 2 + 1);
  EXPECT_TRUE(allocation_was_noted([=] { (void)!orv_calloc(half, 2, "f", "p"); }));
}

TEST_F(Calls, a_refused_allocation_is_noted_too) {
  EXPECT_TRUE(allocation_was_noted([] {
    support::refuse("malloc", ENOMEM, 0, 1);
    (void)!orv_malloc_if_room(1);
  }));
}

// An address that is 4 more than a multiple of 8.
void *unaligned() {
  return reinterpret_cast<void *>(hidden<uintptr_t>(0xABCDE4));
}

TEST_F(Calls, an_unaligned_block_is_rejected_under_the_name_of_the_call) {
  const std::string rest = " was passed an invalid pointer: 0x0000000000ABCDE4\n";
  const auto error_of = [](const std::function<void()> &body) {
    const Outcome outcome = run_unwrapped(body);
    EXPECT_EQ(outcome.exit_status, 1);
    return outcome.err;
  };
  EXPECT_EQ(error_of([] { orv_free(unaligned()); }), "Error: orv_free" + rest);
  EXPECT_EQ(error_of([] { (void)!orv_realloc(unaligned(), 1, "f", "p"); }),
            "Error: orv_realloc" + rest);
  EXPECT_EQ(error_of([] { (void)!orv_realloc_if_room(unaligned(), 1); }),
            "Error: orv_realloc_if_room" + rest);
  EXPECT_EQ(error_of([] { (void)!orv_realloc_at(unaligned(), 1, "GROW", 1, "x.c"); }),
            "Error: GROW" + rest);
}

TEST_F(Calls, an_unaligned_block_resized_to_nothing_is_rejected_by_free) {
  for (const auto &body : std::initializer_list<std::function<void()>>{
           [] { (void)!orv_realloc(unaligned(), 0, "f", "p"); },
           [] { (void)!orv_realloc_if_room(unaligned(), 0); },
           [] { (void)!orv_realloc_at(unaligned(), 0, "GROW", 1, "x.c"); }})
    expect_fatal(run_unwrapped(body), "orv_free was passed an invalid pointer: 0xADDRESS");
}

TEST_F(Calls, an_unaligned_block_is_rejected_in_debug_mode_too) {
  expect_fatal(run_in_debug_mode([] { orv_free(unaligned()); }),
               "orv_free was passed an invalid pointer: 0xADDRESS");
  expect_fatal(run_in_debug_mode([] { (void)!orv_realloc_at(unaligned(), 1, "GROW", 1, "x.c"); }),
               "GROW was passed an invalid pointer: 0xADDRESS");
}

TEST_F(Calls, any_address_not_a_multiple_of_8_is_unaligned) {
  for (uintptr_t offset = 1; offset < 8; offset++) {
    const Outcome outcome =
        run_unwrapped([=] { orv_free(reinterpret_cast<void *>(0xABCDE0 + offset)); });
    EXPECT_EQ(outcome.exit_status, 1) << offset;
  }
}

struct Pair {
  int64_t a;
  int64_t b;
};

TEST_F(Calls, macros_pass_their_name_place_and_size_and_give_the_type) {
  const Outcome outcome = run_in_debug_mode([] {
#line 1000 "macros.c"
    auto *array = ORV_MALLOC_ARRAY(int, 3);
    auto *structure = ORV_MALLOC_STRUCT(Pair);
    auto *zeroed = ORV_CALLOC_ARRAY(Pair, 4);
    auto *text = ORV_STRDUP("text");
    auto *joined = ORV_STRDUP("ab", "cde");
#line 265 "calls_test.cpp"
    static_assert(std::is_same_v<decltype(array), int *>);
    static_assert(std::is_same_v<decltype(structure), Pair *>);
    static_assert(std::is_same_v<decltype(zeroed), Pair *>);
    static_assert(std::is_same_v<decltype(text), char *>);
    if (!all_bytes_are(zeroed, 4 * sizeof(Pair), 0) || strcmp(text, "text") != 0 ||
        strcmp(joined, "abcde") != 0)
      exit(9);
    orv_malloc_debug_report(1);
  });
  EXPECT_EQ(outcome.exit_status, 0);
  const std::string shown = masked(outcome.out);
  const auto expect_line = [&](const std::string &line) {
    EXPECT_NE(shown.find(line + "\n"), std::string::npos) << line << "\nin\n" << shown;
  };
  expect_line("     0 0xADDRESS      12 ORV_MALLOC_ARRAY     1000                 macros.c");
  expect_line("     1 0xADDRESS      16 ORV_MALLOC_STRUCT    1001                 macros.c");
  expect_line("     2 0xADDRESS      64 ORV_CALLOC_ARRAY     1002                 macros.c");
  expect_line("     3 0xADDRESS       5 ORV_STRDUP           1003                 macros.c");
  expect_line("     4 0xADDRESS       3 ORV_STRDUP           1004                 macros.c");
  expect_line("     5 0xADDRESS       4 ORV_STRDUP           1004                 macros.c");
  expect_line("     6 0xADDRESS       6 ORV_STRDUP           1004                 macros.c");
}

} // namespace
