"""A virtual machine that runs one command on Debian's kernel and on this machine's own files.

QEMU emulates the processor, so that it works where nested virtualisation does not, and on any x86-64 Linux, with no
privilege. The host's root file system is the machine's own, read-only, with a tmpfs laid over it: the command finds all
programs, and whatever it writes is gone with the machine, but for what goes to one serial line. There is no network.

Every file that is opened costs the machine several questions to the host. Files that are opened often are therefore
laid into the tmpfs beforehand."""

import contextlib
import os
import pathlib
import re
import shlex
import shutil
import stat
import subprocess
import sys
import termios
from collections.abc import Iterable

from lab import cpio, kernel
from sandbox import namespaces

MEMORY = "1024M"
RESULTS = pathlib.Path("/dev/ttyS2")  # in the machine
# Without the last one the kernel tests its timer at boot, and on a busy machine takes one that comes late for broken.
KERNEL_OPTIONS = "console=ttyS1 quiet panic=-1 mitigations=off norandmaps random.trust_cpu=on no_timer_check"
FIRST_STEPS = """#!/busybox sh
/busybox mount -t proc proc /proc
/busybox mount -t devtmpfs dev /dev
for module in {modules}; do /busybox insmod /modules/$module || exec /busybox poweroff -f; done
/busybox mount -t 9p -o ro,trans=virtio,cache=loose,msize=512000 host /host || exec /busybox poweroff -f
/busybox mount -t tmpfs -o mode=755 changes /changes
/busybox mkdir /changes/work
/busybox cp -a /resident /changes/upper
/busybox mount -t overlay -o lowerdir=/host,upperdir=/changes/upper,workdir=/changes/work root /root
/busybox mount --move /proc /root/proc
/busybox mount --move /dev /root/dev
/busybox mount -t sysfs sys /root/sys
/busybox mount -t tmpfs -o mode=755 run /root/run
/busybox mkdir -p /root/dev/pts /root/dev/shm
/busybox mount -t devpts -o mode=620,ptmxmode=666 pts /root/dev/pts
/busybox mount -t tmpfs -o mode=1777 shm /root/dev/shm
/busybox mkdir /root/run/machine
/busybox cp /busybox /command /last-steps /root/run/machine
/busybox mkdir -p /root/lib/modules
exec /busybox switch_root /root /run/machine/busybox sh /run/machine/last-steps
"""
# Modules that the kernel asks for by name are found through /lib/modules, as on an installed system.
LAST_STEPS = """
box=/run/machine/busybox
$box ln -sfn {modules} /lib/modules/{release}
/sbin/modprobe tun  # nothing opens /dev/net/tun before it is there
$box hostname lab
for file in hosts nsswitch.conf resolv.conf; do [ -L /etc/$file ] || $box touch /etc/$file; done
exec 3<>/dev/ttyS0  # a terminal that nobody has open forgets its size
$box stty -onlcr cols {columns} rows {lines} <&3
$box setsid -c /bin/sh /run/machine/command <&3 >&3 2>&3 3>&-
echo "status $?" >/dev/ttyS1
$box poweroff -f
"""


class Failed(Exception):
    """The machine did not get as far as the command, or the command did not end; the text says what is known."""


def run(command: list[str], folder: str, environment: dict[str, str], resident: Iterable[str],
        scratch: pathlib.Path, results: pathlib.Path, seconds: float | None) -> int:
    """Runs a command in a machine of its own and returns its exit status.

    `folder` is where the command starts; `resident` are paths of files that it opens often; `scratch` is for the
    machine's own files. What the command prints goes to the standard output, and what it writes to RESULTS goes to the
    file `results`. Only without `seconds` may it read from the terminal; with them it must end in that time. Raises
    Failed if it does not, and kernel.Unavailable where there is no kernel to be had."""
    guest = kernel.fetch()
    archive, console = scratch / "initramfs", scratch / "console"
    words = ["env", *(f"{key}={value}" for key, value in environment.items()), *command]
    script = f"cd {shlex.quote(folder)} && exec {shlex.join(words)}\n"
    archive.write_bytes(_initramfs(guest, script, resident))
    end = _boot(_arguments(guest, archive, console, results), seconds)
    said = console.read_text(errors="replace") if console.exists() else ""
    if found := re.search(r"^status (\d+)", said, re.MULTILINE):
        return int(found[1])
    raise Failed(f"the virtual machine {end} before the command had ended; {said}")


