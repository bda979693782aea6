"""Ends and starts at every moment: stopped or killed in each phase of a run, the daemon leaves a router that the next
start makes whole. docs/faults.md tells an operator of each."""

import os
import signal
from collections.abc import Callable
from dataclasses import dataclass

import pytest

from daemon_stories import PID_FILE, SEMAPHORE, assert_no_instance, runs, wait_for_monitors, wait_until_idle
from fault_stories import GRE_HOST, Subject, gre_address, publish, shimmed_router, subject
from openvpn_records import PASS_SECONDS, PING, WITH_CA, conf_path, tunnel
from sandbox.process import Process
from sandbox.router import Router

SLOW_RESOLVER = {"resolver_options": "timeout:30 attempts:1"}  # a name that is held is not given up


@dataclass(frozen=True)
class Phase:
    """A point at which a run can be held: how, the event that tells that it is there, and how it goes on."""

    name: str
    hold: Callable[[Router], object]
    reached: tuple[str, str]
    go_on: Callable[[Router], object]

    def __str__(self) -> str:
        return self.name


def in_command(name: str, program: str, arguments: list | None, text: str) -> Phase:
    return Phase(name, lambda router: router.program(program).on(arguments, stay=True, times=1), ("exec", text),
                 lambda router: router.program(program).exit())


def in_request(name: str, document: str, text: str) -> Phase:
    return Phase(name, lambda router: router.api.on(document, hang=True, times=1), ("api", text),
                 lambda router: router.api.release())


PHASES = [
    in_command("lists the tunnels", "ip", ["tunnel"], "ip tunnel"),
    in_request("asks for the OpenVPN tunnels", "openvpn", "fields=ovpnTunnels"),
    in_request("asks for the log level", "syslog", "fields=syslog"),
    in_command("stops IPsec", "ipsec", ["stop"], "ipsec stop"),
    in_request("asks for the WAN", "wans", "/api/waninfo/wans"),
    in_request("asks for the tunnels", "tunnels", "fields=greTunnels"),
    Phase("resolves names", lambda router: router.dns.set(GRE_HOST, gre_address(1), hold=True), ("dns", GRE_HOST),
          lambda router: router.dns.release()),
    in_command("adds a tunnel", "ip", ["tunnel", "add", ...], "ip tunnel add"),
    in_command("adds a route", "ip", ["route", ...], "ip route"),
    in_command("clears the IPsec files", "rm", None, "rm -rf"),
    in_command("starts IPsec", "ipsec", ["restart"], "ipsec restart"),
    in_command("sets up the firewall", "firewall", None, "firewall"),
]
# Only a later run has anything to tear down.
LATER_PHASES = [in_command("deletes a tunnel", "ip", ["tunnel", "del", ...], "ip tunnel del"), *PHASES]


FIRST_RUN_PHASES = [phase for phase in PHASES if phase.name != "asks for the WAN"]  # which the start asks for as well


def reach(router: Router, phase: Phase, begin: Callable[[], object]):
    """Begins a run and waits until it has come to the phase; returns what `begin` returns."""
    phase.hold(router)
    mark = router.mark(phase.name)
    begun = begin()
    router.wait_for(*phase.reached, since=mark, timeout=20)
    return begun


def in_first_run(make_router, phase: Phase) -> tuple[Router, Process]:
    """A daemon that is held at the phase in its first run."""
    router = shimmed_router(make_router, **SLOW_RESOLVER)
    publish(router, 1)
    return router, reach(router, phase, lambda: router.daemon("--printlvl", "100"))


def in_later_run(make_router, phase: Phase) -> tuple[Router, Process]:
    """The same in the run of a refresh."""
    story = subject(make_router, **SLOW_RESOLVER)
    story.change()
    reach(story.router, phase, lambda: story.daemon.signal(signal.SIGHUP))
    return story.router, story.daemon


def assert_a_start_makes_whole(router: Router) -> None:
    story = Subject(router, generation=3)
    assert router.read_file(PID_FILE) == f"{story.daemon.pid}\n" and router.exists(SEMAPHORE)
    story.assert_whole()
    story.assert_ends()


EVERY_PHASE = pytest.mark.parametrize("hold, phase", [
    *(pytest.param(in_first_run, phase, id=f"the first run {phase}") for phase in FIRST_RUN_PHASES),
    *(pytest.param(in_later_run, phase, id=f"a later run {phase}") for phase in LATER_PHASES)])


@EVERY_PHASE
def test_a_daemon_that_is_stopped_in_a_run_ends_with_it(make_router, hold, phase):
    """The instance's name is free at once."""
    router, daemon = hold(make_router, phase)
    daemon.signal(signal.SIGTERM)
    router.wait_until(lambda: not router.exists(PID_FILE) and not router.exists(SEMAPHORE), "the name to be free")
    assert daemon.alive()
    phase.go_on(router)
    assert daemon.wait_exit() == 0
    assert_no_instance(router)
    assert_a_start_makes_whole(router)


def assert_killed_and_cleared_away(router: Router, process: Process, go_on: Callable[[], object] = lambda: None) -> None:
    """Kills it, has that go on which it was waiting for, and starts it again: that removes its semaphore and PID file
    and does no more."""
    process.signal(signal.SIGKILL)
    assert process.wait_exit() == -signal.SIGKILL
    assert router.exists(SEMAPHORE)
    go_on()
    children = router.find("exec", program="openvpn")
    router.wait_until(lambda: not any(router.process(child.pid).alive() for child in children), "the children's end")
    mark = router.mark("the next start")
    assert router.run("--daemonize").status == 1
    assert_no_instance(router)
    assert router.commands(mark) == []


