"""Runs a command with a root directory that is a mount point, and with /proc: own_root.py COMMAND [ARGUMENT...].

In a chroot "/" is no mount point, and the mount that holds it is out of reach, so that no process there can make the
mounts of a new namespace private. This process steps out of the chroot, mounts the chroot's directory on itself, and
steps in again. It must have a mount namespace of its own already (unshare(1)), with which all of this ends."""

import ctypes
import os
import sys

MS_BIND, MS_REC, MS_PRIVATE = 4096, 16384, 1 << 18  # <sys/mount.h>

libc = ctypes.CDLL(None, use_errno=True)


def mount(source: str, target: str, kind: str | None, flags: int) -> None:
    texts = [None if text is None else os.fsencode(text) for text in (source, target, kind)]
    if libc.mount(*texts, ctypes.c_ulong(flags), None) != 0:
        raise OSError(ctypes.get_errno(), f"cannot mount {target}: {os.strerror(ctypes.get_errno())}")


def step_out() -> str:
    """Leaves the chroot; returns the path of its directory."""
    directory = os.open("/", os.O_DIRECTORY)
    os.chroot("/etc")  # any directory below: the one that is open then lies outside, and so do all above it
    os.fchdir(directory)
    while not os.path.samefile(".", ".."):
        os.chdir("..")
    os.chroot(".")
    os.fchdir(directory)
    os.close(directory)
    return os.getcwd()


def main() -> None:
    folder = os.getcwd()
    root = step_out()
    mount("none", "/", None, MS_REC | MS_PRIVATE)
    mount(root, root, None, MS_REC | MS_BIND)
    os.chroot(root)
    os.chdir(folder)
    if not os.path.exists("/proc/self"):
        mount("proc", "/proc", "proc", 0)
    os.execvp(sys.argv[1], sys.argv[1:])


if __name__ == "__main__":
    main()
