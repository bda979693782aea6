"""Init systems and supervisors, Debian's own, each with the daemon in it: start, refresh, a killed daemon, a killed
script, stop, and no shared memory."""

import signal

import pytest

from daemon_stories import MONITORS_START, PID_FILE
from init_systems import NO_SHARED_MEMORY, PACKAGING, House, configured


def example(name: str) -> str:
    return configured((PACKAGING / "examples" / f"{name}.in").read_text())


# ---- runit ----

@pytest.fixture
def runit(open_house) -> House:
    house = open_house("runit", files={"etc/sv/tunnel_mngr/run": example("runit-run")})
    house.router.make_folder("/run/service")
    return house


def link_service(house: House) -> None:
    house.do(["ln", "-s", "/etc/sv/tunnel_mngr", "/run/service/"])


@pytest.mark.slow
def test_runit(runit):
    supervisor = runit.router.spawn(["runsvdir", "-P", "/run/service"])
    link_service(runit)
    daemon = runit.wait_for_run(0)
    runit.assert_prepared(daemon)
    runit.assert_left_alone(daemon, runit.router.find("log", MONITORS_START)[0].number)
    sv = lambda word: runit.do(["sv", "-w", "30", word, "/run/service/tunnel_mngr"])  # noqa: E731
    runit.assert_one_run_more(lambda: sv("hup"), daemon)
    daemon = runit.assert_killed_and_replaced(daemon)
    runit.assert_script_replaced(daemon)
    sv("force-stop")
    runit.assert_stopped(daemon)
    mark = runit.router.mark()
    sv("up")
    daemon = runit.wait_for_run(mark)
    supervisor.signal(signal.SIGHUP)  # has runsvdir tell each runsv to end
    runit.assert_stopped(daemon)


def test_runit_that_loses_patience_starts_no_second_daemon(runit):
    """It kills the script while the daemon goes on with its run, as it must, and is told to start another."""
    runit.router.program("firewall").on(stay=True, times=1)
    runit.router.spawn(["runsvdir", "-P", "/run/service"])
    link_service(runit)
    runit.router.wait_for("exec", program="firewall")
    daemon = runit.daemon()
    [killed] = runit.scripts()
    runit.do(["sv", "-w", "1", "force-stop", "/run/service/tunnel_mngr"], 1)
    assert not killed.alive() and daemon.alive() and not runit.router.exists(PID_FILE)
    runit.do(["sv", "up", "/run/service/tunnel_mngr"])
    [script] = runit.router.wait_until(runit.scripts, "the next script")
    runit.wait_until_it_waits(script, looks=2)
    assert [other.pid for other in runit.daemons()] == [daemon.pid]
    mark = runit.router.mark()
    runit.router.program("firewall").exit()
    runit.router.wait_for("log", MONITORS_START, since=mark, count=2, timeout=20)
    assert not daemon.alive() and runit.daemon().pid != daemon.pid


def test_runit_without_shared_memory(runit):
    runit.take_shared_memory_away()
    supervisor = runit.router.spawn(["runsvdir", "-P", "/run/service"])
    link_service(runit)
    runit.router.wait_until(lambda: supervisor.stdout.count(NO_SHARED_MEMORY) > 1, "a second attempt")
    assert not supervisor.stdout.replace(NO_SHARED_MEMORY, "")


# ---- BusyBox init ----

TOOLS = ("sh", "sleep", "grep", "ls", "mkdir", "rm", "chmod", "chown", "tr", "touch", "mount")


@pytest.fixture
def busybox(open_house) -> House:
    """With BusyBox's shell and tools in place of Debian's, and no shared memory: the example's first lines bring it."""
    house = open_house(files={"etc/inittab": example("inittab")})
    house.take_shared_memory_away()
    house.router.write_file("/dev/console", "")
    house.do(["bash", "-c", f"for name in {' '.join(TOOLS)}; do busybox ln -sf /bin/busybox /bin/$name; done"])
    return house


@pytest.mark.slow
def test_busybox_init(busybox):
    init = busybox.boot("busybox", "init")
    daemon = busybox.wait_for_run(0)
    busybox.assert_prepared(daemon)
    busybox.assert_left_alone(daemon, busybox.router.mark())
    [script] = busybox.scripts()
    assert "/busybox" in busybox.router.read_file(f"/proc/{script.pid}/maps")
    busybox.assert_one_run_more(lambda: script.signal(signal.SIGHUP), daemon)
    daemon = busybox.assert_killed_and_replaced(daemon)
    busybox.assert_script_replaced(daemon)
    mark = busybox.router.mark()
    busybox.scripts()[0].signal(signal.SIGTERM)  # stops the daemon, and init starts it again
    following = busybox.wait_for_run(mark)
    assert following.pid != daemon.pid
    init.signal(signal.SIGUSR1)  # halts
    busybox.wait_for_end(init)
    assert not busybox.router.exists(PID_FILE)  # so it was told to end, and did


# ---- OpenRC ----

@pytest.fixture
def openrc(open_house) -> House:
    """Booted, the service in its default runlevel."""
    packages = ("openrc", "librc1", "libeinfo1", "insserv")
    house = open_house(*packages, files={"etc/init.d/tunnel_mngr": example("openrc")})
    house.do(["rc-update", "add", "tunnel_mngr", "default"])
    house.do(["openrc", "sysinit"])
    house.do(["openrc", "boot"])
    return house


@pytest.mark.slow
def test_openrc(openrc):
    service = lambda word, status=0: openrc.do(["rc-service", "tunnel_mngr", word], status, timeout=60)  # noqa: E731
    openrc.do(["openrc", "default"])
    daemon = openrc.wait_for_run(0)
    openrc.assert_prepared(daemon)
    service("start")
    service("status")
    openrc.assert_left_alone(daemon, openrc.router.find("log", MONITORS_START)[0].number)
    openrc.assert_one_run_more(lambda: service("reload"), daemon)
    daemon = openrc.assert_killed_and_replaced(daemon)
    openrc.assert_script_replaced(daemon)
    mark = openrc.router.mark()
    service("restart")
    openrc.wait_for_end(daemon)
    daemon = openrc.wait_for_run(mark)
    assert openrc.runs(mark) == 1
    service("stop")
    openrc.assert_stopped(daemon)
    service("status", 3)


def test_openrc_without_shared_memory(openrc):
    openrc.take_shared_memory_away()
    done = openrc.do(["rc-service", "tunnel_mngr", "start"], 1)
    told = [line for line in done.stderr.splitlines(keepends=True) if "cgroup" not in line]  # of the sandbox's own lack
    assert told == [NO_SHARED_MEMORY, " * ERROR: tunnel_mngr failed to start\n"]
    assert not openrc.scripts()
