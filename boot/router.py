"""The router in the machine, as the steps see it: what must be there in each state of the service, and what is."""

import contextlib
import pathlib
import re
import time
from collections.abc import Callable, Iterator

from boot.furnishing import NAMES
from boot.machine import Machine
from lab import readings, state
from lab.documents import Documents
from lab.lab import Unmet, require
from lab.topology import KINDS, SITE_A, SITE_B

UNIT = "tunnel_mngr.service"
GROUP = f"/system.slice/{UNIT}"
PID_FILE, SEMAPHORE = "/run/tunnel_mngr.pid", "sem.TUNNEL_MANAGER"
PROGRAM = "/usr/sbin/tunnel_mngr"
OPENVPN_CONFIGURATION = re.compile(r"/var/run/openvpn_(.*)\.conf")
SHOWN = "LoadState,ActiveState,SubState,MainPID"
POLL_SECONDS = 1.0

RUNNING = {"unit": "active (running)", "daemons": "the main process", "PID file": "the main process",
           "semaphore": True}
STOPPED = {"unit": "inactive (dead)", "daemons": "none", "PID file": "none", "semaphore": False}
GONE = STOPPED | {"unit": "not-found"}


class Router:
    """`documents` are those that its API delivers; there is no WAN in them while nobody serves them."""

    def __init__(self, machine: Machine, documents: Documents):
        self.machine, self.documents = machine, documents
        self.deadline = 0.0  # of the current step, on the monotonic clock

    # ---- what state.observed() asks ----

    def command(self, *words: str) -> str:
        return self.machine.run(" ".join(words))

    def devices(self) -> dict[str, str]:
        return readings.devices(self.command("ip", "-json", "-details", "address"))

    def gre_devices(self) -> dict[str, str]:
        return {name: text for name, text in self.devices().items() if text.startswith("gre ")}

    def ipsec_services(self) -> list[str]:
        """Those in the service's control group; the far end has its own."""
        names = [pathlib.PurePath(arguments[0]).name for _, _, group, arguments in self.machine.processes()
                 if group == GROUP]
        return sorted(name for name in names if name in ("starter", "charon"))

    def openvpn_children(self) -> list[tuple[str, int]]:
        """Tunnel name and pid of each, whoever its parent is."""
        return [(OPENVPN_CONFIGURATION.fullmatch(arguments[2])[1], pid)
                for pid, _, _, arguments in self.machine.processes() if arguments[:2] == ["openvpn", "--config"]]

    def read(self, path: str) -> str:
        return self.machine.read(path) or ""

    def files(self, folder: str) -> list[str]:
        return self.machine.names(folder)

    # ---- the service ----

    def property(self, name: str) -> str:
        """One of those that systemctl(1) shows of the unit."""
        return self.command("systemctl", "show", "--value", f"--property={name}", UNIT).strip()

    def main_process(self) -> int:
        return int(self.property("MainPID"))

    def service(self) -> dict:
        """In the words of RUNNING and its like."""
        lines = self.command("systemctl", "show", f"--property={SHOWN}", UNIT).splitlines()
        shown = dict(line.split("=", 1) for line in lines)
        unit = f"{shown['ActiveState']} ({shown['SubState']})" if shown["LoadState"] == "loaded" else shown["LoadState"]
        main = shown["MainPID"]
        daemons = [str(pid) for pid, _, _, arguments in self.machine.processes() if arguments[0] == PROGRAM]
        return {"unit": unit, "daemons": _named(" ".join(daemons), main), "PID file": _named(self.read(PID_FILE), main),
                "semaphore": SEMAPHORE in self.files("/dev/shm")}

    def require_service(self, expected: dict) -> None:
        """That the service is in that state now."""
        found = state.differences(expected, self.service())
        require(f"the service is as it must be: {found}", not found)

    def restarts(self) -> int:
        """How often systemd has started it again by itself since somebody started it."""
        return int(self.property("NRestarts"))

    def runs(self) -> int:
        """How many runs of daemons have ended since the machine was started."""
        return len(self.journal(readings.RUN_END))

    def journal(self, pattern: str) -> list[str]:
        """The lines of this boot in which the extended regular expression is found."""
        return self.machine.attempt(f"journalctl --boot --output=cat | grep -E -e '{pattern}'").output.splitlines()

    # ---- what a step waits for ----

    def wait(self, what: str, condition: Callable[[], object], why: Callable[[], str] = str) -> None:
        """Until the condition holds; Unmet, with `what` and what `why` returns, when the deadline comes first."""
        while not condition():
            if time.monotonic() > self.deadline:
                raise Unmet(" ".join(filter(None, (f"not in time: {what}", why()))))
            time.sleep(POLL_SECONDS)

    @contextlib.contextmanager
    def another_run(self) -> Iterator[None]:
        """What the block does must cause a run; leaving it waits for its end."""
        before = self.runs()
        yield
        self.wait("the end of a run", lambda: self.runs() > before)

    def wait_for(self, expected: dict) -> None:
        """Until the service is in that state."""
        self.wait(f"{UNIT};", lambda: not state.differences(expected, self.service()),
                  lambda: state.differences(expected, self.service()))

    def wait_whole(self) -> None:
        """Until the service runs, all tunnels are what the documents say, and packets cross them."""
        self.wait_documented()
        self.wait_crossing(*KINDS)

    def wait_documented(self) -> None:
        """Until the service runs and all tunnels are what the documents say."""
        self.wait_for(RUNNING)
        expected = state.documented(self.documents, NAMES)
        self.wait("tunnels as documented;", lambda: not state.differences(expected, state.observed(self)),
                  lambda: state.differences(expected, state.observed(self)))
        parents = {parent for _, parent, _, arguments in self.machine.processes() if arguments[0] == "openvpn"}
        require(f"the openvpn processes are the main process's, but {parents}", parents <= {self.main_process()})

    def wait_crossing(self, *kinds: str) -> None:
        """Until an echo request and its answer have crossed through each of these kinds of tunnels."""
        silent = set(kinds)

        def crossed() -> bool:
            silent.difference_update({kind for kind in silent if self._crosses(kind)})
            return not silent

        self.wait("a packet through", crossed, lambda: ", ".join(sorted(KINDS[kind] for kind in silent)))

    def _crosses(self, kind: str) -> bool:
        source, target = SITE_A.router_address(kind), SITE_B.host_address(kind)
        return self.machine.attempt(f"ping -n -c1 -W1 -I {source} {target}").status == 0


def _named(pids: str, main: str) -> str:
    """What processes are, or the one that a PID file names."""
    return "the main process" if pids.strip() == main != "0" else pids.strip() or "none"
