"""Rows 8 to 15: messages over sockets, companions, files and trees."""
from table import KILOBYTE, MEGABYTE, Case, Contender, Curve, Row

CONNECTIONS = (("socket pair", "pair"), ("TCP", "tcp"))


def framing(title, count, parameter, base, goal, instruction_goal=None, more=(), **how):
    return Case(title, count, (
        Contender(base, "framing", "raw"),
        Contender("floor", "framing", counted=instruction_goal is not None),
        *more,
        Contender("orv", "framing", goal=goal, instruction_goal=instruction_goal),
        Contender("libevent", "framing_libevent"),
        Contender("GLib", "framing_glib", "glib"),
    ), parameter=parameter, unit=how.pop("unit", "message"), **how)


# The least work without the step that most of the time goes into, to show what that step costs.
UNCOMPACTED = (Contender("floor, nothing moved", "framing", "floor-uncompacted"),)
MOVED = ("After every message the rest of the bytes moves to the front of the buffer, where "
         "handlers and programs find them. Of a receive of 8192 bytes that is 4 KB a message "
         "on average, which takes longer than all of the base does. The floor does the same, "
         "and is above the goal; the floor that moves nothing shows what the step costs.")

RECEIVING = Row(8, "three-line messages received, 64 KB of them waiting", "recv, memchr", tuple(
    framing(title, 66_400, f"receive {connection}", "recv, memchr", goal, 60, UNCOMPACTED,
            counted_operations=664)
    for (title, connection), goal in zip(CONNECTIONS, (1.8, 1.65))),
    remark=MOVED)

WHOLE_PATH = Row(9, "the whole path: messages of three lines sent, 16 at a time, and received",
                 "send, recv, memchr", tuple(
    framing(title, 12_800, f"path {connection}", "send, recv, memchr", goal)
    for (title, connection), goal in zip(CONNECTIONS, (1.15, 1.02))),
    remark="The floor pays for the same promises: a select before each receive, receives of 8192 "
    "bytes, and the rest of the bytes moved after each message.")

ROUND_TRIP = Row(10, "a message of three lines to another process and one back, by the wall clock",
                 "send, recv, memchr", (
    framing("TCP", 4_000, "trip tcp", "send, recv, memchr", 1.3, unit="round trip", clock="wall"),
))


def long_message(size, goal=None, more=()):
    return framing(f"{size // KILOBYTE} KB" if size < MEGABYTE else f"{size // MEGABYTE} MB",
                   max(2, 64 * MEGABYTE // size), f"long pair {size}", "recv, memchr", goal,
                   more=more, unit="KB", units=size / KILOBYTE)


LONG_MESSAGE = Row(11, "one long message received", "recv, memchr", (
    long_message(KILOBYTE, 2.3, UNCOMPACTED),
    long_message(64 * KILOBYTE, 2.9),
    long_message(MEGABYTE, 3.4),
    long_message(16 * MEGABYTE, 5.2),
), remark="At 1 KB: The base receives 64 KB at a time, the library 8192 bytes with a look "
          "before each receive, and moves the rest of the bytes to the front of the buffer "
          "after every message. The floor does the same, and is above the goal, even where it "
          "moves nothing.")

COMPANION = Row(12, "a companion started, 64 bytes there and back, its end",
                "socketpair, fork, execl", (
    Case("", 150, (
        Contender("socketpair, fork, execl", "companion", "raw"),
        Contender("floor", "companion"),
        Contender("orv", "companion", goal=1.10),
        Contender("libuv", "companion_libuv"),
        Contender("GLib", "companion_glib", "glib"),
    ), unit="companion"),
))

PAIR = Row(13, "64 bytes sent, or received, through a pair", "send, recv", (
    Case("", 200_000, (
        Contender("send, recv", "companion", "raw-open"),
        Contender("orv", "companion", "orv-open", goal=1.01, instruction_goal=18),
        Contender("GLib", "companion_glib", "glib-open"),
    ), unit="call"),
))

FILES = 10_000
AS_MUCH = 1.04  # 1.0 to one digit, for works that are the same

COPYING = Row(14, "files copied", "read and write, 8 KiB; cp -a", (
    Case("one of 64 MB", 1, (
        Contender("read, write", "copying", "raw-large"),
        Contender("orv", "copying", "orv-large", goal=AS_MUCH),
        Contender("APR", "copying_apr", "apr-large"),
    ), unit="MB", units=64),
    Case(f"{FILES} of 1 KB", FILES, (
        Contender("read, write", "copying", "raw-small"),
        Contender("orv", "copying", "orv-small", goal=AS_MUCH),
        Contender("APR", "copying_apr", "apr-small"),
    ), unit="file"),
    Case(f"a tree of {FILES}", FILES, (
        Contender("cp -a", "copying", "raw-tree"),
        Contender("orv, platform_cp_a", "copying", "orv-tree", goal=1.02),
    ), unit="file"),
))


def removing(files):
    return Case("without tools", files, (
        Contender("readdir, unlinkat", "trees", "raw"),
        Contender("floor", "trees"),
        Contender("orv", "trees", goal=1.4),
        Contender("std::filesystem", "trees", "std"),
    ), unit="file")


REMOVING = Row(15, f"a tree of {FILES} files removed", "readdir, unlinkat; rm", (
    removing(FILES),
    Case("with the tool", FILES, (
        Contender("rm -rf", "trees", "rm"),
        Contender("orv, platform_rm_rf", "trees", "orv-tool", goal=1.03),
    ), unit="file"),
))


def listing(files):
    return Case("", files, (
        Contender("readdir, sort", "trees", "raw-list"),
        Contender("orv", "trees", "orv-list"),
    ), unit="file")


ROWS = (RECEIVING, WHOLE_PATH, ROUND_TRIP, LONG_MESSAGE, COMPANION, PAIR, COPYING, REMOVING)

FILE_COUNTS = (100, 1_000, 10_000, 100_000)

CURVES = (
    Curve("framing", "One message received over a socket pair", "bytes of the message",
          tuple(KILOBYTE << shift for shift in range(0, 15, 2)), long_message,
          logarithmic_cost=True),
    Curve("listing", "A folder listed", "files", FILE_COUNTS, listing),
    Curve("removing", "A tree removed without tools", "files", FILE_COUNTS, removing),
)
