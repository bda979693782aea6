"""The daemon with many host name monitors: what they cost at rest, and how fast a refresh stops and starts them."""

import contextlib
import dataclasses
import pathlib
from collections.abc import Iterator

from sandbox.process import Process

from bench import documents
from bench.proc import Usage, usage
from bench.room import Refresh, Room
from bench.section import Goal, Samples, Section, Table

COUNTS = (0, 100, 1000)
MANY = 1000
REST_SECONDS = 10
REFRESHES = 5
DAEMONS_LOOKING_UP = 3
RESOLVER_OPTIONS = "timeout:30 attempts:1"  # as long as the resolver takes, so that all look-ups last at the same time
CHECK_SECONDS = 60  # the shortest period of a monitor
START_SECONDS = 60
MOST_RESIDENT = 6.0  # MB at 100 monitors
MOST_EACH = 20.0  # KB
MOST_WAKE_UPS = 5.1  # a second: the loop's own five, and the WAN monitor's every 30 seconds
MOST_STOP_AND_START = 150.0  # ms


def measure(program: pathlib.Path, programs: pathlib.Path) -> list[Section]:
    rest: dict[int, Usage] = {}
    with contextlib.ExitStack() as stack:
        daemons = {count: stack.enter_context(daemon(program, programs, count)) for count in COUNTS}
        for count, (room, process) in daemons.items():
            wait_for_checks(room, process, count)
            rest[count] = usage(process.host_pid, REST_SECONDS)
        asleep = _refresh_while_asleep(*daemons[MANY])
    return [_at_rest(rest), _stop_and_start(asleep, _refresh_while_looking_up(program, programs))]


@contextlib.contextmanager
def daemon(program: pathlib.Path, programs: pathlib.Path, monitors: int) -> Iterator[tuple[Room, Process]]:
    """A daemon with as many IPsec tunnels, whose hosts have names; all its monitors are running."""
    configuration = documents.configuration(0, 0) | {"ipsecTunnels": _tunnels(monitors, named=True)}
    with Room(program, programs, configuration, resolver_options=RESOLVER_OPTIONS) as room:
        for i in range(monitors):
            room.router.dns.set(_host(i), "203.0.113.99")
        yield room, room.start_daemon(monitors, START_SECONDS)


def wait_for_checks(room: Room, daemon: Process, monitors: int) -> None:
    """Until each monitor has looked its name up once after the run had, and all are asleep again."""
    room.router.wait_for("dns", count=2 * monitors, timeout=2 * CHECK_SECONDS)
    room.wait_for_threads(daemon, monitors, START_SECONDS)


def _tunnels(count: int, named: bool) -> list[dict]:
    return [documents.ipsec_tunnel(i, _host(i) if named else None) for i in range(count)]


def _host(index: int) -> str:
    return f"site{index}.example.net"


def _refresh_while_asleep(room: Room, daemon: Process) -> list[Refresh]:
    """In the new configuration hosts are dotted, so that no resolver of the run is taken for a monitor."""
    room.router.documents["ipsecTunnels"] = _tunnels(MANY, named=False)
    return [room.refresh(daemon, MANY) for _ in range(REFRESHES)]


def _refresh_while_looking_up(program: pathlib.Path, programs: pathlib.Path) -> list[Refresh]:
    """Several daemons wait side by side for the time when their monitors look their names up, and are refreshed one
    after the other, again with dotted hosts in the new configuration."""
    with contextlib.ExitStack() as stack:
        daemons = [stack.enter_context(daemon(program, programs, MANY)) for _ in range(DAEMONS_LOOKING_UP)]
        for room, _ in daemons:
            for i in range(MANY):
                room.router.dns.set(_host(i), "SILENT")
            room.router.documents["ipsecTunnels"] = _tunnels(MANY, named=False)
        refreshes = []
        for room, process in daemons:
            room.wait_for_threads(process, MANY + MANY, 2 * CHECK_SECONDS)  # each monitor's call has its own
            refreshes.append(room.refresh(process, MANY, calls=MANY))
        return refreshes


def _at_rest(rest: dict[int, Usage]) -> Section:
    empty = rest[0]
    rows = []
    for count, used in rest.items():
        each = f"{(used.resident - empty.resident) / count / 1e3:.1f}" if count else "-"
        each_address = f"{(used.address_space - empty.address_space) / count / 1e3:.0f}" if count else "-"
        rows.append([count, f"{used.resident / 1e6:.2f}", f"{used.anonymous / 1e6:.2f}", each,
                     f"{used.address_space / 1e6:.1f}", each_address, f"{used.processor * 1e3:.2f}",
                     f"{used.wake_ups:.2f}"])
    table = Table(f"The daemon at rest, over {REST_SECONDS} s",
                  ["monitors", "resident MB", "of it anonymous", "KB a monitor", "address space MB", "KB a monitor",
                   "CPU ms a second", "wake-ups a second"], rows)
    many = rest[MANY]
    each_of_many = (many.resident - empty.resident) / MANY / 1e3
    goals = [Goal("resident with 100 monitors", rest[100].resident / 1e6, MOST_RESIDENT, " MB"),
             Goal(f"resident for each of {MANY} monitors", each_of_many, MOST_EACH, " KB"),
             *(Goal(f"wake-ups a second with {count} monitors", used.wake_ups, MOST_WAKE_UPS)
               for count, used in rest.items())]
    return Section("At rest", [table], goals, {str(count): dataclasses.asdict(used) for count, used in rest.items()})


def _stop_and_start(asleep: list[Refresh], looking_up: list[Refresh]) -> Section:
    rows, goals = [], []
    for what, refreshes in (("asleep", asleep), ("inside a look-up", looking_up)):
        together = Samples([refresh.stop + refresh.start for refresh in refreshes])
        rows.append([what, Samples([refresh.stop for refresh in refreshes]).text(1e3),
                     Samples([refresh.start for refresh in refreshes]).text(1e3), together.text(1e3)])
        goals.append(Goal(f"{MANY} monitors, {what}", together.median * 1e3, MOST_STOP_AND_START, " ms"))
    table = Table(f"Stopping and starting {MANY} monitors in a refresh, in ms",
                  ["they are", "stop", "start", "together"], rows)
    data = {"asleep": [dataclasses.asdict(refresh) for refresh in asleep],
            "looking up": [dataclasses.asdict(refresh) for refresh in looking_up]}
    return Section("Stop and start", [table], goals, data)
