"""Sandbox: the demonstration's show puts what happens under the right heading, marks what fails, and tells of the
tunnels and runs as they are."""

import os
import re
import signal
import subprocess
import sys
import threading

import pytest

from companion import companion
from sandbox.runs import runs, table
from sandbox.show import Show
from sandbox.timeline import Event
from sandbox.tunnel_view import all_tunnels, living_openvpn, openvpn_tunnels
from test_sandbox import ROOT

RUN_TEXT = "import os, sys; os.system(' '.join(sys.argv[1:]))"


# ---- chapters ----

def shown(capsys) -> list[str]:
    """What was printed since the last time, without the seconds and blank lines."""
    return [line[10:] if line[:8].strip().replace(".", "").isdigit() else line
            for line in capsys.readouterr().out.splitlines() if line]


def test_what_happens_stands_under_the_heading_before_it(routed, capsys):
    r = routed(RUN_TEXT)
    show = Show(r)
    r.run("firewall --init")
    number = show.chapter("First")
    r.run("ping -c 1 10.0.0.1")
    r.run("ip tunnel")
    show.chapter("Second")
    assert shown(capsys) == ["runs   firewall --init", "== First", "runs   ping -c 1 10.0.0.1", "runs   ip tunnel",
                             "== Second"]
    assert [event.text for event in r.find("command", since=number)] == ["ping -c 1 10.0.0.1", "ip tunnel"]
    show.catch_up()
    assert shown(capsys) == []


def test_until_shows_what_happens_up_to_there(routed, capsys):
    r = routed(RUN_TEXT)
    show = Show(r)
    p = r.start("firewall --init")
    show.until(lambda: p.status is not None, "the end", 10)
    show.catch_up()
    assert shown(capsys) == ["runs   firewall --init"]


@pytest.mark.parametrize("status, outcome", [(3, "status 3"), (-signal.SIGTERM, "signal 15")])
def test_a_command_that_fails_is_marked(routed, capsys, status, outcome):
    r = routed("import os; os.system('ip tunnel; firewall --init')")
    r.program("ip").on(status=status)
    r.run()
    Show(r).catch_up()
    assert shown(capsys) == ["runs   ip tunnel; firewall --init", f"fails  {outcome}: ip tunnel; firewall --init"]


def test_a_command_that_was_killed_is_marked(routed, capsys):
    r = routed(RUN_TEXT)
    r.program("firewall").on(stay=True)
    r.start("firewall --init")
    os.kill(r.process(r.wait_for("exec", program="firewall").pid).host_pid, signal.SIGKILL)
    r.wait_for("end", program="firewall")
    Show(r).catch_up()
    assert shown(capsys) == ["runs   firewall --init", "fails  killed: firewall --init"]


def test_commands_of_others_are_not_shown(routed, capsys):
    r = routed(RUN_TEXT)
    r.exec(["/run/sandbox/bin/ip", "tunnel", "del", "nix"])
    assert r.find("end", status=1)
    Show(r).catch_up()
    assert shown(capsys) == []


# ---- tunnels ----

# Starts an openvpn as the daemon does, and another one instead of it at SIGUSR1; pings two addresses at SIGHUP.
OPENVPN_DAEMON = """
import ctypes, os, signal
open("/var/run/openvpn_a.conf", "w").write("dev tuna\\nifconfig 10.8.0.1 10.8.0.2\\n")
open("/var/run/openvpn_b.conf", "w").write("dev tunb\\n")
signals = [signal.SIGHUP, signal.SIGUSR1]
signal.pthread_sigmask(signal.SIG_BLOCK, signals)

def start_openvpn():
    child = os.fork()
    if child == 0:
        signal.pthread_sigmask(signal.SIG_UNBLOCK, signals)
        ctypes.CDLL(None).prctl(1, signal.SIGTERM)
        os.execlp("openvpn", "openvpn", "--config", "/var/run/openvpn_a.conf")
    return child

child = start_openvpn()
while True:
    if signal.sigwait(signals) == signal.SIGHUP:
        os.system("ping -c 3 10.8.0.2")
        os.system("ping -c 3 10.8.0.9")
    else:
        os.kill(child, signal.SIGTERM)
        os.waitpid(child, 0)
        child = start_openvpn()
"""


