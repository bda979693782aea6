"""What the router may run short of: room on its disk, lines that its log takes, descriptors, processes, threads."""

from sandbox.process import Process
from sandbox.router import Router

PID_FILE = "/run/tunnel_mngr.pid"
MONITORS_START = "[TUNNEL_MNGR] v_apFqdnMonitor size"
# What is the router's own below /run can be written to all the same. A disk that is read-only is not filled.
DISK_FAULTS = {
    "read-only": "mount --rbind /run /run && mount --rbind /run/sandbox /run/sandbox && mount --bind /run/api /run/api && "
                 "mount -o remount,bind,ro /run",
    "full": "touch /run/filler && mount -o remount,size=$(( $(stat -fc '(%b - %f) * %S' /run) + 65536 )) /run && "
            "cat /dev/zero >/run/filler"}
DISK_IS_WELL = "mount -o remount,bind,rw /run; rm -f /run/filler; mount -o remount,size=50% /run"
NO_PROCESS, NO_THREAD = "/run/sandbox/no-process", "/run/sandbox/no-thread"  # see sandbox/hurry.c
DESCRIPTORS = 1024  # are enough


class Shortages:
    """A part of World: a method for each of what happens, and what has to be known of it in the end."""

    def __init__(self, router: Router):
        self.router = router
        self.daemon: Process | None = None
        self.asked: list[tuple[int, int]] = []  # the mark before each request for a refresh, and the daemon's pid
        self.descriptors_at_rest = 0  # rest.Start counts them
        self.log_was_stuck = False
        self._log_is_stuck = False
        self._disk_is_at_fault = False
        self._short_of: set[str] = set()
        self._is_marred = False  # the daemon, until its end

    def disk_fails(self, how: str) -> None:
        self._mar_a_start()
        self._disk_is_at_fault = True
        self._in_shell(DISK_FAULTS[how])

    def disk_is_well(self) -> None:
        self._in_shell(DISK_IS_WELL)
        self._disk_is_at_fault = False

    def log_takes_nothing(self) -> None:
        self.router.syslog.block()
        self._log_is_stuck = self.log_was_stuck = True
        self._forget_unseen()

    def log_is_read(self) -> None:
        self.router.syslog.present()
        self._log_is_stuck = False

    def log_restarts(self) -> None:
        self.router.syslog.restart()
        self._log_is_stuck = False

    def few_descriptors(self, more: int) -> None:
        """The daemon can open so many more than it has open at rest."""
        if self.daemon:
            self._run_short_of("descriptors")
            self._limit_descriptors(self.descriptors_at_rest + more)

    def no_process(self) -> None:
        self._run_short_of("processes")
        self.router.write_file(NO_PROCESS, "")

    def no_thread(self) -> None:
        self._run_short_of("threads")
        self.router.write_file(NO_THREAD, "")

    def there_is_enough(self) -> None:
        """Of descriptors, processes and threads."""
        for path in (NO_PROCESS, NO_THREAD):
            self.router.remove(path)
        if self.daemon:
            self._limit_descriptors(DESCRIPTORS)
        self._short_of.clear()

    def _before_a_start(self) -> None:
        """Without processes none would succeed. What else is missing now mars the daemon that is started."""
        self.router.remove(NO_PROCESS)
        self._short_of -= {"descriptors", "processes"}  # it is another process that has too few descriptors
        self._is_marred = self._disk_is_at_fault or bool(self._short_of)

    def _mar_a_start(self) -> None:
        """What cannot be had at a daemon's start is missing until its end: the PID file, the WAN monitor (docs/faults.md).
        A daemon that has told of its host name monitors, which the log may not have taken, or has both is past its start:
        what it has lost since is a defect."""
        if self.daemon and not (self.router.find("log", MONITORS_START, pid=self.daemon.pid) or self._is_whole()):
            self._is_marred = True

    def _is_whole(self) -> bool:
        return self._has_pid_file() and "WAN_MONITOR" in self.daemon.facts()["thread_names"]

    def _has_pid_file(self) -> bool:
        return self.router.read_file(PID_FILE) == f"{self.daemon.pid}\n"

    def _run_short_of(self, what: str) -> None:
        self._mar_a_start()
        self._short_of.add(what)
        self._forget_unseen()

    def _note_request(self) -> None:
        self.asked.append((self.router.mark("a refresh is requested"), self.daemon.pid))
        self._forget_unseen()

    def _forget_unseen(self) -> None:
        """Nobody sees a run that gets out neither a log line nor a command."""
        if self._log_is_stuck and self._short_of & {"descriptors", "processes"}:
            self.asked.clear()

    def _limit_descriptors(self, most: int) -> None:
        self.router.exec(["prlimit", f"--pid={self.daemon.pid}", f"--nofile={most}:"])

    def _in_shell(self, text: str) -> None:
        self.router.exec(["/run/sandbox/sh", "-c", text])
