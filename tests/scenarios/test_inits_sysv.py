"""The init script, called as service(8) does and by Debian's sysvinit, which runs tunnel_mngr-foreground as well."""

import shutil
import signal

import pytest

from daemon_stories import PID_FILE, assert_no_instance, times_blocked
from init_systems import FOREGROUND, NO_SHARED_MEMORY, PACKAGING, House
from sandbox.process import Process

SCRIPT = {"etc/init.d/tunnel_mngr": (PACKAGING / "tunnel_mngr.init").read_text()}
SCRIPT_INITTAB = "id:2:initdefault:\nl2:2:wait:/etc/init.d/rc 2\nl0:0:wait:/etc/init.d/rc 0\n"
FOREGROUND_INITTAB = f"id:2:initdefault:\ntm:2:respawn:{FOREGROUND}\n"


@pytest.fixture
def open_house(open_house):
    """The same, with the init script in it."""
    def open_with_script(*packages: str, files: dict[str, str] | None = None) -> House:
        return open_house(*packages, files=SCRIPT | (files or {}))
    return open_with_script


@pytest.fixture
def house(open_house) -> House:
    return open_house()


def service(house: House, word: str, status: int = 0) -> str:
    """What the script says, as a terminal shows it."""
    return house.do(["sh", "-c", f"service tunnel_mngr {word} 2>&1"], status, timeout=60).stdout


def started(house: House) -> Process:
    mark = house.router.mark()
    service(house, "start")
    return house.wait_for_run(mark)


# ---- the script by itself ----

def test_start_reload_restart_stop(house):
    assert service(house, "status", 3) == "tunnel_mngr is not running ... failed!\n"
    daemon = started(house)
    house.assert_prepared(daemon)
    assert service(house, "status") == "tunnel_mngr is running.\n"
    mark = house.router.mark()
    assert service(house, "start") == "Starting the tunnel manager: tunnel_mngr.\n"
    house.assert_left_alone(daemon, mark)
    for word in ("reload", "force-reload"):
        house.assert_one_run_more(lambda: service(house, word), daemon)
    mark = house.router.mark()
    service(house, "restart")
    following = house.wait_for_run(mark)
    assert following.pid != daemon.pid and house.runs(mark) == 1
    service(house, "stop")
    house.assert_stopped(following)
    service(house, "stop")
    service(house, "reload", 7)
    assert "{start|stop|restart|reload|force-reload|status}" in service(house, "sing", 2)


def test_the_first_start_after_a_kill_works(house):
    daemon = started(house)
    daemon.signal(signal.SIGKILL)
    house.wait_for_end(daemon)
    assert service(house, "status", 1) == "tunnel_mngr is not running, but its PID file is there ... failed!\n"
    started(house)
    assert not house.router.find("log", "Signaling to process")


def test_a_stop_after_a_kill_clears_away_what_is_left(house):
    daemon = started(house)
    daemon.signal(signal.SIGKILL)
    house.wait_for_end(daemon)
    service(house, "stop")
    assert_no_instance(house.router)


def test_a_process_that_has_the_number_of_a_dead_daemon_is_left_alone(house):
    daemon = started(house)
    daemon.signal(signal.SIGKILL)
    house.wait_for_end(daemon)
    bystander = house.router.spawn(["sleep", "1000"])
    house.router.write_file(PID_FILE, f"{bystander.pid}\n")
    service(house, "reload", 7)
    service(house, "stop")
    assert bystander.alive()


def in_its_run(house: House) -> Process:
    """A daemon whose first run does not end."""
    house.router.program("firewall").on(stay=True, times=1)
    service(house, "start")
    house.router.wait_for("exec", program="firewall")
    return house.daemon()


def told_to_end(house: House) -> Process:
    """The same, when somebody has sent it SIGTERM."""
    daemon = in_its_run(house)
    daemon.signal(signal.SIGTERM)
    house.router.wait_until(lambda: not house.router.exists(PID_FILE), "the daemon to be told")
    return daemon


def waiting_for(house: House, daemon: Process, word: str) -> Process:
    """The script, which goes on looking at the daemon."""
    script = house.router.spawn(["service", "tunnel_mngr", word])
    house.router.wait_until(lambda: not house.router.exists(PID_FILE), "the daemon to be told")
    [waiting] = house.router.wait_until(lambda: house.processes("start-stop-daemon"), "the script to wait")
    house.router.wait_until(lambda: times_blocked(house.router, waiting.pid) > 3, "a few looks at the daemon")
    assert [other.pid for other in house.daemons()] == [daemon.pid]
    return script


