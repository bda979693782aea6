"""What the stories about init systems share: routers with the program and its scripts installed below /usr, as a
package has them, beside Debian's own init systems and supervisors; and ways to see what becomes of the daemon there."""

import fcntl
import pathlib
import re
import shutil
import signal
import subprocess

import pytest

from daemon_stories import MONITORS_START, PID_FILE, RUN_BEGINS, SEMAPHORE, documents, gre, wait_until_idle
from openvpn_records import tunnel
from sandbox.process import Process
from sandbox.router import Router

ROOT = pathlib.Path(__file__).parents[2]
PACKAGING = ROOT / "packaging"
PACKAGES = ROOT / "build" / "init-systems"
DAEMON = ["/usr/sbin/tunnel_mngr", "--daemonize", "--printlvl", "50"]
SHELL = ["/bin/sh"]
FOREGROUND = "/usr/libexec/tunnel_mngr-foreground"
NO_SHARED_MEMORY = "tunnel_mngr: cannot start: there is no /dev/shm that can be written to. Mount a tmpfs there.\n"
ENDED = "tunnel_mngr: the daemon has ended by itself.\n"
DIRECTORIES = {"": 0o755, "/cacerts": 0o700, "/certs": 0o700, "/private": 0o700}
STAND_INS = ("ip", "ipsec", "firewall", "ping")  # openvpn is the real one
NOBODY = 65534
# Passes for an instance: it has this name, and maps a semaphore as both C libraries do, by another name that is removed
# when the semaphore is made. Where it is only asked for, which fails, that name is still there. Then it runs a command.
INSTANCE = """
import ctypes, mmap, os, subprocess, sys
name, semaphore, end, *command = sys.argv[1:]
ctypes.CDLL(None).prctl(15, name.encode(), 0, 0, 0)
descriptor = os.open(semaphore + ".new", os.O_CREAT | os.O_RDWR)
os.truncate(descriptor, 32)
mapped = mmap.mmap(descriptor, 32)
os.close(descriptor)
if end == "made":
    os.link(semaphore + ".new", semaphore)
    os.unlink(semaphore + ".new")
print(end, flush=True)
subprocess.run(command)
"""
# Its openvpn becomes another user's, and so the kernel does not tell it that the daemon has ended.
DOCUMENTS = documents(gre("one"), ovpnTunnels=[tunnel("vpn", "dev null\nlport 1195\nuser nobody\n")])


# ---- what is installed ----

