"""The parts of the lab that need no kernel of their own: what it reads out of programs' words, what it expects of a
router, the archive it boots from and the report it writes."""

import copy
import json
import os
import pathlib
import stat
import subprocess
import time
import xml.etree.ElementTree as ElementTree
from types import SimpleNamespace

import pytest

from lab import cpio, readings, report, router, state
from lab.documents import Documents, Keys
from lab.faults import FAULTS
from lab.steps import Step, write_documents
from lab.topology import SITE_A, SITE_B

WAN_A, WAN_B = SITE_A.wan, SITE_B.wan
NAMES = {SITE_A.host_name: WAN_A, SITE_B.host_name: WAN_B}


def link(name: str, kind: str, flags: list[str], addresses: list[dict] | None = None, **ends) -> dict:
    """A device as `ip -json -details address` shows it."""
    return {"ifname": name, "flags": flags, "linkinfo": {"info_kind": kind, "info_data": ends},
            "addr_info": addresses or []}


GRE_LINK = link("Head_Office", "gre", ["POINTOPOINT", "NOARP", "UP", "LOWER_UP"],
                [{"family": "inet", "local": "10.1.1.2", "prefixlen": 30},
                 {"family": "inet6", "local": "fe80::1", "prefixlen": 64}], local=WAN_B, remote=WAN_A, ttl=64)


def test_devices_tell_ends_state_and_address():
    assert readings.devices(json.dumps([GRE_LINK])) == {
        "Head_Office": f"gre {WAN_B} to {WAN_A} ttl 64, up, 10.1.1.2/30"}


def test_a_device_that_is_down_shows():
    shown = [link("tunspare", "tun", ["POINTOPOINT", "NOARP"], type="tun")]
    assert readings.devices(json.dumps(shown)) == {"tunspare": "tun, down"}


def test_what_every_router_has_is_left_out():
    fixed = [{"ifname": "lo", "flags": ["UP"], "addr_info": []}, link("wan", "veth", ["UP"]),
             link("gre0", "gre", ["NOARP"], local="any", remote="any", ttl=0), {}]
    assert readings.devices(json.dumps(fixed)) == {}


def test_routes_are_those_added_through_the_devices():
    shown = [{"dst": "default", "gateway": "192.0.2.1", "dev": "wan", "flags": []},
             {"dst": "10.1.1.0/30", "dev": "gre1", "protocol": "kernel", "flags": []},
             {"dst": "192.168.21.0/24", "dev": "gre1", "scope": "link", "flags": []},
             {"dst": "192.168.22.0/24", "dev": "tun1", "flags": []}]
    assert readings.routes(json.dumps(shown), {"gre1"}) == ["192.168.21.0/24 gre1"]


XFRM_STATES = """src 198.51.100.2 dst 203.0.113.2
\tproto esp spi 0xc7725fa4(3346161572) reqid 1(0x00000001) mode tunnel
\tlifetime config:
\t  limit: soft (INF)(bytes), hard (INF)(bytes)
\t  limit: soft (INF)(packets), hard (INF)(packets)
\tlifetime current:
\t  588(bytes), 7(packets)
\t  add 2026-11-21 05:25:04 use 2026-11-21 05:25:05
src 203.0.113.2 dst 198.51.100.2
\tproto esp spi 0xcbb56d41(3417664833) reqid 1(0x00000001) mode tunnel
\tlifetime config:
\t  limit: soft 1000(bytes), hard 2000(bytes)
\t  limit: soft 300(packets), hard 400(packets)
\tlifetime current:
\t  420(bytes), 5(packets)
"""


def test_esp_counters_are_not_the_limits():
    assert readings.esp_packets(XFRM_STATES) == 12
    assert readings.esp_states(XFRM_STATES) == 2
    assert readings.esp_packets("") == readings.esp_states("") == 0


def test_policies_of_sockets_do_not_count():
    shown = ("src 192.168.10.0/24 dst 192.168.20.0/24 \n\tdir out priority 375423 ptype main \n"
             "\ttmpl src 198.51.100.2 dst 203.0.113.2\n\t\tproto esp spi 0xc7725fa4 reqid 1 mode tunnel\n"
             "src 0.0.0.0/0 dst 0.0.0.0/0 \n\tsocket in priority 0 ptype main \n")
    assert readings.tunnel_policies(shown) == 1


