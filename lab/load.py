"""Many tunnels on a real kernel: how long a run takes, how long each tunnel is without packets meanwhile, what the same
commands cost in a shell, what memory that needs, and whether all is whole again after a minute of a WAN that flaps."""

import contextlib
import itertools
import signal
import statistics
import sys
import time
from collections.abc import Callable, Iterator
from typing import NamedTuple

from lab import shell_loop, told
from lab.documents import Keys
from lab.far_ends import FOLDER, FarEnds, address
from lab.lab import SECOND_INVOCATION, START, Lab, require
from lab.probe import Arrivals
from lab.router import PID_FILE
from lab.topology import NEW_WAN_A, SITE_A

SECONDS = 900  # for whatever is waited for: an emulated processor may have a hundred keys to agree upon
FLAP_SECONDS, WITHOUT_WAN, WITH_WAN = 60, 7, 6
TURNS = 3
PRINT_LEVEL = "50"  # the service unit's; each line more is work for what records them here
DEAD = 4  # every fourth peer, from the fourth on
LOOP = f"{FOLDER}/loop"


class Probe:
    """Packets from router A through all tunnels to router B, from `start` to `stop`."""

    def __init__(self, lab: Lab, ends: FarEnds):
        self._lab, self._path, self._said = lab, lab.folder / "arrivals", lab.folder / "sender"
        self._targets = lab.folder / "targets"
        self._targets.write_text("".join(f"{target.address} {target.source}\n" for target in ends.targets))
        self._path.touch()
        lab.b.start_command(sys.executable, "-B", "-m", "lab.probe", "receive", str(self._path))
        self.arrivals = Arrivals(self._path, len(ends.targets))

    def start(self) -> float:
        """Returns the seconds between two packets of a tunnel."""
        self._pid = self._lab.a.start_command(sys.executable, "-B", "-m", "lab.probe", "send", str(self._targets),
                                              output=str(self._said))
        self._lab.wait("the sender", lambda: self._said.read_text().endswith("\n"))
        return float(self._said.read_text())

    def stop(self) -> None:
        self._lab.a.kill(self._pid, signal.SIGTERM)
        self._said.write_text("")

    def wait_whole(self, tunnels: set[int]) -> None:
        """Until a packet that is sent from now on has come through each of these tunnels."""
        begin = time.monotonic()

        def silent() -> set[int]:
            return self.arrivals.silent(begin) & tunnels

        self._lab.deadline = begin + SECONDS
        self._lab.wait("packets through all tunnels, but not", lambda: not silent(), lambda: str(sorted(silent())))


class Measured(NamedTuple):
    """What happened in one turn, in seconds."""

    seconds: float
    gaps: list[float]  # the longest without packets, by tunnel


