"""tunnelctl status reads what the real services tell: the IPsec service of two routers, and their openvpn."""

import json

import pytest

from companion import companion
from daemon_stories import start
from ipsec_records import psk_tunnel
from openvpn_records import PASS_SECONDS, tunnel
from sandbox.certificates import Authority
from sandbox.router import Router
from test_ipsec_negotiation import LAN_HERE, LAN_THERE, Pair
from test_openvpn_real import FIRST, NETWORK, SECOND, open_real_router, static_config, tls_config

pytestmark = pytest.mark.slow


def rows(router: Router) -> dict[str, dict]:
    """The rows by name, with the real programs of the machine asked."""
    done = router.exec([companion(router.program_path), "status", "--json"])
    assert done.stderr == ""
    return {row["name"]: row for row in json.loads(done.stdout)["tunnels"]}


def told(router: Router) -> dict[str, str]:
    return {name: f"{row['state']}: {row['reason']}" for name, row in rows(router).items()}


def wait_for(router: Router, expected: dict[str, str], timeout: float) -> None:
    """Waits until each of these tunnels is told so; a text may be the beginning only."""
    def is_told() -> bool:
        found = told(router)
        return all(found[name].startswith(text) for name, text in expected.items())
    router.wait_until(is_told, f"{expected}", timeout)


def test_the_ipsec_service_is_understood(make_router):
    def tunnels(own, other):
        return [psk_tunnel(name, type=kind, uid=True, localId=f"{name}.{own}", remoteId=f"{name}.{other}", psk=key)
                for name, kind, key in (("old", "IKE", "same"), ("new", "IKEv2", "same"), ("refused", "IKEv2", own))]

    pair = Pair(make_router, tunnels)
    wait_for(pair.here, {"old": "up", "new": "up", "refused": "down: no SA: the peer refused the proposal, the key"}, 60)
    assert pair.here.exec(["/usr/bin/ping", "-c", "3", "-I", LAN_HERE, LAN_THERE]).status == 0
    pair.here.wait_until(lambda: sum(rows(pair.here)[name]["receivedBytes"] for name in ("old", "new")) >= 3 * 84,
                         "the packets counted", 20)
    found = rows(pair.here)["new"]
    assert (found["local"], found["remote"]) == ("198.51.100.1", "198.51.100.2") and found["lastContact"] > 0
    pair.here.exec(["ipsec", "stop"])
    wait_for(pair.here, dict.fromkeys(["old", "new", "refused"], "down: the IPsec service does not run"), 20)


def test_openvpn_is_understood(make_router):
    authority = Authority()
    first = open_real_router(
        make_router, tunnel("static", static_config(SECOND, "10.8.0.1", "10.8.0.2")),
        tunnel("tls", tls_config(SECOND, "10.9.0.1", "10.9.0.2", "tls-server", authority.members("a"))))
    second = open_real_router(
        make_router, tunnel("static", static_config(FIRST, "10.8.0.2", "10.8.0.1")),
        tunnel("tls", tls_config(FIRST, "10.9.0.2", "10.9.0.1", "tls-client", authority.members("b"))))
    Router.link(first, second, NETWORK)
    start(first)
    wait_for(first, {"static": "down: the last ping of 10.8.0.2 failed ", "tls": "down: nothing has come from the other end"},
             6 * PASS_SECONDS)
    start(second)
    for router in (first, second):
        wait_for(router, {"static": "up", "tls": "up"}, 6 * PASS_SECONDS)
    found = rows(first)
    assert found["tls"]["remote"] == SECOND and found["static"]["lastContact"] > 0
    assert first.exec(["/usr/bin/ping", "-c", "3", "10.9.0.2"]).status == 0
    first.wait_until(lambda: rows(first)["tls"]["receivedBytes"] >= 3 * 84, "the packets counted", 20)