@EVERY_PHASE
def test_a_daemon_that_is_killed_in_a_run_is_made_good_by_the_start_after_the_next(make_router, hold, phase):
    router, daemon = hold(make_router, phase)
    assert_killed_and_cleared_away(router, daemon)
    phase.go_on(router)  # the command that it was waiting for is still there
    assert_a_start_makes_whole(router)


def test_a_daemon_that_is_killed_while_an_openvpn_does_not_leave(make_router):
    """The one that is being ended, and one that the daemon has not come to, which it takes with it."""
    story = subject(make_router)
    router, daemon = story.router, story.daemon
    router.documents["ovpnTunnels"] = [tunnel("stubborn", WITH_CA), tunnel("other", WITH_CA)]
    router.program("openvpn").on(["--config", conf_path("stubborn"), ...], stay=True, ignore_term=True, times=1)
    mark = story.run()
    stubborn, other = (router.wait_for("exec", conf_path(name), since=mark).pid for name in ("stubborn", "other"))
    daemon.signal(signal.SIGHUP)
    router.wait_for("caught", pid=stubborn, since=mark)
    assert router.process(other).alive()
    assert_killed_and_cleared_away(router, daemon, lambda: router.program("openvpn").exit(pid=stubborn))
    assert_a_start_makes_whole(router)


def test_a_daemon_that_is_killed_in_a_pass_over_the_openvpn_tunnels(make_router):
    story = subject(make_router)
    router, daemon = story.router, story.daemon
    router.documents["ovpnTunnels"] = [tunnel("pinged")]
    router.program("ping").on(stay=True, times=1)
    story.run()
    story.step_clock(PASS_SECONDS + 1)
    router.wait_for("exec", PING)
    assert_killed_and_cleared_away(router, daemon, lambda: router.program("ping").exit())
    assert_a_start_makes_whole(router)


def test_a_daemon_that_is_killed_at_rest(make_router):
    story = subject(make_router)
    assert_killed_and_cleared_away(story.router, story.daemon)
    assert_a_start_makes_whole(story.router)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
def test_a_start_that_is_ended_before_it_is_a_daemon(make_router, number):
    """It has the semaphore and waits for the WAN list; nothing is torn down yet."""
    router = shimmed_router(make_router)
    router.api.on("wans", hang=True, times=1)
    starting = router.start("--daemonize")
    router.wait_for("api", "wans")
    starting.signal(number)
    assert starting.wait_exit() == -number
    assert router.run("--daemonize").status == 1
    assert_no_instance(router)
    assert router.commands() == []
    assert_a_start_makes_whole(router)


def test_a_daemon_that_is_stopped_while_an_openvpn_does_not_leave_ends_with_that(make_router):
    story = subject(make_router, **SLOW_RESOLVER)
    router, daemon = story.router, story.daemon
    router.program("openvpn").on(stay=True, ignore_term=True, times=1)
    mark = story.run()
    stubborn = router.wait_for("exec", program="openvpn", since=mark).pid
    daemon.signal(signal.SIGHUP)
    router.wait_for("caught", pid=stubborn, since=mark)
    daemon.signal(signal.SIGTERM)
    router.wait_until(lambda: not router.exists(PID_FILE) and not router.exists(SEMAPHORE), "the name to be free")
    router.wait_for("caught", pid=stubborn, since=mark, count=5)
    assert daemon.alive() and router.program("openvpn").exit(pid=stubborn) == 1
    assert daemon.wait_exit() == 0
    assert_a_start_makes_whole(router)


# ---- signals and starts that come together ----

@pytest.mark.asan
def test_a_storm_of_requests_leaves_the_router_whole(make_router):
    story = subject(make_router)
    router, host_pid = story.router, story.daemon.host_pid
    mark = router.mark("the storm")
    for _ in range(5):
        begun = runs(router, mark)
        for _ in range(200):
            os.kill(host_pid, signal.SIGHUP)
        router.wait_until(lambda: runs(router, mark) > begun, "a run in the storm")
    wait_until_idle(router, story.daemon)
    story.assert_whole()
    for _ in range(200):
        os.kill(host_pid, signal.SIGHUP)
    story.assert_ends()


def test_two_starts_at_once_give_one_daemon(make_router):
    """The second finds the first without a PID file, takes it for dead and removes its semaphore. The first goes on, and
    obeys signals; that it runs is seen again by starts after it has been restarted."""
    router = shimmed_router(make_router)
    publish(router, 1)
    router.api.on("wans", hang=True, times=1)
    first = router.start("--daemonize", "--printlvl", "100")
    router.wait_for("api", "wans")
    assert router.run("--daemonize").status == 1
    assert not router.exists(SEMAPHORE)
    mark = router.mark("the first goes on")
    router.api.release()
    assert first.wait_exit() == 0
    daemon = router.process(router.wait_for("exit", pid=first.pid).daemons[0])
    wait_for_monitors(router, mark)
    assert router.read_file(PID_FILE) == f"{daemon.pid}\n"
    mark = router.mark("a refresh")
    daemon.signal(signal.SIGHUP)
    wait_for_monitors(router, mark)
    assert daemon.terminate() == 0
    assert_a_start_makes_whole(router)


def test_starts_at_once_while_a_daemon_runs_become_two_refreshes_at_most(make_router):
    """All of them hand over to it."""
    story = subject(make_router)
    router = story.router
    story.change()
    phase = PHASES[0]
    starts = reach(router, phase, lambda: [router.start(*how) for how in (["--daemonize"], []) * 3])
    for start in starts:
        assert start.wait_exit() == 0
    assert story.daemon.alive() and phase.go_on(router) == 1
    wait_until_idle(router, story.daemon)
    assert runs(router, 0) <= 1 + 2  # the first, the one that was held, and one for all that came during it
    story.assert_whole()
    story.assert_ends()
