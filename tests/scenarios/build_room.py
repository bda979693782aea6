"""A room for scripts that build: programs that take the place of Debian's fail in the ways that those can."""

import os
import pathlib
import shutil
import subprocess
import time
from collections.abc import Callable, Iterator

TOP = pathlib.Path(__file__).parents[2]
NOBODY = 65534

# In place of debootstrap: hangs in the middle of its work, and complains when it finds what it has left.
HALF = """
root="${@: -1}"
[[ ! -e $root ]] || { echo "E: $root is there already"; exit 1; }
[[ ! -e $ROOM/interrupted ]] || { echo "E: begun anew"; exit 1; }
mkdir -p "$root/proc"
mount -t proc proc "$root/proc"
touch "$ROOM/interrupted"
exec sleep 4711
"""


def made(room: pathlib.Path) -> Iterator[pathlib.Path]:
    """The folder of that name with bin, which is first on the path, and top, a copy of the scripts. These work in the
    folder above their own, which is to hold no more afterwards than it did before. All packages seem to be installed."""
    (room / "bin").mkdir()
    stand_in(room, "dpkg-query", "echo installed")
    shutil.copytree(TOP / "scripts", room / "top" / "scripts")
    yield room
    assert os.listdir(room / "top") == ["scripts"]


def stand_in(room: pathlib.Path, name: str, script: str) -> None:
    (room / "bin" / name).write_text(f"#!/bin/bash\n{script}\n")
    (room / "bin" / name).chmod(0o755)


def start(room: pathlib.Path, *arguments: str, top: pathlib.Path = TOP, **options) -> subprocess.Popen:
    environment = os.environ | {"PATH": f"{room}/bin:{os.environ['PATH']}"}
    return subprocess.Popen(arguments, cwd=top, env=environment, text=True, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)


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
