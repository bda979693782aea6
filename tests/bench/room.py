"""A router without the recording, which costs too much to time with: API, name server and system log of the sandbox,
the real shell, and one small program in place of `ip`, `ipsec`, `openvpn`, `firewall` and `ping`."""

import dataclasses
import hashlib
import os
import pathlib

from sandbox import service_unit
from sandbox.process import Process
from sandbox.router import Router

from bench.recording import Recording

FOLDER = "/run/bench"
CALLS = f"{FOLDER}/calls"
COMMAND_LIST = f"{FOLDER}/commands"
SEARCH_PATH = f"{FOLDER}/bin:/usr/sbin:/usr/bin:/sbin:/bin"
COUNTED = ("ip", "ipsec", "firewall")
STOOD_IN = (*COUNTED, "openvpn", "ping")
TIMED_SECONDS = 300
OWN_THREADS = 2  # of the daemon: the main thread and the WAN monitor


class Failed(Exception):
    """A run did not do what it is timed for."""


@dataclasses.dataclass
class Timing:
    """What one run cost, in seconds: until its end, of processor time in its own process, and in those that it waited
    for."""

    wall: float
    own: float
    children: float


@dataclasses.dataclass
class Refresh:
    """Seconds: until the monitors are stopped, of the run, until the new ones are started, and of processor time."""

    stop: float
    run: float
    start: float
    own: float

    @property
    def wall(self) -> float:
        return self.stop + self.run + self.start

    def run_timing(self) -> Timing:
        """Of the run, with the processor time of all the refresh. That of the commands, which the daemon waits for, is
        not known."""
        return Timing(self.run, self.own, 0)


class Room:
    """A router to time in, to be used in a `with` block. `programs` is the folder of the built benchmark programs. The
    daemon is started with the variables of its service unit."""

    def __init__(self, program: pathlib.Path, programs: pathlib.Path, documents: dict, **router_options):
        self._programs = programs
        self.router = Router(program, documents, environment={"PATH": SEARCH_PATH, **service_unit.environment()},
                             **router_options)

    def __enter__(self) -> "Room":
        self.router.open()
        self.output(["umount", os.path.realpath("/bin/sh")])
        self.router.make_folder(f"{FOLDER}/bin")
        self.router.make_ipsec_folders()
        for name in STOOD_IN:
            self.output(["ln", "-s", str(self._programs / "command"), f"{FOLDER}/bin/{name}"])
        self.set_kernel_tunnels([])
        return self

    def __exit__(self, *_exception) -> None:
        self.router.close()

    def set_kernel_tunnels(self, tunnels: list[dict]) -> None:
        """What `ip tunnel` lists from now on, as Router.preset_gre takes it."""
        self.router.preset_gre(*tunnels)
        self.router.write_file(f"{FOLDER}/ip-tunnel", self.router.gre_listing())

    def time(self, argv: list[str], statuses: tuple[int, ...] = (0,)) -> Timing:
        """One run of a command that must end with one of these."""
        done = self.output([str(self._programs / "stopwatch"), *argv])
        status, wall, own, children = map(int, done.split())
        if status not in statuses:
            raise Failed(f"{argv[0]} ended with status {status}")
        return Timing(wall / 1e9, own / 1e9, children / 1e9)

    def start_daemon(self, monitors: int, timeout: float) -> Process:
        """Returns when the first run is over and as many monitors have been started."""
        daemon = self.router.daemon()
        self.wait_for_threads(daemon, monitors, timeout)
        return daemon

    def wait_for_threads(self, daemon: Process, others: int, timeout: float) -> None:
        """Waits until the daemon has so many threads besides the two that it has always."""
        self.router.wait_until(lambda: daemon.threads() == OWN_THREADS + others, f"{others} threads", timeout=timeout)

    def refresh(self, daemon: Process, monitors: int, calls: int = 0) -> Refresh:
        """Has the daemon refresh, before and after which it has as many monitors. `calls` is the number of look-ups
        that the stopped monitors leave behind."""
        low = OWN_THREADS + calls
        done = self.output([str(self._programs / "refresh"), str(daemon.pid), str(low), str(low + monitors)])
        return Refresh(*(int(nanoseconds) / 1e9 for nanoseconds in done.split()))

    def forget(self) -> None:
        """Removes what the last run left, so that the next one cannot be taken for it."""
        self.output(["sh", "-c", f"rm -rf {CALLS} /run/openvpn_*.conf /run/ipsec/ipsec.* /run/ipsec/*/*"])

    def require_commands(self, expected: int) -> None:
        """Raises Failed unless as many commands of COUNTED ran since `forget`."""
        facts = self.router.stat(CALLS)
        found = facts["size"] if facts else 0
        if found != expected:
            raise Failed(f"{found} commands ran instead of {expected}")

    def require_done(self, recording: Recording, with_files: bool) -> None:
        """Raises Failed unless, since `forget`, as many commands ran and the same files came to be as recorded."""
        self.require_commands(sum(call[0] in COUNTED for call in recording.calls))
        if with_files:
            self._require_files({path: contents for path, (_, contents) in recording.files.items()})

    def _require_files(self, files: dict[str, bytes]) -> None:
        digests = dict(reversed(line.split("  ", 1)) for line in self.output(["sha256sum", *files]).splitlines())
        wrong = [path for path, contents in files.items() if digests[path] != hashlib.sha256(contents).hexdigest()]
        if wrong:
            raise Failed(f"these files have other contents: {wrong}")

    def output(self, argv: list[str]) -> str:
        """What a command prints that must succeed."""
        done = self.router.exec(argv, timeout=TIMED_SECONDS, environment={"PATH": SEARCH_PATH})
        if done.status != 0:
            raise Failed(f"{argv} ended with status {done.status}: {done.stderr}")
        return done.stdout
