"""Packets through many tunnels: one process sends them, another notes when they arrive.

    python3 -m lab.probe send TARGETS       TARGETS holds a line "ADDRESS SOURCE" for each tunnel, "-" for any source
    python3 -m lab.probe receive ARRIVALS   appends a record to ARRIVALS for each packet

Both go on until they are ended."""

import contextlib
import pathlib
import socket
import statistics
import struct
import sys
import time

PORT = 7777
INTERVAL_SECONDS = 0.05
ROUNDS_TRIED = 20
SHARE = 0.25  # of a processor that sending may take; on one that is emulated the interval is longer for it
RECORD = struct.Struct("<Hd")  # the tunnel's number, when its packet arrived by the monotonic clock
SO_RCVBUFFORCE = 33  # socket(7), where Python has no name for it
RECEIVE_BUFFER = 4 << 20


class Arrivals:
    """What has arrived so far, by the number of the tunnel."""

    def __init__(self, path: pathlib.Path, tunnels: int):
        self._path, self._position = path, 0
        self.times: list[list[float]] = [[] for _ in range(tunnels)]

    def read(self) -> None:
        """Takes what has come since."""
        with open(self._path, "rb") as file:
            file.seek(self._position)
            data = file.read()
        complete = len(data) - len(data) % RECORD.size
        self._position += complete
        for tunnel, arrived in RECORD.iter_unpack(data[:complete]):
            self.times[tunnel].append(arrived)

    def silent(self, since: float) -> set[int]:
        """The tunnels through which nothing has come since that time."""
        self.read()
        return {tunnel for tunnel, times in enumerate(self.times) if not times or times[-1] <= since}

    def longest_gaps(self, begin: float, end: float) -> list[float]:
        """By tunnel, the longest time without a packet in that time."""
        self.read()
        return [longest_gap(times, begin, end) for times in self.times]


def longest_gap(times: list[float], begin: float, end: float) -> float:
    """Of the times in between; what goes before the first and behind the last counts."""
    inside = [begin, *(time for time in times if begin < time < end), end]
    return max(later - earlier for earlier, later in zip(inside, inside[1:]))


def interval(rounds: list[float]) -> float:
    """Seconds between two rounds, of which some have taken this long."""
    return max(INTERVAL_SECONDS, statistics.median(rounds) / SHARE)


def send(targets: str) -> None:
    lines = [line.split() for line in pathlib.Path(targets).read_text().splitlines()]
    sockets = {source: _socket("" if source == "-" else source) for _, source in lines}
    packets = [(sockets[source], struct.pack("<H", number), (address, PORT))
               for number, (address, source) in enumerate(lines)]
    rounds = []
    for _ in range(ROUNDS_TRIED):
        rounds.append(_send_round(packets))
        time.sleep(INTERVAL_SECONDS)
    pause = interval(rounds)
    print(pause, flush=True)
    due = time.monotonic()
    while True:
        _send_round(packets)
        due = max(due + pause, time.monotonic())
        time.sleep(max(0.0, due - time.monotonic()))


def _send_round(packets: list[tuple[socket.socket, bytes, tuple[str, int]]]) -> float:
    """One through each tunnel, or through nothing while it is not there; returns the seconds that it took."""
    start = time.monotonic()
    for through, packet, address in packets:
        with contextlib.suppress(OSError):
            through.sendto(packet, address)
    return time.monotonic() - start


def receive(arrivals: str) -> None:
    incoming = _socket("", PORT)
    incoming.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, RECEIVE_BUFFER)
    with open(arrivals, "ab", buffering=0) as file:
        while packet := incoming.recv(2):
            file.write(RECORD.pack(*struct.unpack("<H", packet), time.monotonic()))


def _socket(source: str, port: int = 0) -> socket.socket:
    made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    made.bind((source, port))
    return made


if __name__ == "__main__":
    {"send": send, "receive": receive}[sys.argv[1]](sys.argv[2])
