"""tunnelctl status where the daemon or the API is gone, where programs hang or are missing, and for who is not root."""

import json
import signal

import pytest

from companion import companion
from daemon_stories import PID_FILE, SEMAPHORE
from sandbox.router import PROGRAM_PATH
from status_stories import ASK_IPSEC, LIST_DEVICES, LIST_ROUTES, NAMES, Station, tell_ipsec, write_statuses
from tunnel_records import REMOTE, WAN

AS_NOBODY = ["/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]


@pytest.fixture
def station(make_router) -> Station:
    return Station.whole(make_router)


# ---- the daemon is gone ----

def kill_daemon(station: Station) -> None:
    station.daemon.signal(signal.SIGKILL)
    station.daemon.wait_exit()
    station.router.wait_until(lambda: not any(station.router.process(event.pid).alive()
                                              for event in station.router.find("exec", program="openvpn")),
                              "the end of the openvpn children")


@pytest.mark.asan
def test_without_the_daemon_the_rest_is_told_and_what_the_next_start_will_do(station):
    kill_daemon(station)
    done = station.status()
    assert done.status == 1
    assert " ".join(done.stdout.split()).startswith(
        f"Daemon does not run {SEMAPHORE} and /var/run/tunnel_mngr.pid belong to nobody: the next start removes "
        "what is left and fails with 1, the one after works API answers")
    assert station.broken() == dict.fromkeys(
        ["depot", "tls"], "down: no child: the daemon does not run, and its children end with it")
    assert station.router.run().status == 1  # what was foretold
    assert "belong" not in station.status().stdout
    assert station.router.run().status == 0


def test_a_pid_file_that_names_another_process_is_told(station):
    kill_daemon(station)
    victim = station.router.spawn(["sleep", "1000"])
    station.router.write_file(PID_FILE, f"{victim.pid}\n")
    told = json.loads(station.status("--json").stdout)["daemon"]
    assert told == {"running": False, "singleRun": False, "pid": None, "startedAt": None, "printLevel": None, "remarks": [
        f"{SEMAPHORE} is left over, and /var/run/tunnel_mngr.pid names process {victim.pid} (sleep): the next "
        "start sends SIGHUP to it and ends; remove both files"]}
    assert station.router.run().status == 0 and victim.wait_exit() == -signal.SIGHUP  # what was foretold


def test_a_single_run_is_no_daemon(make_router):
    router = make_router()
    router.make_ipsec_folders()
    router.api.on("wans", hang=True)
    run = router.start()
    router.wait_for("api", "/api/waninfo/wans")
    router.api.reset()
    done = router.exec([companion(router.program_path), "status"])
    assert done.stdout.startswith(f"Daemon  does not run; a single run goes on, PID {run.pid}\n")
    router.api.release()
    assert run.wait_exit() == 0


# ---- the API is gone ----

def test_without_the_api_what_is_found_is_told(station):
    station.router.api.absent()
    done = station.status()
    assert done.status == 2 and done.stderr == ""
    assert "API     the configuration API does not answer /api/waninfo/wans\n" in done.stdout
    assert f"WAN     unknown; tunnels use {WAN}\n" in done.stdout
    assert station.tunnels() == dict.fromkeys(NAMES, "up")
    station.kernel.devices["head_office"]["flags"] = []
    station.kernel.publish()
    assert station.broken() == {"head_office": "down: its link is down; a run is due"}
    assert station.status().status == 1


@pytest.mark.slow
@pytest.mark.asan
@pytest.mark.tsan
def test_a_silent_api_is_given_up(station):
    station.router.api.on(hang=True)
    done = station.status()
    assert done.status == 2 and "API     the configuration API does not answer in time\n" in done.stdout


# ---- programs that hang ----

@pytest.mark.parametrize("name, words, told, complaint", [
    ("ipsec", ASK_IPSEC, {"office": "unknown: ipsec statusall does not answer in time"},
     "IPsec   ipsec statusall does not answer in time"),
    ("ip", LIST_DEVICES, {"head_office": "unknown: ip does not list the kernel's devices"},
     "Kernel  the kernel's devices cannot be listed: ip addr does not answer in time"),
    ("ip", LIST_ROUTES, {"head_office": "unknown: ip does not list the kernel's routes"},
     "Kernel  the kernel's routes cannot be listed: ip route does not answer in time")])
def test_a_program_that_hangs_is_given_up_and_ended(station, name, words, told, complaint):
    router = station.router
    router.program(name).on(words, stay=True)
    mark = router.mark("status")
    found = json.loads(station.status("--wait", "0", "--json").stdout)  # with this it gets the least time
    assert {row["name"]: f"{row['state']}: {row['reason']}" for row in found["tunnels"] if row["state"] != "up"} == told
    assert found["exitStatus"] == 2
    assert f"\n{complaint}\n" in station.status("--wait", "0").stdout
    hung = router.find("exec", since=mark, program=name, argv=[name, *words])
    assert len(hung) == 2 and not any(router.process(event.pid).alive() for event in hung)


@pytest.mark.slow
@pytest.mark.asan
@pytest.mark.tsan
def test_without_a_time_of_its_own_a_program_that_hangs_is_given_up_as_well(station):
    station.router.program("ipsec").on(ASK_IPSEC, stay=True)
    done = station.status()
    assert done.status == 2 and done.stderr == ""
    assert "IPsec   ipsec statusall does not answer in time\n" in done.stdout


# ---- other surroundings ----

def test_without_ip_nothing_of_the_kernel_is_known(station):
    station.router.program("ip").missing()
    assert station.broken() == {"head_office": "unknown: ip does not list the kernel's devices"}
    done = station.status()
    assert done.status == 2 and done.stderr == ""
    assert "Kernel  the kernel's devices cannot be listed: ip addr fails with status 127\n" in done.stdout


@pytest.mark.asan
def test_an_ip_that_knows_no_json_is_asked_in_plain_text(station):
    ip = station.router.program("ip")
    for words in (LIST_DEVICES, LIST_ROUTES):
        ip.on(words, status=1, stderr="ip: invalid option -- 'j'\n")
    ip.on(["addr"], stdout=f"2: wan: <BROADCAST,UP,LOWER_UP> mtu 1500 qdisc noqueue\n    inet {WAN}/24 scope global wan\n"
                           "4: gre0@NONE: <NOARP> mtu 1476 qdisc noop\n    link/gre 0.0.0.0 brd 0.0.0.0\n"
                           "7: head_office@NONE: <POINTOPOINT,NOARP,UP,LOWER_UP> mtu 1476 qdisc noqueue\n"
                           f"    link/gre {WAN} peer {REMOTE}\n    inet 10.9.9.1/30 scope global head_office\n"
                           "8: tundepot: <UP>\n9: tuntls: <UP>\n")
    ip.on(["route", "show", "table", "all"], stdout="default via 198.51.100.1 dev wan\n192.168.50.0/24 dev head_office\n")
    assert station.tunnels() == dict.fromkeys(NAMES, "up")


def test_who_is_not_root_is_told_what_only_root_can_know(station):
    router = station.router
    write_statuses(router, "depot", "tls")
    router.exec(["chmod", "600", "/run/openvpn_tls.status"])
    router.exec(["cp", "/usr/bin/sleep", "/run/charon"])
    router.spawn(["/run/charon", "1000"])
    router.exec(["chmod", "777", "/run/api/http.sock"])
    tell_ipsec(router, "")
    done = router.exec([*AS_NOBODY, companion(router.program_path), "status", "--json"], environment={"PATH": PROGRAM_PATH})
    found = json.loads(done.stdout)
    told = {row["name"]: f"{row['state']}: {row['reason']}" for row in found["tunnels"]}
    assert told["office"] == "unknown: only root may ask the IPsec service"
    assert told["tls"] == "unknown: only root may read the status of openvpn"
    assert told["head_office"] == "up: None" and found["ipsecService"]["running"] is None
    assert done.status == 2 and done.stderr == ""
