"""Commands and printers for programs that use the orv library.

    orv report [-v]       what orv_malloc_debug_report() would print
    orv describe ADDRESS  what orv_malloc_describe_ptr() would print
    orv block ADDRESS     the block that an address lies in, with its words and bytes

They work on a live process and on a core file alike: they read memory, and call nothing in the
program. They need no symbols, because the library keeps a record for debuggers in a section of its
own. What they say is laid out as the library lays it out without settings of the program's, in 78
columns and without prefixes. Pair handles and message buffers are printed in one line; print/r
shows their fields.

gdb loads this file by itself with the installed shared library, and from anywhere by "source".
"""

import re
import struct

import gdb
import gdb.printing

# The library's own numbers, from components/alloc: a change of layout there has another number.
LAYOUT = 1
SECTION = ".orv.debugger"
VIEW = struct.Struct("<QQQQQ")
RECORD = struct.Struct("<QQQQQii")
HEADER = struct.Struct("<iI")
ALLOCATED, FREED, TRAILER = 0x5739E56A, 0x7D2C5B7E, 0x35A7B641
LIVE_NAMED, LIVE_LOCATED, END_OF_FREE_LIST = -1, -2, -3
LOCATED_KIND = 1
RECORDS_PER_GROWTH = 1024
ALIGNMENT = 8
LONGEST_TEXT = 4095
WIDTH = 78
SHOWN_BYTES = 64


# Memory. Texts are kept with a character a byte, as the library counts them.


def read(address, size):
    """The bytes there, or None where they cannot be read."""
    try:
        return bytes(gdb.selected_inferior().read_memory(address, size))
    except (gdb.MemoryError, OverflowError):
        return None


def read_struct(layout, address):
    data = read(address, layout.size)
    if data is None:
        raise gdb.GdbError(f"orv: the library's records at {address:#x} cannot be read.")
    return layout.unpack(data)


def read_word(address):
    data = read(address, 4)
    return None if data is None else struct.unpack("<I", data)[0]


def is_debugging(stage):
    """Whether the library of that stage is in one of the debug modes, which are above zero."""
    (number,) = read_struct(struct.Struct("<i"), stage)
    return number > 0


def read_text(address):
    """The C string there; null for a null pointer."""
    if address == 0:
        return None
    text = b""
    while len(text) < LONGEST_TEXT:
        chunk = read(address + len(text), 64 - (address + len(text)) % 64)
        if chunk is None:
            return f"<no text can be read at {address:#x}>"
        text += chunk
        if b"\0" in chunk:
            break
    return text.split(b"\0")[0].decode("latin-1")


def signed(value, bits):
    value &= (1 << bits) - 1
    return value - (1 << bits) if value >> (bits - 1) else value


# The layout of messages.


def next_break(line, start):
    """Where a line that begins at start ends, so that it fits the width if it can."""
    if len(line) - start <= WIDTH:
        return len(line)
    word = start + len(line[start:]) - len(line[start:].lstrip(" \t"))
    if word - start <= WIDTH:
        for at in range(start + WIDTH, word, -1):
            if line[at] in " \t":
                return at
    if word > start:
        return start
    return re.compile(r"[^ \t]*").match(line, start).end()


def wrapped(text):
    lines = []
    for line in text.split("\n"):
        start = 0
        while True:
            end = next_break(line, start)
            rest = end + len(line[end:]) - len(line[end:].lstrip(" \t"))
            if end > start or rest == len(line):
                lines.append(line[start:end])
            if rest == len(line):
                break
            start = rest
    return "\n".join(lines)


def say(text):
    gdb.write(text.encode("latin-1").decode("utf-8", "replace") + "\n")


# The records of the allocation debug mode.


