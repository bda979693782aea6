"""The parts of the lab that need no kernel of their own: what it expects of a router, the archive it boots from and the
report it writes."""

import copy
import os
import pathlib
import stat
import subprocess
import time
import xml.etree.ElementTree as ElementTree
from types import SimpleNamespace

import pytest

from lab import cpio, report, state, told
from lab.documents import Documents, Keys
from lab.faults import FAULTS
from lab.lab import ANOTHER_WAN, SECOND_INVOCATION, START, is_cause
from lab.router import Router
from lab.steps import Step, write_documents
from lab.topology import SITE_A, SITE_B

WAN_A, WAN_B = SITE_A.wan, SITE_B.wan
NAMES = {SITE_A.host_name: WAN_A, SITE_B.host_name: WAN_B}


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


# ---- what tunnelctl must tell ----

ROW = {"name": "a", "state": "down", "reason": "no child"}


def test_what_is_told_of_a_tunnel_is_its_state_with_the_reason():
    assert told.tunnels({"tunnels": [ROW, ROW | {"name": "b", "state": "up", "reason": None}]}) == {
        "a": "down: no child", "b": "up"}


@pytest.mark.parametrize("expected, found, different", [
    ({"a": "down: no"}, {"a": "down: no child"}, ""), ({"a": ("up", "unknown")}, {"a": "unknown: x"}, ""),
    ({"a": "up"}, {"a": "down: x"}, "a: 'down: x' instead of 'up'"), ({"a": "up"}, {}, "a: None instead of 'up'"),
    ({}, {"b": "up"}, "b: 'up' instead of None")])
def test_what_is_told_must_begin_as_expected_and_be_complete(expected, found, different):
    assert told.differences(expected, found) == different


def test_what_must_be_told_follows_from_the_documents(documents):
    whole = {"Branch_Office_1": "up", "office": "up", "vault": "up", "static": "up", "spare": told.LEFT_OVER}
    assert told.whole(documents) == whole
    down = "down: no WAN is current, so nothing is "
    assert told.without_wan(documents) == dict.fromkeys(["Branch_Office_1", "office", "vault"], down + "built") | {
        "static": down + "started"}


@pytest.mark.parametrize("cause, found, holds", [
    (ANOTHER_WAN, "another WAN", True), (ANOTHER_WAN, "second invocation, another WAN", False),
    (ANOTHER_WAN, "another request", False), (SECOND_INVOCATION, "second invocation, another WAN", True),
    (SECOND_INVOCATION, "another WAN", False), (START, "start", True)])
def test_the_wan_monitor_must_be_the_only_one_that_asked(cause, found, holds):
    assert is_cause(cause, found) == holds


def event(number: int, kind: str, text: str) -> dict:
    return {"number": number, "time": number, "kind": kind, "text": text, "pid": 7}


BEGIN, END = "INFO [TUNNEL_MNGR] MANAGING TUNNELS", "INFO [TUNNEL_MNGR] v_apFqdnMonitor size 1"
FIRST_RUN = [event(1, "log", BEGIN), event(2, "log", END)]
LOOK, NO_CHANGE = "/api/waninfo/wans", "DEBUG [TUNNEL_MNGR][WAN_MONITOR] WAN has not changed"
HAND_OVER = "INFO [TUNNEL_MNGR] Signaling to process for refresh."


@pytest.mark.parametrize("since, between, cause", [
    (3, [("api", LOOK)], "another WAN"), (4, [("api", LOOK)], "another request"),
    (3, [("api", LOOK), ("log", NO_CHANGE)], "another request"), (4, [("log", HAND_OVER)], "second invocation")])
def test_who_asked_for_a_run_is_known_by_what_came_since(since, between, cause):
    """The question to the API that has the number 4 may have been tunnelctl's."""
    recorded = [*FIRST_RUN, *(event(4 + place, *what) for place, what in enumerate(between)), event(8, "log", BEGIN),
                event(9, "log", END), event(10, "log", BEGIN)]
    assert Router.cause(SimpleNamespace(events=lambda: recorded), since) == cause


# ---- faults ----

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
