// The debug mode as a whole: switching it on, verifying the heap, announcing releases, and the
// calls that need it.
#include "alloc/alloc_test.h"
#include "alloc/optimised_caller.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace alloc_test;

namespace {

class Mode : public support::ResourceTest {};

char *block_of(size_t size) {
  return hidden(static_cast<char *>(orv_malloc(size, "f", "p")));
}

TEST_F(Mode, is_off_at_first_and_told_once_on) {
  EXPECT_EQ(orv_malloc_debug_mode(), 0);
  orv_enable_malloc_debug(0);
  EXPECT_EQ(orv_malloc_debug_mode(), 0);
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  EXPECT_EQ(orv_malloc_debug_mode(), 1);
  orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
  EXPECT_EQ(orv_malloc_debug_mode(), 2);
}

TEST_F(Mode, blocks_are_plain_while_it_is_off) {
  release(orv_malloc(5, "f", "p"));
  EXPECT_EQ(support::last_size("malloc"), 5U);
}

TEST_F(Mode, cannot_be_switched_on_after_an_allocation) {
  const std::string text = "orv_enable_malloc_debug cannot be called once one of the Orv MALLOC "
                           "library allocation functions have been called.";
  expect_fatal(run_unwrapped([] {
                 release(block_of(1));
                 orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
               }),
               text);
  expect_fatal(run_unwrapped([] {
                 release(block_of(1));
                 orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
               }),
               text);
}

TEST_F(Mode, switching_off_what_is_off_is_accepted_after_allocations_too) {
  expect_quiet_success(run_unwrapped([] {
    release(block_of(1));
    orv_enable_malloc_debug(0);
  }));
}

TEST_F(Mode, can_be_switched_on_after_an_allocation_of_nothing) {
  expect_quiet_success(run_unwrapped([] {
    (void)!orv_malloc(0, "f", "p");
    orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  }));
}

TEST_F(Mode, cannot_be_switched_off) {
  expect_fatal(run_in_debug_mode([] { orv_enable_malloc_debug(0); }),
               "orv_enable_malloc_debug: Once enabled, malloc debugging cannot be disabled.");
}

TEST_F(Mode, other_than_1_and_2_is_bad_whether_on_or_off) {
  const std::string text = "orv_enable_malloc_debug: Bad mode.  Should be either "
                           "ORV_MALLOC_CHECK_PTR or ORV_MALLOC_VERIFY_HEAP.";
  for (int mode : {3, -1, INT_MAX, INT_MIN}) {
    expect_fatal(run_unwrapped([=] { orv_enable_malloc_debug(mode); }), text);
    expect_fatal(run_in_debug_mode([=] { orv_enable_malloc_debug(mode); }), text);
  }
  expect_fatal(run_unwrapped([] {
                 release(block_of(1));
                 orv_enable_malloc_debug(3);
               }),
               text);
}

TEST_F(Mode, 1_and_2_may_be_exchanged_at_any_time) {
  expect_quiet_success(run_in_debug_mode([] {
    char *block = block_of(8);
    orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
    block = static_cast<char *>(hidden(orv_realloc(block, 80, "f", "p")));
    orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
    release(block);
  }));
}

// Two blocks out of three are damaged, and `call` is made.
Outcome call_in_damaged_heap(const std::function<void(char *)> &call,
                             int mode = ORV_MALLOC_VERIFY_HEAP) {
  return run_in_debug_mode(
      [&] {
        char *first = block_of(8);
        char *sound = block_of(16);
        auto *second = static_cast<char *>(hidden(orv_malloc_at(24, "GET", 42, "src/parse.c")));
        overwrite(first, -1);
        overwrite(second, 24);
        call(sound);
      },
      mode);
}

const char *const kDamage =
    "Warning: The pointer 0xADDRESS referenced data that was corrupted at the beginning.  The "
    "pointer was allocated by orv_malloc with a length of 8.  The storage was allocated in the "
    "function f for p.  \n"
    "Warning: The pointer 0xADDRESS referenced data that was corrupted at the end.  The pointer "
    "was allocated by GET with a length of 24.  The storage was allocated in src/parse.c, line 42. "
    " \n";

void expect_damage_told(const Outcome &outcome, const std::string &error) {
  EXPECT_EQ(masked(outcome.err), kDamage + ("Error: " + error + "\n"));
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Mode, 2_verifies_the_heap_before_each_allocation) {
  expect_damage_told(call_in_damaged_heap([](char *) { (void)!orv_malloc(1, "g", "q"); }),
                     "orv_malloc: The heap was corrupted. (Currently inside of g, allocating "
                     "storage for q)");
  expect_damage_told(call_in_damaged_heap([](char *) { (void)!orv_calloc(1, 1, "g", nullptr); }),
                     "orv_calloc: The heap was corrupted. (Currently inside of g)");
  expect_damage_told(
      call_in_damaged_heap([](char *) { (void)!orv_strdup_at("x", "DUP", 7, "y.c"); }),
      "DUP: The heap was corrupted. (Currently inside of DUP at y.c line 7)");
  expect_damage_told(call_in_damaged_heap([](char *) { (void)!orv_malloc_if_room(1); }),
                     "orv_malloc_if_room: The heap was corrupted. ");
  expect_damage_told(
      call_in_damaged_heap([](char *) { (void)!orv_realloc(nullptr, 1, nullptr, "q"); }),
      "orv_realloc: The heap was corrupted. (Currently allocating storage for q)");
}

// Told when the process ends: what the system had been asked for until then.
void tell_requests() {
  printf("%u bytes, %ld reallocs\n", orv_malloc_bytes_requested(), support::calls("realloc"));
}

TEST_F(Mode, 2_verifies_the_heap_before_the_system_is_asked) {
  for (const auto &call : std::initializer_list<std::function<void(char *)>>{
           [](char *) { (void)!orv_malloc(1000, "g", "q"); },
           [](char *) { (void)!orv_strdup2("one", "two", "g", "q"); },
           [](char *sound) { (void)!orv_realloc(sound, 1000, "g", "q"); }}) {
    const Outcome outcome = call_in_damaged_heap([&](char *sound) {
      atexit(tell_requests);
      call(sound);
    });
    EXPECT_EQ(outcome.out, "84 bytes, 0 reallocs\n");
    EXPECT_EQ(outcome.exit_status, 1);
  }
}

TEST_F(Mode, 2_verifies_the_heap_before_the_buffer_of_a_formatted_text) {
  expect_damage_told(call_in_damaged_heap([](char *) { (void)!orv_printf_strdup("text"); }),
                     "orv_malloc: The heap was corrupted. (Currently inside of orv_vprintf_strdup, "
                     "allocating storage for buffer allocation)");
}

TEST_F(Mode, 2_rejects_an_unaligned_pointer_before_it_verifies) {
  expect_fatal(call_in_damaged_heap([](char *sound) { release(sound + 4); }),
               "orv_free was passed an invalid pointer: 0xADDRESS");
  expect_fatal(
      call_in_damaged_heap([](char *sound) { (void)!orv_realloc(sound + 4, 1, "g", "q"); }),
      "orv_realloc was passed an invalid pointer: 0xADDRESS");
}

TEST_F(Mode, 2_neither_verifies_nor_warns_for_a_description_or_a_report) {
  const Outcome outcome = call_in_damaged_heap([](char *sound) {
    orv_malloc_describe_ptr(sound);
    orv_malloc_debug_report(0);
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(masked(outcome.out),
            "The pointer 0xADDRESS referenced valid data.  The pointer was allocated by orv_malloc "
            "with a length of 16.  The storage was allocated in the function f for p.  \n"
            "orv_malloc_debug_report: 48 bytes allocated, 3 pointers (2 invalid or corrupted!)\n");
}

TEST_F(Mode, 2_verifies_the_heap_before_each_release_and_resize) {
  expect_damage_told(call_in_damaged_heap([](char *sound) { release(sound); }),
                     "orv_free: The heap was corrupted. ");
  expect_damage_told(
      call_in_damaged_heap([](char *sound) { (void)!orv_realloc(sound, 1, "g", "q"); }),
      "orv_realloc: The heap was corrupted. (Currently inside of g, allocating storage for q)");
}

TEST_F(Mode, 2_tells_a_bad_block_itself_before_it_verifies_the_others) {
  expect_fatal(call_in_damaged_heap([](char *sound) {
                 orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
                 release(sound);
                 orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
                 release(sound);
               }),
               "orv_free: The pointer 0xADDRESS was referenced after it was free'd.  Before being "
               "free'd, the pointer was allocated by orv_malloc with a length of 16.  The storage "
               "was allocated in the function f for p.   ");
}

TEST_F(Mode, 2_passes_over_trivial_calls_and_null) {
  expect_quiet_success(call_in_damaged_heap([](char *) {
    (void)!orv_malloc(0, "g", "q");
    (void)!orv_calloc(0, 3, "g", "q");
    (void)!orv_calloc(3, 0, "g", "q");
    (void)!orv_strdup(nullptr, "g", "q");
    (void)!orv_realloc(nullptr, 0, "g", "q");
    release(nullptr);
  }));
}

TEST_F(Mode, 2_sees_what_an_optimised_caller_does_to_a_block) {
  const Outcome outcome = run_in_debug_mode([] { overrun_text(4); }, ORV_MALLOC_VERIFY_HEAP);
  EXPECT_EQ(masked(outcome.err),
            "Warning: The pointer 0xADDRESS referenced data that was corrupted at the end.  The "
            "pointer was allocated by orv_strdup with a length of 4.  The storage was allocated in "
            "the function f for p.  \n"
            "Error: orv_malloc: The heap was corrupted. (Currently inside of g, allocating storage "
            "for q)\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Mode, 1_does_not_look_at_other_blocks) {
  expect_quiet_success(call_in_damaged_heap(
      [](char *sound) {
        sound = static_cast<char *>(hidden(orv_realloc(sound, 100, "g", "q")));
        release(sound);
        release(orv_strdup("text", "g", "q"));
      },
      ORV_MALLOC_CHECK_PTR));
}

TEST_F(Mode, 2_is_content_with_a_sound_heap_of_any_size) {
  expect_quiet_success(run_in_debug_mode([] {
    static char *blocks[1500];
    for (char *&block : blocks)
      block = block_of(3);
    for (size_t i = 0; i < 1500; i += 2)
      release(blocks[i]);
    orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
    for (size_t i = 1; i < 1500; i += 2)
      blocks[i] = static_cast<char *>(hidden(orv_realloc(blocks[i], 9, "g", "q")));
    for (size_t i = 1; i < 1500; i += 2)
      release(blocks[i]);
  }));
}

// In a table of 20 times 1024 records, all of them live, damages the blocks with the given indices.
std::string warnings_in_large_heap(const std::initializer_list<int> &damaged) {
  const Outcome outcome = run_in_debug_mode([&] {
    static char *blocks[20480];
    for (char *&block : blocks)
      block = block_of(8);
    for (int index : damaged)
      overwrite(blocks[index], 8);
    orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
    (void)!block_of(1);
  });
  EXPECT_EQ(outcome.exit_status, 1);
  return masked(outcome.err);
}

TEST_F(Mode, 2_walks_a_large_table_to_its_last_record) {
  const std::string warning =
      "Warning: The pointer 0xADDRESS referenced data that was corrupted at the end.  The pointer "
      "was allocated by orv_malloc with a length of 8.  The storage was allocated in the function "
      "f for p.  \n";
  const std::string error = "Error: orv_malloc: The heap was corrupted. (Currently inside of f, "
                            "allocating storage for p)\n";
  EXPECT_EQ(warnings_in_large_heap({0}), warning + error);
  EXPECT_EQ(warnings_in_large_heap({20479}), warning + error);
  EXPECT_EQ(warnings_in_large_heap({1, 9999, 20470}), warning + warning + warning + error);
  EXPECT_EQ(warnings_in_large_heap({20478, 20479}), warning + warning + error);
}

// A live block whose own header names another record, or none, is described by the record that the
// walk came from.
TEST_F(Mode, 2_describes_a_block_by_the_record_that_was_verified) {
  const auto told_with_index = [](int32_t index) {
    return masked(run_in_debug_mode(
                      [=] {
                        char *first = block_of(8);
                        (void)!block_of(16);
                        memcpy(first - 8, &index, sizeof index);
                        (void)!block_of(1);
                      },
                      ORV_MALLOC_VERIFY_HEAP)
                      .err);
  };
  const std::string origin = "  The pointer was allocated by orv_malloc with a length of 8.  The "
                             "storage was allocated in the function f for p.  \n"
                             "Error: orv_malloc: The heap was corrupted. (Currently inside of f, "
                             "allocating storage for p)\n";
  const std::string start = "Warning: The pointer 0xADDRESS ";
  EXPECT_EQ(told_with_index(1),
            start + "had invalid debugging information (possible internal error)." + origin);
  EXPECT_EQ(told_with_index(1023),
            start + "had invalid debugging information (possible internal error)." + origin);
  EXPECT_EQ(told_with_index(1024),
            start + "referenced data that was corrupted at the beginning." + origin);
  EXPECT_EQ(told_with_index(-1),
            start + "referenced data that was corrupted at the beginning." + origin);
}

TEST_F(Mode, 2_tells_an_end_that_was_overwritten_rather_than_an_index) {
  for (int32_t index : {1, 1023, 1024, -1}) {
    const Outcome outcome = run_in_debug_mode(
        [=] {
          char *first = block_of(8);
          (void)!block_of(16);
          memcpy(first - 8, &index, sizeof index);
          overwrite(first, 8);
          (void)!block_of(1);
        },
        ORV_MALLOC_VERIFY_HEAP);
    EXPECT_EQ(masked(outcome.err),
              "Warning: The pointer 0xADDRESS referenced data that was corrupted at the end.  The "
              "pointer was allocated by orv_malloc with a length of 8.  The storage was allocated "
              "in the function f for p.  \n"
              "Error: orv_malloc: The heap was corrupted. (Currently inside of f, allocating "
              "storage for p)\n")
        << index;
  }
}

TEST_F(Mode, 2_tells_a_block_that_was_marked_as_released_behind_its_back) {
  const Outcome outcome = run_in_debug_mode(
      [] {
        const uint32_t freed = 0x7D2C5B7E;
        char *block = block_of(8);
        memcpy(block - 4, &freed, sizeof freed);
        (void)!block_of(1);
      },
      ORV_MALLOC_VERIFY_HEAP);
  EXPECT_EQ(masked(outcome.err),
            "Warning: The pointer 0xADDRESS referenced free'd data.  Before being free'd, the "
            "pointer was allocated by orv_malloc with a length of 8.  The storage was allocated in "
            "the function f for p.  \n"
            "Error: orv_malloc: The heap was corrupted. (Currently inside of f, allocating storage "
            "for p)\n");
}

// A header counts where it belongs, not where a block's bytes happen to look like one.
TEST_F(Mode, 2_is_not_misled_by_bytes_of_a_block_that_look_like_its_header) {
  const Outcome outcome = run_in_debug_mode(
      [] {
        char *block = block_of(16);
        memcpy(block + 8, block - 8, 8);
        overwrite(block, -1);
        (void)!block_of(1);
      },
      ORV_MALLOC_VERIFY_HEAP);
  EXPECT_EQ(masked(outcome.err),
            "Warning: The pointer 0xADDRESS referenced data that was corrupted at the beginning.  "
            "The pointer was allocated by orv_malloc with a length of 16.  The storage was "
            "allocated in the function f for p.  \n"
            "Error: orv_malloc: The heap was corrupted. (Currently inside of f, allocating storage "
            "for p)\n");
}

TEST_F(Mode, announces_releases_from_the_threshold_on) {
  const Outcome outcome = run_in_debug_mode([] {
    orv_set_malloc_free_report_threshold(100);
    release(block_of(99));
    release(block_of(100));
    release(block_of(101));
    void *block = orv_realloc(block_of(200), 50, "shrink", "rows");
    block = orv_realloc_at(block, 300, "GROW", 9, "x.c");
    block = orv_realloc_at(block, 1, "GROW", 9, "x.c");
    orv_set_malloc_free_report_threshold(-1);
    release(block);
    release(block_of(1000));
  });
  EXPECT_EQ(
      masked(outcome.err),
      "Warning: (orv_free): Freeing a pointer (0xADDRESS) which pointed to 100 bytes of data.  \n"
      "Warning: (orv_free): Freeing a pointer (0xADDRESS) which pointed to 101 bytes of data.  \n"
      "Warning: (orv_realloc): Freeing a pointer (0xADDRESS) which pointed to 200 bytes of data.  "
      "(Currently inside of shrink, allocating storage for rows)\n"
      "Warning: (GROW): Freeing a pointer (0xADDRESS) which pointed to 300 bytes of data.  "
      "(Currently inside of GROW at x.c line 9)\n");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(Mode, announces_every_release_with_a_threshold_of_0_and_none_at_first) {
  EXPECT_EQ(run_in_debug_mode([] { release(block_of(1)); }).err, "");
  EXPECT_NE(run_in_debug_mode([] {
              orv_set_malloc_free_report_threshold(0);
              release(block_of(1));
            }).err,
            "");
}

TEST_F(Mode, announces_a_release_without_what_an_earlier_call_told_of_itself) {
  const Outcome outcome = run_in_debug_mode([] {
    orv_set_malloc_free_report_threshold(1);
    release(orv_realloc(block_of(1), 2, "grow", "rows"));
  });
  EXPECT_EQ(
      masked(outcome.err),
      "Warning: (orv_realloc): Freeing a pointer (0xADDRESS) which pointed to 1 bytes of data.  "
      "(Currently inside of grow, allocating storage for rows)\n"
      "Warning: (orv_free): Freeing a pointer (0xADDRESS) which pointed to 2 bytes of data.  \n");
}

TEST_F(Mode, announces_by_a_threshold_that_was_set_before_it_was_switched_on) {
  const Outcome outcome = run_unwrapped([] {
    orv_set_malloc_free_report_threshold(2);
    orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
    release(block_of(1));
    release(block_of(2));
  });
  EXPECT_EQ(masked(outcome.err), "Warning: (orv_free): Freeing a pointer (0xADDRESS) which pointed "
                                 "to 2 bytes of data.  \n");
}

// What is announced has been subtracted already, but still carries its header: told by a stream
// that looks while the warning is written to it.
void *announced_block;

ssize_t look_while_writing(void *, const char *, size_t size) {
  uint32_t word;
  memcpy(&word, static_cast<char *>(announced_block) - 4, sizeof word);
  printf("%u %X\n", orv_malloc_mem_used(), word);
  return static_cast<ssize_t>(size);
}

TEST_F(Mode, announces_a_release_between_its_subtraction_and_its_mark) {
  const Outcome outcome = run_in_debug_mode([] {
    FILE *stream = fopencookie(
        nullptr, "w",
        {.read = nullptr, .write = look_while_writing, .seek = nullptr, .close = nullptr});
    setvbuf(stream, nullptr, _IONBF, 0);
    msg_clear_streams(MSG_WARN);
    msg_add_stream(MSG_WARN, stream);
    announced_block = block_of(100);
    orv_set_malloc_free_report_threshold(100);
    release(announced_block);
  });
  EXPECT_EQ(outcome.out.substr(0, outcome.out.find('\n') + 1), "0 5739E56A\n");
}

TEST_F(Mode, announces_nothing_while_it_is_off) {
  expect_quiet_success(run_unwrapped([] {
    orv_set_malloc_free_report_threshold(0);
    release(block_of(1));
  }));
}

TEST_F(Mode, is_missed_by_the_calls_that_need_it) {
  const Outcome outcome = run_unwrapped([] {
    orv_malloc_describe_ptr("text");
    orv_malloc_debug_report(1);
    release(block_of(1));
    if (orv_malloc_mem_used() != 0)
      exit(9);
  });
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "Warning: orv_malloc_describe_ptr should only be called when the malloc debug mode is "
            "enabled.\n"
            "Warning: orv_malloc_debug_report should only be called when the malloc debug mode is "
            "enabled.\n"
            "Warning: orv_malloc_mem_used should only be called when the malloc debug mode is "
            "enabled.\n");
  EXPECT_EQ(outcome.exit_status, 0);
}

} // namespace