STATUS = """Connections:
office_192_168_10_0_24:  198.51.100.2...203.0.113.2  IKEv1, dpddelay=60s
office_192_168_10_0_24:   local:  [198.51.100.2] uses pre-shared key authentication
office_192_168_10_0_24:   remote: [203.0.113.2] uses pre-shared key authentication
partner_192_168_10_0_24:  198.51.100.2...203.0.113.30  IKEv2, dpddelay=60s
partner_192_168_10_0_24:   remote: [CN=partner] uses public key authentication
Security Associations (1 up, 1 connecting):
partner_192_168_10_0_24[2]: CONNECTING, 198.51.100.2[%any]...203.0.113.30[%any]
partner_192_168_10_0_24[2]: IKEv2 SPIs: 3a8cbe4a98a9ca03_i* 0000000000000000_r
office_192_168_10_0_24[1]: ESTABLISHED 3 seconds ago, 198.51.100.2[198.51.100.2]...203.0.113.2[203.0.113.2]
office_192_168_10_0_24[1]: IKEv1 SPIs: 672a0d2776e8ee99_i* 171a158e7a91766b_r, rekeying in 2 hours
office_192_168_10_0_24{1}:  AES_CBC_128/HMAC_MD5_96, 0 bytes_i, 0 bytes_o, rekeying in 44 minutes
"""


def test_only_an_established_association_has_exchanged_keys():
    assert readings.key_exchanges(STATUS, "office") == {"IKEv1"}
    assert readings.key_exchanges(STATUS, "partner") == set()


def test_authentication_and_proposal_are_those_of_the_tunnel():
    assert readings.authentication(STATUS, "office") == "pre-shared key"
    assert readings.authentication(STATUS, "partner") == "public key"
    assert readings.proposal(STATUS, "office") == "AES_CBC_128/HMAC_MD5_96"
    assert readings.proposal(STATUS, "partner") == readings.authentication(STATUS, "nobody") == "none"


def test_sections_tell_ends_and_kind():
    text = ("version 2.0\n\nconfig setup\n\tuniqueids=yes\n"
            "\nconn office_10\n\tleft=192.0.2.1\n\tright=192.0.2.2\n\tkeyexchange=ikev1\n\tauthby=secret\n"
            "\nconn vault_10\n\tleft=192.0.2.1\n\tright=192.0.2.3\n\tkeyexchange=ikev2\n\tauthby=rsasig\n")
    assert readings.sections(text) == [("office_10", "192.0.2.1 to 192.0.2.2, ikev1, secret"),
                                       ("vault_10", "192.0.2.1 to 192.0.2.3, ikev2, rsasig")]


def test_a_section_that_stands_there_twice_is_found_twice():
    text = "conn office_10\n\tleft=192.0.2.1\n\tright=192.0.2.2\n\tkeyexchange=ikev1\n\tauthby=secret\n\n"
    assert readings.sections(text + text) == [("office_10", "192.0.2.1 to 192.0.2.2, ikev1, secret")] * 2


@pytest.mark.parametrize("mode, is_open", [
    (stat.S_IFREG | 0o644, False), (stat.S_IFREG | 0o664, True), (stat.S_IFREG | 0o646, True),
    (stat.S_IFREG | 0o600, False), (stat.S_IFDIR | 0o755, False), (stat.S_IFDIR | 0o775, False),
    (stat.S_IFDIR | 0o757, True), (stat.S_IFDIR | 0o1777, True), (stat.S_IFSOCK | 0o770, False),
    (stat.S_IFSOCK | 0o777, True), (stat.S_IFIFO | 0o622, True), (stat.S_IFLNK | 0o777, False)])
def test_nothing_is_open_to_others_and_no_file_to_its_group(mode, is_open):
    found = readings.open_to_writing({"/run": stat.S_IFDIR | 0o755, "/run/it": mode})
    assert found == ([f"{stat.S_IMODE(mode):04o} /run/it"] if is_open else [])


