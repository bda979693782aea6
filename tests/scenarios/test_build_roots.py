"""The scripts that make a root to build or to try something in, scripts/cross first: one sentence where something is
missing, nothing left behind, and the next call works."""

import pathlib
import signal
import subprocess
from collections.abc import Callable, Iterator

import pytest

import build_room
from build_room import HALF, NOBODY, complaint, eventually, sleepers, stand_in, start


@pytest.fixture
def room(tmp_path) -> Iterator[pathlib.Path]:
    yield from build_room.made(tmp_path)


def cross(room: pathlib.Path, *architectures: str) -> subprocess.Popen:
    return start(room, "scripts/cross", "--folder", str(room / "cross"), *architectures, top=room / "top")


def test_an_architecture_is_known_or_refused(room):
    stand_in(room, "debootstrap", "exit 1")
    assert "sparc" in complaint(cross(room, "armhf", "sparc"), 2)
    assert "arm64 armhf is unknown" in complaint(cross(room, "arm64 armhf"), 2)
    assert "usage: scripts/cross" in complaint(cross(room), 2)
    assert not (room / "cross").exists()


def test_a_folder_is_where_its_name_says_from_the_caller_s_place(room):
    stand_in(room, "debootstrap", "echo E: not today; exit 1")
    process = start(room, "top/scripts/cross", "--folder", "here", "armhf", top=room)
    assert f"{room}/here/armhf/log" in complaint(process, 1)


def test_without_root_there_is_no_cross_build(room):
    assert "as root" in complaint(start(room, "scripts/cross", "armhf", user=NOBODY, group=NOBODY), 1)


def test_what_the_network_refuses_is_told_in_one_sentence(room):
    stand_in(room, "debootstrap", 'mkdir -p "${@: -1}"; echo E: nothing could be fetched; exit 1')
    err = complaint(cross(room, "armhf"), 1)
    assert "E: nothing could be fetched" in err and f"{room}/cross/armhf/log" in err
    assert not (room / "cross" / "base").exists()


def test_one_architecture_that_fails_keeps_none_of_the_others_from_being_tried(room):
    stand_in(room, "debootstrap", "echo E: not today; exit 1")
    process = cross(room, "armhf", "s390x")
    _, err = process.communicate(timeout=60)
    assert process.returncode == 1
    assert [name in line for name, line in zip(("armhf", "s390x"), err.splitlines(), strict=True)] == [True, True]


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


EMPTY_ROOT = 'mkdir -p "${@: -1}"/{dev,proc,etc/apt/apt.conf.d}'
# In place of all that is run in a root: of apt-get's calls one hangs, and when it is made again it fails.
IN_ROOT = """
[[ $* == *"apt-get -q -y $MOMENT"* ]] || exit 0
[[ ! -e $ROOM/interrupted ]] || { echo "E: begun anew"; exit 1; }
touch "$ROOM/interrupted"
exec sleep 4711
"""


@pytest.mark.parametrize("moment, begun", [("install ca-certificates", "Making the root that the others are copies of"),
                                           ("install crossbuild-essential", "Making the root for armhf"),
                                           ("--host-architecture armhf", "Making the root for armhf")])
def test_a_root_that_was_being_changed_when_its_call_was_killed_is_made_anew(room, moment, begun, monkeypatch):
    monkeypatch.setenv("ROOM", str(room))
    monkeypatch.setenv("MOMENT", moment)
    stand_in(room, "debootstrap", EMPTY_ROOT)
    stand_in(room, "chroot", IN_ROOT)
    process = cross(room, "armhf")
    eventually((room / "interrupted").exists)
    process.kill()
    process.communicate(timeout=60)
    eventually(lambda: not sleepers(room))
    out, err = cross(room, "armhf").communicate(timeout=60)
    assert begun in out.splitlines() and "E: begun anew" in err


