"""Bad input: whatever the configuration API answers and whatever `ip tunnel` prints, the daemon stays up, says in one line
what was wrong, and the next run with good input puts everything right.

One daemon goes through a whole table of inputs, each followed by a good run, so what one of them leaves behind would show
in the next."""

import re

import pytest

from daemon_stories import EXCEPTION, MONITORS_START, documents
from tunnel_records import (BAD_JSON, NO_WAN, NO_WAN_INFORMATION, TAG, create_command, gre_tunnel, ip_commands, ipsec_tunnel,
                            lines, refresh, router_with, start_daemon)

pytestmark = pytest.mark.asan

RUN_ENDS = re.compile(f"{re.escape(MONITORS_START)}|{re.escape(EXCEPTION)}")
CREATED = [create_command(), "ip link set gre1 up"]
GOOD_LISTING = "gre1: gre/ip  remote 203.0.113.7  local 198.51.100.2  ttl 64\n"


def go_through(make_router, cases, level: str = "100"):
    """Has one daemon perform a run on each bad input and a good run after it. A case is its name, what brings the input
    about (called with the router), and the ERROR lines of the run."""
    router = router_with(make_router, documents(gre_tunnel()))
    daemon = start_daemon(router, level)
    for name, bring_about, errors in cases:
        mark = refresh(router, daemon, RUN_ENDS, before=lambda: bring_about(router))
        assert lines(router, "ERROR", mark) == errors, name
        mark = refresh(router, daemon)
        assert lines(router, "ERROR", mark) == [], name
        assert ip_commands(router, mark)[-2:] == CREATED, name
        assert router.gre_listing().endswith(GOOD_LISTING), name
    return router


def answer(target: str, **how):
    """Brings about one answer of the configuration API."""
    return lambda router: router.api.on(target, times=1, **how)


def payload(value, target: str = "tunnels"):
    """Brings about a good answer with this payload."""
    return answer(target, envelope={"code": 200, "result": value})


BODIES = {
    "nothing": "", "HTML": "<html></html>", "binary": bytes(range(256)), "half of it": '{"code":200,"result":{"greTunn',
    "nested too deep": '{"code":200,"result":' + "[" * 1000 + "]" * 1000 + "}", "megabytes": "no " * 700_000,
    "megabytes of brackets": "[" * 2_000_000, "megabytes of a text without end": '{"code":200,"result":"' + "x" * 2_000_000}


def test_answers_that_are_no_json(make_router):
    go_through(make_router, [(name, answer("tunnels", body=body), [BAD_JSON]) for name, body in BODIES.items()])


def test_answers_that_refuse(make_router):
    envelopes = [({"code": 500, "result": {"greTunnels": [gre_tunnel("no")]}}, 500), ({"code": "200"}, 0), ({"code": {}}, 0),
                 ({"code": -200}, 0), ({"code": 1e300}, 0), ({"result": {}}, 0), ([], 0), ([[]], 0)]
    go_through(make_router, [
        (str(envelope), answer("tunnels", envelope=envelope), [f"{TAG} api returned error code [{code}]"])
        for envelope, code in envelopes])