def test_a_router_lists_the_modes_of_all_below_its_folders(tmp_path, monkeypatch):
    (tmp_path / "run" / "deep").mkdir(parents=True)
    (tmp_path / "run" / "deep" / "file").write_text("")
    (tmp_path / "run" / "deep" / "file").chmod(0o606)
    (tmp_path / "run" / "nowhere").symlink_to("/nowhere")
    (tmp_path / "old").symlink_to("run")
    monkeypatch.setattr(router, "RUN_FOLDERS", (str(tmp_path / "run"), str(tmp_path / "old")))
    modes = router.Router._modes(None)
    assert sorted(path.removeprefix(str(tmp_path)) for path in modes) == ["/run", "/run/deep", "/run/deep/file",
                                                                         "/run/nowhere"]
    assert readings.open_to_writing(modes) == [f"0606 {tmp_path}/run/deep/file"]


def test_runs_are_counted_by_their_ends():
    events = [{"time": time, "text": text} for time, text in
              ((1.0, "INFO [TUNNEL_MNGR] MANAGING TUNNELS"), (2.0, "something else"),
               (4.5, "INFO [TUNNEL_MNGR] v_apFqdnMonitor size 3"), (9.0, "INFO [TUNNEL_MNGR] MANAGING TUNNELS"))]
    assert readings.run_seconds(events) == [3.5]


PINGS = """PING 192.168.21.10 (192.168.21.10) from 192.168.11.10 : 56(84) bytes of data.
[100.000000] 64 bytes from 192.168.21.10: icmp_seq=1 ttl=62 time=0.5 ms
[100.500000] 64 bytes from 192.168.21.10: icmp_seq=2 ttl=62 time=0.5 ms
[101.000000] From 192.168.11.1 icmp_seq=3 Destination Host Unreachable
[130.250000] 64 bytes from 192.168.21.10: icmp_seq=60 ttl=62 time=0.5 ms
[130.7"""  # ping is still running


def test_the_gap_is_between_answers_and_not_refusals():
    times = readings.answer_times(PINGS)
    assert times == [100.0, 100.5, 130.25]
    assert readings.longest_gap(times) == 29.75


def test_without_two_answers_the_gap_has_no_end():
    assert readings.longest_gap([]) == readings.longest_gap([100.0]) == float("inf")


@pytest.mark.parametrize("received, holds", [(5, True), (4, False), (15, False)])
def test_every_request_must_be_answered(received, holds):
    assert readings.answered(f"5 packets transmitted, {received} received, 0% packet loss, time 4ms\n", 5) == holds


@pytest.fixture(scope="module")
def keys(tmp_path_factory) -> Keys:
    keys = Keys(tmp_path_factory.mktemp("keys"))
    keys.make_certificates([SITE_A, SITE_B])
    return keys


@pytest.fixture
def documents(keys) -> Documents:
    documents = Documents(SITE_A, SITE_B, keys)
    documents.gre = [documents.gre_tunnel_to_peer("Branch Office 1"), documents.gre_tunnel("off", enabled=False)]
    documents.ipsec = [documents.ipsec_tunnel("office", "IKEv1"), documents.ipsec_tunnel("vault", "certificates")]
    documents.openvpn = [documents.openvpn_static("static"), documents.openvpn_alone("spare") | {"enabled": False}]
    return documents


def test_a_router_must_have_what_its_documents_say(documents):
    assert state.documented(documents, NAMES) == {
        "GRE devices": {"Branch_Office_1": f"gre {WAN_A} to {WAN_B} ttl 64, up, 10.1.1.1/30"},
        "routes through GRE devices": ["192.168.21.0/24 Branch_Office_1"],
        "conn sections": [("office_192_168_10_0_24", f"{WAN_A} to {WAN_B}, ikev1, secret"),
                          ("vault_192_168_10_0_24", f"{WAN_A} to {WAN_B}, ikev2, rsasig")],
        "IPsec secrets": [f'"{WAN_A}" "{WAN_B}" : PSK "{documents.ipsec[0]["psk"]}"',
                          ": RSA /var/run/ipsec/private/vault.pem"],
        "CA certificates": ["vault.pem"], "certificates": ["vault.pem"], "private keys": ["vault.pem"],
        "IPsec service": ["charon", "starter"],
        "openvpn children": ["static"], "openvpn configurations": ["openvpn_spare.conf", "openvpn_static.conf"],
        "other devices": {"tunstatic": "tun, up, 10.2.0.1/32"}}