# In place of all that is run in a root, among it a linker that warns. As ninja does, it links nothing that is there.
WARNING_LINKER = """
case $* in
  *"cmake --preset"*) [[ $* != *-Wl,--fatal-warnings* ]] || touch "$ROOM/fatal" ;;
  *"cmake --build"*)
    [[ ! -e $ROOM/linked ]] || exit 0
    echo "ld: warning: the stack is executable"
    [[ ! -e $ROOM/fatal ]] && touch "$ROOM/linked" ;;
esac
"""


def test_what_a_linker_warns_of_is_not_built_by_the_next_call_either(room, monkeypatch):
    monkeypatch.setenv("ROOM", str(room))
    stand_in(room, "debootstrap", EMPTY_ROOT)
    stand_in(room, "chroot", WARNING_LINKER)
    for source in ("libjsoncpp", "curl", "googletest"):
        (room / "cross" / "sources" / source).mkdir(parents=True)
    for _ in range(2):
        assert "ld: warning: the stack is executable" in complaint(cross(room, "mips"), 1)


# ---- the machine's disk, and the root that the package is tried in ----

MAKE_DISK = """
import pathlib, sys
from boot import disk
from lab import kernel
try:
    disk.make(kernel.Kernel(pathlib.Path(sys.argv[1])))
except kernel.Unavailable as error:
    sys.exit(str(error))
"""
CONTROL = "Package: tunnel-mngr\nVersion: 1\nArchitecture: all\nMaintainer: Nobody <n@example.net>\nDescription: none\n"


def make_disk(room: pathlib.Path) -> subprocess.Popen:
    (room / "kernel" / "boot").mkdir(parents=True, exist_ok=True)
    (room / "kernel" / "boot" / "vmlinuz-1").touch()
    (room / "cache" / "tunnel_mngr").mkdir(parents=True, exist_ok=True)
    return start(room, "/usr/bin/python3", "-B", "-c", MAKE_DISK, str(room / "kernel"))


def try_package(room: pathlib.Path) -> subprocess.Popen:
    """What scripts/package --test does with a package that it has built."""
    (room / "package" / "DEBIAN").mkdir(parents=True, exist_ok=True)
    (room / "package" / "DEBIAN" / "control").write_text(CONTROL)
    made = ["dpkg-deb", "--build", str(room / "package"), str(room / "tunnel-mngr_1_all.deb")]
    subprocess.run(made, check=True, capture_output=True)
    tests = ["-m", "pytest", "-p", "no:cacheprovider", "-q", "tests/package/test_lifecycle.py"]
    return start(room, "/usr/bin/python3", "-B", *tests)


@pytest.fixture(params=[make_disk, try_package])
def make_root(request, room, monkeypatch) -> Callable[[pathlib.Path], subprocess.Popen]:
    monkeypatch.setenv("ROOM", str(room))
    monkeypatch.setenv("XDG_CACHE_HOME", str(room / "cache"))
    monkeypatch.setenv("PACKAGE_FOLDER", str(room))
    monkeypatch.setenv("PACKAGE_ARCHITECTURE", "all")
    return request.param


def told(process: subprocess.Popen) -> list[str]:
    """The lines in which a call that fails says why."""
    lines = "".join(process.communicate(timeout=60)).splitlines()
    assert process.returncode == 1
    return [line for line in lines if "cannot be made" in line]


def test_a_root_that_the_network_refuses_is_told_in_one_sentence(room, make_root):
    stand_in(room, "debootstrap", "echo asked >>$ROOM/asked; echo E: nothing could be fetched >&2; exit 1")
    [line] = told(make_root(room))
    assert "cannot be made: E: nothing could be fetched" in line
    assert (room / "asked").read_text() == "asked\n"


def test_a_root_that_is_half_made_keeps_the_next_call_from_nothing(room, make_root):
    stand_in(room, "debootstrap", HALF)
    process = make_root(room)
    eventually((room / "interrupted").exists)
    process.kill()
    process.communicate(timeout=60)
    eventually(lambda: not sleepers(room))
    eventually(lambda: not list((room / "cache" / "tunnel_mngr").iterdir()))
    assert str(room) not in pathlib.Path("/proc/self/mountinfo").read_text()
    assert "begun anew" in told(make_root(room))[0]
