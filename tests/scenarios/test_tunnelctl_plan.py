"""tunnelctl plan: it says what the next run would do, byte by byte, and does nothing."""

import json
import os
import pathlib

import pytest

from companion import companion
from daemon_stories import SEMAPHORE, preloaded
from generated_documents import documents
from ipsec_records import certificate_tunnel
from plan_exactness import SHIM, Comparison, plan, snapshot
from seed_documents import CASES, NOT_OF_A_RUN, SEEDS, cases

CHUNK = 10  # documents for one daemon, which looks for another WAN by itself after 30 seconds
# The seeds of the generated documents, and a folder of others: scripts/exactness has more of both.
FIRST, LAST = (int(number) for number in os.environ.get("TUNNEL_MNGR_SEEDS", "1-40").split("-"))
KEPT = os.environ.get("TUNNEL_MNGR_KEPT_DOCUMENTS")
KEPT_PATHS = sorted(pathlib.Path(KEPT).glob("*.json")) if KEPT else []
SEED_CASES = cases()
ROOT = pathlib.Path(__file__).parents[2]


@pytest.fixture
def comparison(make_router, tmp_path) -> Comparison:
    router = make_router(environment=preloaded(tmp_path, SHIM), resolver_options="timeout:20 attempts:1")  # machines are slow
    router.make_ipsec_folders()
    router.dns.set("a.example", "203.0.113.21")
    router.dns.set("b.example", "203.0.113.22")
    return Comparison(router)


def test_a_plan_is_what_the_daemon_does(comparison):
    comparison.compare(json.loads((ROOT / "docs" / "examples" / "router.json").read_text()))


@pytest.mark.parametrize("first", range(FIRST, LAST + 1, CHUNK))
def test_generated_documents_are_planned_as_they_are_run(comparison, first):
    outcomes = {comparison.compare(documents(seed))["outcome"] for seed in range(first, min(first + CHUNK, LAST + 1))}
    assert "done" in outcomes


@pytest.mark.parametrize("name", ["/office", ".//office", "a/office", "../office"])
def test_names_that_lead_to_other_places_are_planned_as_they_are_run(comparison, name):
    """Certificates and keys are written below their folders, twice: the second run finds those of the first."""
    tunnel = certificate_tunnel(name)
    for _ in range(2):
        planned = comparison.compare({**TUNNELS, "ipsecTunnels": [tunnel]})
        assert planned["outcome"] == "done"


@pytest.mark.skipif(KEPT is None, reason="TUNNEL_MNGR_KEPT_DOCUMENTS names no folder of documents; scripts/exactness makes one")
@pytest.mark.parametrize("first", range(0, max(len(KEPT_PATHS), 1), CHUNK))
def test_kept_documents_are_planned_as_they_are_run(comparison, first):
    paths = KEPT_PATHS[first:first + CHUNK]
    for path in paths:
        comparison.compare(json.loads(path.read_text()))
    assert paths


@pytest.mark.parametrize("first", range(0, len(SEED_CASES), CHUNK))
def test_the_fuzzers_seeds_are_planned_as_they_are_run(comparison, first):
    for case in SEED_CASES[first:first + CHUNK]:
        comparison.router.preset_gre(extra=case.kernel)
        comparison.compare(case.documents, case.answers)


def test_every_seed_that_a_run_may_meet_is_among_them():
    met = [folder for folder in SEEDS.iterdir() if folder.name not in NOT_OF_A_RUN]
    assert {folder.name for folder in met} == set(CASES)
    assert {case.name.split()[0] for case in SEED_CASES} == {"router.json"}.union(
        *({seed.name for seed in folder.iterdir()} for folder in met))


def test_a_seed_that_is_an_answer_is_what_a_run_gets(comparison):
    case, = (case for case in SEED_CASES if case.name == "error.json as tunnels")
    assert comparison.compare(case.documents, case.answers)["outcome"] == "failed"
    assert comparison.compare(case.documents)["outcome"] == "done"


# ---- what it prints ----

