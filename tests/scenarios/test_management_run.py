"""Management run: every run tears all tunnels down and builds them up again in a fixed order, and ends early where a
step fails on which the rest depends."""

import signal

import pytest

from daemon_stories import (PINGED_OPENVPN, RUN_BEGINS, assert_in_order, assert_no_instance, documents, gre, refresh,
                            start, wait_for_monitors)
from openvpn_records import WITH_CA, tunnel
from sandbox.router import Router

NO_WAN = "[TUNNEL_MNGR] WAN Not Acquired. Tunnels will not be setup until WAN is available."
NO_WAN_INFORMATION = "[TUNNEL_MNGR][WAN_MONITOR] Could not obtain WAN information"
NO_OPENVPN_CONFIGURATION = "[TUNNEL_MNGR] Failed read config"
NO_TUNNELS = "[TUNNEL_MNGR] No GRE Tunnels configured"

OLD = {"name": "old", "remote": "192.0.2.1", "local": "192.0.2.2", "ttl": "64"}
OLDER = {"name": "older", "remote": "192.0.2.3", "local": "192.0.2.2", "ttl": "inherit"}
TEARDOWN = ["ip link set old down", "ip tunnel del old", "ip link set older down", "ip tunnel del older"]

LAN = {"nis": [{"type": "LAN", "nitype": "ETHERNET", "bridge": "--", "available": True,
                "ipv4": {"ip": "192.168.2.1", "mask": "255.255.255.0"}}]}
IPSEC = {"name": "office", "enabled": True, "remoteWanIp": "203.0.113.20", "remoteNetworkIp": "192.168.9.0",
         "remoteNetworkMask": "24", "type": "IKE", "encryptMethod": "aes128", "ikelife": 3, "keylife": 1,
         "psk": "secret"}


def router_with_tunnels(make_router, **members) -> Router:
    """A router that is to have the tunnel "new" and whose kernel still has two others."""
    router = make_router(documents(gre("new")) | members)
    router.make_ipsec_folders()
    router.preset_gre(OLD, OLDER)
    return router


def run_once(router: Router) -> None:
    """One run in one-shot mode, which leaves with 0 whatever becomes of it and removes the semaphore."""
    done = router.run("--printlvl", "100")
    assert (done.status, done.stdout, done.stderr) == (0, "", "")
    assert_no_instance(router)


def requests(router: Router) -> list[str]:
    """The documents that the run asked for: all but the look-up of the WAN at the start of the program."""
    return [event.text.removeprefix("/api?fields=") for event in router.find("api")][1:]


def assert_nothing_was_built(router: Router) -> None:
    building = ("ip tunnel add", "ip addr", "ip route", "firewall", "ipsec restart")
    assert [text for text in router.command_texts() if text.startswith(building)] == []


# ---- the order ----

def test_the_steps_of_a_run_come_in_order(make_router):
    """The second run of a daemon, which finds everything up: tunnels of the kernel, the IPsec service, openvpn."""
    router = make_router(documents(gre("one"), gre("two", "203.0.113.8"), ipsecTunnels=[IPSEC], ni=LAN,
                                   ovpnTunnels=[PINGED_OPENVPN]))
    router.make_ipsec_folders()
    daemon = start(router)
    router.wait_for("exec", program="openvpn")
    mark = refresh(router, daemon)
    router.wait_for("exec", program="openvpn", since=mark)
    assert_in_order(
        router.since(mark), ("log", RUN_BEGINS), ("command", "ip tunnel"), ("command", "ip tunnel del one"),
        ("command", "ip tunnel del two"), ("api", "fields=ovpnTunnels"), ("api", "fields=syslog"),
        ("command", "ipsec stop 2>&1"), ("caught", "openvpn"), ("end", "openvpn"), ("api", "/api/waninfo/wans"),
        ("api", "fields=greTunnels,ipsecTunnels,ni"), ("command", "ip tunnel add one"),
        ("command", "ip link set one up"), ("command", "ip tunnel add two"), ("command", "ipsec restart"),
        ("command", "firewall --init"), ("command", "openvpn --config"))
    texts = router.command_texts(mark)
    for text in ("ip tunnel", "ipsec stop 2>&1", "ipsec restart", "firewall --init"):
        assert texts.count(text) == 1


