"""Outside: compiles standin.c and hurry.c once each, into a cache."""

import functools
import hashlib
import os
import pathlib
import subprocess
import tempfile

HERE = pathlib.Path(__file__).parent
# Static, so that it starts fast and needs no library; where the system has no static libc, the second line does.
STAND_IN = (("cc", "-std=gnu11", "-O2", "-static"), ("cc", "-std=gnu11", "-O2"))
PRELOADED = (("cc", "-std=gnu11", "-O2", "-shared", "-fPIC"),)


@functools.cache
def stand_in_path() -> str:
    return _compiled("standin", STAND_IN)


def hurried(factor: int) -> dict[str, str]:
    """The environment of a program for which the clocks go so many times as fast (hurry.c). The address sanitizer
    insists on being loaded first, which it need not be: what is preloaded allocates nothing."""
    options = os.environ.get("ASAN_OPTIONS", "")
    return {"LD_PRELOAD": _compiled("hurry", PRELOADED), "SANDBOX_HURRY": str(factor),
            "ASAN_OPTIONS": f"{options}:verify_asan_link_order=0"}


@functools.cache
def _compiled(name: str, compilers: tuple) -> str:
    """The compiled source, its name derived from that, so that a change is compiled anew."""
    source = HERE / f"{name}.c"
    digest = hashlib.sha256(source.read_bytes() + repr(compilers).encode()).hexdigest()[:16]
    target = _cache_folder() / f"{name}-{digest}"
    if not target.exists():
        _compile(source, target, compilers)
    return str(target)


def _cache_folder() -> pathlib.Path:
    folder = HERE.parent / ".cache" / "sandbox"
    try:
        folder.mkdir(parents=True, exist_ok=True)
        if os.access(folder, os.W_OK):
            return folder
    except OSError:
        pass  # a read-only checkout
    folder = pathlib.Path(tempfile.gettempdir()) / f"sandbox-{os.getuid()}"
    folder.mkdir(mode=0o700, exist_ok=True)
    return folder


def _compile(source: pathlib.Path, target: pathlib.Path, compilers: tuple) -> None:
    fresh = target.with_suffix(f".{os.getpid()}")  # several test processes may be here at once; the last rename stays
    for compiler in compilers:
        result = subprocess.run([*compiler, "-o", fresh, source], capture_output=True, text=True)
        if result.returncode == 0:
            os.rename(fresh, target)
            return
    raise RuntimeError(f"cannot compile {source}:\n{result.stderr}")
