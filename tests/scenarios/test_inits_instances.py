"""tunnel_mngr-foreground starts no second instance: it looks after a daemon that runs, and awaits the end of a single
run and of a daemon that ends, whoever has begun them."""

import signal

import pytest

from c_library import SEMAPHORES
from daemon_stories import MONITORS_START, PID_FILE, SEMAPHORE, assert_no_instance
from init_systems import DAEMON, INSTANCE, House
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


def test_a_running_daemon_is_waited_for_and_ended(house, shell):
    _, daemon = house.started(shell)
    mark = house.router.mark()
    second = house.start(shell)
    house.assert_left_alone(daemon, mark)
    second.signal(signal.SIGTERM)
    assert second.wait_exit() == 0 and not daemon.alive()
    assert len(house.router.find("start", role="exec")) and house.runs(mark) == 0


def test_a_single_run_is_waited_for(house):
    house.router.program("firewall").on(stay=True, times=1)
    single = house.router.spawn(["/usr/sbin/tunnel_mngr", "--printlvl", "50"])
    house.router.wait_for("exec", program="firewall")
    mark = house.router.mark()
    script = house.start()
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
    script = house.start()
    house.wait_until_it_waits(script)
    assert script.alive() and not house.daemons() and house.router.exists(name)
    holder.signal(signal.SIGKILL)
    house.wait_for_run(0)
    assert house.router.exists(name) == (name == SEMAPHORE)


def test_an_instance_with_mounts_of_its_own_is_at_work(house):
    """As the service unit's has them; its shared memory is the same."""
    house.imitate("sleep", "1000", before=("unshare", "--mount"))
    script = house.start()
    house.wait_until_it_waits(script)
    assert script.alive() and not house.daemons()


@pytest.mark.parametrize("who", NO_INSTANCES.values(), ids=NO_INSTANCES)
def test_who_is_no_instance_keeps_nobody_waiting(house, shell, who):
    house.leave_remains(1)
    bystander = house.imitate("sleep", "1000", semaphore="/dev/shm/sem.IMITATION", **who)
    house.started(shell)
    assert bystander.alive()


# ---- a daemon that ends, or is starting, and whose script was killed ----

def abandoned_in_its_run(house: House) -> Process:
    """A daemon that was told to end in a run, by a script that was killed then: it has no semaphore and PID file."""
    house.router.program("firewall").on(stay=True, times=1)
    script = house.start()
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
    script = house.start(shell)
    house.wait_until_it_waits(script, looks=3)
    assert [daemon.pid for daemon in house.daemons()] == [old.pid]
    mark = house.router.mark()
    house.router.program("firewall").exit()
    house.router.wait_for("log", MONITORS_START, since=mark, count=2)  # its own, and behind that its successor's
    assert not old.alive() and house.daemon().pid != old.pid and house.runs(mark) == 1


def test_a_script_that_is_ended_waits_for_the_daemon_that_ends(house, shell):
    old = abandoned_in_its_run(house)
    script = house.start(shell)
    house.wait_until_it_waits(script)
    script.signal(signal.SIGTERM)
    house.wait_until_it_waits(script, looks=3)
    assert old.alive() and script.alive()
    house.router.program("firewall").exit()
    assert script.wait_exit() == 0 and not house.daemons() and house.runs() == 1
    assert_no_instance(house.router)


def test_a_start_by_a_script_that_was_killed_is_waited_for_and_ended(house, shell):
    house.router.api.on("wans", hang=True)
    first = house.start(shell)
    house.router.wait_for("api", "wans")
    first.signal(signal.SIGKILL)
    second = house.start(shell)
    house.wait_until_it_waits(second, looks=3)
    assert len(house.daemons()) == 1
    second.signal(signal.SIGTERM)
    assert second.wait_exit() == 0 and not house.daemons()
    assert_no_instance(house.router)


def test_a_child_that_has_not_become_a_program_yet_is_not_told_to_end(house):
    """It may be the next command of a run. Its number comes first here, as that of a file."""
    words = ["/usr/bin/python3", "-c", FORKED, "tunnel_mngr", "/dev/shm/sem.IMITATION", "made", "--daemonize"]
    daemon = house.with_number(99, *words)
    house.router.wait_until(lambda: daemon.children() == [100], "its child")
    script = house.start()
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
    script = house.start()
    house.assert_left_alone(daemon, mark)
    assert not house.router.exists(SEMAPHORE)
    assert script.terminate() == 0 and not daemon.alive()
