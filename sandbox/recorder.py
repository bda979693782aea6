"""Inside the router: the one place where an event gets its number and its time.

A log line or a request lies in a socket's queue before the keeper reads it. So that the timeline is in true causal
order, every queue that may hold something older is emptied before a newer event is recorded: what a program logged
before it ran a command stands before that command."""

import threading
import time


class Recorder:
    """Numbers events and hands them on. Any thread may record; `send` is called in the order of the numbers."""

    def __init__(self, send, started: float):
        self._send = send
        self._started = started
        self._lock = threading.RLock()
        self._number = 0
        self._older = []

    def drain_first(self, drain) -> None:
        """Has `drain()` called, under the lock, before each event; it passes what it finds to `append`."""
        self._older.append(drain)

    def record(self, kind: str, text: str, **fields) -> int:
        """Records one event and returns its number."""
        with self._lock:
            self._drain()
            return self.append(kind, text, **fields)

    def sync(self) -> int:
        """Records what lies in the queues; returns the number of the last event."""
        with self._lock:
            self._drain()
            return self._number

    def append(self, kind: str, text: str, **fields) -> int:
        """Records one event without looking at the queues: for the queues' own events."""
        with self._lock:
            self._number += 1
            head = {"number": self._number, "time": time.monotonic() - self._started, "kind": kind, "text": text}
            self._send({"event": head | fields})
            return self._number

    def _drain(self) -> None:
        for drain in self._older:
            drain()