def test_the_table_of_openvpn_tunnels_tells_of_the_processes(routed, capsys):
    r = routed(OPENVPN_DAEMON)
    assert openvpn_tunnels(r) == []
    p = r.start()
    first = r.wait_for("exec", program="openvpn").pid

    def row() -> list[str]:
        title, a, b = openvpn_tunnels(r)
        assert (title.split(), b.split()) == (["tunnel", "process", "device", "far", "end"], ["b", "none", "tunb"])
        return a.split()

    assert row() == ["a", str(first), "runs", "tuna", "not", "checked"]
    for count, (status, found) in enumerate([(0, "connected"), (1, "unreachable")], 1):
        r.program("ping").on(["-c", "3", "10.8.0.2"], status=status)
        p.signal(signal.SIGHUP)
        r.wait_for("end", program="ping", count=2 * count)
        assert row() == ["a", str(first), "runs", "tuna", found]

    p.signal(signal.SIGUSR1)
    second = r.wait_for("exec", program="openvpn", count=2).pid
    assert row() == ["a", str(second), "runs", "tuna", "not", "checked"]
    assert living_openvpn(r) == [second]
    p.terminate()
    r.wait_until(lambda: not living_openvpn(r), "the end of openvpn")
    assert row() == ["a", str(second), "has", "ended", "tuna"]
    Show(r).catch_up()
    assert shown(capsys)[-1] == f"gets   SIGTERM: openvpn --config /var/run/openvpn_a.conf, pid {second}"


def test_a_process_that_has_another_ones_number_is_not_it(routed, monkeypatch):
    r = routed(OPENVPN_DAEMON)
    r.start()
    start = r.wait_for("exec", program="openvpn")
    monkeypatch.setitem(start.fields, "argv", ["openvpn", "--config", "/var/run/openvpn_b.conf"])
    assert living_openvpn(r) == [] and openvpn_tunnels(r)[2].split() == ["b", str(start.pid), "has", "ended", "tunb"]


class NoService:
    """An IPsec service that does not run."""

    def connections(self) -> dict:
        return {}


def test_where_nothing_is_the_tables_say_so(routed):
    r = routed()
    assert all_tunnels(r, NoService()).count("\n  none") == 3
    r.preset_gre({"name": "old", "remote": "192.0.2.1", "local": "192.0.2.2", "ttl": "64"})
    assert "  old: gre/ip  remote 192.0.2.1  local 192.0.2.2  ttl 64\n" in all_tunnels(r, NoService())


# ---- runs ----

def events(*texts: str, pid: int = 7) -> list[Event]:
    """A timeline: "> TEXT" is a command that succeeds, "! TEXT" one that fails, "? TARGET" a request, "exit" the
    process's end, and everything else a log line of it."""
    found = []

    def add(kind: str, text: str, **fields) -> int:
        found.append(Event({"number": len(found) + 1, "time": len(found) / 10, "kind": kind, "text": text} | fields))
        return len(found)

    for text in texts:
        sign, _, rest = text.partition(" ")
        if sign in (">", "!"):
            add("end", rest, command=add("command", rest, parent=pid), status=int(sign == "!"))
        elif sign == "?":
            add("api", rest)
        elif text == "exit":
            add("exit", "program", pid=pid, status=0)
        else:
            add("log", f"INFO [TUNNEL_MNGR]{text}", pid=pid)
    return found


BEGIN, END, WANS = " MANAGING TUNNELS", " v_apFqdnMonitor size 1", "? /api/waninfo/wans"
NO_CHANGE = "[WAN_MONITOR] WAN has not changed"
MOVED = "[FQDN_MONITOR] tunnel:a The host [h.example] has resolved to a new ip address. [1.2.3.4]=>[1.2.3.5]\n"


@pytest.mark.parametrize("between, cause", [
    ([" Signaling to process for refresh."], "second invocation"),
    ([WANS], "another WAN"),
    ([WANS, NO_CHANGE], "another request"),
    ([WANS, NO_CHANGE, WANS], "another WAN"),
    ([MOVED], "h.example has moved"),
    ([MOVED, MOVED, WANS], "h.example has moved, another WAN"),
    ([], "another request"),
])
def test_a_run_is_told_with_its_cause(between, cause):
    found = runs(events(WANS, BEGIN, WANS, END, *between, BEGIN, WANS))
    assert [run.cause for run in found] == ["start", cause]
    assert found[0].end is not None and found[1].end is None


def test_what_asked_for_a_run_asks_for_that_one_only():
    first, second = " Signaling to process for refresh.", MOVED
    found = runs(events(BEGIN, END, first, BEGIN, second, END, BEGIN, END, BEGIN, END))
    assert [run.cause for run in found] == ["start", "second invocation", "h.example has moved", "another request"]


def test_a_run_without_the_daemon_ends_with_its_process():
    found = runs([Event({"number": 0, "kind": "start", "pid": 7, "text": "tunnel_mngr"}), *events(BEGIN, "exit")])
    assert [(run.cause, run.end.kind) for run in found] == [("single run", "exit")]