KEY = "a very secret key"
TUNNELS = {
    "wans": [{"current": True, "ip": "198.51.100.2"}],
    "greTunnels": [{"name": "gre1", "enabled": True, "remoteIp": "head.example", "tunnelIp": "10.9.9.1", "tunnelMask": "30"}],
    "ipsecTunnels": [{"name": "office", "enabled": True, "type": "IKE", "remoteWanIp": "203.0.113.9", "encryptMethod": "aes128",
                      "remoteNetworkIp": "192.168.9.0", "remoteNetworkMask": 24, "psk": KEY}],
    "ni": {"nis": [{"type": "LAN", "available": True, "bridge": "--", "ipv4": {"ip": "192.168.1.1", "mask": "255.255.255.0"}}]},
    "ovpnTunnels": [{"name": "vpn", "enabled": True, "config": f"dev tun\n<secret>\n{KEY}\n</secret>\n"}],
    "syslog": {"logLevel": 0}}


@pytest.fixture
def planning(make_router):
    """A router whose configuration API is away, with TUNNELS in a file."""
    router = make_router()
    router.make_ipsec_folders()
    router.api.absent()
    router.write_file("/run/tunnels.json", json.dumps(TUNNELS))
    return router


def run_companion(router, *words: str):
    router.program_path = companion(router.program_path) if "tunnelctl" not in router.program_path else router.program_path
    return router.run(*words)


def test_a_plan_from_a_file_needs_no_api_and_offline_no_name_server(planning):
    done = run_companion(planning, "plan", "--from", "/run/tunnels.json", "--offline")
    assert done.status == 0 and done.stderr == ""
    assert "run     ip tunnel add gre1 mode gre remote <head.example> local 198.51.100.2 ttl 0\n" in done.stdout
    assert planning.find("dns") == [] and planning.find("api") == []
    done = run_companion(planning, "plan", "--from", "/run/tunnels.json")
    assert "remote  local 198.51.100.2 ttl 0\n" in done.stdout and "The host [head.example] was not found" in done.stdout


def test_a_plan_changes_nothing(planning):
    before = snapshot(planning)
    run_companion(planning, "plan", "--from", "/run/tunnels.json")
    assert planning.command_texts() == ["ip tunnel"]
    assert snapshot(planning) == before and planning.find("exec", program="openvpn") == []
    assert not planning.exists(SEMAPHORE) and not planning.exists("/run/tunnel_mngr.pid")


@pytest.mark.parametrize("words", [[], ["--json"]], ids=["text", "JSON"])
def test_keys_are_shown_only_to_who_asks_for_them(planning, words):
    hidden = run_companion(planning, "plan", "--from", "/run/tunnels.json", "--printlvl", "100", *words).stdout
    assert KEY not in hidden and "***" in hidden
    shown = run_companion(planning, "plan", "--from", "/run/tunnels.json", "--show-secrets", *words).stdout
    assert shown.count(KEY) == 2


def test_no_line_is_longer_because_a_name_is_long(planning):
    long = {**TUNNELS, "greTunnels": [{"name": "x" * 300, "enabled": True, "remoteIp": "y " * 200}],
            "ovpnTunnels": [{"name": "z" * 100, "enabled": True, "config": "c" * 500 + " d" * 500}]}
    planning.write_file("/run/tunnels.json", json.dumps(long))
    lines = run_companion(planning, "plan", "--from", "/run/tunnels.json", "--printlvl", "100").stdout.splitlines()
    assert max(map(len, lines)) <= 100 and len(lines) > 50


def test_the_differences_are_those_from_what_is_on_disk(planning):
    planning.write_file("/run/ipsec/ipsec.conf", "version 2.0\n\nconfig setup\n\tuniqueids=no\n")
    planning.write_file("/run/ipsec/certs/old.pem", "old\n")
    planning.write_file("/run/openvpn_vpn.conf", f"dev tunvpn\n<secret>\n{KEY}\n</secret>\nverb 2\n")
    text = run_companion(planning, "plan", "--from", "/run/tunnels.json").stdout
    assert "-    uniqueids=no\n+    uniqueids=yes\n+\n+conn office_192_168_1_0_24\n" in text
    assert "--- /var/run/ipsec/certs/old.pem\n+++ /dev/null\n@@ -1 +0,0 @@\n-old\n" in text
    assert "+++ /var/run/openvpn_vpn.conf" not in text
    assert "3 files different" in text


