"""Runs the benchmarks; scripts/bench calls it. The status is 1 when one of them could not measure what it is to
measure; a goal that is missed is a result and no failure."""

import argparse
import dataclasses
import json
import os
import pathlib
import sys

from bench import companion, linking, monitors, names, outage, picture, rebuild, sizes, texts
from bench.recording import Difference
from bench.room import Failed
from bench.section import Section


def _parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="scripts/bench", description="Measures the program; takes some minutes.",
                                     epilog="docs/benchmarks.md tells what each table means.")
    parser.add_argument("--release", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--self-contained", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--linked", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--output", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def main() -> int:
    options = _parse()
    program = options.release.resolve() / "core" / "tunnel_mngr"
    tunnelctl = options.release.resolve() / "tunnelctl" / "tunnelctl"
    programs = options.release.resolve() / "tests" / "bench"
    print(_machine(), flush=True)
    _go_first()
    try:
        series = rebuild.measure(program, programs)
        start = rebuild.start_of_process(program, programs)
        steps = [lambda: [rebuild.section(series, start)],
                 lambda: [outage.measure(program, programs)],
                 lambda: [names.measure(program, programs)],
                 lambda: monitors.measure(program, programs),
                 lambda: [companion.measure(tunnelctl, program, programs)],
                 lambda: [sizes.measure_stacks(program, programs)],
                 lambda: [sizes.measure_size(program, options.self_contained, tunnelctl)],
                 lambda: [linking.measure(_linked(program, options.linked), programs)],
                 lambda: [texts.measure(programs)]]
        sections = []
        for step in steps:
            for section in step():
                print(f"\n{section.text()}", flush=True)
                sections.append(section)
    except (Difference, Failed) as error:
        print(f"Not measured: {error}", file=sys.stderr)
        return 1
    _write(options.output, sections)
    picture.draw(options.output / "bench.svg", series, {section.name: section.data for section in sections})
    print(f"\n{_summary(sections)}\nWritten: {options.output}/bench.json and {options.output}/bench.svg")
    return 0


def _go_first() -> None:
    """Whatever else the machine does has to wait for what is measured: this process gets a real-time priority, and all
    that it starts has the same."""
    try:
        os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(1))
    except PermissionError:
        print("Without real-time priority, which this system does not grant: other programs disturb the figures.")


def _linked(program: pathlib.Path, folder: pathlib.Path) -> dict[str, pathlib.Path]:
    """The program with shared libraries, and as it lies in the folder of scripts/static: there may be one more."""
    others = {name: folder.resolve() / name / "tunnel_mngr" for name in ("half-static", linking.STATIC, "musl")}
    return {"shared": program} | {name: path for name, path in others.items() if name != "musl" or path.exists()}


def _machine() -> str:
    return f"{os.uname().sysname} {os.uname().release} {os.uname().machine}, {os.cpu_count()} processors, " \
           f"load {os.getloadavg()[0]:.2f}. Figures are medians (least..most)."


def _write(folder: pathlib.Path, sections: list[Section]) -> None:
    report = {"machine": _machine(),
              "sections": [dataclasses.asdict(section) | {"goals": [
                  dataclasses.asdict(goal) | {"met": goal.is_met} for goal in section.goals]} for section in sections]}
    (folder / "bench.json").write_text(json.dumps(report, indent=1) + "\n")


def _summary(sections: list[Section]) -> str:
    goals = [goal for section in sections for goal in section.goals]
    missed = [goal.what for goal in goals if not goal.is_met]
    return f"{len(goals) - len(missed)} goals met, {len(missed)} missed" + (f": {'; '.join(missed)}" if missed else "")


if __name__ == "__main__":
    sys.exit(main())
