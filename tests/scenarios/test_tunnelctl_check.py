"""tunnelctl check: what is wrong with a configuration, in words and as JSON, of a file or of what the API serves."""

import json
import os

import pytest

from checking import SAMPLE, Finding, findings, run_check, sample
from companion import companion
from ipsec_routers import cable, conn_names, serviced
from sandbox.router import PROGRAM_PATH
from tunnel_records import WAN, run_once

# Some of everything: two tunnels with faults, a disabled one, a name for a terminal to stumble over, a text too long.
FAULTY = {
    "wans": [{"current": True, "ip": "198.51.100.2"}],
    "greTunnels": [
        {"name": "up", "enabled": True, "remoteIp": "203.0.113.7", "ttl": 300},
        {"name": "\x1b" + "x" * 300, "enabled": False, "remoteIp": "y" * 300, "tunelIp": "10.1.1.1"}],
    "ovpnTunnels": [{"name": "a", "enabled": "true"}]}

FAULTY_TEXT = """\
/greTunnels/0 "up"
  error    /name: "up" is a word of ip(8)'s, or the beginning of one, and so the tunnel is missing
           or down; write a longer name. [ip-keyword]
  error    /ttl: "300" is no TTL, and so the tunnel is missing; write a number from 0 to 255. [ttl]
"""


def test_the_sample_configuration_has_no_finding(program):
    done = run_check(program, str(SAMPLE))
    assert (done.returncode, done.stdout, done.stderr) == (0, "0 errors, 0 warnings\n", "")
    assert findings(program, sample()) == []


def test_findings_are_told_by_tunnel_in_lines_that_fit(program):
    done = run_check(program, "-", stdin=json.dumps(FAULTY))
    assert done.returncode == 1 and done.stderr == "" and done.stdout.startswith(FAULTY_TEXT)
    lines = done.stdout.splitlines()
    assert max(map(len, lines)) <= 100 and lines[-1] == "3 errors, 3 warnings"
    assert [line.split(" ")[0] for line in lines if line.startswith("/")] == [
        "/greTunnels/0", "/greTunnels/1", "/ovpnTunnels/0"]
    assert any(line.startswith("/greTunnels/1 ") and line.endswith(", disabled") for line in lines)
    assert not any(ord(c) < 32 for line in lines for c in line)


def test_as_json_they_are_the_same(program):
    found = findings(program, FAULTY)
    text = " ".join(run_check(program, "-", stdin=json.dumps(FAULTY)).stdout.split())
    assert [(finding.severity, finding.id, finding.pointer) for finding in found] == [
        ("error", "ip-keyword", "/greTunnels/0/name"), ("error", "ttl", "/greTunnels/0/ttl"),
        ("warning", "unknown-member", "/greTunnels/1/tunelIp"), ("warning", "device-name", "/greTunnels/1/name"),
        ("warning", "gre-remote", "/greTunnels/1/remoteIp"), ("error", "ends-run", "/ovpnTunnels/0/enabled")]
    for finding in found:
        if "xxx" not in finding.message and "yyy" not in finding.message:
            assert f"{finding.message} [{finding.id}]" in text


@pytest.mark.parametrize("words", [[], ["--json"]], ids=["text", "JSON"])
def test_severities_are_coloured_on_a_terminal_only(program, words, tmp_path):
    """`script` gives it a terminal."""
    path = tmp_path / "faulty.json"
    path.write_text(json.dumps(FAULTY))
    command = " ".join([companion(program), "check", str(path), *words])
    terminal = os.popen(f"env -u NO_COLOR script -qec '{command}' /dev/null").read()
    assert ("\x1b[31merror\x1b[0m" in terminal) == (words == [])
    assert "\x1b[31m" not in os.popen(f"NO_COLOR=1 script -qec '{command}' /dev/null").read()
    assert "\x1b" not in run_check(program, str(path), *words).stdout


def test_keys_are_never_shown(program):
    documents = sample()
    documents["ipsecTunnels"][0]["psk"] = 'SECRET"\n'
    documents["ipsecTunnels"][1]["localPrivKey"] = "SECRET"
    documents["ovpnTunnels"][0]["config"] = "dev tun\n<key>\nSECRET\n</key>\n<secret>\nSECRET"
    for words in ([], ["--json"]):
        done = run_check(program, "-", *words, stdin=json.dumps(documents))
        assert done.returncode == 1 and "SECRET" not in done.stdout + done.stderr


# ---- wrong use ----

@pytest.mark.parametrize("words, complaint", [
    (["/none"], "cannot read /none: No such file or directory"),
    (["/"], "cannot read /: Is a directory"),
    (["--jsn", "/none"], "unknown option --jsn, did you mean --json?"),
    (["--from", "x"], "unknown option --from"),
    (["-x"], "unknown option -x"),
    (["--json=1", "-"], "--json takes no value"),
    (["a", "b"], "too many words: b")])
