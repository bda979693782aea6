"""Outside: compiles standin.c once, into a cache."""

import functools
import hashlib
import os
import pathlib
import subprocess
import tempfile

SOURCE = pathlib.Path(__file__).with_name("standin.c")
# Static, so that it starts fast and needs no library; where the system has no static libc, the second line does.
COMPILERS = (("cc", "-std=gnu11", "-O2", "-static"), ("cc", "-std=gnu11", "-O2"))


@functools.cache
def stand_in_path() -> str:
    """The compiled standin.c, its name derived from the source, so that a change is compiled anew."""
    digest = hashlib.sha256(SOURCE.read_bytes() + repr(COMPILERS).encode()).hexdigest()[:16]
    target = _cache_folder() / f"standin-{digest}"
    if not target.exists():
        _compile(target)
    return str(target)


def _cache_folder() -> pathlib.Path:
    folder = SOURCE.parents[1] / ".cache" / "sandbox"
    try:
        folder.mkdir(parents=True, exist_ok=True)
        if os.access(folder, os.W_OK):
            return folder
    except OSError:
        pass  # a read-only checkout
    folder = pathlib.Path(tempfile.gettempdir()) / f"sandbox-{os.getuid()}"
    folder.mkdir(mode=0o700, exist_ok=True)
    return folder


def _compile(target: pathlib.Path) -> None:
    fresh = target.with_suffix(f".{os.getpid()}")  # several test processes may be here at once; the last rename stays
    for compiler in COMPILERS:
        result = subprocess.run([*compiler, "-o", fresh, SOURCE], capture_output=True, text=True)
        if result.returncode == 0:
            os.rename(fresh, target)
            return
    raise RuntimeError(f"cannot compile {SOURCE}:\n{result.stderr}")
