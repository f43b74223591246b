/*
 * The program that the tests of the debugger helper look at: it brings its heap or its records into
 * a state, has the library tell that state on standard output, and dies.
 *
 * The addresses that it asked about go to standard error, one a line.
 */
#include <orv/alloc.h>
#include <orv/platform.h>
#include <stdlib.h>
#include <string.h>

/* What the debugger is asked to print. */
platform_pair_handle *intact, *failed, corrupt;
platform_msgbuf *buffer, broken;

static void describe(const void *pointer) {
  fprintf(stderr, "%p\n", pointer);
  orv_malloc_describe_ptr(pointer);
}

static void report(void) {
  orv_malloc_debug_report(1);
  orv_malloc_debug_report(0);
}

/* Gives back a block; its address stays of interest, which no compiler is to know. */
static const void *release(void *block) {
  const volatile uintptr_t address = (uintptr_t)block;
  orv_free(block);
  return (const void *)address;
}

/* Blocks of every kind of call site, live and released, and what is no block. */
static void make_sound(void) {
  static _Alignas(16) char foreign[64];
  char *named = orv_malloc(1, "make_sound", "one byte");
  char *function_only = orv_malloc(70000, "make_sound", NULL);
  char *purpose_only = orv_calloc(3, 5, NULL, "fifteen bytes");
  char *anonymous = orv_malloc_if_room(8);
  char *wordy =
      orv_strdup("text", "a_function_with_a_name_of_many_words_that_takes_some_columns",
                 "a purpose that is told in so many words that the line is wrapped twice, "
                 "w\xc3\xa4hrend Bytes gez\xc3\xa4hlt werden, \t and\ttabs");
  int *located = ORV_CALLOC_ARRAY(int, 12);
  char *given_back = orv_malloc(24, "make_sound", "what is released");
  int *located_given_back = ORV_MALLOC_STRUCT(int);
  const void *released = release(given_back);
  const void *released_located = release(located_given_back);
  report();
  describe(named);
  describe(function_only);
  describe(purpose_only);
  describe(anonymous);
  describe(wordy);
  describe(located);
  describe(released);
  describe(released_located);
  describe(named + 1);
  describe(foreign + 16);
  describe(NULL);
}

static void flip(char *block, volatile int offset) {
  block[offset] ^= 0x41;
}

/* One block damaged in front, one behind, one whose index leads elsewhere, and a sound one. */
static void make_damaged(void) {
  char *front = orv_malloc(10, "make_damaged", "damage in front");
  char *behind = orv_malloc(10, "make_damaged", "damage behind");
  char *astray = orv_malloc(10, "make_damaged", "an index astray");
  char *beyond = orv_malloc(10, "make_damaged", "an index beyond");
  char *sound = orv_malloc(10, "make_damaged", "nothing");
  flip(front, -1);
  for (int i = 10; i < 13; i++)
    flip(behind, i);
  flip(astray, -8);
  flip(beyond, -5);
  report();
  describe(front);
  describe(behind);
  describe(astray);
  describe(beyond);
  describe(sound);
}

/* More records than one piece of the table holds, every other released. */
static void make_many(void) {
  static void *blocks[3000];
  for (size_t i = 0; i < 3000; i++)
    blocks[i] = orv_malloc(i + 1, "make_many", "a block of many");
  for (size_t i = 0; i < 3000; i += 2)
    orv_free(blocks[i]);
  report();
  describe(blocks[2999]);
}

static void make_records(void) {
  intact = platform_pair_parent_open_lp("PROBE_LINK", 1, 1, "cat", NULL, "cat", NULL);
  failed = platform_pair_child_open("PROBE_NO_LINK", 0, 1);
  corrupt = *intact;
  puts(platform_pair_describe(intact, NULL));
  puts(platform_pair_describe(failed, NULL));
  puts(platform_pair_describe(&corrupt, NULL));
  buffer = platform_msgbuf_create(100);
  memcpy(buffer->pBuf, "A\r\n\r\n\"B\"\r\n", 10);
  buffer->p1 += 5;
  buffer->p2 += 10;
  broken = *buffer;
  broken.p1 = broken.p2 + 1;
}

static int is(const char *wanted, const char *scenario) {
  return strcmp(wanted, scenario) == 0;
}

int main(int argc, char **argv) {
  const char *scenario = argc > 1 ? argv[1] : "";
  if (!is("off", scenario))
    orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  if (is("sound", scenario))
    make_sound();
  else if (is("damaged", scenario))
    make_damaged();
  else if (is("many", scenario))
    make_many();
  else if (is("none", scenario))
    report();
  else if (is("records", scenario))
    make_records();
  else
    orv_free(orv_strdup("text", "main", "a block of no interest"));
  fflush(stdout);
  abort();
}
