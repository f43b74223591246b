"""Damages the library's records in the probe's memory, piece by piece, and asks the helper each time."""

import re
import struct

import gdb


def words(address, count):
    return struct.unpack(f"<{count}Q", bytes(gdb.selected_inferior().read_memory(address, 8 * count)))


def ask_with(what, address, value):
    """The last line of a verbose report while another value stands at the address."""
    memory = gdb.selected_inferior()
    saved = bytes(memory.read_memory(address, 8))
    memory.write_memory(address, struct.pack("<Q", value))
    try:
        answer = gdb.execute("orv report -v", to_string=True).splitlines()
    except gdb.error as error:
        answer = [str(error)]
    memory.write_memory(address, saved)
    told = [line for line in answer if "no text can be read" in line] or answer[-1:]
    print(f"{what}: {re.sub('0x[0-9a-fA-F]+', 'ADDRESS', told[0])}")


section = re.search(r"(0x[0-9a-f]+) - 0x[0-9a-f]+ is \.orv\.debugger",
                    gdb.execute("info files", to_string=True))
_, _, table, capacity, free_head = words(int(section.group(1), 16), 5)
(first_record,) = words(table, 1)
ask_with("count", capacity, 1 << 60)
ask_with("table", table, 0)
ask_with("free list", free_head, 0x7FFFFFFF)
ask_with("pointer", first_record, (1 << 64) - 8)
ask_with("length", first_record + 8, (1 << 64) - 1)
ask_with("method", first_record + 16, 16)
ask_with("nothing", first_record, *words(first_record, 1))
