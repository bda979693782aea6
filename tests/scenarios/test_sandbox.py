"""Sandbox: routers are private, leave nothing behind, and tell pytest what went wrong. Small Python programs take the
daemon's place here."""

import os
import pathlib
import signal
import subprocess
import sys
import time

import pytest

from sandbox.router import Router, RouterError, kernel_has_gre

HERE = pathlib.Path(__file__).parent
ROOT = HERE.parents[1]

DAEMON = """
import os, signal, sys, time
if os.fork():
    os._exit(0)
os.setsid()
stopping = []
signal.signal(signal.SIGTERM, lambda *_: stopping.append(1))
signal.signal(signal.SIGHUP, lambda *_: os.system("ip tunnel"))
open("/var/run/tunnel_mngr.pid", "w").write(f"{os.getpid()}\\n")
while not stopping:
    time.sleep(0.01)
sys.exit(3)
"""


# ---- isolation and the end ----

def test_routers_are_private(routed):
    r, other = routed(DAEMON), routed(DAEMON)
    first, second = r.daemon(), other.daemon()
    other.wait_until(lambda: other.exists("/run/tunnel_mngr.pid"))
    other.write_file("/dev/shm/sem.X", "")
    other.write_file("/etc/hosts", "192.0.2.1 elsewhere\n")
    assert not r.exists("/dev/shm/sem.X") and not os.path.exists("/dev/shm/sem.X")
    assert "elsewhere" not in r.read_file("/etc/hosts") and "elsewhere" not in pathlib.Path("/etc/hosts").read_text()
    assert second.terminate() == 3 and first.alive()
    assert r.stat("/dev/null")["mode"] & 0o666 == 0o666 and r.exists("/dev/net/tun") and r.exists("/dev/pts/ptmx")
    assert r.exec(["ping", "-c", "1", "127.0.0.1"]).status == 0
    assert not os.path.exists("/run/sandbox")


OPEN_AND_WAIT = """
import sys
sys.path.insert(0, sys.argv[1])
from sandbox.router import Router
with Router(sys.argv[2]) as r:
    r.daemon()
    print(r.keeper_pid, flush=True)
    r.wait_for("mark", timeout=60)
"""


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGINT])
def test_nothing_is_left_when_the_test_is_killed(tmp_path, number):
    program = tmp_path / "program"
    program.write_text(f"#!/usr/bin/python3\n{DAEMON}")
    program.chmod(0o755)
    with subprocess.Popen([sys.executable, "-c", OPEN_AND_WAIT, ROOT, program], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True, start_new_session=True) as test:
        keeper = int(test.stdout.readline())
        namespace = os.readlink(f"/proc/{keeper}/ns/pid")
        os.killpg(test.pid, number)
    deadline = time.monotonic() + 10
    while processes_in(namespace):
        assert time.monotonic() < deadline, processes_in(namespace)
        time.sleep(0.01)


def processes_in(namespace: str) -> list[str]:
    found = []
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.readlink(f"/proc/{name}/ns/pid") == namespace:
                found.append(name)
        except OSError:
            continue  # gone, or a zombie
    return found


def test_closing_ends_everything(routed):
    r = routed(DAEMON)
    r.daemon()
    namespace = r.pid_namespace
    assert len(processes_in(namespace)) == 2
    r.close()
    assert processes_in(namespace) == []
    with pytest.raises(RouterError):
        r.run()
    assert "start" in r.dump()


def test_a_router_whose_keeper_dies_says_so(routed):
    r = routed(DAEMON)
    os.kill(r.keeper_pid, signal.SIGKILL)
    with pytest.raises(RouterError, match="gone"):
        r.run()


def test_what_is_asked_and_answered_may_be_long(routed):
    """Far longer than what a socket takes at once, with events in between."""
    r = routed("import os; os.system('firewall --init')")
    contents = "".join(map(chr, range(128))) * 50_000
    for _ in range(2):
        r.start()
        r.write_file("/run/long", contents)
        assert r.read_file("/run/long") == contents
    r.wait_for("end", program="firewall", count=2)


