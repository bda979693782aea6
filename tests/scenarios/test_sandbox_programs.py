"""Sandbox: programs and their commands are recorded exactly, and stand-ins behave as programmed."""

import json
import shutil
import signal

import pytest

from sandbox.gre_model import GreModel
from sandbox.link_model import LIST_LINKS, LIST_ROUTES
from test_sandbox import DAEMON


# ---- programs and commands ----

def test_a_program_runs_to_its_end(routed):
    r = routed("import sys; print(sys.argv[1:], sys.stdin.read()); print('no', file=sys.stderr); sys.exit(7)")
    done = r.run("--daemonize", "x", stdin="fed")
    assert (done.status, done.stdout, done.stderr) == (7, "['--daemonize', 'x'] fed\n", "no\n")
    assert [event.kind for event in r.timeline()] == ["start", "exit"]


def test_the_exact_text_of_a_shell_command_is_recorded(routed):
    text = "ip tunnel add gre1 mode gre remote  local 1.2.3.4 ttl 0"
    r = routed(f"import os; os.system({text!r})")
    r.run()
    command, = r.commands()
    assert command.text == text
    assert (command.program, command.argv) == ("ip", text.split())
    assert (command.status, command.ended) == (1, True)


def test_a_command_without_a_stand_in_is_recorded_as_well(routed):
    r = routed("import os; os.system('true && echo  two'); os.system('rm -rf /run/gone')")
    r.run()
    assert r.command_texts() == ["true && echo  two", "rm -rf /run/gone"]
    assert [command.status for command in r.commands()] == [None, 0]


def test_a_direct_execution_is_recorded(routed):
    r = routed("import os; os.execlp('ping', 'ping', '-c', '3', 'a  b')")
    assert r.run().status == 0
    command, = r.commands()
    assert (command.text, command.argv, command.event.shell) == ("ping -c 3 a  b", ["ping", "-c", "3", "a  b"], False)


def test_commands_that_the_test_itself_runs_are_not_recorded(routed):
    r = routed()
    assert r.exec(["sh", "-c", "ip link show lo; echo done"]).stdout.endswith("done\n")
    assert r.commands() == []


def test_stand_ins_are_programmed_by_argument(routed):
    r = routed("import os, sys; sys.exit(os.WEXITSTATUS(os.system(' '.join(sys.argv[1:]))))")
    r.program("ip").on(["tunnel"], status=3, stdout="words\n", stderr="complaint\n")
    r.program("ip").on(["route", ...], status=2, times=1)
    done = r.run("ip", "tunnel")
    assert (done.status, done.stdout, done.stderr) == (3, "words\n", "complaint\n")
    assert r.run("ip", "tunnel", "del", "x").status == 1
    assert [r.run("ip", "route", "add", "x").status for _ in range(2)] == [2, 0]
    r.program("ip").reset()
    assert r.run("ip", "tunnel").status == 0


def test_a_stand_in_can_die_of_a_signal(routed):
    r = routed("import os, sys; sys.exit(os.WTERMSIG(os.system('firewall --init; kill -9 $$')))")
    r.program("firewall").on(status=-signal.SIGKILL)
    assert r.run().status == signal.SIGKILL
    assert r.commands()[0].status == -signal.SIGKILL


def test_a_missing_program_is_not_found(routed):
    r = routed("import os, sys; sys.exit(os.WEXITSTATUS(os.system(sys.argv[1])))")
    r.program("ping").missing()
    assert r.run("ping -c 3 10.0.0.1").status == 127
    r.program("ping").restore()
    assert r.run("ping -c 3 10.0.0.1").status == 0


def test_mkdir_is_recorded_and_really_run(routed):
    r = routed("import os; os.system('mkdir -p /run/a/b')")
    r.run()
    assert r.commands()[0].argv == ["mkdir", "-p", "/run/a/b"]
    assert r.list_folder("/run/a") == ["b"]
    r.program("mkdir").on(status=1)
    r.remove("/run/a")
    r.run()
    assert not r.exists("/run/a")


