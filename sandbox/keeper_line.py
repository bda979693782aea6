"""Outside: a running keeper and the line to it."""

import pathlib
import queue
import socket
import subprocess
import sys
import tempfile
import threading

from sandbox.building import stand_in_path
from sandbox.control import Channel
from sandbox.timeline import Event, Timeline

START_TIMEOUT = 20  # seconds; a loaded machine may take a while, one that cannot do it says so at once
ANSWER_TIMEOUT = 30


class RouterError(RuntimeError):
    """The router could not be made, is gone, or refused a request."""


class KeeperLine:
    """Starts a keeper and puts its events into a timeline. `ask` may be called from any thread."""

    def __init__(self, timeline: Timeline, settings: dict):
        self._timeline = timeline
        self._answers: dict[int, queue.SimpleQueue] = {0: queue.SimpleQueue()}
        self._lock = threading.Lock()
        self._last = 0
        self._complaints = tempfile.TemporaryFile()
        ours, theirs = socket.socketpair()
        with theirs:
            # A session of its own: Ctrl-C in the terminal is for the tests, which then close the router in order.
            self._guard = subprocess.Popen(
                [sys.executable, "-S", "-m", "sandbox.keeper", str(theirs.fileno())], stdin=subprocess.PIPE,
                stderr=self._complaints, pass_fds=[theirs.fileno()], start_new_session=True,
                cwd=pathlib.Path(__file__).parents[1])
        self._channel = Channel(ours)
        threading.Thread(target=self._listen, name="router events", daemon=True).start()
        try:
            self._channel.send(settings | {"stand_in": stand_in_path()})
            self._wait(0, START_TIMEOUT)
        except BaseException:
            self.close()
            raise

    def ask(self, op: str, **arguments):
        """Has the keeper do something and returns its answer; all earlier events are in the timeline by then."""
        with self._lock:
            self._last += 1
            number = self._last
            self._answers[number] = queue.SimpleQueue()
        try:
            self._channel.send({"id": number, "op": op, **arguments})
        except OSError as error:
            raise RouterError(f"{op}: the router is gone") from error
        return self._wait(number, ANSWER_TIMEOUT)

    @property
    def keeper_pid(self) -> int:
        """PID 1 of the router, as seen outside."""
        with open(f"/proc/{self._guard.pid}/task/{self._guard.pid}/children") as file:
            return int(file.read().split()[0])

    def complaints(self) -> str:
        """What the keeper has written to its standard error: tracebacks."""
        self._complaints.seek(0)
        return self._complaints.read().decode(errors="replace")

    def close(self) -> None:
        """Ends the keeper and with it all that runs in the router. Closing twice is nothing."""
        self._channel.close()
        self._guard.stdin.close()
        self._guard.wait()
        self._complaints.close()

    def _wait(self, number: int, timeout: float):
        try:
            message = self._answers[number].get(timeout=timeout)
        except queue.Empty:
            raise RouterError(f"the router does not answer\n{self._timeline.dump()}") from None
        finally:
            del self._answers[number]
        if message is None:
            raise RouterError(f"the router is gone\n{self.complaints()}")
        if "error" in message:
            raise RouterError(message["error"])
        return message["result"]

    def _listen(self) -> None:
        while (message := self._channel.receive()) is not None:
            if "event" in message:
                self._timeline.add(Event(message["event"]))
            else:
                self._answers[message["id"]].put(message)
        for answers in list(self._answers.values()):
            answers.put(None)
        self._timeline.close()
