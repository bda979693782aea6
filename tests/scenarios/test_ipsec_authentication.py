"""IPsec tunnels as they stand in the service's files: how the ends know each other, which peer, which networks."""

import pytest

from ipsec_records import (KEY, NO_SUCH_METHOD, RESTART, certificate_lines, certificate_secret, certificate_tunnel, configured,
                           failed, files, pem_files, psk_secret, psk_tunnel, results, section, succeeded)
from tunnel_records import REMOTE, TAG, WAN, lines

NO_SUCH_HASH = f"{TAG} Unsupported hash value = sha2 (need use sha2_256 or sha2_512, set sha2_256)."


def identities(local: str, remote: str) -> str:
    return f'\tauthby=secret\n\tleftid="{local}"\n\trightid="{remote}"\n'


# ---- shared keys ----

@pytest.mark.asan
def test_shared_keys_and_identities(make_router):
    """Without "uid" the addresses identify the key, with it whatever is configured does, also when it is empty. Nothing
    is escaped, and a key may be missing."""
    router = configured(
        make_router,
        psk_tunnel("plain"), psk_tunnel("unused", uid=False, localId="me", remoteId="you"),
        psk_tunnel("named", uid=True, localId="me@home", remoteId="C=XX, CN=you"),
        psk_tunnel("half", uid=True, localId="", remoteId="peer"), psk_tunnel("none", uid=True),
        psk_tunnel("number", uid=1, localId=5, remoteId=True, psk=1.5),
        psk_tunnel("no key", psk=None), psk_tunnel("odd", psk='a"b\\n $HOME ä'))
    assert files(router) == (
        section("plain") + section("unused") + section("named", identities("me@home", "C=XX, CN=you"))
        + section("half", identities("", "peer")) + section("none", identities("", ""))
        + section("number", identities("5", "true")) + section("no_key") + section("odd"),
        psk_secret() * 2 + psk_secret("me@home", "C=XX, CN=you") + psk_secret("", "peer") + psk_secret("", "")
        + psk_secret("5", "true", "1.5") + psk_secret(key="") + psk_secret(key='a"b\\n $HOME ä'))
    assert results(router) == [succeeded("PSK", name)
                               for name in ("plain", "unused", "named", "half", "none", "number", "no_key", "odd")]
    assert lines(router, "ERROR") == [] and pem_files(router) == {}


def test_a_shared_key_is_written_once_however_many_networks_there_are(make_router):
    router = configured(make_router, psk_tunnel(), lan=("192.168.1.1", "10.20.30.40", "192.168.2.1"))
    assert files(router) == (section(network="192.168.2.0/24") + section(network="10.20.30.0/24")
                             + section(network="192.168.1.0/24"), psk_secret())
    assert results(router) == [succeeded("PSK", "office")]


# ---- certificates ----

@pytest.mark.asan
def test_certificates_and_identities(make_router):
    """An identity counts when there is one and "uid" is set."""
    router = configured(
        make_router,
        certificate_tunnel("plain"), certificate_tunnel("unused", uid=False, localId="me", remoteId="you"),
        certificate_tunnel("both", uid=True, localId="me", remoteId="you"),
        certificate_tunnel("peer", uid=True, localId="", remoteId="peer-id"),
        certificate_tunnel("own", uid=True, localId="me", remoteId=""), certificate_tunnel("none", uid=True))
    assert files(router) == (
        section("plain", certificate_lines("plain")) + section("unused", certificate_lines("unused"))
        + section("both", certificate_lines("both", '"me"', '"you"'))
        + section("peer", certificate_lines("peer", None, '"peer-id"'))
        + section("own", certificate_lines("own", '"me"')) + section("none", certificate_lines("none")),
        "".join(certificate_secret(name) for name in ("plain", "unused", "both", "peer", "own", "none")))


def test_the_texts_of_certificates_are_written_as_they_are(make_router):
    text = "-----BEGIN CERTIFICATE-----\r\nMII=\n\n -----END ä%s\\n"
    router = configured(make_router, certificate_tunnel("My Office 1", caCert=text, localCert=text * 2, localPrivKey=text * 3),
                        certificate_tunnel("empty", caCert="", localCert=None, localPrivKey=None))
    assert pem_files(router) == {
        "cacerts/My_Office_1.pem": text, "certs/My_Office_1.pem": text * 2, "private/My_Office_1.pem": text * 3,
        "cacerts/empty.pem": "", "certs/empty.pem": "", "private/empty.pem": ""}
    assert results(router) == [succeeded("RSASIG", "My_Office_1"), succeeded("RSASIG", "empty")]


def test_two_tunnels_of_one_name_share_their_pem_files_and_nothing_else(make_router):
    router = configured(make_router, certificate_tunnel("a b", caCert="one"), certificate_tunnel("a_b", caCert="two"))
    assert files(router) == (section("a_b", certificate_lines("a_b")) * 2, certificate_secret("a_b") * 2)
    assert pem_files(router) == {"cacerts/a_b.pem": "two", "certs/a_b.pem": "the certificate of a_b\n",
                                 "private/a_b.pem": "the key of a_b\n"}
    assert results(router) == [succeeded("RSASIG", "a_b")] * 2


