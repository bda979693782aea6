"""Faults of the programs that the daemon runs: each missing, failing, killed and slow. What one of them does not
achieve is missing on the router until the next run, and nothing else. docs/faults.md tells an operator of each."""

import dataclasses
import itertools
import signal

import pytest

from daemon_stories import PID_FILE, RUN_BEGINS, assert_no_instance
from fault_stories import ALL_UP, RUN_ENDS, Fault, Subject, assert_survived, subject
from openvpn_records import PING, connect_path, tunnel
from tunnel_records import TAG, lines

NO_EXEC = f"{TAG}[OVPN] failed exec openvpn"
PING_SAID = f"{TAG}[OVPN] ping 10.8.0.2"


def missing(program: str, **outcome) -> Fault:
    return Fault(f"{program} is missing", lambda subject: subject.router.program(program).missing(),
                 lambda subject: subject.router.program(program).restore(), warnings=[], **outcome)


def behaves(program: str, what: str, arguments: list | None = None, *, how: dict, errors=(), **outcome) -> Fault:
    return Fault(f"{program} {what}", lambda subject: subject.router.program(program).on(arguments, **how),
                 lambda subject: subject.router.program(program).reset(), errors=list(errors), warnings=[], **outcome)


def without_passes(fault: Fault) -> Fault:
    return dataclasses.replace(fault, inject=lambda subject: [subject.put_off_passes(), fault.inject(subject)])


def no_list(status: int) -> list[str]:
    return [f"{TAG} error executing ip tunnel command [{status}]"]


FAILS, KILLED, SLOW = {"status": 1}, {"status": -signal.SIGKILL}, {"delay": 0.3}
LIST = ["tunnel"]
FAULTS = [
    missing("ip", errors=no_list(127)),
    behaves("ip", "cannot list", LIST, how=FAILS, errors=no_list(1)),
    behaves("ip", "is killed while it lists", LIST, how=KILLED, errors=no_list(137)),
    behaves("ip", "cannot add", ["tunnel", "add", ...], how=FAILS, up=ALL_UP - {"gre"}),
    behaves("ip", "is killed while it adds", ["tunnel", "add", ...], how=KILLED, up=ALL_UP - {"gre"}),
    behaves("ip", "cannot delete", ["tunnel", "del", ...], how=FAILS),
    behaves("ip", "cannot set links", ["link", ...], how=FAILS),
    behaves("ip", "cannot assign addresses", ["addr", ...], how=FAILS),
    behaves("ip", "cannot route", ["route", ...], how=FAILS),
    behaves("ip", "is slow", how=SLOW),
    missing("ipsec", errors=[]),
    behaves("ipsec", "fails", how=FAILS),
    behaves("ipsec", "is killed as it restarts", ["restart"], how=KILLED, up=ALL_UP - {"ipsec"}),
    behaves("ipsec", "is slow", how=SLOW),
    missing("firewall", errors=[]),
    behaves("firewall", "fails", how=FAILS),
    behaves("firewall", "is slow", how=SLOW),
    missing("rm", errors=[]),
    behaves("rm", "fails", how=FAILS),
    without_passes(missing("openvpn", up=ALL_UP - {"openvpn"})),
    without_passes(behaves("openvpn", "fails", how=FAILS, up=ALL_UP - {"openvpn"})),
    behaves("openvpn", "is slow to leave", how={"stay": True, "term_delay": 0.3}),
]


@pytest.mark.parametrize("fault", FAULTS, ids=str)
def test_a_program_that_does_not_do_its_work(make_router, fault):
    assert_survived(subject(make_router), fault)


# ---- openvpn and ping, which the passes between the runs look after ----

def passes(story: Subject):
    """Steps the clock on by what lies between two passes, each time it is asked."""
    for number in itertools.count(1):
        story.step_clock(12 * number)
        yield number


@pytest.mark.parametrize("fault", [missing("openvpn"), behaves("openvpn", "fails", how=FAILS)], ids=str)
def test_an_openvpn_that_cannot_be_started_is_tried_by_each_pass(make_router, fault):
    """Without a refresh."""
    story = subject(make_router)
    router, clock = story.router, passes(story)
    fault.inject(story)
    child, = story.living_children()
    mark = router.mark("the child is killed")
    router.process(child).signal(signal.SIGKILL)
    for tries in (1, 2, 3):
        next(clock)
        if fault.name == "openvpn is missing":
            router.wait_for("log", NO_EXEC, since=mark, count=tries)
        else:
            router.wait_for("end", program="openvpn", since=mark, status=1, count=tries)
    mark = router.mark("to be healed")
    fault.heal(story)
    next(clock)
    router.wait_for("exec", program="openvpn", since=mark)
    router.wait_until(lambda: len(story.living_children()) == 1 and story.daemon.zombies() == [], "one child")
    story.assert_whole()
    story.assert_ends()


@pytest.mark.parametrize("fault", [missing("ping"), *(behaves("ping", what, how=how) for what, how in [
    ("fails", FAILS), ("is killed", KILLED), ("cannot resolve", {"status": 2, "stderr": "?"})])], ids=str)
def test_a_ping_that_does_not_reach_is_recorded_and_changes_nothing_else(make_router, fault):
    story = subject(make_router)
    router, clock = story.router, passes(story)
    router.documents["ovpnTunnels"] = [tunnel("point")]
    mark = story.run()
    next(clock)
    router.wait_until(lambda: router.read_file(connect_path("point")) == "connected", "the far end")
    fault.inject(story)
    next(clock)
    router.wait_until(lambda: router.read_file(connect_path("point")) == "", "the failure")
    assert len(router.find("exec", program="openvpn", since=mark)) == 1
    fault.heal(story)
    next(clock)
    router.wait_until(lambda: router.read_file(connect_path("point")) == "connected", "the far end again")
    assert set(lines(router, "ERROR", mark)) == {PING_SAID} and len(story.living_children()) == 1
    story.assert_whole()
    story.assert_ends()


def test_a_ping_that_hangs_delays_what_is_asked_for_and_loses_none(make_router):
    """A refresh and a stop: both are obeyed when it has ended."""
    story = subject(make_router)
    story.put_off_passes()  # while nothing is pinged yet
    router, clock = story.router, passes(story)
    router.documents["ovpnTunnels"] = [tunnel("point")]
    story.run()
    for request in ("refresh", "stop"):
        router.program("ping").on(stay=True, times=1)
        mark = router.mark(request)
        next(clock)
        router.wait_for("exec", PING, since=mark)
        if request == "refresh":
            story.change()
            story.daemon.signal(signal.SIGHUP)
            router.program("ping").exit()
            begun = router.wait_for("log", RUN_BEGINS, since=mark)
            router.wait_for("log", RUN_ENDS, since=begun.number)
            story.assert_built(begun.number, ["gre1"])
            router.documents["ovpnTunnels"] = [tunnel("point")]
            story.run()
        else:
            story.daemon.signal(signal.SIGTERM)
            router.wait_until(lambda: not router.exists(PID_FILE), "the name to be free")
            router.program("ping").exit()
            assert story.daemon.wait_exit() == 0
    assert_no_instance(router)
