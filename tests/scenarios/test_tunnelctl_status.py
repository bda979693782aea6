"""tunnelctl status: what of the router's tunnels is up, and why the rest is not."""

import signal

import pytest

from daemon_stories import PID_FILE, SEMAPHORE, gre
from openvpn_records import tunnel
from plan_exactness import snapshot
from status_stories import CONNECTION, IPSEC_STATUS, ITS_COMMANDS, NAMES, Station, tell_ipsec, write_statuses
from tunnel_records import REMOTE, WAN


@pytest.fixture
def station(make_router) -> Station:
    return Station.whole(make_router)


# ---- all is well ----

@pytest.mark.asan
@pytest.mark.tsan
def test_all_is_up(station):
    assert station.tunnels() == dict.fromkeys(NAMES, "up")
    done = station.status()
    lines = done.stdout.splitlines()
    assert (done.status, done.stderr) == (0, "")
    assert lines[0].startswith(f"Daemon  runs, PID {station.daemon.pid}, since 20") and lines[0].endswith(", print level 100")
    assert lines[1:4] == ["API     answers", f"WAN     {WAN}, which tunnels use",
                          "IPsec   the service runs and has loaded 1 of 1 written connections"]
    assert [line.split() for line in lines[5:]] == [
        ["KIND", "NAME", "STATE", "LOCAL", "REMOTE", "RECEIVED", "SENT"],
        ["gre", "head_office", "up", WAN, REMOTE, "308", "B", "252", "B"],
        ["ipsec", "office", "up", WAN, REMOTE, "84", "B", "168", "B"],
        ["openvpn", "depot", "up", "-", "-", "96", "B", "192", "B"],
        ["openvpn", "tls", "up", "-", "head.example", "96", "B", "192", "B"]]


def test_nothing_is_changed(station):
    before = snapshot(station.router)
    mark = station.router.mark("status")
    station.status()
    done = station.router.since(mark)
    by_daemon = {event.number for event in done if event.fields.get("parent") == station.daemon.pid}
    assert {event.text for event in done if event.kind == "command" and event.number not in by_daemon} == ITS_COMMANDS
    assert snapshot(station.router) == before and station.router.find("signal", since=mark) == []
    assert station.router.read_file(PID_FILE) == f"{station.daemon.pid}\n" and station.router.exists(SEMAPHORE)


def test_the_number_of_programs_does_not_grow_with_the_tunnels(make_router):
    names = [f"g{number}" for number in range(100)]
    records = [gre(name, f"203.0.113.{number + 1}") for number, name in enumerate(names)]
    station = Station(make_router, {"wans": [{"current": True, "ip": WAN}], "greTunnels": records, "ipsecTunnels": [],
                                    "ni": {"nis": []}, "ovpnTunnels": [tunnel(f"o{number}") for number in range(20)],
                                    "syslog": {"logLevel": 0}})
    for number, name in enumerate(names):
        station.kernel.add(name, ends=(WAN, f"203.0.113.{number + 1}"))
    station.kernel.publish()
    station.daemon.signal(signal.SIGKILL)  # so that all that is run from now on is run for the status
    station.daemon.wait_exit()
    mark = station.router.mark("status")
    told = station.tunnels()
    assert [told[name] for name in names] == ["up"] * 100
    assert sorted(station.router.command_texts(mark)) == sorted(ITS_COMMANDS)


# ---- ways of being down ----

@pytest.mark.asan
def test_gre_tunnels_tell_why_they_are_down(station):
    kernel = station.kernel
    whole = dict(kernel.devices["head_office"])
    for change, told in [
            ({"flags": ["POINTOPOINT", "NOARP"]}, "down: its link is down; a run is due"),
            ({"addr_info": []}, "partial: it lacks its address 10.9.9.1/30; a run is due"),
            ({"linkinfo": {"info_kind": "gre", "info_data": {"local": "198.51.100.9", "remote": REMOTE}}},
             f"down: it begins at 198.51.100.9, but the current WAN is {WAN}"),
            ({"linkinfo": {"info_kind": "gre", "info_data": {"local": WAN, "remote": "203.0.113.99"}}},
             f"down: it ends at 203.0.113.99, but {REMOTE} is configured; a run is due")]:
        kernel.devices["head_office"] = whole | change
        kernel.publish()
        assert station.broken() == {"head_office": told}
    kernel.devices["head_office"] = whole
    route = kernel.routes.pop()
    kernel.publish()
    assert station.broken() == {"head_office": "partial: no route to 192.168.50.0/24 leads through it; a run is due"}
    kernel.routes = [route]
    kernel.publish()
    assert station.broken() == {"head_office": f"down: no route leads to its remote end {REMOTE}"}
    assert station.status().status == 1


