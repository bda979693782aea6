"""Stopping: SIGTERM ends the daemon soon and removes semaphore and PID file, and the tunnels stay up."""

import signal

import pytest

from daemon_stories import (PID_FILE, PINGED_OPENVPN, RUN_BEGINS, SEMAPHORE, assert_in_order, assert_no_instance,
                            documents, go_on, gre, hold_next_run, refresh, runs, start, wait_for_held_run,
                            wait_for_monitors, wait_until_idle)

SOON = 2.0  # seconds; the loop looks every 200 ms, and the machine may be busy


def seconds_from_sigterm_to_exit(router) -> float:
    return router.find("exit", "daemon")[-1].time - router.find("signal", "SIGTERM")[-1].time


@pytest.mark.asan
@pytest.mark.tsan
def test_sigterm_ends_an_idle_daemon_soon_and_leaves_its_tunnels(make_router):
    router = make_router(documents(gre("one"), gre("two", "203.0.113.8")))
    router.make_ipsec_folders()
    daemon = start(router)
    wait_until_idle(router, daemon, passes=1)
    listing = router.gre_listing()
    assert "one" in listing and "two" in listing
    mark = router.mark()
    assert daemon.terminate() == 0
    assert_no_instance(router)
    assert router.command_texts(mark) == [] and router.gre_listing() == listing
    assert seconds_from_sigterm_to_exit(router) < SOON


def test_the_next_start_after_a_stop_is_a_normal_one(router):
    for _ in range(2):
        daemon = start(router)
        refresh(router, daemon)
        assert daemon.terminate() == 0
        assert_no_instance(router)


@pytest.mark.asan
@pytest.mark.parametrize("first_run", [True, False])
def test_sigterm_during_a_run_frees_the_name_at_once_and_ends_the_daemon_after_the_run(router, first_run):
    """The run is brought to its end: half a rebuild would leave the router with half its tunnels."""
    if not first_run:
        daemon = start(router)
    hold_next_run(router)
    mark = router.mark()
    if first_run:
        daemon = router.daemon("--printlvl", "100")
    else:
        daemon.signal(signal.SIGHUP)
    wait_for_held_run(router, mark)
    daemon.signal(signal.SIGTERM)
    router.wait_until(lambda: not router.exists(PID_FILE) and not router.exists(SEMAPHORE), "the name to be free")
    assert daemon.alive()
    go_on(router)
    assert daemon.wait_exit() == 0
    assert_in_order(router.since(mark), ("log", RUN_BEGINS), ("signal", "SIGTERM"), ("end", "firewall"),
                    ("exit", "daemon"))
    assert runs(router, mark) == 1


def test_no_run_is_begun_after_a_stop(router):
    """A refresh that was requested before the stop is not made up for."""
    hold_next_run(router)
    daemon = router.daemon("--printlvl", "100")
    wait_for_held_run(router)
    daemon.signal(signal.SIGHUP)
    daemon.signal(signal.SIGTERM)
    daemon.signal(signal.SIGHUP)
    go_on(router)
    assert daemon.wait_exit() == 0
    assert runs(router) == 1


def test_a_stop_that_comes_together_with_a_request_is_stronger(router):
    """Both reach the daemon in the same wait of its loop, since it is halted while they are sent."""
    daemon = start(router)
    wait_until_idle(router, daemon, passes=1)
    for number in (signal.SIGSTOP, signal.SIGHUP, signal.SIGTERM, signal.SIGCONT):
        daemon.signal(number)
    assert daemon.wait_exit() == 0
    assert runs(router) == 1


def test_a_daemon_that_is_on_its_way_out_leaves_its_successor_alone(router):
    """A second SIGTERM, and the end of the process, must not remove semaphore and PID file of the instance that
    has started meanwhile."""
    hold_next_run(router)
    leaving = router.daemon("--printlvl", "100")
    wait_for_held_run(router)
    leaving.signal(signal.SIGTERM)
    router.wait_until(lambda: not router.exists(SEMAPHORE), "the name to be free")
    mark = router.mark()
    successor = router.daemon("--printlvl", "100")
    wait_for_monitors(router, mark)
    leaving.signal(signal.SIGTERM)
    go_on(router)
    assert leaving.wait_exit() == 0
    assert router.read_file(PID_FILE) == f"{successor.pid}\n" and router.exists(SEMAPHORE)
    assert router.run().status == 0  # the successor can be signalled
    assert successor.terminate() == 0


def test_other_signals_have_their_usual_effect(router):
    """Only SIGHUP and SIGTERM are the daemon's own."""
    daemon = start(router)
    daemon.signal(signal.SIGUSR1)
    assert daemon.wait_exit() == -signal.SIGUSR1


def test_a_stop_during_a_supervision_pass_ends_the_daemon_after_the_pass(make_router):
    router = make_router(documents(ovpnTunnels=[PINGED_OPENVPN]))
    router.make_ipsec_folders()
    router.program("ping").on(stay=True, times=1)
    daemon = start(router)
    router.wait_for("exec", program="ping")
    daemon.signal(signal.SIGTERM)
    router.wait_until(lambda: not router.exists(PID_FILE), "the PID file to be gone")
    assert daemon.alive()
    router.program("ping").exit()
    assert daemon.wait_exit() == 0
    assert runs(router) == 1
