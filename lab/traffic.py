"""What crosses: packets captured on a device, and the longest time in which none gets through."""

import pathlib
import signal
from collections.abc import Callable

from lab import readings
from lab.node import Node
from lab.topology import KINDS, Topology, ping_command


class Capture:
    """What passes a device of a node from `start` to `stop`, by tcpdump(8), which writes it to a file; `contents` is
    then what is in there."""

    def __init__(self, node: Node, device: str, folder: pathlib.Path):
        self._node = node
        self._options = ("-n", "-U", "--immediate-mode", "-Z", "root", "-i", device)
        self._file, self._said = folder / "capture", folder / "tcpdump"

    def start(self, wait: Callable) -> None:
        """`wait` is Lab.wait."""
        self._file.unlink(missing_ok=True)
        self._pid = self._node.start_command("tcpdump", *self._options, "-w", str(self._file), output=str(self._said))
        wait("a capture", lambda: "listening on" in self._said.read_text())

    def stop(self, wait: Callable) -> None:
        self._node.kill(self._pid, signal.SIGTERM)
        wait("the end of a capture", lambda: "packets captured" in self._said.read_text())
        self.contents = self._file.read_bytes()


class Silence:
    """Measures, while the context lasts, the longest time between two answers of host B: `longest`, in seconds, by kind
    of tunnel. A silence that lasts to the end is not among them, so its end is to be waited for."""

    INTERVAL_SECONDS = 0.5

    def __init__(self, topology: Topology, folder: pathlib.Path):
        self._host = topology.host_a
        self._files = {kind: folder / f"ping-{kind}" for kind in KINDS}

    def __enter__(self) -> "Silence":
        options = ("-D", f"-i{self.INTERVAL_SECONDS}")
        self._pids = [self._host.start_command(*ping_command(kind), *options, output=str(file))
                      for kind, file in self._files.items()]
        return self

    def __exit__(self, *_) -> None:
        for pid in self._pids:
            self._host.kill(pid, signal.SIGTERM)
        self.longest = {kind: readings.longest_gap(self._times(kind)) for kind in self._files}

    def silent(self, after: float = 0) -> list[str]:
        """The kinds of tunnels without an answer later than `after`, in seconds since the epoch."""
        return [kind for kind in self._files if not any(time > after for time in self._times(kind))]

    def _times(self, kind: str) -> list[float]:
        return readings.answer_times(self._files[kind].read_text())
