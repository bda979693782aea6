"""Single instance: a second invocation asks the running daemon for a refresh, or clears away what a dead one has
left."""

import signal

import pytest

from daemon_stories import (MONITORS_START, PID_FILE, PID_FILE_AS_LOGGED, SEMAPHORE, assert_no_instance, go_on,
                            hold_next_run, runs, start, wait_for_held_run, wait_for_monitors, wait_until_idle)
from sandbox.process import Completed
from sandbox.router import Router

SIGNALING = "[TUNNEL_MNGR] Signaling to process for refresh."
UNREADABLE = f"[TUNNEL_MNGR] Unable to read PID file [{PID_FILE_AS_LOGGED}]"
GIVING_UP = "[TUNNEL_MNGR] Unable to signal process. Exiting ..."


def unparsable(contents: str) -> str:
    return f"[TUNNEL_MNGR] Unable to parse PID file [{PID_FILE_AS_LOGGED}] result [{contents}]"


def leave_stale_instance(router: Router, pid_file: str | None) -> None:
    """As an instance that died without its clean-up leaves it."""
    router.write_file(SEMAPHORE, "")
    if pid_file is not None:
        router.write_file(PID_FILE, pid_file)


def lines_of(router: Router, pid: int) -> list[tuple[str, str]]:
    """The log lines of one process: severity and message."""
    return [(event.severity, event.message) for event in router.log_lines() if event.pid == pid]


def invoke_again(router: Router, *arguments: str) -> Completed:
    """A second invocation while no daemon is at work; asserts that it keeps its hands off everything."""
    mark = router.mark("a second invocation")
    done = router.run("--printlvl", "100", *arguments)
    assert {event.kind for event in router.since(mark)} == {"start", "log", "exit"}
    assert (done.stdout, done.stderr) == ("", "")
    return done


def assert_a_start_is_possible(router: Router) -> None:
    daemon = start(router)
    assert router.read_file(PID_FILE) == f"{daemon.pid}\n" and router.exists(SEMAPHORE)
    assert daemon.terminate() == 0


# ---- another instance runs ----

@pytest.mark.parametrize("arguments", [[], ["--daemonize"]])
def test_a_second_invocation_has_the_daemon_do_exactly_one_run_more(router, arguments):
    daemon = start(router)
    mark = router.mark()
    done = router.run("--printlvl", "100", *arguments)
    assert (done.status, done.stdout, done.stderr) == (0, "", "")
    assert lines_of(router, done.pid) == [("info", SIGNALING)]
    wait_for_monitors(router, mark)
    wait_until_idle(router, daemon)
    assert runs(router, mark) == 1
    assert router.read_file(PID_FILE) == f"{daemon.pid}\n" and router.exists(SEMAPHORE)


def test_a_second_invocation_during_a_run_causes_exactly_one_more(router):
    hold_next_run(router)
    daemon = router.daemon("--printlvl", "100")
    wait_for_held_run(router)
    mark = router.mark()
    assert [invoke_again(router).status for _ in range(3)] == [0, 0, 0]
    assert runs(router, mark) == 0
    go_on(router)
    wait_for_monitors(router, mark, count=2)
    wait_until_idle(router, daemon)
    assert runs(router, mark) == 1


@pytest.mark.parametrize("contents", ["  {}\n", "{}", "\t{}\r\n\n", "\n{}\v\f "])
def test_white_space_around_the_number_does_not_matter(router, contents):
    daemon = start(router)
    router.write_file(PID_FILE, contents.format(daemon.pid))
    mark = router.mark()
    assert router.run().status == 0
    wait_for_monitors(router, mark)


def test_the_semaphore_is_there_from_the_start_to_the_end(router):
    """It is made before the first request goes out, and so before anything is torn down."""
    router.api.on("wans", hang=True, times=1)
    program = router.start()
    router.wait_for("api", "wans")
    assert router.exists(SEMAPHORE) and not router.exists(PID_FILE)
    router.api.release()
    assert program.wait_exit() == 0
    assert_no_instance(router)


