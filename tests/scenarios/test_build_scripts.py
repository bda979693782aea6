"""The scripts that build where something is missing: one sentence, nothing left behind, and the next call works.
test_build_roots.py has those that make a root for it."""

import pathlib
import shutil
import subprocess
from collections.abc import Iterator

import pytest

import build_room
from build_room import NOBODY, TOP, complaint, eventually, stand_in, start


@pytest.fixture
def room(tmp_path) -> Iterator[pathlib.Path]:
    yield from build_room.made(tmp_path)


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
