"""The disk of the virtual machine: Debian with systemd and all that a router's tunnels need, made once and kept.

debootstrap(8) fetches and configures it in namespaces of its own, so that nothing stays mounted however it ends, and
mke2fs(8) makes a file system of that folder without mounting anything."""

import contextlib
import os
import pathlib
import shutil
import subprocess
import zlib

from lab import kernel, scratch
from sandbox import namespaces

SUITE = "bookworm"
PACKAGES = ("systemd-sysv", "kmod", "iproute2", "iputils-ping", "python3", "apparmor", "libjsoncpp25", "libcurl4",
            "strongswan-starter", "strongswan-charon", "libstrongswan-standard-plugins", "openvpn")
# What the machine has no use for, and an emulated processor takes its time over.
MASKED = ("apt-daily.timer", "apt-daily-upgrade.timer", "dev-hugepages.mount", "dev-mqueue.mount",
          "dpkg-db-backup.timer", "e2scrub_all.timer", "e2scrub_reap.service", "fstrim.timer", "getty-static.service",
          "getty@tty1.service", "openvpn.service", "proc-sys-fs-binfmt_misc.automount", "sys-fs-fuse-connections.mount",
          "sys-kernel-config.mount", "sys-kernel-debug.mount", "sys-kernel-tracing.mount", "systemd-binfmt.service",
          "systemd-journal-flush.service", "systemd-random-seed.service", "systemd-sysusers.service",
          "systemd-tmpfiles-clean.timer", "systemd-update-utmp-runlevel.service", "systemd-update-utmp.service")
SIZE = "1500M"


def make(guest: kernel.Kernel) -> pathlib.Path:
    """The disk's image, from the cache; the first time it is put there."""
    choice = zlib.crc32(repr((SUITE, PACKAGES, MASKED, SIZE, guest.release)).encode())
    image = kernel.cache_folder() / f"disk-{choice:08x}"
    if not image.exists():
        for program in ("debootstrap", "mke2fs", "unshare"):
            if not shutil.which(program):
                raise kernel.Unavailable(f"there is no program {program} here")
        if os.geteuid() != 0:
            raise kernel.Unavailable("only the superuser can make the disk, the first time")
        try:
            _make(guest, image)
        except OSError as error:
            raise kernel.Unavailable(f"the disk cannot be made: {error}") from None
    return image


def _make(guest: kernel.Kernel, image: pathlib.Path) -> None:
    with scratch.folder("making-", image.parent) as folder:
        print(f"Making the disk: Debian's {SUITE}, by debootstrap", flush=True)
        _install(folder)
        _furnish(folder / "root", guest)
        _run(["mke2fs", "-q", "-t", "ext4", "-d", f"{folder}/root", f"{folder}/image", SIZE])
        (folder / "image").rename(image)


def _install(folder: pathlib.Path) -> None:
    _run(["unshare", "--mount", "--propagation", "private", "--pid", "--fork", "--kill-child", "debootstrap",
          "--variant=minbase", f"--include={','.join(PACKAGES)}", SUITE, f"{folder}/root"])


def _furnish(root: pathlib.Path, guest: kernel.Kernel) -> None:
    """The kernel's modules, an identity, without which systemd would take each start for the first one, and a rest for
    what is not needed."""
    shutil.copytree(guest.modules, root / "lib" / "modules" / guest.release, symlinks=True)
    (root / "etc/machine-id").write_text("0" * 31 + "1\n")
    for unit in MASKED:
        with contextlib.suppress(FileExistsError):
            (root / "etc/systemd/system" / unit).symlink_to("/dev/null")
    shutil.rmtree(root / "var/cache/apt/archives")


def _run(command: list[str]) -> None:
    result = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                            preexec_fn=namespaces.die_with_parent)
    if result.returncode != 0:
        lines = (result.stderr + result.stdout).strip().splitlines()
        raise kernel.Unavailable(f"the disk cannot be made: {' '.join(lines[-2:])}")
