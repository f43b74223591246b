"""Prints a page of the project as the reference shows it: page_filter.py PAGE

Headings get the names by which other pages link to them. A link to a file that is no page (a source,
a folder) would lead nowhere there, so its text stands alone. The list of guides is what they stand
under. The read-me is not the front page.
"""

import re
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
GUIDES = PROJECT / "docs/guides/README.md"
LINK = re.compile(r"(?<!!)\[([^]]*)\]\(([^)\s]*)\)")
HEADING = re.compile(r"^(#+) (.*?)[ \t]*$", re.M)
# Doxygen takes the percent sign in front of a word for its own.
PERCENT = re.compile(r"`%(\w+)`")
CODE = re.compile(r"(^```.*?^```$)", re.M | re.S)


def slug(heading):
    """What follows the # in a link to a heading, as hosts of repositories make it."""
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def label(page, anchor):
    name = re.sub(r"\W", "-", str(page.relative_to(PROJECT).with_suffix("")))
    return f"{name}--{anchor}"


def linked(page, match):
    text, target = match.group(1).replace("\n", " "), match.group(2)
    file, _, anchor = target.partition("#")
    if "://" in target:
        return f"[{text}]({target})"
    if file and not file.endswith(".md"):
        return text
    if page == GUIDES and "/" not in file:
        return f"@subpage md_docs_guides_{Path(file).stem.replace('-', '_')} \"{text}\""
    if anchor:
        return f"[{text}](@ref {label((page.parent / file).resolve() if file else page, anchor)})"
    return f"[{text}]({target})"


def with_headings_named(page, prose, seen):
    def named(match):
        marks, heading = match.groups()
        if len(marks) == 1:
            return "# Getting started" if heading == "orv" else match.group(0)
        name = slug(heading)
        seen[name] = seen.get(name, -1) + 1
        anchor = f"{name}-{seen[name]}" if seen[name] else name
        return f"{marks} {heading} {{#{label(page, anchor)}}}"

    return HEADING.sub(named, prose)


def shown(page):
    """The page, its code left as it is."""
    parts, seen = CODE.split(page.read_text(encoding="utf-8")), {}
    for index in range(0, len(parts), 2):
        prose = PERCENT.sub(r"<code>\%\1</code>", parts[index])
        prose = LINK.sub(lambda match: linked(page, match), prose)
        parts[index] = with_headings_named(page, prose, seen)
    return "".join(parts)


if __name__ == "__main__":
    print(shown(Path(sys.argv[1]).resolve()), end="")