def test_a_certificate_tunnel_that_is_refused_leaves_its_files_and_its_key_behind(make_router):
    router = configured(make_router, certificate_tunnel(type="L2TP"))
    assert files(router) == ("", certificate_secret())
    assert pem_files(router) == {"cacerts/cert.pem": "the CA of cert\n", "certs/cert.pem": "the certificate of cert\n",
                                 "private/cert.pem": "the key of cert\n"}
    assert results(router) == [failed("RSA", "cert")] and RESTART not in router.command_texts()


def test_a_certificate_tunnel_has_a_section_for_each_network_and_one_key(make_router):
    router = configured(make_router, certificate_tunnel(), lan=("192.168.1.1", "192.168.2.1"))
    assert files(router) == (section("cert", certificate_lines(), "192.168.2.0/24")
                             + section("cert", certificate_lines(), "192.168.1.0/24"), certificate_secret())


# ---- the peer and its network ----

def test_a_peer_that_is_any(make_router):
    """"Any" is looked up like a host name before the section is written, and there is no such host; so the service gets
    no peer. 0.0.0.0 stays what it is."""
    router = configured(make_router, psk_tunnel("a", remoteWanIp="Any"), psk_tunnel("b", remoteWanIp="any"),
                        certificate_tunnel("c", remoteWanIp="Any"), psk_tunnel("d", remoteWanIp="0.0.0.0"))
    assert files(router) == (
        section("a", right="") + section("b", right="") + section("c", certificate_lines("c"), right="")
        + section("d", right="0.0.0.0"),
        psk_secret(remote="") * 2 + certificate_secret("c") + psk_secret(remote="0.0.0.0"))
    assert lines(router, "WARNING") == [f"{TAG}[FQDN_MONITOR] The host [{name}] was not found.\n"
                                        for name in ("Any", "any", "Any")]
    assert len(results(router)) == 4 and lines(router, "ERROR") == []


def test_a_peer_by_its_name(make_router):
    router = configured(make_router, psk_tunnel("known", remoteWanIp="192.0.2.77"),
                        psk_tunnel("unknown", remoteWanIp="nowhere.example.net"), psk_tunnel("absent", remoteWanIp=None))
    assert files(router) == (section("known", right="192.0.2.77") + section("unknown", right="") + section("absent", right=""),
                             psk_secret(remote="192.0.2.77") + psk_secret(remote="") * 2)


def test_a_network_that_is_any_and_masks_of_all_kinds(make_router):
    router = configured(
        make_router, psk_tunnel("a", remoteNetworkIp="Any"), psk_tunnel("b", remoteNetworkIp="any"),
        psk_tunnel("c", remoteNetworkMask="24"), psk_tunnel("d", remoteNetworkMask=16.9),
        psk_tunnel("e", remoteNetworkMask=None),
        psk_tunnel("f", remoteNetworkIp="Any", remoteNetworkMask=True),
        psk_tunnel("g", remoteNetworkIp=None, remoteNetworkMask=""))
    assert files(router)[0] == (
        section("a", rightsubnet="%any") + section("b", rightsubnet="any/24") + section("c")
        + section("d", rightsubnet="192.168.9.0/16") + section("e", rightsubnet="192.168.9.0/")
        + section("f", rightsubnet="%any") + section("g", rightsubnet="/"))
    assert lines(router, "WARNING") == [f"{TAG} Unable to parse number *{text}\n*" for text in ("null", "true")]


# ---- what else a section says ----

def test_what_is_switched_on_and_counted(make_router):
    router = configured(
        make_router,
        psk_tunnel("a", type="IKEv2", compression=True, aggressiveMode=True, retries=5, ikelife=4294967295, keylife=0),
        psk_tunnel("b", ikelife=None, keylife=2.9, retries=True, compression=1, aggressiveMode=None))
    assert files(router)[0] == (
        section("a", keyexchange="ikev2", compress="yes", aggressive="yes", keyingtries="5", ikelifetime="4294967295h",
                keylife="0h")
        + section("b", ikelifetime="0h", keylife="2h", keyingtries="1", compress="yes"))


def test_proposals_that_are_missing_are_complained_of_for_each_section(make_router):
    router = configured(make_router, psk_tunnel("none", encryptMethod=None), psk_tunnel("odd", encryptMethod="AES128"),
                        psk_tunnel("sha", phase1="aes256-sha2", phase2="3des-sha2;dh22"), lan=("192.168.1.1", "192.168.2.1"))
    networks = ("192.168.2.0/24", "192.168.1.0/24")
    assert files(router)[0] == "".join(
        section(name, network=network, **suites) for name, suites in (
            ("none", {"ike": "", "esp": ""}), ("odd", {"ike": "", "esp": ""}),
            ("sha", {"ike": "aes256-sha2_256-modp1536,aes256-sha2_256-modp1024", "esp": "3des-sha2_256-modp1024s160"}))
        for network in networks)
    assert lines(router, "ERROR") == [NO_SUCH_METHOD] * 2 + [NO_SUCH_METHOD] * 4 + [NO_SUCH_HASH] * 4
    assert results(router) == [succeeded("PSK", name) for name in ("none", "odd", "sha")] and RESTART in router.command_texts()


def test_both_ends_have_the_addresses_of_the_runs_own_time(make_router):
    wans = [{"current": False, "ip": "192.0.2.1"}, {"current": True, "ip": "192.0.2.2"}]
    router = configured(make_router, psk_tunnel(psk=KEY), wans=wans)
    assert WAN != "192.0.2.2"
    assert files(router) == (section(left="192.0.2.2"), psk_secret("192.0.2.2", REMOTE))
