"""Tells results, on a terminal or in Markdown."""


def number(value):
    """A ratio or a cost with about three digits."""
    if value is None:
        return ""
    return f"{value:.2f}" if value < 10 else f"{value:.1f}" if value < 100 else f"{value:.0f}"


def signed(value):
    return "" if value is None else f"{value:+.0f}"


def print_row(row):
    print(f"\n{row.number}. {row.work}", flush=True)


def print_case(case, results):
    title = f"{case.title}: " if case.title else ""
    print(f"   {title}{results[0].rounds} rounds of {case.count}")
    print(f"     {'':22}{f'ns a {case.unit}':>16}{'ratio':>8}{'goal':>8}{'instr.':>8}{'goal':>8}")
    for result in results:
        contender = result.contender
        verdict = {None: "", True: "reached", False: "NOT REACHED"}[result.reached]
        print(f"     {contender.name:22}{number(result.nanoseconds):>16}{number(result.ratio):>8}"
              f"{number(contender.goal):>8}{signed(result.instructions):>8}"
              f"{signed(contender.instruction_goal):>8}  {verdict}".rstrip(), flush=True)


def with_instructions(ratio, instructions):
    return number(ratio) + ("" if instructions is None else f" ({signed(instructions)})")


def measured_cell(result):
    return with_instructions(result.ratio, result.instructions)


def goal_cell(result):
    contender = result.contender
    return (with_instructions(contender.goal, contender.instruction_goal) +
            ("" if result.to_undercut is None else ", ahead of the peers"))


def labelled(result, text):
    """The text behind what sets one form of the library, or one floor, apart from the other."""
    _, _, form = result.contender.name.partition(", ")
    return f"{form} {text}" if form else text


def table_line(row, case, results):
    """A case as a line of the table in Markdown."""
    ours = [result for result in results if result.contender.is_ours]
    floors = [result for result in results if result.contender.is_floor]
    peers = [result for result in results if result.contender in case.peers]
    work = f"{row.work}: {case.title}" if case.title else row.work
    cells = (
        str(row.number), work, f"{results[0].contender.name}: {number(results[0].nanoseconds)} ns "
        f"a {case.unit}",
        "; ".join(labelled(result, f"**{measured_cell(result)}**") for result in ours),
        "; ".join(labelled(result, goal_cell(result)) for result in ours),
        "yes" if all(result.reached for result in ours) else "no",
        "; ".join(labelled(result, measured_cell(result)) for result in floors),
        "; ".join(f"{result.contender.name} {measured_cell(result)}" for result in peers))
    return "| " + " | ".join(cells) + " |"


def table(found):
    """The rows and what was found for them, a list of (row, [(case, results)]), as Markdown."""
    lines = ["| # | work | base (1) | orv | goal | reached | floor | peers |",
             "|---|---|---|---|---|---|---|---|"]
    lines += [table_line(row, case, results) for row, cases in found for case, results in cases]
    behind = [row for row, cases in found
              if any(result.reached is False for _, results in cases for result in results)]
    lines += [f"\nRow {row.number}: {row.remark}" for row in behind if row.remark]
    return "\n".join(lines) + "\n"
