"""tunnel_mngr-foreground stays for as long as the daemon does, in the shell of Debian and in BusyBox's."""

import os
import signal

import pytest

from c_library import SEMAPHORES
from daemon_stories import MONITORS_START, PID_FILE, SEMAPHORE, assert_no_instance, wait_until_idle
from init_systems import DAEMON, ENDED, FOREGROUND, INSTANCE, NO_SHARED_MEMORY, SHELL, House
from sandbox.process import Process

# A mount namespace with shared memory of its own, as a container has it.
CONTAINER = ("unshare", "--mount", "sh", "-c", 'mount -t tmpfs tmpfs /dev/shm && exec "$@"', "sh")
# A daemon with a child that has not become another program yet; the child says so when it is told to end.
FORKED = INSTANCE.replace("subprocess.run(command)", """
import signal
def end(*_):
    print("the daemon was told" if child else "the child was told", flush=True)
    if child: os.kill(child, signal.SIGKILL)
    os._exit(0)
signal.signal(signal.SIGTERM, end)
child = os.fork()
while True: signal.pause()
""")
NO_INSTANCES = {
    "another program": {"name": "something"},
    "a request to refresh": {"end": "asked for"},
    "an instance in a container": {"before": CONTAINER},
}


@pytest.fixture
def house(open_house) -> House:
    return open_house()


def start(house: House, shell: list[str] = SHELL, *arguments: str) -> Process:
    return house.router.spawn([*shell, FOREGROUND, *arguments])


def started(house: House, shell: list[str] = SHELL) -> tuple[Process, Process]:
    """The script, which waits, and the daemon, whose first run is over."""
    mark = house.router.mark()
    script = start(house, shell)
    daemon = house.wait_for_run(mark)
    house.wait_until_it_waits(script)
    return script, daemon


def leave_remains(house: House, number: int | str, semaphore: str = SEMAPHORE) -> None:
    """As a daemon that was killed leaves them."""
    house.router.write_file(semaphore, "")
    house.router.write_file(PID_FILE, f"{number}\n")


# ---- start and end ----

def test_it_lasts_as_long_as_the_daemon(house, shell):
    script, daemon = started(house, shell)
    house.assert_prepared(daemon)
    wait_until_idle(house.router, daemon)
    assert house.runs() == 1 and script.alive()
    daemon.signal(signal.SIGKILL)
    assert script.wait_exit() == 1
    assert (script.stdout, script.stderr) == ("", ENDED)


def test_sigterm_is_passed_on(house, shell):
    script, daemon = started(house, shell)
    script.signal(signal.SIGTERM)
    assert script.wait_exit() == 0 and not daemon.alive()
    assert (script.stdout, script.stderr) == ("", "")
    assert_no_instance(house.router)


def test_sighup_is_passed_on_and_causes_one_run(house, shell):
    script, daemon = started(house, shell)
    house.assert_one_run_more(lambda: script.signal(signal.SIGHUP), daemon)
    assert script.alive()


def test_the_daemon_is_given_the_arguments(house):
    start(house, SHELL, "--printlvl", "100")
    house.router.wait_for("log", "ip tunnel add one mode gre")  # logged at level 100 only


def test_the_script_ends_after_the_run_that_is_under_way(house):
    house.router.program("firewall").on(stay=True, times=1)
    script = start(house)
    house.router.wait_for("exec", program="firewall")
    daemon = house.router.wait_until(house.daemons, "the daemon")[0]
    house.router.wait_until(lambda: house.router.exists(PID_FILE) and house.router.find("log", "MANAGING"), "the run")
    script.signal(signal.SIGTERM)
    house.router.wait_until(lambda: not house.router.exists(PID_FILE), "the daemon to be told")
    assert daemon.alive() and script.alive()
    house.router.program("firewall").exit()
    assert script.wait_exit() == 0 and not daemon.alive()


# ---- another instance ----

def test_a_running_daemon_is_waited_for_and_ended(house, shell):
    _, daemon = started(house, shell)
    mark = house.router.mark()
    second = start(house, shell)
    house.assert_left_alone(daemon, mark)
    second.signal(signal.SIGTERM)
    assert second.wait_exit() == 0 and not daemon.alive()
    assert len(house.router.find("start", role="exec")) and house.runs(mark) == 0


