"""Inside the router: its private namespaces and the fixed paths in them. Everything here ends with the namespaces."""

import ctypes
import fcntl
import os
import signal
import socket
import stat
import struct

# <sched.h>, <sys/mount.h>, <sys/prctl.h>, netdevice(7)
CLONE_NEWNS, CLONE_NEWUTS, CLONE_NEWIPC = 0x20000, 0x4000000, 0x8000000
CLONE_NEWPID, CLONE_NEWNET = 0x20000000, 0x40000000
MS_NOSUID, MS_BIND, MS_REC, MS_PRIVATE = 2, 4096, 16384, 1 << 18
PR_SET_PDEATHSIG = 1
SIOCGIFFLAGS, SIOCSIFFLAGS, IFF_UP = 0x8913, 0x8914, 1

HOME = "/run/sandbox"
STAND_IN_FOLDER = f"{HOME}/bin"
TOOL_FOLDER = f"{HOME}/tools"
OUTPUT_FOLDER = f"{HOME}/output"
REAL_SHELL = f"{HOME}/sh"

# What a shell command of a test or of the router's program may use besides the stand-ins. No other program is found, so
# that a stand-in that is taken away is truly missing, installed or not on the machine that runs the tests.
TOOLS = ("addr2line", "awk", "basename", "cat", "chmod", "cp", "cut", "date", "dirname", "echo", "env", "false", "grep",
         "head", "id", "kill", "llvm-symbolizer", "ls", "mv", "printf", "ps", "readlink", "sed", "seq", "sh", "sleep",
         "sort", "stat", "tail", "test", "touch", "tr", "true", "uname", "wc", "xargs")

DEVICES = {"null": (1, 3), "zero": (1, 5), "full": (1, 7), "random": (1, 8), "urandom": (1, 9), "tty": (5, 0),
           "net/tun": (10, 200)}
DEVICE_LINKS = {"ptmx": "pts/ptmx", "fd": "/proc/self/fd", "stdin": "fd/0", "stdout": "fd/1", "stderr": "fd/2"}

_libc = ctypes.CDLL(None, use_errno=True)


def _check(result: int, what: str) -> None:
    if result != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"{what}: {os.strerror(error)}")


def _mount(source: str, target: str, kind: str | None, flags: int = 0, options: str | None = None) -> None:
    texts = [None if text is None else os.fsencode(text) for text in (source, target, kind, options)]
    _check(_libc.mount(texts[0], texts[1], texts[2], ctypes.c_ulong(flags), texts[3]), f"mount {target}")


def unshare() -> None:
    """Gives this process namespaces of its own; the pid namespace begins with its next child."""
    _check(_libc.unshare(CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWPID | CLONE_NEWNET), "unshare")


def die_with_parent() -> None:
    """Has the kernel kill this process when the thread that forked it ends."""
    _check(_libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0), "prctl")


def furnish(stand_in: str, resolver_options: str) -> None:
    """Mounts and fills everything private; called as PID 1. `stand_in` is the compiled standin.c on the host."""
    shell = os.path.realpath("/bin/sh")
    fixed = {path: os.path.realpath(path) for path in ("/etc/resolv.conf", "/etc/hosts", "/etc/nsswitch.conf")}
    _mount("none", "/", None, MS_REC | MS_PRIVATE)
    _mount("tmpfs", "/run", "tmpfs", MS_NOSUID, "mode=755")
    for folder in ("/run/api", HOME, STAND_IN_FOLDER, TOOL_FOLDER, OUTPUT_FOLDER, f"{HOME}/etc"):
        os.mkdir(folder)
    _mount("proc", "/proc", "proc")
    _mount("sysfs", "/sys", "sysfs")
    _make_devices()
    socket.sethostname("router")
    _write_network_files(fixed, resolver_options)
    _bind(shell, REAL_SHELL)
    _bind(stand_in, f"{HOME}/standin")
    _mount(stand_in, shell, None, MS_BIND)
    _link_tools()
    _bring_up_loopback()


def _bind(source: str, target: str) -> None:
    open(target, "w").close()
    _mount(source, target, None, MS_BIND)


def _make_devices() -> None:
    _mount("tmpfs", "/dev", "tmpfs", MS_NOSUID, "mode=755")
    for folder in ("net", "pts", "shm"):
        os.mkdir(f"/dev/{folder}")
    mask = os.umask(0)
    for name, (major, minor) in DEVICES.items():
        os.mknod(f"/dev/{name}", 0o666 | stat.S_IFCHR, os.makedev(major, minor))
    os.umask(mask)
    _mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666")
    _mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID, "mode=1777")
    for name, target in DEVICE_LINKS.items():
        os.symlink(target, f"/dev/{name}")


def _write_network_files(fixed: dict[str, str], resolver_options: str) -> None:
    contents = {"/etc/resolv.conf": f"nameserver 127.0.0.1\noptions {resolver_options}\n",
                "/etc/hosts": "127.0.0.1\tlocalhost\n",
                "/etc/nsswitch.conf": "passwd: files\ngroup: files\nhosts: files dns\n"}
    for path, real in fixed.items():
        source = HOME + path
        with open(source, "w") as file:
            file.write(contents[path])
        if real.startswith("/run/"):  # systems whose resolver file is a link to there; the private /run is still empty
            os.makedirs(os.path.dirname(real), exist_ok=True)
        if not os.path.exists(real):  # a mount needs a file to lie over
            open(real, "w").close()
        _mount(source, real, None, MS_BIND)


def _link_tools() -> None:
    for tool in TOOLS:
        for folder in ("/usr/bin", "/bin", "/usr/sbin", "/sbin"):
            if os.path.exists(f"{folder}/{tool}"):
                os.symlink(f"{folder}/{tool}", f"{TOOL_FOLDER}/{tool}")
                break


def _bring_up_loopback() -> None:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        request = struct.pack("16sH14x", b"lo", 0)
        flags = struct.unpack_from("H", fcntl.ioctl(sock, SIOCGIFFLAGS, request), 16)[0]
        fcntl.ioctl(sock, SIOCSIFFLAGS, struct.pack("16sH14x", b"lo", flags | IFF_UP))
