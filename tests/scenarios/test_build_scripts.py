"""The scripts that build where something is missing: one sentence, nothing left behind, and the next call works.
Programs that take the place of Debian's fail in the ways that those can. scripts/cross and scripts/static are copies:
they work in the folder above their own, which is to hold no more afterwards than it did before."""

import os
import pathlib
import shutil
import signal
import subprocess
import time
from collections.abc import Callable, Iterator

import pytest

TOP = pathlib.Path(__file__).parents[2]
INSTALLED = "echo installed"
NOBODY = 65534


@pytest.fixture
def room(tmp_path) -> Iterator[pathlib.Path]:
    (tmp_path / "bin").mkdir()
    stand_in(tmp_path, "dpkg-query", INSTALLED)
    shutil.copytree(TOP / "scripts", tmp_path / "top" / "scripts")
    yield tmp_path
    assert os.listdir(tmp_path / "top") == ["scripts"]


def stand_in(room: pathlib.Path, name: str, script: str) -> None:
    (room / "bin" / name).write_text(f"#!/bin/bash\n{script}\n")
    (room / "bin" / name).chmod(0o755)


def start(room: pathlib.Path, *arguments: str, top: pathlib.Path = TOP, **options) -> subprocess.Popen:
    environment = os.environ | {"PATH": f"{room}/bin:{os.environ['PATH']}"}
    return subprocess.Popen(arguments, cwd=top, env=environment, text=True, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)


def cross(room: pathlib.Path, *architectures: str) -> subprocess.Popen:
    return start(room, "scripts/cross", "--folder", str(room / "cross"), *architectures, top=room / "top")


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
    stand_in(room, "debootstrap", "exit 1")
    assert "sparc" in complaint(cross(room, "armhf", "sparc"), 2)
    assert "arm64 armhf is unknown" in complaint(cross(room, "arm64 armhf"), 2)
    assert "usage: scripts/cross" in complaint(cross(room), 2)
    assert not (room / "cross").exists()


def test_a_folder_is_where_its_name_says_from_the_caller_s_place(room):
    stand_in(room, "debootstrap", "echo E: not today; exit 1")
    process = start(room, "top/scripts/cross", "--folder", "here", "armhf", top=room)
    assert f"{room}/here/armhf/log" in complaint(process, 1)


@pytest.mark.parametrize("script", ["cross", "static"])
@pytest.mark.parametrize("folder", [".", "out", "scripts/lib", "build/../out", "build-of-mine"])
def test_nothing_is_built_among_the_sources(room, script, folder):
    stand_in(room, "debootstrap", "exit 1")
    stand_in(room, "apt-get", "exit 1")
    process = start(room, f"scripts/{script}", "--folder", folder, "armhf", top=room / "top")
    assert f"{(room / 'top' / folder).resolve()} is part of the source tree" in complaint(process, 2)


def test_copies_of_the_sources_are_without_what_is_built_in_them(room):
    tree = room / "tree"
    for name in ("build/a", ".cache/a", ".git/a", "docs/build/a", "tests/__pycache__/a", "tests/.pytest_cache/a"):
        (tree / name).parent.mkdir(parents=True)
        (tree / name).touch()
    copying = f"source {TOP}/scripts/lib/source_tree.sh; copySourceTree build/copy"
    subprocess.run(["bash", "-euo", "pipefail", "-c", copying], cwd=tree, check=True)
    copy = tree / "build" / "copy"
    assert [str(path.relative_to(copy)) for path in copy.rglob("a")] == ["docs/build/a"]


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


# ---- scripts/package, scripts/boot, scripts/static ----

def test_a_package_is_built_behind_one_that_is_being_built(room, monkeypatch):
    """Also where its script was killed."""
    monkeypatch.setenv("ROOM", str(room))
    tree = room / "tree"
    shutil.copytree(TOP / "scripts", tree / "scripts")
    stand_in(room, "dpkg-buildpackage", "touch $ROOM/building; until [[ -e $ROOM/enough ]]; do sleep 0.1; done; exit 1")
    first = start(room, str(tree / "scripts/package"))
    eventually((room / "building").exists)
    first.kill()
    second = start(room, str(tree / "scripts/package"))
    assert second.stdout.readline() == "Waiting for another call that builds here\n"
    (room / "enough").touch()
    assert complaint(second, 1) == "The package could not be built.\n"
    first.communicate(timeout=60)


def missing_packages(room: pathlib.Path, status: int, *call: str) -> list[str]:
    """Those that are named where none is installed and none can be."""
    stand_in(room, "dpkg-query", "exit 1")
    stand_in(room, "apt-get", "echo E: no network >&2; exit 100")
    process = start(room, *call)
    _, err = process.communicate(timeout=60)
    assert process.returncode == status and err.startswith("apt-get could not install: ")
    return err.splitlines()[0].split(": ")[1].split()


@pytest.mark.parametrize("script, status", [("scripts/package", 1), ("scripts/boot", 77)])
def test_missing_packages_are_named(room, script, status):
    assert missing_packages(room, status, script)


