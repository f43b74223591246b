"""What the rows of the comparison are made of."""
from collections.abc import Callable
from dataclasses import dataclass, field

KILOBYTE = 1 << 10
MEGABYTE = 1 << 20


@dataclass(frozen=True)
class Contender:
    """One way to do a row's work: a benchmark program, told by name which of its ways to take.

    The first contender of a case is its base, what a user would write by hand; the ratios of all
    others are to it. Contenders of the library carry the goals."""
    name: str  # as the table calls it; what begins with "orv" is the library, with
               # "floor" the least work
    program: str  # below the folder of the benchmarks
    variant: str = ""  # the program's own name for this contender; "" for the name in the table
    goal: float | None = None  # the ratio to be reached
    instruction_goal: int | None = None  # instructions an operation beyond the base's
    share: float = 1.0  # of the case's operations, for a contender that is slow
    most_rounds: int = 1000  # for one that takes long even so
    environment: dict = field(default_factory=dict)
    wrapper: tuple = ()  # a command to run the program under
    counted: bool = False  # count instructions although there is no goal for them

    @property
    def is_ours(self):
        return self.name.startswith("orv")

    @property
    def is_floor(self):
        return self.name.startswith("floor")


@dataclass(frozen=True)
class Case:
    """One measurement of a row: contenders that do the same work."""
    title: str  # what sets it apart from the row's other cases; "" for the only one
    count: int  # operations in one run
    contenders: tuple
    parameter: str = ""  # handed to the programs
    unit: str = "operation"  # what the cost is told of
    units: float = 1  # how many of these an operation is
    counted_operations: int = 2000  # run under callgrind, and twice as many
    instructions_beyond: str = ""  # the contender whose instructions are taken off; "" for the base
    ahead: bool = False  # the library is also to cost less than every peer
    alike: tuple = ()  # the contenders that must write the same bytes
    clock: str = "processor"  # or "wall", where waiting is what is shown

    @property
    def peers(self):
        return [contender for contender in self.contenders[1:]
                if not contender.is_ours and not contender.is_floor]


@dataclass(frozen=True)
class Row:
    number: int
    work: str
    base: str  # what the base is, in a word or two
    cases: tuple
    remark: str = ""  # for the document, as long as a goal is not reached: why


@dataclass(frozen=True)
class Curve:
    """How a cost grows: the same case at many sizes."""
    name: str  # of its files
    title: str
    size: str  # what the sizes count
    sizes: tuple
    case_of: Callable[[int], Case]  # the case of a size; the contenders are those of every size
    logarithmic_cost: bool = False
