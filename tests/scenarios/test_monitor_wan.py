"""WAN monitor: every 30 seconds the daemon looks which WAN is current, and it rebuilds the tunnels when another one is."""

import contextlib

import pytest

from daemon_stories import RUN_BEGINS, documents, runs, wait_until_idle
from tunnel_records import (BAD_JSON, NO_WAN, NO_WAN_INFORMATION, TAG, TUNNELS_URL, WANS_URL, create_command, gre_tunnel,
                            ip_commands, lines, refresh, router_with, start_daemon)

pytestmark = pytest.mark.slow

UNCHANGED = f"{TAG}[WAN_MONITOR] WAN has not changed"
CYCLE = 50  # seconds; well above the 30 of the monitor, since the machine may be busy
TORN_DOWN = ["ip link set gre1 down", "ip tunnel del gre1"]
LINK_UP = "ip link set gre1 up"


def test_another_address_is_noticed_at_the_next_look_and_the_same_one_changes_nothing(make_router):
    wans = [{"current": current, "ip": f"192.0.2.{n}"} for n, current in enumerate([False, True, True], 1)]
    router = router_with(make_router, documents(gre_tunnel(), wans=wans))
    daemon = start_daemon(router)
    started = router.find("log", "STARTING WAN AND FQDN MONITORS")[0]
    assert ip_commands(router) == [create_command(local="192.0.2.2"), LINK_UP]

    unchanged = router.wait_for("log", UNCHANGED, timeout=CYCLE)
    assert unchanged.time - started.time > 25
    assert (unchanged.label, unchanged.severity) == ("TRACE", "debug")
    assert len(router.find("api", WANS_URL, since=started.number)) == 1
    wait_until_idle(router, daemon)
    assert runs(router) == 1

    # The first of the entries that are current is the one that counts.
    router.documents["wans"] = [{"current": True, "ip": "192.0.2.4"}, *wans]
    router.wait_for("command", create_command(local="192.0.2.4"), since=unchanged.number, timeout=CYCLE)
    router.wait_for("log", "v_apFqdnMonitor size", since=unchanged.number)
    wait_until_idle(router, daemon)
    assert runs(router) == 2
    assert ip_commands(router, unchanged.number) == [*TORN_DOWN, create_command(local="192.0.2.4"), LINK_UP]
    assert len(router.find("api", WANS_URL, since=unchanged.number)) == 2  # the monitor's and the run's
    assert lines(router, "TRACE").count(UNCHANGED) == 1
    assert "WAN_MONITOR" in daemon.facts()["thread_names"]


def test_a_failed_request_counts_as_no_address_until_the_api_answers_again(make_router):
    router = router_with(make_router, documents(gre_tunnel()))
    daemon = start_daemon(router)
    router.api.on("wans", envelope={"code": 404, "result": []})
    mark = router.mark("the API refuses")
    failure = [f"{TAG} api returned error code [404]", NO_WAN_INFORMATION]

    router.wait_for("log", NO_WAN, since=mark, timeout=CYCLE)
    router.wait_for("log", "v_apFqdnMonitor size 0", since=mark)
    assert lines(router, "ERROR", mark) == failure * 2  # the monitor's and the run's
    assert ip_commands(router, mark) == TORN_DOWN
    assert router.find("api", TUNNELS_URL, since=mark) == []

    again = router.wait_for("log", UNCHANGED, since=mark, timeout=CYCLE)
    wait_until_idle(router, daemon)
    assert lines(router, "ERROR", mark) == failure * 3
    assert runs(router) == 2

    router.api.reset()
    router.wait_for("log", "v_apFqdnMonitor size 1", since=again.number, timeout=CYCLE)
    assert ip_commands(router, again.number) == [create_command(), LINK_UP]
    assert lines(router, "ERROR", again.number) == []
    wait_until_idle(router, daemon)
    assert runs(router) == 3 and daemon.alive()


DEEP = '{"code":200,"result":[{"current":true,"ip":"198.51.100.2","more":' + "[" * 997 + "]" * 997 + "}]}"

# What the API answers to the request for the WAN list, and the ERROR lines of one look at it; None when the current
# address is in it all the same.
ANSWERS = [
    ({"envelope": {"code": 200, "result": {"current": True, "ip": "192.0.2.1"}}}, []),
    ({"envelope": {"code": 200, "result": "text"}}, []),
    ({"envelope": {"code": 200, "result": 5}}, []),
    ({"envelope": {"code": 200, "result": [5, "text", None, [], {"current": "yes"}, {"current": {}}]}}, []),
    ({"envelope": {"code": 200, "result": [{"current": True, "ip": {}}]}}, []),
    ({"envelope": []}, [f"{TAG} api returned error code [0]", NO_WAN_INFORMATION]),
    ({"body": DEEP.replace("[[", "[[[", 1).replace("]]", "]]]", 1)}, [BAD_JSON, NO_WAN_INFORMATION]),
    ({"body": "no " * 500_000}, [BAD_JSON, NO_WAN_INFORMATION]),
    ({"body": DEEP}, None),
]


