"""Writes a run into docs/benchmarks.md: the part between its two marks."""
import datetime
import os
import platform
import re
import subprocess

from project import DOCUMENT

BEGIN = "<!-- written by scripts/bench --document: from here -->\n"
END = "<!-- to here -->\n"


def first_match(pattern, text):
    return re.search(pattern, text, re.MULTILINE)[1]


def machine():
    """The machine and the system in a sentence."""
    with open("/proc/cpuinfo") as cpu, open("/etc/os-release") as release:
        processor = first_match(r"^model name\s*: (.*)$", cpu.read())
        system = first_match(r'^PRETTY_NAME="(.*)"$', release.read())
    compiler = subprocess.run(["gcc", "-dumpfullversion"], check=True, capture_output=True,
                              text=True).stdout.strip()
    return (f"{os.cpu_count()} processors of the kind {processor}, Linux {platform.release()}, "
            f"{system}, gcc {compiler}, {' '.join(platform.libc_ver())}")


def heading(load):
    """When, where and how the run was made; a load of many means that others ran beside it."""
    return (f"{datetime.date.today():%d %B %Y}, {machine()}, load before the run {load:.1f}: "
            "`./scripts/bench --document`")


def write_document(load, table):
    text = DOCUMENT.read_text()
    before, after = text.split(BEGIN)[0], text.split(END)[1]
    DOCUMENT.write_text(f"{before}{BEGIN}\n{heading(load)}\n\n{table}\n{END}{after}")
