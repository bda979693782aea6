"""The real IPsec service reads the files that the program has written, and knows every connection as it was configured."""

import re

from ipsec_records import CONF, certificate_tunnel, psk_tunnel
from ipsec_routers import authority, conn_names, loaded
from sandbox.ipsec_service import Connection, parse_connections
from tunnel_records import REMOTE, WAN

ROUTER, PEER = "router.example.net", "peer.example.net"
IDENTITIES = {"uid": True, "localId": ROUTER, "remoteId": PEER}

TROUBLE = re.compile(r"fail|invalid|error|skip|malform|unable|unknown|not recognized|no config named")
NO_NETWORK = "error writing to socket: Network is unreachable"  # there is no peer


def known(name: str, **differences) -> Connection:
    """A connection as the service knows it if its record is that of `psk_tunnel`, but for the differences."""
    usual = Connection(f"{name}_192_168_2_0_24", WAN, REMOTE, "IKEv1", WAN, REMOTE, "pre-shared key", "192.168.2.0/24",
                       "192.168.9.0/24")
    return usual._replace(**differences)


def troubles(service) -> set[str]:
    """What the service has logged that tells of trouble, each line once, without thread numbers and groups."""
    found = {re.sub(r"^\d+\[...\] *(<[^>]*> )?", "", line) for line in service.log().splitlines() if TROUBLE.search(line)}
    return found - {NO_NETWORK}


def assert_knows(service, expected: dict[str, Connection]) -> None:
    """Asserts that the service knows these connections, by the name of their tunnel, and no others."""
    assert service.connections() == {f"{name}_192_168_2_0_24": connection for name, connection in expected.items()}


def test_connections_of_all_kinds_are_known_as_they_were_configured(make_router):
    """Key exchanges, modes, authentication, identities, peers."""
    certificates = authority().members(ROUTER)
    router, service = loaded(
        make_router, psk_tunnel("v1"), psk_tunnel("v2", type="IKEv2"), psk_tunnel("v1-aggressive", aggressiveMode=True),
        psk_tunnel("v2-aggressive", aggressiveMode=True, type="IKEv2"),
        psk_tunnel("v1-named", **IDENTITIES), psk_tunnel("v2-named", type="IKEv2", **IDENTITIES),
        psk_tunnel("v2-nameless", type="IKEv2", uid=True), psk_tunnel("v1-other", remoteWanIp="192.0.2.9"),
        certificate_tunnel("v1-cert", **certificates), certificate_tunnel("v2-cert", type="IKEv2", **certificates),
        certificate_tunnel("v2-cert-named", type="IKEv2", **certificates, **IDENTITIES),
        psk_tunnel("v1-rest", compression=True, retries=5, ikelife=8, keylife=None, remoteNetworkMask="25",
                   remoteWanIp="192.0.2.8"))
    by_certificate = {"method": "public key", "left_id": f"CN={ROUTER}", "right_id": None}
    assert_knows(service, {
        "v1": known("v1"), "v2": known("v2", exchange="IKEv2"),
        "v1-aggressive": known("v1-aggressive", exchange="IKEv1 Aggressive"),
        "v2-aggressive": known("v2-aggressive", exchange="IKEv2"),
        "v1-named": known("v1-named", left_id=ROUTER, right_id=PEER),
        "v2-named": known("v2-named", exchange="IKEv2", left_id=ROUTER, right_id=PEER),
        "v2-nameless": known("v2-nameless", exchange="IKEv2", left_id=None, right_id=None),
        "v1-other": known("v1-other", right="192.0.2.9", right_id="192.0.2.9"),
        "v1-cert": known("v1-cert", **by_certificate), "v2-cert": known("v2-cert", exchange="IKEv2", **by_certificate),
        "v2-cert-named": known("v2-cert-named", exchange="IKEv2", method="public key", left_id=ROUTER, right_id=PEER),
        "v1-rest": known("v1-rest", right="192.0.2.8", right_id="192.0.2.8", right_network="192.168.9.0/25")})
    assert service.complaints_about_configuration() == [] and troubles(service) == set()
    log = service.log()
    for name in ("v1-cert", "v2-cert", "v2-cert-named"):
        assert f"loaded ca certificate \"CN=Test CA\" from '/etc/ipsec.d/cacerts/{name}.pem'" in log
        assert f"loaded certificate \"CN={ROUTER}\" from '/var/run/ipsec/certs/{name}.pem'" in log
        assert f"loaded RSA private key from '/var/run/ipsec/private/{name}.pem'" in log
    for ends in (f'"{WAN}" "{REMOTE}"', f'"{WAN}" "192.0.2.9"', f'"{ROUTER}" "{PEER}"', '"" ""'):
        assert f"loaded IKE secret for {ends}" in log