def test_a_wrong_command_line_gets_one_sentence(program, words, complaint):
    done = run_check(program, *words)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", f"tunnelctl: {complaint}\n")


@pytest.mark.parametrize("text, complaint", [
    ("", "is no JSON document: Line 1, Column 1 Syntax error: value, object or array expected"),
    ('{"wans": [],\n "ni": nothing}', "is no JSON document: Line 2, Column 8 Syntax error: value, object or array expected"),
    ('{"wans": [],}', "is no JSON document: Line 1, Column 13 Missing '}' or object member name"),
    ("[]", "holds no JSON object"),
    ("[" * 1001 + "]" * 1001, "is nested deeper than 1000 levels"),
    ("\0", "is no JSON document: Line 1, Column 1 Syntax error: value, object or array expected")])
def test_what_is_no_document_gets_one_sentence(program, text, complaint):
    done = run_check(program, "-", stdin=text)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", f"tunnelctl: standard input {complaint}\n")


# ---- what the API serves ----

def checked(router) -> tuple[int, list[Finding]]:
    """What is found in what a router's API serves."""
    done = router.exec([companion(router.program_path), "check", "--json"])
    assert done.stderr == ""
    return done.status, [Finding(**finding) for finding in json.loads(done.stdout)["findings"]]


def test_what_the_api_serves_is_checked_and_nothing_else_is_done(make_router):
    router = make_router(sample())
    assert checked(router) == (0, [])
    assert [event.text for event in router.find("api")] == [
        "/api/waninfo/wans", "/api?fields=greTunnels,ipsecTunnels,ni", "/api?fields=ovpnTunnels", "/api?fields=syslog"]
    router.documents["syslog"] = {"logLevel": "20"}
    status, found = checked(router)
    assert status == 1 and [(finding.id, finding.pointer) for finding in found] == [("ends-run", "/syslog/logLevel")]
    assert router.command_texts() == [] and router.find("dns") == [] and router.find("log") == []


def test_devices_that_the_router_has_are_no_names_for_tunnels(make_router):
    """Of a file nothing is known of the router that it is for."""
    documents = sample()
    documents["greTunnels"][1]["name"] = "wan0"
    router = make_router(documents)
    assert checked(router) == (0, [])
    cable(router, "wan0", f"{WAN}/24")
    status, found = checked(router)
    assert status == 1 and [(finding.id, finding.pointer) for finding in found] == [("existing-device", "/greTunnels/1/name")]
    assert findings(router.program_path, documents) == []


def test_without_the_api_it_cannot_tell(make_router):
    router = make_router(sample())
    router.api.on("openvpn", envelope={"code": 404, "result": []})
    done = router.exec([companion(router.program_path), "check"])
    assert (done.status, done.stdout) == (2, "")
    assert done.stderr == "tunnelctl: the configuration API does not answer /api?fields=ovpnTunnels\n"
    router.api.absent()
    done = router.exec([companion(router.program_path), "check", "--json"])
    assert done.status == 2 and done.stderr == "tunnelctl: the configuration API does not answer /api/waninfo/wans\n"


@pytest.mark.parametrize("result", [[], ["a"], "text", 5], ids=str)
def test_of_an_answer_without_an_object_it_cannot_tell(make_router, result):
    """A run ends at it: no member of it can be read."""
    router = make_router(sample())
    router.api.on("tunnels", envelope={"code": 200, "result": result})
    done = router.exec([companion(router.program_path), "check"])
    assert (done.status, done.stdout) == (2, "")
    assert done.stderr == ("tunnelctl: the configuration API answers /api?fields=greTunnels,ipsecTunnels,ni with a result that "
                           "is no object\n")
    planned = router.exec([companion(router.program_path), "plan", "--json"], environment={"PATH": PROGRAM_PATH})
    assert planned.status == 2 and planned.stderr == done.stderr and json.loads(planned.stdout)["outcome"] == "threw"


def test_of_no_result_it_tells_as_of_an_empty_one(make_router):
    router = make_router(sample())
    router.api.on("tunnels", envelope={"code": 200})
    assert checked(router) == (0, [])


def test_what_has_no_finding_is_what_the_service_takes(make_router):
    documents = sample()
    router, service = serviced(make_router, *documents["ipsecTunnels"])
    cable(router, "wan0", f"{WAN}/24")
    run_once(router)
    service.wait_for_connections(*conn_names(router))
    assert len(service.connections()) == 2 and "loaded RSA private key" in service.log()
    assert 'loaded ca certificate "O=An example, not to be used, CN=Example CA"' in service.log()
    assert "failed" not in service.log()
