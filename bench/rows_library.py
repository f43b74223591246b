"""Rows 1 to 7: allocation, its debug mode, messages and trace."""
from table import Case, Contender, Row

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
))


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
    ), parameter=str(live), unit="pair")


DEBUG_PAIRS = Row(2, "the same in debug mode 1", "malloc, free", (
    debug_pairs("freed at once", 0, 2.15, None),
    debug_pairs("256 live", 256, 2.8, 170),
))

ROWS = (PAIRS, DEBUG_PAIRS)