def test_a_delayed_default_keeps_its_effect(routed):
    add = "ip tunnel add g mode gre remote 1.1.1.1 local 2.2.2.2 ttl 9"
    r = routed(f"import os; os.system('{add}'); os.system('ip tunnel')")
    r.program("ip").on(["tunnel", "add", ...], delay=0.05)
    assert "g: gre/ip  remote 1.1.1.1  local 2.2.2.2  ttl 9\n" in r.run().stdout
    added, _ = r.find("end", program="ip")
    assert added.time - r.find("exec", program="ip")[0].time >= 0.05


@pytest.mark.parametrize("how, status", [("run", 0), ("become", None)])
def test_the_real_program_can_be_run(routed, how, status):
    r = routed("import os; os.system('ping -c 1 127.0.0.1')")
    r.program("ping").on(real=how)
    assert "1 received" in r.run().stdout
    r.wait_for("end", program="ping")
    assert (r.commands()[0].status, r.commands()[0].ended) == (status, True)


# ---- the model of GRE tunnels ----

ADD = ["tunnel", "add", "g1", "mode", "gre", "remote", "1.1.1.1", "local", "2.2.2.2", "ttl", "64"]


def test_the_model_lists_what_was_added():
    model = GreModel()
    assert model.answer(["tunnel"]) == (0, "", "")
    assert model.answer(ADD) == (0, "", "")
    assert model.answer(["tunnel"])[1] == ("gre0: gre/ip  remote any  local any  ttl inherit  nopmtudisc\n"
                                           "g1: gre/ip  remote 1.1.1.1  local 2.2.2.2  ttl 64\n")
    assert model.answer(["tunnel", "del", "g1"]) == (0, "", "")
    assert model.listing().count("\n") == 1


def test_the_model_tells_of_links_and_routes_behind_those_of_the_kernel():
    model = GreModel(lambda arguments: [{"asked": arguments}])

    def told(arguments: list[str]) -> list[dict]:
        first, *rest = json.loads(model.answer(arguments)[1])
        assert first == {"asked": arguments}
        return rest

    assert told(LIST_LINKS) == told(LIST_ROUTES) == []
    for arguments in (ADD, ["addr", "add", "10.9.9.1/255.255.255.252", "dev", "g1"], ["addr", "add", "x/1", "dev", "g1"],
                      ["route", "add", "192.168.50.0/24", "dev", "g1"], ["route", "add", "10.0.0.0/8", "dev", "absent"]):
        assert model.answer(arguments) == (0, "", "")
    link, = told(LIST_LINKS)
    assert (link["ifname"], link["flags"]) == ("g1", ["POINTOPOINT", "NOARP"])
    assert link["linkinfo"] == {"info_kind": "gre", "info_data": {"local": "2.2.2.2", "remote": "1.1.1.1", "ttl": "64"}}
    assert link["addr_info"] == [{"family": "inet", "local": "10.9.9.1", "prefixlen": 30}]
    assert [(route["dst"], route["dev"]) for route in told(LIST_ROUTES)] == [("192.168.50.0/24", "g1")]
    for state, flags in (("up", ["UP"]), ("down", [])):
        model.answer(["link", "set", "g1", state])
        assert told(LIST_LINKS)[0]["flags"][2:] == flags
    model.answer(["tunnel", "del", "g1"])
    assert told(LIST_LINKS) == told(LIST_ROUTES) == []
    for arguments in (["link", "set", "g1", "up"], ["addr", "add", "10.9.9.1/30", "dev", "g1"]):
        model.answer(arguments)
    model.answer(ADD)
    assert told(LIST_LINKS)[0]["flags"][2:] == []
    assert told(LIST_LINKS)[0]["addr_info"] == told(LIST_ROUTES) == []