def test_a_name_that_moved_changes_what_must_be(documents):
    moved = state.documented(documents, NAMES | {SITE_B.host_name: "203.0.113.99"})
    assert moved["GRE devices"]["Branch_Office_1"].startswith(f"gre {WAN_A} to 203.0.113.99 ")
    assert dict(moved["conn sections"])["office_192_168_10_0_24"].startswith(f"{WAN_A} to 203.0.113.99,")


def test_without_a_wan_nothing_must_be(documents):
    documents.wan = ""
    assert not any(state.documented(documents, NAMES).values())


def test_what_is_too_much_is_a_difference():
    assert state.differences({"children": ["a"], "routes": []}, {"children": ["a", "b"], "routes": []}) \
        == "children: ['a', 'b'] instead of ['a']"
    assert state.differences({"children": ["a"]}, {}) == "children: None instead of ['a']"
    assert state.differences({"children": []}, {"children": []}) == ""


@pytest.fixture
def sound(keys) -> SimpleNamespace:
    """What of a lab a fault works on: both routers with the documents that the first run finds, and on A a place for
    programs, by name."""
    a, b = Documents(SITE_A, SITE_B, keys), Documents(SITE_B, SITE_A, keys)
    programs: dict[str, str] = {}
    lab = SimpleNamespace(a=SimpleNamespace(documents=a, programs=programs, install=programs.__setitem__),
                          b=SimpleNamespace(documents=b))
    write_documents(lab)
    return lab


def contents(lab: SimpleNamespace) -> tuple[dict, dict]:
    """Of both routers' documents, free of what is changed later."""
    return copy.deepcopy((lab.a.documents.contents(), lab.b.documents.contents()))


def test_each_fault_is_one_of_those_tested_here():
    assert set(FAULTS) == {"wrong-secret", "missing-route", "link-left-down", "open-files"}


def test_a_wrong_secret_is_one_of_router_b_only(sound):
    own, peer = contents(sound)
    assert own["ipsecTunnels"][0]["psk"] == peer["ipsecTunnels"][0]["psk"]
    FAULTS["wrong-secret"](sound)
    faulty = sound.b.documents.ipsec[0].pop("psk")
    assert faulty != peer["ipsecTunnels"][0].pop("psk")
    assert (contents(sound), sound.a.programs) == ((own, peer), {})


def test_a_missing_route_is_no_longer_to_be_there(sound):
    def routes() -> list[str]:
        return state.documented(sound.a.documents, NAMES)["routes through GRE devices"]

    own, peer = contents(sound)
    assert routes() == ["192.168.21.0/24 Branch_Office_1"]
    FAULTS["missing-route"](sound)
    assert routes() == []
    own["greTunnels"][0]["routes"] = []
    assert (contents(sound), sound.a.programs) == ((own, peer), {})


@pytest.mark.parametrize("arguments, passed_on", [("link set Branch_Office_1 up", False),
                                                  ("link set Branch_Office_1 down", True), ("tunnel show", True)])
def test_a_link_left_down_is_one_that_ip_is_not_told_to_set_up(sound, tmp_path, arguments, passed_on):
    before = contents(sound)
    FAULTS["link-left-down"](sound)
    assert contents(sound) == before
    program = tmp_path / "ip"
    program.write_text(sound.a.programs["ip"].replace("/sbin/ip", "echo"))
    result = subprocess.run(["sh", program, *arguments.split()], capture_output=True, text=True, check=True)
    assert result.stdout == (f"{arguments}\n" if passed_on else "")


def test_open_files_are_what_an_ipsec_without_a_umask_makes(sound, tmp_path):
    before = contents(sound)
    FAULTS["open-files"](sound)
    assert contents(sound) == before
    program = tmp_path / "ipsec"
    program.write_text(sound.a.programs["ipsec"].replace("/usr/sbin/ipsec", "echo $(umask)"))
    result = subprocess.run(["sh", program, "stop"], capture_output=True, text=True, check=True, umask=0o077)
    assert result.stdout == "0000 stop\n"


