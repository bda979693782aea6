"""IPsec records with a member that does not convert: the run ends there, the daemon does not, and what it wrote before
stays until a good configuration comes."""

import signal

import pytest

from daemon_stories import EXCEPTION, MONITORS_START, runs, wait_until_idle
from ipsec_records import (FIREWALL, RESTART, SECRETS, STARTING, certificate_lines, certificate_secret, certificate_tunnel,
                           files, ipsec_documents, pem_files, psk_secret, psk_tunnel, section, succeeded)
from tunnel_records import lines, refresh, router_with, start_daemon

GOOD = psk_tunnel("good")

# The member that does not convert, and what of its tunnel is written before it is met. A text of digits is no number.
WITH_SHARED_KEY = [
    ({"ikelife": "3"}, False), ({"keylife": -1}, False), ({"retries": "5"}, False), ({"retries": 4294967296}, False),
    ({"compression": "yes"}, False), ({"aggressiveMode": "no"}, False), ({"ikelife": [3]}, False), ({"phase1": {}}, False),
    ({"encryptMethod": ["3des"]}, False), ({"remoteNetworkIp": {}}, False), ({"uid": "true"}, False),
    ({"uid": True, "localId": []}, False), ({"psk": {"key": 1}}, True)]
# ... and of these how many PEM files there are then, and whether the secrets have the tunnel's key.
WITH_CERTIFICATES = [
    ({"caCert": {}}, 0, False), ({"localCert": []}, 1, False), ({"localPrivKey": {}}, 2, False), ({"ikelife": "3"}, 3, True),
    ({"uid": "yes", "localId": "me"}, 3, True), ({"remoteId": {}}, 3, True)]


@pytest.mark.asan
@pytest.mark.tsan
def test_a_daemon_outlives_them_all(make_router):
    """One daemon goes through them. Each is between two good records, of which the second is not reached."""
    router = router_with(make_router, ipsec_documents())
    daemon = start_daemon(router)

    def run_with(bad: dict) -> int:
        router.documents["ipsecTunnels"] = [GOOD, bad, psk_tunnel("unreached")]
        mark = refresh(router, daemon, EXCEPTION)
        assert lines(router, "ERROR", mark) == [EXCEPTION], bad
        assert not router.find("log", STARTING, since=mark) and not router.find("log", MONITORS_START, since=mark), bad
        assert not {RESTART, FIREWALL} & set(router.command_texts(mark)), bad
        return mark

    for members, sections in WITH_SHARED_KEY:
        mark = run_with(psk_tunnel("bad", **members))
        assert files(router) == (section("good") + (section("bad") if sections else ""), psk_secret()), members
        assert [text for text in lines(router, "DEBUG", mark) if " IPSEC " in text] == [succeeded("PSK", "good")], members
    for members, written, key in WITH_CERTIFICATES:
        run_with(certificate_tunnel("bad", **members))
        assert files(router) == (section("good"), psk_secret() + (certificate_secret("bad") if key else "")), members
        # The file of a text that does not convert is not even opened.
        assert list(pem_files(router)) == ["cacerts/bad.pem", "certs/bad.pem", "private/bad.pem"][:written], members

    router.documents["ipsecTunnels"] = [GOOD, certificate_tunnel()]
    mark = refresh(router, daemon)
    assert lines(router, "ERROR", mark) == []
    assert files(router) == (section("good") + section("cert", certificate_lines()), psk_secret() + certificate_secret())
    assert [text for text in router.command_texts(mark) if text in (RESTART, FIREWALL)] == [RESTART, FIREWALL]


def test_the_exception_is_reported_once_and_the_run_is_not_repeated(make_router):
    router = router_with(make_router, ipsec_documents())
    daemon = start_daemon(router)
    router.documents["ipsecTunnels"] = [psk_tunnel(ikelife="3")]
    mark = refresh(router, daemon, EXCEPTION)
    wait_until_idle(router, daemon)
    assert runs(router, mark) == 1 and lines(router, "ERROR", mark) == [EXCEPTION] and daemon.alive()


def test_in_the_first_run_it_costs_that_run_as_well(make_router):
    router = router_with(make_router, ipsec_documents(GOOD, psk_tunnel("bad", ikelife="3")))
    daemon = start_daemon(router)
    assert files(router) == (section("good"), psk_secret()) and len(router.find("log", EXCEPTION)) == 1
    assert not {RESTART, FIREWALL} & set(router.command_texts())
    router.documents["ipsecTunnels"] = [GOOD]
    mark = refresh(router, daemon)
    assert daemon.alive() and router.read_file(SECRETS) == psk_secret() and RESTART in router.command_texts(mark)


def test_a_single_run_is_ended_by_it(make_router):
    """Only the daemon catches."""
    router = router_with(make_router, ipsec_documents(GOOD, psk_tunnel("bad", ikelife="3")))
    router.tolerate(signal.SIGABRT)
    assert router.run().status == -signal.SIGABRT
    assert files(router) == (section("good"), psk_secret()) and not router.find("log", EXCEPTION)
