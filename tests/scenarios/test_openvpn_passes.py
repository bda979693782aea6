"""OpenVPN passes give way: a far end that does not answer takes its time, and nothing that matters more waits for all of
them."""

import signal

import pytest

from daemon_stories import RUN_BEGINS, go_on, hold_next_run, start, wait_for_held_run, wait_for_monitors
from openvpn_records import PASS_SECONDS, tunnel, wait_for_children, with_tunnels

PEERS = 20
PING = "ping -c 3 10.8.{}.2"


def daemon_in_a_pass(make_router, count=PEERS):
    """A daemon with that many tunnels whose far ends do not answer, at the first ping of its first pass. A ping goes on
    until it is told to end."""
    router = make_router(with_tunnels(*(tunnel(f"t{n}", f"dev tun\nifconfig 10.8.{n}.1 10.8.{n}.2\n") for n in range(count))))
    router.make_ipsec_folders()
    router.program("ping").on(stay=True, status=1)
    daemon = start(router)
    router.wait_for("exec", PING.format(0))
    return router, daemon


def pings(router, since=0):
    return router.find("exec", program="ping", since=since)


def end_pings_until(router, happened, timeout=30):
    """Ends one ping after the other until something has happened."""
    def told():
        router.program("ping").exit(status=1)
        return happened()
    router.wait_until(told, "what ends the pings", timeout)


@pytest.mark.asan
def test_a_pass_gives_way_to_a_requested_refresh(make_router):
    router, daemon = daemon_in_a_pass(make_router)
    mark = router.mark("a refresh is requested")
    daemon.signal(signal.SIGHUP)
    end_pings_until(router, lambda: router.find("log", RUN_BEGINS, since=mark))
    assert pings(router, mark) == []


@pytest.mark.asan
def test_a_pass_gives_way_to_the_end_of_the_daemon(make_router):
    router, daemon = daemon_in_a_pass(make_router)
    mark = router.mark("the daemon is to end")
    daemon.signal(signal.SIGTERM)
    end_pings_until(router, lambda: not daemon.alive())
    assert daemon.status == 0 and pings(router, mark) == []


@pytest.mark.slow
@pytest.mark.tsan
def test_a_pass_gives_way_to_a_changed_wan(make_router):
    """Twenty dead far ends would keep the run of the changed address waiting for four minutes. The monitor makes its wish
    known a moment after the answer that it got, and has the seconds that a ping takes for it."""
    router, _ = daemon_in_a_pass(make_router)
    mark = router.mark("another WAN")
    router.documents["wans"] = [{"current": True, "ip": "192.0.2.77"}]
    seen = router.wait_for("answer", "waninfo", since=mark, timeout=60)
    router.program("ping").on(status=1, delay=5)
    router.program("ping").exit(status=1)
    router.wait_for("log", RUN_BEGINS, since=mark, timeout=30)
    assert len(pings(router, seen.number)) <= 1


def test_a_pass_that_is_due_while_a_run_is_wanted_comes_after_that(make_router):
    """It is not taken for one that was made: whoever waits for it would wait for the next."""
    router = make_router(with_tunnels(tunnel("t0", "dev tun\nifconfig 10.8.0.1 10.8.0.2\n")))
    router.make_ipsec_folders()
    hold_next_run(router)
    daemon = router.daemon("--printlvl", "100")
    mark = 0
    for _ in range(2):
        wait_for_held_run(router, mark)
        mark = router.mark("a refresh is requested")
        daemon.signal(signal.SIGHUP)
        hold_next_run(router)
        go_on(router)
    wait_for_held_run(router, mark)
    assert pings(router) == []
    go_on(router)
    third = wait_for_monitors(router, 0, count=3)
    assert router.wait_for("exec", PING.format(0)).time - third.time < PASS_SECONDS - 1.2


@pytest.mark.slow
def test_the_next_pass_comes_as_always_and_reaches_those_behind(make_router):
    router, daemon = daemon_in_a_pass(make_router, 3)
    first, = pings(router)
    mark = router.mark("a refresh is requested")
    daemon.signal(signal.SIGHUP)
    router.program("ping").reset()
    router.program("ping").exit(status=1)
    wait_for_children(router, 3, mark)
    for n in range(3):
        router.wait_for("end", PING.format(n), since=mark, timeout=3 * PASS_SECONDS)
    assert [event.text for event in pings(router, mark)] == [PING.format(n) for n in range(3)]
    assert pings(router, mark)[0].time - first.time > PASS_SECONDS - 1.2  # the clock counts whole seconds
