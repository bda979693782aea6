"""What a process uses, from /proc (proc(5)) and its clock."""

import dataclasses
import os
import time

KIB = 1024


@dataclasses.dataclass
class Usage:
    """Memory in bytes; processor seconds and wake-ups for each second of the time that was watched."""

    resident: int
    anonymous: int
    address_space: int
    processor: float
    wake_ups: float


def usage(pid: int, seconds: float) -> Usage:
    """Watches a process for a while. A wake-up is a return from a wait, of any of its threads."""
    begin, processor, waits = time.monotonic(), _processor_seconds(pid), _waits(pid)
    time.sleep(seconds)
    elapsed = time.monotonic() - begin
    memory = _fields(f"/proc/{pid}/status")
    return Usage(*(int(memory[name].split()[0]) * KIB for name in ("VmRSS", "RssAnon", "VmSize")),
                 processor=(_processor_seconds(pid) - processor) / elapsed, wake_ups=(_waits(pid) - waits) / elapsed)


def _processor_seconds(pid: int) -> float:
    """Of all threads. The kernel's id of another process's clock is made of its pid (clock_getcpuclockid(3))."""
    whole_process_by_scheduler = 2
    return time.clock_gettime((~pid << 3) | whole_process_by_scheduler)


def _waits(pid: int) -> int:
    return sum(int(_fields(f"/proc/{pid}/task/{task}/status")["voluntary_ctxt_switches"])
               for task in os.listdir(f"/proc/{pid}/task"))


def _fields(path: str) -> dict[str, str]:
    with open(path) as file:
        return dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)