def test_a_single_run_is_waited_for(house):
    house.router.program("firewall").on(stay=True, times=1)
    single = house.router.spawn(["/usr/sbin/tunnel_mngr", "--printlvl", "50"])
    house.router.wait_for("exec", program="firewall")
    mark = house.router.mark()
    script = start(house)
    house.wait_until_it_waits(script)
    assert not house.daemons() and script.alive()
    house.router.program("firewall").exit()
    assert single.wait_exit() == 0
    house.wait_for_run(mark)
    assert not house.router.find("log", "Signaling to process")


@pytest.mark.parametrize("name", SEMAPHORES)
def test_who_has_the_semaphore_open_is_at_work(house, name):
    """One of the names is another C library's; whoever has it open there keeps the script from starting, too."""
    holder = house.imitate("sleep", "1000", semaphore=name)
    script = start(house)
    house.wait_until_it_waits(script)
    assert script.alive() and not house.daemons() and house.router.exists(name)
    holder.signal(signal.SIGKILL)
    house.wait_for_run(0)
    assert house.router.exists(name) == (name == SEMAPHORE)


def test_an_instance_with_mounts_of_its_own_is_at_work(house):
    """As the service unit's has them; its shared memory is the same."""
    house.imitate("sleep", "1000", before=("unshare", "--mount"))
    script = start(house)
    house.wait_until_it_waits(script)
    assert script.alive() and not house.daemons()


@pytest.mark.parametrize("who", NO_INSTANCES.values(), ids=NO_INSTANCES)
def test_who_is_no_instance_keeps_nobody_waiting(house, shell, who):
    leave_remains(house, 1)
    bystander = house.imitate("sleep", "1000", semaphore="/dev/shm/sem.IMITATION", **who)
    started(house, shell)
    assert bystander.alive()


# ---- a daemon that ends, or is starting, and whose script was killed ----

def abandoned_in_its_run(house: House) -> Process:
    """A daemon that was told to end in a run, by a script that was killed then: its semaphore and PID file have gone."""
    house.router.program("firewall").on(stay=True, times=1)
    script = start(house)
    house.router.wait_for("exec", program="firewall")
    daemon = house.router.wait_until(house.daemons, "the daemon")[0]
    house.router.wait_until(lambda: house.router.exists(PID_FILE), "its PID file")
    script.signal(signal.SIGTERM)
    house.router.wait_until(lambda: not house.router.exists(PID_FILE), "the daemon to be told")
    script.signal(signal.SIGKILL)
    return daemon


def test_a_daemon_that_ends_after_its_run_is_waited_for(house, shell):
    """Its successor's run would be beside its own."""
    old = abandoned_in_its_run(house)
    script = start(house, shell)
    house.wait_until_it_waits(script, looks=3)
    assert [daemon.pid for daemon in house.daemons()] == [old.pid]
    mark = house.router.mark()
    house.router.program("firewall").exit()
    house.router.wait_for("log", MONITORS_START, since=mark, count=2)  # its own, and behind that its successor's
    assert not old.alive() and house.daemon().pid != old.pid and house.runs(mark) == 1


def test_a_script_that_is_ended_waits_for_the_daemon_that_ends(house, shell):
    old = abandoned_in_its_run(house)
    script = start(house, shell)
    house.wait_until_it_waits(script)
    script.signal(signal.SIGTERM)
    house.wait_until_it_waits(script, looks=3)
    assert old.alive() and script.alive()
    house.router.program("firewall").exit()
    assert script.wait_exit() == 0 and not house.daemons() and house.runs() == 1
    assert_no_instance(house.router)


def test_a_start_by_a_script_that_was_killed_is_waited_for_and_ended(house, shell):
    house.router.api.on("wans", hang=True)
    first = start(house, shell)
    house.router.wait_for("api", "wans")
    first.signal(signal.SIGKILL)
    second = start(house, shell)
    house.wait_until_it_waits(second, looks=3)
    assert len(house.daemons()) == 1
    second.signal(signal.SIGTERM)
    assert second.wait_exit() == 0 and not house.daemons()
    assert_no_instance(house.router)


