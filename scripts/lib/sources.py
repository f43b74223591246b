"""Shared by the checks that read the library's sources."""
import pathlib
import re
import sys

PROJECT = pathlib.Path(__file__).resolve().parents[2]
COMPONENTS = PROJECT / "components"
CHECK = pathlib.Path(sys.argv[0]).name

_COMMENT_OR_LITERAL = re.compile(
    r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', re.DOTALL)


def library_files(*patterns):
    """The library's sources and headers, or those that match the patterns."""
    found = set()
    for pattern in patterns or ("*.cpp", "*.h"):
        found.update(COMPONENTS.rglob(pattern))
    if not found:
        finish(["no sources found"], "")
    return sorted(found)


def name_of(path):
    """The path as a person writes it: from the project's root."""
    return str(path.relative_to(PROJECT))


def code_of(path):
    """The text of a file with comments and literals blanked out, line numbers kept."""
    def blank(match):
        text = match.group()
        if text.startswith('"') and _in_include(match):
            return text
        return re.sub(r"[^\n]", " ", text)
    return _COMMENT_OR_LITERAL.sub(blank, path.read_text())


def _in_include(match):
    line_start = match.string.rfind("\n", 0, match.start()) + 1
    return match.string[line_start:match.start()].strip() == "#include"


def part_of(path):
    """The part of the library that a file below components/ belongs to: its component, and in
    the platform component, whose parts are layered too, the source whose name it begins with."""
    component, name = path.parts[0], path.name
    if component != "platform" or "include" in path.parts:
        return component
    for part in ("debug_launch", "file_control", "orv_pair_connection", "process_info", "socket"):
        if name.startswith(part):
            return part
    return name


def finish(complaints, result):
    """Ends the check: the complaints and a summary, or the result that was found."""
    for complaint in complaints:
        print(complaint)
    if complaints:
        print(f"{CHECK}: FAILED: see the {len(complaints)} remarks above")
        sys.exit(1)
    print(f"{CHECK}: {result}")
    sys.exit(0)
