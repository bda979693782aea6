"""What becomes of size and memory when libraries are linked into the program (scripts/static)."""

import contextlib
import dataclasses
import pathlib

from bench import monitors
from bench.proc import Usage, usage
from bench.section import Goal, Section, Table
from bench.sizes import sizes_of

WATCHED_SECONDS = 1
STATIC = "static"
MOST_RESIDENT = {0: 1.5, 100: 3.0}  # MB, of the static program


def measure(executables: dict[str, pathlib.Path], programs: pathlib.Path) -> Section:
    """`executables` has the program for each way of linking it, STATIC among them."""
    files = {name: sizes_of(executable)["file"] for name, executable in executables.items()}
    rest = {name: {} for name in executables}
    with contextlib.ExitStack() as stack:
        daemons = {(name, count): stack.enter_context(monitors.daemon(executable, programs, count))
                   for name, executable in executables.items() for count in monitors.COUNTS}
        for (name, count), (room, process) in daemons.items():
            monitors.wait_for_checks(room, process, count)
            rest[name][count] = usage(process.host_pid, WATCHED_SECONDS)
    return _section(files, rest)


def _section(files: dict[str, int], rest: dict[str, dict[int, Usage]]) -> Section:
    rows = [[name, f"{size / 1e3:.0f}", *(f"{used.resident / 1e6:.2f}" for used in rest[name].values())]
            for name, size in files.items()]
    table = Table("The stripped executable, and the daemon at rest",
                  ["linked", "file KB", *(f"MB with {count} monitors" for count in monitors.COUNTS)], rows)
    goals = [Goal(f"resident with {count} monitors, static", rest[STATIC][count].resident / 1e6, most, " MB")
             for count, most in MOST_RESIDENT.items()]
    data = {name: {"file": files[name], **{str(count): dataclasses.asdict(used) for count, used in rest[name].items()}}
            for name in files}
    return Section("Linking", [table], goals, data)
