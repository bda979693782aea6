"""What a process has mapped: files, and the stacks of its threads."""

import collections
import itertools
import mmap
import re
from typing import NamedTuple

from sandbox.process import Process
from sandbox.router import Router

# The C library keeps the stacks of threads that have ended for the next ones, which would hide one that is never given
# back. With this in a program's environment it does not.
STACKS_GO = {"GLIBC_TUNABLES": "glibc.pthread.stack_cache_size=0"}
SMALLEST_STACK = 128 * 1024  # of the program's threads (support/native_thread.h)


class Mapping(NamedTuple):
    """A line of a process's maps (proc(5))."""

    begin: int
    end: int
    access: str
    name: str


def files(router: Router, process: Process) -> collections.Counter[str]:
    """How often it has mapped each file. Its semaphore has another name each time; so have the files of the thread
    sanitizer, which maps as many as it needs. The kernel may divide the heap, which has a name, too, in any way."""
    names = (re.sub("^/dev/shm/sem[.].*", "/dev/shm/sem.", mapping.name) for mapping in _mappings(router, process))
    return collections.Counter(name for name in names if name.startswith("/") and not name.startswith("/tmp/tsan."))


def stacks(router: Router, process: Process) -> int:
    """How many stacks of threads it has, used or not: each is memory above a page that must not be touched."""
    return sum(_is_guard(below) and _is_stack(above) and below.end == above.begin
               for below, above in itertools.pairwise(_mappings(router, process)))


def _mappings(router: Router, process: Process) -> list[Mapping]:
    found = []
    for line in router.read_file(f"/proc/{process.pid}/maps").splitlines():
        addresses, access, _offset, _device, _inode, *name = line.split(maxsplit=5)
        found.append(Mapping(*(int(address, 16) for address in addresses.split("-")), access, "".join(name)))
    return found


def _is_guard(mapping: Mapping) -> bool:
    return (mapping.access, mapping.end - mapping.begin, mapping.name) == ("---p", mmap.PAGESIZE, "")


def _is_stack(mapping: Mapping) -> bool:
    """The guard is a part of its size; what is mapped above it may have become one with it."""
    return (mapping.access, mapping.name) == ("rw-p", "") and mapping.end - mapping.begin >= SMALLEST_STACK - mmap.PAGESIZE
