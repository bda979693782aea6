"""IPsec: every run stops the service, writes its files anew for all enabled tunnels, and starts it if there is one."""

import pytest

from daemon_stories import assert_in_order
from ipsec_records import (CONF, CREATING, FIREWALL, HEAD, NOTHING_TO_START, NO_SUCH_TYPE, PEM_FOLDERS, RESET, RESTART,
                           SECRETS, STARTING, STOP, STOPPING, assert_not_started, certificate_lines, certificate_secret,
                           certificate_tunnel, configured, failed, files, ipsec_documents, mode, pem_files, psk_secret,
                           psk_tunnel, results, section, succeeded)
from tunnel_records import NO_WAN, gre_tunnel, lines, refresh, router_with, run_once, start_daemon, story

OLD_TEXT = "conn of_old\n" * 20


def with_old_files(router, file_mode: int = 0o600):
    """Puts other text into the service's files, with a mode that the program would not give them."""
    for path in (CONF, SECRETS):
        router.write_file(path, OLD_TEXT, file_mode)
    return router


# ---- the order ----

@pytest.mark.asan
@pytest.mark.tsan
def test_a_run_step_by_step(make_router):
    router = configured(make_router, psk_tunnel(), certificate_tunnel(), greTunnels=[gre_tunnel()])
    assert_in_order(router.timeline(), ("log", STOPPING), ("command", STOP), ("api", "wans"), ("api", "ipsecTunnels"),
                    ("command", "ip link set gre1 up"), ("command", RESET))
    assert story(router, RESET, FIREWALL) == [
        ("RUN", RESET), ("DEBUG", CREATING), ("DEBUG", succeeded("PSK", "office")), ("DEBUG", succeeded("RSASIG", "cert")),
        ("DEBUG", STARTING), ("RUN", RESTART), ("RUN", FIREWALL)]
    assert [text for text in router.command_texts() if text.startswith(("ipsec", "rm"))] == [STOP, RESET, RESTART]
    assert lines(router, "ERROR") == [] and lines(router, "WARNING") == []


def test_the_service_has_a_second_before_the_firewall_is_set_up(make_router):
    router = configured(make_router, psk_tunnel())
    restarted = router.wait_for("end", program="ipsec", count=2)
    assert restarted.text == RESTART
    assert router.wait_for("command", FIREWALL).time - restarted.time >= 1


def test_tunnels_are_written_in_the_order_of_their_records(make_router):
    router = configured(make_router, certificate_tunnel("z"), psk_tunnel("b"), certificate_tunnel("m"), psk_tunnel("a"))
    assert files(router) == (
        section("z", certificate_lines("z")) + section("b") + section("m", certificate_lines("m")) + section("a"),
        certificate_secret("z") + psk_secret() + certificate_secret("m") + psk_secret())
    assert results(router) == [succeeded("RSASIG", "z"), succeeded("PSK", "b"), succeeded("RSASIG", "m"), succeeded("PSK", "a")]
    assert router.command_texts().count(RESTART) == 1


@pytest.mark.parametrize("fault", ["fails", "is missing"])
def test_what_becomes_of_the_service_changes_nothing(make_router, fault):
    router = router_with(make_router, ipsec_documents(psk_tunnel()))
    if fault == "fails":
        router.program("ipsec").on(status=7, stdout="no\n", stderr="no\n")
    else:
        router.program("ipsec").missing()
    run_once(router)
    assert [text for text in router.command_texts() if text in (STOP, RESTART, FIREWALL)] == [STOP, RESTART, FIREWALL]
    assert files(router) == (section(), psk_secret())
    assert lines(router, "ERROR") == [] and lines(router, "WARNING") == []


# ---- nothing to start ----

@pytest.mark.parametrize("tunnels", [
    [], None, [{}], [psk_tunnel(enabled=False), certificate_tunnel(enabled=False)], [{"name": "x", "remoteWanIp": "192.0.2.1"}],
    [psk_tunnel(enabled=0), certificate_tunnel(enabled=None), None],
], ids=["an empty list", "null", "an empty record", "all disabled", "none says enabled", "other false values"])
def test_without_an_enabled_tunnel_the_service_stays_down(make_router, tunnels):
    router = with_old_files(router_with(make_router, ipsec_documents(ipsecTunnels=tunnels)))
    run_once(router)
    assert story(router, CREATING, FIREWALL) == [("DEBUG", CREATING), ("DEBUG", NOTHING_TO_START), ("RUN", FIREWALL)]
    assert STOP in router.command_texts() and results(router) == []
    assert (router.read_file(CONF), router.read_file(SECRETS)) == (HEAD, "")
    assert (mode(router, CONF), mode(router, SECRETS)) == (0o600, 0o600)
    assert_not_started(router)


def test_without_a_wan_the_service_is_stopped_and_its_files_stay(make_router):
    router = with_old_files(router_with(make_router, ipsec_documents(psk_tunnel(), wans=[])))
    run_once(router)
    assert [text for text in router.command_texts() if text != "ip tunnel"] == [STOP]
    assert NO_WAN in lines(router, "INFO") and CREATING not in lines(router, "DEBUG")
    assert (router.read_file(CONF), router.read_file(SECRETS)) == (OLD_TEXT, OLD_TEXT)


def test_a_disabled_tunnel_among_others_is_passed_over_in_silence(make_router):
    router = configured(make_router, psk_tunnel("off", enabled=False), psk_tunnel(), certificate_tunnel("off2", enabled=False))
    assert files(router) == (section(), psk_secret()) and pem_files(router) == {}
    assert results(router) == [succeeded("PSK", "office")]