# Payloads of the configuration document that cannot be read.
UNREADABLE = {
    "the payload": [[], [1], "text", 5, True],
    "greTunnels": [{"greTunnels": value} for value in (
        {"a": gre_tunnel()}, [5], ["text"], [True], [[]], [None, [gre_tunnel()]])],
    "ipsecTunnels": [{"ipsecTunnels": value} for value in ({"a": ipsec_tunnel()}, [5], ["text"], [False], [[]])],
    "a GRE tunnel": [{"greTunnels": [gre_tunnel(**{member: value})]} for member, value in (
        ("name", []), ("name", {}), ("remoteIp", []), ("remoteIp", {"a": 1}), ("enabled", "true"), ("enabled", ""),
        ("enabled", []), ("checkPeriod", "5"), ("checkPeriod", -1), ("checkPeriod", 2 ** 32), ("checkPeriod", []),
        ("ttl", []), ("ttl", {}), ("ttl", 2 ** 31), ("ttl", 1e10), ("tunnelIp", []), ("tunnelMask", {}))],
    "the routes": [{"greTunnels": [gre_tunnel(routes=routes)]} for routes in (
        {"a": 1}, [5], ["text"], [True], [[]], [{"ip": [], "mask": 8}], [{"ip": {}, "mask": 8}],
        [{"ip": "10.0.0.0", "mask": 2 ** 31}], [{"ip": "10.0.0.0", "mask": -1e10}])],
    "an IPsec tunnel": [{"ipsecTunnels": [ipsec_tunnel(**{"enabled": True, member: value})]} for member, value in (
        ("name", []), ("remoteWanIp", {}), ("enabled", "yes"), ("checkPeriod", "5"), ("checkPeriod", -5))],
    "the interfaces": [{"ni": ni} for ni in (
        5, "text", [], {"nis": {"a": 1}}, {"nis": [5]}, {"nis": ["text"]}, {"nis": [[]]}, {"nis": [{"type": []}]},
        {"nis": [{"type": "LAN", "available": "yes"}]}, {"nis": [{"type": "LAN", "available": True, "nitype": {}}]},
        {"nis": [{"type": "LAN", "available": True, "bridge": []}]},
        {"nis": [{"type": "LAN", "available": True, "bridge": "--", "ipv4": 5}]},
        {"nis": [{"type": "LAN", "available": True, "bridge": "--", "ipv4": {"ip": [], "mask": "255.0.0.0"}}]})],
}


@pytest.mark.parametrize("where", UNREADABLE)
def test_documents_of_a_wrong_type(make_router, where):
    go_through(make_router, [(str(value), payload(value), [EXCEPTION]) for value in UNREADABLE[where]])


# Payloads that are odd, but that read as something: as a list without elements, as a record without members.
READABLE = [
    None, {}, {"greTunnels": None}, {"greTunnels": {}}, {"greTunnels": "text"}, {"greTunnels": 5}, {"greTunnels": True},
    {"greTunnels": [None, {}]}, {"greTunnels": [{"name": 5, "enabled": 0, "remoteIp": False, "routes": [7]}]},
    {"greTunnels": [gre_tunnel(routes="text")]}, {"ipsecTunnels": "text"}, {"ipsecTunnels": [None, {}]},
    {"ni": None}, {"ni": {"nis": "text"}}, {"ni": {"nis": [None, {}]}}, {"ni": {"nis": [{"ipv4": 5, "bridge": []}]}}]


def test_documents_that_are_odd_but_readable(make_router):
    go_through(make_router, [(str(value), payload(value), []) for value in READABLE])


def test_wan_documents_that_cannot_be_had(make_router):
    cases = [(name, answer("wans", body=body), [BAD_JSON, NO_WAN_INFORMATION]) for name, body in BODIES.items()]
    router = go_through(make_router, cases)
    assert lines(router, "INFO").count(NO_WAN) == len(cases)


def test_wan_lists_without_a_current_address(make_router):
    good = "192.0.2.1"
    wans = [{}, {"current": True, "ip": good}, [[{"current": True, "ip": good}]], "text", 5, True, False, 2.5]  # no lists
    wans += [None, [], [None], [5], ["text"], [True], [[]], [{}], [{"ip": good}], [{"current": False, "ip": good}],
            [{"current": "yes", "ip": good}], [{"current": [], "ip": good}], [{"current": {}, "ip": good}],
            [{"current": True}], [{"current": True, "ip": {}}], [{"current": True, "ip": []}, {"current": True, "ip": good}]]
    cases = [(str(value), payload(value, "wans"), []) for value in wans]
    router = go_through(make_router, cases)
    assert lines(router, "INFO").count(NO_WAN) == len(cases)


