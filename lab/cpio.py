"""Archives in the format that cpio(5) calls new ASCII, of which the kernel makes its first root file system."""

import os


def archive(entries: list[tuple[str, int, bytes]]) -> bytes:
    """Of files and folders: path, mode with the kind of file, contents. A folder stands before what is in it."""
    return b"".join(_entry(number, *entry) for number, entry in enumerate([*entries, ("TRAILER!!!", 0, b"")], 1))


def _entry(number: int, name: str, mode: int, contents: bytes) -> bytes:
    """Every field has eight hexadecimal digits; name and contents are filled up to a multiple of four bytes."""
    path = os.fsencode(name) + b"\0"
    fields = (number, mode, 0, 0, 1, 0, len(contents), 0, 0, 0, 0, len(path), 0)
    head = b"070701" + b"".join(b"%08X" % field for field in fields) + path
    return _padded(head) + _padded(contents)


def _padded(data: bytes) -> bytes:
    return data + bytes(-len(data) % 4)
