"""What is read of the daemon at rest, and the file in which that is kept."""

import dataclasses
import json
import pathlib


@dataclasses.dataclass(frozen=True)
class Sample:
    """`seconds` are ours, since the start; memory is in bytes, processor time in seconds of the daemon itself."""

    seconds: float
    events: int
    runs: int
    anonymous: int
    resident: int
    threads: int
    descriptors: int
    processor: float
    zombies: int


def append(path: pathlib.Path, sample: Sample) -> None:
    with open(path, "a") as file:
        file.write(json.dumps(dataclasses.asdict(sample)) + "\n")


def read(path: pathlib.Path) -> list[Sample]:
    return [Sample(**json.loads(line)) for line in path.read_text().splitlines()]
