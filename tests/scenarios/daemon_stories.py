"""What the stories about the daemon's life share: names, documents, and ways to see what a daemon does and does not
do."""

import pathlib
import signal
import subprocess
import time

import c_library
from sandbox.process import Process
from sandbox.router import Router
from sandbox.timeline import Event

PID_FILE = "/run/tunnel_mngr.pid"
PID_FILE_AS_LOGGED = "/var/run/tunnel_mngr.pid"
SEMAPHORE = c_library.semaphore()
SYSTEM_LOG = "/dev/log"

RUN_BEGINS = "[TUNNEL_MNGR] MANAGING TUNNELS"
MONITORS_START = "[TUNNEL_MNGR] v_apFqdnMonitor size"  # after each run of the daemon; but see `_runs_over`
EXCEPTION = "[TUNNEL_MNGR] Exception caught w\u0410hile waiting on signal"  # the second letter of the word is Cyrillic

ALL_SIGNALS = {number for number in range(1, 32) if number not in (signal.SIGKILL, signal.SIGSTOP)}


# ---- documents ----

def gre(name: str, remote: str = "203.0.113.7", **members) -> dict:
    """A GRE tunnel's record as the API has it; `members` come on top of the least."""
    return {"name": name, "enabled": True, "remoteIp": remote, "ttl": 64} | members


def documents(*tunnels: dict, **members) -> dict:
    """All documents of a router with a WAN and these GRE tunnels."""
    return {"wans": [{"current": True, "ip": "198.51.100.2"}], "greTunnels": list(tunnels), "ipsecTunnels": [],
            "ni": {"nis": []}, "ovpnTunnels": [], "syslog": {"logLevel": 3}} | members


BAD_RECORD = gre("broken", enabled="yes")  # a text where a truth value belongs: reading it throws
# A tunnel with a shared key, whose far end is pinged by each supervision pass.
PINGED_OPENVPN = {"name": "vpn", "enabled": True, "config": "ifconfig 10.8.0.1 10.8.0.2\n"}


# ---- runs ----

def runs(router: Router, since: int = 0) -> int:
    """How many tunnel management runs have begun; the print level must let INFO lines through."""
    return len(router.find("log", RUN_BEGINS, since=since))


def start(router: Router, *arguments: str, level: int = 100) -> Process:
    """A daemon whose first run is over and whose monitors are being started."""
    mark = router.mark("the daemon is started")
    daemon = router.daemon("--printlvl", str(level), *arguments)
    wait_for_monitors(router, mark)
    return daemon


def wait_for_monitors(router: Router, since: int, count: int = 1, timeout: float = 60) -> Event:
    """Waits for the end of the `count`-th run after `since`."""
    return router.wait_for("log", MONITORS_START, since=since, count=count, timeout=timeout)


def refresh(router: Router, daemon: Process) -> int:
    """Has the daemon do one run more and waits for its end; returns the mark before it."""
    mark = router.mark("a refresh is requested")
    daemon.signal(signal.SIGHUP)
    wait_for_monitors(router, mark)
    return mark


def hold_next_run(router: Router) -> None:
    """Has the next run stop at its firewall command until `go_on`; `wait_for_held_run` waits for it to come there."""
    router.program("firewall").on(stay=True, times=1)


def wait_for_held_run(router: Router, since: int = 0) -> None:
    router.wait_for("exec", program="firewall", since=since, timeout=30)


def go_on(router: Router) -> None:
    assert router.program("firewall").exit() == 1


def _runs_over(router: Router) -> int:
    """How many runs have ended. One that throws says so, and then no monitors start; but for the first one, after which
    they are started in any case."""
    started = router.find("log", "STARTING WAN AND FQDN MONITORS")
    thrown = router.find("log", EXCEPTION, since=started[0].number) if started else []
    return len(router.find("log", MONITORS_START)) + len(thrown)


def wait_until_idle(router: Router, daemon: Process, passes: int = 4, timeout: float = 30) -> None:
    """Waits until no run is under way and the daemon has then gone round its loop that many times without beginning
    one. A request that was pending before has become a run by then. A pass blocks once, which the kernel counts, and
    takes 200 ms."""
    counted_from = None  # runs begun, times blocked, time

    def idle() -> bool:
        nonlocal counted_from
        now = (runs(router), times_blocked(router, daemon.pid), time.monotonic())
        if now[0] != _runs_over(router):
            counted_from = None
        elif counted_from is None or counted_from[0] != now[0]:
            counted_from = now
        return (counted_from is not None and now[1] - counted_from[1] >= passes
                and now[2] - counted_from[2] >= 0.15 * passes)

    router.wait_until(idle, f"{passes} idle passes of the loop", timeout)


# ---- processes ----

def _status(router: Router, pid: int, thread: int) -> dict[str, str]:
    text = router.read_file(f"/proc/{pid}/task/{thread}/status")
    return dict(line.split(":\t", 1) for line in (text or "").splitlines() if ":\t" in line)


def times_blocked(router: Router, pid: int) -> int:
    """How often the process's main thread has gone to sleep by itself."""
    return int(_status(router, pid, pid)["voluntary_ctxt_switches"])


def _members(mask: str) -> set[int]:
    """The signals of a mask in proc(5), without the real-time ones, of which the C library keeps some to itself."""
    return {number for number in range(1, 32) if int(mask, 16) >> (number - 1) & 1}


def signal_sets(router: Router, pid: int, thread: int | None = None) -> dict[str, set[int]]:
    """The signals that a thread (the main one if none is given) has "blocked", "ignored" and "caught"."""
    status = _status(router, pid, pid if thread is None else thread)
    return {"blocked": _members(status["SigBlk"]), "ignored": _members(status["SigIgn"]),
            "caught": _members(status["SigCgt"])}


def threads(router: Router, pid: int) -> dict[int, str]:
    """The process's threads but its main one: name by number."""
    numbers = [int(name) for name in router.list_folder(f"/proc/{pid}/task") if int(name) != pid]
    return {number: status["Name"] for number in numbers if (status := _status(router, pid, number))}


def wait_for_threads(router: Router, daemon: Process, count: int, timeout: float = 10) -> dict[int, str]:
    """Waits until the process has that many threads that have given themselves a name, and returns them."""
    own_name = daemon.facts()["name"]

    def named() -> dict[int, str]:
        return {number: name for number, name in threads(router, daemon.pid).items() if name != own_name}

    return router.wait_until(lambda: len(found := named()) == count and found, f"{count} threads", timeout)


# ---- faults that only the C library can have ----

SHIM_HEAD = """
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
__attribute__((constructor)) static void stayOutOfChildren(void) { unsetenv("LD_PRELOAD"); }
"""


def preloaded(folder: pathlib.Path, text: str) -> dict[str, str]:
    """Compiles C functions that take the place of the C library's in the program under test, though not in the commands
    that it runs; returns the environment that puts them there."""
    source, library = folder / "shim.c", folder / "shim.so"
    source.write_text(SHIM_HEAD + text)
    subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source], check=True)
    return {"LD_PRELOAD": str(library)}


# ---- assertions ----

def assert_in_order(events: list[Event], *expected: tuple[str, str]) -> None:
    """Asserts that events of these kinds, with texts that contain these, happened in this order, whatever else happened
    before, between and after them."""
    left = iter(events)
    for kind, text in expected:
        found = any(event.kind == kind and text in event.text for event in left)
        assert found, f"{kind} {text!r} is missing at its place"


def assert_no_instance(router: Router) -> None:
    """Asserts that no instance is to be found."""
    assert not router.exists(SEMAPHORE) and not router.exists(PID_FILE)
