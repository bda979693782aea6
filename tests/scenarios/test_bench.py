"""What the benchmarks compare the program with does what the program does, and what is timed is what it says."""

import pathlib
import subprocess
import sys

import pytest

import checking

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))

from bench import companion as companion_bench  # noqa: E402  the package lies beside this folder
from bench import rebuild  # noqa: E402
from bench.room import Failed  # noqa: E402

PROGRAMS = pathlib.Path(companion_bench.__file__).with_name("programs")


def test_the_script_makes_the_same_requests_commands_and_files(program):
    rebuild.check_example(pathlib.Path(program))


@pytest.fixture
def programs(tmp_path) -> pathlib.Path:
    """Those of the benchmarks' programs that time a command and stand in for the others."""
    for name, sources in {"stopwatch": ["stopwatch.c", "watch.c"], "command": ["command.c"]}.items():
        subprocess.run(["cc", "-std=gnu11", "-o", tmp_path / name, *(PROGRAMS / source for source in sources)], check=True)
    return tmp_path


@pytest.fixture
def companion(program) -> pathlib.Path:
    return pathlib.Path(checking.companion(program)).resolve()


def test_the_companion_is_measured_telling_what_is_there(program, companion, programs):
    """Few tunnels and one round: the figures mean nothing, but each command must have done what it is timed for."""
    section = companion_bench.measure(companion, pathlib.Path(program).resolve(), programs, planned=2, checked=4, shown=(1, 6), rounds=1)
    assert all(seconds > 0 for found in (section.data["plan"], section.data["check"], *section.data["status"].values())
               for seconds in (*found["own"], *found["other"]))
    assert section.data["status"][1]["programs"] == section.data["status"][6]["programs"] >= 3
    assert len(section.goals) == 3 and "status, 6 tunnels" in section.text()


def test_the_companion_is_not_measured_when_a_tunnel_is_missing(program, companion, programs, monkeypatch):
    monkeypatch.setattr(companion_bench, "_devices", lambda configuration: [])
    with pytest.raises(Failed, match="of 1 tunnels these are told of: .*down"):
        companion_bench.measure(companion, pathlib.Path(program).resolve(), programs, planned=1, checked=2, shown=(1,), rounds=1)
