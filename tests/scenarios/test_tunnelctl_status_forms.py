"""tunnelctl status: it waits and watches, and prints one screen, JSON or metrics."""

import json
import shutil
import signal
import subprocess

import pytest

from companion import companion
from daemon_stories import gre
from sandbox.router import PROGRAM_PATH
from status_stories import NAMES, Station, write_statuses
from tunnel_records import REMOTE, WAN


@pytest.fixture
def station(make_router) -> Station:
    return Station.whole(make_router)


# ---- waiting and watching ----

def test_waiting_ends_as_soon_as_all_is_up(station):
    station.kernel.devices["head_office"]["flags"] = []
    station.kernel.publish()
    write_statuses(station.router, "depot", "tls")
    mark = station.router.mark("waiting")
    waiting = station.start("--wait", "1000")
    station.router.wait_for("command", "ipsec statusall", since=mark, count=2)
    assert waiting.stdout == "" and waiting.alive()
    station.kernel.devices["head_office"]["flags"] = ["UP"]
    station.kernel.publish()
    write_statuses(station.router, "depot", "tls")
    assert waiting.wait_exit(timeout=30) == 0
    assert waiting.stdout.count("Daemon ") == 1 and "\ngre     head_office             up " in waiting.stdout


def test_waiting_ends_after_its_time(station):
    station.kernel.devices["head_office"]["flags"] = []
    station.kernel.publish()
    assert station.status("--wait", "0").status == 1
    done = station.status("--wait", "2", "--json")
    assert done.status == 1 and json.loads(done.stdout)["exitStatus"] == 1
    station.router.api.absent()
    station.kernel.devices["head_office"]["flags"] = ["UP"]
    station.kernel.publish()
    assert station.status("--wait", "0").status == 1  # it cannot tell, and that is not up


def test_watching_goes_on_until_it_is_interrupted(station):
    watching = station.start("--watch")
    station.router.wait_until(lambda: watching.stdout.count("Daemon  runs") >= 2, "two screens", 30)
    station.router.api.absent()
    station.router.wait_until(lambda: "WAN     unknown" in watching.stdout, "a screen of what is now", 30)
    assert "\x1b" not in watching.stdout and watching.alive()
    watching.signal(signal.SIGINT)
    assert watching.wait_exit() == -signal.SIGINT


def test_a_terminal_is_cleared_between_two_screens(station):
    command = f"{companion(station.router.program_path)} status --watch"
    watching = station.router.spawn(["script", "-qec", command, "/dev/null"],
                                    environment={"PATH": f"{PROGRAM_PATH}:/usr/bin:/bin"})
    station.router.wait_until(lambda: watching.stdout.count("\x1b[H\x1b[2JDaemon  runs") >= 2, "two screens", 30)
    watching.terminate()


# ---- forms ----

def test_the_members_of_json(station):
    found = json.loads(station.status("--json").stdout)
    assert list(found) == ["api", "command", "daemon", "exitStatus", "ipsecService", "kernelComplaint", "time", "tunnels",
                           "version", "wan"]
    assert (found["version"], found["command"], found["exitStatus"]) == (1, "status", 0)
    assert found["api"] == {"answers": True, "complaint": None}
    assert found["wan"] == {"current": WAN, "inUse": [WAN]}
    assert found["ipsecService"] == {"running": True, "complaint": None, "connectionsWritten": 1, "connectionsLoaded": 1}
    daemon = found["daemon"]
    assert abs(found["time"] - daemon.pop("startedAt")) < 300
    assert daemon == {"running": True, "singleRun": False, "pid": station.daemon.pid, "printLevel": 100, "remarks": []}
    rows = {row["name"]: row for row in found["tunnels"]}
    assert list(rows) == NAMES
    assert rows["head_office"] == {"kind": "gre", "name": "head_office", "state": "up", "reason": None, "local": WAN,
                                   "remote": REMOTE, "receivedBytes": 308, "sentBytes": 252, "lastContact": None}
    assert rows["office"]["lastContact"] == found["time"] - 29
    assert 0 <= found["time"] - rows["depot"]["lastContact"] < 300


