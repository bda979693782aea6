"""Daemon start: the process takes the semaphore, leaves its terminal and makes a first run."""

import signal

import pytest

from daemon_stories import (MONITORS_START, PID_FILE, PID_FILE_AS_LOGGED, RUN_BEGINS, SEMAPHORE, assert_in_order,
                            documents, gre, preloaded, refresh, runs, signal_sets, start, threads, wait_for_monitors,
                            wait_for_threads)
from openvpn_records import tunnel, with_tunnels

UNWRITABLE = f"[TUNNEL_MNGR] Unable to write pid to file: {PID_FILE_AS_LOGGED}"


# ---- the order of things ----

def test_the_steps_of_the_start_come_in_order(make_router):
    router = make_router(documents(gre("one"), gre("two", "203.0.113.8")))
    router.make_ipsec_folders()
    daemon = start(router)
    assert_in_order(router.timeline(), ("start", "--daemonize"), ("api", "/api/waninfo/wans"), ("log", RUN_BEGINS),
                    ("command", "ip tunnel"), ("command", "ip tunnel add one"), ("command", "ip tunnel add two"),
                    ("command", "firewall --init"), ("log", "[TUNNEL_MNGR] STARTING WAN AND FQDN MONITORS"),
                    ("log", f"{MONITORS_START} 2"))
    for text in ("STARTING WAN", MONITORS_START):
        line, = router.find("log", text)
        assert (line.severity, line.pid) == ("info", daemon.pid)
    # The kernel keeps 15 characters of a name.
    assert list(wait_for_threads(router, daemon, 3).values()) == ["WAN_MONITOR", "FQDN_MONITOR:on", "FQDN_MONITOR:tw"]


def test_the_wan_is_looked_up_before_the_process_forks(router):
    """What the WAN monitor takes for the last address is the one from before the first run."""
    router.api.on("wans", hang=True, times=1)
    started = router.start("--daemonize", "--printlvl", "100")
    router.wait_for("api", "wans")
    assert started.alive() and started.children() == [] and not router.exists(PID_FILE)
    assert router.log_lines() == [] and router.commands() == []
    router.api.release()
    assert started.wait_exit() == 0
    wait_for_monitors(router, 0)


def test_the_started_process_leaves_before_the_first_run_is_over(router):
    """Whoever starts the service is not kept waiting by a run; the PID file is there before the run begins."""
    router.program("ip").on(["tunnel"], stay=True, times=1)
    daemon = router.daemon("--printlvl", "100")
    router.wait_for("exec", program="ip")
    assert router.read_file(PID_FILE) == f"{daemon.pid}\n"
    assert signal_sets(router, daemon.pid)["caught"] == {signal.SIGHUP, signal.SIGTERM}
    assert threads(router, daemon.pid) == {}
    router.program("ip").exit()
    wait_for_monitors(router, 0)


def test_a_daemon_whose_api_is_away_starts_and_builds_tunnels_when_it_is_there(make_router):
    router = make_router(documents(gre("one")))
    router.make_ipsec_folders()
    router.api.absent()
    daemon = start(router)
    assert "[TUNNEL_MNGR][WAN_MONITOR] Could not obtain WAN information" in router.messages("ERROR")
    assert "ip tunnel add" not in str(router.command_texts())
    router.api.present()
    mark = refresh(router, daemon)
    assert "ip link set one up" in router.command_texts(mark)


# ---- the process ----

def test_the_daemon_leads_a_session_of_its_own(router):
    daemon = start(router)
    facts = daemon.facts()
    assert (facts["session"], facts["group"], facts["parent"]) == (daemon.pid, daemon.pid, 1)


def test_streams_and_working_directory_stay_as_they_were(make_router):
    router = make_router(wrapper=["env", "-C", "/run/api"])
    router.make_ipsec_folders()
    started = router.start("--daemonize", "--printlvl", "100")
    daemon = router.process(router.wait_for("exit", pid=started.pid).daemons[0])
    wait_for_monitors(router, 0)
    facts = daemon.facts()
    assert facts["directory"] == "/run/api"
    streams = [facts["descriptors"][number].rpartition("/") for number in ("0", "1", "2")]
    assert [folder for folder, _, _ in streams] == ["/run/sandbox/output"] * 3
    assert [name.rpartition(".")[2] for _, _, name in streams] == ["in", "out", "err"]


@pytest.mark.parametrize("missing", ["<&-", ">&-", "2>&-", "<&- >&- 2>&-"])
def test_a_stream_that_is_missing_becomes_an_empty_one(make_router, missing):
    """What is opened later would else take its number, in the daemon and in each of its children: whoever writes a
    message would write it into a socket."""
    router = make_router(with_tunnels(tunnel("a")), wrapper=["/bin/sh", "-c", f'exec "$0" "$@" {missing}'])
    router.make_ipsec_folders()
    router.program("openvpn").on(stay=True)
    router.start("--daemonize")
    child = router.process(router.wait_for("exec", program="openvpn").pid)
    numbers = [str(number) for number, stream in enumerate(["<&-", ">&-", "2>&-"]) if stream in missing.split()]
    for process in (router.process(int(router.read_file(PID_FILE))), child):
        descriptors = process.facts()["descriptors"]
        assert [descriptors[number] for number in numbers] == ["/dev/null"] * len(numbers)


