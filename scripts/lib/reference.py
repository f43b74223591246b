"""Looks through the built reference: reference.py FOLDER NAME...

Prints every public name without a described entry and every link that leads nowhere.
"""

import sys
import xml.etree.ElementTree as ElementTree
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit


def described_names(xml_folder):
    """The members whose entry begins with a sentence of its own."""
    names = set()
    for path in xml_folder.glob("*.xml"):
        for member in ElementTree.parse(path).iter("memberdef"):
            if "".join(member.find("briefdescription").itertext()).strip():
                names.add(member.findtext("name"))
    return names


class Page(HTMLParser):
    """The places of one page that can be linked to, and the links that it holds."""

    def __init__(self, path):
        super().__init__()
        self.places, self.links = set(), set()
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        for name, value in attrs:
            if name in ("id", "name") and value:
                self.places.add(value)
            if name in ("href", "src") and value:
                self.links.add(value)


def dead_links(html_folder):
    pages = {path.resolve(): Page(path) for path in html_folder.glob("**/*.html")}
    for path, page in sorted(pages.items()):
        for link in sorted(page.links):
            parts = urlsplit(link)
            if parts.scheme:
                continue
            target = (path.parent / unquote(parts.path)).resolve() if parts.path else path
            anchor = unquote(parts.fragment)
            missing_place = target in pages and anchor and anchor not in pages[target].places
            if not target.is_file() or missing_place:
                yield f"{path.name}: a dead link to {link}"


def main(folder, names):
    described = described_names(folder / "xml")
    faults = [f"{name}: no described entry" for name in names if name not in described]
    faults += dead_links(folder / "html")
    print("\n".join(faults), end="\n" if faults else "")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), sys.argv[2:]))
