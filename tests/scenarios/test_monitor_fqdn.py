"""FQDN monitors: at each tunnel's interval the daemon resolves its host anew, and it rebuilds the tunnels when one of them
has another address."""

import collections

import pytest

from daemon_stories import documents, runs, wait_until_idle
from test_names_resolution import NO_DATA, NOT_FOUND, TRY_AGAIN
from tunnel_records import TAG, create_command, gre_tunnel, ip_commands, ipsec_tunnel, lines, router_with, start_daemon

pytestmark = pytest.mark.slow

CHECK = TAG + "[FQDN_MONITOR] tunnel:{} check {} "  # host first, tunnel second
UNCHANGED = f"{TAG}[FQDN_MONITOR] FQDN has not changed"
MINUTE = 90  # seconds; well above the 60 of the shortest interval, since the machine may be busy

# Tunnel, host, answer of the name server, warning. All are checked every minute.
STEADY = [("dotted", "203.0.113.7", None, None), ("good_one", "good.example", "203.0.113.8", None),
          ("unknown", "unknown.example", "NXDOMAIN", NOT_FOUND), ("failing", "failing.example", "SERVFAIL", TRY_AGAIN),
          ("silent", "silent.example", "SILENT", TRY_AGAIN), ("refused", "refused.example", "REFUSED", TRY_AGAIN),
          ("empty", "empty.example", "NODATA", NO_DATA)]


def test_what_stays_the_same_or_keeps_failing_changes_nothing(make_router):
    tunnels = [gre_tunnel(name.replace("_", " "), remoteIp=host) for name, host, *_ in STEADY]
    tunnels += [gre_tunnel("later", remoteIp="later.example", checkPeriod=2),
                gre_tunnel("latest", remoteIp="latest.example", checkPeriod=65535)]
    router = router_with(make_router, documents(*tunnels, ipsecTunnels=[ipsec_tunnel("off", remoteWanIp="off.example")]))
    for _, host, answer, _ in STEADY:
        if answer:
            router.dns.set(host, answer)
    for host in ("later.example", "latest.example", "off.example"):
        router.dns.set(host, "203.0.113.9")
    daemon = start_daemon(router)
    mark = router.mark("the first run is over")

    first = router.wait_for("log", " check ", since=mark, timeout=MINUTE)
    started = router.find("log", "STARTING WAN AND FQDN MONITORS")[0]
    assert first.time - started.time > 55 and first.severity == "debug"
    router.wait_for("log", UNCHANGED, since=mark, count=len(STEADY), timeout=30)
    wait_until_idle(router, daemon)
    assert runs(router) == 1

    traces = [line for line in lines(router, "TRACE", mark) if "[FQDN_MONITOR]" in line]
    checks = {CHECK.format(host, name): 1 for name, host, *_ in STEADY}
    assert collections.Counter(traces) == checks | {UNCHANGED: len(STEADY)}
    warnings = [warning.format(host) for _, host, _, warning in STEADY if warning]
    assert sorted(lines(router, "WARNING", mark)) == sorted(warnings)
    assert not any("new ip address" in line for line in lines(router, "INFO"))
    assert {event.text for event in router.find("dns", since=mark)} == {host for _, host, answer, _ in STEADY if answer}


# The answers for the host, before and after, and its addresses.
CHANGES = [("203.0.113.11", "203.0.113.12", "203.0.113.11", "203.0.113.12"),
           ("203.0.113.11", "NXDOMAIN", "203.0.113.11", ""), ("203.0.113.11", "SILENT", "203.0.113.11", ""),
           ("SERVFAIL", "203.0.113.12", "", "203.0.113.12")]
HOST = "moving.example"


@pytest.mark.tsan
def test_another_address_has_the_tunnels_rebuilt_once(make_router):
    stories = []
    for before, after, old, new in CHANGES:  # side by side, since all that they do is wait
        router = router_with(make_router, documents(gre_tunnel("head office", remoteIp=HOST),
                                                    gre_tunnel("quiet", checkPeriod=5)))
        router.dns.set(HOST, before)
        daemon = start_daemon(router)
        assert create_command("head_office", old) in ip_commands(router)
        router.dns.set(HOST, after)
        stories.append((router, daemon, old, new, router.mark("the host has moved")))
    for router, daemon, old, new, mark in stories:
        change = router.wait_for("log", "has resolved to a new ip address", since=mark, timeout=2 * MINUTE)
        assert (change.label, change.severity, change.message) == (
            "INFO", "info", f"{TAG}[FQDN_MONITOR] tunnel:head_office The host [{HOST}] has resolved to a new ip address. "
                            f"[{old}]=>[{new}]\n")
        check, = router.find("log", CHECK.format(HOST, "head_office"), since=mark)
        assert check.number < change.number
        warnings = [event for event in router.log_lines("WARNING", mark) if event.number < change.number]
        assert len(warnings) == (1 if new == "" else 0)

        router.wait_for("log", "v_apFqdnMonitor size 2", since=change.number)
        wait_until_idle(router, daemon)
        assert runs(router) == 2
        assert create_command("head_office", new) in ip_commands(router, change.number)
        stops = [line for line in lines(router, "TRACE", change.number) if line.endswith(" stop ")]
        assert stops == [f"{TAG}[FQDN_MONITOR] tunnel:head_office stop ", f"{TAG}[FQDN_MONITOR] tunnel:quiet stop "]
        assert UNCHANGED not in lines(router, "TRACE", mark)
