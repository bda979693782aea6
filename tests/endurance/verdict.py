"""What the samples say: how fast memory grows, how sure that is, and whether the daemon has all of what it had and no more.

Samples that follow each other are alike, so they are not as many independent ones. The means of some twenty stretches of
time are nearly so, and of these the slope of the straight line is given with the interval that has 95 % confidence."""

import dataclasses
import math

from endurance.samples import Sample

STRETCHES = 20
QUANTILE = 2.101  # of Student's distribution with STRETCHES - 2 degrees of freedom, 97.5 %
WARM_UP = 0.1  # the share of the time in which the allocator grows to its size
LAST = 5  # samples; what is there in all of them stays
MOST_PER_RUN = 256  # bytes; the least that a run could forget, a host name monitor, takes more


@dataclasses.dataclass(frozen=True)
class Slope:
    """Of a straight line, in units of y for one of x; `uncertainty` is half the interval's width. `start` is at x = 0."""

    value: float
    uncertainty: float
    start: float

    @property
    def low(self) -> float:
        return self.value - self.uncertainty

    @property
    def high(self) -> float:
        return self.value + self.uncertainty


def slope(xs: list[float], ys: list[float]) -> Slope:
    """Needs two values for each stretch at least."""
    x, y = _means(xs), _means(ys)
    middle_x, middle_y = sum(x) / STRETCHES, sum(y) / STRETCHES
    spread = sum((a - middle_x) ** 2 for a in x)
    value = sum((a - middle_x) * (b - middle_y) for a, b in zip(x, y)) / spread
    start = middle_y - value * middle_x
    residuals = sum((b - start - value * a) ** 2 for a, b in zip(x, y))
    return Slope(value, QUANTILE * math.sqrt(residuals / (STRETCHES - 2) / spread), start)


def _means(values: list[float]) -> list[float]:
    bounds = [round(i * len(values) / STRETCHES) for i in range(STRETCHES + 1)]
    return [sum(values[low:high]) / (high - low) for low, high in zip(bounds, bounds[1:])]


def settled(samples: list[Sample]) -> list[Sample]:
    """Those after the warm-up."""
    return [sample for sample in samples if sample.seconds >= WARM_UP * samples[-1].seconds]


@dataclasses.dataclass(frozen=True)
class Verdict:
    """`memory`: bytes for a run, None where there are too few samples; `faults`: what is wrong beyond doubt."""

    memory: Slope | None
    faults: list[str]

    @property
    def holds(self) -> bool:
        return self.memory is not None and self.memory.high < MOST_PER_RUN and not self.faults

    def text(self) -> str:
        if self.memory is None:
            found = "Too few samples for a slope of memory"
        else:
            found = (f"Memory: {self.memory.value:+.1f} bytes a run, with 95 % confidence between {self.memory.low:+.1f} and "
                     f"{self.memory.high:+.1f}; goal: below {MOST_PER_RUN}")
        return "\n".join([found, *self.faults, "Verdict: it lasts" if self.holds else f"Verdict: {self._doubt()}"])

    def _doubt(self) -> str:
        if self.faults or (self.memory and self.memory.low >= MOST_PER_RUN):
            return "it does not last"
        return "not to be told yet, a longer time is needed"


def judge(samples: list[Sample]) -> Verdict:
    faults = []
    for what in ("threads", "descriptors"):
        found = sorted({getattr(sample, what) for sample in samples})
        if len(found) > 1:
            faults.append(f"At rest it had from {found[0]} to {found[-1]} {what}")
    forgotten = min(sample.zombies for sample in samples[-LAST:])  # one that is about to be waited for is none
    if forgotten:
        faults.append(f"In the end it had {forgotten} dead children that it never waited for")
    late = settled(samples)
    memory = None
    if len(late) >= 2 * STRETCHES:
        memory = slope([sample.runs for sample in late], [sample.anonymous for sample in late])
    return Verdict(memory, faults)
