"""A run whose remote hosts belong to a name server that says nothing."""

import pathlib

from bench import documents
from bench.room import Room
from bench.section import Goal, Samples, Section, Table

SILENT_NAMES = (0, 1, 10, 50)
BEYOND = (0, 200)  # more names than the program looks up at once
ROUNDS = 3
MOST_TIMEOUTS = 1.1
RESOLVER_OPTIONS = "timeout:1 attempts:1"

Rounds = dict[int, list[float]]


def measure(program: pathlib.Path, programs: pathlib.Path) -> Section:
    walls, alone = _measure(program, programs, SILENT_NAMES)
    walls_beyond, alone_beyond = _measure(program, programs, BEYOND)
    added = _added(walls, alone)
    added_beyond = _added(walls_beyond, alone_beyond)
    rows = _rows(walls, added) + _rows(walls_beyond, added_beyond)
    goals = [Goal(f"{count} silent names", added[count].median, MOST_TIMEOUTS, " time-outs") for count in added]
    title = "Wall time of one run in ms, and what the silent names add to it in resolver time-outs"
    notes = [f"One look-up of one such name: {Samples(alone + alone_beyond).text(1e3, 0)} ms ({RESOLVER_OPTIONS})"]
    data = {"walls": [walls, walls_beyond], "alone": alone + alone_beyond}
    return Section("Dead names", [Table(title, ["tunnels", "silent names", "run", "added"], rows)], goals, data, notes)


def _measure(program: pathlib.Path, programs: pathlib.Path, counts: tuple[int, ...]) -> tuple[Rounds, list[float]]:
    """The wall times of runs with as many IPsec tunnels as the last count, by the number of those whose name is silent;
    the others have dotted addresses. No command is run for such a tunnel, so the names are what differs. Second, the
    times of a single look-up."""
    tunnels = counts[-1]
    walls: Rounds = {count: [] for count in counts}
    alone = []
    with Room(program, programs, documents.configuration(0, 0), resolver_options=RESOLVER_OPTIONS) as room:
        hosts = [f"silent{i}.example.net" for i in range(tunnels)]
        for host in hosts:
            room.router.dns.set(host, "SILENT")
        for _ in range(ROUNDS):
            for count in counts:
                ipsec = [documents.ipsec_tunnel(i, hosts[i] if i < count else None) for i in range(tunnels)]
                room.router.documents["ipsecTunnels"] = ipsec
                room.forget()
                walls[count].append(room.time([str(program)]).wall)
                room.require_commands(documents.COMMANDS_OF_IPSEC_RUN)
            alone.append(room.time([str(programs / "lookup"), hosts[0]]).wall)
    return walls, alone


def _added(walls: Rounds, alone: list[float]) -> dict[int, Samples]:
    return {count: Samples([(wall - base) / timeout for wall, base, timeout in zip(rounds, walls[0], alone)])
            for count, rounds in walls.items() if count > 0}


def _rows(walls: Rounds, added: dict[int, Samples]) -> list[list]:
    return [[max(walls), count, Samples(rounds).text(1e3, 0), added[count].text(digits=3) if count else "-"]
            for count, rounds in walls.items()]
