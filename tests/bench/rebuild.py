"""One tunnel management run, against the least that its commands can cost and against a shell script."""

import dataclasses
import pathlib

from bench import documents
from bench.recording import SCRIPT, record_program, record_script
from bench.room import COMMAND_LIST, Room, Timing
from bench.section import Goal, Samples, Section, Table, ratios

ROUNDS = {1: 9, 10: 9, 100: 15, 500: 5}
START_ROUNDS = 9
PAUSE = 1.0  # seconds: every run, and the script, waits as long for the restarted IPsec service
WITHOUT_PAUSE = ("floor",)
GOAL_FROM = 100  # tunnels
MOST_ABOVE_FLOOR = 1.05
MOST_GROWTH = 1.2  # with a quadratic step it is near 5
READY_SECONDS = 60


@dataclasses.dataclass
class Series:
    """The timings of one number of tunnels, by contestant and round by round."""

    tunnels: int
    commands: int
    timings: dict[str, list[Timing]]

    def walls(self, who: str) -> list[float]:
        """Without the pause, which the floor does not have."""
        return [timing.wall - (0 if who in WITHOUT_PAUSE else PAUSE) for timing in self.timings[who]]

    def own(self, who: str) -> list[float]:
        return [timing.own for timing in self.timings[who]]

    def processor(self, who: str) -> list[float]:
        return [timing.own + timing.children for timing in self.timings[who]]

    def against(self, who: str, other: str) -> Samples:
        return ratios(self.walls(who), self.walls(other))


def measure(program: pathlib.Path, programs: pathlib.Path) -> list[Series]:
    check_example(program)
    return [_measure_one(program, programs, tunnels, rounds) for tunnels, rounds in ROUNDS.items()]


def section(series: list[Series], start: Samples) -> Section:
    """`start` is how long the process takes to start and to end (`start_of_process`)."""
    line = fit([s.tunnels for s in series], [Samples(s.own("run")).median for s in series])
    goals = [Goal(f"{what} with {s.tunnels} + {s.tunnels} tunnels, against the floor",
                  s.against(who, "floor").median, MOST_ABOVE_FLOOR)
             for s in series if s.tunnels >= GOAL_FROM
             for who, what in (("run", "single run"), ("refresh", "run of the daemon"))]
    goals.append(Goal("own processor time a tunnel costs up to the most tunnels, against that up to a fifth of them",
                      growth(series), MOST_GROWTH))
    notes = [f"Starting and ending the process, part of every single run: {start.text(1e3)} ms (--help)",
             f"Own processor time of a single run = {line['start'] * 1e3:.1f} ms + {line['each'] * 1e6:.0f} us"
             f" x tunnels of each kind, R² {line['r2']:.5f}, at most {line['farthest']:.0%} off"]
    data = {"series": [dataclasses.asdict(s) for s in series], "start": start.values, "line": line}
    return Section("Rebuild", _tables(series), goals, data, notes)


def start_of_process(program: pathlib.Path, programs: pathlib.Path) -> Samples:
    with Room(program, programs, documents.configuration(0, 0)) as room:
        return Samples([room.time([str(program), "--help"]).wall for _ in range(START_ROUNDS)])


def check_example(program: pathlib.Path) -> None:
    """The script must do what the program does where there is something of everything, too."""
    example = documents.example()
    record_program(program, example).require_same(record_script(example), "script, example configuration")


def growth(series: list[Series]) -> float:
    """What one more tunnel costs in processor time between the fewest and the most tunnels, as a multiple of what it
    costs between the fewest and the second most."""
    fewest, *_, second, most = [(s.tunnels, Samples(s.own("run")).median) for s in series]
    return ((most[1] - fewest[1]) / (most[0] - fewest[0])) / ((second[1] - fewest[1]) / (second[0] - fewest[0]))


def fit(counts: list[int], values: list[float]) -> dict[str, float]:
    """The straight line with the least relative errors, as the values span orders of magnitude: start, each (a tunnel),
    r2, and how far off it the farthest value is, as a share of the value."""
    weights = [1 / value ** 2 for value in values]
    total = sum(weights)
    mean_x = sum(w * x for w, x in zip(weights, counts)) / total
    mean_y = sum(w * y for w, y in zip(weights, values)) / total
    each = (sum(w * (x - mean_x) * (y - mean_y) for w, x, y in zip(weights, counts, values))
            / sum(w * (x - mean_x) ** 2 for w, x in zip(weights, counts)))
    start = mean_y - each * mean_x
    errors = [y - start - each * x for x, y in zip(counts, values)]
    plain_mean = sum(values) / len(values)
    return {"start": start, "each": each, "farthest": max(abs(e) / y for e, y in zip(errors, values)),
            "r2": 1 - sum(e * e for e in errors) / sum((y - plain_mean) ** 2 for y in values)}


def _measure_one(program: pathlib.Path, programs: pathlib.Path, tunnels: int, rounds: int) -> Series:
    configuration = documents.configuration(tunnels)
    recording = record_program(program, configuration)
    recording.require_same(record_script(configuration), f"script, {tunnels} tunnels")
    # The daemon has a router of its own: a second process would only ask it for a refresh.
    with (Room(program, programs, configuration) as room, Room(program, programs, configuration) as daemon_room):
        for r in (room, daemon_room):
            r.set_kernel_tunnels(documents.kernel_tunnels(configuration))
        room.router.write_file(COMMAND_LIST, "".join(f"{command}\n" for command in recording.commands))
        daemon = daemon_room.start_daemon(2 * tunnels, READY_SECONDS)
        contestants = {"run": (room, lambda: room.time([str(program)])),
                       "refresh": (daemon_room, lambda: daemon_room.refresh(daemon, 2 * tunnels).run_timing()),
                       "floor": (room, lambda: room.time([str(programs / "floor"), COMMAND_LIST])),
                       "script": (room, lambda: room.time(["sh", str(SCRIPT)]))}
        timings: dict[str, list[Timing]] = {who: [] for who in contestants}
        for number in range(rounds):
            order = list(contestants)
            turn = number % len(order)
            for who in order[turn:] + order[:turn]:
                place, run = contestants[who]
                place.forget()
                timings[who].append(run())
                place.require_done(recording, with_files=who != "floor")
    return Series(tunnels, len(recording.commands), timings)


def _tables(series: list[Series]) -> list[Table]:
    walls = [[s.tunnels, s.commands, *(Samples(s.walls(who)).text(1e3, 0) for who in s.timings)] for s in series]
    compared = [[s.tunnels, *(s.against(who, "floor").text(digits=3) for who in ("run", "refresh", "script")),
                 s.against("script", "run").text(digits=2)] for s in series]
    processor = [[s.tunnels, Samples(s.own("run")).text(1e3), Samples(s.own("refresh")).text(1e3),
                  Samples(s.own("floor")).text(1e3), *(Samples(s.processor(who)).text(1e3, 0)
                                                        for who in ("run", "floor", "script"))] for s in series]
    return [Table("Wall time in ms, without the pause of 1 s for the IPsec service",
                  ["GRE and IPsec", "commands", "single run", "daemon's run", "floor", "script"], walls),
            Table("Wall times compared, each with the one next to it in time",
                  ["GRE and IPsec", "single run / floor", "daemon's run / floor", "script / floor",
                   "script / single run"], compared),
            Table("Processor time in ms: of the process itself, and with all commands",
                  ["GRE and IPsec", "single run", "daemon's refresh", "floor", "run, all", "floor, all", "script, all"],
                  processor)]
