"""tunnel_mngr-foreground stays for as long as the daemon does, in the shell of Debian and in BusyBox's."""

import os
import signal

import pytest

from daemon_stories import MONITORS_START, PID_FILE, SEMAPHORE, assert_no_instance, wait_until_idle
from init_systems import ENDED, FOREGROUND, NO_SHARED_MEMORY, SHELL, House


@pytest.fixture
def house(open_house) -> House:
    return open_house()


# ---- start and end ----

def test_it_lasts_as_long_as_the_daemon(house, shell):
    script, daemon = house.started(shell)
    house.assert_prepared(daemon)
    wait_until_idle(house.router, daemon)
    assert house.runs() == 1 and script.alive()
    daemon.signal(signal.SIGKILL)
    assert script.wait_exit() == 1
    assert (script.stdout, script.stderr) == ("", ENDED)


def test_sigterm_is_passed_on(house, shell):
    script, daemon = house.started(shell)
    script.signal(signal.SIGTERM)
    assert script.wait_exit() == 0 and not daemon.alive()
    assert (script.stdout, script.stderr) == ("", "")
    assert_no_instance(house.router)


def test_sighup_is_passed_on_and_causes_one_run(house, shell):
    script, daemon = house.started(shell)
    house.assert_one_run_more(lambda: script.signal(signal.SIGHUP), daemon)
    assert script.alive()


def test_the_daemon_is_given_the_arguments(house):
    house.start(SHELL, "--printlvl", "100")
    house.router.wait_for("log", "ip tunnel add one mode gre")  # logged at level 100 only


def test_the_script_ends_after_the_run_that_is_under_way(house):
    house.router.program("firewall").on(stay=True, times=1)
    script = house.start()
    house.router.wait_for("exec", program="firewall")
    daemon = house.router.wait_until(house.daemons, "the daemon")[0]
    house.router.wait_until(lambda: house.router.exists(PID_FILE) and house.router.find("log", "MANAGING"), "the run")
    script.signal(signal.SIGTERM)
    house.router.wait_until(lambda: not house.router.exists(PID_FILE), "the daemon to be told")
    assert daemon.alive() and script.alive()
    house.router.program("firewall").exit()
    assert script.wait_exit() == 0 and not daemon.alive()


# ---- the remains of a daemon that was killed ----

def test_a_process_that_has_the_number_of_a_dead_daemon_is_left_alone(house, shell):
    """The program itself would take that process for its daemon and send it SIGHUP, of which it would die."""
    bystander = house.router.spawn(["sleep", "1000"])
    house.leave_remains(bystander.pid)
    _, daemon = house.started(shell)
    assert bystander.alive() and daemon.pid != bystander.pid
    assert house.router.read_file(PID_FILE) == f"{daemon.pid}\n"
    assert not house.router.find("log", "Signaling to process")


@pytest.mark.parametrize("contents", ["", "abc", "-1", "0", "2147483647"])
def test_the_first_start_after_a_kill_works(house, contents):
    house.leave_remains(contents)
    house.started()
    assert house.runs() == 1 and not house.router.find("log", "Signaling to process")


def test_a_later_process_with_the_number_of_the_daemon_is_not_the_daemon(house, shell):
    script, daemon = house.started(shell)
    script.signal(signal.SIGSTOP)  # so that it does not look meanwhile
    for process in (daemon, *house.processes("openvpn")):  # the number stays taken while one is in its session
        process.signal(signal.SIGKILL)
    house.router.wait_until(lambda: daemon.facts() is None, "the daemon's funeral")
    later = house.router.wait_until(lambda: house.with_number(daemon.pid, "sleep", "1000"), "one with that number")
    script.signal(signal.SIGCONT)
    assert script.wait_exit() == 1 and later.alive()


# ---- what is in the way of a start ----

def test_without_shared_memory_it_says_so_in_one_line(house, shell):
    house.take_shared_memory_away()
    script = house.start(shell)
    assert script.wait_exit() == 1
    assert (script.stdout, script.stderr) == ("", NO_SHARED_MEMORY)
    assert not house.router.log_lines()


def test_shared_memory_that_is_read_only_is_none(house, shell):
    house.do(["mount", "-o", "remount,ro", "/dev/shm"])
    script = house.start(shell)
    assert (script.wait_exit(), script.stderr) == (1, NO_SHARED_MEMORY)


def test_names_in_shared_memory_that_somebody_has_foreseen_lead_nowhere(house, shell):
    """Every user may put links there."""
    house.router.write_file("/run/victim", "intact")
    links = "import os\nfor pid in range(1, 4000): os.symlink('/run/victim', f'/dev/shm/tunnel_mngr.{pid}')"
    house.do(["/usr/bin/python3", "-c", links])
    script, _ = house.started(shell)
    assert script.pid < 4000 and house.router.read_file("/run/victim") == "intact"


def test_a_start_that_fails_is_told(house):
    script = house.start(SHELL, "--printlvl", "101")
    assert script.wait_exit() == 1
    assert script.stderr == "tunnel_mngr: did not start (status 1); the system log may tell why.\n"


def test_a_signal_during_the_start_ends_it(house, shell):
    """The program asks the API before it becomes a daemon, and may wait for the answer for a minute."""
    house.router.api.on("wans", hang=True)
    script = house.start(shell)
    house.router.wait_for("api", "wans")
    assert house.router.exists(SEMAPHORE)
    script.signal(signal.SIGTERM)
    assert script.wait_exit() == 0
    assert (script.stderr, house.daemons()) == ("", [])
    assert_no_instance(house.router)


def test_a_daemon_that_is_there_when_its_start_is_ended_is_ended_as_well(open_house, program):
    slow = f'#!/bin/sh\n{os.path.abspath(program)} "$@"\nexec sleep 1000\n'
    house = open_house(files={"usr/sbin/tunnel_mngr": slow})
    script = house.start()
    house.router.wait_for("log", MONITORS_START)
    script.signal(signal.SIGTERM)
    assert script.wait_exit() == 0
    assert_no_instance(house.router)


def test_a_sighup_during_the_start_is_passed_on_later(house):
    house.router.api.on("wans", hang=True, times=1)
    script = house.start()
    house.router.wait_for("api", "wans")
    script.signal(signal.SIGHUP)
    house.router.api.reset()
    house.router.api.release()
    house.router.wait_until(lambda: house.runs() == 2, "a run for the signal")
    wait_until_idle(house.router, house.daemon())
    assert house.runs() == 2


def test_a_daemon_that_cannot_write_its_number_is_reported_and_not_started_twice(house):
    house.router.make_folder(PID_FILE)
    script = house.start()
    assert script.wait_exit(30) == 1
    assert script.stderr.endswith("\ntunnel_mngr: ended at once, or cannot write /var/run/tunnel_mngr.pid.\n")
    [daemon] = house.daemons()
    mark = house.router.mark()
    following = house.start()
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
