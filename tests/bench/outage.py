"""How long a refresh takes whose openvpn children are running: each is ended before the next."""

import pathlib

from bench import documents
from bench.room import FOLDER, Room
from bench.section import Section, Table

CHILDREN = (0, 1, 5, 10)
ROUNDS = 2
READY_SECONDS = 30


def measure(program: pathlib.Path, programs: pathlib.Path) -> Section:
    """The children end as soon as they get SIGTERM. One GRE tunnel, for there must be a monitor to watch."""
    seconds = {children: _measure(program, programs, children) for children in CHILDREN}
    rows = [[children, *(f"{value:.2f}" for value in values)] for children, values in seconds.items()]
    table = Table("Wall time of a refresh in s, with openvpn children that end at once",
                  ["children", "first", "second"], rows)
    return Section("Outage", [table], [], {str(children): values for children, values in seconds.items()})


def _measure(program: pathlib.Path, programs: pathlib.Path, children: int) -> list[float]:
    configuration = documents.configuration(0, children) | {"greTunnels": [documents.gre_tunnel(0)]}
    with Room(program, programs, configuration) as room:
        room.router.write_file(f"{FOLDER}/openvpn-stays", "")
        daemon = room.start_daemon(1, READY_SECONDS)
        seconds = []
        for _ in range(ROUNDS):
            room.router.wait_until(lambda: len(daemon.children()) == children, "the children")
            seconds.append(room.refresh(daemon, 1).wall)
        return seconds
