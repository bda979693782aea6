"""Threads and signals: signals reach the main thread only, whatever they interrupt, and stopping a monitor never waits
for what the monitor waits for."""

import os
import random
import signal
import time

import pytest

from daemon_stories import (ALL_SIGNALS, EXCEPTION, MONITORS_START, PINGED_OPENVPN, RUN_BEGINS, assert_no_instance,
                            documents, gre, preloaded, refresh, runs, signal_sets, start, threads, wait_for_monitors,
                            wait_for_threads, wait_until_idle)
from sandbox.process import Process
from sandbox.router import Router
from sandbox.timeline import Event

FIRST_CHECK = 75  # seconds until monitors with the shortest period, a minute, have looked their names up, and some more
FIRST_WAN_CHECK = 45  # the same for the WAN monitor and its half minute
NOTHING = {"blocked": set(), "ignored": set(), "caught": set()}


def signals_of(event: Event) -> dict[str, set[int]]:
    """The signal sets that a command was started with, without the real-time signals."""
    return {key: {number for number in numbers if number < 32} for key, numbers in event.details["signals"].items()}


def named_tunnels(count: int) -> list[dict]:
    return [gre(f"t{number}", f"host{number}.example", checkPeriod=1) for number in range(count)]


def set_names(router: Router, count: int, third_octet: int) -> None:
    """Gives each of the tunnels' hosts an address of its own in a network."""
    for number in range(count):
        router.dns.set(f"host{number}.example", f"203.0.{third_octet}.{number + 1}")


def daemon_with_named_tunnels(make_router, count: int, **members) -> tuple[Router, Process]:
    """A daemon with that many FQDN monitors, all of them asleep for a minute. Names that the name server does not
    answer keep the resolver busy for longer than any test lasts."""
    router = make_router(documents(*named_tunnels(count), **members), resolver_options="timeout:30 attempts:3")
    router.make_ipsec_folders()
    set_names(router, count, 1)
    daemon = start(router)
    return router, daemon


# ---- masks and dispositions ----

def test_monitor_threads_block_every_signal_and_the_main_thread_none(make_router):
    """A handler that ran on a monitor's thread would not interrupt the loop's wait, and one that ran inside the
    monitor's lock could not be reasoned about."""
    router = make_router(documents(gre("one"), gre("two", "203.0.113.8")))
    router.make_ipsec_folders()
    daemon = start(router)
    for _ in range(2):
        for thread in wait_for_threads(router, daemon, 3):
            assert signal_sets(router, daemon.pid, thread)["blocked"] == ALL_SIGNALS
        main = signal_sets(router, daemon.pid)
        assert main == {"blocked": set(), "ignored": set(), "caught": {signal.SIGHUP, signal.SIGTERM}}
        refresh(router, daemon)


def test_commands_start_with_default_signals(make_router):
    """In the first run, when no thread is there yet, and in later ones. The shell hands dispositions on but no mask;
    the child that openvpn becomes has both from the daemon."""
    router = make_router(documents(gre("one"), ovpnTunnels=[PINGED_OPENVPN]))
    router.make_ipsec_folders()
    for name in ("ip", "firewall", "ipsec", "ping"):
        router.program(name).inspect()
    daemon = start(router)
    router.wait_for("exec", program="ping")
    mark = refresh(router, daemon)
    router.wait_for("exec", program="openvpn", since=mark)
    inspected = [event for event in router.find("exec") if event.program != "rm"]
    assert {event.program for event in inspected} == {"ip", "firewall", "ipsec", "ping", "openvpn"}
    for event in inspected:
        assert signals_of(event) == NOTHING, event


def test_what_the_starter_has_blocked_or_ignored_stays_so(make_router):
    """The main thread's mask and dispositions are its starter's business, and the daemon's children inherit them."""
    router = make_router(documents(ovpnTunnels=[PINGED_OPENVPN]),
                         wrapper=["env", "--ignore-signal=INT", "--block-signal=USR1"])
    router.make_ipsec_folders()
    started = router.start("--daemonize", "--printlvl", "100")
    daemon = router.process(router.wait_for("exit", pid=started.pid).daemons[0])
    router.wait_for("exec", program="openvpn")
    refresh(router, daemon)
    expected = {"blocked": {signal.SIGUSR1}, "ignored": {signal.SIGINT}}
    # While a command runs, system(3) ignores and blocks some signals more.
    router.wait_until(lambda: signal_sets(router, daemon.pid) == expected | {"caught": {signal.SIGHUP, signal.SIGTERM}},
                      "the mask and the dispositions of the starter")
    router.wait_for("exec", program="openvpn", count=2)
    for event in router.find("exec", program="openvpn"):
        assert signals_of(event) == expected | {"caught": set()}


@pytest.mark.slow
def test_a_request_of_the_wan_monitor_changes_no_signal_of_the_process(router):
    """Left to itself the HTTP library ignores SIGPIPE for the whole process while it transfers, and a command that was
    started then would keep that: a script's pipeline would no longer end when its reader does."""
    router.program("firewall").inspect()
    daemon = start(router)
    router.api.on("wans", hang=True, times=1)
    mark = router.mark()
    router.wait_for("api", "/api/waninfo/wans", since=mark, timeout=FIRST_WAN_CHECK)
    assert signal_sets(router, daemon.pid)["ignored"] == set()
    for thread in threads(router, daemon.pid):  # the monitor's and the one that waits for the answer
        assert signal_sets(router, daemon.pid, thread)["blocked"] == ALL_SIGNALS
    refresh(router, daemon)
    assert signals_of(router.find("exec", program="firewall")[-1]) == NOTHING


# ---- signals at any moment ----

