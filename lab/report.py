"""What the reader sees: a line for each step, the table at the end, and the routers' state after a failure."""

import pathlib
import textwrap
import time
import xml.etree.ElementTree as ElementTree

from lab.lab import Lab, Unmet
from lab.node import CommandFailed
from lab.router import Router
from lab.steps import STEPS, Step

OK, FAILED, NOT_REACHED = "ok", "FAILED", "-"
WIDTHS = (20, 62, 6, 7)
HEADINGS = ("Step", "Asserted", "Result", "Time")
LOG_LINES = 40
DUMPED = (("ip", "-brief", "address"), ("ip", "route"), ("ip", "tunnel"), ("ip", "xfrm", "state"), ("ipsec", "status"))


class Row:
    """A step with its outcome."""

    def __init__(self, step: Step, result: str = NOT_REACHED, note: str = "", seconds: float | None = None):
        self.step, self.result, self.note, self.seconds = step, result, note, seconds


def perform(lab: Lab, results: pathlib.Path) -> list[Row]:
    """Performs the steps up to the first that fails, telling of each. Before each and at the end it appends a line to
    `results`: the report so far."""
    rows = [Row(step) for step in STEPS]
    for number, step in enumerate(STEPS):
        _append(results, junit(rows))
        print(f"{step.title} ...", end=" ", flush=True)
        rows[number] = row = _perform(lab, step)
        print(f"{row.result}, {row.seconds:.1f} s", flush=True)
        if row.result != OK:
            break
    _append(results, junit(rows))
    return rows


def _append(path: pathlib.Path, line: str) -> None:
    with open(path, "a") as file:
        file.write(f"{line}\n")


def junit(rows: list[Row]) -> str:
    """A report in JUnit's format, in one line. A step that was not reached counts as skipped."""
    suite = ElementTree.Element("testsuite", name="lab", tests=str(len(rows)))
    for row in rows:
        name = f"{row.step.title}: {row.step.asserted}"
        case = ElementTree.SubElement(suite, "testcase", classname="lab", name=name, time=f"{row.seconds or 0:.1f}")
        if row.result == FAILED:
            ElementTree.SubElement(case, "failure", message=row.note)
        elif row.result == NOT_REACHED:
            ElementTree.SubElement(case, "skipped", message="not reached")
    for outcome, element in (("failures", "failure"), ("skipped", "skipped")):
        suite.set(outcome, str(len(suite.findall(f"*/{element}"))))
    return ElementTree.tostring(suite, encoding="unicode")


def last_junit(results: str) -> str:
    """The last complete line of what `perform` has written; empty if there is none."""
    complete, _, _ = results.rpartition("\n")
    return complete.rpartition("\n")[2].strip()


def table(rows: list[Row]) -> str:
    lines = [_line(HEADINGS), _line(["-" * width for width in WIDTHS])]
    for row in rows:
        time_text = "" if row.seconds is None else f"{row.seconds:.1f} s"
        first, *more = textwrap.wrap(row.step.asserted, WIDTHS[1])
        more += textwrap.wrap(row.note, WIDTHS[1], initial_indent="> ", subsequent_indent="  ")
        lines.append(_line((row.step.title, first, row.result, time_text)))
        lines += [_line(("", text)) for text in more]
    return "\n".join(lines)


def dump(router: Router) -> str:
    """What helps to find out why a step failed."""
    parts = [f"==== {router.name}"]
    for command in DUMPED:
        try:
            parts.append(f"---- {' '.join(command)}\n{router.command(*command)}".rstrip())
        except CommandFailed as error:
            parts.append(f"---- {error}")
    processes = "\n".join(f"{pid} {' '.join(arguments)}" for pid, arguments in router.processes())
    return "\n".join([*parts, "---- processes", processes, "---- end of the system log", *router.log()[-LOG_LINES:]])


def _perform(lab: Lab, step: Step) -> Row:
    start = time.monotonic()
    lab.deadline = start + step.seconds
    try:
        note, result = step.action(lab), OK
    except (Unmet, CommandFailed) as error:
        note, result = str(error), FAILED
    return Row(step, result, note, time.monotonic() - start)


def _line(cells) -> str:
    return "  ".join(f"{cell:<{width}}" for cell, width in zip(cells, WIDTHS)).rstrip()