# ---- tunnels that fail ----

def test_a_tunnel_that_fails_keeps_none_of_the_others_from_being_written(make_router):
    router = configured(make_router, psk_tunnel("p1", type="L2TP"), psk_tunnel("p2"), certificate_tunnel("c1", type="ikev2"),
                        certificate_tunnel("c2"), psk_tunnel("p3", type=None))
    assert results(router) == [failed("PSK", "p1"), succeeded("PSK", "p2"), failed("RSA", "c1"), succeeded("RSASIG", "c2"),
                               failed("PSK", "p3")]
    assert lines(router, "ERROR") == [failed("PSK", "p1"), failed("RSA", "c1"), failed("PSK", "p3")]
    assert lines(router, "WARNING") == [NO_SUCH_TYPE] * 3
    assert files(router) == (section("p2") + section("c2", certificate_lines("c2")),
                             psk_secret() + certificate_secret("c1") + certificate_secret("c2"))
    assert router.command_texts().count(RESTART) == 1


def test_when_every_tunnel_fails_the_service_stays_down(make_router):
    router = with_old_files(router_with(make_router, ipsec_documents(psk_tunnel(type="IKEv1"), certificate_tunnel(type=1))))
    run_once(router)
    assert story(router, CREATING, FIREWALL) == [
        ("DEBUG", CREATING), ("WARNING", NO_SUCH_TYPE), ("ERROR", failed("PSK", "office")), ("WARNING", NO_SUCH_TYPE),
        ("ERROR", failed("RSA", "cert")), ("DEBUG", NOTHING_TO_START), ("RUN", FIREWALL)]
    assert files(router) == ("", certificate_secret())
    assert (mode(router, CONF), mode(router, SECRETS)) == (0o600, 0o600)
    assert_not_started(router)


def test_without_local_networks_no_tunnel_can_be_written(make_router):
    router = configured(make_router, psk_tunnel(), certificate_tunnel(), lan=())
    assert lines(router, "ERROR") == [failed("PSK", "office"), failed("RSA", "cert")] and lines(router, "WARNING") == []
    assert files(router) == ("", certificate_secret())
    assert_not_started(router)


# ---- how a tunnel authenticates ----

def test_whatever_is_not_exactly_rsasig_is_a_shared_key(make_router):
    values = ("RSASIG", "secret", "rsasig ", "rsa", "", 5, None, True, [], {})
    members = [{"authMethod": value} for value in values] + [{}]
    router = configured(make_router, *(psk_tunnel(f"t{i}", **member) for i, member in enumerate(members)))
    assert files(router) == ("".join(section(f"t{i}") for i in range(len(members))), psk_secret() * len(members))
    assert results(router) == [succeeded("PSK", f"t{i}") for i in range(len(members))] and pem_files(router) == {}


# ---- from run to run ----

def test_each_run_begins_with_empty_files(make_router):
    """A daemon's runs: what a tunnel had is gone once it is removed, and nothing is written twice."""
    router = router_with(make_router, ipsec_documents(certificate_tunnel(), psk_tunnel()))
    daemon = start_daemon(router)
    assert pem_files(router).keys() == {"cacerts/cert.pem", "certs/cert.pem", "private/cert.pem"}
    refresh(router, daemon)
    assert files(router) == (section("cert", certificate_lines()) + section(), certificate_secret() + psk_secret())
    router.documents["ipsecTunnels"] = [certificate_tunnel(enabled=False)]
    mark = refresh(router, daemon)
    assert files(router) == ("", "") and pem_files(router) == {}
    assert_not_started(router, mark)


def test_a_daemons_files_are_readable_by_all_and_writable_by_root(make_router):
    """The daemon's umask is 0, so that the modes are its own doing."""
    router = router_with(make_router, ipsec_documents(certificate_tunnel()))
    start_daemon(router)
    assert (mode(router, CONF), mode(router, SECRETS)) == (0o644, 0o644)
    assert {mode(router, f"/run/ipsec/{name}") for name in pem_files(router)} == {0o644}


def test_the_modes_are_set_on_files_that_were_there(make_router):
    router = with_old_files(router_with(make_router, ipsec_documents(psk_tunnel())))
    run_once(router)
    assert (mode(router, CONF), mode(router, SECRETS)) == (0o644, 0o644)
    assert files(router) == (section(), psk_secret())


def test_the_reset_leaves_folders_and_dot_files_and_nothing_else(make_router):
    router = with_old_files(router_with(make_router, ipsec_documents()))
    for folder in PEM_FOLDERS:
        router.make_folder(f"{folder}/old/deeper")
        for name in ("old.pem", "old/deeper/x", ".hidden.pem", "with blank.pem", "-rf"):
            router.write_file(f"{folder}/{name}", "old")
    router.write_file("/run/ipsec/other.conf", "other")
    run_once(router)
    assert [router.list_folder(folder) for folder in PEM_FOLDERS] == [[".hidden.pem"]] * 3
    assert router.read_bytes(CONF) == b"version 2.0\n\nconfig setup\n\tuniqueids=yes\n"
    assert len(router.read_bytes(CONF)) == 41
    assert router.read_bytes(SECRETS) == b"" and router.read_file("/run/ipsec/other.conf") == "other"


# ---- what is logged ----

def test_without_its_levels_the_log_is_silent(make_router):
    router = configured(make_router, psk_tunnel(), certificate_tunnel(type="L2TP"), level="0")
    assert [(event.label, event.message) for event in router.log_lines()] == [("ERROR", failed("RSA", "cert"))]
    assert files(router)[0] == section()