def test_a_child_that_has_not_become_a_program_yet_is_not_told_to_end(house):
    """It may be the next command of a run. Its number comes first here, as that of a file."""
    words = ["/usr/bin/python3", "-c", FORKED, "tunnel_mngr", "/dev/shm/sem.IMITATION", "made", "--daemonize"]
    daemon = with_number(house, 99, *words)
    house.router.wait_until(lambda: daemon.children() == [100], "its child")
    script = start(house)
    house.wait_until_it_waits(script)
    assert script.terminate() == 0
    assert daemon.stdout == "made\nthe daemon was told\n"


def test_a_daemon_that_has_lost_its_semaphore_is_looked_after(house):
    """Of two starts at once the second takes the first for dead, and removes its semaphore."""
    house.router.api.on("wans", hang=True, times=1)
    house.router.spawn(DAEMON)
    house.router.wait_for("api", "wans")
    house.do(DAEMON, 1)
    house.router.api.release()
    house.router.wait_for("log", MONITORS_START)
    [daemon] = house.daemons()
    mark = house.router.mark()
    script = start(house)
    house.assert_left_alone(daemon, mark)
    assert not house.router.exists(SEMAPHORE)
    assert script.terminate() == 0 and not daemon.alive()


# ---- the remains of a daemon that was killed ----

def test_a_process_that_has_the_number_of_a_dead_daemon_is_left_alone(house, shell):
    """The program itself would take that process for its daemon and send it SIGHUP, of which it would die."""
    bystander = house.router.spawn(["sleep", "1000"])
    leave_remains(house, bystander.pid)
    _, daemon = started(house, shell)
    assert bystander.alive() and daemon.pid != bystander.pid
    assert house.router.read_file(PID_FILE) == f"{daemon.pid}\n"
    assert not house.router.find("log", "Signaling to process")


@pytest.mark.parametrize("contents", ["", "abc", "-1", "0", "2147483647"])
def test_the_first_start_after_a_kill_works(house, contents):
    leave_remains(house, contents)
    started(house)
    assert house.runs() == 1 and not house.router.find("log", "Signaling to process")


def test_a_later_process_with_the_number_of_the_daemon_is_not_the_daemon(house, shell):
    script, daemon = started(house, shell)
    script.signal(signal.SIGSTOP)  # so that it does not look meanwhile
    for process in (daemon, *house.processes("openvpn")):  # the number stays taken while one is in its session
        process.signal(signal.SIGKILL)
    house.router.wait_until(lambda: daemon.facts() is None, "the daemon's funeral")
    later = house.router.wait_until(lambda: with_number(house, daemon.pid, "sleep", "1000"), "one with that number")
    script.signal(signal.SIGCONT)
    assert script.wait_exit() == 1 and later.alive()


def with_number(house: House, number: int, *argv: str) -> Process | None:
    """Has the kernel go on counting processes from there."""
    house.router.write_file("/proc/sys/kernel/ns_last_pid", str(number - 1))
    process = house.router.spawn([*argv])
    return process if process.pid == number else None


# ---- what is in the way of a start ----

def test_without_shared_memory_it_says_so_in_one_line(house, shell):
    house.take_shared_memory_away()
    script = start(house, shell)
    assert script.wait_exit() == 1
    assert (script.stdout, script.stderr) == ("", NO_SHARED_MEMORY)
    assert not house.router.log_lines()


def test_shared_memory_that_is_read_only_is_none(house, shell):
    house.do(["mount", "-o", "remount,ro", "/dev/shm"])
    script = start(house, shell)
    assert (script.wait_exit(), script.stderr) == (1, NO_SHARED_MEMORY)


def test_names_in_shared_memory_that_somebody_has_foreseen_lead_nowhere(house, shell):
    """Every user may put links there."""
    house.router.write_file("/run/victim", "intact")
    links = "import os\nfor pid in range(1, 4000): os.symlink('/run/victim', f'/dev/shm/tunnel_mngr.{pid}')"
    house.do(["/usr/bin/python3", "-c", links])
    script, _ = started(house, shell)
    assert script.pid < 4000 and house.router.read_file("/run/victim") == "intact"