def test_a_run_that_bad_documents_end_is_no_end_of_the_next_one():
    found = runs(events(BEGIN, " Exception caught w\u0410hile waiting on signal", BEGIN, END))
    assert [(run.begin.number, run.end.number) for run in found] == [(1, 2), (3, 4)]


def test_the_table_counts_what_succeeded():
    of_run = ["> ip tunnel del x", "> ip tunnel add x", "! ip tunnel add y", "> ip addr add z", "> ip route add 1",
              "> ip route add 2", "! firewall --init"]
    title, first, second = table(runs(events(BEGIN, *of_run, END, "> ip tunnel del later", BEGIN))).splitlines()
    assert title.split() == ["run", "because", "of", "seconds", "removed", "created", "addresses", "routes", "failures"]
    assert first.split() == ["1", "start", "1.500", "1", "1", "1", "2", "2"]
    assert second.split() == ["2", "another", "request", "goes", "on", "0", "0", "0", "0", "0"]


# ---- the whole ----

COMMANDS = "wan 192.0.2.300\nhost head-office.example.net 203.0.113.88\nrefresh\nshell\n"
DEADLINE = 240  # seconds; it needs 45


def demonstrate(program: str) -> str:
    """What the demonstration prints from a pipe, with commands for --keep, and `quit` when their run is over."""
    argv = [sys.executable, "-B", "-m", "sandbox.demo", "--program", os.path.abspath(program), "--companion",
            companion(program), "--keep"]
    with subprocess.Popen(argv, cwd=ROOT, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True) as demo:
        deadline = threading.Timer(DEADLINE, demo.kill)
        deadline.start()
        demo.stdin.write(COMMANDS)
        demo.stdin.flush()
        printed = ""
        while printed.count("runs   openvpn") < 8 and (line := demo.stdout.readline()):
            printed += line
        printed += demo.communicate("quit\n")[0]
        deadline.cancel()
    assert demo.returncode == 0, printed
    return printed


@pytest.mark.slow
def test_the_demonstration_tells_what_is_so(program):
    chapters = [chapter.partition("\n")[::2] for chapter in demonstrate(program).split("\n== ")[1:]]
    assert [title.partition(",")[0] for title, _ in chapters] == [
        "The daemon starts", "What was written for IPsec", "head-office.example.net moves to 203.0.113.77",
        "What would a failover to the second WAN", "The router fails over to its second WAN", "What is up",
        "The router stays up", "The tunnels while the daemon runs",
        "The daemon gets SIGTERM", "The tunnels that are left without the daemon", "The runs"]
    start, _, moved, plan, other_wan, status, kept, before, end, after, table_of_runs = [text for _, text in chapters]
    for text in (start, moved, other_wan, kept):
        assert (text.count("MANAGING TUNNELS"), text.count("runs   openvpn")) == (1, 2)
    assert "[203.0.113.77]" in moved and "local 203.0.113.40" in other_wan

    planned = re.findall("^  run +(.*)", plan, re.MULTILINE)
    assert len(planned) > 5 and all(f"runs   {command}\n" in other_wan for command in planned)
    assert '+"203.0.113.40" "203.0.113.20" : PSK "***"\n' in plan and "Outage: about 17 commands" in " ".join(plan.split())
    assert "\nWAN     203.0.113.40, which tunnels use\n" in status
    assert re.findall(r"^(\w+) +(\w+) +(up|down) +203.0.113.40 ", status, re.MULTILINE) == [
        ("gre", "head_office", "up"), ("gre", "branch", "up"), ("ipsec", "main_site", "down"), ("ipsec", "partner", "down")]
    assert status.count("no answer from 203.0.113.") == 2 and status.count("openvpn has run for ") == 2
    assert max(map(len, (plan + status).splitlines())) <= 120

    assert "router> wan 192.0.2.300\n192.0.2.300 is no IPv4 address such as 203.0.113.7.\n" in kept
    assert "router> shell\nThe command shell needs a terminal.\n" in kept

    assert (len(re.findall(r"\d runs ", before)), before.count("has ended")) == (2, 0)
    assert (len(re.findall(r"\d runs ", after)), after.count("has ended")) == (0, 2)
    assert end.count("gets   SIGTERM: openvpn") == 2 and "has left with status 0" in end
    assert "remote 203.0.113.88  local 203.0.113.40" in before and "remote 203.0.113.88  local 203.0.113.40" in after
    assert re.findall(r"^ +\d  (\w+ ?\w+)", table_of_runs, re.MULTILINE) == [
        "start", "second invocation", "another WAN", "second invocation"]