class Load:
    """One measurement, which tells what it finds."""

    def __init__(self, lab: Lab, number: int, keys: Keys):
        self._lab, self._ends = lab, FarEnds(number, keys)
        self._all = set(range(len(self._ends.targets)))

    def perform(self) -> None:
        self._open()
        counts = ((len(self._ends.gre), "GRE"), (len(self._ends.ipsec), "IPsec"), (len(self._ends.openvpn), "OpenVPN"))
        say(", ".join(f"{count} {kind}" for count, kind in counts) + " tunnels")
        say(f"a run without packets: {self._refresh():.2f} s")
        say(f"then a packet through each tunnel every {self._probe.start() * 1000:.0f} ms")
        self._take_turns()
        self._weigh()
        self._flap()

    # ---- the parts ----

    def _open(self) -> None:
        lab = self._lab
        lab.deadline = time.monotonic() + SECONDS
        lab.topology.names |= self._ends.names
        lab.topology.network.change_names(lab.topology.names)
        self._ends.describe(lab.a.documents)
        self._ends.open(lab.b)
        lab.wait("the far ends of IPsec", lambda: self._ends.are_loaded(lab.b))
        self._probe = Probe(lab, self._ends)
        self._start_daemon()
        self._probe.start()
        self._probe.wait_whole(self._all)
        self._probe.stop()

    def _start_daemon(self) -> None:
        self._lab.deadline = time.monotonic() + SECONDS
        with self._lab.run_on(self._lab.a, cause=START):
            self._lab.a.publish()
            require("the daemon starts", self._lab.a.invoke("--daemonize", "--printlvl", PRINT_LEVEL) == 0)

    def _refresh(self) -> float:
        """Returns the seconds that the run took."""
        self._lab.deadline = time.monotonic() + SECONDS
        with self._lab.run_on(self._lab.a, cause=SECOND_INVOCATION):
            self._lab.a.refresh()
        return self._lab.a.run_seconds()[-1]

    def _take_turns(self) -> None:
        """The daemon's run, and the same commands in a shell. Ratios are formed within a turn, since a busy machine is not
        always equally fast."""
        a = self._lab.a
        a.command("mkdir", "-p", LOOP)
        for name, text in shell_loop.files(a.plan(), LOOP).items():
            a.write(f"{LOOP}/{name}", text)
        runs, loops = [], []
        for _ in range(TURNS):
            runs.append(self._measure(self._refresh))
            with self._shell_in_place_of_the_daemon():
                loops.append(self._measure(lambda: a.run_script(f"{LOOP}/{shell_loop.SCRIPT}")))
        self._tell("run", runs)
        self._tell("shell loop", loops)
        say(f"run / shell loop: {middle([run.seconds / loop.seconds for run, loop in zip(runs, loops)])}")

    @contextlib.contextmanager
    def _shell_in_place_of_the_daemon(self) -> Iterator[None]:
        """Stops the daemon, and has a shell start the openvpn processes instead of its children."""
        a = self._lab.a
        daemon = int(a.read(PID_FILE))
        a.kill(daemon, signal.SIGSTOP)
        for _, child in a.openvpn_children():
            a.kill(child, signal.SIGKILL)
        a.run_script(f"{LOOP}/{shell_loop.CHILDREN}")
        yield
        a.run_script(f"{LOOP}/{shell_loop.END}")
        a.kill(daemon, signal.SIGCONT)
        self._probe.wait_whole(self._all)  # its next supervision pass starts other children

    def _measure(self, act: Callable[[], float]) -> Measured:
        """`act` tears all tunnels down, builds them up and returns the seconds that it took."""
        self._probe.wait_whole(self._all)
        begin = time.monotonic()
        seconds = act()
        self._probe.wait_whole(self._all)
        return Measured(seconds, self._probe.arrivals.longest_gaps(begin, time.monotonic()))

    def _tell(self, what: str, turns: list[Measured]) -> None:
        found: dict[str, list[float]] = {}
        for turn in turns:
            for target, gap in zip(self._ends.targets, turn.gaps):
                found.setdefault(target.kind, []).append(gap)
        gaps = ", ".join(f"{kind} {middle(gaps)} s" for kind, gaps in found.items())
        say(f"{what}: {middle([turn.seconds for turn in turns])} s; without packets: {gaps}")

    def _weigh(self) -> None:
        """Resident memory, and of it what no other process has."""
        processes = {int(self._lab.a.read(PID_FILE)): "tunnel_mngr"}
        processes |= {pid: "openvpn" for _, pid in self._lab.a.openvpn_children()}
        processes |= {pid: "charon" for pid, words in self._lab.a.processes() if words[0].endswith("/charon")}
        found: dict[str, list[tuple[float, float]]] = {}
        for pid, name in processes.items():
            found.setdefault(name, []).append(self._memory(pid))
        for name, sizes in found.items():
            resident, own = (statistics.mean(column) for column in zip(*sizes))
            each = ", each" if len(sizes) > 1 else ""
            say(f"memory of {name}{each}: {resident:.1f} MB resident, {own:.1f} MB of it its own")

    def _memory(self, pid: int) -> tuple[float, float]:
        """In MB."""
        fields = dict(line.split(":", 1) for line in self._lab.a.read(f"/proc/{pid}/smaps_rollup").splitlines()[1:])
        size = {name: int(text.split()[0]) / 1024 for name, text in fields.items()}
        return size["Rss"], size["Private_Clean"] + size["Private_Dirty"]

    def _flap(self) -> None:
        """A minute in which the WAN comes and goes, every other time with another address, a quarter of the peers being
        dead."""
        lab, topology = self._lab, self._lab.topology
        dead = {target.peer for target in self._ends.targets if target.peer % DEAD == DEAD - 1}
        topology.bury(*(address(peer) for peer in dead))
        begin, runs = time.monotonic(), lab.a.runs()
        for wan in itertools.cycle((NEW_WAN_A, SITE_A.wan)):
            topology.lose_wan()
            topology.take_link_down()
            time.sleep(WITHOUT_WAN)
            topology.address_wan(wan)
            time.sleep(WITH_WAN)
            if wan == SITE_A.wan and time.monotonic() > begin + FLAP_SECONDS:
                break
        ended = time.monotonic()
        live = {number for number, target in enumerate(self._ends.targets) if target.peer not in dead}
        self._probe.wait_whole(live)
        say(f"the WAN flaps for {ended - begin:.0f} s with {len(dead)} dead peers: all live tunnels are whole "
            f"{time.monotonic() - ended:.0f} s later, after {lab.a.runs() - runs} runs")
        self._require_told(dead)

    def _require_told(self, dead: set[int]) -> None:
        """By tunnelctl of each tunnel what is so. Of GRE nobody can tell that its other end is dead."""
        lab = self._lab
        expected = told.whole(lab.a.documents)
        expected |= {f"i{peer}": "down: " for peer in dead & set(self._ends.ipsec)}
        expected |= {f"o{peer}": ("down: ", "unknown: ") for peer in dead & set(self._ends.openvpn)}
        expected |= {f"o{peer}": ("up", "unknown: ") for peer in set(self._ends.openvpn) - dead}
        lab.deadline = time.monotonic() + SECONDS
        status = lab.wait_told(lab.a, expected)
        require("told of every tunnel", len(status["tunnels"]) == len(self._ends.targets))
        say(f"tunnelctl tells that {sum(row['state'] == 'up' for row in status['tunnels'])} of "
            f"{len(self._ends.targets)} tunnels are up")


def middle(figures: list[float]) -> str:
    """The median with the least and the most."""
    return f"{statistics.median(figures):.2f} ({min(figures):.2f}..{max(figures):.2f})"


def say(line: str) -> None:
    print(line, flush=True)