def test_a_start_that_fails_is_told(house):
    script = start(house, SHELL, "--printlvl", "101")
    assert script.wait_exit() == 1
    assert script.stderr == "tunnel_mngr: did not start (status 1); the system log may tell why.\n"


def test_a_signal_during_the_start_ends_it(house, shell):
    """The program asks the API before it becomes a daemon, and may wait for the answer for a minute."""
    house.router.api.on("wans", hang=True)
    script = start(house, shell)
    house.router.wait_for("api", "wans")
    assert house.router.exists(SEMAPHORE)
    script.signal(signal.SIGTERM)
    assert script.wait_exit() == 0
    assert (script.stderr, house.daemons()) == ("", [])
    assert_no_instance(house.router)


def test_a_daemon_that_is_there_when_its_start_is_ended_is_ended_as_well(open_house, program):
    slow = f'#!/bin/sh\n{os.path.abspath(program)} "$@"\nexec sleep 1000\n'
    house = open_house(files={"usr/sbin/tunnel_mngr": slow})
    script = start(house)
    house.router.wait_for("log", MONITORS_START)
    script.signal(signal.SIGTERM)
    assert script.wait_exit() == 0
    assert_no_instance(house.router)


def test_a_sighup_during_the_start_is_passed_on_later(house):
    house.router.api.on("wans", hang=True, times=1)
    script = start(house)
    house.router.wait_for("api", "wans")
    script.signal(signal.SIGHUP)
    house.router.api.reset()
    house.router.api.release()
    house.router.wait_until(lambda: house.runs() == 2, "a run for the signal")
    wait_until_idle(house.router, house.daemon())
    assert house.runs() == 2


def test_a_daemon_that_cannot_write_its_number_is_reported_and_not_started_twice(house):
    house.router.make_folder(PID_FILE)
    script = start(house)
    assert script.wait_exit(30) == 1
    assert script.stderr.endswith("\ntunnel_mngr: ended at once, or cannot write /var/run/tunnel_mngr.pid.\n")
    [daemon] = house.daemons()
    mark = house.router.mark()
    following = start(house)
    house.assert_left_alone(daemon, mark)
    assert following.terminate() == 0 and not daemon.alive()


# ---- as the first process ----

def test_as_the_first_process_of_a_container(house, shell):
    """It is then the parent of whatever has lost its own."""
    mark = house.router.mark()
    first = house.boot(*shell, FOREGROUND)
    daemon = house.wait_for_run(mark)
    house.assert_prepared(daemon)
    enter = ["nsenter", "--target", str(first.pid), "--pid", "--mount"]
    house.do([*enter, "bash", "-c", "(sleep 0.2 &)"])
    house.router.wait_until(lambda: not house.processes("sleep", "0.2"), "the end of the orphan")
    house.router.wait_until(lambda: not first.zombies(), "the orphan's funeral")
    house.assert_one_run_more(lambda: first.signal(signal.SIGHUP), daemon)
    first.signal(signal.SIGTERM)
    house.wait_for_end(first)
    assert not daemon.alive()
    assert_no_instance(house.router)


def test_a_first_process_that_takes_no_notice_of_orphans_keeps_nobody_waiting(house, shell):
    """The daemon that was killed remains as a zombie then."""
    mark = house.router.mark()
    text = f"import subprocess, time\nsubprocess.Popen({[*shell, FOREGROUND]})\ntime.sleep(1000)"
    first = house.boot("/usr/bin/python3", "-c", text)
    daemon = house.wait_for_run(mark)
    [script] = house.scripts()
    daemon.signal(signal.SIGKILL)
    house.wait_for_end(script)
    assert daemon.pid in first.zombies()


def test_the_first_process_of_a_container_ends_when_the_daemon_was_killed(house, shell):
    mark = house.router.mark()
    first = house.boot(*shell, FOREGROUND)
    daemon = house.wait_for_run(mark)
    daemon.signal(signal.SIGKILL)
    house.wait_for_end(first)
