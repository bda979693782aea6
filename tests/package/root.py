"""A Debian system to install packages in.

Its root is laid over one that debootstrap has made once and that stays as it is; it has namespaces of its own, no init
and no network. With the object, all of it is gone, and with this process, however it ends."""

import functools
import hashlib
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

import package
import pytest

from lab import scratch
from sandbox import namespaces

SUITE = "bookworm"
# What is in the cached root beside the package's dependencies. The first makes directories as systemd does.
DOWNLOADED = "systemd-standalone-tmpfiles"
DEADLINE = 60  # seconds
# The shell that remains is the first process of the root, and buries those that nobody else waits for.
FIRST_STEPS = """set -e
mount -t tmpfs tmpfs "$2"
cd "$2"
mkdir upper work root
mount -t overlay -o "lowerdir=$1,upperdir=$2/upper,workdir=$2/work" root root
mount -t proc proc root/proc
mount -t tmpfs -o mode=755 run root/run
mount -t tmpfs -o mode=1777 shm root/dev/shm
exec chroot root sh -c 'echo up; while sleep 1000; do :; done'
"""


def cache() -> pathlib.Path:
    folder = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "tunnel_mngr"
    folder.mkdir(parents=True, exist_ok=True)
    return folder


@functools.cache
def base() -> pathlib.Path:
    """The cached root with all that the package depends on; made when there is none for these dependencies."""
    depends = package.field("Depends")
    digest = hashlib.sha256(f"{SUITE} {package.ARCHITECTURE} {depends} {DOWNLOADED}".encode()).hexdigest()[:16]
    folder = cache() / f"root-{digest}"
    if not folder.exists():
        with scratch.folder("making-root-", cache()) as fresh:
            make(fresh / "root", depends)
            for old in cache().glob("root-*"):
                shutil.rmtree(old)
            (fresh / "root").rename(folder)
    return folder


def make(root: pathlib.Path, depends: str) -> None:
    """Whatever these commands mount lies in a namespace of their own."""
    own = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--"]
    apt = [*own, "chroot", root, "env", "DEBIAN_FRONTEND=noninteractive", "apt-get", "-q"]
    must(*own, "debootstrap", "--variant=minbase", SUITE, root)
    must(*apt, "satisfy", "-y", "--no-install-recommends", depends)
    must(*apt, "clean")
    must(*apt, "-y", "--download-only", "install", DOWNLOADED)


def must(*command: str | os.PathLike) -> None:
    """Without this command there is no root, and no test."""
    result = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                            preexec_fn=namespaces.die_with_parent)
    if result.returncode != 0:
        lines = (result.stdout + result.stderr).strip().splitlines()
        pytest.exit(f"the root for the package cannot be made: {lines[-1] if lines else 'nothing was said'}", 1)


class Root:
    """`with Root() as root:` has it up in the block."""

    def __enter__(self) -> "Root":
        lower = base()
        self._scratch = scratch.folder("root-")
        folder = self._scratch.__enter__()
        own = ["unshare", "--mount", "--net", "--pid", "--ipc", "--uts", "--fork", "--kill-child"]
        self._process = subprocess.Popen([*own, "sh", "-c", FIRST_STEPS, "sh", lower, folder], stdout=subprocess.PIPE,
                                         text=True, preexec_fn=namespaces.die_with_parent)
        assert self._process.stdout.readline() == "up\n"
        number = self._process.pid
        self._first = pathlib.Path(f"/proc/{number}/task/{number}/children").read_text().strip()
        self.path = pathlib.Path(f"/proc/{self._first}/root")
        return self

    def __exit__(self, *_exception) -> None:
        self._process.kill()
        self._process.wait()
        self._scratch.__exit__(None, None, None)

    def call(self, *command: str) -> subprocess.CompletedProcess:
        enter = ["nsenter", f"--target={self._first}", "--mount", "--net", "--pid", "--ipc", "--uts", "--root", "--wd"]
        environment = {"PATH": os.defpath + ":/usr/sbin:/sbin", "DEBIAN_FRONTEND": "noninteractive"}
        # The output goes to a file: a daemon that keeps it open must not be waited for.
        with tempfile.TemporaryFile("w+") as said:
            result = subprocess.run([*enter, *command], stdin=subprocess.DEVNULL, stdout=said, stderr=said,
                                    env=environment)
            said.seek(0)
            return subprocess.CompletedProcess(command, result.returncode, said.read())

    def run(self, *command: str) -> str:
        """What a command that must succeed says."""
        result = self.call(*command)
        assert result.returncode == 0, f"{command}: {result.stdout}"
        return result.stdout

    def install(self, file: pathlib.Path) -> str:
        shutil.copy(file, self.path / "tmp")
        return self.run("dpkg", "--install", f"/tmp/{file.name}")

    def exists(self, path: str) -> bool:
        return os.path.lexists(self.path / path)

    def write(self, path: str, text: str = "") -> None:
        (self.path / path).parent.mkdir(parents=True, exist_ok=True)
        (self.path / path).write_text(text)

    def files(self) -> set[str]:
        """All paths but those of processes and of dpkg's own records."""
        found = self.run("find", "/", "-path", "/proc", "-prune", "-o", "-path", "/var/lib/dpkg", "-prune", "-o",
                         "-path", "/tmp", "-prune", "-o", "-path", "/var/log", "-prune", "-o", "-print")
        return set(found.splitlines())

    def wait_until(self, condition, what: str) -> None:
        end = time.monotonic() + DEADLINE
        while not condition():
            assert time.monotonic() < end, f"not within {DEADLINE} s: {what}"
            time.sleep(0.1)
