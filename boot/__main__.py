"""Takes the service through its life in a virtual machine; scripts/boot calls it. The status is 0 if all steps hold, 1
if one fails, 77 if it cannot run here."""

import argparse
import os
import pathlib
import signal
import stat
import sys
import time

from boot import disk, furnishing, package
from boot.machine import Failed, Machine
from boot.router import Router
from boot.steps import PACKAGES, STEPS
from lab import kernel, report, scratch
from lab.documents import Keys
from lab.lab import Unmet
from lab.report import FAILED, OK, Row
from lab.topology import SITE_A, SITE_B

CANNOT_RUN = 77
DUMPED = ("systemctl status --no-pager --lines=0 tunnel_mngr", "systemctl --failed --no-legend", "ip -brief address",
          "ip tunnel", "ls -l /run /dev/shm", "journalctl --boot --no-pager --lines=80")


def main() -> int:
    parser = argparse.ArgumentParser(prog="scripts/boot", usage="scripts/boot [--help] [FILE]",
                                     description="The service, from its installation to its purge, under systemd.",
                                     epilog="docs/systemd.md tells what each step shows.")
    parser.add_argument("package", metavar="FILE", type=package.checked, help="its package; without, one is made")
    options = parser.parse_args()
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda number, _: sys.exit(128 + number))  # so that what must be cleaned up is
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    start = time.monotonic()
    try:
        status = _run(options.package)
    except kernel.Unavailable as error:
        print(f"The machine cannot run here: {error}", file=sys.stderr)
        return CANNOT_RUN
    except Failed as error:
        print(f"The machine failed: {error}", file=sys.stderr)
        return 1
    print(f"It took {time.monotonic() - start:.0f} s.")
    return status


def _run(file: pathlib.Path) -> int:
    guest = kernel.fetch()
    image = disk.make(guest)
    with scratch.folder("boot-") as folder:
        keys = Keys(folder)
        keys.make_certificates([SITE_A, SITE_B])
        documents = furnishing.documents(keys)
        packages = zip(PACKAGES, (file, package.newer(file, folder)))
        laid = [*furnishing.laid(documents, keys),
                *((path, stat.S_IFREG | 0o644, made.read_bytes()) for path, made in packages)]
        documents.wan = ""  # for as long as nobody serves them
        print("Starting the machine ...", end=" ", flush=True)
        begun = time.monotonic()
        machine = Machine(guest, image, laid, folder)
        print(f"ok, {time.monotonic() - begun:.1f} s", flush=True)
        try:
            return _perform(Router(machine, documents))
        finally:
            machine.close()


def _perform(router: Router) -> int:
    rows = [Row(step) for step in STEPS]
    for number, step in enumerate(STEPS):
        print(f"{step.title} ...", end=" ", flush=True)
        begun = time.monotonic()
        router.deadline = begun + step.seconds
        try:
            note, result = step.action(router), OK
        except (Unmet, Failed) as error:
            note, result = str(error), FAILED
        rows[number] = Row(step, result, note, time.monotonic() - begun)
        print(f"{result}, {rows[number].seconds:.1f} s", flush=True)
        if result == FAILED:
            _dump(router)
            break
    print(f"\n{report.table(rows)}\n")
    return 0 if all(row.result == OK for row in rows) else 1


def _dump(router: Router) -> None:
    """What helps to find out why a step failed."""
    for command in DUMPED:
        try:
            result = router.machine.attempt(command)
        except Failed as error:
            print(f"---- {error}")
            return
        print(f"---- {command}\n{(result.output + result.errors).rstrip()}")


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)  # as shells report SIGINT