# What is wrong, the words behind "plan", and what is said of it.
WRONG_USE = [
    (["--form", "x"], "unknown option --form, did you mean --from?"),
    (["--from"], "--from needs a value"),
    (["--from", "/none"], "cannot read /none: No such file or directory"),
    (["--from", "/run"], "cannot read /run: Is a directory"),
    (["--from", "/run/broken.json"], "/run/broken.json is no JSON document: Line 2, Column 7 Syntax error: value, object or array expected"),
    (["--from", "/run/list.json"], "/run/list.json holds no JSON object"),
    (["--printlvl", "101"], "--printlvl takes a number from 0 to 100"),
    (["more"], "too many words: more"),
]


@pytest.mark.parametrize("words, complaint", WRONG_USE)
def test_wrong_use_gets_one_sentence(planning, words, complaint):
    planning.write_file("/run/broken.json", '{"a": 1,\n "b": x}')
    planning.write_file("/run/list.json", "[]")
    done = run_companion(planning, "plan", *words)
    assert (done.status, done.stdout, done.stderr) == (2, "", f"tunnelctl: {complaint}\n")


@pytest.mark.parametrize("words, complaint", [
    ([], "no command; tunnelctl --help lists them"), (["plna"], "unknown command plna, did you mean plan?"),
    (["frobnicate"], "unknown command frobnicate")])
def test_a_wrong_command_gets_one_sentence(planning, words, complaint):
    done = run_companion(planning, *words)
    assert (done.status, done.stdout, done.stderr) == (2, "", f"tunnelctl: {complaint}\n")


def test_what_a_run_would_do_without_the_documents_is_not_all_that_there_is_to_tell(planning):
    done = run_companion(planning, "plan")
    assert done.status == 2 and "The run would fail here." in done.stdout and "Failed read config" in done.stdout
    assert done.stderr == "tunnelctl: the configuration API does not answer /api/waninfo/wans\n"


def test_an_answer_that_cannot_be_written_is_no_answer(planning):
    for words in ("plan --offline --from /run/tunnels.json", "check /run/tunnels.json", "status --json", "--help"):
        done = planning.exec(["sh", "-c", f"{companion(planning.program_path)} {words} >/dev/full"])
        assert (done.status, done.stderr) == (2, "tunnelctl: cannot write to standard output\n")


def test_a_run_that_would_fail_or_throw_is_told(planning):
    planning.write_file("/run/tunnels.json", json.dumps({**TUNNELS, "greTunnels": [{"enabled": "true"}]}))
    done = run_companion(planning, "plan", "--from", "/run/tunnels.json")
    assert done.status == 1 and "The run would end here" in done.stdout
    assert '  /greTunnels/0/enabled: "true" is neither true nor false' in done.stdout
    planning.write_file("/run/tunnels.json", json.dumps({**TUNNELS, "ovpnTunnels": [{"enabled": True, "config": [1]}]}))
    done = run_companion(planning, "plan", "--json", "--from", "/run/tunnels.json")
    assert [text.split(":")[0] for text in json.loads(done.stdout)["culprits"]] == ["/ovpnTunnels/0/config"]
    planning.write_file("/run/tunnels.json", json.dumps({**TUNNELS, "wans": []}))
    done = run_companion(planning, "plan", "--from", "/run/tunnels.json")
    assert done.status == 0 and "No WAN: everything would stay down." in done.stdout


def test_the_children_that_would_be_ended_are_those_of_the_daemon(comparison):
    comparison.compare({**TUNNELS, "greTunnels": [{**TUNNELS["greTunnels"][0], "remoteIp": "203.0.113.7"}]})
    router = comparison.router
    child, = comparison.daemon.children()
    planned = plan(router)
    assert [act["end"] for act in planned["acts"] if "end" in act] == [child]
    assert "OpenVPN: 1 ended, 1 started" in planned["summary"] and "0 new, 0 gone, 0 other, 1 the same again" in planned["summary"]
