"""Asks the helper, from within gdb, what the probe asked the library, and writes the answers down.

ADDRESSES names the file that the probe listed its addresses in, ANSWERS the file to write.
"""

import os

import gdb

questions = ["orv report -v", "orv report"]
with open(os.environ["ADDRESSES"], encoding="ascii") as addresses:
    questions += [f"orv describe {'0' if '(nil)' in line else line}" for line in addresses]
with open(os.environ["ANSWERS"], "w", encoding="utf-8") as answers:
    for question in questions:
        answers.write(gdb.execute(question, to_string=True))