def test_certificates_are_signed_by_the_authority(keys):
    for site in (SITE_A, SITE_B):
        subprocess.run(["openssl", "verify", "-CAfile", keys.folder / "ca.crt", keys.folder / f"{site.host_name}.crt"],
                       check=True, capture_output=True)


def unpack(archive: bytes) -> list[tuple[str, int, bytes]]:
    """What cpio(5) says that an archive in new ASCII holds, up to its trailer."""
    found, position = [], 0
    while True:
        magic, *fields = [archive[position:position + 6], *(archive[start:start + 8] for start in
                                                            range(position + 6, position + 110, 8))]
        assert magic == b"070701"
        mode, size, name_size = (int(fields[number], 16) for number in (1, 6, 11))
        name = archive[position + 110:position + 110 + name_size]
        assert name.endswith(b"\0")
        if name == b"TRAILER!!!\0":
            return found
        start = (position + 110 + name_size + 3) // 4 * 4
        found.append((name[:-1].decode(), mode, archive[start:start + size]))
        position = (start + size + 3) // 4 * 4


def test_an_archive_holds_what_was_put_in():
    entries = [("folder", stat.S_IFDIR | 0o755, b""), ("folder/five", stat.S_IFREG | 0o755, b"12345"),
               ("four", stat.S_IFREG | 0o644, b"1234"), ("empty", stat.S_IFREG | 0o600, b"")]
    assert unpack(cpio.archive(entries)) == entries


def rows(*outcomes) -> list[report.Row]:
    steps = [Step(f"step {number}", "it is so", 10, str) for number in range(len(outcomes))]
    return [report.Row(step, *outcome) for step, outcome in zip(steps, outcomes)]


MIXED = rows((report.OK, "seen this", 1.5), (report.FAILED, "not so: <that>", 2.0), ())


def test_the_table_has_a_line_for_each_step():
    lines = report.table(MIXED).splitlines()
    assert [line.split() for line in lines if line.startswith("step")] == [
        ["step", "0", "it", "is", "so", "ok", "1.5", "s"], ["step", "1", "it", "is", "so", "FAILED", "2.0", "s"],
        ["step", "2", "it", "is", "so", "-"]]
    assert [line.strip() for line in lines if ">" in line] == ["> seen this", "> not so: <that>"]
    assert len({line.find(word) for line in lines for word in (" ok", " FAILED", " Result") if word in line}) == 1


def test_junit_counts_what_was_not_reached_as_skipped():
    suite = ElementTree.fromstring(report.junit(MIXED))
    assert [suite.get(count) for count in ("tests", "failures", "skipped")] == ["3", "1", "1"]
    assert [[child.tag for child in case] for case in suite] == [[], ["failure"], ["skipped"]]
    assert suite[1][0].get("message") == "not so: <that>"


def test_the_last_report_counts_and_not_a_torn_one():
    """As they come over a serial line, the last one cut off by the end of the machine."""
    first, second = report.junit(rows(())), report.junit(MIXED)
    assert report.last_junit(f"{first}\r\n{second}\r\n{second[:50]}") == second
    assert report.last_junit(second[:50]) == report.last_junit("") == ""
    assert "\n" not in report.junit(rows((report.FAILED, "two\nlines", 1.0)))


def test_a_scratch_folder_goes_with_its_process(tmp_path):
    """Even if that is killed and can clean up nothing."""
    script = f"""
import os, pathlib, signal
from lab import scratch
with scratch.folder("x", pathlib.Path({str(tmp_path)!r})) as folder:
    (folder / "file").write_text("")
    os.kill(os.getpid(), signal.SIGKILL)
"""
    subprocess.run(["/usr/bin/python3", "-B", "-c", script], cwd=pathlib.Path(report.__file__).parents[1])
    deadline = time.monotonic() + 20
    while os.listdir(tmp_path):
        assert time.monotonic() < deadline, "the folder is still there"
        time.sleep(0.05)