class Record:
    """What the table remembers of a block, live or released."""

    def __init__(self, index, fields):
        self.index = index
        self.pointer, self.length, self.method, self.third, self.fourth = fields[:5]
        self.status, self.kind = fields[5:]

    @property
    def is_live(self):
        return self.status in (LIVE_NAMED, LIVE_LOCATED)

    @property
    def line(self):
        return signed(self.third, 32)

    @property
    def trailer(self):
        return self.pointer + (self.length + 3) // 4 * 4

    def has_trailer(self):
        return read_word(self.trailer) == TRAILER

    def covers(self, address):
        return self.pointer != 0 and self.pointer - HEADER.size <= address < self.trailer + 4

    def origin(self, opening):
        text = f"{opening}pointer was allocated by {read_text(self.method)} with a length of "
        text += f"{signed(self.length, 64)}.  "
        if self.status == LIVE_LOCATED:
            return f"{text}The storage was allocated in {read_text(self.fourth)}, line {self.line}.  "
        if self.kind == LOCATED_KIND:
            return text + caller(f"(line {self.line})", read_text(self.fourth))
        return text + caller(read_text(self.third), read_text(self.fourth))

    def row(self, mark):
        third, fourth = self.third, self.fourth
        function = self.line if self.status == LIVE_LOCATED else read_text(third) or "???"
        purpose = read_text(fourth) or "???"
        return (f"{mark}{self.index:5d} 0x{self.pointer:016X}{signed(self.length, 64):8d} "
                f"{read_text(self.method):<20} {function!s:<20} {purpose}")


def caller(function, purpose):
    if function is not None and purpose is not None:
        return f"The storage was allocated in the function {function} for {purpose}.  "
    if function is not None:
        return f"The storage was allocated in the function {function}.  "
    return "" if purpose is None else f"The storage was allocated for {purpose}."


class Heap:
    """The table of records, as it stands in the program's memory."""

    def __init__(self):
        stage, table, capacity, free_head = find_view()
        if not is_debugging(stage):
            raise gdb.GdbError("orv: the allocation debug mode is off in this program.")
        (address,) = read_struct(struct.Struct("<Q"), table)
        (count,) = read_struct(struct.Struct("<Q"), capacity)
        (self.free_head,) = read_struct(struct.Struct("<i"), free_head)
        self.records = [Record(i, fields) for i, fields in enumerate(read_table(address, count))]

    def live(self):
        return [record for record in self.records if record.is_live]

    def record(self, index):
        return self.records[index] if 0 <= index < len(self.records) else None

    def free_list(self):
        """The released records, the latest first; ends also where the list is damaged."""
        index, seen = self.free_head, set()
        while index not in seen and self.record(index) is not None:
            seen.add(index)
            yield self.records[index]
            index = self.records[index].status

    def is_sound(self, pointer):
        """The library's full check: header, record and trailer of a live block agree."""
        header = read_header(pointer) if pointer % ALIGNMENT == 0 else None
        if header is None or header[1] != ALLOCATED:
            return False
        record = self.record(header[0])
        return (record is not None and record.pointer == pointer and record.is_live
                and record.has_trailer())

    def find_released(self, pointer):
        if any(record.pointer == pointer for record in self.live()):
            return None
        return next((record for record in self.free_list() if record.pointer == pointer), None)


def read_table(address, count):
    """The records, read in the pieces that the table grows by: a damaged count asks for too much."""
    fields = []
    while len(fields) < count:
        piece = min(count - len(fields), RECORDS_PER_GROWTH)
        data = read(address + len(fields) * RECORD.size, piece * RECORD.size)
        if data is None:
            raise gdb.GdbError(f"orv: the table of {count} records at {address:#x} cannot be read.")
        fields += RECORD.iter_unpack(data)
    return fields


def find_view():
    """The addresses of stage, table, capacity and head of the free list."""
    if gdb.selected_thread() is None:
        raise gdb.GdbError("orv: there is no process and no core file to look at.")
    pattern = re.compile(r"^\s*(0x[0-9a-f]+) - 0x[0-9a-f]+ is " + re.escape(SECTION) + r"\b", re.M)
    found = pattern.findall(gdb.execute("info files", to_string=True))
    if not found:
        raise gdb.GdbError("orv: no allocation calls of the orv library are in this program.")
    views = [read_struct(VIEW, int(address, 16)) for address in found]
    for view in views:
        if view[0] != LAYOUT:
            raise gdb.GdbError(f"orv: this helper does not know the records' layout {view[0]}.")
    # A program may hold the library twice, itself and in a shared object: the one in use counts.
    in_use = [view for view in views if is_debugging(view[1])]
    return (in_use or views)[0][1:]


