"""OpenVPN files: every run writes one file for each enabled tunnel, from the text that the configuration has for it."""

import pytest

from daemon_stories import refresh, start
from openvpn_records import STATIC_KEY, WITH_CA, children, conf_path, is_there, tunnel, wait_for_children, with_tunnels

READ_FAILED = "[TUNNEL_MNGR] Failed read config"
CAUGHT = "[TUNNEL_MNGR][OVPN] Conf::init catch exception"


def run_with(make_router, *tunnels, **members):
    """A router after one run with these tunnels."""
    router = make_router(with_tunnels(*tunnels, **members))
    router.make_ipsec_folders()
    assert router.run("--printlvl", "100").status == 0
    return router


def files(router) -> list[str]:
    return sorted(name for name in router.list_folder("/run") if name.startswith("openvpn_"))


@pytest.mark.asan
def test_the_file_has_its_device_named_after_the_tunnel_and_its_verbosity_after_the_log_level(make_router):
    router = run_with(make_router, tunnel("office"), syslog={"logLevel": 55})
    assert router.read_file(conf_path("office")) == "dev tunoffice\nifconfig 10.8.0.1 10.8.0.2\nverb 7\n"
    assert router.stat(conf_path("office"))["mode"] & 0o777 == 0o644


@pytest.mark.parametrize("config, expected", [
    ("", "verb 2\n"),
    ("dev tun", "dev tunoffice\nverb 2\n"),
    ("  \tverb 4\r\nport 1", "  \tverb 2\nport 1\n"),
    ("port 1\r\n#dev tun\n\n", "port 1\r\n#dev tun\n\nverb 2\n"),
    ("dev tun\nverb 1\ndev tap\n", "dev tunoffice\nverb 2\ndev tunoffice\n"),
])
def test_texts_are_copied_but_for_two_options(make_router, config, expected):
    router = run_with(make_router, tunnel("office", config))
    assert router.read_bytes(conf_path("office")) == expected.encode()


def test_a_device_name_is_cut_to_what_the_kernel_takes(make_router):
    router = run_with(make_router, tunnel("averyveryverylongname", "dev tun\n"))
    assert router.read_file(conf_path("averyveryverylongname")) == "dev tunaveryveryver\nverb 2\n"


def test_tunnels_that_are_not_enabled_leave_no_trace(make_router):
    router = run_with(make_router, tunnel("off", enabled=False), {"name": "unsaid", "config": STATIC_KEY})
    assert files(router) == []
    assert children(router) == []
    assert router.messages("ERROR") == []


def test_without_tunnels_or_log_level_the_run_goes_on(make_router):
    documents = with_tunnels()
    del documents["ovpnTunnels"], documents["syslog"]
    router = make_router(documents)
    router.make_ipsec_folders()
    assert router.run().status == 0
    assert "firewall --init" in router.command_texts()
    assert children(router) == []


def test_the_first_tunnel_of_a_name_wins(make_router):
    router = run_with(make_router, tunnel("a", "port 1\n"), tunnel("a", "port 2\n"), tunnel("A", "port 3\n"))
    assert files(router) == ["openvpn_A.conf", "openvpn_a.conf"]
    assert router.read_file(conf_path("a")) == "port 1\nverb 2\n"
    assert router.messages("ERROR") == ["[TUNNEL_MNGR][OVPN] duplicated openvpn name: a"]


def test_a_file_that_cannot_be_created_costs_its_tunnel_only(make_router):
    router = make_router(with_tunnels(tunnel("bad"), tunnel("good")))
    router.make_ipsec_folders()
    router.make_folder(conf_path("bad"))
    daemon = start(router)
    assert [event.argv[2] for event in wait_for_children(router, 1)] == [conf_path("good")]
    assert ("[TUNNEL_MNGR][OVPN] faild create file for tunnel bad conf: /var/run/openvpn_bad.conf"
            in router.messages("ERROR"))
    assert daemon.alive()


def test_a_name_whose_file_could_not_be_created_is_free_for_a_later_tunnel(make_router):
    router = make_router(with_tunnels(tunnel("no/such/folder"), tunnel("no/such/folder")))
    router.make_ipsec_folders()
    assert router.run().status == 0
    text = "[TUNNEL_MNGR][OVPN] faild create file for tunnel no/such/folder conf: /var/run/openvpn_no/such/folder.conf"
    assert router.messages("ERROR") == [text, text]


