"""A router with a daemon in it, all that may happen to the two, and the way back to rest.

What happens is one method each, which returns at once. A history is a list of calls of these; `rest.judge` then says
whether it ended well."""

import contextlib
import os
import pathlib
import signal
import time

from sandbox.building import hurried
from sandbox.process import Process
from sandbox.router import Router, RouterError

from histories import configurations
from histories.mappings import STACKS_GO
from histories.shortages import MONITORS_START, Shortages

FACTOR = 60  # the daemon's minutes are seconds
PATIENCE = 30  # seconds for what must happen
STARTS = 5
MOST_JUMP = 86400  # seconds
RUN_BEGINS = "[TUNNEL_MNGR] MANAGING TUNNELS"
EXCEPTION = "[TUNNEL_MNGR] Exception caught"
SEMAPHORE = "/dev/shm/sem.TUNNEL_MANAGER"
PROGRAMS = ["ip", "ipsec", "firewall", "ping", "openvpn"]
API_FAULTS = {"absent": lambda api: api.absent(), "refuses": lambda api: api.refuse(), "deaf": lambda api: api.deaf(),
              "silent": lambda api: api.on(None, hang=True), "slow": lambda api: api.on(None, delay=0.2),
              "garbage": lambda api: api.on(None, body="{]"), "cut": lambda api: api.on(None, cut=20),
              "closes": lambda api: api.on(None, close=True),
              "no object": lambda api: api.on(None, envelope={"code": 200, "result": []}),
              "error": lambda api: api.on(None, envelope={"code": 500})}
PROGRAM_FAULTS = {"fails": {"status": 1}, "hangs": {"stay": True, "times": 2}, "slow": {"delay": 0.2}, "missing": None}


