"""Outside: what happens in a router as a show for people: chapters, and a line for each thing that the program does."""

import os
import pathlib
import signal
import sys
from typing import Callable

from sandbox.router import Router
from sandbox.timeline import Event

LOG_COLOURS = {"ERROR": "31", "WARNING": "33", "TRACE": "90", "DEBUG": "90"}
COMM_LENGTH = 15  # the kernel keeps so much of a process's name


class Show:
    """Prints a router's events in their order. A heading is a mark in the router's timeline, so what stands under it
    has happened after it, and all else before it."""

    def __init__(self, router: Router):
        self._router = router
        self._program = pathlib.Path(router.program_path).name[:COMM_LENGTH]
        self._commands: set[int] = set()  # the program's own, by the numbers of their events
        self._position = 0
        self._coloured = sys.stdout.isatty() and "NO_COLOR" not in os.environ

    def chapter(self, title: str) -> int:
        """Prints what has happened up to now, and then the heading. Returns its number in the timeline."""
        number = self._router.mark(title)
        self.catch_up()
        return number

    def until(self, condition: Callable[[], object], what: str, timeout: float) -> None:
        """Prints what happens until `condition()` is true."""
        def met():
            self.catch_up()
            return condition()
        self._router.wait_until(met, what, timeout)

    def catch_up(self) -> None:
        """Prints what has happened since it was last looked at."""
        for line in self.fresh_lines():
            print(line, flush=True)

    def fresh_lines(self) -> list[str]:
        """What `catch_up` would print; who asks prints it."""
        events = list(self._router.follow(self._position, timeout=0))
        self._position += len(events)
        return [line for event in events if (line := self._line(event)) is not None]

    def _line(self, event: Event) -> str | None:
        if event.kind == "mark":
            return f"\n\033[1;7m {event.text} \033[0m" if self._coloured else f"\n== {event.text}"
        shown = self._shown(event)
        if shown is None:
            return None
        verb, text, colour = shown
        line = f"{event.time:8.3f}  {verb:<5}  {text}"
        return f"\033[{colour}m{line}\033[0m" if self._coloured and colour else line

    def _shown(self, event: Event) -> tuple[str, str, str] | None:
        """What the program does, with what, and a colour; None for what only repeats others or is not the program's."""
        match event.kind:
            case "api":
                return "asks", f"GET {event.text}", "36"
            case "dns":
                return "asks", f"name server for {event.text}: {event.answer}", "36"
            case "command" if event.parent_name == self._program:
                self._commands.add(event.number)
                return "runs", event.text, "1"
            case "end" if event.status != 0 and event.command in self._commands:
                return "fails", f"{outcome(event.status)}: {event.text}", "1;31"
            case "caught" if event.command in self._commands:
                openvpn = " ".join(event.text.split()[:3])
                return "gets", f"{signal.Signals(event.signal).name}: {openvpn}, pid {event.pid}", "33"
            case "signal":
                return "gets", f"{event.text}: {self._program}, pid {event.pid}", "33"
            case "log" if event.ident == "TUNNEL_MNGR" and not announces_command(event):
                text = event.message.removeprefix("[TUNNEL_MNGR]").strip()
                return "logs", f"{event.label or '':<7} {text}", LOG_COLOURS.get(event.label, "")
        return None


def announces_command(event: Event) -> bool:
    """Whether it is the log line that says which command comes next: the command itself is shown."""
    return event.label == "TRACE" and event.message.startswith("[TUNNEL_MNGR] ip ")


def outcome(status: int | None) -> str:
    """How a command that failed has ended; None and negative numbers as the timeline has them."""
    if status is None:
        return "killed"
    return f"status {status}" if status > 0 else f"signal {-status}"
