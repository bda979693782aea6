"""Inside the router: facts about processes, from /proc (proc(5))."""

import contextlib
import os


def _read(path: str) -> str | None:
    try:
        with open(path, errors="surrogateescape") as file:
            return file.read()
    except (FileNotFoundError, ProcessLookupError):
        return None


def _stat(pid: int | str) -> list[str] | None:
    """The fields after the name: state, parent, group, session, ..."""
    text = _read(f"/proc/{pid}/stat")
    return text.rpartition(")")[2].split() if text else None


def children(parent: int, zombies: bool = False) -> list[int]:
    """The pids of a process's children in ascending order: the living ones, or those that have ended and were not
    waited for."""
    pids = [int(name) for name in os.listdir("/proc") if name.isdigit()]
    facts_of = ((pid, _stat(pid)) for pid in pids)
    return sorted(pid for pid, stat in facts_of if stat and int(stat[1]) == parent and (stat[0] == "Z") == zombies)


def facts(pid: int) -> dict | None:
    """What `Process.facts` (process.py) returns; None when the process is gone."""
    try:
        return _facts(pid)
    except (FileNotFoundError, ProcessLookupError):
        return None  # it has gone while we looked


def _facts(pid: int) -> dict | None:
    stat, status = _stat(pid), _read(f"/proc/{pid}/status")
    if not stat or not status:
        return None
    values = dict(line.split(":\t", 1) for line in status.splitlines() if ":\t" in line)
    ended = stat[0] in "ZX"
    names = [_read(f"/proc/{pid}/task/{task}/comm") for task in sorted(os.listdir(f"/proc/{pid}/task"), key=int)]
    return {"state": stat[0], "parent": int(stat[1]), "group": int(stat[2]), "session": int(stat[3]),
            "threads": int(values["Threads"]), "thread_names": [name.rstrip("\n") for name in names if name],
            "descriptors": {} if ended else _descriptors(pid), "rss_kib": int(values.get("VmRSS", "0 kB").split()[0]),
            "name": values["Name"], "umask": values.get("Umask", ""),  # a process on its way out has none
            "directory": "" if ended else os.readlink(f"/proc/{pid}/cwd"),
            "argv": (_read(f"/proc/{pid}/cmdline") or "").split("\0")[:-1]}


def _descriptors(pid: int) -> dict[int, str]:
    """What each descriptor is of; one that was closed while we looked is left out."""
    found = {}
    for number in os.listdir(f"/proc/{pid}/fd"):
        with contextlib.suppress(FileNotFoundError):
            found[int(number)] = os.readlink(f"/proc/{pid}/fd/{number}")
    return found