class World(Shortages):
    """To be used in a `with` block, in which the daemon has made its first run."""

    def __init__(self, program: str | os.PathLike):
        super().__init__(Router(pathlib.Path(program), configurations.tunnels(0) | {"wans": configurations.wans(1)},
                                environment=hurried(FACTOR) | STACKS_GO))
        self.ending: dict[Process, int] = {}  # daemons that were told to end, and the status that they must end with
        self._invocations: dict[Process, bool] = {}  # and whether each must find the daemon
        self.configuration = 0

    def __enter__(self) -> "World":
        self.router.open()
        self.router.make_ipsec_folders()
        for number, host in enumerate(configurations.HOSTS):
            self.router.dns.set(host, configurations.address(number + 1))
        self._start()
        self.router.wait_for("log", MONITORS_START, pid=self.daemon.pid, timeout=PATIENCE)
        return self

    def __exit__(self, *_exception) -> None:
        self.router.close()

    # ---- what happens ----

    def sighup(self) -> None:
        if self.daemon:
            self._note_request()
            self.daemon.signal(signal.SIGHUP)

    def sighups(self, count: int, milliseconds: int) -> None:
        """So many, with a pause between two."""
        for number in range(count):
            if number:
                self.wait(milliseconds)
            self.sighup()

    def second_invocation(self) -> None:
        if self.daemon:
            self._invoke()

    def second_daemon(self) -> None:
        """Not where the daemon would be taken for gone."""
        if self.daemon and self._is_reachable():
            self._invoke("--daemonize")

    def configure(self, number: int) -> None:
        self.configuration = number
        self.router.documents.update(configurations.tunnels(number))

    def wrong_type(self, number: int) -> None:
        document, member, value = configurations.WRONG[number]
        with self.router.documents.edit() as current:
            records = current[document] if isinstance(current[document], list) else [current[document]]
            for record in records:
                record[member] = value

    def wan(self, number: int) -> None:
        self.router.documents["wans"] = configurations.wans(number)

    def api_fails(self, how: str) -> None:
        API_FAULTS[how](self.router.api)

    def api_is_well(self) -> None:
        self.router.api.reset()
        self.router.api.release()
        self.router.api.present()

    def host(self, number: int, answer: str) -> None:
        self.router.dns.set(configurations.HOSTS[number], answer)

    def slow_host(self, number: int, answer: str) -> None:
        self.router.dns.set(configurations.HOSTS[number], answer, delay=0.3)

    def program_fails(self, name: str, how: str) -> None:
        settings = PROGRAM_FAULTS[how]
        if settings is None:
            self.router.program(name).missing()
        else:
            self.router.program(name).on(**settings)

    def program_is_well(self, name: str) -> None:
        program = self.router.program(name)
        program.reset()
        program.restore()
        if name != "openvpn":
            program.exit()

    def stubborn_children(self) -> None:
        """Those that are started from now on do not end when they are told to."""
        self.router.program("openvpn").on(stay=True, ignore_term=True)

    def late_children(self) -> None:
        self.router.program("openvpn").on(stay=True, term_delay=0.3)

    def child_dies(self, index: int) -> None:
        self._signal_child(index, signal.SIGKILL)

    def child_freezes(self, index: int) -> None:
        self._signal_child(index, signal.SIGSTOP)

    def children_leave(self) -> None:
        self.router.program("openvpn").exit(1)

    def clock_jumps(self, seconds: int) -> None:
        """The wall clock is off by so much from now on."""
        self.router.exec(["ln", "-sfn", "--", str(seconds), "/run/clock-step"])

    def stray_tunnel(self) -> None:
        """Somebody else makes a GRE tunnel, if there is what it takes; whatever is wrong with `ip`, it does that."""
        words = ["tunnel", "add", "stray", "mode", "gre", "remote", "192.0.2.9", "local", "192.0.2.8"]
        if self.router.exists("/run/sandbox/bin/ip"):
            self.router.program("ip").on(words, times=1)
            self.router.exec(["/run/sandbox/bin/ip", *words])

    def stray_files(self) -> None:
        for path in ("cacerts/stray.pem", "certs/stray.pem", "private/stray.pem", "ipsec.conf", "../openvpn_stray.conf"):
            with contextlib.suppress(RouterError):  # the disk may be at fault
                self.router.write_file(f"/run/ipsec/{path}", "stray\n")

    def terminate_and_start(self) -> None:
        """The new daemon does not wait for the old one, which may be in a run."""
        self._end(signal.SIGTERM)
        self._start()

    def kill_and_start(self) -> None:
        self._end(signal.SIGKILL)
        self._start()

    def wait(self, milliseconds: int) -> None:
        """What was begun goes on; this is the only step that takes time by itself."""
        time.sleep(milliseconds / 1000)

    # ---- the way back ----

    def unblock(self) -> None:
        """Takes away whatever a run or an end may be waiting for, or be in want of."""
        self.disk_is_well()
        self.log_is_read()
        self.there_is_enough()
        self.api_is_well()
        for name in PROGRAMS:
            self.program_is_well(name)
        for pid in self._openvpn_processes():
            self._try_signal(pid, signal.SIGCONT)
        self.router.program("openvpn").exit()  # those that ignore a signal

    def heal(self) -> None:
        """Takes away the rest that is at fault, and leaves what is only another state. A clock that was put back has caught
        up: until then nobody looks after the children."""
        self.clock_jumps(MOST_JUMP)
        for number, host in enumerate(configurations.HOSTS):
            self.router.dns.set(host, configurations.address(number + 1))
        self.configure(self.configuration)

    def wait_for_ends(self) -> None:
        """Waits for all instances to end but the daemon. What mars that only another one can do without. One that could
        not find the daemon has no status that is known: it may make a run, or meet an end or a start."""
        if self._is_marred:
            self.terminate_and_start()
        for process in [*self.ending, *self._invocations]:
            self.router.wait_for("exit", pid=process.pid, timeout=PATIENCE)
        for process, status in self.ending.items():
            assert process.status == status, f"the daemon {process.pid} left with {process.status}"
        for process in (process for process, finds in self._invocations.items() if finds):
            assert process.status == 0, f"the invocation {process.pid} left with {process.status}"
        if self.daemon is None:
            self._start()

    def _start(self) -> None:
        """Until a daemon is in the background; its first run may not have begun. What a killed instance has left costs one
        start more: the first one clears it away and leaves with 1. One that finds a daemon which has not yet come to
        handle its SIGTERM asks that for a refresh and leaves with 0; then there is none until `wait_for_ends`."""
        self._before_a_start()
        for _ in range(STARTS):
            started = self.router.start("--daemonize", "--printlvl", "100")
            over = self.router.wait_for("exit", pid=started.pid, timeout=PATIENCE)
            left = [self.router.process(pid) for pid in over.daemons]  # or a killed one's shell that had not yet begun
            self.router.wait_until(lambda: any(map(self._is_daemon, left)) or not any(process.alive() for process in left),
                                   "the daemon", PATIENCE)
            self.daemon = next(filter(self._is_daemon, left), None)
            if self.daemon:
                return
        # With GCC's thread sanitizer a handler waits until a program that the daemon waits for has ended.
        asked = over.status == 0 and any(process.alive() for process in self.ending)
        assert asked, f"no daemon after {STARTS} starts: the last one left with {over.status}"

    def is_instance(self, pid: int) -> bool:
        """Whether it is a process of the program; the kernel keeps 15 characters of a name."""
        facts = self.router.process(pid).facts()
        return facts is not None and facts["name"] == os.path.basename(self.router.program_path)[:15]

    def _is_daemon(self, process: Process) -> bool:
        facts = process.facts()
        return facts is not None and facts["session"] == process.pid and self.is_instance(process.pid)

    def _invoke(self, *arguments: str) -> None:
        must_find = self._is_reachable()
        if must_find:
            self._note_request()
        self._invocations[self.router.start(*arguments, "--printlvl", "100")] = must_find

    def _is_reachable(self) -> bool:
        """Whether another instance would find the daemon, whose semaphore it must be: each takes its own away in the end."""
        others = any(process.alive() for process in [*self.ending, *self._invocations])
        return self._has_pid_file() and self.router.exists(SEMAPHORE) and not others

    def _end(self, number: int) -> None:
        """Not while an invocation is under way: one that meets a start may take its semaphore away (docs/faults.md)."""
        for process in self._invocations:
            self.router.wait_for("exit", pid=process.pid, timeout=PATIENCE)
        if self.daemon:
            self.daemon.signal(number)
            self.ending[self.daemon] = 0 if number == signal.SIGTERM else -number
            if number == signal.SIGKILL:
                self.router.wait_for("exit", pid=self.daemon.pid, timeout=PATIENCE)
            self.daemon = None

    def _signal_child(self, index: int, number: int) -> None:
        children = self._openvpn_processes()
        if children:
            self._try_signal(children[index % len(children)], number)

    def _openvpn_processes(self) -> list[int]:
        ended = {event.pid for event in self.router.find("end", program="openvpn")}
        return [event.pid for event in self.router.find("exec", program="openvpn") if event.pid not in ended]

    def _try_signal(self, pid: int, number: int) -> None:
        self.router.exec(["/bin/kill", f"-{int(number)}", str(pid)])
