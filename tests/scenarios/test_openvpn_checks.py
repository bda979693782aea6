"""OpenVPN checks: between runs dead children come back, and tunnels between two points tell whether they reach their far
end. Passes are at least eleven seconds apart, so these stories mostly wait."""

import signal

import pytest

from daemon_stories import refresh, runs, start, wait_until_idle
from openvpn_records import (PASS_SECONDS, PING, STATIC_KEY, WITH_CA, children, connect_path, is_there, tunnel,
                             wait_for_children, with_tunnels)

PING_SAID = "[TUNNEL_MNGR][OVPN] ping 10.8.0.2"


def daemon_with(make_router, *tunnels):
    router = make_router(with_tunnels(*tunnels))
    router.make_ipsec_folders()
    return router, start(router)


def pings(router, since=0):
    return [command for command in router.commands(since) if command.text.startswith("ping ")]


@pytest.mark.asan
def test_the_first_pass_comes_with_the_first_round_of_the_loop(make_router):
    """Its line is an ERROR, whatever the level of what it tells, so it is seen at the lowest print level."""
    router = make_router(with_tunnels(tunnel("office")))
    router.make_ipsec_folders()
    router.daemon()
    router.wait_for("log", PING_SAID)
    router.wait_until(lambda: router.read_file(connect_path("office")) == "connected", "the outcome")
    assert [command.text for command in pings(router)] == [PING]
    assert PING_SAID in router.messages("ERROR")


@pytest.mark.slow
def test_passes_are_at_least_eleven_seconds_apart_whatever_is_refreshed(make_router):
    """The far end goes away and comes back, which changes the connect file and nothing else."""
    router, daemon = daemon_with(make_router, tunnel("office"))
    router.wait_until(lambda: router.read_file(connect_path("office")) == "connected", "the first outcome")
    child = wait_for_children(router, 1)[0]
    router.program("ping").on(status=1, times=1)
    router.wait_until(lambda: router.read_file(connect_path("office")) == "", "the second outcome", 3 * PASS_SECONDS)
    assert is_there(router, child) and len(children(router)) == 1
    refresh(router, daemon)
    router.wait_until(lambda: router.read_file(connect_path("office")) == "connected", "the third", 3 * PASS_SECONDS)
    times = [event.time for event in router.find("log", PING_SAID)]
    # The clock counts whole seconds, so what is eleven to it may be ten and a little; and a line may be seen late.
    assert len(times) == 3 and all(later - earlier > 9.8 for earlier, later in zip(times, times[1:]))


@pytest.mark.slow
def test_a_dead_child_is_restarted_and_not_pinged_by_the_same_pass(make_router):
    router, daemon = daemon_with(make_router, tunnel("dead"), tunnel("well", "ifconfig 10.8.1.1 10.8.1.2\n"))
    first = wait_for_children(router, 2)
    router.wait_for("end", "ping -c 3 10.8.1.2")
    dead = next(event for event in first if event.argv[2].endswith("_dead.conf"))
    mark = router.mark("the child is killed")
    router.process(dead.pid).signal(signal.SIGKILL)
    again = wait_for_children(router, 1, mark, timeout=3 * PASS_SECONDS)[0]
    assert again.argv == dead.argv and again.pid != dead.pid
    router.wait_for("end", "ping -c 3 10.8.1.2", since=mark, timeout=3 * PASS_SECONDS)
    assert [command.text for command in pings(router, mark)] == ["ping -c 3 10.8.1.2"]
    router.wait_for("exec", PING, since=mark, timeout=3 * PASS_SECONDS)
    assert len(children(router, mark)) == 1 and daemon.alive()


@pytest.mark.parametrize("config", [WITH_CA, "dev tun\n", "ifconfig\n"])
def test_what_has_no_far_end_to_ping_is_never_pinged(make_router, config):
    """A tunnel behind it in the list is, so the pass has come by."""
    router, _ = daemon_with(make_router, tunnel("quiet", config), tunnel("office"))
    router.wait_for("end", PING)
    assert [command.text for command in pings(router)] == [PING]
    assert not router.exists(connect_path("quiet"))


@pytest.mark.parametrize("config, address", [
    ("ifconfig 10.8.0.1\n", "10.8.0.1"),
    ("ifconfig 10.8.0.1 255.255.255.0\n", "255.255.255.0"),
])
def test_the_second_word_is_pinged_whatever_it_is(make_router, config, address):
    router, _ = daemon_with(make_router, tunnel("office", config))
    router.wait_for("exec", f"ping -c 3 {address}")


def test_a_connect_file_that_cannot_be_opened_keeps_no_other_tunnel_from_being_checked(make_router):
    router = make_router(with_tunnels(tunnel("bad"), tunnel("good")))
    router.make_ipsec_folders()
    router.make_folder(connect_path("bad"))
    daemon = start(router)
    router.wait_until(lambda: router.read_file(connect_path("good")) == "connected", "the good one's outcome")
    assert daemon.alive()


def test_connect_files_of_an_earlier_run_stay_until_the_first_ping(make_router):
    router = make_router(with_tunnels(tunnel("office")))
    router.make_ipsec_folders()
    router.write_file(connect_path("office"), "of old")
    router.program("ping").on(stay=True)
    start(router)
    router.wait_for("exec", PING)
    assert router.read_file(connect_path("office")) == "of old"
    router.program("ping").exit(status=2)
    router.wait_until(lambda: router.read_file(connect_path("office")) == "", "the outcome")


def test_a_ping_delays_a_refresh_and_loses_none(make_router):
    router = make_router(with_tunnels(tunnel("office")))
    router.make_ipsec_folders()
    router.program("ping").on(stay=True, times=1)
    daemon = start(router)
    router.wait_for("exec", PING)
    mark = router.mark()
    for _ in range(2):
        assert router.run().status == 0  # asks the daemon for a refresh; it had time for that when this one is over
    assert runs(router, mark) == 0
    router.program("ping").exit()
    router.wait_for("log", "[TUNNEL_MNGR] MANAGING TUNNELS", since=mark)
    wait_until_idle(router, daemon)


def test_a_daemon_that_is_told_to_stop_begins_no_pass(make_router):
    """Before its first round of the loop, when a pass is due."""
    router = make_router(with_tunnels(tunnel("office", STATIC_KEY)))
    router.make_ipsec_folders()
    router.program("firewall").on(stay=True, times=1)
    daemon = router.daemon()
    router.wait_for("exec", program="firewall")
    daemon.signal(signal.SIGTERM)
    router.program("firewall").exit()
    daemon.wait_exit()
    assert daemon.status == 0 and pings(router) == []