def test_a_one_shot_run_leaves_alone_a_pid_file_that_is_not_its_own(router):
    router.write_file(PID_FILE, "123\n")
    assert router.run().status == 0
    assert router.read_file(PID_FILE) == "123\n" and not router.exists(SEMAPHORE)


# ---- an instance that is gone ----

def test_a_daemon_that_was_killed_is_cleared_away_by_the_next_start(router):
    killed = start(router)
    killed.signal(signal.SIGKILL)
    killed.wait_exit()
    assert router.read_file(PID_FILE) == f"{killed.pid}\n" and router.exists(SEMAPHORE)
    done = invoke_again(router, "--daemonize")
    assert done.status == 1
    assert lines_of(router, done.pid) == [("info", SIGNALING), ("warning", GIVING_UP)]
    assert_no_instance(router)
    assert_a_start_is_possible(router)


def test_a_stale_instance_without_a_pid_file_is_cleared_away(router):
    """What a one-shot run leaves that is ended by a signal: it has no handlers."""
    hold_next_run(router)
    program = router.start()
    wait_for_held_run(router)
    program.signal(signal.SIGTERM)
    assert program.wait_exit() == -signal.SIGTERM
    go_on(router)
    router.wait_for("end", program="firewall")
    done = invoke_again(router)
    assert done.status == 1
    assert lines_of(router, done.pid) == [("info", SIGNALING), ("warning", UNREADABLE), ("warning", GIVING_UP)]
    assert_no_instance(router)
    assert_a_start_is_possible(router)


@pytest.mark.parametrize("contents", [
    "abc", "", "\n", "-1", "0", "-1\n", "12 34", "12abc", "0x10", "1.0", "99999999999999999999", "4294967297",
    "2147483648\n", "%s%n", "\u0411\u0435\u043b\n", "-", "one\ntwo\n"])
def test_garbage_in_the_pid_file_is_shown_and_cleared_away(router, contents):
    """Nobody is signalled. kill(2) takes 0 and what is below for whole groups of processes, of which the one that
    sleeps here is in reach."""
    bystander = router.spawn(["sleep", "1000"])
    leave_stale_instance(router, contents)
    done = invoke_again(router)
    assert done.status == 1
    assert lines_of(router, done.pid) == [("info", SIGNALING), ("warning", unparsable(contents)),
                                          ("warning", GIVING_UP)]
    assert_no_instance(router)
    assert bystander.alive() and bystander.status is None


def test_a_third_start_after_garbage_runs_normally(router):
    leave_stale_instance(router, "abc")
    assert [router.run().status for _ in range(3)] == [1, 0, 0]
    leave_stale_instance(router, "0")
    assert router.run("--daemonize").status == 1
    assert_a_start_is_possible(router)


def test_a_number_that_no_process_has_is_cleared_away(router):
    leave_stale_instance(router, "2147483647\n")
    done = invoke_again(router)
    assert done.status == 1
    assert lines_of(router, done.pid) == [("info", SIGNALING), ("warning", GIVING_UP)]
    assert_no_instance(router)


def test_a_pid_file_that_cannot_be_read_is_reported(router):
    router.write_file(SEMAPHORE, "")
    router.make_folder(PID_FILE)
    done = invoke_again(router)
    assert done.status == 1
    assert lines_of(router, done.pid) == [("info", SIGNALING), ("warning", UNREADABLE), ("warning", GIVING_UP)]
    assert not router.exists(SEMAPHORE)
    assert router.run().status == 0


def test_at_the_start_up_print_level_the_hand_over_is_silent(router):
    leave_stale_instance(router, "abc")
    done = router.run()
    assert (done.status, done.stdout, done.stderr, router.log_lines()) == (1, "", "", [])


def test_an_instance_whose_pid_file_was_lost_is_taken_for_gone(router):
    """The price of clearing away without asking: the name is free although a daemon still runs, which keeps on."""
    daemon = start(router)
    router.remove(PID_FILE)
    assert router.run().status == 1
    assert_no_instance(router)
    mark = router.mark()
    assert daemon.alive()
    daemon.signal(signal.SIGHUP)
    assert router.wait_for("log", MONITORS_START, since=mark).pid == daemon.pid