@pytest.mark.asan
@pytest.mark.tsan
def test_a_name_without_an_address_is_told(station):
    with station.router.documents.edit() as documents:
        documents["greTunnels"][0]["remoteIp"] = "head.example"
    del station.kernel.devices["head_office"]
    station.kernel.publish()
    assert station.broken() == {"head_office": "down: head.example has no address"}
    station.router.dns.set("head.example", REMOTE)
    assert station.broken() == {"head_office": "down: it has not been built: it is newer than the last run, or ip refused it"}


def test_without_a_wan_everything_is_down(station):
    station.router.documents["wans"] = []
    assert station.broken() == dict.fromkeys(NAMES[:2], "down: no WAN is current, so nothing is built") | dict.fromkeys(
        NAMES[2:], "down: no WAN is current, so nothing is started")
    done = station.status()
    assert done.status == 1 and f"WAN     none is current; tunnels use {WAN}\n" in done.stdout


def test_another_wan_is_told(station):
    station.router.documents["wans"] = [{"current": True, "ip": "198.51.100.9"}]
    assert f"WAN     198.51.100.9; tunnels use {WAN}\n" in station.status().stdout
    told = f"down: it begins at {WAN}, but the current WAN is 198.51.100.9"
    assert station.broken() == {"head_office": told, "office": told}


@pytest.mark.asan
def test_ipsec_tunnels_tell_why_they_are_down(station):
    text = IPSEC_STATUS.format(name=CONNECTION, wan=WAN, peer=REMOTE)
    loaded = text[:text.index(f"{CONNECTION}[1]")]
    for listing, told in [
            (loaded, "down: no SA: the peer refused the proposal, the key or the identity, and the log of the IPsec service "
                     "says which"),
            (f"{loaded}{CONNECTION}[1]: CONNECTING, {WAN}[%any]...{REMOTE}[%any]\n", f"down: no answer from {REMOTE} yet"),
            (text[:text.index(f"{CONNECTION}{{1}}")],
             "down: keys are exchanged, but no SA is: the peer refuses the networks or the proposal of phase 2"),
            (text.replace(CONNECTION, "theirs"),
             "down: the IPsec service does not read /var/run/ipsec/ipsec.conf, which its own ipsec.conf must include"),
            ("", "down: the IPsec service does not run")]:
        tell_ipsec(station.router, listing)
        assert station.broken() == {"office": told}
    station.router.program("ipsec").missing()
    assert station.broken() == {"office": "down: there is no program ipsec"}


def test_a_child_that_died_is_told_with_its_time(station):
    station.router.program("openvpn").missing()
    station.status()
    station.router.program("openvpn").exit()
    told = station.router.wait_until(
        lambda: len(found := station.broken(station.look)) == 2 and found, "the end of the children")
    for reason in told.values():
        assert reason.startswith("down: no child for ") and "its lines in the system log say why" in reason


@pytest.mark.asan
def test_openvpn_tunnels_tell_why_they_are_down(station):
    write_statuses(station.router, "depot", "tls")
    station.router.write_file("/run/connect_depot.status", "")
    write_statuses(station.router, "tls", arrived=0, authenticated=0)
    told = station.broken(station.look)
    assert told.pop("depot").startswith("down: the last ping of 10.8.0.2 failed ")
    assert told == {"tls": "down: nothing has come from the other end"}
    write_statuses(station.router, "tls", authenticated=0)
    del station.kernel.devices["tundepot"]
    station.kernel.publish()
    assert station.broken(station.look) == {
        "depot": "down: its device tundepot is not there: openvpn has not connected yet",
        "tls": "unknown: the other end answers, but nothing has come through the tunnel yet"}
    station.router.remove("/run/openvpn_tls.status")
    assert "and has not written its status yet" in station.broken(station.look)["tls"]


def test_what_is_there_but_not_configured_is_stale_and_no_failure(station):
    station.kernel.add("by_hand", ends=(WAN, "203.0.113.50"))
    station.kernel.publish()
    with station.router.documents.edit() as documents:
        documents["ipsecTunnels"][0]["enabled"] = False
        documents["ovpnTunnels"][1]["enabled"] = False
    station.router.write_file("/run/openvpn_old.conf", "dev tunold\n")
    assert station.broken() == {
        "by_hand": "stale: it is not in the configuration; the next run removes it",
        "office": "stale: it is written, but no longer configured; a run is due",
        "tls": "stale: it runs, but is no longer configured; a run is due",
        "old": "stale: nothing runs; the file of an earlier configuration is left"}
    assert station.status().status == 0


def test_a_record_of_a_wrong_type_is_told(station):
    with station.router.documents.edit() as documents:
        documents["greTunnels"].append({"name": "broken", "enabled": "yes"})
    assert station.broken() == {"broken": "unknown: a member of its record has a wrong type, which ends every run"}
    assert station.status().status == 2