def test_the_stand_in_tells_of_the_links_that_the_router_has(routed):
    r = routed("import os; os.system('ip -j -s -d addr')")
    r.preset_gre({"name": "old", "remote": "1.1.1.1", "local": "2.2.2.2", "ttl": "64"})
    names = [link["ifname"] for link in json.loads(r.run().stdout)]
    assert "lo" in names and names[-1] == "old"


@pytest.mark.parametrize("arguments, status, complaint", [
    (ADD, 1, "File exists"),
    ([*ADD[:2], "g2", *ADD[3:]], 1, "File exists"),  # the kernel keeps one tunnel for each pair of ends
    (["tunnel", "del", "g2"], 1, "No such device"),
    (["tunnel", "add", "g2", "mode", "gre", "remote", "local", "2.2.2.2", "ttl", "0"], 1, 'rather than "local"'),
    ([*ADD[:2], "g2", *ADD[3:-1], "256"], 255, "invalid TTL"),
    ([*ADD[:2], "a234567890123456", *ADD[3:]], 255, "not a valid ifname"),
])
def test_the_model_refuses_what_the_kernel_refuses(arguments, status, complaint):
    model = GreModel()
    model.answer(ADD)
    before = model.listing()
    assert model.answer(arguments)[0] == status
    assert complaint in model.answer(arguments)[2]
    assert model.listing() == before


def test_tunnels_can_be_there_before_the_program(routed):
    r = routed("import os; os.system('ip tunnel'); os.system('ip tunnel del old')")
    r.preset_gre({"name": "old", "remote": "1.1.1.1", "local": "2.2.2.2", "ttl": "inherit"}, extra="sit0: ipv6/ip\n")
    assert r.run().stdout.splitlines()[1:] == ["old: gre/ip  remote 1.1.1.1  local 2.2.2.2  ttl inherit",
                                               "sit0: ipv6/ip"]
    assert "old" not in r.gre_listing()


# ---- openvpn: a program that stays ----

START_OPENVPN = """
import os, signal, sys, time, ctypes
signal.signal(signal.SIGUSR1, signal.SIG_IGN)
signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGUSR2])
child = os.fork()
if child == 0:
    ctypes.CDLL(None).prctl(1, signal.SIGTERM)
    os.execlp("openvpn", "openvpn", "--config", "x")
_, status = os.waitpid(child, 0)
sys.exit(os.waitstatus_to_exitcode(status) % 256)
"""


def test_openvpn_stays_until_sigterm(routed):
    r = routed(START_OPENVPN, environment={"COLOUR": "blue"})
    program = r.start("--tree")
    start = r.wait_for("exec", program="openvpn")
    assert (start.argv, start.parent) == (["openvpn", "--config", "x"], program.pid)
    details = start.details
    assert details["environment"]["COLOUR"] == "blue"
    assert signal.SIGUSR1 in details["signals"]["ignored"] and details["signals"]["blocked"] == [signal.SIGUSR2]
    assert (details["parent_death_signal"], details["session"]) == (signal.SIGTERM, 1)
    assert sorted(details["descriptors"]) == ["0", "1", "2"]
    openvpn = r.process(start.pid)
    assert openvpn.alive() and program.children() == [start.pid]
    openvpn.signal(signal.SIGTERM)
    assert program.wait_exit() == 0
    assert r.wait_for("caught", program="openvpn").signal == signal.SIGTERM
    assert r.commands()[0].status == 0


def test_openvpn_leaves_when_told(routed):
    r = routed(START_OPENVPN)
    program = r.start()
    r.wait_for("exec", program="openvpn")
    assert r.program("openvpn").exit(5) == 1
    assert program.wait_exit() == 5


def test_openvpn_that_ignores_sigterm_can_be_killed(routed):
    r = routed(START_OPENVPN)
    r.program("openvpn").on(stay=True, ignore_term=True)
    program = r.start()
    openvpn = r.process(r.wait_for("exec", program="openvpn").pid)
    openvpn.signal(signal.SIGTERM)
    r.wait_for("caught", program="openvpn")
    openvpn.signal(signal.SIGTERM)
    r.wait_for("caught", program="openvpn", count=2)
    assert openvpn.alive()
    openvpn.signal(signal.SIGKILL)
    assert program.wait_exit() == -signal.SIGKILL % 256
    assert r.wait_for("end", program="openvpn").status is None


