// Blocks in debug mode: their layout to the byte, what is filled, their records, the counters.
#include "alloc/alloc_test.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

using namespace alloc_test;

namespace {

constexpr uint32_t kAllocated = 0x5739E56A;
constexpr uint32_t kFreed = 0x7D2C5B7E;
constexpr uint32_t kTrailer = 0x35A7B641;

class Blocks : public DebugMode {};

template <typename Word> Word word_at(const void *block, ptrdiff_t offset) {
  Word word;
  memcpy(&word, static_cast<const char *>(block) + offset, sizeof word);
  return word;
}

int32_t index_of(const void *block) {
  return word_at<int32_t>(block, -8);
}

bool all_bytes_are(const void *block, size_t size, unsigned char value) {
  const auto *bytes = static_cast<const unsigned char *>(block);
  for (size_t i = 0; i < size; i++)
    if (bytes[i] != value)
      return false;
  return true;
}

size_t rounded_up(size_t size) {
  return (size + 3) / 4 * 4;
}

TEST_F(Blocks, are_laid_out_to_the_byte) {
  for (size_t size = 1; size <= 33; size++) {
    void *block = hidden(orv_malloc(size, "f", "p"));
    EXPECT_EQ(support::last_size("malloc"), (size - 1) / 4 * 4 + 16) << size;
    EXPECT_EQ(index_of(block), 0);
    EXPECT_EQ(word_at<uint32_t>(block, -4), kAllocated);
    EXPECT_EQ(word_at<uint32_t>(block, static_cast<ptrdiff_t>(rounded_up(size))), kTrailer) << size;
    release(block);
  }
}

TEST_F(Blocks, of_5_bytes_occupy_20_and_end_8_after_the_pointer) {
  void *block = hidden(orv_malloc(5, "f", "p"));
  EXPECT_EQ(support::last_size("malloc"), 20U);
  EXPECT_EQ(word_at<uint32_t>(block, 8), kTrailer);
  release(block);
}

TEST_F(Blocks, start_8_bytes_after_the_systems_address_and_so_between_multiples_of_16) {
  void *block = hidden(orv_malloc(5, "f", "p"));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 8U);
  release(block);
}

TEST_F(Blocks, are_filled_when_allocated) {
  for (void *block : {orv_malloc(7, "f", "p"), orv_malloc_if_room(7),
                      orv_malloc_at(7, "M", 1, "x.c"), orv_realloc(nullptr, 7, "f", "p"),
                      orv_realloc_if_room(nullptr, 7), orv_realloc_at(nullptr, 7, "M", 1, "x.c")}) {
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(all_bytes_are(block, 7, 0xAB));
    release(block);
  }
}

TEST_F(Blocks, of_calloc_are_zero_all_the_same) {
  for (void *block :
       {orv_calloc(7, 3, "f", "p"), orv_calloc_if_room(7, 3), orv_calloc_at(7, 3, "M", 1, "x.c")}) {
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(support::last_size("malloc"), 36U);
    EXPECT_TRUE(all_bytes_are(block, 21, 0));
    release(block);
  }
}

TEST_F(Blocks, have_a_gap_that_is_neither_written_nor_checked) {
  support::keep_freed_blocks();
  auto *block = static_cast<unsigned char *>(hidden(orv_malloc(5, "f", "p")));
  block[5] = 1;
  block[6] = 2;
  block[7] = 3;
  release(block);
  EXPECT_TRUE(all_bytes_are(block, 5, 0xAB));
  EXPECT_EQ(block[5], 1);
  EXPECT_EQ(block[6], 2);
  EXPECT_EQ(block[7], 3);
}

TEST_F(Blocks, are_marked_and_filled_when_given_back) {
  support::keep_freed_blocks();
  const long live_before = support::live_blocks();
  auto *block = static_cast<char *>(hidden(orv_malloc(10, "f", "p")));
  memset(block, 'x', 10);
  release(block);
  EXPECT_EQ(support::live_blocks(), live_before);
  EXPECT_EQ(index_of(block), 0);
  EXPECT_EQ(word_at<uint32_t>(block, -4), kFreed);
  EXPECT_TRUE(all_bytes_are(block, 10, 0xAB));
  EXPECT_EQ(word_at<uint32_t>(block, 12), kTrailer);
}

TEST_F(Blocks, that_are_resized_get_new_surroundings_and_are_not_filled) {
  support::keep_freed_blocks();
  auto *block = static_cast<char *>(hidden(orv_malloc(8, "f", "p")));
  memcpy(block, "1234567", 8);
  auto *resized = static_cast<char *>(hidden(orv_realloc(block, 21, "f", "p")));
  EXPECT_EQ(support::last_size("realloc"), 36U);
  EXPECT_STREQ(resized, "1234567");
  EXPECT_EQ(index_of(resized), 0);
  EXPECT_EQ(word_at<uint32_t>(resized, -4), kAllocated);
  EXPECT_EQ(word_at<uint32_t>(resized, 24), kTrailer);
  EXPECT_TRUE(all_bytes_are(resized + 16, 5, support::kBytesOfMovedBlocks))
      << "the grown tail was filled";
  EXPECT_TRUE(all_bytes_are(resized + 21, 3, support::kBytesOfMovedBlocks))
      << "the gap was written";
  EXPECT_EQ(word_at<uint32_t>(block, -4), kFreed);
  EXPECT_STREQ(block, "1234567") << "the old bytes were filled";
  release(resized);
}

