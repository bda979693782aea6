"""Logging: every line goes to the system log with the priority of its level, or to standard error when nothing
listens."""

import signal

import pytest

from daemon_stories import (PID_FILE_AS_LOGGED, RUN_BEGINS, SEMAPHORE, documents, gre, refresh, runs, start,
                            wait_for_monitors, wait_until_idle)
from sandbox import service_unit
from sandbox.router import Router

UNABLE = "WARNING [TUNNEL_MNGR] Unable to log to Syslog"
SEVERITIES = {"ERROR": "err", "WARNING": "warning", "INFO": "info", "DEBUG": "debug", "TRACE": "debug"}
LOG_USER = 1  # syslog(3)


def run_that_logs_at_every_level(make_router, *arguments: str) -> Router:
    """One run: the first look-up of the WAN fails (ERROR), a name is unknown (WARNING)."""
    router = make_router(documents(gre("one", "unknown.example")))
    router.make_ipsec_folders()
    router.api.on("wans", times=1, close=True)
    assert router.run(*arguments).status == 0
    return router


def test_every_level_has_its_label_and_priority(make_router):
    router = run_that_logs_at_every_level(make_router, "--printlvl", "100")
    lines = router.log_lines()
    assert {line.label: line.severity for line in lines} == SEVERITIES
    assert {line.severity for line in lines if line.label == "DEBUG"} == {"debug"}
    assert {(line.ident, line.facility) for line in lines} == {("TUNNEL_MNGR", LOG_USER)}


@pytest.mark.parametrize("level, labels", [
    ("0", "ERROR"), ("1", "ERROR"), ("24", "ERROR"), ("25", "ERROR WARNING"), ("49", "ERROR WARNING"),
    ("50", "ERROR WARNING INFO"), ("74", "ERROR WARNING INFO"), ("75", "ERROR WARNING INFO DEBUG"),
    ("99", "ERROR WARNING INFO DEBUG"), ("100", "ERROR WARNING INFO DEBUG TRACE")])
def test_a_line_is_written_when_its_level_is_at_most_the_print_level(make_router, level, labels):
    router = run_that_logs_at_every_level(make_router, "--printlvl", level)
    assert {line.label for line in router.log_lines()} == set(labels.split())


def test_without_a_print_level_only_errors_are_written(make_router):
    router = run_that_logs_at_every_level(make_router)
    assert {line.label for line in router.log_lines()} == {"ERROR"}


def test_as_a_service_it_tells_of_a_wan_that_is_missing_and_of_a_name_that_is_unknown(make_router):
    """It is started as the service unit starts it."""
    router = make_router(documents(gre("one", "unknown.example"), wans=[]))
    router.make_ipsec_folders()
    assert router.run(*service_unit.arguments()).status == 0
    router.wait_for("log", "[TUNNEL_MNGR] WAN Not Acquired.")
    router.documents.update(documents(gre("one", "unknown.example")))
    assert router.run().status == 0
    router.wait_for("log", "[TUNNEL_MNGR][FQDN_MONITOR] The host [unknown.example] was not found.")


def test_the_daemon_and_a_second_invocation_log_alike(router):
    daemon = start(router)
    second = router.run("--printlvl", "50")
    wait_for_monitors(router, 0, count=2)
    pids = {line.pid for line in router.log_lines("INFO")}
    assert pids == {daemon.pid, second.pid} and {line.ident for line in router.log_lines()} == {"TUNNEL_MNGR"}


def test_a_text_of_the_configuration_is_no_format(make_router):
    router = make_router(documents(gre("100%s%n", enabled=False)))
    router.make_ipsec_folders()
    assert router.run("--printlvl", "100").status == 0
    assert "[TUNNEL_MNGR] Tunnel [100%s%n] is not enabled" in router.messages("TRACE")


# ---- the fallback ----

def test_without_a_system_log_the_lines_go_to_standard_error(router):
    router.syslog.absent()
    done = router.run("--printlvl", "50")
    assert (done.status, done.stdout, router.log_lines()) == (0, "", [])
    lines = done.stderr.splitlines()
    assert lines[0] == UNABLE and f"INFO {RUN_BEGINS}" in lines[1:]
    assert lines.count(UNABLE) == 1 and done.stderr.endswith("\n")


def test_that_the_system_log_is_missing_is_said_at_every_print_level(router):
    """Nothing else would tell where the lines have gone; it is said before the options are read."""
    router.syslog.absent()
    assert router.run("--printlvl", "0").stderr == f"{UNABLE}\n"
    help_asked = router.run("--help")
    assert help_asked.stderr == f"{UNABLE}\n" and help_asked.stdout.startswith("Usage: ")


def test_a_system_log_that_nobody_reads_from_its_start_counts_as_missing(router):
    """A socket file may outlive the program that listened on it."""
    router.syslog.absent()
    router.exec(["python3", "-c", "import socket; socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM).bind('/dev/log')"])
    assert router.exists("/dev/log")
    assert router.run().stderr == f"{UNABLE}\n"


def test_a_daemon_logs_to_standard_error_as_well(router):
    router.syslog.absent()
    daemon = router.daemon("--printlvl", "50")
    router.wait_until(lambda: "v_apFqdnMonitor size 0" in daemon.stderr, "the monitors' line")
    assert daemon.stderr.splitlines()[0] == UNABLE
    assert daemon.terminate() == 0


def test_the_hand_over_logs_to_standard_error_as_well(router):
    router.syslog.absent()
    router.write_file(SEMAPHORE, "")
    assert router.run("-p", "50").stderr.splitlines() == [
        UNABLE, "INFO [TUNNEL_MNGR] Signaling to process for refresh.",
        f"WARNING [TUNNEL_MNGR] Unable to read PID file [{PID_FILE_AS_LOGGED}]",
        "WARNING [TUNNEL_MNGR] Unable to signal process. Exiting ..."]


# ---- a system log that is restarted or stuck ----

def test_a_system_log_that_is_restarted_is_found_again(router):
    daemon = start(router)
    router.syslog.restart()
    refresh(router, daemon)  # waits for a line of the run
    assert daemon.stderr == ""


def test_while_the_system_log_is_away_runs_go_on_and_their_lines_are_lost(router):
    daemon = start(router)
    router.syslog.absent()
    mark = router.mark()
    daemon.signal(signal.SIGHUP)
    router.wait_for("end", program="firewall", since=mark)
    wait_until_idle(router, daemon, passes=1)
    router.syslog.present()
    assert router.log_lines(since=mark) == []
    refresh(router, daemon)
    assert daemon.stderr == ""


def test_a_system_log_that_is_stuck_stops_neither_runs_nor_the_end(make_router):
    """A write to it would block for ever: its queue takes a few lines, and a run has many times more."""
    router = make_router(documents(*(gre(f"t{number}", f"203.0.113.{number}") for number in range(1, 9))))
    router.make_ipsec_folders()
    daemon = start(router)
    router.syslog.block()
    mark = router.mark()
    daemon.signal(signal.SIGHUP)
    router.wait_for("end", program="firewall", since=mark, timeout=20)
    daemon.signal(signal.SIGTERM)
    assert daemon.wait_exit() == 0
    router.syslog.present()
    assert runs(router, mark) == 1  # the first lines are there, later ones are lost
    assert len(router.log_lines(since=mark)) < len(router.find("command", since=mark))