@pytest.mark.asan
@pytest.mark.tsan
def test_thousands_of_sighups_at_random_moments_do_no_harm(make_router):
    """They interrupt everything: memory allocation, logging, locks, forking, requests. A handler that did more than it
    may would sooner or later meet itself or a lock that its own thread holds, and the daemon would stand still."""
    seed = random.randrange(1 << 32)
    print("seed", seed)
    moments = random.Random(seed)
    router = make_router(documents(*(gre(f"t{number}", f"203.0.113.{number + 1}") for number in range(4))))
    router.make_ipsec_folders()
    daemon = start(router)
    host_pid = daemon.host_pid
    mark = router.mark("the storm begins")
    for _ in range(3000):
        os.kill(host_pid, signal.SIGHUP)
        time.sleep(moments.choice((0, 0, 0.0001, 0.001, 0.003)))
    wait_until_idle(router, daemon)
    assert runs(router, mark) == len(router.find("log", MONITORS_START, since=mark)) > 1
    router.documents["greTunnels"] = [gre("after")]
    mark = refresh(router, daemon)
    assert "ip link set after up" in router.command_texts(mark)
    for _ in range(200):
        os.kill(host_pid, signal.SIGHUP)
    daemon.signal(signal.SIGTERM)
    for _ in range(200):
        try:
            os.kill(host_pid, signal.SIGHUP)
        except ProcessLookupError:
            break  # it has left already
    assert daemon.wait_exit(timeout=20) == 0
    assert_no_instance(router)


# ---- stopping monitors ----

@pytest.mark.slow
@pytest.mark.asan
@pytest.mark.tsan
def test_fifty_monitors_inside_a_look_up_are_stopped_at_once(make_router):
    """The name server has gone silent, as it does when the WAN is down, and each monitor hangs in its look-up for half
    a minute at least. A loop that waited for them would be deaf for all that time, just when a refresh is needed."""
    router, daemon = daemon_with_named_tunnels(make_router, 50)
    for number in range(50):
        router.dns.set(f"host{number}.example", "SILENT")
    mark = router.mark("the name server is silent")
    router.wait_for("dns", since=mark, count=50, timeout=FIRST_CHECK)
    router.documents["greTunnels"] = [gre("dotted")] + named_tunnels(50)
    set_names(router, 50, 2)  # the run itself resolves them, too

    mark = router.mark("refreshes are requested")
    for _ in range(20):
        daemon.signal(signal.SIGHUP)
    begin = router.wait_for("log", RUN_BEGINS, since=mark)
    assert len([event for event in router.find("log", " stop ", since=mark) if event.number < begin.number]) == 50
    # The abandoned look-ups still go on: fifty threads, besides the main one and the WAN monitor.
    assert daemon.threads() >= 52
    assert begin.time - router.find("mark")[-1].time < 10  # against the thirty seconds of one look-up
    assert wait_for_monitors(router, mark).message.endswith(" size 51")
    assert daemon.terminate(60) == 0  # where signals came during the first run, a second one is under way
    assert_no_instance(router)


@pytest.mark.slow
@pytest.mark.tsan
@pytest.mark.parametrize("request_", [signal.SIGHUP, signal.SIGTERM], ids=["SIGHUP", "SIGTERM"])
def test_monitors_that_wait_for_the_lock_are_stopped(make_router, request_):
    """A supervision pass, here one whose ping hangs, holds the lock. Meanwhile all names have changed, and each monitor
    waits for the lock to request a refresh. The loop, which stops them with the lock in its hands, would wait for ever
    for a monitor that went on waiting."""
    count = 20
    router = make_router(documents(*named_tunnels(count), ovpnTunnels=[PINGED_OPENVPN]))
    router.make_ipsec_folders()
    set_names(router, count, 1)
    router.program("ping").on(stay=True, times=1)
    daemon = start(router)
    router.wait_for("exec", program="ping")
    set_names(router, count, 2)
    mark = router.mark("all names have changed")
    router.wait_for("log", "has resolved to a new ip address", since=mark, count=count, timeout=FIRST_CHECK)
    daemon.signal(request_)
    router.program("ping").exit()
    router.wait_for("log", " stop ", since=mark, count=count)
    if request_ == signal.SIGHUP:
        wait_for_monitors(router, mark)
        wait_until_idle(router, daemon)
        assert runs(router, mark) == 1  # which has seen all that the monitors saw
        assert "remote 203.0.2.1 " in router.find("command", "ip tunnel add t0")[-1].text
        daemon.signal(signal.SIGTERM)
    assert daemon.wait_exit() == 0
    assert not router.find("log", EXCEPTION)


NO_THREADS = """
#include <pthread.h>
int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument) {
  return EAGAIN;
}
"""


def test_a_daemon_without_threads_still_obeys_signals(make_router, tmp_path):
    """It says which monitors are missing, resolves names one after the other, and stops what was never started."""
    router = make_router(documents(gre("one", "host0.example"), gre("two", "host1.example")),
                         environment=preloaded(tmp_path, NO_THREADS))
    router.make_ipsec_folders()
    set_names(router, 2, 1)
    daemon = start(router)
    router.wait_for("log", "FQDN_MONITOR:two")
    assert router.messages("ERROR") == [f"[TUNNEL_MNGR] unable to start the thread {name}"
                                        for name in ("WAN_MONITOR", "FQDN_MONITOR:one", "FQDN_MONITOR:two")]
    mark = refresh(router, daemon)
    assert "ip tunnel add two mode gre remote 203.0.1.2 local 198.51.100.2 ttl 64" in router.command_texts(mark)
    assert daemon.terminate() == 0
