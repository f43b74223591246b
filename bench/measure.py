"""Runs the contenders of a case in turn, many times, and takes medians."""
import os
import re
import statistics
import subprocess
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

from project import PROGRAMS

MOST_ROUNDS = 101


@dataclass
class Result:
    """What a contender was found to cost in a case."""
    contender: object
    nanoseconds: float  # for a unit, the median
    ratio: float  # to the base, the median of the rounds' own ratios
    rounds: int
    to_undercut: float | None = None  # the lowest ratio of the peers, where it is to be undercut
    instructions: float | None = None  # an operation, beyond those of the case's choice

    @property
    def reached(self):
        """Whether every goal of the contender is reached; None where it has none."""
        verdicts = []
        if self.contender.goal is not None:
            verdicts.append(round(self.ratio, 2) <= self.contender.goal)
        if self.contender.instruction_goal is not None and self.instructions is not None:
            verdicts.append(round(self.instructions) <= self.contender.instruction_goal)
        if self.to_undercut is not None:
            verdicts.append(self.ratio < self.to_undercut)
        return all(verdicts) if verdicts else None


def command_of(contender, case, count):
    program = str(PROGRAMS / contender.program)
    return [program, contender.variant or contender.name, str(count), case.parameter]


def run(command, contender, **variables):
    """The lines that a command wrote to its standard output and to its standard error."""
    environment = os.environ | {"LC_ALL": "C"} | contender.environment | variables
    ran = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, capture_output=True,
                         text=True)
    if ran.returncode != 0:
        raise SystemExit(f"{' '.join(command)} ended with {ran.returncode}:\n{ran.stderr}")
    return ran.stdout.splitlines(), ran.stderr.splitlines()


def check_output(case):
    """Ends the run when contenders that claim to write the same do not."""
    written = {}
    with tempfile.TemporaryDirectory() as folder:
        for contender in (c for c in case.contenders if c.name in case.alike):
            target = Path(folder, str(len(written)))
            run(command_of(contender, case, 2), contender, BENCH_TARGET=str(target))
            written[contender.name] = target.read_bytes()
    if len(set(written.values())) > 1 or b"" in written.values():
        raise SystemExit(f"{', '.join(written)} do not write the same")


def cost(contender, case):
    """Nanoseconds a unit, in one run."""
    count = max(1, round(case.count * contender.share))
    command = [*contender.wrapper, *command_of(contender, case, count)]
    output, _ = run(command, contender)
    processor, wall = (int(word) for word in output[-1].split())
    return (processor if case.clock == "processor" else wall) / count / case.units


def measure(case, seconds, fewest_rounds=5):
    """The results of a case, its contenders in their order. The rounds go on until the time is
    over; each begins with another contender, so that none profits from its place."""
    check_output(case)
    costs = {contender.name: [] for contender in case.contenders}
    end = time.monotonic() + seconds
    for turn in range(MOST_ROUNDS):
        if turn >= fewest_rounds and time.monotonic() > end:
            break
        start = turn % len(case.contenders)
        for contender in case.contenders[start:] + case.contenders[:start]:
            if turn < contender.most_rounds:
                costs[contender.name].append(cost(contender, case))
    return summary(case, costs)


def summary(case, costs):
    """The medians of the contenders' costs in the rounds."""
    of_base = costs[case.contenders[0].name]
    results = [Result(contender, statistics.median(costs[contender.name]),
                      statistics.median(own / base for own, base in
                                        zip(costs[contender.name], of_base)),
                      len(costs[contender.name]))
               for contender in case.contenders]
    if case.ahead:
        lowest = min(result.ratio for result in results if result.contender in case.peers)
        for result in results:
            result.to_undercut = lowest if result.contender.is_ours else None
    return results


def instructions_for(contender, case, count):
    command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
               *command_of(contender, case, count)]
    _, errors = run(command, contender)
    return int(re.search(r"Collected : (\d+)", "\n".join(errors))[1])


def instructions(contender, case):
    """Instructions an operation: what so many operations more take, start and end left out."""
    count = case.counted_operations
    return (instructions_for(contender, case, 2 * count) -
            instructions_for(contender, case, count)) / count


def count_instructions(case, results):
    """Adds the instructions to those results that want them."""
    wanted = [result for result in results
              if result.contender.counted or result.contender.instruction_goal is not None]
    if not wanted:
        return
    base = next(contender for contender in case.contenders
                if contender.name == (case.instructions_beyond or case.contenders[0].name))
    of_base = instructions(base, case)
    for result in wanted:
        result.instructions = instructions(result.contender, case) - of_base
