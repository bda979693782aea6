"""What the steps act on and wait with."""

import contextlib
import pathlib
import time
from collections.abc import Callable, Iterator

from lab import state, told
from lab.router import Router
from lab.topology import KINDS, Topology

POLL_SECONDS = 0.3
START, SECOND_INVOCATION, ANOTHER_WAN = "start", "second invocation", "another WAN"  # of runs, as sandbox/runs.py says


class Unmet(Exception):
    """Something that a step asserts is not so, or not in time."""


def require(what: str, holds: object) -> None:
    if not holds:
        raise Unmet(f"not so: {what}")


def is_cause(cause: str, found: str) -> bool:
    """Whether it is among those that were found. The WAN monitor tells nothing of itself, so it must be alone: nobody
    else has asked."""
    causes = found.split(", ")
    return causes == [cause] if cause == ANOTHER_WAN else cause in causes


class Lab:
    """The topology, a folder for files, and the deadline of the current step on the monotonic clock."""

    def __init__(self, topology: Topology, folder: pathlib.Path):
        self.topology, self.a, self.b = topology, topology.a, topology.b
        self.folder = folder
        self.deadline = 0.0

    def wait(self, what: str, condition: Callable[[], object], why: Callable[[], str] = str) -> None:
        """Until the condition holds; Unmet, with `what` and what `why` returns, when the deadline comes first."""
        while not condition():
            if time.monotonic() > self.deadline:
                raise Unmet(" ".join(filter(None, (f"not in time: {what}", why()))))
            time.sleep(POLL_SECONDS)

    def wait_documented(self, *routers: Router) -> None:
        """Until the routers are what their documents say."""
        for router in routers:
            expected = state.documented(router.documents, self.topology.names)

            def differences() -> str:
                return state.differences(expected, state.observed(router))

            self.wait(f"{router.name} as documented;", lambda: not differences(), differences)

    def wait_told(self, router: Router, expected: dict[str, str | tuple[str, ...]]) -> dict:
        """Until what tunnelctl tells of these tunnels of the router begins like this. Returns all that it tells."""
        return self._wait_told(router, expected, lambda found: {name: found.get(name, "") for name in expected})

    def wait_told_whole(self, router: Router, **others: str | tuple[str, ...]) -> dict:
        """Until it tells of all tunnels of the router, and of no other one, that they are up, or of some what is said
        here."""
        expected = told.whole(router.documents)
        expected |= {name: text for name, text in others.items() if name in expected}
        return self._wait_told(router, expected, lambda found: found)

    def _wait_told(self, router: Router, expected: dict, concerned: Callable[[dict], dict]) -> dict:
        status, different = {}, ""

        def is_told() -> bool:
            nonlocal status, different
            status = router.status()
            different = told.differences(expected, concerned(told.tunnels(status)))
            return not different

        self.wait(f"told of {router.name};", is_told, lambda: different)
        return status

    def wait_crossing(self, *kinds: str) -> None:
        """Until an echo request and its answer have crossed through each of these kinds of tunnels."""
        silent = set(kinds)

        def crossed() -> bool:
            silent.difference_update(self.topology.crossing(silent))
            return not silent

        self.wait("a packet through", crossed, lambda: ", ".join(sorted(KINDS[kind] for kind in silent)))

    def refresh(self, *routers: Router) -> None:
        """Publishes the documents, asks for a run with a second invocation, and waits for its end."""
        with self.run_on(*routers, cause=SECOND_INVOCATION):
            for router in routers:
                router.publish()
                router.refresh()

    @contextlib.contextmanager
    def run_on(self, *routers: Router, cause: str) -> Iterator[None]:
        """What the block does must cause a run on each of the routers; leaving it waits for their ends, and
        requires that this was the cause."""
        before = {router: (router.runs(), router.last_event()) for router in routers}
        yield
        for router, (count, last) in before.items():
            self.wait(f"the end of a run on {router.name}", lambda: router.runs() > count)
            found = router.cause(last)
            require(f"{cause} caused the run on {router.name}, but {found}", is_cause(cause, found))
