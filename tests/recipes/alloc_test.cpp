// Recipes for allocation: refused storage, texts, and debug mode.
#include "alloc/alloc_test.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <sstream>

namespace {

using namespace alloc_test;
using support::refuse;
using testing::HasSubstr;
using testing::StartsWith;

class AllocationRecipes : public support::ResourceTest {
protected:
  void TearDown() override {
    orv_set_malloc_failure_handler(nullptr);
    ResourceTest::TearDown();
  }
};

int errno_of_refusal = 0;

void *note_errno(size_t, const char *) {
  errno_of_refusal = errno;
  return nullptr;
}

TEST_F(AllocationRecipes, let_a_failure_handler_see_errno) {
  orv_set_malloc_failure_handler(note_errno);
  refuse("malloc", EAGAIN, 0, 1);
  EXPECT_EQ(ORV_MALLOC_ARRAY(int, 10), nullptr);
  EXPECT_EQ(errno_of_refusal, EAGAIN);
}

char reserve[1000];

void *lend_reserve(size_t size, const char *) {
  return size <= sizeof reserve ? reserve : nullptr;
}

TEST_F(AllocationRecipes, give_a_handlers_block_back_where_it_came_from) {
  orv_set_malloc_failure_handler(lend_reserve);
  refuse("malloc", ENOMEM, 0, 1);
  auto *block = static_cast<char *>(orv_malloc(sizeof reserve, "test", "a reserve"));
  EXPECT_EQ(block, reserve);
  memset(block, 1, sizeof reserve);
  if (block != reserve)
    orv_free(block);
}

TEST_F(AllocationRecipes, join_texts_without_leaving_copies) {
  char *joined = orv_printf_strdup("%s%s", "folder/", "file");
  EXPECT_STREQ(joined, "folder/file");
  orv_free(joined);
}

TEST_F(AllocationRecipes, look_for_a_resize_where_the_report_names_orv_free) {
  const auto outcome = run_in_debug_mode([] {
    void *block = orv_malloc(10, "test", "a block");
    release(block);
    (void)!orv_realloc(hidden(block), 0, "test", "a resize to nothing");
  });
  EXPECT_THAT(outcome.err, StartsWith("Error: orv_free: "));
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(AllocationRecipes, need_nothing_for_texts_of_any_length) {
  for (size_t length = 0; length < 300; length++) {
    const std::string text(length, 'x');
    char *copy = orv_printf_strdup("%s", text.c_str());
    EXPECT_EQ(copy, text);
    orv_free(copy);
  }
}

TEST_F(AllocationRecipes, take_blocks_that_need_more_alignment_from_the_system) {
  const auto outcome = run_in_debug_mode([] {
    auto *number = static_cast<long double *>(aligned_alloc(16, sizeof(long double)));
    *number = 1.5L;
    printf("%d", static_cast<int>(reinterpret_cast<uintptr_t>(number) % 16));
    free(number);
  });
  EXPECT_EQ(outcome.out, "0");
}

TEST_F(AllocationRecipes, grow_a_block_that_a_refusal_must_not_take_away) {
  const auto outcome = run_in_debug_mode([] {
    for (const int refused : {1, 0}) {
      char *text = orv_strdup("text", "test", "what grows");
      refuse("malloc", ENOMEM, 0, refused);
      auto *larger = static_cast<char *>(orv_malloc_if_room(100));
      support::refuse_nothing();
      if (larger != nullptr) {
        memcpy(larger, text, strlen(text) + 1);
        orv_free(text);
        text = larger;
      }
      printf("%s\n", text);
      orv_free(text);
    }
    orv_malloc_debug_report(0);
  });
  EXPECT_EQ(outcome.out, "text\ntext\norv_malloc_debug_report: No storage was allocated\n");
}

TEST_F(AllocationRecipes, fill_what_a_resize_has_gained) {
  const auto outcome = run_in_debug_mode([] {
    auto *block = static_cast<char *>(orv_malloc(10, "test", "a block"));
    memset(block, 'a', 10);
    block = static_cast<char *>(orv_realloc(block, 20, "test", "a larger one"));
    memset(block + 10, 0xAB, 10);
    printf("%.10s%02X", block, static_cast<unsigned>(static_cast<unsigned char>(block[19])));
    orv_free(block);
  });
  EXPECT_EQ(outcome.out, "aaaaaaaaaaAB");
}

TEST_F(AllocationRecipes, verify_the_heap_around_a_suspicious_part_only) {
  const auto outcome = run_in_debug_mode([] {
    void *block = orv_malloc(10, "test", "a block");
    orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
    orv_free(orv_malloc(10, "test", "the suspicious part"));
    orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
    orv_free(block);
  });
  expect_quiet_success(outcome);
}

TEST_F(AllocationRecipes, ask_for_the_mode_before_the_memory_in_use) {
  const auto used = [] {
    if (orv_malloc_debug_mode() != 0)
      printf("%u in use", orv_malloc_mem_used());
  };
  expect_quiet_success(run_unwrapped(used));
  EXPECT_EQ(run_in_debug_mode(used).out, "0 in use");
}

TEST_F(AllocationRecipes, read_the_line_of_a_released_located_block) {
  const auto outcome = run_in_debug_mode([] {
    int *block = ORV_MALLOC_ARRAY(int, 1);
    release(block);
    orv_malloc_describe_ptr(hidden(block));
  });
  const std::string line = std::to_string(__LINE__ - 4);
  EXPECT_THAT(outcome.out, HasSubstr("in the function (line " + line + ") for " __FILE__));
}

TEST_F(AllocationRecipes, add_up_the_listed_lengths) {
  const auto outcome = run_in_debug_mode([] {
    (void)!orv_malloc(1000, "test", "listed");
    (void)!orv_malloc(234, "test", "listed");
    orv_malloc_debug_report(1);
  });
  std::istringstream lines(outcome.out);
  long sum = 0;
  for (std::string line, id, pointer; std::getline(lines, line);) {
    long length = 0;
    if (line.find(" listed") != std::string::npos &&
        std::istringstream(line) >> id >> pointer >> length)
      sum += length;
  }
  EXPECT_EQ(sum, 1234);
  EXPECT_THAT(outcome.out, HasSubstr("1234 bytes allocated, 2 pointers"));
}

} // namespace
