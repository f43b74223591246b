"""Where the benchmarks find and leave their files."""
import pathlib

PROJECT = pathlib.Path(__file__).resolve().parents[1]
BUILD = PROJECT / "build/bench"
PROGRAMS = BUILD / "bench"
DOCUMENT = PROJECT / "docs/benchmarks.md"
