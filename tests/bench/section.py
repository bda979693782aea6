"""What a benchmark found: tables, and goals that were met or missed."""

import dataclasses
import statistics


@dataclasses.dataclass
class Samples:
    """Several measurements of one thing. Shown as the median, with the least and the most of them as the noise."""

    values: list[float]

    @property
    def median(self) -> float:
        return statistics.median(self.values)

    def text(self, factor: float = 1.0, digits: int = 1) -> str:
        low, middle, high = (f"{value * factor:.{digits}f}" for value in
                             (min(self.values), self.median, max(self.values)))
        return middle if len(self.values) == 1 else f"{middle} ({low}..{high})"


def ratios(numerators: list[float], denominators: list[float]) -> Samples:
    """Of measurements that were made in pairs."""
    return Samples([a / b for a, b in zip(numerators, denominators, strict=True)])


@dataclasses.dataclass
class Goal:
    """`value` may be at most `limit`."""

    what: str
    value: float
    limit: float
    unit: str = ""

    @property
    def is_met(self) -> bool:
        return self.value <= self.limit

    def line(self) -> str:
        return f"{'met   ' if self.is_met else 'MISSED'}  {self.what}: {self.value:.4g}{self.unit}, " \
               f"goal {self.limit:.4g}{self.unit}"


@dataclasses.dataclass
class Table:
    """A title, the names of the columns, and rows of texts and numbers."""

    title: str
    columns: list[str]
    rows: list[list]

    def text(self) -> str:
        lines = [self.columns, *([str(cell) for cell in row] for row in self.rows)]
        widths = [max(map(len, column)) for column in zip(*lines, strict=True)]
        rendered = ["  ".join(cell.rjust(width) for cell, width in zip(line, widths)) for line in lines]
        return "\n".join([self.title, *("  " + line for line in rendered)])


@dataclasses.dataclass
class Section:
    """`data` is what the tables show, unrounded: {name: numbers}, for the JSON file and the picture."""

    name: str
    tables: list[Table]
    goals: list[Goal]
    data: dict
    notes: list[str] = dataclasses.field(default_factory=list)

    def text(self) -> str:
        parts = [f"== {self.name}", *(table.text() for table in self.tables), *self.notes,
                 "\n".join(goal.line() for goal in self.goals)]
        return "\n".join(part for part in parts if part)
