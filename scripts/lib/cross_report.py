"""Says what scripts/cross has made of one architecture: cross_report.py FOLDER.

FOLDER holds the stripped programs, the package if there is one, and unit_tests.xml, the tests' report."""

import collections
import pathlib
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

from summary import outcome

PROGRAMS = ("tunnel_mngr", "tunnelctl")


def sizes(folder: pathlib.Path) -> str:
    return ", ".join(f"{name} {(folder / name).stat().st_size / 1e3:.0f} KB" for name in PROGRAMS)


def skipped(report: ElementTree.ElementTree) -> list[str]:
    """For each reason how many tests it has kept from running. A reason is the last line of what a test says of it."""
    reasons = collections.Counter(element.get("message", "").strip().splitlines()[-1]
                                  for element in report.iter("skipped"))
    return [f"{count} skipped: {reason}" for reason, count in sorted(reasons.items())]


def described(package: pathlib.Path) -> str:
    fields = subprocess.run(["dpkg-deb", "--show", "--showformat=${Architecture}: ${Depends}", package], check=True,
                            capture_output=True, text=True).stdout
    return f"{package}, {fields}"


def main() -> None:
    folder = pathlib.Path(sys.argv[1])
    report = ElementTree.parse(folder / "unit_tests.xml")
    outcomes = collections.Counter(map(outcome, report.iter("testcase")))
    packages = [described(package) for package in sorted(folder.glob("tunnel-mngr_*.deb"))]
    tests = f"{outcomes['passed']} passed, {outcomes['failed']} failed"
    for line in (sizes(folder), tests, *skipped(report), *packages):
        print(f"  {line}")


if __name__ == "__main__":
    main()
