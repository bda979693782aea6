"""Outside: the runs that a timeline tells of, as a table."""

import re
from dataclasses import dataclass, field

from sandbox.api_server import WANS
from sandbox.timeline import Event

TAG = "[TUNNEL_MNGR] "
BEGIN = TAG + "MANAGING TUNNELS"
ENDS = (TAG + "v_apFqdnMonitor size", TAG + "Exception caught")  # the second is of a run that bad documents have ended
HAND_OVER = TAG + "Signaling to process for refresh."
MOVED = re.compile(r"The host \[(.*)\] has resolved to a new ip address")
SAME_WAN = "[TUNNEL_MNGR][WAN_MONITOR] WAN has not changed"

# What is counted of a run, and how the commands begin that do it.
COUNTED = {"removed": "ip tunnel del ", "created": "ip tunnel add ", "addresses": "ip addr add ",
           "routes": "ip route add "}


@dataclass
class Run:
    """One run: why it began, its first and its last event (None while it goes on), and how its commands have ended."""

    cause: str
    begin: Event
    end: Event | None = None
    outcomes: list[tuple[str, int | None]] = field(default_factory=list)  # a command's text and exit status

    def count(self, beginning: str) -> int:
        """How many commands that begin like this have succeeded."""
        return sum(text.startswith(beginning) and status == 0 for text, status in self.outcomes)

    def failures(self) -> int:
        return sum(status != 0 for _, status in self.outcomes)


def runs(events: list[Event]) -> list[Run]:
    """The runs among these events, in order."""
    statuses = {event.command: event.status for event in events if event.kind == "end"}
    found: list[Run] = []
    for position, event in enumerate(events):
        if event.kind == "log" and event.message == BEGIN:
            found.append(Run(_cause(event, events[:position], found), event))
        elif found and found[-1].end is None:
            run = found[-1]
            if event.kind == "command" and event.parent == run.begin.pid and event.number in statuses:
                run.outcomes.append((event.text, statuses[event.number]))
            elif _ends(event, run):
                run.end = event
    return found


def _ends(event: Event, run: Run) -> bool:
    of_it = event.pid == run.begin.pid
    return of_it and (event.kind == "exit" or (event.kind == "log" and event.message.startswith(ENDS)))


def _cause(begin: Event, before: list[Event], earlier: list[Run]) -> str:
    """Why a run began, as far as the log tells. A look at the WAN that has found another one is followed by no line."""
    if begin.pid not in [run.begin.pid for run in earlier]:
        return "single run" if any(event.kind == "start" and event.pid == begin.pid for event in before) else "start"
    last = earlier[-1]
    logged = [event.message for event in before if event.kind == "log" and event.number > last.begin.number]
    causes = ["second invocation"] if HAND_OVER in logged else []
    causes += dict.fromkeys(f"{moved[1]} has moved" for text in logged if (moved := MOVED.search(text)))
    if last.end and _another_wan([event for event in before if event.number > last.end.number]):
        causes.append("another WAN")
    return ", ".join(causes) or "another request"


def _another_wan(events: list[Event]) -> bool:
    another = False
    for event in events:
        if event.kind == "api" and event.text == WANS:
            another = True
        elif event.kind == "log" and event.message == SAME_WAN:
            another = False
    return another


def table(found: list[Run]) -> str:
    """The runs, a line for each."""
    width = max(len(run.cause) for run in found) if found else 0
    width = max(width, len("because of"))
    rows = [f"run  {'because of':<{width}}{'seconds':>9}" + "".join(f"{name:>11}" for name in [*COUNTED, "failures"])]
    for number, run in enumerate(found, 1):
        seconds = f"{run.end.time - run.begin.time:.3f}" if run.end else "goes on"
        counts = [*map(run.count, COUNTED.values()), run.failures()]
        rows.append(f"{number:>3}  {run.cause:<{width}}{seconds:>9}" + "".join(f"{count:>11}" for count in counts))
    return "\n".join(rows)
