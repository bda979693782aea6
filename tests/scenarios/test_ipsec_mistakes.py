"""What docs/configuration.md says happens silently to IPsec tunnels: the real service shows it, and nothing of it is an
error in the daemon's log."""

import re

import pytest

from ipsec_records import CONF, certificate_tunnel, psk_tunnel
from ipsec_routers import authority, cable, serviced
from sandbox.ipsec_service import Connection
from tunnel_records import REMOTE, WAN, run_once

ROUTER = "router.example.net"
NETWORK = "192_168_2_0_24"
KNOWN = Connection("", WAN, REMOTE, "IKEv1", WAN, REMOTE, "pre-shared key", "192.168.2.0/24", "192.168.9.0/24")
LOADED = re.compile(r"loaded IKE secret for (.*)")


def unerringly(make_router, *tunnels: dict, **members):
    """A router in which the program has run once with these tunnels, without an error, and the service."""
    router, service = serviced(make_router, *tunnels, **members)
    cable(router, "wan0", f"{WAN}/24")
    run_once(router, "0")
    assert not router.find("log", ident="TUNNEL_MNGR")
    return router, service


def test_what_is_left_out_or_of_another_form_is_taken_for_something_else(make_router):
    differences = {  # by the record's difference from a good one, how the connection differs
        "no-mask": ({"remoteNetworkMask": None}, {"right_network": "0.0.0.0/0"}),
        "empty-mask": ({"remoteNetworkMask": ""}, {"right_network": "0.0.0.0/0"}),
        "dotted-mask": ({"remoteNetworkMask": "255.255.255.0"}, {"right_network": "192.168.9.0/32"}),
        "mask-33": ({"remoteNetworkMask": 33}, {"right_network": "192.168.9.0/32"}),
        "no-network": ({"remoteNetworkIp": None}, {"right_network": "dynamic"}),
        "any-network": ({"remoteNetworkIp": "any"}, {"right_network": "dynamic"}),
        "capitals": ({"authMethod": "RSASIG", **authority().members(ROUTER)}, {}),
        "no-method": ({"authMethod": None, **authority().members(ROUTER)}, {}),
        "no-psk": ({"psk": None}, {}),
        "no-peer": ({"remoteWanIp": None}, {"right": "%any", "right_id": None}),
        "blank": ({"remoteWanIp": f"{REMOTE} "}, {"right": "%any", "right_id": None}),
        "octal": ({"remoteWanIp": "010.0.0.1"}, {"right": "8.0.0.1", "right_id": "8.0.0.1"}),
        "short": ({"remoteWanIp": "10.1"}, {"right": "10.0.0.1", "right_id": "10.0.0.1"}),
        "group": ({"phase1": "aes256-sha1-modp2048"}, {})}
    numbered = enumerate(differences.items(), 1)
    peers = {name: {"remoteWanIp": f"192.0.2.{number}"} | record for number, (name, (record, _)) in numbered}
    _, service = unerringly(make_router, *(psk_tunnel(name, **record) for name, record in peers.items()))
    names = {name: f"{name}_{NETWORK}" for name in differences}
    service.wait_for_connections(*names.values())
    known = service.connections()
    for name, (_, difference) in differences.items():
        peer = {"right": peers[name]["remoteWanIp"], "right_id": peers[name]["remoteWanIp"]}
        assert known[names[name]]._replace(peer="") == KNOWN._replace(**peer | difference), name
    assert service.proposals(names["group"]) == {"IKE": []}


def test_two_tunnels_of_one_name_become_one_connection_made_of_both(make_router):
    """What only the first has remains: here its identities and its certificate."""
    first = certificate_tunnel("of fice", **authority().members(ROUTER), uid=True, localId=ROUTER, remoteId="peer")
    second = psk_tunnel("of_fice", remoteWanIp="192.0.2.9", remoteNetworkIp="10.9.9.0", type="IKEv2", psk="another key")
    _, service = unerringly(make_router, first, second)
    name = f"of_fice_{NETWORK}"
    service.wait_for_connections(name)
    assert service.connections() == {name: KNOWN._replace(
        peer=name, right="192.0.2.9", exchange="IKEv2", left_id=ROUTER, right_id="peer", right_network="10.9.9.0/24")}
    assert f'cert:  "CN={ROUTER}"' in service.status()
    assert "loaded RSA private key" in service.log() and LOADED.findall(service.log()) == [f'"{WAN}" "192.0.2.9"']


def test_a_hash_ends_the_name_and_makes_one_connection_of_all(make_router):
    _, service = unerringly(make_router, psk_tunnel("site#1"), psk_tunnel("site#2"), lan=("192.168.1.1", "192.168.2.1"))
    service.wait_for_connections("site")
    assert re.findall("added configuration '(.*)'", service.log()) == ["site"]


def test_a_line_feed_in_a_key_costs_the_keys_after_it(make_router):
    records = [psk_tunnel(name, remoteWanIp=f"192.0.2.{number}") for number, name in enumerate(("a", "b", "c"))]
    _, service = unerringly(make_router, records[0], records[1] | {"psk": "two\nlines"}, records[2])
    service.wait_for_connections(*(f"{name}_{NETWORK}" for name in "abc"))
    assert LOADED.findall(service.log()) == [f'"{WAN}" "192.0.2.0"']


@pytest.mark.parametrize("members", [
    *({"name": name} for name in ('the "office"', "a=b", "#1", "of\tfice", "of\nfice")),
    {"uid": True, "localId": 'router"', "remoteId": "peer"}], ids=str)
def test_what_the_file_cannot_hold_keeps_every_tunnel_down(make_router, members):
    router, service = unerringly(make_router, psk_tunnel("good"), psk_tunnel(**members))
    router.wait_until(lambda: "unable to start strongSwan -- fatal errors in config" in
                      service.complaints_about_configuration(), "the refusal of the whole file")
    assert service.status() == "" and f"conn good_{NETWORK}" in router.read_file(CONF)
