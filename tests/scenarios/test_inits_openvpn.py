"""An openvpn that has not heard of the end of its daemon is ended by tunnel_mngr-foreground, and nobody else's is. The
init script does the same by the same functions."""

import signal

import pytest

from daemon_stories import MONITORS_START, SEMAPHORE
from init_systems import FOREGROUND, INSTANCE, SHELL, House
from openvpn_records import arguments
from sandbox.process import Process

STAND_IN = ["env", "PATH=/run/sandbox/bin"]
ODD_NAME = "a.conf b_c\n"
# An instance that ends, for as long as one of its threads has not.
ENDING = INSTANCE.replace("subprocess.run(command)", """
import threading, time
threading.Thread(target=time.sleep, args=[1000]).start()
subprocess.Popen(command)
ctypes.CDLL(None).pthread_exit(None)
""")
FOREIGN = {
    "other words": ["openvpn", "--config", "/var/run/openvpn_one.conf"],
    "more words": [*arguments("one"), "--daemon"],
    "another file": ["openvpn", "--config", "/etc/openvpn/one.conf", *arguments("one")[3:]],
    "another tunnel's status": [*arguments("one")[:4], *arguments("two")[4:]],
}


@pytest.fixture
def house(open_house) -> House:
    return open_house()


def start(house: House, shell: list[str] = SHELL) -> tuple[Process, Process]:
    """The script, and the daemon with its openvpn."""
    mark = house.router.mark()
    script = house.router.spawn([*shell, FOREGROUND])
    return script, house.wait_for_run(mark)


def imitation(house: House, *argv: str, before: list[str] = STAND_IN) -> Process:
    """A process that passes for an openvpn with these words, whose parent is the router's first process."""
    house.router.program("openvpn").on(stay=True)
    mark = house.router.mark()
    house.router.spawn([*before, *argv])
    return house.router.process(house.router.wait_for("exec", program="openvpn", since=mark).pid)


def manager(text: str = INSTANCE, end: str = "made") -> list[str]:
    """What makes a process with the program's name the parent of the words behind it."""
    return ["/usr/bin/python3", "-c", text, "tunnel_mngr", "/dev/shm/sem.IMITATION", end, *STAND_IN]


def assert_left_alone(house: House, shell: list[str], bystander: Process) -> None:
    """At the daemon's start and behind its end."""
    script = house.router.spawn([*shell, FOREGROUND])
    house.router.wait_for("log", MONITORS_START)
    assert script.terminate(30) == 0
    assert bystander.alive() and not house.router.find("caught", "openvpn")


def test_it_ends_with_the_daemon(house, shell):
    script, daemon = start(house, shell)
    script.signal(signal.SIGTERM)
    assert script.wait_exit() == 0
    assert not daemon.alive() and not house.processes("openvpn")


def test_it_ends_behind_a_daemon_that_was_killed(house, shell):
    script, daemon = start(house, shell)
    daemon.signal(signal.SIGKILL)
    assert script.wait_exit() == 1
    assert not house.processes("openvpn") and not house.router.exists(SEMAPHORE)


def test_it_ends_before_the_next_start_where_the_script_was_killed_as_well(house, shell):
    """Or the next one could not have its port, and this one would go on without anybody who looks after it."""
    for process in start(house, shell):
        process.signal(signal.SIGKILL)
    [left] = house.processes("openvpn")
    script, _ = start(house, shell)
    assert not left.alive() and script.alive()


@pytest.mark.parametrize("name", ["one", ODD_NAME])
def test_the_words_decide(house, shell, name):
    left = imitation(house, *arguments(name))
    start(house, shell)
    assert not left.alive()


@pytest.mark.parametrize("words", FOREIGN.values(), ids=FOREIGN)
def test_one_with_other_words_is_left_alone(house, words):
    assert_left_alone(house, SHELL, imitation(house, *words))


def test_one_in_a_container_is_left_alone(house, shell):
    assert_left_alone(house, shell, imitation(house, *arguments("one"), before=["unshare", "--mount", *STAND_IN]))


def test_one_that_has_its_manager_is_left_alone(house, shell):
    """As those of a single run, or of a daemon that ends after its run."""
    script, _ = start(house, shell)
    bystander = imitation(house, *arguments("one"), before=manager())
    assert script.terminate(30) == 0
    assert bystander.alive() and not house.router.find("caught", "openvpn")


def test_one_whose_manager_is_but_a_zombie_is_ended(house, shell):
    left = imitation(house, *arguments("one"), before=manager(ENDING))
    ending = house.router.process(left.facts()["parent"])
    house.router.wait_until(lambda: not ending.alive(), "the manager to be a zombie")
    assert ending.facts()["name"] == "tunnel_mngr"
    start(house, shell)
    assert not left.alive()


def test_one_whose_manager_is_at_its_very_end_is_ended(house, shell):
    """It has closed its semaphore, and so another may start; what it has not ended then, nobody else would."""
    left = imitation(house, *arguments("one"), before=manager(end="asked for"))
    start(house, shell)
    assert not left.alive()


@pytest.mark.slow
def test_one_that_hears_nothing_is_killed(house):
    house.router.program("openvpn").on(stay=True, ignore_term=True)
    left = house.router.spawn([*STAND_IN, *arguments("one")])
    house.router.wait_for("exec", program="openvpn")
    start(house)
    assert left.wait_exit() == -signal.SIGKILL
    assert len(house.router.find("caught", "openvpn")) == 10
