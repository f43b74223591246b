"""Runs rows of the comparison and tells how the library stands."""
import argparse
import os
import time

import document
import growth
import report
import rows_io
import rows_library
from measure import count_instructions, measure

ROWS = rows_library.ROWS + rows_io.ROWS
CURVES = rows_library.CURVES + rows_io.CURVES


def row_or_growth(text):
    if text == "growth" or int(text) in (row.number for row in ROWS):
        return text
    raise ValueError(text)


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("rows", nargs="*", type=row_or_growth, metavar="ROW",
                        help='rows of the table (all of them by default), or "growth" for the '
                        "curves")
    parser.add_argument("--seconds", type=float, default=25,
                        help="how long a row or a curve is measured (default: %(default)s)")
    parser.add_argument("--no-instructions", action="store_true",
                        help="do not count instructions")
    parser.add_argument("--markdown", action="store_true", help="print the table in Markdown, too")
    parser.add_argument("--document", action="store_true",
                        help="run all of it and write it into docs/benchmarks.md")
    options = parser.parse_args()
    if options.document or not options.rows:
        options.rows = [str(row.number) for row in ROWS]
    if options.document:
        options.rows.append("growth")
    return options


def run_row(row, options):
    """What was found: the row with its cases and their results."""
    report.print_row(row)
    found = []
    for case in row.cases:
        results = measure(case, options.seconds / len(row.cases))
        if not options.no_instructions:
            count_instructions(case, results)
        report.print_case(case, results)
        found.append((case, results))
    return row, found


def main():
    options = arguments()
    start, (load, _, _) = time.monotonic(), os.getloadavg()
    found = [run_row(row, options) for row in ROWS if str(row.number) in options.rows]
    if "growth" in options.rows:
        for curve in CURVES:
            growth.draw(curve, options.seconds)
    if options.markdown:
        print("\n" + report.table(found), end="")
    if options.document:
        document.write_document(load, report.table(found))
        growth.copy_to_document(CURVES)
    print(f"\nMeasured in {time.monotonic() - start:.0f} s.")


main()
