"""Makes histories until the time is over; scripts/histories calls it. The status is 1 when one of them failed."""

import argparse
import pathlib
import random
import sys
import time
from xml.sax.saxutils import quoteattr

from histories import machine
from histories.rest import Start, judge
from histories.world import World

LONGEST_LINE = 200
LONGEST_REASON = 2000
TIMELINE = "---- timeline ----"  # which a missed deadline is told with

SCRIPT = """# A history that did not end well: {why}
# scripts/histories --again THIS_FILE makes it once more.
{steps}"""


def _parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="scripts/histories", description="Makes random histories of the real program.")
    parser.add_argument("minutes", type=float, nargs="?", default=2, metavar="MINUTES", help="how long (2)")
    parser.add_argument("--seed", type=int, help="the first seed; without it a new one")
    parser.add_argument("--again", type=pathlib.Path, metavar="FILE", help="make this history again, as it was written")
    parser.add_argument("--junit", type=pathlib.Path, metavar="FILE", help="write a report in this form, too")
    parser.add_argument("--program", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--output", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def main() -> int:
    options = _parse()
    if options.again:
        return _again(options.program, options.again)
    options.output.mkdir(parents=True, exist_ok=True)
    first = options.seed if options.seed is not None else random.randrange(10 ** 9)
    end = time.monotonic() + options.minutes * 60
    records: dict[int, machine.Record] = {}
    while not records or time.monotonic() < end:
        number = first + len(records)
        records[number] = machine.Record()
        machine.histories_of(number, options.program, records[number], end)
        _tell(number, records[number], options)
    failed = [number for number, record in records.items() if record.why]
    count = sum(len(record.tried) for record in records.values())
    print(f"{count} histories of the seeds {first} to {first + len(records) - 1}, {len(failed)} seeds failed")
    if options.junit:
        _write_junit(options.junit, records)
    return 1 if failed else 0


def _tell(number: int, record: machine.Record, options: argparse.Namespace) -> None:
    print(f"seed {number}: {len(record.tried)} histories{', FAILED' if record.why else ''}", flush=True)
    if not record.why:
        return
    steps, why = machine.shortened(options.program, record.failed, record.why)
    script = SCRIPT.format(why=why.splitlines()[0][:LONGEST_LINE], steps=machine.text(steps))
    path = options.output / f"failed-{number}.txt"
    path.write_text(script)
    path.with_suffix(".log").write_text(why + "\n")
    print(f"{script}\nWritten: {path}", flush=True)


def _again(program: pathlib.Path, script: pathlib.Path) -> int:
    with World(program) as world:
        try:
            start = Start(world)
            for line in script.read_text().splitlines():
                if line and not line.startswith("#"):
                    exec(f"world.{line}")  # a call of one of its methods, as `machine.text` writes it
            judge(world, start)
        except AssertionError as error:
            print(f"{str(error).partition(TIMELINE)[0]}\n{world.router.dump()}\nIt failed again.")
            return 1
    print("It ended well.")
    return 0


def _write_junit(path: pathlib.Path, records: dict[int, machine.Record]) -> None:
    cases = []
    for number, record in records.items():
        reason = "" if not record.why else f"<failure message={quoteattr(record.why[:LONGEST_REASON])}/>"
        cases.append(f'<testcase classname="histories" name="seed {number}, {len(record.tried)} histories">{reason}</testcase>')
    path.write_text('<testsuite name="histories">' + "\n".join(cases) + "</testsuite>\n")


if __name__ == "__main__":
    sys.exit(main())
