"""Rows 1 to 7, and how their costs grow: allocation, its debug mode, messages and trace."""
from table import KILOBYTE, MEGABYTE, Case, Contender, Curve, Row

SYSTEM_CHECKS = {"LD_PRELOAD": "libc_malloc_debug.so.0"}
DMALLOC = {"LD_PRELOAD": "libdmalloc.so.5", "DMALLOC_OPTIONS": "debug=0x4e48503,log=/dev/null"}
MEMCHECK = ("valgrind", "--quiet")

PAIRS = Row(1, "malloc and free of 16 to 512 bytes, debugging off", "malloc, free", (
    Case("", 2_000_000, (
        Contender("malloc, free", "pairs", "raw"),
        Contender("floor", "pairs", counted=True),
        Contender("floor, shared", "pairs_shared", "floor", counted=True),
        Contender("orv", "pairs", goal=1.13, instruction_goal=28),
        Contender("orv, shared", "pairs_shared", "orv", goal=1.20, instruction_goal=32),
        Contender("GLib", "pairs_glib", "glib"),
    ), unit="pair"),
), remark="The floor adds the size to a counter and tests for a refusal, and no more; where "
          "it is above the goal too, the run's own noise is larger than what is left to gain. "
          "The instructions tell the two apart better than the times.")


def debug_pairs(title, live, goal, instruction_goal):
    return Case(title, 500_000, (
        Contender("malloc, free", "pairs", "raw"),
        Contender("floor", "pairs", "floor-debug", counted=True),
        Contender("orv", "pairs", "orv-debug", goal=goal, instruction_goal=instruction_goal),
        Contender("mcheck", "pairs", environment=SYSTEM_CHECKS, counted=True),
        Contender("MALLOC_CHECK_", "pairs", "raw",
                  environment=SYSTEM_CHECKS | {"MALLOC_CHECK_": "3"}),
        Contender("dmalloc", "pairs", "raw", share=0.2, environment=DMALLOC),
        Contender("AddressSanitizer", "pairs_asan", "asan", share=0.2),
        Contender("memcheck", "pairs", "raw", share=0.1, most_rounds=3, wrapper=MEMCHECK),
    ), parameter=str(live), unit="pair", ahead=True)


DEBUG_PAIRS = Row(2, "the same in debug mode 1", "malloc, free", (
    debug_pairs("freed at once", 0, 2.15, None),
    debug_pairs("256 live", 256, 2.8, 170),
), remark="The floor only fills each block twice and keeps its header, its record and its "
   "trailer. Where it is above the goal, that work alone is more than the goal allows. Beyond it "
   "the library tests for the other debug mode, for sizes that wrap around and for the "
   "announcement of releases.")


def heap_check(blocks, age, goal):
    total = 10_000_000  # blocks checked in a run
    return Case(f"{blocks} blocks, {age}", total // blocks, (
        Contender("tight walk", "heap_check", "raw"),
        Contender("floor", "heap_check"),
        Contender("orv", "heap_check", goal=goal),
        Contender("mcheck", "heap_check", environment=SYSTEM_CHECKS),
        Contender("dmalloc", "heap_check", share=0.02, most_rounds=5, environment=DMALLOC),
    ), parameter=f"{blocks} {age}", unit="block", units=blocks)


HEAP_CHECK = Row(3, "the whole heap checked", "a tight walk", (
    heap_check(1_000, "fresh", 1.1),
    heap_check(10_000, "fresh", 1.0),
    heap_check(100_000, "fresh", 0.95),
    heap_check(1_000, "aged", 1.2),
    heap_check(10_000, "aged", 1.1),
    heap_check(100_000, "aged", 0.9),
))


def warning(title, target, goal, instruction_goal):
    return Case(title, 200_000, (
        Contender("fprintf, fflush", "warning", "raw"),
        Contender("floor", "warning", counted=True),
        Contender("orv", "warning", goal=goal, instruction_goal=instruction_goal),
        Contender("spdlog", "warning_spdlog"),
        Contender("GLib", "warning_glib", "glib", share=0.2),
        Contender("glog", "warning_glog", "glog", share=0.2),
    ), parameter=target, unit="line", ahead=True,
        alike=("fprintf, fflush", "floor", "orv", "spdlog"))