@pytest.mark.parametrize("wans, address", [
    ([5, None, {"current": "yes", "ip": "192.0.2.1"}, {"current": True, "ip": "192.0.2.2"}], "192.0.2.2"),
    ([{"current": 1, "ip": "192.0.2.1"}], "192.0.2.1"), ([{"current": True, "ip": 7}], "7")])
def test_wan_entries_of_wrong_types_hide_no_good_one(make_router, wans, address):
    router = router_with(make_router, documents(gre_tunnel(), wans=wans))
    start_daemon(router)
    assert lines(router, "ERROR") == []
    assert ip_commands(router)[0] == create_command(local=address)


def listing(**how):
    """Brings about one listing of `ip tunnel`."""
    return lambda router: router.program("ip").on(["tunnel"], times=1, **how)


LINE = "old: gre/ip  remote 1.1.1.1  local 2.2.2.2  ttl 64\n"
LISTINGS = {
    "NUL bytes": "\0" * 20 + "\n" + LINE + "a\0b: gre/ip\0 remote x\n",
    "binary": "".join(map(chr, range(1, 128))) + "\udcff\udc80\n",
    "half a line": LINE * 2 + "ol",
    "words without end": "word " * 50_000,
    "a name of 200 KB": LINE + "x" * 200_000 + ": gre/ip\n" + LINE,
    "megabytes": "i: ip/ip remote any local any ttl inherit nopmtudisc\n" * 60_000,
    "one line of megabytes": "x" * 3_000_000,
    "only line feeds": "\n" * 100_000,
    "formats": "%s%n%d: gre/ip %s%n remote %x\n",
}


def test_listings_of_every_kind(make_router):
    # At this print level the lines are not traced; so many of them would take the log collector long.
    router = go_through(make_router, [(name, listing(stdout=output), []) for name, output in LISTINGS.items()], level="50")
    assert f"{TAG} DESTROYING TUNNEL: %s%n%d" in lines(router, "INFO")


def test_long_and_binary_lines_of_a_listing_are_traced(make_router):
    go_through(make_router, [(name, listing(stdout=LISTINGS[name]), []) for name in (
        "NUL bytes", "binary", "words without end", "a name of 200 KB", "one line of megabytes", "formats")])


def test_listings_that_fail(make_router):
    go_through(make_router, [
        (str(status), listing(status=status, stdout=LINE), [f"{TAG} error executing ip tunnel command [{shown}]"])
        for status, shown in ((1, 1), (255, 255), (-9, 137))])


def test_an_ip_program_that_is_missing_for_a_while(make_router):
    router = router_with(make_router, documents(gre_tunnel()))
    daemon = start_daemon(router)
    router.program("ip").missing()
    mark = refresh(router, daemon)
    assert lines(router, "ERROR", mark) == [f"{TAG} error executing ip tunnel command [127]"]
    router.program("ip").restore()
    mark = refresh(router, daemon)
    assert ip_commands(router, mark) == ["ip link set gre1 down", "ip tunnel del gre1", *CREATED]


@pytest.mark.parametrize("bring_about, errors", [
    pytest.param(payload({"greTunnels": [5]}), [EXCEPTION], id="a document of a wrong type"),
    pytest.param(answer("tunnels", body="no"), [BAD_JSON], id="no JSON"),
    pytest.param(listing(status=1), [f"{TAG} error executing ip tunnel command [1]"], id="no listing"),
])
def test_a_first_run_with_bad_input_is_survived_as_well(make_router, bring_about, errors):
    router = router_with(make_router, documents(gre_tunnel()))
    bring_about(router)
    daemon = start_daemon(router)
    assert lines(router, "ERROR") == errors
    mark = refresh(router, daemon)
    assert ip_commands(router, mark) == CREATED
    assert daemon.alive() and "WAN_MONITOR" in daemon.facts()["thread_names"]
