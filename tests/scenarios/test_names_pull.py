"""Names: the pull makes the tunnel records ready: names without blanks, hosts with addresses, a monitor for each enabled
tunnel."""

import re

import pytest

from daemon_stories import MONITORS_START, documents
from tunnel_records import (REMOTE, TAG, TUNNELS_URL, create_command, gre_tunnel, ip_commands, ipsec_tunnel, lines, refresh,
                            router_with, run_once, start_daemon, story)

FIRST = "Pulling Current Configurations"


def pulled(make_router, *tunnels: dict, ipsec=()):
    """A router in which the program has run once with these tunnels."""
    router = router_with(make_router, documents(*tunnels, ipsecTunnels=list(ipsec)))
    run_once(router)
    return router


def pull_lines(router, since: int = 0) -> list[tuple[str, str]]:
    """What the last pull after the mark has logged, from its first line to the last tunnel's."""
    told = [(event.label, event.message) for event in router.log_lines(since=since)]
    begin = max(i for i, (_, message) in enumerate(told) if message == FIRST)
    tunnel = re.compile(r"(GRE|ipsec) tunnel \[")
    end = max(i for i, (_, message) in enumerate(told) if tunnel.search(message))
    return told[begin:end + 1]


def test_the_pull_line_by_line(make_router):
    router = pulled(make_router, gre_tunnel("head office", checkPeriod=5), gre_tunnel("off 1", enabled=False),
                    ipsec=[ipsec_tunnel("site a", enabled=True, remoteWanIp="203.0.113.9"), ipsec_tunnel("off 2")])
    assert pull_lines(router) == [
        ("INFO", FIRST),
        ("INFO", f"{TAG} GRE tunnel [{REMOTE}][{REMOTE}] period 5"),
        ("INFO", f"{TAG} GRE tunnel [off_1] disabled"),
        ("INFO", f"{TAG} ipsec tunnel [203.0.113.9][203.0.113.9] period 1"),
        ("INFO", f"{TAG} ipsec tunnel [off_2] disabled")]
    first, = router.find("log", FIRST)
    assert first.number < router.find("api", TUNNELS_URL)[0].number


@pytest.mark.parametrize("name, normalised", [
    ("My Tunnel 1", "My_Tunnel_1"), ("  a  ", "__a__"), ("plain", "plain"), ("_", "_"), ("tab\tstays", "tab\tstays"),
    ("", ""), (7, "7"), (None, "")])
def test_blanks_in_names_become_underlines(make_router, name, normalised):
    router = pulled(make_router, gre_tunnel(name), gre_tunnel(name, enabled=False), ipsec=[ipsec_tunnel(name)])
    assert ip_commands(router)[:2] == [create_command(normalised), f"ip link set {normalised} up"]
    assert f"{TAG} GRE tunnel [{normalised}] disabled" in lines(router, "INFO")
    assert f"{TAG} ipsec tunnel [{normalised}] disabled" in lines(router, "INFO")
    assert f"{TAG} Tunnel [{normalised}] is not enabled" in lines(router, "TRACE")


PERIODS = [(0, 1), (None, 1), (1, 1), (5, 5), (65535, 65535), (65536, 1), (65537, 1), (70000, 4464), (4294967295, 65535),
           (131072, 1), (5.9, 5), (True, 1)]


def test_periods_are_cut_to_sixteen_bits_and_zero_is_one(make_router):
    rows = [(f"203.0.113.{n}", period, shown) for n, (period, shown) in enumerate(PERIODS)]
    router = pulled(
        make_router, *(gre_tunnel(address, remoteIp=address, checkPeriod=period) for address, period, _ in rows),
        ipsec=[ipsec_tunnel(address, enabled=True, remoteWanIp=address, checkPeriod=period) for address, period, _ in rows])
    assert pull_lines(router)[1:] == [("INFO", f"{TAG} {kind} tunnel [{address}][{address}] period {shown}")
                                      for kind in ("GRE", "ipsec") for address, _, shown in rows]