def with_little_room_for_big(make_router, *tunnels):
    """A file system of its own, of a few pages, behind the path of the tunnel "big"."""
    router = make_router(with_tunnels(*tunnels))
    router.make_ipsec_folders()
    router.make_folder("/run/little")
    done = router.exec(["/usr/bin/mount", "-t", "tmpfs", "-o", "size=16k", "none", "/run/little"])
    assert done.status == 0, done.stderr
    assert router.exec(["/usr/bin/ln", "-s", "/run/little/conf", conf_path("big")]).status == 0
    return router


def test_a_full_disk_costs_the_tunnel_and_leaves_the_partial_file(make_router):
    """What is asked for to be written is more than there is room for."""
    router = with_little_room_for_big(make_router, tunnel("big", "#" * 200_000), tunnel("small"))
    start(router)
    assert [event.argv[2] for event in wait_for_children(router, 1)] == [conf_path("small")]
    assert ("[TUNNEL_MNGR][OVPN] faild write file for tunnel big conf: /var/run/openvpn_big.conf"
            in router.messages("ERROR"))
    assert 0 < router.stat("/run/little/conf")["size"] < 200_000


def test_a_file_that_could_not_be_written_whole_is_written_by_a_later_tunnel_of_the_name(make_router):
    router = with_little_room_for_big(make_router, tunnel("big", "#" * 200_000), tunnel("big", "port 2\n"))
    start(router)
    assert [event.argv[2] for event in wait_for_children(router, 1)] == [conf_path("big")]
    assert router.read_file("/run/little/conf") == "port 2\nverb 2\n"
    assert router.messages("ERROR") == [
        "[TUNNEL_MNGR][OVPN] faild write file for tunnel big conf: /var/run/openvpn_big.conf"]


@pytest.mark.parametrize("target", ["openvpn", "syslog"])
def test_a_request_that_fails_ends_the_run_where_it_stands(make_router, target):
    """The GRE tunnels are gone by then; IPsec and OpenVPN run on. The request itself says nothing, the run one line."""
    router = make_router(with_tunnels(tunnel("office", WITH_CA)))
    router.make_ipsec_folders()
    daemon = start(router)
    child = wait_for_children(router, 1)[0]
    router.preset_gre({"name": "stale", "remote": "192.0.2.1", "local": "192.0.2.2", "ttl": "64"})
    router.api.on(target, envelope={"code": 500})
    mark = refresh(router, daemon)
    assert router.messages("ERROR", since=mark) == [READ_FAILED]
    assert "ip tunnel del stale" in router.command_texts(mark)
    assert not [text for text in router.command_texts(mark) if text.startswith("ipsec")]
    assert is_there(router, child)


@pytest.mark.parametrize("broken, left", [
    ([tunnel("good"), tunnel("bad", enabled="yes")], ["openvpn_good.conf"]),
    ([tunnel("good"), 5], ["openvpn_good.conf"]),
    ([tunnel("bad", config={"dev": "tun"}), tunnel("late")], []),
    ([tunnel(["bad"]), tunnel("late")], []),
])
@pytest.mark.asan
def test_a_record_of_a_wrong_type_ends_the_run_with_two_lines(make_router, broken, left):
    router = run_with(make_router, *broken)
    assert router.messages("ERROR") == [CAUGHT, READ_FAILED]
    assert files(router) == left
    assert children(router) == []
    assert "firewall --init" not in router.command_texts()


def test_a_log_level_of_a_wrong_type_ends_the_run(make_router):
    router = run_with(make_router, tunnel("office"), syslog={"logLevel": "5"})
    assert router.messages("ERROR") == [CAUGHT, READ_FAILED]


def test_the_members_of_an_object_are_tunnels_too(make_router):
    router = run_with(make_router, ovpnTunnels={"y": tunnel("two"), "x": tunnel("one")})
    assert files(router) == ["openvpn_one.conf", "openvpn_two.conf"]


def test_both_documents_are_read_before_any_file_is_written(make_router):
    router = make_router(with_tunnels(tunnel("office", WITH_CA)))
    router.make_ipsec_folders()
    router.api.on("syslog", close=True)
    router.run()
    assert router.find("api", "fields=ovpnTunnels") and files(router) == []


def test_files_of_tunnels_that_are_gone_stay(make_router):
    router = make_router(with_tunnels(tunnel("old")))
    router.make_ipsec_folders()
    daemon = start(router)
    router.documents["ovpnTunnels"] = [tunnel("new")]
    refresh(router, daemon)
    assert files(router) == ["openvpn_new.conf", "openvpn_old.conf"]