def read_header(pointer):
    """Index and word before a block; None where they cannot be read."""
    data = read(pointer - HEADER.size, HEADER.size)
    return None if data is None else HEADER.unpack(data)


# Descriptions: each step has its counterpart in components/alloc/debug_text.cpp.


def header_to_judge(heap, pointer):
    if pointer == 0:
        return (-1, 0)
    header = read_header(pointer)
    if header is None:
        raise gdb.GdbError(f"orv: the 8 bytes before 0x{pointer:016X} cannot be read.")
    if header[1] in (ALLOCATED, FREED):
        return header
    released = heap.find_released(pointer)
    return header if released is None else (released.index, FREED)


def verdict(heap, header, named):
    index, word = header
    if word == FREED:
        return "referenced free'd data."
    if word != ALLOCATED:
        return "referenced data that was corrupted at the beginning."
    if named is not None and not named.has_trailer():
        return "referenced data that was corrupted at the end."
    if heap.record(index) is None:
        return "referenced data that was corrupted at the beginning."
    if named is not None and named.is_live:
        return "referenced valid data."
    return "had invalid debugging information (possible internal error)."


def description(heap, pointer):
    opening = f"The pointer 0x{pointer:016X} "
    if pointer % ALIGNMENT != 0:
        return opening + f"was not valid on this platform (should be a multiple of {ALIGNMENT}).  "
    header = header_to_judge(heap, pointer)
    named = heap.record(header[0])
    if named is not None and named.pointer != pointer:
        named = None
    text = opening + verdict(heap, header, named)
    if named is not None:
        text += named.origin("  Before being free'd, the " if header[1] == FREED else "  The ")
    return text[:LONGEST_TEXT]


def address_of(argument):
    if not argument.strip():
        raise gdb.GdbError("orv: an address is missing.")
    try:
        value = gdb.parse_and_eval(argument)
    except gdb.error as error:
        raise gdb.GdbError(str(error)) from None
    if value.type.strip_typedefs().code == gdb.TYPE_CODE_ARRAY:
        value = value.address
    return int(value.cast(gdb.lookup_type("unsigned long")))


# The commands.


class OrvCommand(gdb.Command):
    """What the orv library knows of the program: report, describe, block."""

    def __init__(self):
        super().__init__("orv", gdb.COMMAND_DATA, prefix=True)


class ReportCommand(gdb.Command):
    """Tell how many blocks are allocated, and how many of them are damaged.
Usage: orv report [-v]
With -v every block is listed first. The program must run in the allocation debug mode."""

    def __init__(self):
        super().__init__("orv report", gdb.COMMAND_DATA, gdb.COMPLETE_NONE)

    def invoke(self, argument, from_tty):
        if argument.strip() not in ("", "-v"):
            raise gdb.GdbError("Usage: orv report [-v]")
        heap = Heap()
        rows = [(record, heap.is_sound(record.pointer)) for record in heap.live()]
        if argument.strip() == "-v" and rows:
            say("Note: a `*' in the first column indicates an invalid or corrupted pointer.")
            say(f"X  ID    {'Pointer':<16}  Length Method               Function/Line        "
                "Purpose/File")
            for record, sound in rows:
                say(record.row(" " if sound else "*"))
        say(self.totals(rows))

    @staticmethod
    def totals(rows):
        if not rows:
            return "orv_malloc_debug_report: No storage was allocated"
        size = signed(sum(record.length for record, _ in rows), 32) % (1 << 64)
        unsound = sum(not sound for _, sound in rows)
        note = f" ({unsound} invalid or corrupted!)" if unsound else ""
        return wrapped("orv_malloc_debug_report: "
                       f"{size} bytes allocated, {len(rows)} pointers{note}")