@pytest.mark.parametrize("started_with, given", [("022", 0o022), ("0", 0o022), ("077", 0o077), ("007", 0o027)])
@pytest.mark.parametrize("arguments", [["--daemonize"], []], ids=["daemon", "once"])
def test_no_program_can_create_what_group_or_others_may_write(make_router, arguments, started_with, given):
    """Programs have the umask that this one was started with, and more; the daemon itself has none."""
    router = make_router(with_tunnels(tunnel("a")), wrapper=["/bin/sh", "-c", f'umask {started_with} && exec "$0" "$@"'])
    router.make_ipsec_folders()
    programs = ["ip", "ipsec", "firewall"] + (["openvpn"] if arguments else [])  # which would end with a single run
    for program in programs:
        router.program(program).inspect()
    router.program("openvpn").on(stay=True)
    router.start(*arguments)
    for program in programs:
        assert int(router.wait_for("exec", program=program).details["umask"], 8) == given, program
    if arguments:
        assert router.process(int(router.read_file(PID_FILE))).facts()["umask"] == "0000"


def test_whoever_starts_it_may_ignore_the_ends_of_children(make_router):
    """A process that inherits this could otherwise not tell how any command ended, and every run would fail."""
    ignoring = "import os, signal, sys; signal.signal(signal.SIGCHLD, signal.SIG_IGN); os.execv(sys.argv[1], sys.argv[1:])"
    router = make_router(documents(gre("one")), wrapper=["/usr/bin/python3", "-c", ignoring])
    router.make_ipsec_folders()
    router.run("--printlvl", "0")
    assert router.messages("ERROR") == [] and "firewall --init" in router.command_texts()


# ---- the PID file ----

def test_the_pid_file_holds_the_daemons_number(router):
    """With the umask cleared, a file that asks for no mode of its own could be written by every user."""
    daemon = start(router)
    assert router.read_bytes(PID_FILE) == f"{daemon.pid}\n".encode()
    assert router.stat(PID_FILE)["mode"] & 0o7777 == 0o644


def test_what_an_older_pid_file_holds_is_overwritten(router):
    router.write_file(PID_FILE, "999999999\nand more\n")
    daemon = start(router)
    assert router.read_file(PID_FILE) == f"{daemon.pid}\n"


def test_a_daemon_that_cannot_write_its_pid_file_runs_without(router):
    """It also leaves alone at its end what is in the file's place: here a link that leads nowhere."""
    assert router.exec(["ln", "-s", "/run/none/pid", PID_FILE]).status == 0
    daemon = start(router)
    warning, = router.log_lines("WARNING")
    assert (warning.message, warning.severity, warning.pid) == (UNWRITABLE, "warning", daemon.pid)
    assert_in_order(router.timeline(), ("log", UNWRITABLE), ("log", RUN_BEGINS))
    refresh(router, daemon)
    assert daemon.terminate() == 0
    assert router.exists(PID_FILE) and not router.exists(SEMAPHORE)


# ---- what the system may refuse ----

NO_FORK = "pid_t fork(void) { errno = EAGAIN; return -1; }"
NO_SESSION = "pid_t setsid(void) { errno = EPERM; return -1; }"
EARLY_SIGNAL = """
pid_t setsid(void) {
  pid_t (*const real)(void) = dlsym(RTLD_NEXT, "setsid");
  const pid_t session = real();
  kill(getpid(), %s);
  return session;
}
"""


def test_a_fork_that_fails_ends_the_start(make_router, tmp_path):
    router = make_router(environment=preloaded(tmp_path, NO_FORK))
    done = router.run("--daemonize", "--printlvl", "100")
    assert (done.status, done.stdout, done.stderr) == (1, "", "")
    assert runs(router) == 0 and router.commands() == [] and not router.exists(PID_FILE)


def test_a_session_that_is_refused_ends_the_daemon(make_router, tmp_path):
    router = make_router(environment=preloaded(tmp_path, NO_SESSION))
    started = router.start("--daemonize", "--printlvl", "100")
    assert started.wait_exit() == 0
    child = router.wait_for(lambda event: event.kind == "exit" and event.pid != started.pid)
    assert child.status == 1
    assert runs(router) == 0 and router.commands() == [] and not router.exists(PID_FILE)


def test_a_refresh_request_that_comes_before_its_handler_is_not_lost(make_router, tmp_path):
    """The PID file tells others whom to signal a moment before the handlers are there; in that moment a signal would
    end the daemon, were it not held back."""
    router = make_router(environment=preloaded(tmp_path, EARLY_SIGNAL % "SIGHUP"))
    router.make_ipsec_folders()
    daemon = router.daemon("--printlvl", "100")
    wait_for_monitors(router, 0, count=2)
    assert daemon.alive()


def test_a_stop_that_comes_before_its_handler_is_obeyed(make_router, tmp_path):
    router = make_router(environment=preloaded(tmp_path, EARLY_SIGNAL % "SIGTERM"))
    router.make_ipsec_folders()
    started = router.start("--daemonize")
    child = router.wait_for(lambda event: event.kind == "exit" and event.pid != started.pid)
    assert child.status == 0
    assert not router.exists(PID_FILE) and not router.exists(SEMAPHORE)