def test_every_command_has_ended_before_the_next_step(make_router):
    router = make_router(documents(gre("one")))
    router.make_ipsec_folders()
    router.preset_gre(OLD)
    run_once(router)
    commands = [event for event in router.timeline() if event.kind in ("exec", "end")]
    assert [event.kind for event in commands] == ["exec", "end"] * (len(commands) // 2)


# ---- tearing down ----

def test_every_tunnel_of_the_kernel_is_removed_in_the_order_listed(make_router):
    router = router_with_tunnels(make_router)
    run_once(router)
    assert router.command_texts()[:5] == ["ip tunnel", *TEARDOWN]
    assert "old" not in router.gre_listing() and "new" in router.gre_listing()


def test_a_configured_tunnel_is_deleted_and_created_again_on_every_run(make_router):
    router = make_router(documents(gre("one")))
    router.make_ipsec_folders()
    router.preset_gre({"name": "one", "remote": "203.0.113.7", "local": "198.51.100.2", "ttl": "64"})
    daemon = start(router)
    for since in (0, refresh(router, daemon), refresh(router, daemon)):
        assert_in_order(router.since(since), ("command", "ip tunnel del one"), ("command", "ip tunnel add one"))
    assert len(router.find("command", "ip tunnel add one")) == len(router.find("command", "ip tunnel del one")) == 3


# ---- steps that fail ----

def test_without_the_kernels_list_nothing_is_torn_down_or_built(make_router):
    router = router_with_tunnels(make_router)
    router.program("ip").on(["tunnel"], status=1)
    run_once(router)
    assert router.command_texts() == ["ip tunnel"] and requests(router) == []
    assert router.messages("ERROR") == ["[TUNNEL_MNGR] error executing ip tunnel command [1]"]


@pytest.mark.parametrize("document", ["openvpn", "syslog"])
def test_without_the_openvpn_configuration_the_run_ends_with_the_gre_tunnels_gone(make_router, document):
    router = router_with_tunnels(make_router)
    router.api.on(document, close=True)
    run_once(router)
    assert router.command_texts() == ["ip tunnel", *TEARDOWN]
    assert requests(router)[-1] == {"openvpn": "ovpnTunnels", "syslog": "syslog"}[document]
    assert router.messages("ERROR") == [NO_OPENVPN_CONFIGURATION]


@pytest.mark.parametrize("wans", [
    [], [{"current": False, "ip": "198.51.100.2"}], [{"ip": "198.51.100.2"}], [{"current": True}],
    [{"current": True, "ip": ""}, {"current": True, "ip": "198.51.100.9"}]])
def test_without_a_current_wan_everything_is_torn_down_and_nothing_is_built(make_router, wans):
    router = router_with_tunnels(make_router, wans=wans)
    run_once(router)
    assert router.command_texts() == ["ip tunnel", *TEARDOWN, "ipsec stop 2>&1"]
    assert requests(router)[-1] == "/api/waninfo/wans"
    assert NO_WAN in router.messages("INFO") and router.messages("ERROR") == []


def test_a_wan_list_that_cannot_be_had_is_no_wan(make_router):
    router = router_with_tunnels(make_router)
    router.api.on("wans", envelope={"code": 500, "result": []})
    run_once(router)
    failed = ["[TUNNEL_MNGR] api returned error code [500]", NO_WAN_INFORMATION]
    assert router.messages("ERROR") == failed * 2  # at the start of the program, and in the run
    assert_in_order(router.timeline(), ("log", RUN_BEGINS), ("log", NO_WAN_INFORMATION), ("log", NO_WAN))
    assert_nothing_was_built(router)


def test_openvpn_is_stopped_and_not_started_while_there_is_no_wan(make_router):
    router = make_router(documents(gre("one"), ovpnTunnels=[PINGED_OPENVPN]))
    router.make_ipsec_folders()
    daemon = start(router)
    router.wait_for("exec", program="openvpn")
    router.documents["wans"] = []
    mark = refresh(router, daemon)
    assert_in_order(router.since(mark), ("command", "ip tunnel del one"), ("command", "ipsec stop 2>&1"),
                    ("end", "openvpn"), ("log", NO_WAN), ("log", "v_apFqdnMonitor size 0"))
    assert daemon.children() == []
    router.documents["wans"] = [{"current": True, "ip": "198.51.100.77"}]
    mark = refresh(router, daemon)
    router.wait_for("exec", program="openvpn", since=mark)
    assert "ip tunnel add one mode gre remote 203.0.113.7 local 198.51.100.77 ttl 64" in router.command_texts(mark)


def test_without_the_tunnels_configuration_everything_stays_down(make_router):
    router = router_with_tunnels(make_router, ovpnTunnels=[PINGED_OPENVPN])
    router.api.on("tunnels", envelope={"code": 404, "result": []})
    run_once(router)
    assert router.command_texts() == ["ip tunnel", *TEARDOWN, "ipsec stop 2>&1"]
    assert router.messages("ERROR") == ["[TUNNEL_MNGR] api returned error code [404]"]


def test_what_a_failed_run_left_down_is_built_by_the_next_good_one(make_router):
    router = router_with_tunnels(make_router)
    router.api.on("tunnels", times=1, close=True)
    daemon = start(router)
    assert router.gre_listing().count("gre/ip") == 1  # the kernel's own
    mark = refresh(router, daemon)
    assert "ip link set new up" in router.command_texts(mark)
    assert "firewall --init" in router.command_texts(mark)


def test_a_failed_run_leaves_no_monitor_of_the_run_before(make_router):
    router = make_router(documents(gre("one")))
    router.make_ipsec_folders()
    daemon = start(router)
    router.program("ip").on(["tunnel"], times=1, status=1)
    mark = router.mark()
    daemon.signal(signal.SIGHUP)
    assert wait_for_monitors(router, mark).message.endswith(" size 0")
    assert daemon.threads() == 2  # its main thread and the WAN monitor


# ---- building up ----

def test_an_empty_list_still_runs_the_other_steps(make_router):
    router = make_router(documents(ipsecTunnels=[IPSEC], ni=LAN, ovpnTunnels=[PINGED_OPENVPN]))
    router.make_ipsec_folders()
    start(router)
    assert NO_TUNNELS in router.messages("TRACE")
    router.wait_for("exec", program="openvpn")
    assert_in_order(router.timeline(), ("log", NO_TUNNELS), ("command", "ipsec restart"),
                    ("command", "firewall --init"))


def test_a_disabled_tunnel_is_not_created(make_router):
    router = make_router(documents(gre("off duty", enabled=False), gre("on"),
                                   gre("unsaid", "203.0.113.9", enabled=None)))
    router.make_ipsec_folders()
    run_once(router)
    traces = router.messages("TRACE")
    assert "[TUNNEL_MNGR] Tunnel [off_duty] is not enabled" in traces
    assert "[TUNNEL_MNGR] Tunnel [unsaid] is not enabled" in traces
    assert NO_TUNNELS not in traces
    assert [text.split()[3] for text in router.command_texts() if text.startswith("ip tunnel add")] == ["on"]


def test_a_tunnel_that_fails_keeps_none_of_the_others_from_being_created(make_router):
    router = make_router(documents(gre("one"), gre("two", "203.0.113.8"), gre("three", "203.0.113.9")))
    router.make_ipsec_folders()
    router.program("ip").on(["tunnel", "add", "two", ...], status=2, stderr="no\n")
    done = router.run()
    assert (done.status, done.stderr) == (0, "no\n")
    assert "three" in router.gre_listing() and "two" not in router.gre_listing()
    assert "firewall --init" in router.command_texts()


@pytest.mark.parametrize("fault", ["fails", "is missing"])
def test_a_firewall_script_that_fails_changes_nothing(make_router, fault):
    router = make_router(documents(gre("one"), ovpnTunnels=[tunnel("vpn", WITH_CA)]))
    router.make_ipsec_folders()
    if fault == "fails":
        router.program("firewall").on(status=1)
    else:
        router.program("firewall").missing()
    daemon = start(router)
    assert "firewall --init" in router.command_texts() and router.messages("ERROR") == []
    router.wait_for("exec", program="openvpn")
    assert daemon.alive()


def test_each_run_uses_the_wan_address_of_its_own_time(make_router):
    router = make_router(documents(gre("one")))
    router.make_ipsec_folders()
    daemon = start(router)
    router.documents["wans"] = [{"current": False, "ip": "198.51.100.2"}, {"current": True, "ip": "198.51.100.3"},
                                {"current": True, "ip": "198.51.100.4"}]
    mark = refresh(router, daemon)
    assert "ip tunnel add one mode gre remote 203.0.113.7 local 198.51.100.3 ttl 64" in router.command_texts(mark)