TEST_F(Blocks, that_shrink_have_their_trailer_moved) {
  auto *block = static_cast<char *>(hidden(orv_malloc(80, "f", "p")));
  memcpy(block, "1234567", 8);
  block = static_cast<char *>(hidden(orv_realloc_at(block, 6, "M", 1, "x.c")));
  EXPECT_EQ(word_at<uint32_t>(block, 8), kTrailer);
  EXPECT_EQ(memcmp(block, "123456", 6), 0);
  release(block);
}

TEST_F(Blocks, are_counted_by_their_padded_size) {
  const uint32_t before = orv_malloc_bytes_requested();
  void *block = hidden(orv_malloc(5, "f", "p"));
  EXPECT_EQ(orv_malloc_bytes_requested(), before + 20);
  block = orv_realloc(block, 9, "f", "p");
  EXPECT_EQ(orv_malloc_bytes_requested(), before + 20 + 24);
  release(block);
  EXPECT_EQ(orv_malloc_bytes_requested(), before + 20 + 24);
}

TEST_F(Blocks, are_summed_up_by_their_own_size_while_they_live) {
  EXPECT_EQ(orv_malloc_mem_used(), 0U);
  void *first = orv_malloc(5, "f", "p");
  EXPECT_EQ(orv_malloc_mem_used(), 5U);
  void *second = orv_calloc(3, 3, "f", "p");
  EXPECT_EQ(orv_malloc_mem_used(), 14U);
  first = orv_realloc(first, 100, "f", "p");
  EXPECT_EQ(orv_malloc_mem_used(), 109U);
  release(second);
  EXPECT_EQ(orv_malloc_mem_used(), 100U);
  release(first);
  EXPECT_EQ(orv_malloc_mem_used(), 0U);
}

TEST_F(Blocks, take_the_record_given_back_last) {
  void *blocks[4];
  for (int i = 0; i < 4; i++) {
    blocks[i] = orv_malloc(8, "f", "p");
    EXPECT_EQ(index_of(blocks[i]), i);
  }
  release(blocks[1]);
  release(blocks[2]);
  blocks[1] = orv_malloc(8, "f", "p");
  EXPECT_EQ(index_of(blocks[1]), 2);
  blocks[2] = orv_malloc(8, "f", "p");
  EXPECT_EQ(index_of(blocks[2]), 1);
  void *next = orv_malloc(8, "f", "p");
  EXPECT_EQ(index_of(next), 4);
  release(next);
  for (void *block : blocks)
    release(block);
}

TEST_F(Blocks, keep_their_record_when_resized) {
  void *first = orv_malloc(8, "f", "p");
  void *second = orv_malloc(8, "f", "p");
  first = orv_realloc(first, 800, "f", "p");
  EXPECT_EQ(index_of(first), 0);
  release(first);
  release(second);
}

class Table : public support::ResourceTest {};

TEST_F(Table, grows_by_1024_records_of_48_bytes_and_is_not_counted) {
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  std::vector<void *> blocks;
  blocks.push_back(orv_malloc(1, "f", "p"));
  EXPECT_EQ(support::calls("realloc"), 0);
  EXPECT_EQ(support::last_size("malloc"), 1024U * 48);
  while (blocks.size() < 1024)
    blocks.push_back(orv_malloc(1, "f", "p"));
  EXPECT_EQ(support::calls("realloc"), 0);
  blocks.push_back(orv_malloc(1, "f", "p"));
  EXPECT_EQ(support::calls("realloc"), 1);
  EXPECT_EQ(support::last_size("realloc"), 2048U * 48);
  while (blocks.size() < 2049)
    blocks.push_back(orv_malloc(1, "f", "p"));
  EXPECT_EQ(support::last_size("realloc"), 3072U * 48);
  EXPECT_EQ(orv_malloc_bytes_requested(), 2049U * 16);
  for (size_t i = 0; i < blocks.size(); i++)
    EXPECT_EQ(index_of(blocks[i]), static_cast<int32_t>(i));
  for (void *block : blocks)
    release(block);
  expect_blocks_left(1); // the table
}

TEST_F(Table, that_cannot_grow_ends_the_process) {
  const Outcome outcome = run_in_debug_mode([] {
    support::refuse("malloc", ENOMEM, 1, 1);
    (void)!orv_malloc(1, "f", "p");
  });
  EXPECT_EQ(outcome.signal, SIGABRT);
  EXPECT_NE(outcome.err.find("components/alloc/debug_records.cpp"), std::string::npos);
}

TEST_F(Blocks, of_a_refused_resize_stay_usable_but_have_lost_their_record) {
  auto *block = static_cast<char *>(hidden(orv_malloc(8, "f", "p")));
  memcpy(block, "1234567", 8);
  const uint32_t requested = orv_malloc_bytes_requested();
  support::refuse("realloc", ENOMEM, 0, 1);
  EXPECT_EQ(orv_realloc_if_room(block, 100), nullptr);
  EXPECT_EQ(orv_malloc_bytes_requested(), requested + 112);
  EXPECT_STREQ(block, "1234567");
  EXPECT_EQ(word_at<uint32_t>(block, -4), kFreed);
  EXPECT_EQ(orv_malloc_mem_used(), 0U);
  expect_fatal(run_unwrapped([=] { release(block); }),
               "orv_free: The pointer 0xADDRESS was referenced after it was free'd.  Before being "
               "free'd, the pointer was allocated by orv_malloc with a length of 8.  The storage "
               "was allocated in the function f for p.   ");
  free(block - 8);
}

} // namespace
