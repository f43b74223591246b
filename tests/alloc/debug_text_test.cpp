// What debug mode says on request: descriptions of pointers and the report, and how much of a long
// text finds room.
#include "alloc/alloc_test.h"

#include "alloc/debug_text.h"

#include <cstdint>
#include <cstring>
#include <malloc.h>
#include <sys/mman.h>

using namespace alloc_test;
using orv::alloc::describe_ptr;
using orv::alloc::kTextAreaSize;
using orv::alloc::Wording;

namespace {

class Texts : public support::ResourceTest {};

char *block_of(size_t size) {
  return hidden(static_cast<char *>(orv_malloc(size, "f", "p")));
}

// What orv_malloc_describe_ptr prints of a block of 8 bytes, after something was done with it.
std::string description_of(const std::function<void *(char *)> &action) {
  const Outcome outcome = run_in_debug_mode([&] { orv_malloc_describe_ptr(action(block_of(8))); });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
  return masked(outcome.out);
}

const char *const kOrigin = "pointer was allocated by orv_malloc with a length of 8.  The storage "
                            "was allocated in the function f for p.  \n";

TEST_F(Texts, a_valid_block_is_described) {
  EXPECT_EQ(description_of([](char *block) { return block; }),
            std::string("The pointer 0xADDRESS referenced valid data.  The ") + kOrigin);
}

TEST_F(Texts, a_released_block_is_described_in_the_ordinary_wording) {
  EXPECT_EQ(
      description_of([](char *block) {
        release(block);
        return block;
      }),
      std::string("The pointer 0xADDRESS referenced free'd data.  Before being free'd, the ") +
          kOrigin);
}

TEST_F(Texts, damaged_blocks_are_described) {
  EXPECT_EQ(description_of([](char *block) {
              overwrite(block, 8);
              return block;
            }),
            std::string("The pointer 0xADDRESS referenced data that was corrupted at the end.  "
                        "The ") +
                kOrigin);
  EXPECT_EQ(description_of([](char *block) {
              overwrite(block, -4);
              return block;
            }),
            std::string("The pointer 0xADDRESS referenced data that was corrupted at the "
                        "beginning.  The ") +
                kOrigin);
  EXPECT_EQ(description_of([](char *block) {
              memset(block - 8, 0x7F, 4);
              return block;
            }),
            "The pointer 0xADDRESS referenced data that was corrupted at the beginning.\n");
}

TEST_F(Texts, an_unaligned_pointer_is_described_without_looking_at_memory) {
  EXPECT_EQ(description_of([](char *) { return reinterpret_cast<void *>(uintptr_t{1}); }),
            "The pointer 0xADDRESS was not valid on this platform (should be a multiple of 8).  "
            "\n");
}

TEST_F(Texts, a_null_pointer_has_no_header_to_look_at) {
  EXPECT_EQ(run_in_debug_mode([] { orv_malloc_describe_ptr(nullptr); }).out,
            "The pointer 0x0000000000000000 referenced data that was corrupted at the "
            "beginning.\n");
}

TEST_F(Texts, a_block_released_before_its_record_was_used_again_is_described_without_it) {
  EXPECT_EQ(description_of([](char *block) {
              release(block);
              (void)!block_of(24);
              return block;
            }),
            "The pointer 0xADDRESS referenced free'd data.\n");
}

// Where the table moves to, the system's storage is not zero.
TEST_F(Texts, records_that_were_never_used_are_zero_and_chained_in_ascending_order) {
  const Outcome outcome = run_in_debug_mode([] {
    for (int i = 0; i < 1025; i++)
      (void)!block_of(1);
    for (int32_t i = 1025; i < 2048; i++) {
      const auto &record = orv::alloc::state.records[i];
      if (record.ptr != nullptr || record.length != 0 || record.method != nullptr ||
          record.third.function != nullptr || record.fourth.purpose != nullptr ||
          record.status != (i < 2047 ? i + 1 : -3))
        msg_print("%d", i);
    }
  });
  expect_quiet_success(outcome);
}

// What the system's own notes may look like.
void overwrite_header(char *block) {
  memset(block - 8, 0x5B, 8);
}

TEST_F(Texts, a_released_block_is_known_by_its_record_once_the_system_wrote_over_its_header) {
  EXPECT_EQ(
      description_of([](char *block) {
        release(block);
        overwrite_header(block);
        return block;
      }),
      std::string("The pointer 0xADDRESS referenced free'd data.  Before being free'd, the ") +
          kOrigin);
}

TEST_F(Texts, the_latest_release_at_an_address_is_described) {
  EXPECT_EQ(description_of([](char *block) {
              void *later = hidden(orv_malloc(24, "g", "q"));
              release(block);
              release(later);
              orv::alloc::state.records[1].ptr = block;
              overwrite_header(block);
              return block;
            }),
            "The pointer 0xADDRESS referenced free'd data.  Before being free'd, the pointer was "
            "allocated by orv_malloc with a length of 24.  The storage was allocated in the "
            "function g for q.  \n");
}

TEST_F(Texts, an_overwritten_header_hides_a_live_block_whatever_stood_there_before) {
  EXPECT_EQ(description_of([](char *block) {
              (void)!hidden(orv_malloc(24, "g", "q"));
              release(block);
              orv::alloc::state.records[1].ptr = block;
              overwrite_header(block);
              return block;
            }),
            "The pointer 0xADDRESS referenced data that was corrupted at the beginning.\n");
}

TEST_F(Texts, an_overwritten_header_hides_a_live_block_of_the_first_record_too) {
  EXPECT_EQ(description_of([](char *block) {
              release(hidden(orv_malloc(24, "g", "q")));
              orv::alloc::state.records[1].ptr = block;
              overwrite_header(block);
              return block;
            }),
            "The pointer 0xADDRESS referenced data that was corrupted at the beginning.\n");
}

TEST_F(Texts, an_unaligned_record_is_still_described_by_its_origin) {
  const Outcome outcome = run_in_debug_mode([] {
    (void)!block_of(8);
    auto &record = orv::alloc::state.records[0];
    record.ptr = static_cast<char *>(record.ptr) + 4;
    orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
    (void)!block_of(1);
  });
  EXPECT_EQ(masked(outcome.err),
            "Warning: The pointer 0xADDRESS was not valid on this platform (should be a multiple "
            "of 8).    The pointer was allocated by orv_malloc with a length of 8.  The storage "
            "was allocated in the function f for p.  \n"
            "Error: orv_malloc: The heap was corrupted. (Currently inside of f, allocating storage "
            "for p)\n");
}

// The table's 4096 records, 48 pages, are moved between two pages that nobody may touch. The walk
// fetches the blocks of a table this large ahead.
TEST_F(Texts, verifying_the_heap_reads_nothing_before_or_behind_the_table) {
  expect_quiet_success(run_in_debug_mode([] {
    constexpr size_t page = 4096;
    char *last = nullptr;
    for (int i = 0; i < 4096; i++)
      last = block_of(1);
    auto *const table = orv::alloc::state.records;
    const size_t size = orv::alloc::state.capacity * sizeof *table;
    auto *fenced = static_cast<char *>(
        mmap(nullptr, page + size + page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(fenced + page, size, PROT_READ | PROT_WRITE);
    memcpy(fenced + page, table, size);
    orv::alloc::state.records = reinterpret_cast<orv::alloc::debug_info *>(fenced + page);
    orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
    release(last);
    orv::alloc::state.records = table;
  }));
}

TEST_F(Texts, descriptions_are_given_for_the_record_that_is_asked_about) {
  const Outcome outcome = run_in_debug_mode([] {
    const char *block = block_of(8);
    (void)!block_of(24);
    alignas(8) static char elsewhere[8];
    const auto *other = &orv::alloc::state.records[1];
    msg_print("%s", describe_ptr(block, other - 1, Wording::ordinary));
    msg_print("%s", describe_ptr(elsewhere + 8, other, Wording::after_release));
  });
  EXPECT_EQ(masked(outcome.out),
            std::string("The pointer 0xADDRESS referenced valid data.  The ") + kOrigin +
                "The pointer 0xADDRESS referenced data that was corrupted at the beginning.  The "
                "pointer was allocated by orv_malloc with a length of 24.  The storage was "
                "allocated in the function f for p.  \n");
}

// Two live records may hold one address when the system handed it out twice (a block was given back
// behind the library's back): the full check of either finds the one that the header names.
TEST_F(Texts, a_record_whose_address_was_handed_out_again_passes_the_full_check) {
  const Outcome outcome = run_in_debug_mode([] {
    const char *block = block_of(8);
    (void)!block_of(8);
    auto *records = orv::alloc::state.records;
    records[1].ptr = records[0].ptr;
    orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
    (void)!block_of(1);
    msg_print("%s", describe_ptr(block, &records[1], Wording::ordinary));
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(masked(outcome.out),
            std::string("The pointer 0xADDRESS had invalid debugging information (possible "
                        "internal error).  The ") +
                kOrigin);
}

TEST_F(Texts, a_description_that_finds_no_room_is_cut_inside_its_area) {
  const Outcome outcome = run_in_debug_mode([] {
    static char name[2 * kTextAreaSize];
    const size_t fixed = strlen("The pointer 0x0123456789ABCDEF referenced valid data.  The "
                                "pointer was allocated by orv_malloc with a length of 8.  The "
                                "storage was allocated in the function .  ");
    for (size_t spare : {size_t{1}, size_t{0}}) {
      memset(name, 0, sizeof name);
      memset(name, 'n', kTextAreaSize - 1 - fixed - spare);
      const char *text = describe_ptr(orv_malloc(8, name, nullptr), nullptr, Wording::ordinary);
      msg_print("%zu %s", strlen(text), text + kTextAreaSize - 6);
    }
    for (size_t excess : {size_t{1}, kTextAreaSize / 2}) {
      memset(name, 'n', kTextAreaSize - 1 - fixed + excess);
      const char *text = describe_ptr(orv_malloc(8, name, "purpose"), nullptr, Wording::ordinary);
      msg_print("%zu %s", strlen(text), text + kTextAreaSize - 6);
    }
  });
  EXPECT_EQ(outcome.out, "4094 n.  \n"
                         "4095 nn.  \n"
                         "4095 nnn f\n"
                         "4095 nnnnn\n");
}

// What comes after the place where a description is cut is lost, and nothing else is touched.
TEST_F(Texts, a_description_that_is_cut_early_stays_as_it_was_cut) {
  const Outcome outcome = run_in_debug_mode([] {
    static char method[2 * kTextAreaSize];
    memset(method, 'm', sizeof method - 1);
    const char *sentence =
        orv::alloc::compose_site_sentence(orv::alloc::site_of("orv_realloc", "f", "p"));
    void *block = orv_malloc_at(8, method, 1, "x.c");
    const char *text = describe_ptr(block, nullptr, Wording::ordinary);
    msg_print("%zu %s", strlen(text), text + kTextAreaSize - 6);
    msg_print("%s", sentence);
  });
  EXPECT_EQ(outcome.out, "4095 mmmmm\n"
                         "(Currently inside of f, allocating storage for p)\n");
}

TEST_F(Texts, a_site_sentence_that_finds_no_room_is_cut_inside_its_area) {
  const Outcome outcome = run_in_debug_mode([] {
    static char name[2 * kTextAreaSize];
    memset(name, 'n', sizeof name - 1);
    const auto site = orv::alloc::site_of("orv_realloc", name, name);
    msg_print("%zu", strlen(orv::alloc::compose_site_sentence(site)));
  });
  EXPECT_EQ(outcome.out, "4095\n");
}

TEST_F(Texts, a_text_that_cannot_be_formatted_leaves_the_rest_of_the_description) {
  const Outcome outcome = run_in_debug_mode([] {
    const char *block = block_of(8);
    support::refuse("vsnprintf", EILSEQ, 0, 1);
    const std::string text = describe_ptr(block, nullptr, Wording::ordinary);
    msg_print("%s", text.c_str());
  });
  EXPECT_EQ(outcome.out, std::string("referenced valid data.  The ") + kOrigin);
}

const char *const kHeading =
    "Note: a `*' in the first column indicates an invalid or corrupted pointer.\n"
    "X  ID    Pointer           Length Method               Function/Line        Purpose/File\n";

std::string report(const std::function<void()> &body, int verbose = 1) {
  const Outcome outcome = run_in_debug_mode([&] {
    body();
    orv_malloc_debug_report(verbose);
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exit_status, 0);
  return masked(outcome.out);
}

TEST_F(Texts, the_report_lists_live_blocks_by_their_record) {
  EXPECT_EQ(report([] {
              (void)!orv_malloc(8, "function", "purpose");
              void *released = orv_malloc(9, "gone", "gone");
              (void)!orv_calloc(100, 1000, "f", nullptr);
              (void)!orv_strdup("text", nullptr, "p");
              (void)!orv_malloc_if_room(7);
              (void)!orv_malloc_at(6, "GET", -42, "src/parse.c");
              release(released);
            }),
            std::string(kHeading) +
                "     0 0xADDRESS       8 orv_malloc           function             purpose\n"
                "     2 0xADDRESS  100000 orv_calloc           f                    ???\n"
                "     3 0xADDRESS       5 orv_strdup           ???                  p\n"
                "     4 0xADDRESS       7 orv_malloc_if_room   ???                  ???\n"
                "     5 0xADDRESS       6 GET                  -42                  src/parse.c\n"
                "orv_malloc_debug_report: 100026 bytes allocated, 5 pointers\n");
}

TEST_F(Texts, the_report_has_its_heading_though_the_first_records_are_free) {
  EXPECT_EQ(report([] {
              void *first = orv_malloc(8, "f", "p");
              void *second = orv_malloc(8, "f", "p");
              (void)!orv_malloc(9, "f", "p");
              release(second);
              release(first);
            }),
            std::string(kHeading) +
                "     2 0xADDRESS       9 orv_malloc           f                    p\n"
                "orv_malloc_debug_report: 9 bytes allocated, 1 pointers\n");
}

TEST_F(Texts, the_report_shows_addresses_as_they_are) {
  const Outcome outcome = run_in_debug_mode([] {
    msg_print_raw("     0 0x%016lX       8\n", reinterpret_cast<unsigned long>(block_of(8)));
    orv_malloc_debug_report(1);
  });
  const std::string line = outcome.out.substr(0, outcome.out.find('\n'));
  EXPECT_NE(outcome.out.find(line, line.size()), std::string::npos) << outcome.out;
}

TEST_F(Texts, the_report_marks_damaged_blocks) {
  const auto damage_two = [] {
    overwrite(block_of(8), -1);
    (void)!block_of(16);
    overwrite(block_of(24), 24);
  };
  EXPECT_EQ(report(damage_two),
            std::string(kHeading) +
                "*    0 0xADDRESS       8 orv_malloc           f                    p\n"
                "     1 0xADDRESS      16 orv_malloc           f                    p\n"
                "*    2 0xADDRESS      24 orv_malloc           f                    p\n"
                "orv_malloc_debug_report: 48 bytes allocated, 3 pointers (2 invalid or "
                "corrupted!)\n");
  EXPECT_EQ(report(damage_two, 0), "orv_malloc_debug_report: 48 bytes allocated, 3 pointers (2 "
                                   "invalid or corrupted!)\n");
}

TEST_F(Texts, a_short_report_is_its_closing_line) {
  EXPECT_EQ(report([] { (void)!block_of(8); }, 0),
            "orv_malloc_debug_report: 8 bytes allocated, 1 pointers\n");
}

TEST_F(Texts, any_verbosity_but_0_lists_the_blocks) {
  EXPECT_EQ(report([] { (void)!block_of(8); }, -1),
            std::string(kHeading) +
                "     0 0xADDRESS       8 orv_malloc           f                    p\n"
                "orv_malloc_debug_report: 8 bytes allocated, 1 pointers\n");
}

TEST_F(Texts, a_report_without_live_blocks_says_so) {
  const std::string nothing = "orv_malloc_debug_report: No storage was allocated\n";
  EXPECT_EQ(report([] {}), nothing);
  EXPECT_EQ(report([] {}, 0), nothing);
  EXPECT_EQ(report([] { release(block_of(8)); }), nothing);
  EXPECT_EQ(report([] { release(block_of(8)); }, 0), nothing);
}

TEST_F(Texts, the_reports_total_is_a_signed_sum_of_32_bits) {
  EXPECT_EQ(report(
                [] {
                  overwrite(block_of(8), -1);
                  orv::alloc::state.records[0].length = 0x80000000;
                },
                0),
            "orv_malloc_debug_report: 18446744071562067968 bytes allocated, 1 pointers (1 invalid "
            "or corrupted!)\n");
  EXPECT_EQ(report(
                [] {
                  overwrite(block_of(8), -1);
                  orv::alloc::state.records[0].length = 0x300000005;
                },
                0),
            "orv_malloc_debug_report: 5 bytes allocated, 1 pointers (1 invalid or corrupted!)\n");
}

// A stream that allocates, the first time something is written to it, until the table has moved.
bool has_allocated;

ssize_t allocate_while_writing(void *, const char *, size_t size) {
  for (int i = 0; i < 1024 && !has_allocated; i++)
    (void)!block_of(1);
  has_allocated = true;
  return static_cast<ssize_t>(size);
}

TEST_F(Texts, the_report_goes_on_in_a_table_that_grows_while_it_is_written) {
  const Outcome outcome = alloc_test::run_unwrapped([] {
    mallopt(M_PERTURB, 0x5A);
    orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
    FILE *stream = fopencookie(
        nullptr, "w",
        {.read = nullptr, .write = allocate_while_writing, .seek = nullptr, .close = nullptr});
    setvbuf(stream, nullptr, _IONBF, 0);
    (void)!block_of(8);
    msg_add_stream(MSG_INFO, stream);
    orv_malloc_debug_report(1);
  });
  EXPECT_NE(masked(outcome.out)
                .find("     0 0xADDRESS       8 orv_malloc           f                    p\n"
                      "     1 0xADDRESS       1 orv_malloc           f                    p\n"),
            std::string::npos)
      << outcome.out;
  EXPECT_NE(outcome.out.find("\norv_malloc_debug_report: 1032 bytes allocated, 1025 pointers\n"),
            std::string::npos)
      << outcome.out;
}

TEST_F(Texts, descriptions_and_reports_are_messages_and_wrapped_like_any) {
  const Outcome outcome = support::run_in_child([] {
    orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
    orv_malloc_describe_ptr(block_of(8));
  });
  EXPECT_EQ(masked(outcome.out), "The pointer 0xADDRESS referenced valid data.  The pointer was\n"
                                 "allocated by orv_malloc with a length of 8.  The storage was "
                                 "allocated in the\n"
                                 "function f for p.  \n");
}

} // namespace
