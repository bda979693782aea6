"""Outside: the merged list of all that happened in a router, and the waits on it.

Kinds of events and their fields, besides `number`, `time` (seconds since the router started), `kind` and `text`:

  api      text: request target; method                        a request reached the configuration API
  answer   text: request target; how, http_status, size         ... and this is what it is about to be answered
  dns      text: name; answer, type, transport, held            a query reached the name server
  command  text: exact shell text, or argv joined; pid, parent, parent_name, shell
  exec     text: the command's; program, argv, pid, parent, command (number of its event), details
  caught   text: the command's; program, signal                 a staying stand-in received a signal
  end      text: the command's; program, pid, status            status: negative for a signal, None when killed
  log      text: message; pid, ident, priority, severity, facility; properties label, message
  signal   text: its name; pid, signal                          a signal that the test sent
  start    text: argv joined; argv, pid, role                   the program was started
  exit     text: role; pid, status, daemons                     it, a daemon or an orphan was reaped
  mark     text: the test's own
"""

import re
import threading
import time
from typing import Callable, Iterator

LABELS = ("ERROR", "WARNING", "INFO", "DEBUG", "TRACE")


class Event:
    """One thing that happened. Its fields are attributes; one that the event does not have reads as None."""

    def __init__(self, fields: dict):
        self.fields = fields

    def __getattr__(self, name: str):
        if name.startswith("__"):
            raise AttributeError(name)
        return self.fields.get(name)

    @property
    def label(self) -> str | None:
        """Of a log line: the level's label that stands in front of the message, None when there is none."""
        first = self.text.partition(" ")[0]
        return first if first in LABELS else None

    @property
    def message(self) -> str:
        """Of a log line: the message as the program composed it, without the label."""
        return self.text.partition(" ")[2] if self.label else self.text

    def __repr__(self) -> str:
        from sandbox.lines import line  # imported here because that file needs this one
        return f"<{line(self)}>"


class Command:
    """A command that the program ran: one shell text, or one direct execution. `program`, `argv`, `details` and `pid`
    are those of the first stand-in in it (without one: None, and the shell's pid); `status` is that stand-in's exit
    status, None while it runs (`ended` is false) and when it was killed."""

    def __init__(self, event: Event):
        self.event = event
        self.text: str = event.text
        self.number: int = event.number
        self.pid: int = event.pid
        self.parent: int = event.parent
        self.program: str | None = None
        self.argv: list[str] | None = None
        self.details: dict | None = None
        self.status: int | None = None
        self.ended = False

    def _add(self, event: Event) -> None:
        if event.kind == "exec" and self.argv is None:
            self.program, self.argv, self.details, self.pid = event.program, event.argv, event.details, event.pid
        elif event.kind == "end" and event.pid == self.pid:
            self.status, self.ended = event.status, True

    def __repr__(self) -> str:
        return f"<command {self.text!r} {f'status {self.status}' if self.ended else 'running'}>"


class DeadlineMissed(AssertionError):
    """What a test waited for did not happen; the text ends with the whole timeline."""


Matcher = Callable[[Event], bool]


def matcher(what: str | Matcher | None, pattern: str | re.Pattern | None, fields: dict) -> Matcher:
    """Fits events of a kind (or that a function accepts) whose text contains a text (or a compiled pattern)."""
    def fits(event: Event) -> bool:
        if callable(what):
            if not what(event):
                return False
        elif what not in (None, event.kind):
            return False
        if isinstance(pattern, str) and pattern not in event.text:
            return False
        if isinstance(pattern, re.Pattern) and not pattern.search(event.text):
            return False
        return all(getattr(event, name) == value for name, value in fields.items())
    return fits


class Timeline:
    """The events so far. The router's reader thread adds; any thread may look and wait."""

    def __init__(self):
        self._events: list[Event] = []
        self._forgotten = 0  # events before those
        self._changed = threading.Condition()
        self._closed = False

    def add(self, event: Event) -> None:
        with self._changed:
            self._events.append(event)
            self._changed.notify_all()

    def forget(self) -> None:
        """Forgets what has happened so far, of which in days there is more than memory. Numbers go on."""
        with self._changed:
            self._forgotten += len(self._events)
            self._events.clear()

    def close(self) -> None:
        """No more events will come."""
        with self._changed:
            self._closed = True
            self._changed.notify_all()

    def events(self, since: int = 0) -> list[Event]:
        """A snapshot of the events after the one with the number `since`."""
        with self._changed:
            return self._events[max(0, since - self._forgotten):]

    def find(self, what=None, pattern=None, *, since: int = 0, **fields) -> list[Event]:
        """The events that `matcher` describes."""
        fits = matcher(what, pattern, fields)
        return [event for event in self.events(since) if fits(event)]

    def wait_for(self, what=None, pattern=None, *, timeout: float = 10.0, since: int = 0, count: int = 1,
                 **fields) -> Event:
        """The `count`-th event after `since` that `matcher` describes; waits for it up to `timeout` seconds."""
        fits = matcher(what, pattern, fields)
        left = count
        for event in self.follow(since, timeout):
            left -= fits(event)
            if left == 0:
                return event
        wanted = " ".join(str(part) for part in (what, repr(pattern) if pattern else None, fields or None) if part)
        raise DeadlineMissed(f"waited {timeout} s for {wanted}: {count - left} of {count} happened\n{self.dump()}")

    def wait_until(self, condition: Callable[[], object], what: str = "the condition", timeout: float = 10.0):
        """Waits until `condition()` is true and returns its value. It is asked after each event and every 10 ms: use it
        for what no event tells (a file's contents, a process's state)."""
        deadline = time.monotonic() + timeout
        while not (value := condition()):
            if time.monotonic() > deadline:
                raise DeadlineMissed(f"waited {timeout} s for {what}\n{self.dump()}")
            with self._changed:
                self._changed.wait(0.01)
        return value

    def follow(self, since: int = 0, timeout: float | None = None) -> Iterator[Event]:
        """Yields the events after `since` as they come, until the router is closed or the time (seconds) is over."""
        deadline = None if timeout is None else time.monotonic() + timeout
        position = since
        while True:
            with self._changed:
                while position >= self._forgotten + len(self._events):
                    left = None if deadline is None else deadline - time.monotonic()
                    if self._closed or (left is not None and left <= 0):
                        return
                    self._changed.wait(left)
                fresh = self._events[max(0, position - self._forgotten):]
                position = self._forgotten + len(self._events)
            yield from fresh

    def commands(self, since: int = 0) -> list[Command]:
        """The commands that began after `since`, in order, each with what is known of it by now."""
        commands: dict[int, Command] = {}
        for event in self.events(since):
            if event.kind == "command":
                commands[event.number] = Command(event)
            elif event.command in commands:
                commands[event.command]._add(event)
        return list(commands.values())

    def dump(self) -> str:
        """The whole timeline as text, a line for each event."""
        from sandbox.lines import line
        return "\n".join(["---- timeline ----", *(line(event) for event in self.events()), "---- end of timeline ----"])