# What the scripts call themselves, and what the libraries of the static programs take the place of.
@pytest.mark.parametrize("call, needed, idle", [
    (["scripts/cross", "armhf"], {"debootstrap", "dpkg-dev", "mount", "python3"}, set()),
    (["scripts/static"], {"cmake", "dpkg-dev", "g++", "ninja-build"}, {"libcurl4-openssl-dev", "libjsoncpp-dev"})])
def test_what_may_be_installed_is_on_the_page_for_firmware_builders(room, call, needed, idle):
    missing = set(missing_packages(room, 1, *call))
    page = (TOP / "docs" / "firmware.md").read_text()
    assert needed <= missing and not idle & missing
    assert [name for name in missing if f"`{name}`" not in page] == []


def test_the_package_is_not_tried_without_root(room):
    assert "as root" in complaint(start(room, "scripts/package", "--test", user=NOBODY, group=NOBODY), 1)


def test_a_machine_is_not_started_for_what_is_no_package(room):
    process = start(room, "scripts/boot", "README.md")
    _, err = process.communicate(timeout=60)
    assert process.returncode == 2 and err.endswith("README.md is no package of tunnel-mngr\n")


def static(room: pathlib.Path) -> subprocess.Popen:
    return start(room, "scripts/static", "--folder", str(room / "static"), top=room / "top")


def test_the_static_build_says_that_apt_get_knows_no_packages(room):
    stand_in(room, "apt-get", "echo W: 1 error was passed over >&2")
    assert "Error: apt-get knows no packages of Debian 12" in complaint(static(room), 1)


def test_the_static_build_says_what_could_not_be_fetched(room):
    stand_in(room, "apt-get", "echo E: no network >&2; exit 100")
    assert "E: no network" in complaint(static(room), 1)


HANGING = """
[[ $1 != indextargets ]] || { echo http://debian.example.net; exit; }
[[ ! -e $ROOM/interrupted ]] || { echo "E: begun anew"; exit 1; }
touch "$ROOM/interrupted"
exec sleep 4711
"""


def test_a_static_build_that_is_killed_while_it_fetches_can_be_called_again(room, monkeypatch):
    stand_in(room, "apt-get", HANGING)
    kill_and_call_again(room, monkeypatch)


def test_a_static_build_that_is_killed_while_it_builds_can_be_called_again(room, monkeypatch):
    for path in ("libjsoncpp/include/json/config.h", "libjsoncpp/src/lib_json/json_value.cpp", "curl/CMakeLists.txt"):
        (room / "static" / "sources" / path).parent.mkdir(parents=True)
        (room / "static" / "sources" / path).touch()
    stand_in(room, "cmake", "true")
    stand_in(room, "ninja", HANGING)
    kill_and_call_again(room, monkeypatch)


def kill_and_call_again(room: pathlib.Path, monkeypatch) -> None:
    monkeypatch.setenv("ROOM", str(room))
    process = static(room)
    eventually((room / "interrupted").exists)
    process.kill()
    process.communicate(timeout=60)
    assert "E: begun anew" in complaint(static(room), 1)


DECOYS = ("I: Unpacking libgpg-error0:amd64...", "-- Looking for strerror_r", "[1/2] Building C object strerror.c.o",
          "\tdh_installinit --name=tunnel_mngr --error-handler=true", "sh: line 1: unit_tests: Exec format error")


@pytest.mark.parametrize("said, last", [
    (["all is well", "last words", ""], "last words"),
    ([*DECOYS, "mount: /cross: permission denied."], "mount: /cross: permission denied."),
    *[([told, *DECOYS, "more"], told) for told in (
        "CMake Error: no such compiler", "CMake Error at CMakeLists.txt:3 (project):", "E: Unable to fetch archives",
        "a.cpp:3:5: error: expected a declaration", "Error: npm could not fetch it", "FAILED: tests/unit_tests",
        "[  FAILED  ] Text.IsJoined (0 ms)", "dpkg-buildpackage: error: debian/rules binary ended with status 2")]])
def test_what_failed_is_told_whatever_its_words_are(room, said, last):
    (room / "said").write_text("\n".join([*said, ""]))
    script = f"source scripts/lib/narration.sh; narrate it {room}/log; begin Trying; cat {room}/said; false"
    err = complaint(start(room, "bash", "-euo", "pipefail", "-c", script), 1)
    assert err == f"it: failed at: Trying: {last}; all of it is in {room}/log\n"


def test_what_is_begun_is_added_to_a_file(room):
    begun = "source scripts/lib/narration.sh; echo Before; narrate it $0/log; begin Trying; begin Succeeding"
    with open(room / "out", "w", encoding="utf-8") as out:
        subprocess.run(["bash", "-euo", "pipefail", "-c", begun, room], cwd=room / "top", check=True, stdout=out)
    assert (room / "out").read_text().split() == ["Before", "Trying", "Succeeding"]
    assert (room / "log").read_text().split() == ["Trying", "Succeeding"]
