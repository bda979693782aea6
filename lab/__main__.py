"""Runs the lab; scripts/lab calls it. The status is 0 if all steps hold, 1 if one fails, 77 if it cannot run here."""

import argparse
import os
import pathlib
import signal
import subprocess
import sys
import time

from lab import far_ends, host, kernel, load, programs, report, scratch, steps, vm
from lab.checks import complaint
from lab.documents import Keys
from lab.faults import FAULTS
from lab.lab import Lab, Unmet
from lab.node import CommandFailed
from lab.router import SEARCH_PATH, Programs
from lab.topology import SITE_A, SITE_B, Topology

TOP_FOLDER = pathlib.Path(__file__).resolve().parents[1]
CANNOT_RUN = 77
MACHINE_SECONDS = 600
LOAD_SECONDS = 7200
START_SECONDS = 120
HINTS = """A shell on router A, with the daemon and the services running; docs/lab.md tells what is where. For example:
  tunnelctl status; ip tunnel; ip -s xfrm state; ipsec status; ping -I 192.168.10.1 192.168.20.10
Leave it to end the lab."""


def _parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="scripts/lab", description="Two routers, real tunnels, real packets.",
                                     epilog="docs/lab.md tells what each step shows.")
    parser.add_argument("--shell", action="store_true", help="start both routers and open a shell on router A")
    parser.add_argument("--fault", choices=FAULTS, help="put a fault in, to see the lab fail")
    parser.add_argument("--load", metavar="N", type=int, choices=range(1, far_ends.MOST + 1),
                        help="measure N GRE, N/2 IPsec and N/5 OpenVPN tunnels instead")
    parser.add_argument("--machine", action="store_true", help="use a virtual machine even if this kernel would do")
    parser.add_argument("--junit", metavar="FILE", type=pathlib.Path, help="write the steps' outcomes to FILE as well")
    parser.add_argument("--program", default="", help=argparse.SUPPRESS)
    parser.add_argument("--companion", default="", help=argparse.SUPPRESS)
    parser.add_argument("--keys", type=pathlib.Path, help=argparse.SUPPRESS)  # in the machine only
    options = parser.parse_args()
    if options.shell and not sys.stdin.isatty():
        parser.error("--shell needs a terminal")
    return options


def main() -> int:
    options = _parse()
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda number, _: sys.exit(128 + number))  # so that what must be cleaned up is
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    try:
        return _run_inside(options) if options.keys else _run(options)
    except kernel.Unavailable as error:
        print(f"The lab cannot run here: {error}", file=sys.stderr)
        return CANNOT_RUN
    except (vm.Failed, CommandFailed) as error:
        print(f"The lab failed: {error}", file=sys.stderr)
        return 1


def _run(options: argparse.Namespace) -> int:
    """Here or in a machine. The certificates are made here in no time, which an emulated processor would need."""
    start = time.monotonic()
    reason = "as asked" if options.machine else host.lacking()
    with scratch.folder("lab-") as folder:
        results = folder / "results"
        options.keys = folder / "keys"
        options.keys.mkdir()
        Keys(options.keys).make_certificates([SITE_A, SITE_B])
        try:
            status = _run_in_machine(options, folder, results, reason) if reason else _run_here(options, results)
        finally:
            if options.junit and results.exists() and (junit := report.last_junit(results.read_text())):
                options.junit.write_text(junit)
    if not options.shell:
        print(f"The lab took {time.monotonic() - start:.0f} s.")
    return status


def _programs(options: argparse.Namespace) -> Programs:
    return Programs(os.path.realpath(options.program), os.path.realpath(options.companion))


def _run_in_machine(options: argparse.Namespace, folder: pathlib.Path, results: pathlib.Path, reason: str) -> int:
    print(f"In a virtual machine ({reason})", flush=True)
    command = [os.path.realpath(sys.executable), "-B", "-m", "lab", f"--keys={options.keys}",
               *(f"--{name}={path}" for name, path in _programs(options)._asdict().items())]
    command += ["--shell"] if options.shell else []
    command += [f"--load={options.load}"] if options.load else []
    command += [f"--fault={options.fault}"] if options.fault else []
    environment = {"PATH": SEARCH_PATH, "TERM": os.environ.get("TERM", "dumb")}
    return vm.run(command, str(TOP_FOLDER), environment, programs.files(_programs(options)), folder, results,
                  seconds=None if options.shell else LOAD_SECONDS if options.load else MACHINE_SECONDS)


def _run_inside(options: argparse.Namespace) -> int:
    if reason := host.lacking():
        raise vm.Failed(f"the machine's kernel has {reason}")
    return _run_here(options, vm.RESULTS)


def _run_here(options: argparse.Namespace, results: pathlib.Path) -> int:
    os.environ["PATH"] = SEARCH_PATH
    with scratch.folder("lab-records-") as folder:
        keys = Keys(options.keys)
        lab = Lab(Topology(_programs(options), keys, folder), folder)
        if options.load:
            return _measure_load(lab, options.load, keys)
        steps.write_documents(lab)
        if options.fault:
            FAULTS[options.fault](lab)
        return _open_shell(lab) if options.shell else _perform(lab, results)


def _perform(lab: Lab, results: pathlib.Path) -> int:
    rows = report.perform(lab, results)
    failed = any(row.result != report.OK for row in rows)
    if failed:
        print(*(report.dump(router) for router in lab.topology.routers), sep="\n")
    print(f"\n{report.table(rows)}\n")
    return 1 if failed else 0


def _measure_load(lab: Lab, number: int, keys: Keys) -> int:
    try:
        load.Load(lab, number, keys).perform()
        return 0
    except (Unmet, CommandFailed) as error:
        print(f"{report.dump(lab.a)}\n\n{error}\n{complaint(lab.a)}")
        return 1


def _open_shell(lab: Lab) -> int:
    lab.deadline = time.monotonic() + START_SECONDS
    steps.add_static_key(lab)
    steps.start_daemons(lab)
    steps.begin_ipsec_again(lab)
    print(HINTS, flush=True)
    signal.signal(signal.SIGINT, lambda *_: None)  # for the shell; a handler, since it would inherit an ignored signal
    shell = ["env", "PS1=router-a# ", "bash", "--norc", "--noprofile", "-i"]
    return subprocess.run(["nsenter", f"--target={lab.a.pid}", "--all", *shell]).returncode


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)  # as shells report SIGINT