def test_a_tunnel_without_a_period_is_checked_every_minute(make_router):
    router = pulled(make_router, gre_tunnel(), ipsec=[ipsec_tunnel(enabled=True)])
    assert [message for _, message in pull_lines(router)[1:]] == [
        f"{TAG} GRE tunnel [{REMOTE}][{REMOTE}] period 1", f"{TAG} ipsec tunnel [{REMOTE}][{REMOTE}] period 1"]


@pytest.mark.parametrize("enabled, made", [(True, True), (1, True), (0.5, True), (False, False), (0, False), (None, False)])
def test_enabled_is_whatever_reads_as_true(make_router, enabled, made):
    router = pulled(make_router, gre_tunnel(enabled=enabled))
    assert bool(ip_commands(router)) == made


def test_a_record_without_members_is_a_disabled_tunnel(make_router):
    router = pulled(make_router, {}, None, ipsec=[{}])
    infos = [message for label, message in pull_lines(router) if label == "INFO"]
    assert infos == [FIRST, *[f"{TAG} GRE tunnel [] disabled"] * 2, f"{TAG} ipsec tunnel [] disabled"]


def test_each_enabled_tunnel_has_a_thread_that_bears_its_name(make_router):
    router = router_with(make_router, documents(
        gre_tunnel("a"), gre_tunnel("My Tunnel 1"), gre_tunnel("off", enabled=False),
        ipsecTunnels=[ipsec_tunnel("i", enabled=True), ipsec_tunnel("off")]))
    daemon = start_daemon(router)
    # The kernel keeps 15 bytes of a thread's name.
    expected = ["FQDN_MONITOR:My", "FQDN_MONITOR:a", "FQDN_MONITOR:i", "WAN_MONITOR"]

    def monitors() -> list[str]:
        return sorted(name for name in daemon.facts()["thread_names"] if "MONITOR" in name)

    router.wait_until(lambda: monitors() == expected, "the monitors")
    assert f"{TAG} v_apFqdnMonitor size 3" in lines(router, "INFO")
    # Their whole names are told when they are stopped, which happens in the order of the records.
    mark = refresh(router, daemon)
    assert [line for line in lines(router, "TRACE", mark) if "stop" in line] == [
        f"{TAG}[FQDN_MONITOR] tunnel:a stop ", f"{TAG}[FQDN_MONITOR] tunnel:My_Tunnel_1 stop ",
        f"{TAG}[FQDN_MONITOR] tunnel:i stop "]
    router.wait_until(lambda: monitors() == expected, "the new monitors")


@pytest.mark.asan
def test_a_pull_that_fails_leaves_the_daemon_without_monitors_until_the_next_one(make_router):
    router = router_with(make_router, documents(gre_tunnel()))
    daemon = start_daemon(router)
    router.api.on("tunnels", envelope={"code": 500}, times=1)
    mark = refresh(router, daemon)
    assert story(router, FIRST, MONITORS_START, mark) == [
        ("INFO", FIRST), ("ERROR", f"{TAG} api returned error code [500]"), ("INFO", f"{TAG} v_apFqdnMonitor size 0")]
    mark = refresh(router, daemon)
    assert f"{TAG} v_apFqdnMonitor size 1" in lines(router, "INFO", mark)
    assert ip_commands(router, mark) == [create_command(), "ip link set gre1 up"]


def test_one_request_brings_both_kinds_of_tunnels_on_every_run(make_router):
    router = router_with(make_router, documents(gre_tunnel()))
    daemon = start_daemon(router)
    with router.documents.edit() as documents_:
        documents_["greTunnels"] = []
        documents_["ipsecTunnels"] = [ipsec_tunnel("new one")]
    mark = refresh(router, daemon)
    assert len(router.find("api", TUNNELS_URL, since=mark)) == 1
    assert pull_lines(router, mark) == [("INFO", FIRST), ("INFO", f"{TAG} ipsec tunnel [new_one] disabled")]
    assert ip_commands(router, mark) == ["ip link set gre1 down", "ip tunnel del gre1"]
