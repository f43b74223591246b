// Misuse that debug mode catches when a block is given back or resized: what is said, under which
// name, in which order.
#include "alloc/alloc_test.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

using namespace alloc_test;

namespace {

class Misuse : public support::ResourceTest {};

void write_word(void *block, ptrdiff_t offset, uint32_t word) {
  memcpy(static_cast<char *>(block) + offset, &word, sizeof word);
}

char *block_of(size_t size) {
  return hidden(static_cast<char *>(orv_malloc(size, "f", "p")));
}

const char *const kAllocatedBy8 = "pointer was allocated by orv_malloc with a length of 8.  The "
                                  "storage was allocated in the function f for p.   ";

// Has a block of 8 bytes damaged and given back.
void expect_on_release(const std::function<void(char *)> &damage, const std::string &text) {
  expect_fatal(run_in_debug_mode([&] {
                 char *block = block_of(8);
                 damage(block);
                 release(block);
               }),
               "orv_free: The pointer 0xADDRESS " + text);
}

TEST_F(Misuse, a_block_given_back_twice_is_told_with_its_origin) {
  expect_on_release([](char *block) { release(block); },
                    std::string("was referenced after it was free'd.  Before being free'd, the ") +
                        kAllocatedBy8);
}

TEST_F(Misuse, a_block_given_back_twice_is_told_although_the_system_overwrote_its_header) {
  expect_on_release(
      [](char *block) {
        release(block);
        write_word(block, -8, 0x12345678);
        write_word(block, -4, 0x00005581);
      },
      std::string("was referenced after it was free'd.  Before being free'd, the ") +
          kAllocatedBy8);
}

TEST_F(Misuse, a_block_given_back_after_it_moved_is_told_as_stale) {
  expect_on_release([](char *block) { (void)!orv_realloc(block, 16, "g", "q"); },
                    // Its record is in use again, for the block that moved.
                    "was referenced after it was free'd. ");
}

TEST_F(Misuse, one_byte_past_the_end_is_told_as_corruption_at_the_end) {
  expect_on_release([](char *block) { overwrite(block, 8); },
                    std::string("referenced data that was corrupted at the end.  The ") +
                        kAllocatedBy8);
}

TEST_F(Misuse, one_byte_past_a_block_of_4_is_told_as_corruption_at_the_end) {
  expect_fatal(run_in_debug_mode([] {
                 char *block = block_of(4);
                 overwrite(block, 4);
                 release(block);
               }),
               "orv_free: The pointer 0xADDRESS referenced data that was corrupted at the end.  "
               "The pointer was allocated by orv_malloc with a length of 4.  The storage was "
               "allocated in the function f for p.   ");
}

TEST_F(Misuse, the_last_byte_of_the_trailer_is_checked) {
  expect_on_release([](char *block) { overwrite(block, 11); },
                    std::string("referenced data that was corrupted at the end.  The ") +
                        kAllocatedBy8);
}

TEST_F(Misuse, an_overwritten_header_word_is_told_as_corruption_at_the_beginning) {
  expect_on_release([](char *block) { write_word(block, -4, 0); },
                    std::string("referenced data that was corrupted at the beginning.  The ") +
                        kAllocatedBy8);
}

TEST_F(Misuse, an_index_outside_the_table_is_told_as_corruption_at_the_beginning) {
  const std::string text = "referenced data that was corrupted at the beginning. ";
  expect_on_release([](char *block) { write_word(block, -8, 5000); }, text);
  expect_on_release([](char *block) { write_word(block, -8, 0xFFFFFFFF); }, text);
  expect_on_release([](char *block) { write_word(block, -8, 0x80000000); }, text);
}

TEST_F(Misuse, an_index_that_equals_the_capacity_names_no_record) {
  expect_on_release([](char *block) { write_word(block, -8, 1024); },
                    "referenced data that was corrupted at the beginning. ");
}

TEST_F(Misuse, an_index_of_another_record_is_told_as_invalid_information) {
  const std::string text = "had invalid debugging information (possible internal error). ";
  expect_on_release([](char *block) { write_word(block, -8, 1); }, text);
  expect_on_release([](char *block) { write_word(block, -8, 1023); }, text);
  expect_on_release(
      [](char *block) {
        (void)!block_of(8);
        write_word(block, -8, 1);
      },
      text);
}

TEST_F(Misuse, a_released_block_with_a_live_header_word_is_told_as_invalid_information) {
  expect_on_release(
      [](char *block) {
        release(block);
        write_word(block, -4, 0x5739E56A);
      },
      std::string("had invalid debugging information (possible internal error).  The ") +
          kAllocatedBy8);
}

TEST_F(Misuse, the_beginning_is_told_before_the_end_and_the_end_before_the_record) {
  expect_on_release(
      [](char *block) {
        write_word(block, -4, 0);
        overwrite(block, 8);
      },
      std::string("referenced data that was corrupted at the beginning.  The ") + kAllocatedBy8);
  expect_on_release(
      [](char *block) {
        release(block);
        write_word(block, -4, 0x5739E56A);
        overwrite(block, 8);
      },
      std::string("referenced data that was corrupted at the end.  The ") + kAllocatedBy8);
  expect_on_release(
      [](char *block) {
        release(block);
        overwrite(block, 8);
      },
      std::string("was referenced after it was free'd.  Before being free'd, the ") +
          kAllocatedBy8);
}

TEST_F(Misuse, an_address_never_handed_out_is_told) {
  expect_fatal(run_in_debug_mode([] {
                 char *block = block_of(32);
                 release(block + 16);
               }),
               "orv_free: The pointer 0xADDRESS referenced data that was corrupted at the "
               "beginning. ");
  expect_fatal(run_in_debug_mode([] {
                 alignas(8) static char area[32];
                 release(area + 8);
               }),
               "orv_free: The pointer 0xADDRESS referenced data that was corrupted at the "
               "beginning. ");
}

TEST_F(Misuse, a_forged_header_does_not_make_a_block) {
  expect_fatal(run_in_debug_mode([] {
                 alignas(8) static char area[32];
                 (void)!block_of(8);
                 write_word(area, 0, 0);
                 write_word(area, 4, 0x5739E56A);
                 release(area + 8);
               }),
               "orv_free: The pointer 0xADDRESS had invalid debugging information (possible "
               "internal error). ");
}

TEST_F(Misuse, a_block_from_a_failure_handler_is_rejected) {
  expect_fatal(run_in_debug_mode([] {
                 alignas(8) static char area[32];
                 orv_set_malloc_failure_handler(
                     [](size_t, const char *) -> void * { return area + 8; });
                 support::refuse("malloc", ENOMEM, 0, 1);
                 release(orv_malloc(8, "f", "p"));
               }),
               "orv_free: The pointer 0xADDRESS referenced data that was corrupted at the "
               "beginning. ");
}

TEST_F(Misuse, the_address_is_told_in_16_upper_case_digits) {
  const Outcome outcome = run_in_debug_mode([] {
    char *block = block_of(8);
    printf("Error: orv_free: The pointer 0x%016lX referenced",
           reinterpret_cast<unsigned long>(block));
    fflush(stdout);
    write_word(block, -4, 0);
    release(block);
  });
  EXPECT_EQ(outcome.err.substr(0, outcome.out.size()), outcome.out);
}

// Has a stale block given to a call, whose name and place are then told.
void expect_in_call(const std::function<void(char *)> &call, const std::string &method,
                    const std::string &site_sentence) {
  expect_fatal(run_in_debug_mode([&] {
                 char *block = block_of(8);
                 release(block);
                 call(block);
               }),
               method +
                   ": The pointer 0xADDRESS was referenced after it was free'd.  Before being "
                   "free'd, the pointer was allocated by orv_malloc with a length of 8.  The "
                   "storage was allocated in the function f for p.   " +
                   site_sentence);
}

TEST_F(Misuse, the_call_that_meets_it_is_named_with_what_it_tells_of_itself) {
  expect_in_call([](char *block) { (void)!orv_realloc(block, 9, "grow", "rows"); }, "orv_realloc",
                 "(Currently inside of grow, allocating storage for rows)");
  expect_in_call([](char *block) { (void)!orv_realloc(block, 9, "grow", nullptr); }, "orv_realloc",
                 "(Currently inside of grow)");
  expect_in_call([](char *block) { (void)!orv_realloc(block, 9, nullptr, "rows"); }, "orv_realloc",
                 "(Currently allocating storage for rows)");
  expect_in_call([](char *block) { (void)!orv_realloc(block, 9, nullptr, nullptr); }, "orv_realloc",
                 "");
  expect_in_call([](char *block) { (void)!orv_realloc_if_room(block, 9); }, "orv_realloc_if_room",
                 "");
  expect_in_call([](char *block) { (void)!orv_realloc_at(block, 9, "GROW", 77, "src/rows.c"); },
                 "GROW", "(Currently inside of GROW at src/rows.c line 77)");
  expect_in_call([](char *block) { (void)!orv_realloc(block, 0, "grow", "rows"); }, "orv_free", "");
}

TEST_F(Misuse, a_refused_resize_makes_a_later_release_stale) {
  expect_on_release(
      [](char *block) {
        support::refuse("realloc", ENOMEM, 0, 1);
        if (orv_realloc_if_room(block, 100) != nullptr)
          exit(9);
      },
      std::string("was referenced after it was free'd.  Before being free'd, the ") +
          kAllocatedBy8);
}

TEST_F(Misuse, origins_are_told_as_far_as_they_are_known) {
  const auto stale_text = [](const char *function, const char *purpose) {
    return masked(run_in_debug_mode([=] {
                    void *block = hidden(orv_malloc(8, function, purpose));
                    release(block);
                    release(block);
                  }).err);
  };
  const std::string start =
      "Error: orv_free: The pointer 0xADDRESS was referenced after it was free'd.  Before being "
      "free'd, the pointer was allocated by orv_malloc with a length of 8.  ";
  EXPECT_EQ(stale_text("f", "p"),
            start + "The storage was allocated in the function f for p.   \n");
  EXPECT_EQ(stale_text("f", nullptr), start + "The storage was allocated in the function f.   \n");
  EXPECT_EQ(stale_text(nullptr, "p"), start + "The storage was allocated for p. \n");
  EXPECT_EQ(stale_text(nullptr, nullptr), start + " \n");
}

TEST_F(Misuse, a_live_located_block_is_told_by_its_place) {
  expect_fatal(run_in_debug_mode([] {
                 auto *block =
                     static_cast<char *>(hidden(orv_malloc_at(8, "GET", 42, "src/parse.c")));
                 overwrite(block, 8);
                 release(block);
               }),
               "orv_free: The pointer 0xADDRESS referenced data that was corrupted at the end.  "
               "The pointer was allocated by GET with a length of 8.  The storage was allocated in "
               "src/parse.c, line 42.   ");
}

TEST_F(Misuse, a_released_located_block_is_told_with_its_line_in_place_of_the_function) {
  expect_fatal(run_in_debug_mode([] {
                 void *block = hidden(orv_malloc_at(8, "GET", 42, "src/parse.c"));
                 release(block);
                 release(block);
               }),
               "orv_free: The pointer 0xADDRESS was referenced after it was free'd.  Before being "
               "free'd, the pointer was allocated by GET with a length of 8.  The storage was "
               "allocated in the function (line 42) for src/parse.c.   ");
}

TEST_F(Misuse, a_record_used_again_forgets_that_it_was_located) {
  expect_fatal(run_in_debug_mode([] {
                 release(orv_malloc_at(8, "GET", 42, "src/parse.c"));
                 void *block = hidden(orv_malloc(8, "f", "p"));
                 release(block);
                 release(block);
               }),
               std::string("orv_free: The pointer 0xADDRESS was referenced after it was free'd.  "
                           "Before being free'd, the ") +
                   kAllocatedBy8);
}

// A stream that damages a block while a warning about its release is written to it.
char *block_to_damage;
uint32_t index_to_write;

ssize_t damage_while_writing(void *, const char *, size_t size) {
  write_word(block_to_damage, -8, index_to_write);
  return static_cast<ssize_t>(size);
}

Outcome release_while_the_index_changes(uint32_t index) {
  return run_in_debug_mode([=] {
    FILE *stream = fopencookie(
        nullptr, "w",
        {.read = nullptr, .write = damage_while_writing, .seek = nullptr, .close = nullptr});
    setvbuf(stream, nullptr, _IONBF, 0);
    msg_clear_streams(MSG_WARN);
    msg_add_stream(MSG_WARN, stream);
    orv_set_malloc_free_report_threshold(0);
    block_to_damage = block_of(8);
    index_to_write = index;
    release(block_to_damage);
  });
}

TEST_F(Misuse, an_index_that_changes_during_the_release_is_an_internal_error) {
  expect_fatal(release_while_the_index_changes(1024),
               "Orv MALLOC library internal error: free_debug_info index out of range (index = "
               "1024, limit = 1024).");
  expect_fatal(release_while_the_index_changes(0xFFFFFFFE),
               "Orv MALLOC library internal error: free_debug_info index out of range (index = -2, "
               "limit = 1024).");
  expect_fatal(release_while_the_index_changes(5),
               "Orv MALLOC library internal error: free_debug_info index pointed to a free debug "
               "info structure (index = 5)");
}

} // namespace
