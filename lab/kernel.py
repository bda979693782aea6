"""The kernel of the virtual machine: Debian's own, fetched with apt-get, unpacked into a cache and never installed."""

import lzma
import os
import pathlib
import re
import subprocess
import zlib

from lab import scratch

META_PACKAGE = "linux-image-amd64"
# The package unpacks to 400 MB, three quarters of them drivers for hardware that the machine does not have.
UNPACKED = ("./boot/vmlinuz-*", "*/modules.*", "*/kernel/arch/*", "*/kernel/crypto/*",
            "*/kernel/drivers/block/virtio_blk.*", "*/kernel/drivers/net/*", "*/kernel/drivers/virtio/*",
            "*/kernel/fs/*", "*/kernel/lib/*", "*/kernel/net/*")
LEFT_OUT = ("*/kernel/drivers/net/ethernet/*", "*/kernel/drivers/net/wireless/*")
PLAIN_IMAGE = "boot/vmlinux"
XZ_MAGIC = b"\xfd7zXZ\0"
ROOT_MODULES = ("virtio_pci", "9pnet_virtio", "9p", "overlay")
DISK_MODULES = ("virtio_pci", "virtio_blk", "ext4")
TUNNEL_MODULES = ("ip_gre", "esp4", "tun", "xfrm_user", "veth")


class Unavailable(Exception):
    """There is no kernel to be had here; the text says why."""


class Kernel:
    """An unpacked kernel: its image, and the folder in which modprobe(8) finds its modules."""

    def __init__(self, folder: pathlib.Path):
        compressed = next(folder.glob("boot/vmlinuz-*"), None)
        if not compressed:
            raise Unavailable(f"there is no kernel in {folder}")
        plain = folder / PLAIN_IMAGE
        self.folder = folder
        self.image = plain if plain.exists() else compressed
        self.release = compressed.name.removeprefix("vmlinuz-")
        self.modules = folder / "lib" / "modules" / self.release

    def module_files(self, *names: str) -> list[pathlib.Path]:
        """The files of these modules and of all that they need, in the order in which they must be inserted."""
        files = []
        for name in names:
            shown = _output("modprobe", f"--dirname={self.folder}", f"--set-version={self.release}", "--show-depends",
                            name)
            files += re.findall(r"^insmod (\S+)", shown, re.MULTILINE)
        return [pathlib.Path(file) for file in dict.fromkeys(files)]


def module_contents(file: pathlib.Path) -> bytes:
    """The module as insmod of busybox wants it: not compressed."""
    contents = file.read_bytes()
    return lzma.decompress(contents) if file.suffix == ".xz" else contents


def cache_folder() -> pathlib.Path:
    """Where what has been fetched is kept."""
    return pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "tunnel_mngr"


def fetch() -> Kernel:
    """A kernel from the cache; the first time the current one is put there, and when another choice of its files was."""
    cache = cache_folder()
    folder = cache / f"kernel-{zlib.crc32(repr(UNPACKED).encode()):08x}"
    try:
        if not folder.exists():
            cache.mkdir(parents=True, exist_ok=True)
            with scratch.folder("fetching-", cache) as fresh:
                _unpack(_download(fresh), fresh / "kernel")
                _put(fresh / "kernel", folder)
        return Kernel(folder)
    except OSError as error:
        raise Unavailable(f"no kernel can be put into {cache}: {error}") from None


def _put(fresh: pathlib.Path, folder: pathlib.Path) -> None:
    """Whoever finds the folder finds it complete; where another lab was quicker, its kernel is as good."""
    try:
        fresh.rename(folder)
    except OSError:
        if not folder.exists():
            raise


def _download(folder: pathlib.Path) -> pathlib.Path:
    """The package, by the package lists that are there or, where these are missing or too old, by new ones."""
    try:
        return _download_listed(folder)
    except Unavailable:
        _output("apt-get", "-q", "update")
        return _download_listed(folder)


def _download_listed(folder: pathlib.Path) -> pathlib.Path:
    package = _package_name()
    print(f"Fetching {package}", flush=True)
    _output("apt-get", "-q", "download", package, folder=folder)
    return next(folder.glob("*.deb"))


def _package_name() -> str:
    """What the meta package depends on."""
    shown = _output("apt-cache", "--no-all-versions", "show", META_PACKAGE)
    if found := re.search(r"^Depends: (linux-image-[^\s,]+)", shown, re.MULTILINE):
        return found[1]
    raise Unavailable(f"apt-get knows no package {META_PACKAGE}")


def _unpack(package: pathlib.Path, folder: pathlib.Path) -> None:
    folder.mkdir()
    tar = ["tar", "--extract", "--wildcards", f"--directory={folder}", *(f"--exclude={name}" for name in LEFT_OUT)]
    with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", package], stdout=subprocess.PIPE) as source:
        # Its status says nothing, since it fails for a pattern without a file as well. What counts is tested below.
        subprocess.run([*tar, *UNPACKED], stdin=source.stdout, stderr=subprocess.DEVNULL)
    if not (folder / "lib").exists():
        (folder / "lib").symlink_to("usr/lib")  # where newer packages have the modules
    kernel = Kernel(folder)
    _output("depmod", "--basedir", str(folder), kernel.release)
    kernel.module_files(*ROOT_MODULES, *DISK_MODULES, *TUNNEL_MODULES)
    _decompress(kernel.image)


def _decompress(image: pathlib.Path) -> None:
    """Saves the emulated processor several seconds. An image in another format than xz is left to decompress itself."""
    _, magic, rest = image.read_bytes().partition(XZ_MAGIC)
    if magic:
        image.with_name("vmlinux").write_bytes(lzma.LZMADecompressor().decompress(magic + rest))


def _output(*command: str, folder: pathlib.Path | None = None) -> str:
    """What a command that must succeed prints."""
    try:
        result = subprocess.run(command, cwd=folder, capture_output=True, text=True)
    except FileNotFoundError:
        raise Unavailable(f"there is no program {command[0]} here") from None
    if result.returncode != 0:
        raise Unavailable(f"{' '.join(command)} failed: {result.stderr.strip()}")
    return result.stdout