def test_openvpn_may_take_its_time_to_leave(routed):
    r = routed(START_OPENVPN)
    r.program("openvpn").on(stay=True, term_delay=0.1)
    program = r.start()
    r.process(r.wait_for("exec", program="openvpn").pid).signal(signal.SIGTERM)
    assert program.wait_exit() == 0
    assert r.find("end", program="openvpn")[0].time - r.find("caught")[0].time >= 0.1


# ---- the daemon ----

def test_the_daemon_is_found_watched_and_ended(routed):
    r = routed(DAEMON)
    daemon = r.daemon()
    r.wait_until(lambda: r.read_file("/run/tunnel_mngr.pid") == f"{daemon.pid}\n", "the PID file")
    assert daemon.alive() and daemon.threads() == 1 and daemon.fds() >= 3 and daemon.rss_kib() > 1000
    assert daemon.status is None
    assert daemon.facts()["session"] == daemon.pid
    with open(f"/proc/{daemon.host_pid}/status") as file:
        assert f"NSpid:\t{daemon.host_pid}\t{daemon.pid}\n" in file.read()
    daemon.signal(signal.SIGHUP)
    r.wait_for("end", "ip tunnel")
    assert daemon.terminate() == 3
    assert not daemon.alive() and daemon.status == 3
    kinds = [event.kind for event in r.timeline()]
    assert kinds[:4] == ["start", "exit", "signal", "command"] and kinds[-2:] == ["signal", "exit"]


def test_children_that_were_not_waited_for_are_told_from_the_living(routed):
    r = routed("""
import os, time
if os.fork(): os._exit(0)
for seconds in (0, 1000):
    if os.fork() == 0:
        time.sleep(seconds)
        os._exit(0)
time.sleep(1000)
""")
    daemon = r.daemon()
    r.wait_until(lambda: len(daemon.zombies()) == 1, "the child that has ended")
    assert len(daemon.children()) == 1 and not set(daemon.children()) & set(daemon.zombies())


def test_a_program_that_leaves_no_daemon_is_an_error(routed):
    with pytest.raises(AssertionError, match="no daemon"):
        routed("pass").daemon()


def test_limits_and_wrapper_apply_to_the_program(routed):
    r = routed("import resource, os; print(resource.getrlimit(resource.RLIMIT_NOFILE), os.environ['EXTRA'])",
               limits={"nofile": 77}, wrapper=["/usr/bin/env", "EXTRA=1"])
    assert r.run().stdout == "(77, 77) 1\n"


NO_FORK = ["strace", "-f", "-qq", "-o", "/dev/null", "-e", "trace=clone", "-e", "inject=clone:error=EAGAIN"]
TRY_FORK = """
import os
try:
    os.waitpid(os.fork() or os._exit(0), 0)
    print("forked")
except BlockingIOError:
    print("failed")
"""


@pytest.mark.skipif(not shutil.which("strace"), reason="strace is not installed")
def test_a_wrapper_can_make_system_calls_fail(routed):
    assert routed(TRY_FORK).run().stdout == "forked\n"
    assert routed(TRY_FORK, wrapper=NO_FORK).run().stdout == "failed\n"


@pytest.mark.skipif(not shutil.which("strace"), reason="strace is not installed")
def test_the_daemon_is_told_from_what_a_wrapper_leaves(routed):
    r = routed(DAEMON, wrapper=["strace", "-D", "-f", "-qq", "-o", "/dev/null", "-e", "trace=none"])
    daemon = r.daemon()
    assert r.wait_until(lambda: r.read_file("/run/tunnel_mngr.pid"), "the PID file") == f"{daemon.pid}\n"
    assert daemon.terminate() == 3