def samples(text: str) -> dict[str, int]:
    return {line.rpartition(" ")[0]: int(line.rpartition(" ")[2]) for line in text.splitlines() if not line.startswith("#")}


def test_the_metrics(station):
    del station.kernel.devices["head_office"]
    station.kernel.publish()
    done = station.status("--format", "prometheus")
    found = samples(done.stdout)
    assert done.status == 1
    assert found["tunnel_mngr_daemon_up"] == found["tunnel_mngr_api_up"] == found["tunnel_mngr_wan_up"] == 1
    assert found['tunnel_mngr_tunnel_up{kind="gre",name="head_office"}'] == 0
    assert found['tunnel_mngr_tunnel_up{kind="ipsec",name="office"}'] == 1
    assert found['tunnel_mngr_tunnel_received_bytes_total{kind="ipsec",name="office"}'] == 84
    assert found['tunnel_mngr_tunnel_state{kind="openvpn",name="tls",state="up"}'] == 1
    contact = found["tunnel_mngr_status_timestamp_seconds"] - found[
        'tunnel_mngr_tunnel_last_contact_timestamp_seconds{kind="ipsec",name="office"}']
    assert contact == 29


@pytest.mark.skipif(shutil.which("promtool") is None, reason="promtool is not installed (Debian's package prometheus)")
def test_the_metrics_are_in_order(station):
    with station.router.documents.edit() as documents:
        documents["greTunnels"] += [gre('qu"ote\\'), gre("line\nfeed"), gre("\u00fc\u20ac"), gre("line\tfeed")]
    text = station.status("--format", "prometheus").stdout
    assert text.count("tunnel_mngr_tunnel_state{") == 8
    check = subprocess.run(["promtool", "check", "metrics"], input=text, text=True, capture_output=True)
    assert (check.returncode, check.stdout, check.stderr) == (0, "", "")
    broken = subprocess.run(["promtool", "check", "metrics"], input=f"{text}tunnel_mngr_bytes{{ 5\n", text=True,
                            capture_output=True)
    assert broken.returncode != 0


def test_no_line_is_longer_because_a_name_is_long(station):
    with station.router.documents.edit() as documents:
        documents["greTunnels"].append(gre("x" * 300, "y" * 300))
        documents["ovpnTunnels"].append({"name": "z z" * 60, "enabled": True, "config": ""})
    lines = station.status().stdout.splitlines()
    assert max(map(len, lines)) <= 100 and any("xx..xx" in line for line in lines)


def test_colour_is_for_terminals(station):
    assert "\x1b" not in station.status().stdout
    for environment, coloured in (({}, True), ({"NO_COLOR": "1"}, False)):
        done = station.router.exec(["script", "-qec", f"{companion(station.router.program_path)} status", "/dev/null"],
                                   environment={"PATH": f"{PROGRAM_PATH}:/usr/bin:/bin"} | environment)
        assert ("\x1b[32mup" in done.stdout) == coloured and "head_office" in done.stdout


@pytest.mark.parametrize("words, complaint", [
    (["--jso"], "unknown option --jso, did you mean --json?"), (["gre1"], "too many words: gre1"),
    (["--format", "xml"], "unknown format xml; there is prometheus, and --json"),
    (["--wait", "ever"], "--wait takes a number from 0 to 2147483647"),
    (["--watch", "--json"], "--watch draws a screen, and goes with no other option")])
def test_wrong_use_gets_one_sentence(make_router, words, complaint):
    router = make_router()
    router.program_path = companion(router.program_path)
    done = router.run("status", *words)
    assert (done.status, done.stdout, done.stderr) == (2, "", f"tunnelctl: {complaint}\n")