def test_each_local_network_is_a_connection_of_its_own(make_router):
    """The service keeps them under the name of the first, since they have the peer in common."""
    router, service = loaded(make_router, psk_tunnel("a"), psk_tunnel("b", type="IKEv2"),
                             lan=("192.168.1.1", "10.20.30.40", "192.168.2.1"))
    assert conn_names(router) == [f"{name}_{network}_24" for name in ("a", "b")
                                  for network in ("192_168_2_0", "10_20_30_0", "192_168_1_0")]
    assert service.connections() == {
        f"{name}_{network.replace('.', '_')}_24": known(name, exchange=exchange, left_network=f"{network}/24")
        for name, exchange in (("a", "IKEv1"), ("b", "IKEv2")) for network in ("192.168.2.0", "10.20.30.0", "192.168.1.0")}
    assert service.complaints_about_configuration() == [] and troubles(service) == set()


def test_what_any_becomes(make_router):
    """A "right=" with nothing behind it is any peer to the service, as 0.0.0.0 is. Either can only wait to be called. Of a
    network it takes "%any" for an address that has no mask, and a mask that is missing for no bits."""
    any_peer = {"right": "%any", "right_id": None}
    router, service = loaded(
        make_router, psk_tunnel("any", remoteWanIp="Any"),
        psk_tunnel("unresolved", type="IKEv2", remoteWanIp="nowhere.example.net"),
        psk_tunnel("zero", aggressiveMode=True, remoteWanIp="0.0.0.0"),
        psk_tunnel("any-network", remoteWanIp="192.0.2.1", remoteNetworkIp="Any"),
        psk_tunnel("zero-network", remoteWanIp="192.0.2.2", remoteNetworkIp="0.0.0.0", remoteNetworkMask=0),
        psk_tunnel("no-mask", remoteWanIp="192.0.2.3", remoteNetworkMask=None),
        psk_tunnel("no-network", remoteWanIp="192.0.2.4", remoteNetworkIp=None))
    assert_knows(service, {
        "any": known("any", **any_peer), "unresolved": known("unresolved", exchange="IKEv2", **any_peer),
        "zero": known("zero", exchange="IKEv1 Aggressive", right="0.0.0.0", right_id=None),
        "any-network": known("any-network", right="192.0.2.1", right_id="192.0.2.1", right_network="0.0.0.0/32"),
        "zero-network": known("zero-network", right="192.0.2.2", right_id="192.0.2.2", right_network="0.0.0.0/0"),
        "no-mask": known("no-mask", right="192.0.2.3", right_id="192.0.2.3", right_network="0.0.0.0/0"),
        "no-network": known("no-network", right="192.0.2.4", right_id="192.0.2.4", right_network="dynamic")})
    assert service.complaints_about_configuration() == []
    told = {"unable to resolve %any, initiate aborted", "unable to resolve 0.0.0.0, initiate aborted",
            "invalid subnet: /24, skipped"}
    router.wait_until(lambda: troubles(service) >= told, "the attempts to initiate")
    assert troubles(service) == told


def test_what_the_service_refuses_harms_no_other_connection(make_router):
    """Proposals of names that it does not know make it drop the connection, and one certificate that is none is missing
    to its own connection only."""
    router, service = loaded(make_router, psk_tunnel("unknown", phase1="blowfish-sha9;modp1"),
                             certificate_tunnel("no-pem", type="IKEv2"),
                             psk_tunnel("none", encryptMethod=None, type="IKEv2"), psk_tunnel("good"))
    assert_knows(service, {
        "no-pem": known("no-pem", exchange="IKEv2", method="public key", right_id=None),
        "none": known("none", exchange="IKEv2"), "good": known("good")})
    name = "none_192_168_2_0_24"
    router.wait_until(lambda: "IKE" in service.proposals(name), "the first packet")
    assert service.proposals(name) == {"IKE": []}
    assert service.complaints_about_configuration() == ["no config named 'unknown_192_168_2_0_24'"]
    assert {"skipped invalid proposal string: blowfish-sha9-modp1",
            "loading ca certificate from '/etc/ipsec.d/cacerts/no-pem.pem' failed",
            "loading certificate from '/var/run/ipsec/certs/no-pem.pem' failed",
            "loading private key from '/var/run/ipsec/private/no-pem.pem' failed"} <= troubles(service)


def test_a_broken_file_would_be_seen(make_router):
    """The check that the other tests rely on: the part of the service that reads ipsec.conf complains in the system log."""
    router, service = loaded(make_router, psk_tunnel("good"))
    router.exec(["ipsec", "stop"])
    router.write_file(CONF, router.read_file(CONF).replace("\tauto=start", "\tautomatic=start"))
    router.exec(["ipsec", "start"])
    router.wait_until(service.complaints_about_configuration, "a complaint")
    assert "automatic" in "".join(service.complaints_about_configuration())


def test_each_run_restarts_the_service_with_what_was_written(make_router):
    """And a run without a tunnel leaves it down."""
    router, service = loaded(make_router, psk_tunnel("first"))
    first = service.status()
    router.documents["ipsecTunnels"] = [psk_tunnel("second", type="IKEv2")]
    assert router.run().status == 0
    service.wait_for_connections("second_192_168_2_0_24")
    assert_knows(service, {"second": known("second", exchange="IKEv2")})
    assert parse_connections(first).keys() == {"first_192_168_2_0_24"}
    router.documents["ipsecTunnels"] = []
    assert router.run().status == 0
    assert service.status() == "" and not router.exists("/run/charon.pid")