def unpacked(package: str) -> pathlib.Path:
    """The folder with a Debian package's files. Init systems exclude each other, so it is not installed."""
    folder = PACKAGES / package
    PACKAGES.mkdir(parents=True, exist_ok=True)
    with open(PACKAGES / f"{package}.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not folder.exists():
            _download(package, folder)
    return folder


def _download(package: str, folder: pathlib.Path) -> None:
    new = folder.with_name(f"{package}.new")
    shutil.rmtree(new, ignore_errors=True)
    new.mkdir()
    options = ["-q", "-o", "APT::Sandbox::User=root", "-o", "Acquire::Retries=1"]
    done = subprocess.run(["apt-get", *options, "download", package], cwd=new, capture_output=True, text=True)
    if done.returncode != 0:
        pytest.skip(f"Debian's package {package} cannot be downloaded: {done.stderr.strip()}")
    [archive] = new.glob("*.deb")
    subprocess.run(["dpkg-deb", "--extract", archive, new], check=True)
    archive.unlink()
    new.rename(folder)


def configured(text: str) -> str:
    """As CMake configures a file of packaging/ for a package."""
    values = {"SBINDIR": "/usr/sbin", "LIBEXECDIR": "/usr/libexec"}
    for name, value in values.items():
        text = text.replace(f"@CMAKE_INSTALL_FULL_{name}@", value)
    text = text.replace("@CMAKE_INSTALL_PREFIX@", "/usr")
    assert "@CMAKE" not in text
    return text


def _write(path: pathlib.Path, text: str) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(0o755)


def _install(root: pathlib.Path, program: str) -> None:
    for name in ("tunnel_mngr-foreground", "tunnel_mngr-functions"):
        _write(root / "usr/libexec" / name, configured((PACKAGING / f"{name}.in").read_text()))
    _write(root / "usr/lib/tmpfiles.d/tunnel_mngr.conf", (PACKAGING / "tunnel_mngr.conf").read_text())
    (root / "etc").mkdir(exist_ok=True)
    for name in STAND_INS:  # an init system has a search path of its own
        _write(root / "usr/sbin" / name, f'#!/bin/sh\nexec /run/sandbox/bin/{name} "$@"\n')
    shutil.copy(program, root / "usr/sbin/tunnel_mngr")


def _add_package(root: pathlib.Path, package: str) -> None:
    for top in unpacked(package).iterdir():
        target = root / (top.name if top.name in ("etc", "usr") else f"usr/{top.name}")
        shutil.copytree(top, target, symlinks=True, dirs_exist_ok=True)


class House:
    """A router with all that installed. Files in `files` (path below the root: text) come on top."""

    def __init__(self, router: Router, program: str, root: pathlib.Path, packages: tuple[str, ...] = (),
                 files: dict[str, str] | None = None):
        self.router = router
        self.view = ""  # where the root is that the daemon sees
        for package in packages:
            _add_package(root, package)
        _install(root, program)
        for path, text in (files or {}).items():
            _write(root / path, text)
        for top in ("usr", "etc"):
            work = f"/run/over/{top}"
            for name in ("changes", "work"):
                router.make_folder(f"{work}/{name}")
            layers = f"lowerdir={root}/{top}:/{top},upperdir={work}/changes,workdir={work}/work"
            done = router.exec(["mount", "-t", "overlay", "-o", layers, "overlay", f"/{top}"])
            if "unknown filesystem type" in done.stderr:
                pytest.skip("this kernel has no overlay file system, which shows the scripts at their places")
            assert done.status == 0, done.stderr

    def do(self, argv: list[str], status: int = 0, timeout: float = 20):
        done = self.router.exec(argv, timeout=timeout)
        assert done.status == status, (argv, done.status, done.stdout, done.stderr)
        return done

    def boot(self, *argv: str) -> Process:
        """Starts this as the first process of process and mount namespaces of its own; returns it as the router sees
        it."""
        machine = self.router.spawn(["unshare", "--pid", "--fork", "--kill-child", "--mount-proc", *argv])
        [first] = self.router.wait_until(machine.children, "the first process")
        self.view = f"/proc/{first}/root"
        return self.router.process(first)

    def imitate(self, *command: str, name: str = "tunnel_mngr", semaphore: str = SEMAPHORE, end: str = "made",
                before: tuple[str, ...] = ()) -> Process:
        """A process that passes for an instance; returns when it has its semaphore."""
        process = self.router.spawn([*before, "/usr/bin/python3", "-c", INSTANCE, name, semaphore, end, *command])
        self.router.wait_until(lambda: process.stdout == f"{end}\n", "the semaphore")
        return process

    def with_number(self, number: int, *argv: str) -> Process | None:
        """Starts a process and has the kernel go on counting processes from there; None where somebody was quicker."""
        self.router.write_file("/proc/sys/kernel/ns_last_pid", str(number - 1))
        process = self.router.spawn([*argv])
        return process if process.pid == number else None

    def leave_remains(self, number: int | str) -> None:
        """As a daemon that was killed leaves them."""
        self.router.write_file(SEMAPHORE, "")
        self.router.write_file(PID_FILE, f"{number}\n")

    def take_shared_memory_away(self) -> None:
        self.do(["umount", "/dev/shm"])
        self.do(["rmdir", "/dev/shm"])

    # ---- what runs ----

    def processes(self, *beginning: str) -> list[Process]:
        """The processes whose command lines begin so, none of them a child of another that has not become a program of
        its own yet."""
        numbers = [int(name) for name in self.router.list_folder("/proc") if name.isdigit()]
        facts = {number: facts for number in numbers if (facts := self.router.process(number).facts())}
        found = {number: known for number, known in facts.items()
                 if tuple(known["argv"][:len(beginning)]) == beginning and known["state"] not in "ZX"}
        return [self.router.process(number) for number, known in found.items() if known["parent"] not in found]

    def scripts(self) -> list[Process]:
        """Those of tunnel_mngr-foreground."""
        return [*self.processes("/bin/sh", FOREGROUND), *self.processes("sh", FOREGROUND),
                *self.processes("busybox", "sh", FOREGROUND)]

    def daemons(self) -> list[Process]:
        return self.processes(*DAEMON)

    def daemon(self) -> Process:
        """The one daemon, which has said its number where it must."""
        [daemon] = self.daemons()
        assert self.router.read_file(PID_FILE).strip() and self.router.exists(self.view + SEMAPHORE)
        return daemon

    def runs(self, since: int = 0) -> int:
        return len(self.router.find("log", RUN_BEGINS, since=since))

    def wait_for_run(self, since: int) -> Process:
        """Waits for the end of a run, and until the one openvpn has forgotten its parent; returns the daemon that has
        made it."""
        self.router.wait_for("log", MONITORS_START, since=since, timeout=30)
        daemon = self.daemon()
        self.router.wait_until(lambda: self.openvpns() == [(daemon.pid, NOBODY)], "one openvpn, its child and nobody's")
        return daemon

    def openvpns(self) -> list[tuple[int, int]]:
        """Of each openvpn its parent and its user."""
        texts = [self.router.read_file(f"/proc/{process.pid}/status") or "" for process in self.processes("openvpn")]
        found = [re.findall(r"^(?:PPid|Uid):\t(\d+)", text, re.MULTILINE) for text in texts]
        return [tuple(map(int, numbers)) for numbers in found]

    def wait_for_end(self, process: Process) -> None:
        self.router.wait_until(lambda: not process.alive(), f"the end of {process.pid}", timeout=30)

    # ---- tunnel_mngr-foreground by itself ----

    def start(self, shell: list[str] = SHELL, *arguments: str) -> Process:
        return self.router.spawn([*shell, FOREGROUND, *arguments])

    def started(self, shell: list[str] = SHELL) -> tuple[Process, Process]:
        """The script, which waits, and the daemon, whose first run is over."""
        mark = self.router.mark()
        script = self.start(shell)
        daemon = self.wait_for_run(mark)
        self.wait_until_it_waits(script)
        return script, daemon

    def wait_until_it_waits(self, script: Process, looks: int = 1) -> None:
        """Each of its looks is followed by a sleep."""
        seen = set()

        def has_looked() -> bool:
            sleeps = [process.pid for process in self.processes("sleep", "1")]
            seen.update(pid for pid in script.children() if pid in sleeps)
            return len(seen) >= looks

        self.router.wait_until(has_looked, "the script to wait")

    # ---- steps that every init system takes ----

    def assert_prepared(self, daemon: Process) -> None:
        """Asserts on what a daemon needs around it."""
        for name, mode in DIRECTORIES.items():
            assert self.router.stat(f"/run/ipsec{name}")["mode"] & 0o7777 == mode, name
        environment = self.router.read_file(f"/proc/{daemon.pid}/environ").split("\0")
        assert {"LD_BIND_NOW=1", "GLIBC_TUNABLES=glibc.pthread.stack_cache_size=0"} <= set(environment)

    def assert_left_alone(self, daemon: Process, since: int) -> None:
        """Asserts that the same daemon is still the only one, and was not asked for anything for about two seconds: a
        supervisor would have started the program again."""
        wait_until_idle(self.router, daemon, passes=10)
        assert [other.pid for other in self.daemons()] == [daemon.pid]
        assert self.runs(since) == 0
        assert not self.router.find("log", "Signaling to process", since=since)

    def assert_one_run_more(self, ask, daemon: Process) -> None:
        mark = self.router.mark("a refresh is asked for")
        ask()
        assert self.wait_for_run(mark).pid == daemon.pid
        wait_until_idle(self.router, daemon)
        assert self.runs(mark) == 1

    def assert_killed_and_replaced(self, daemon: Process) -> Process:
        """Kills the daemon, which leaves its semaphore and PID file; asserts that the next start is one that works."""
        mark = self.router.mark("the daemon is killed")
        daemon.signal(signal.SIGKILL)
        following = self.wait_for_run(mark)
        assert following.pid != daemon.pid
        assert self.runs(mark) == 1
        assert not self.router.find("log", "Signaling to process", since=mark)
        return following

    def assert_script_replaced(self, daemon: Process) -> None:
        """Kills the script that waits for the daemon; asserts that the next one waits for the same daemon."""
        mark = self.router.mark("the script is killed")
        [script] = self.scripts()
        script.signal(signal.SIGKILL)
        self.router.wait_until(lambda: [s for s in self.scripts() if s.pid != script.pid], "another script", timeout=20)
        self.assert_left_alone(daemon, mark)

    def assert_stopped(self, daemon: Process) -> None:
        self.wait_for_end(daemon)
        self.router.wait_until(lambda: not self.scripts(), "the end of the script", timeout=20)
        assert not self.router.exists(self.view + PID_FILE) and not self.router.exists(self.view + SEMAPHORE)
        self.router.wait_until(lambda: not self.processes("openvpn"), "the end of its openvpn")
