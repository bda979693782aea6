"""Outside: an event as one line for people."""

from sandbox.timeline import Event

COLOURS = {"api": "36", "answer": "36", "dns": "35", "command": "1", "exec": "2", "end": "2", "caught": "33",
           "signal": "33", "start": "32", "exit": "32", "mark": "7"}
LOG_COLOURS = {"err": "31", "warning": "33", "info": "34", "debug": "90"}


def line(event: Event, coloured: bool = False) -> str:
    """Time, kind and what happened; control characters are written as escapes, so it is one line for certain."""
    shown = f"{event.time:9.3f}  {event.kind:<7}  {_escaped(_what(event))}"
    if not coloured:
        return shown
    colour = LOG_COLOURS.get(event.severity) if event.kind == "log" else COLOURS.get(event.kind)
    return f"\033[{colour}m{shown}\033[0m" if colour else shown


def _what(event: Event) -> str:
    match event.kind:
        case "api":
            return f"{event.method} {event.text}"
        case "answer":
            return f"{event.text} <- {event.how} ({event.size} bytes)"
        case "dns":
            return f"{event.text} -> {event.answer}" + (" (held)" if event.held else "")
        case "command":
            return event.text if event.shell else f"{event.text}   [no shell]"
        case "exec":
            return f"{event.program} starts, pid {event.pid}"
        case "caught":
            return f"{event.program}, pid {event.pid}, receives signal {event.signal}"
        case "end":
            how = "is killed" if event.status is None else f"ends with {event.status}"
            return f"{event.program}, pid {event.pid}, {how}"
        case "log":
            return f"{event.severity:<7} {event.ident}: {event.text}"
        case "signal":
            return f"{event.text} to pid {event.pid}"
        case "start":
            return f"{event.text}, pid {event.pid}"
        case "exit":
            left = f", leaves daemon {event.daemons}" if event.daemons else ""
            return f"{event.text}, pid {event.pid}, exits with {event.status}{left}"
    return event.text


def _escaped(text: str) -> str:
    return "".join(c if c.isprintable() else c.encode("unicode_escape", "surrogatepass").decode() for c in text)