def _arguments(guest: kernel.Kernel, archive: pathlib.Path, console: pathlib.Path, results: pathlib.Path) -> list[str]:
    program = shutil.which("qemu-system-x86_64")
    if not program:
        raise kernel.Unavailable("there is no program qemu-system-x86_64 here")
    processors = max(1, min(2, len(os.sched_getaffinity(0))))
    return [program, "-machine", "q35,accel=tcg", "-cpu", "max", "-smp", f"{processors}", "-m", MEMORY,
            "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot",
            "-kernel", str(guest.image), "-initrd", str(archive),
            "-append", KERNEL_OPTIONS,
            "-fsdev", "local,id=root,path=/,security_model=none,readonly=on,multidevs=remap",
            "-device", "virtio-9p-pci,fsdev=root,mount_tag=host",
            "-chardev", "stdio,id=terminal,signal=off", "-serial", "chardev:terminal", "-serial", f"file:{console}",
            "-serial", f"file:{results}"]


def _boot(arguments: list[str], seconds: float | None) -> str:
    """Runs the machine to its end and says what that was. The terminal is left as it was found. The keys typed there
    are for the command if it may take its time, else they are not for the machine: Ctrl-C ends this process."""
    terminal = _terminal() if seconds is None else None
    settings = termios.tcgetattr(terminal) if terminal is not None else None
    machine = subprocess.Popen(arguments, stdin=None if terminal is not None else subprocess.DEVNULL,
                               start_new_session=terminal is None, preexec_fn=namespaces.die_with_parent)
    try:
        return f"ended (with status {machine.wait(seconds)})"
    except subprocess.TimeoutExpired:
        return f"was stopped after {seconds:.0f} s,"
    finally:
        machine.kill()
        machine.wait()
        if settings is not None:
            termios.tcsetattr(terminal, termios.TCSANOW, settings)


def _terminal() -> int | None:
    """The descriptor of the terminal, if there is one that this process may read from, not being in the background."""
    with contextlib.suppress(OSError, ValueError):
        if os.tcgetpgrp(sys.stdin.fileno()) == os.getpgrp():
            return sys.stdin.fileno()
    return None


def _initramfs(guest: kernel.Kernel, command: str, resident: Iterable[str]) -> bytes:
    """The archive that the kernel unpacks as its first root: what it takes to mount the real one."""
    box = shutil.which("busybox")
    if not box:
        raise kernel.Unavailable("there is no program busybox here")
    modules = {file.name.removesuffix(".xz"): kernel.module_contents(file)
               for file in guest.module_files(*kernel.ROOT_MODULES)}
    size = shutil.get_terminal_size()
    first = FIRST_STEPS.format(modules=" ".join(modules))
    last = LAST_STEPS.format(modules=shlex.quote(str(guest.modules)), release=guest.release, columns=size.columns,
                             lines=size.lines)
    files = {"busybox": pathlib.Path(box).read_bytes(), "init": first.encode(), "last-steps": last.encode(),
             "command": command.encode(), **{f"modules/{name}": contents for name, contents in modules.items()}}
    folders = ("proc", "dev", "host", "changes", "root", "modules", "resident")
    entries = [(name, stat.S_IFDIR | 0o755, b"") for name in folders]
    entries += [(name, stat.S_IFREG | 0o755, contents) for name, contents in files.items()]
    entries += _resident_entries(resident)
    return cpio.archive(entries)


def _resident_entries(paths: Iterable[str]) -> list[tuple[str, int, bytes]]:
    """Where the paths lead, with the folders above, each as it is on this machine."""
    files = {pathlib.Path(path).resolve() for path in paths}
    folders = {folder for file in files for folder in file.parents[:-1]}
    return [(f"resident{path}", path.stat().st_mode, path.read_bytes() if path in files else b"")
            for path in sorted(files | folders)]
