"""What the tests ask of the C library of the program under test, where libraries differ."""

import os
import pathlib

SEMAPHORES = GLIBC_SEMAPHORE, MUSL_SEMAPHORE = "/dev/shm/sem.TUNNEL_MANAGER", "/dev/shm/TUNNEL_MANAGER"


def is_musl(program: str | os.PathLike) -> bool:
    """Whether the executable has musl's words for options in it, or names it as its C library; else it is glibc."""
    contents = pathlib.Path(program).read_bytes()
    return any(text in contents for text in (b": unrecognized option: ", b"/ld-musl-"))


def semaphore() -> str:
    """The file of the instance's semaphore, for the program that TUNNEL_MNGR names."""
    program = os.environ.get("TUNNEL_MNGR", "")
    return MUSL_SEMAPHORE if os.access(program, os.R_OK) and is_musl(program) else GLIBC_SEMAPHORE
