"""Measures how costs grow, and plots them with gnuplot."""
import shutil
import subprocess

from measure import measure
from project import BUILD, DOCUMENT
from report import number

BASE_COLOUR = "#777777"
OUR_COLOURS = ("#0060ad", "#d55e00", "#56b4e9")
OTHER_COLOURS = ("#009e73", "#cc79a7", "#e69f00")
TERMINALS = {"svg": 'svg size 760,420 font "sans-serif,13" background "white"',
             "png": 'pngcairo size 760,420 font "sans,11"'}


def measured(curve, seconds):
    """The lines of a curve: each size with what the contenders cost at it."""
    lines = []
    for size in curve.sizes:
        results = measure(curve.case_of(size), seconds / len(curve.sizes), fewest_rounds=3)
        lines.append((size, *(result.nanoseconds for result in results)))
        print(f"   {size:>9} " + "".join(f"{number(cost):>10}" for cost in lines[-1][1:]),
              flush=True)
    return lines


def coloured(contenders):
    """The contenders with their colours: in every picture the base has the same, and so has the
    library."""
    ours, others = iter(OUR_COLOURS), iter(OTHER_COLOURS)
    yield contenders[0], BASE_COLOUR
    for contender in contenders[1:]:
        yield contender, next(ours if contender.is_ours else others)


def plot_script(curve, data, ending):
    case = curve.case_of(curve.sizes[0])
    plots = (f'"{data}" using 1:{column} with linespoints linewidth 2 pointtype 7 pointsize 0.6 '
             f'linecolor "{colour}" title "{contender.name}"'
             for column, (contender, colour) in enumerate(coloured(case.contenders), 2))
    return f"""
set terminal {TERMINALS[ending]}
set output "{data.with_suffix('.' + ending)}"
set title "{curve.title}"
set xlabel "{curve.size}"
set ylabel "nanoseconds a {case.unit}"
set logscale x
set xrange [*:*] noextend
{'set logscale y' if curve.logarithmic_cost else 'set yrange [0:*]'}
set format x "%.0s%c"
set grid xtics ytics linetype 1 linecolor "#d8d8d8"
set border 3
set tics nomirror
set key outside right top Left reverse noenhanced
plot {', '.join(plots)}
"""


def draw(curve, seconds):
    """Leaves the curve's numbers, and its picture as SVG and PNG, among the built files."""
    heads = [contender.name for contender in curve.case_of(curve.sizes[0]).contenders]
    print(f"\n{curve.title}: {curve.size}; {', '.join(heads)}", flush=True)
    lines = measured(curve, seconds)
    data = BUILD / f"{curve.name}.dat"
    data.write_text("".join(" ".join(map(str, line)) + "\n" for line in lines))
    for ending in TERMINALS:
        subprocess.run(["gnuplot"], input=plot_script(curve, data, ending), text=True, check=True)


def copy_to_document(curves):
    folder = DOCUMENT.parent / "benchmarks"
    folder.mkdir(exist_ok=True)
    for curve in curves:
        shutil.copy(BUILD / f"{curve.name}.svg", folder)
