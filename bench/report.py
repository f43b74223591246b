"""Tells results on a terminal."""


def number(value):
    """A ratio or a cost with about three digits."""
    if value is None:
        return ""
    return f"{value:.2f}" if value < 10 else f"{value:.1f}" if value < 100 else f"{value:.0f}"


def verdict(result):
    return {None: "", True: "reached", False: "NOT REACHED"}[result.reached]


def print_row(row):
    print(f"\n{row.number}. {row.work}")


def print_case(case, results):
    title = f"{case.title}: " if case.title else ""
    print(f"   {title}{results[0].rounds} rounds of {case.count}")
    heads = (f"ns a {case.unit}", "ratio", "goal", "instr.", "goal")
    print(f"     {'':22}" + "".join(f"{head:>{max(9, len(head) + 2)}}" for head in heads))
    for result in results:
        contender = result.contender
        cells = (number(result.nanoseconds), number(result.ratio), number(contender.goal),
                 "" if result.instructions is None else f"{result.instructions:+.0f}",
                 "" if contender.instruction_goal is None else f"{contender.instruction_goal:+d}")
        print(f"     {contender.name:22}" + "".join(
            f"{cell:>{max(9, len(head) + 2)}}" for cell, head in zip(cells, heads))
              + f"  {verdict(result)}", flush=True)
