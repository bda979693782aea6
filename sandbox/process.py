"""Outside: handles on what runs in a router."""

import os
import signal
from dataclasses import dataclass


@dataclass
class Completed:
    """A program that has ended: its exit status (negative: the signal it died of), output and pid."""

    status: int
    stdout: str
    stderr: str
    pid: int


class Process:
    """A process in a router: one that the router started, or the daemon that it left. `pid` is as seen inside."""

    def __init__(self, router, pid: int, output: str):
        self._router = router
        self._output = output
        self.pid = pid

    @property
    def host_pid(self) -> int:
        """The pid as seen outside: for a debugger, or /proc."""
        for name in filter(str.isdigit, os.listdir("/proc")):
            try:
                if os.readlink(f"/proc/{name}/ns/pid") != self._router.pid_namespace:
                    continue
                with open(f"/proc/{name}/status") as file:
                    if next(line for line in file if line.startswith("NSpid:")).split()[-1] == str(self.pid):
                        return int(name)
            except OSError:
                continue  # ended while we looked, or is none of ours to look at
        raise ProcessLookupError(self.pid)

    @property
    def stdout(self) -> str:
        """What the program and its children have written so far."""
        return self._router.read_file(f"{self._output}.out") or ""

    @property
    def stderr(self) -> str:
        return self._router.read_file(f"{self._output}.err") or ""

    def signal(self, number: int) -> None:
        """Sends a signal; it is recorded just before."""
        self._router.ask("signal", pid=self.pid, number=int(number))

    def terminate(self, timeout: float = 10.0) -> int:
        """Sends SIGTERM and waits for the end; returns the exit status."""
        self.signal(signal.SIGTERM)
        return self.wait_exit(timeout)

    def wait_exit(self, timeout: float = 10.0) -> int:
        """Waits for the end; returns the exit status, negative for a signal."""
        return self._router.wait_for("exit", pid=self.pid, timeout=timeout).status

    @property
    def status(self) -> int | None:
        """The exit status, or None while it runs."""
        exits = self._router.find("exit", pid=self.pid)
        return exits[0].status if exits else None

    def facts(self) -> dict | None:
        """state, parent, group, session, threads, thread_names, descriptors, rss_kib, name, umask, directory and argv,
        from /proc; None when the process is gone."""
        return self._router.ask("process", pid=self.pid)

    def alive(self) -> bool:
        facts = self.facts()
        return facts is not None and facts["state"] not in "ZX"

    def threads(self) -> int:
        return self._fact("threads")

    def fds(self) -> int:
        """The number of open descriptors."""
        return len(self._fact("descriptors"))

    def rss_kib(self) -> int:
        return self._fact("rss_kib")

    def children(self) -> list[int]:
        """The pids of its living children."""
        return self._router.ask("children", pid=self.pid, zombies=False)

    def zombies(self) -> list[int]:
        """The pids of its children that have ended and that it has not waited for."""
        return self._router.ask("children", pid=self.pid, zombies=True)

    def _fact(self, name: str):
        facts = self.facts()
        if facts is None:
            raise ProcessLookupError(f"pid {self.pid} is gone")
        return facts[name]
