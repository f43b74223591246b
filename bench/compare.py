"""Runs rows of the comparison and tells how the library stands."""
import argparse

import rows_library
from measure import count_instructions, measure
from report import print_case, print_row

ROWS = rows_library.ROWS


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("rows", nargs="*", type=int, metavar="ROW",
                        help="rows of the table, all of them by default")
    parser.add_argument("--seconds", type=float, default=30,
                        help="how long a row is measured (default: %(default)s)")
    parser.add_argument("--no-instructions", action="store_true",
                        help="do not count instructions")
    return parser.parse_args()


def run_row(row, options):
    print_row(row)
    found = []
    for case in row.cases:
        results = measure(case, options.seconds / len(row.cases))
        if not options.no_instructions:
            count_instructions(case, results)
        print_case(case, results)
        found.append(results)
    return found


def main():
    options = arguments()
    for row in ROWS:
        if not options.rows or row.number in options.rows:
            run_row(row, options)


main()