class DescribeCommand(gdb.Command):
    """Tell what is known of a pointer: whether it is a valid block, and who allocated it.
Usage: orv describe ADDRESS
The address is any expression. The program must run in the allocation debug mode."""

    def __init__(self):
        super().__init__("orv describe", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        say(wrapped(description(Heap(), address_of(argument))))


class BlockCommand(gdb.Command):
    """Show the block that an address lies in: its state, its words, its first bytes.
Usage: orv block ADDRESS
The address may point anywhere into the block or into the words around it. Live blocks are looked
at first, then those that were released. The program must run in the allocation debug mode."""

    def __init__(self):
        super().__init__("orv block", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        heap, address = Heap(), address_of(argument)
        candidates = heap.live() + list(heap.free_list())
        record = next((record for record in candidates if record.covers(address)), None)
        if record is None:
            raise gdb.GdbError(f"orv: no block is recorded around 0x{address:016X}.")
        state = "allocated" if record.is_live else "released"
        say(f"Block {record.index}, {state}: {record.length} bytes at 0x{record.pointer:016X}")
        say(f"0x{address:016X} is {place_in(record, address)}")
        say(wrapped(description(heap, record.pointer)))
        show_words(record)
        show_bytes(record)


def place_in(record, address):
    offset = address - record.pointer
    if offset < 0:
        return "in the header before it"
    if offset < record.length:
        return f"byte {offset} of it"
    return f"past its end, at offset {offset}"


def show_words(record):
    header, trailer = read_header(record.pointer), read_word(record.trailer)
    if header is None:
        say("header   cannot be read")
    else:
        meaning = {ALLOCATED: "allocated", FREED: "released"}.get(header[1], "overwritten")
        say(f"header   index {header[0]}, word {header[1]:08X} ({meaning})")
    if trailer is None:
        say("trailer  cannot be read")
    else:
        say(f"trailer  word {trailer:08X} ({'sound' if trailer == TRAILER else 'overwritten'})")


def show_bytes(record):
    data = read(record.pointer, min(record.length, SHOWN_BYTES)) or b""
    for start in range(0, len(data), 16):
        row = data[start:start + 16]
        text = "".join(chr(byte) if 32 <= byte < 127 else "." for byte in row)
        say(f"{start:7d}  {row.hex(' '):<47}  {text}")


# The printers.


class PairHandlePrinter:
    """The line that platform_pair_describe() gives."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        field = {item.name: int(self.value[item.name]) for item in self.value.type.fields()}
        address = int(self.value.address) if self.value.address is not None else field["self"]
        if field["self"] != address:
            return f"handle corrupt 0x{address:08x} != 0x{field['self']:08x}; "
        if field["error_text"] != 0:
            return f"orv: {read_text(field['error_text'])}"
        is_parent = field["side"] != 0
        child_status = f"child status {field['child_exit_status']}; " if is_parent else ""
        return (f"handle intact; {'parent' if is_parent else 'child'} side; "
                f"companion pid {field['companion_pid']}; "
                f"reads {'block' if field['blocking'] else 'non-blocking'}; "
                f"read FD {field['read_fd']}; write FD {field['write_fd']}; {child_status}"
                f"term signal {field['term_signal']}; errno {field['saved_errno']}; orv: None")


class MessageBufferPrinter:
    """How full a message buffer is, and the bytes that were not consumed yet."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        start, capacity, first, end = (int(self.value[name])
                                       for name in ("pBuf", "len", "p1", "p2"))
        if not start <= first <= end or end - start > max(capacity, 0):
            return f"message buffer corrupt: {start:#x}, {first:#x}, {end:#x}, {capacity} bytes"
        text = (f"message buffer of {capacity} bytes; {first - start} consumed; "
                f"{end - first} waiting")
        waiting = read(first, min(end - first, SHOWN_BYTES))
        if not waiting:
            return text
        shown = repr(waiting)[2:-1]
        return f"{text}: \"{shown}\"{'...' if end - first > SHOWN_BYTES else ''}"


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("orv")
    collection.add_printer("pair handle", "^platform_pair_handle$", PairHandlePrinter)
    collection.add_printer("message buffer", "^platform_msgbuf$", MessageBufferPrinter)
    return collection


OrvCommand()
ReportCommand()
DescribeCommand()
BlockCommand()
gdb.printing.register_pretty_printer(None, printers(), replace=True)