# ---- networks ----

def test_two_routers_can_be_joined(routed):
    a, b = routed(), routed()
    mine, theirs = Router.link(a, b, "192.0.2.0/24")
    assert (mine, theirs) == ("192.0.2.1", "192.0.2.2")
    assert a.exec(["ping", "-c", "1", "-W", "5", theirs]).status == 0


def test_the_real_ip_can_be_run_and_is_recorded(routed):
    r = routed("import os; os.system('ip link set lo mtu 1400'); os.system('ip link show lo')", real_ip=True)
    assert "mtu 1400" in r.run().stdout
    assert r.commands()[-1].status == 0 and r.commands()[-1].argv == ["ip", "link", "show", "lo"]


@pytest.mark.skipif(not kernel_has_gre(), reason="this kernel makes no GRE tunnels")
def test_the_real_ip_makes_gre_tunnels(routed):
    add = "ip tunnel add g1 mode gre remote 192.0.2.1 local 192.0.2.2 ttl 9"
    r = routed(f"import os; os.system('{add}'); os.system('ip tunnel')", real_ip=True)
    assert "g1: gre/ip" in r.run().stdout


# ---- what pytest makes of it ----

def run_pytest(folder: pathlib.Path, environment: dict) -> subprocess.CompletedProcess:
    argv = [sys.executable, "-m", "pytest", "-p", "conftest", "-p", "no:cacheprovider", "-q", "test_inner.py"]
    return subprocess.run(argv, cwd=folder, env=environment | {"PYTHONPATH": str(HERE)}, capture_output=True, text=True)


INNER = """
def test_bad(open_router):
    r = open_router({program!r})
    r.run()
"""


@pytest.mark.parametrize("text, complaint", [
    ("import sys; print('WARNING: ThreadSanitizer: data race (pid=5)', file=sys.stderr)", "data race"),
    ("import sys; print('==9==ERROR: AddressSanitizer: heap-use-after-free', file=sys.stderr)", "heap-use-after-free"),
    ("import sys; print('a.cpp:3:5: runtime error: overflow', file=sys.stderr)", "runtime error: overflow"),
    ("import os; os.abort()", "died of signal 6"),
])
def test_reports_and_crashes_fail_a_test(tmp_path, text, complaint):
    program = tmp_path / "program"
    program.write_text(f"#!/usr/bin/python3\n{text}\n")
    program.chmod(0o755)
    (tmp_path / "test_inner.py").write_text(INNER.format(program=str(program)))
    result = run_pytest(tmp_path, os.environ)
    assert result.returncode == 1 and "1 failed" in result.stdout, result.stdout + result.stderr
    assert complaint in result.stdout and "---- timeline ----" in result.stdout


def test_an_expected_death_is_no_problem(routed):
    r = routed("import os; os.abort()")
    r.tolerate(signal.SIGABRT)
    assert r.run().status == -signal.SIGABRT
    assert r.problems() == []


def test_a_missing_program_under_test_is_an_error_and_no_skip(tmp_path):
    (tmp_path / "test_inner.py").write_text("def test_it(router): pass\n")
    result = run_pytest(tmp_path, {key: value for key, value in os.environ.items() if key != "TUNNEL_MNGR"})
    assert "1 error" in result.stdout and "set TUNNEL_MNGR" in result.stdout


def test_the_command_line_prints_the_live_timeline(tmp_path):
    program = tmp_path / "program"
    program.write_text("#!/usr/bin/python3\nimport os\nif os.fork(): os._exit(0)\nos.system('firewall --init')\n")
    program.chmod(0o755)
    argv = [sys.executable, "-m", "sandbox", "--program", program]
    result = subprocess.run(argv, cwd=ROOT, capture_output=True, text=True)
    assert result.returncode == 0, result.stderr
    assert "command  firewall --init" in result.stdout and "daemon" in result.stdout.splitlines()[-1]
