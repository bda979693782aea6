"""What running openvpn children add to a refresh: each is ended before the next."""

import pathlib

from sandbox.api_server import SHORT_NAMES
from sandbox.process import Process

from bench import documents
from bench.room import FOLDER, Failed, Room
from bench.section import Goal, Samples, Section, Table

SCRIPT = pathlib.Path(__file__).with_name("ending.sh")
CHILDREN = (1, 10, 50)
ROUNDS = 5
MONITORS = 2  # with one, a request of the WAN monitor in a long run would be taken for it
READY_SECONDS = 30
MOST_ENDING = 1.0  # seconds, for the most children
LATE = 2500  # milliseconds that a child stays after the first SIGTERM
STAYS, READY, ASKED = (f"{FOLDER}/openvpn-{what}" for what in ("stays", "ready", "asked"))


def measure(program: pathlib.Path, programs: pathlib.Path) -> Section:
    data = {children: _measure(program, programs, children) for children in CHILDREN}
    late, asked = _measure_late(program, programs)
    most = CHILDREN[-1]
    rows = [[children, Samples(values["refresh"]).text(1e3, 0),
             *(Samples(values[what]).text(1e3) for what in ("ending", "each", "all"))]
            for children, values in data.items()]
    table = Table("Refresh in ms with openvpn children that end at once, and how long these take to end",
                  ["children", "refresh", "of it ending them", "shell, one after the other", "shell, all at once"],
                  rows)
    note = f"A child that stays for {LATE / 1e3} s gets SIGTERM {asked} times and has ended after {late:.2f} s"
    goal = Goal(f"ending {most} children", Samples(data[most]["ending"]).median, MOST_ENDING, " s")
    return Section("Outage", [table], [goal], {"children": data, "late": {"seconds": late, "asked": asked}}, [note])


def _measure(program: pathlib.Path, programs: pathlib.Path, children: int) -> dict[str, list[float]]:
    """Seconds, round by round."""
    found: dict[str, list[float]] = {what: [] for what in ("refresh", "ending", "each", "all")}
    with Room(program, programs, _configuration(children)) as room:
        room.router.write_file(STAYS, "0")
        for _ in range(ROUNDS):
            for way in ("each", "all"):
                room.router.remove(READY)
                found[way].append(int(room.output(["bash", str(SCRIPT), str(children), way])) / 1e6)
        room.router.remove(READY)
        daemon = room.start_daemon(MONITORS, READY_SECONDS)
        for _ in range(ROUNDS):
            refresh, ending = _refresh(room, daemon, children)
            found["refresh"].append(refresh)
            found["ending"].append(ending)
    return found


def _measure_late(program: pathlib.Path, programs: pathlib.Path) -> tuple[float, int]:
    """Seconds until a child that leaves late has ended, and how often it was asked to."""
    with Room(program, programs, _configuration(1)) as room:
        room.router.write_file(STAYS, str(LATE))
        _, ending = _refresh(room, room.start_daemon(MONITORS, READY_SECONDS), 1)
        return ending, _size(room, ASKED)


def _configuration(children: int) -> dict:
    """With GRE tunnels, for there must be monitors to watch."""
    return documents.configuration(0, children) | {"greTunnels": [documents.gre_tunnel(i) for i in range(MONITORS)]}


def _refresh(room: Room, daemon: Process, children: int) -> tuple[float, float]:
    """Seconds of a refresh with as many running children, and of it from the last request before these are ended to the
    one for the tunnels. The request for the WANs comes before that but will not do: the WAN monitor makes it, too."""
    room.router.wait_until(lambda: _size(room, READY) == children, "the children")
    room.router.remove(READY)
    mark = room.router.mark()
    seconds = room.refresh(daemon, MONITORS).wall
    requests = [(event.text, event.time) for event in room.router.find("api", since=mark)]
    before, after = ([time for text, time in requests if text == SHORT_NAMES[name]] for name in ("syslog", "tunnels"))
    if len(before) != 1 or len(after) != 1:
        raise Failed(f"a refresh made the requests {requests}")
    return seconds, after[0] - before[0]


def _size(room: Room, path: str) -> int:
    facts = room.router.stat(path)
    return facts["size"] if facts else 0