@pytest.mark.parametrize("begin", [in_its_run, told_to_end])
def test_a_restart_waits_for_the_run_that_is_under_way(house, begin):
    """Until the old daemon has ended there must be no new one, although its PID file has gone at once."""
    daemon = begin(house)
    restart = waiting_for(house, daemon, "restart")
    house.router.program("firewall").exit()
    assert restart.wait_exit() == 0
    assert not daemon.alive() and house.daemon().pid != daemon.pid


def test_a_stop_waits_for_a_daemon_that_was_told_to_end(house):
    daemon = told_to_end(house)
    stop = waiting_for(house, daemon, "stop")
    house.router.program("firewall").exit()
    assert stop.wait_exit() == 0
    house.assert_stopped(daemon)


def test_a_start_beside_a_daemon_that_ends_says_so(house):
    daemon = told_to_end(house)
    complaint = "tunnel_mngr: cannot start: a daemon without a PID file is at work; restart ends it first.\n"
    assert service(house, "start", 1) == f"Starting the tunnel manager: tunnel_mngr\n{complaint} failed!\n"
    assert [other.pid for other in house.daemons()] == [daemon.pid]


def test_a_stop_ends_a_start_that_is_under_way(house):
    """It asks the API before it becomes a daemon, and may wait for the answer for a minute."""
    house.router.api.on("wans", hang=True)
    start = house.router.spawn(["service", "tunnel_mngr", "start"])
    house.router.wait_for("api", "wans")
    service(house, "stop")
    assert start.wait_exit() != 0 and not house.daemons()
    assert_no_instance(house.router)


def test_a_daemon_whose_program_was_replaced_is_restarted(house, program, tmp_path):
    daemon = started(house)
    shutil.copy(program, tmp_path / "new")
    house.do(["mv", str(tmp_path / "new"), "/usr/sbin/tunnel_mngr"])
    service(house, "restart")
    house.wait_for_end(daemon)
    assert len(house.daemons()) == 1


def test_a_single_run_is_left_alone(house):
    house.router.program("firewall").on(stay=True, times=1)
    single = house.router.spawn(["/usr/sbin/tunnel_mngr"])
    house.router.wait_for("exec", program="firewall")
    for begun, word in (("Starting", "start"), ("Restarting", "restart")):
        assert service(house, word, 1) == (f"{begun} the tunnel manager: tunnel_mngr\n"
                                           "tunnel_mngr: cannot start: a single run is under way.\n failed!\n")
    house.router.program("firewall").exit()
    assert single.wait_exit() == 0
    started(house)


def test_without_shared_memory_it_says_so_in_one_line(house):
    house.take_shared_memory_away()
    said = service(house, "start", 1)
    assert said == f"Starting the tunnel manager: tunnel_mngr\n{NO_SHARED_MEMORY} failed!\n" and not house.daemons()


def test_nobody_waits_for_the_streams_of_the_daemon(house):
    """`service tunnel_mngr start | cat` ends."""
    house.do(["bash", "-o", "pipefail", "-c", "service tunnel_mngr start 2>&1 | cat"])
    assert len(house.daemons()) == 1


# ---- under sysvinit ----

def boot(house: House) -> Process:
    house.router.write_file("/dev/console", "")
    return house.boot("/sbin/init")


def change_runlevel(house: House, init: Process, level: str) -> None:
    house.do(["nsenter", "--target", str(init.pid), "--pid", "--mount", "/sbin/telinit", level])


def test_sysvinit_starts_and_stops_the_daemon_with_the_runlevel(open_house):
    house = open_house("sysvinit-core", "sysv-rc", "startpar", files={"etc/inittab": SCRIPT_INITTAB})
    house.do(["bash", "-c", "mkdir -p /etc/rc2.d /etc/rc0.d; ln -s ../init.d/tunnel_mngr /etc/rc2.d/S01tunnel_mngr; "
                            "ln -s ../init.d/tunnel_mngr /etc/rc0.d/K01tunnel_mngr"])
    init = boot(house)
    daemon = house.wait_for_run(0)
    house.assert_prepared(daemon)
    change_runlevel(house, init, "0")
    house.assert_stopped(daemon)


def test_sysvinit_keeps_the_script_in_the_foreground(open_house):
    house = open_house("sysvinit-core", files={"etc/inittab": FOREGROUND_INITTAB})
    init = boot(house)
    daemon = house.wait_for_run(0)
    house.assert_prepared(daemon)
    house.assert_left_alone(daemon, house.router.mark())
    daemon = house.assert_killed_and_replaced(daemon)
    house.assert_script_replaced(daemon)
    change_runlevel(house, init, "0")
    house.assert_stopped(daemon)
