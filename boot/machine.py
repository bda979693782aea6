"""The virtual machine: QEMU with Debian's kernel, a disk that forgets, and systemd as its first process.

The processor is emulated, as the lab's is, so that it works inside other virtual machines, and with no privilege. What
is written to the disk outlives a reboot and is gone with the machine. There is no network. The first serial line is the
console; on the second, boot/agent.py in the machine does what it is told from here."""

import os
import pathlib
import shutil
import socket
import stat
import subprocess
import time
from collections.abc import Iterable
from typing import NamedTuple

from lab import cpio, kernel
from sandbox import namespaces
from sandbox.control import Channel

MEMORY = "1024M"
START_SECONDS = 600  # until the machine answers, on two slow processors that are shared with others
COMMAND_SECONDS = 300
# What is laid into the first root file system goes over the disk's files, at every start.
FIRST_STEPS = """#!/busybox sh
/busybox mount -t devtmpfs dev /dev
for module in {modules}; do /busybox insmod /modules/$module || exec /busybox poweroff -f; done
/busybox mount -t ext4 /dev/vda /root || exec /busybox poweroff -f
/busybox cp -a /laid/. /root/
/busybox umount /dev
exec /busybox switch_root /root /lib/systemd/systemd
"""
KERNEL_ARGUMENTS = ("console=ttyS0 quiet panic=-1 mitigations=off norandmaps random.trust_cpu=on "
                    "systemd.getty_auto=no systemd.show_status=no")


class Failed(Exception):
    """The machine does not do what it must; the text says what is known."""


class Result(NamedTuple):
    """Of a command."""

    status: int
    output: str
    errors: str


class Machine:
    """It starts with the object and ends with `close`, or with this process. `laid` are files that lie over
    those of the disk: path, mode with the kind of file, contents."""

    def __init__(self, guest: kernel.Kernel, disk: pathlib.Path, laid: Iterable[tuple[str, int, bytes]],
                 scratch: pathlib.Path):
        self._console = scratch / "console"
        archive, line = scratch / "initramfs", scratch / "line"
        archive.write_bytes(_initramfs(guest, laid))
        with open(scratch / "qemu", "w") as said:  # that it waits for the connection
            self._qemu = subprocess.Popen(_arguments(guest, disk, archive, self._console, line),
                                          stdin=subprocess.DEVNULL, stdout=said, stderr=said, start_new_session=True,
                                          preexec_fn=namespaces.die_with_parent)
        try:
            self._socket = self._connect(line)
            self._channel = Channel(self._socket)
            self._await_agent()
        except BaseException:
            self.close()
            raise

    def close(self) -> None:
        self._qemu.kill()
        self._qemu.wait()

    def attempt(self, command: str, seconds: float = COMMAND_SECONDS) -> Result:
        """Runs a shell command; it must end in that time."""
        answer = self._ask({"run": command}, seconds)
        return Result(answer["status"], answer["output"], answer["errors"])

    def run(self, command: str, seconds: float = COMMAND_SECONDS) -> str:
        """The same of a command that must succeed; returns what it writes to its standard output."""
        result = self.attempt(command, seconds)
        if result.status != 0:
            raise Failed(f"{command} left with {result.status}: {(result.errors or result.output).strip()}")
        return result.output

    def write(self, path: str, text: str) -> None:
        self._ask({"write": path, "text": text}, COMMAND_SECONDS)

    def read(self, path: str) -> str | None:
        """The content of a file, if it is there."""
        return self._ask({"read": path}, COMMAND_SECONDS)["text"]

    def names(self, folder: str) -> list[str]:
        """What is in a folder."""
        return self._ask({"list": folder}, COMMAND_SECONDS)["names"]

    def processes(self) -> list[tuple[int, int, str, list[str]]]:
        """Of each its id, its parent's, its control group and its arguments."""
        return [tuple(process) for process in self._ask({"processes": True}, COMMAND_SECONDS)["processes"]]

    def reboot(self) -> None:
        """In the orderly way; returns when the machine answers again."""
        self._channel.send({"run": "systemctl reboot"})
        self._await_agent()

    def _await_agent(self) -> None:
        """Until it says that it is ready. What it answers to before is of no interest."""
        deadline = time.monotonic() + START_SECONDS
        while "ready" not in self._receive(deadline - time.monotonic()):
            pass

    def _ask(self, request: dict, seconds: float) -> dict:
        self._channel.send(request)
        answer = self._receive(seconds)
        if "error" in answer:
            raise Failed(answer["error"])
        return answer

    def _receive(self, seconds: float) -> dict:
        self._socket.settimeout(max(seconds, 0.1))
        message = self._channel.receive()
        if message is None:
            raise Failed(f"the virtual machine gave no answer; its console: {self._said()}")
        return message

    def _connect(self, line: pathlib.Path) -> socket.socket:
        """To the line, which QEMU makes before the machine starts."""
        connection = socket.socket(socket.AF_UNIX)
        deadline = time.monotonic() + START_SECONDS
        while True:
            try:
                connection.connect(str(line))
                return connection
            except OSError:
                if self._qemu.poll() is not None or time.monotonic() > deadline:
                    raise Failed(f"QEMU does not start: {line.with_name('qemu').read_text().strip()}") from None
                time.sleep(0.05)

    def _said(self) -> str:
        return self._console.read_text(errors="replace")[-2000:] if self._console.exists() else ""


def _arguments(guest: kernel.Kernel, disk: pathlib.Path, archive: pathlib.Path, console: pathlib.Path,
               line: pathlib.Path) -> list[str]:
    program = shutil.which("qemu-system-x86_64")
    if not program:
        raise kernel.Unavailable("there is no program qemu-system-x86_64 here")
    processors = max(1, min(2, len(os.sched_getaffinity(0))))
    return [program, "-machine", "q35,accel=tcg", "-cpu", "max", "-smp", f"{processors}", "-m", MEMORY,
            "-nodefaults", "-no-user-config", "-display", "none",
            "-kernel", str(guest.image), "-initrd", str(archive), "-append", KERNEL_ARGUMENTS,
            "-drive", f"file={disk},format=raw,if=virtio,snapshot=on",
            "-chardev", f"socket,id=line,path={line},server=on,wait=on",
            "-serial", f"file:{console}", "-serial", "chardev:line"]


def _initramfs(guest: kernel.Kernel, laid: Iterable[tuple[str, int, bytes]]) -> bytes:
    """The archive that the kernel unpacks as its first root: what it takes to mount the disk."""
    box = shutil.which("busybox")
    if not box:
        raise kernel.Unavailable("there is no program busybox here")
    modules = {file.name.removesuffix(".xz"): kernel.module_contents(file)
               for file in guest.module_files(*kernel.DISK_MODULES)}
    first = FIRST_STEPS.format(modules=" ".join(modules)).encode()
    files = {"busybox": pathlib.Path(box).read_bytes(), "init": first,
             **{f"modules/{name}": contents for name, contents in modules.items()}}
    return cpio.archive(archive_entries(files, laid))


def archive_entries(programs: dict[str, bytes], laid: Iterable[tuple[str, int, bytes]]) -> list[tuple[str, int, bytes]]:
    """What is in the archive, each below its folder: programs by name, and files that lie over the disk's."""
    files = [(name, stat.S_IFREG | 0o755, contents) for name, contents in programs.items()]
    files += [(f"laid{path}", mode, contents) for path, mode, contents in laid]
    folders = {str(folder) for name, _, _ in files for folder in pathlib.PurePath(name).parents} - {"."}
    return [(name, stat.S_IFDIR | 0o755, b"") for name in sorted(folders | {"dev", "root"})] + files
