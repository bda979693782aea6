"""What the steps look at: packets that are counted and captured, and when runs begin."""

import re
import secrets
import time
from collections.abc import Callable

from lab.lab import Lab, require
from lab.router import DAEMON_ARGUMENTS, PID_FILE, Router
from lab.topology import KINDS, SITE_B
from lab.traffic import Capture

PINGS = 5
SLACK = 30  # seconds; a pass that pings a far end delays a run by 12, and the processor may be an emulated one
COMPLAINT = re.compile(r"charon: .*(decrypt|AUTH\w*FAIL|NO_PROP|no (IKE|matching|shared|private|trusted)|mismatch)")


def count(lab: Lab, kind: str, counter: Callable[[], int]) -> None:
    """Until a burst of echo requests is answered and the counter has seen all of its packets. One burst may not do:
    when both sides begin at once, an IPsec service closes one of two connections, and its counters go with it."""

    def burst() -> bool:
        start = counter()
        return lab.topology.crossing([kind], requests=PINGS) != set() and counter() - start >= 2 * PINGS

    lab.wait(f"{PINGS} echo requests through {KINDS[kind]} answered and counted", burst)


def search_capture(lab: Lab) -> None:
    """Looks on the WAN for what is sent through the tunnel. What is sent beside it must be found, or the search is
    blind."""
    hidden, plain = secrets.token_hex(16), secrets.token_hex(16)
    capture = Capture(lab.topology.network, "wan-a", lab.folder)
    capture.start(lab.wait)
    lab.wait("an echo request through IPsec answered", lambda: lab.topology.crossing(["ipsec"], pattern=hidden))
    lab.a.command("ping", "-c1", "-W5", "-p", plain, SITE_B.wan)
    capture.stop(lab.wait)
    require("the capture holds what is sent beside the tunnel", bytes.fromhex(plain) in capture.contents)
    require("the capture does not hold what is sent through it", bytes.fromhex(hidden) not in capture.contents)


def require_prompt(router: Router, changed: float, period: int) -> None:
    """`router` has just ended the run that its monitor asked for, which looks every `period` seconds."""
    waited, longest = time.monotonic() - changed - router.run_seconds()[-1], period + SLACK
    require(f"the run of {router.name} begins within {longest} s, but after {waited:.0f} s", waited < longest)


def require_told_of_daemon(router: Router, status: dict, running: bool) -> list[str]:
    """That tunnelctl, whose status it is, tells of the daemon what is so; returns its remarks."""
    found = status["daemon"]
    pid, level = (int(router.read(PID_FILE)), int(DAEMON_ARGUMENTS[-1])) if running else (None, None)
    require(f"told of the daemon: {running}, {pid}, {level}, but {found}",
            (found["running"], found["pid"], found["printLevel"]) == (running, pid, level))
    return found["remarks"]


def complaint(router: Router) -> str:
    """The last that the IPsec service did not like."""
    return next((line for line in reversed(router.log()) if COMPLAINT.search(line)), "")
