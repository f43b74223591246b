"""The mutants of the library's sources: one small change each to a comparison, a bound, a
condition, a constant or a result, as a programmer's slip would make it."""
import dataclasses
import re

from sources import code_of, library_files, name_of

SWAPPED = {
    " < ": (" <= ", " >= "), " <= ": (" < ",), " > ": (" >= ", " <= "), " >= ": (" > ",),
    " == ": (" != ",), " != ": (" == ",), " && ": (" || ",), " || ": (" && ",),
    " + ": (" - ",), " - ": (" + ",), " += ": (" -= ",), " -= ": (" += ",),
    "++": ("--",), "--": ("++",), "true": ("false",), "false": ("true",),
}
OPERATOR = re.compile(r" (?:<=|>=|==|!=|&&|\|\||<|>|\+=|-=|\+|-) |\+\+|--|\btrue\b|\bfalse\b")
NEGATION = re.compile(r"(?<![\w!=])!(?=[\w(:])")
NUMBER = re.compile(r"(?<![\w.])(\d+)(?![\w.])")
RESULT = re.compile(r"\breturn (?!true;|false;|nullptr;|\{|\d+;)([^;]+);")
# Lines that make no code of their own, or that only a compiler reads.
PASSED_OVER = re.compile(r"\s*(?:#|static_assert|namespace |using |template|\[\[gnu::|asm|__asm__)")


@dataclasses.dataclass(frozen=True)
class Mutant:
    file: str     # from the project's root
    line: int     # counted from 1
    column: int   # counted from 0
    before: str
    after: str

    def __str__(self):
        return f"{self.file}:{self.line}:{self.column + 1}: {self.before.strip()} -> {self.after.strip()}"

    def apply(self, text):
        lines = text.splitlines(keepends=True)
        line = lines[self.line - 1]
        end = self.column + len(self.before)
        assert line[self.column:end] == self.before, str(self)
        lines[self.line - 1] = line[:self.column] + self.after + line[end:]
        return "".join(lines)


def changes_of(line):
    """The changes to one line: column, text before and after."""
    for found in OPERATOR.finditer(line):
        for after in SWAPPED[found.group()]:
            yield found.start(), found.group(), after
    for found in NEGATION.finditer(line):
        yield found.start(), "!", ""
    for found in NUMBER.finditer(line):
        number = int(found.group())
        yield found.start(), found.group(), str(number + 1)
        if number > 0:
            yield found.start(), found.group(), str(number - 1)
    for found in RESULT.finditer(line):
        yield found.start(1), found.group(1), "{}"


def mutants_of(path):
    text = path.read_text().splitlines()
    for number, code in enumerate(code_of(path).splitlines(), 1):
        if PASSED_OVER.match(code):
            continue
        for column, before, after in changes_of(code):
            # A literal within is blank in the code, and stands in the text.
            before = text[number - 1][column:column + len(before)]
            yield Mutant(name_of(path), number, column, before, after)


def all_mutants():
    """Every mutant of the sources and the internal headers, in the order of the files."""
    return [mutant for path in library_files() if "include" not in path.parts
            for mutant in mutants_of(path)]