WARNING = Row(4, "one warning line, flushed", "fprintf, fflush", (
    warning("to a file in memory", "tmpfs", 1.10, 400),
    warning("to /dev/null", "/dev/null", 1.15, 400),
), remark="All that a line costs, but for the counted instructions, is the system's writing, "
          "which is the same for every contender but those that write more; which of two "
          "contenders so near is ahead changes from run to run.")

TRACE_NOWHERE = Row(5, "a trace call without a stream", "empty function", (
    Case("", 20_000_000, (
        Contender("empty function", "trace", "nothing"),
        Contender("empty loop", "trace", "loop"),
        Contender("floor", "trace", counted=True),
        Contender("orv", "trace", goal=1.30, instruction_goal=9),
        Contender("spdlog, level off", "trace_spdlog", "spdlog", share=0.5, counted=True),
        Contender("g_debug", "trace_glib", "glib", share=0.02),
    ), unit="call", instructions_beyond="empty loop"),
))

TRACE = Row(6, "a trace line to one stream, not synced", "fprintf", (
    Case("", 400_000, (
        Contender("fprintf", "trace", "raw"),
        Contender("orv", "trace", goal=1.1, counted=True),
        Contender("spdlog", "trace_spdlog"),
    ), parameter="tmpfs", unit="line", alike=("fprintf", "orv", "spdlog")),
))


def wrapping(title, size, goal, lines=False):
    contenders = (
        Contender("fold", "wrapping"),
        Contender("floor", "wrapping"),
        Contender("floor, text copied first", "wrapping", "floor-copied"),
        Contender("orv", "wrapping", goal=goal),
        Contender("fmt", "wrapping", share=0.2 if size < MEGABYTE else 1),
    )
    return Case(title, max(1, 20 * MEGABYTE // size), contenders,
                parameter=f"{size} lines" if lines else str(size), unit="KB",
                units=size / KILOBYTE, alike=("floor", "orv"))


WRAPPING = Row(7, "text wrapped at 78 columns", "fold -s", (
    wrapping("paragraphs of 2 KB", 2 * KILOBYTE, 0.18),
    wrapping("one message of 20 MB with line breaks", 20 * MEGABYTE, 0.25, lines=True),
    wrapping("64 KB without line breaks", 64 * KILOBYTE, 0.15),
    wrapping("1 MB without line breaks", MEGABYTE, 0.20),
    wrapping("20 MB without line breaks", 20 * MEGABYTE, 0.25),
))

ROWS = (PAIRS, DEBUG_PAIRS, HEAP_CHECK, WARNING, TRACE_NOWHERE, TRACE, WRAPPING)


def pairs_among(live):
    return Case("", 400_000, (
        Contender("malloc, free", "pairs", "raw"),
        Contender("orv", "pairs"),
        Contender("orv, debug mode 1", "pairs", "orv-debug"),
        Contender("mcheck", "pairs", environment=SYSTEM_CHECKS),
    ), parameter=str(live), unit="pair")


def check_of(blocks):
    total = max(2 * blocks, 2_000_000)
    return Case("", total // blocks, (
        Contender("tight walk", "heap_check", "raw"),
        Contender("orv, debug mode 2", "heap_check", "orv"),
        Contender("mcheck", "heap_check", environment=SYSTEM_CHECKS),
    ), parameter=f"{blocks} aged", unit="block", units=blocks)


def wrapping_of(kilobytes):
    return Case("", max(1, 10 * KILOBYTE // kilobytes), (
        Contender("fold", "wrapping"),
        Contender("orv", "wrapping"),
        Contender("floor", "wrapping"),
    ), parameter=str(kilobytes * KILOBYTE), unit="KB", units=kilobytes)


BLOCK_COUNTS = (100, 300, 1_000, 3_000, 10_000, 30_000, 100_000, 300_000, 1_000_000)

CURVES = (
    Curve("pairs", "A block of 16 to 512 bytes given back and obtained", "live blocks",
          BLOCK_COUNTS, pairs_among),
    Curve("heap-check", "The whole heap checked, aged", "live blocks", BLOCK_COUNTS, check_of,
          logarithmic_cost=True),
    Curve("wrapping", "A message without line breaks wrapped", "KB in the message",
          (1, 4, 16, 64, 256, 1024, 4096, 20480), wrapping_of, logarithmic_cost=True),
)
