"""scripts/cross and scripts/static where something is missing: one sentence, nothing left behind, and the next call
works. Programs that take the place of Debian's fail in the ways that those can."""

import os
import pathlib
import signal
import subprocess
import time
from collections.abc import Callable

import pytest

TOP = pathlib.Path(__file__).parents[2]
INSTALLED = "echo installed"
NOBODY = 65534


@pytest.fixture
def room(tmp_path) -> pathlib.Path:
    (tmp_path / "bin").mkdir()
    stand_in(tmp_path, "dpkg-query", INSTALLED)
    return tmp_path


def stand_in(room: pathlib.Path, name: str, script: str) -> None:
    (room / "bin" / name).write_text(f"#!/bin/bash\n{script}\n")
    (room / "bin" / name).chmod(0o755)


def start(room: pathlib.Path, *arguments: str, **options) -> subprocess.Popen:
    environment = os.environ | {"PATH": f"{room}/bin:{os.environ['PATH']}"}
    return subprocess.Popen(arguments, cwd=TOP, env=environment, text=True, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)


def cross(room: pathlib.Path, *architectures: str) -> subprocess.Popen:
    return start(room, "scripts/cross", "--folder", str(room / "cross"), *architectures)


def eventually(holds: Callable[[], object]) -> None:
    deadline = time.monotonic() + 30
    while not holds():
        assert time.monotonic() < deadline
        time.sleep(0.05)


def complaint(process: subprocess.Popen, status: int) -> str:
    """The only line that it writes to its standard error."""
    _, err = process.communicate(timeout=60)
    assert (process.returncode, err.count("\n")) == (status, 1), err
    return err


def test_an_architecture_is_known_or_refused(room):
    assert "sparc" in complaint(cross(room, "armhf", "sparc"), 2)
    assert "usage: scripts/cross" in complaint(cross(room), 2)
    assert not (room / "cross").exists()


def test_without_root_there_is_no_cross_build(room):
    assert "as root" in complaint(start(room, "scripts/cross", "armhf", user=NOBODY, group=NOBODY), 1)


def test_missing_packages_are_named(room):
    stand_in(room, "dpkg-query", "exit 1")
    stand_in(room, "apt-get", "echo E: no network >&2; exit 100")
    process = cross(room, "armhf")
    out, err = process.communicate(timeout=60)
    assert process.returncode == 1 and "apt-get could not install: debootstrap" in err


def test_what_the_network_refuses_is_told_in_one_sentence(room):
    stand_in(room, "debootstrap", "mkdir -p base.new; echo E: nothing could be fetched; exit 1")
    err = complaint(cross(room, "armhf"), 1)
    assert "E: nothing could be fetched" in err and f"{room}/cross/armhf/log" in err
    assert not (room / "cross" / "base").exists()


def test_one_architecture_that_fails_keeps_none_of_the_others_from_being_tried(room):
    stand_in(room, "debootstrap", "echo E: not today; exit 1")
    process = cross(room, "armhf", "s390x")
    _, err = process.communicate(timeout=60)
    assert process.returncode == 1
    assert [name in line for name, line in zip(("armhf", "s390x"), err.splitlines(), strict=True)] == [True, True]


HALF = """
root="${@: -1}"
[[ ! -e $root ]] || { echo "E: $root is there already"; exit 1; }
[[ ! -e $ROOM/interrupted ]] || { echo "E: begun anew"; exit 1; }
mkdir -p "$root/proc"
mount -t proc proc "$root/proc"
touch "$ROOM/interrupted"
exec sleep 4711
"""


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGKILL])
def test_an_interrupted_call_leaves_nothing_that_keeps_the_next_from_working(room, number, monkeypatch):
    monkeypatch.setenv("ROOM", str(room))
    stand_in(room, "debootstrap", HALF)
    process = cross(room, "armhf")
    eventually((room / "interrupted").exists)
    assert "another call is working" in complaint(cross(room, "armhf"), 1)
    process.send_signal(number)
    process.communicate(timeout=60)
    assert process.returncode != 0
    assert str(room) not in pathlib.Path("/proc/self/mountinfo").read_text()
    eventually(lambda: not sleepers(room))
    assert "E: begun anew" in complaint(cross(room, "armhf"), 1)


def sleepers(room: pathlib.Path) -> list[str]:
    """The processes that have come from the room's programs and have not ended."""
    found = []
    for entry in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if f"ROOM={room}".encode() in (entry / "environ").read_bytes():
                found.append(entry.name)
        except OSError:  # it has just ended
            continue
    return found


def test_the_static_build_says_what_could_not_be_fetched(room):
    stand_in(room, "apt-get", "echo E: no network >&2; exit 100")
    assert "E: no network" in complaint(start(room, "scripts/static", "--folder", str(room / "static")), 1)



@pytest.mark.parametrize("said, told", [("all is well\\nlast words\\n\\n", "last words"),
                                        ("CMake Error: no such compiler\\nmore\\n", "CMake Error: no such compiler")])
def test_what_failed_is_told_whatever_its_words_are(room, said, told):
    script = f"source scripts/lib/narration.sh; narrate it {room}/log; begin Trying; printf '{said}'; false"
    err = complaint(start(room, "bash", "-euo", "pipefail", "-c", script), 1)
    assert err == f"it: failed at: Trying: {told}; all of it is in {room}/log\n"
