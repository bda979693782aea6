"""Shows what tests have run: coverage_table.py REPORT.

REPORT is in lcov's format (geninfo(1)). Prints for each source file, and for all together, how many lines and branches
there are and how many of them ran, and then every line that did not."""

import os
import pathlib
import sys
from dataclasses import dataclass, field


@dataclass
class Source:
    """A source file: how often each line, and each branch of a line, ran."""

    path: str
    lines: dict[int, int] = field(default_factory=dict)
    branches: dict[tuple[str, ...], int] = field(default_factory=dict)


def read(report: pathlib.Path) -> list[Source]:
    sources = []
    for entry in report.read_text().splitlines():
        kind, _, value = entry.partition(":")
        values = value.split(",")
        if kind == "SF":
            sources.append(Source(os.path.relpath(value)))
        elif kind == "DA":
            sources[-1].lines[int(values[0])] = int(values[1])
        elif kind == "BRDA":
            sources[-1].branches[tuple(values[:3])] = 0 if values[3] == "-" else int(values[3])
    return sorted(sources, key=lambda source: source.path)


def share(counts: list[int]) -> str:
    """How many there are, how many of them ran, and that in percent; rounded down, so that 100 means all."""
    ran = sum(count > 0 for count in counts)
    percent = f"{ran * 1000 // len(counts) / 10:.1f}" if counts else ""
    return f"{len(counts):>8} {ran:>6} {percent:>6}"


def main() -> None:
    sources = read(pathlib.Path(sys.argv[1]))
    print(f"{'':<42} {'lines':>8} {'ran':>6} {'%':>6} {'branches':>8} {'ran':>6} {'%':>6}")
    for source in sources:
        print(f"{source.path:<42} {share(list(source.lines.values()))} {share(list(source.branches.values()))}")
    lines = [count for source in sources for count in source.lines.values()]
    branches = [count for source in sources for count in source.branches.values()]
    print(f"{'all':<42} {share(lines)} {share(branches)}")
    print("\nLines that did not run:")
    for source in sources:
        texts = pathlib.Path(source.path).read_text().splitlines()
        for number in sorted(number for number, count in source.lines.items() if count == 0):
            print(f"{source.path}:{number}: {texts[number - 1].strip()}")


if __name__ == "__main__":
    main()
