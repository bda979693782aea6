"""Adds up the reports of the test suites: summary.py FOLDER.

FOLDER holds for each suite NAME.status, its exit status, and NAME.xml, its report (JUnit's format), if it came to write
one. Prints a line for each suite and, as the last one, "N passed, N failed" or "N passed, N failed, N skipped". Leaves
with 1 unless something passed and nothing failed.

A suite that leaves with 77 and without a report could not run on this machine, and counts as one skipped test."""

import pathlib
import sys
import xml.etree.ElementTree as ElementTree

CANNOT_RUN = 77


def count(report: pathlib.Path, status: int) -> dict[str, int]:
    """The outcomes of one suite. A suite that failed as a whole, or that ran nothing, counts as one failure more."""
    counts = {"passed": 0, "failed": 0, "skipped": 0}
    if status == CANNOT_RUN and not report.exists():
        return counts | {"skipped": 1}
    if report.exists():
        for case in ElementTree.parse(report).iter("testcase"):
            counts[outcome(case)] += 1
    if counts["failed"] == 0 and (status != 0 or counts["passed"] == 0):
        counts["failed"] = 1
    return counts


def outcome(case: ElementTree.Element) -> str:
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    return "passed" if case.find("skipped") is None else "skipped"


def text(counts: dict[str, int]) -> str:
    kinds = ["passed", "failed"] + (["skipped"] if counts["skipped"] else [])
    return ", ".join(f"{counts[kind]} {kind}" for kind in kinds)


def main() -> int:
    total = {"passed": 0, "failed": 0, "skipped": 0}
    for status in sorted(pathlib.Path(sys.argv[1]).glob("*.status")):
        counts = count(status.with_suffix(".xml"), int(status.read_text()))
        print(f"{status.stem:<20} {text(counts)}")
        total = {kind: total[kind] + counts[kind] for kind in total}
    print(text(total))
    return 0 if total["passed"] > 0 and total["failed"] == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
