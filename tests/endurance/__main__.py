"""Lets a daemon live and says whether it lasts; scripts/endurance calls it. The status is 0 only when it does."""

import argparse
import pathlib
import sys

from endurance import samples
from endurance.life import FACTOR, Life
from endurance.picture import draw
from endurance.verdict import judge


def _parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="scripts/endurance", epilog="docs/histories.md tells what it means.",
                                     description=f"Lets a daemon live at {FACTOR} times a router's pace.")
    parser.add_argument("hours", type=float, metavar="HOURS", help="how long, of our time; may be a fraction")
    parser.add_argument("--seed", type=int, default=1, help="decides what happens (1)")
    parser.add_argument("--program", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--output", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def main() -> int:
    options = _parse()
    options.output.mkdir(parents=True, exist_ok=True)
    path = options.output / "samples.jsonl"
    path.unlink(missing_ok=True)
    days = options.hours * FACTOR / 24
    print(f"{options.hours:g} hours, {days:.1f} days of the router's; the samples lie in {path}", flush=True)
    with Life(options.program, options.seed) as life:
        for sample in life.samples(options.hours * 3600):
            samples.append(path, sample)
        problems = [*life.router.problems(), *([life.router.complaints()] if life.router.complaints() else [])]
        status = life.daemon.terminate()
    return _tell(options.output, samples.read(path), problems, status)


def _tell(output: pathlib.Path, found: list[samples.Sample], problems: list[str], status: int) -> int:
    verdict = judge(found)
    draw(output / "endurance.svg", found, verdict)
    last = found[-1]
    print(f"{last.events} events, {last.runs} runs, {len(found)} samples; {last.processor / max(last.runs, 1) * 1e3:.1f} ms of "
          f"processor time of its own for each run and the looks between\n{verdict.text()}")
    print(*problems, *([f"It left with {status}"] if status else []), sep="\n", end="")
    print(f"Written: {output}/endurance.svg")
    return 0 if verdict.holds and not problems and status == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