@pytest.mark.asan
def test_no_wan_list_ends_the_daemon(make_router):
    with contextlib.ExitStack() as stack:
        stories = []
        for how, errors in ANSWERS:  # side by side, since all that they do is wait
            router = router_with(make_router, documents(gre_tunnel()))
            stack.callback(router.close)
            daemon = start_daemon(router)
            router.api.on("wans", **how)
            stories.append((router, daemon, errors, router.mark("the API answers otherwise")))
        for router, daemon, errors, mark in stories:
            router.wait_for("log", UNCHANGED if errors is None else NO_WAN, since=mark, timeout=2 * CYCLE)
            if errors is None:
                wait_until_idle(router, daemon)
                assert lines(router, "ERROR", mark) == [] and runs(router) == 1
            else:
                router.wait_for("log", "v_apFqdnMonitor size", since=mark)
                looks = lines(router, "ERROR", mark)  # the monitor's, the run's, and later ones if this has taken long
                assert looks[:2 * len(errors)] == errors * 2 and set(looks) == set(errors)
            router.api.reset()
            mark = refresh(router, daemon)
            assert ip_commands(router, mark)[-2:] == [create_command(), LINK_UP]
            assert "WAN_MONITOR" in daemon.facts()["thread_names"]


def a_run_that_met_an_outage_is_made_again(router, daemon):
    router.api.on("wans", envelope={"code": 404, "result": []})
    mark = refresh(router, daemon)
    assert NO_WAN in lines(router, "INFO", mark)
    router.api.reset()
    yield
    router.wait_for("command", LINK_UP, since=mark, timeout=CYCLE)
    assert UNCHANGED not in lines(router, "TRACE", mark)


def a_run_that_met_another_wan_is_made_again(router, daemon):
    current = router.documents["wans"]
    router.documents["wans"] = [{"current": True, "ip": "192.0.2.9"}]
    mark = refresh(router, daemon)
    assert ip_commands(router, mark)[-2:] == [create_command(local="192.0.2.9"), LINK_UP]
    router.documents["wans"] = current
    mark = router.mark("the WAN is what the monitor has seen")
    yield
    router.wait_for("command", create_command(), since=mark, timeout=CYCLE)
    assert UNCHANGED not in lines(router, "TRACE", mark)


def an_outage_that_goes_on_for_the_looks_leaves_what_a_run_has_built(router, daemon):
    router.api.on("wans", envelope={"code": 404, "result": []})
    mark = router.mark("the API refuses")
    yield
    router.wait_for("log", NO_WAN, since=mark, timeout=CYCLE)
    router.wait_for("log", "v_apFqdnMonitor size", since=mark)
    router.api.reset()
    mark = refresh(router, daemon)
    assert ip_commands(router, mark) == [create_command(), LINK_UP]
    router.api.on("wans", envelope={"code": 404, "result": []})
    router.wait_for("log", UNCHANGED, since=mark, timeout=CYCLE)
    wait_until_idle(router, daemon)
    assert runs(router, mark) == 1 and ip_commands(router, mark) == [create_command(), LINK_UP]


def a_look_during_a_run_asks_for_no_other(router, daemon):
    router.program("ip").on(delay=CYCLE - 15)  # longer than the monitor waits
    router.documents["wans"] = [{"current": True, "ip": "192.0.2.9"}]
    mark = router.mark("the WAN changes")
    yield
    begin = router.wait_for("log", RUN_BEGINS, since=mark, timeout=CYCLE)
    router.program("ip").reset()
    during = router.wait_for("log", UNCHANGED, since=begin.number, timeout=CYCLE)
    assert not router.find("log", "v_apFqdnMonitor size", since=begin.number)
    router.wait_for("log", "v_apFqdnMonitor size", since=during.number, timeout=CYCLE)
    wait_until_idle(router, daemon)
    assert runs(router, mark) == 1


def a_run_that_failed_is_not_made_again(router, daemon):
    router.program("ip").on(status=1)
    router.documents["wans"] = [{"current": True, "ip": "192.0.2.9"}]
    mark = router.mark("the WAN changes, and tunnels cannot be listed")
    yield
    router.wait_for("log", "error executing ip tunnel command", since=mark, timeout=CYCLE)
    router.wait_for("log", UNCHANGED, since=mark, timeout=CYCLE)
    wait_until_idle(router, daemon)
    assert runs(router, mark) == 1


def test_the_monitor_knows_on_which_wan_the_tunnels_are_built(make_router):
    with contextlib.ExitStack() as stack:
        stories = []
        for tell in (a_run_that_met_an_outage_is_made_again, a_run_that_met_another_wan_is_made_again,
                     an_outage_that_goes_on_for_the_looks_leaves_what_a_run_has_built,
                     a_look_during_a_run_asks_for_no_other, a_run_that_failed_is_not_made_again):
            router = router_with(make_router, documents(gre_tunnel()))
            stack.callback(router.close)
            stories.append(tell(router, start_daemon(router)))
            next(stories[-1])
        for story in stories:
            assert next(story, "the end") == "the end"


def test_a_first_run_that_failed_is_not_made_again(make_router):
    router = router_with(make_router, documents(gre_tunnel(), ovpnTunnels=[{"name": [], "enabled": {}, "config": 5}]))
    daemon = start_daemon(router)
    assert f"{TAG} Failed read config" in lines(router, "ERROR")
    router.wait_for("log", UNCHANGED, timeout=CYCLE)
    wait_until_idle(router, daemon)
    assert runs(router) == 1
