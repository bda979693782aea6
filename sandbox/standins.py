"""Inside the router: the keeper's side of standin.c: records every command and says how the stand-in is to behave."""

import contextlib
import json
import os
import select
import socket
import struct
import subprocess
import threading
from typing import NamedTuple

from sandbox import namespaces
from sandbox.gre_model import GreModel

NAME = "\0sandbox-keeper"
FINISH, STAY, RUN_REAL, BECOME_REAL = range(4)
ACKNOWLEDGED = struct.pack("i", 0x7FFFFFFF)
PROGRAMS = ("ip", "ipsec", "openvpn", "firewall", "ping", "mkdir", "rm")
DEFAULT_MODES = {"openvpn": STAY, "mkdir": RUN_REAL, "rm": RUN_REAL}
INSPECTED = ("openvpn",)
REAL_FOLDERS = ("/usr/local/sbin", "/usr/local/bin", "/usr/sbin", "/usr/bin", "/sbin", "/bin")


class Call(NamedTuple):
    """A stand-in's own report of how it was started."""

    program: str
    pid: int
    parent: int
    death_signal: int
    own_fd: int  # of its connection to the keeper
    argv: list[str]


class Rule:
    """How a program behaves for some arguments; the keys of `how` are those of `Program.on` (faces.py)."""

    def __init__(self, arguments: list[str] | None, prefix: bool, times: int | None, how: dict):
        self.arguments = arguments
        self.prefix = prefix
        self.left = times
        self.how = how

    def takes(self, arguments: list[str]) -> bool:
        """Whether this rule governs the call; counts it."""
        compared = arguments[:len(self.arguments)] if self.prefix else arguments
        if self.left == 0 or self.arguments not in (None, compared):
            return False
        if self.left is not None:
            self.left -= 1
        return True


class StandIns:
    """The listener and the rules; its methods may be called from any thread."""

    def __init__(self, recorder, real_programs: list[str]):
        self._recorder = recorder
        self._lock = threading.Lock()
        self._rules: dict[str, list[Rule]] = {}
        self._modes = DEFAULT_MODES | {program: RUN_REAL for program in real_programs}
        self._inspected = set(INSPECTED)
        self._shells: dict[int, tuple[int, str]] = {}  # the running command of a shell: number of its event, text
        self._live: dict[int, tuple[str, socket.socket]] = {}
        self._calls_to_leave: dict[str, list[int]] = {}  # the statuses with which all that stay were told to leave
        self.seen_pids: set[int] = set()
        self._gre = GreModel(_real_listing)

    def start(self) -> None:
        for program in PROGRAMS:
            self.install(program, True)
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        listener.bind(NAME)
        listener.listen(1024)
        threading.Thread(target=self._accept, args=(listener,), daemon=True).start()

    # ---- what the tests change ----

    def install(self, program: str, present: bool) -> None:
        """Puts a stand-in on the search path or takes it away."""
        link = f"{namespaces.STAND_IN_FOLDER}/{program}"
        if os.path.lexists(link):
            os.unlink(link)
        if present:
            os.symlink(f"{namespaces.HOME}/standin", link)

    def on(self, program: str, arguments: list[str] | None, prefix: bool, times: int | None, how: dict) -> None:
        """Adds a rule; of several that fit, the one that was added last governs."""
        with self._lock:
            self._rules.setdefault(program, []).insert(0, Rule(arguments, prefix, times, how))

    def reset(self, program: str) -> None:
        with self._lock:
            self._rules.pop(program, None)

    def inspect(self, program: str) -> None:
        """From now on the program's start is recorded with its environment, signals and descriptors."""
        with self._lock:
            self._inspected.add(program)

    def preset_gre(self, tunnels: list[dict], extra: str) -> None:
        """Replaces the tunnels that the stand-in `ip` knows; `extra` is text that its listing ends with."""
        with self._lock:
            self._gre.preset(tunnels, extra)

    def gre_listing(self) -> str:
        with self._lock:
            return self._gre.listing()

    def tell(self, program: str, pid: int | None, status: int) -> int:
        """Has the staying stand-ins of a program, or the one with that pid, leave; returns how many were told. One that
        is about to stay, and not yet recorded, leaves as well, unless a pid is given."""
        with self._lock:
            if pid is None:
                self._calls_to_leave.setdefault(program, []).append(status)
            told = [c for p, (name, c) in self._live.items() if name == program and pid in (None, p)]
        for connection in told:
            _send(connection, struct.pack("i", status))
        return len(told)

    # ---- serving ----

    def _accept(self, listener: socket.socket) -> None:
        while True:
            connection, _ = listener.accept()
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection: socket.socket) -> None:
        with connection:
            try:
                what, *words = _receive(connection)
                if what == "shell":
                    self._record_shell(connection, int(words[0]), int(words[1]), words[2])
                else:
                    self._serve_start(connection, Call(words[0], *map(int, words[1:5]), argv=words[5:]))
            except (OSError, ValueError):
                pass  # killed before it had reported

    def _record_shell(self, connection: socket.socket, pid: int, parent: int, text: str) -> None:
        self.seen_pids.add(pid)
        with self._lock:
            self._shells[pid] = self._record_command(text, pid, parent, True), text
        _send(connection, ACKNOWLEDGED)

    def _record_command(self, text: str, pid: int, parent: int, shell: bool) -> int:
        return self._recorder.record("command", text, pid=pid, parent=parent, parent_name=_comm(parent), shell=shell)

    def _serve_start(self, connection: socket.socket, call: Call) -> None:
        details = {"parent_death_signal": call.death_signal}
        if call.program in self._inspected:
            details |= _inspect(call.pid, call.own_fd)
        with self._lock:
            mode, reply = self._reply(call.program, call.argv[1:])
            calls_before = len(self._calls_to_leave.get(call.program, []))
        if mode == STAY:
            _send(connection, reply)
            reply = ACKNOWLEDGED if _receive(connection) else b""  # or it was killed before it was ready
        self.seen_pids.add(call.pid)
        with self._lock:  # it is answered before anybody can tell it to leave
            text, common = self._record_start(connection, call, details)
            missed = self._calls_to_leave.get(call.program, [])[calls_before:]
            watch = os.pidfd_open(call.pid) if mode == BECOME_REAL else None
            _send(connection, reply)
        if mode == STAY and missed:
            _send(connection, struct.pack("i", missed[-1]))
        if watch is not None:
            _wait_for_end(watch)
        self._follow(connection, text, common)

    def _record_start(self, connection: socket.socket, call: Call, details: dict) -> tuple[str, dict]:
        """Records the start; returns the text and the fields that all later events of the stand-in have. The caller has
        the lock."""
        command, text = (self._shells.get(call.pid) or self._shells.get(call.parent) or (None, " ".join(call.argv)))
        if command is None:
            command = self._record_command(text, call.pid, call.parent, False)
        self._live[call.pid] = (call.program, connection)
        common = {"program": call.program, "pid": call.pid, "command": command}
        self._recorder.record("exec", text, argv=call.argv, parent=call.parent, details=details, **common)
        return text, common

    def _follow(self, connection: socket.socket, text: str, common: dict) -> None:
        """Records what the stand-in reports until it has ended. No report at the end means that it was killed. Whoever
        knows of the end finds it gone."""
        status = None
        while words := _receive(connection):
            what, value = words
            if what == "end":
                status = int(value)
                break
            self._recorder.record("caught", text, signal=int(value), **common)
            _send(connection, ACKNOWLEDGED)
        with self._lock:
            self._live.pop(common["pid"], None)
        self._recorder.record("end", text, status=status, **common)
        if status is not None:
            _send(connection, ACKNOWLEDGED)

    def _reply(self, program: str, arguments: list[str]) -> tuple[int, bytes]:
        rule = next((rule for rule in self._rules.get(program, []) if rule.takes(arguments)), None)
        how = rule.how if rule else {}
        mode, path = FINISH, b""
        status, output, errors = how.get("status", 0), how.get("stdout", ""), how.get("stderr", "")
        if how.get("stay"):
            mode = STAY
        elif not {"status", "stdout", "stderr"} & how.keys():
            mode = self._modes.get(program, FINISH)
            if program == "ip" and mode == FINISH:
                status, output, errors = self._gre.answer(arguments)
        mode = {"run": RUN_REAL, "become": BECOME_REAL}.get(how.get("real"), mode)
        if mode in (RUN_REAL, BECOME_REAL):
            path = os.fsencode(_real_path(program)) + b"\0"
        out, err = output.encode("utf-8", "surrogateescape"), errors.encode("utf-8", "surrogateescape")
        term = -1 if how.get("ignore_term") else round(how.get("term_delay", 0) * 1000)
        delay = round(how.get("delay", 0) * 1000)
        head = struct.pack("iiiiIII", mode, status, delay, term, len(out), len(err), len(path))
        return mode, head + out + err + path


def _receive(connection: socket.socket) -> list[str]:
    """One frame: its texts; none when the other end is gone."""
    data = b""
    size = 4
    while len(data) < size:
        try:
            chunk = connection.recv(size - len(data))
        except ConnectionError:
            return []
        if not chunk:
            return []
        data += chunk
        if len(data) == 4:
            size += struct.unpack("I", data)[0]
    return [os.fsdecode(text) for text in data[4:-1].split(b"\0")]


def _send(connection: socket.socket, data: bytes) -> None:
    with contextlib.suppress(ConnectionError):  # who has been killed meanwhile is noticed by the next `_receive`
        connection.sendall(data)


def _wait_for_end(pidfd: int) -> None:
    poll = select.poll()  # descriptors may be many, more than select(2) takes
    poll.register(pidfd, select.POLLIN)
    poll.poll()
    os.close(pidfd)


def _real_path(program: str) -> str:
    return next((path for folder in REAL_FOLDERS if os.access(path := f"{folder}/{program}", os.X_OK)), program)


def _real_listing(arguments: list[str]) -> list[dict]:
    """What the real `ip` of the machine prints of this router, in JSON."""
    done = subprocess.run([_real_path("ip"), *arguments], capture_output=True, text=True)
    return [entry for entry in json.loads(done.stdout or "[]") if entry]  # it leaves {} for what it does not show


def _comm(pid: int) -> str:
    try:
        with open(f"/proc/{pid}/comm") as file:
            return file.read().rstrip("\n")
    except OSError:
        return ""


def _inspect(pid: int, own_fd: int) -> dict:
    """What the process was given: environment, signal sets (numbers), descriptors but the stand-in's own, directory."""
    with open(f"/proc/{pid}/environ", "rb") as file:
        environment = dict(os.fsdecode(text).split("=", 1) for text in file.read().split(b"\0") if b"=" in text)
    with open(f"/proc/{pid}/status") as file:
        status = dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)
    sets = {key: [n for n in range(1, 65) if int(status[field], 16) >> (n - 1) & 1]
            for key, field in (("blocked", "SigBlk"), ("ignored", "SigIgn"), ("caught", "SigCgt"))}
    descriptors = {}
    for fd in os.listdir(f"/proc/{pid}/fd"):
        if int(fd) != own_fd:
            descriptors[fd] = os.readlink(f"/proc/{pid}/fd/{fd}")
    with open(f"/proc/{pid}/stat") as file:
        group, session = file.read().rpartition(")")[2].split()[2:4]
    return {"environment": environment, "signals": sets, "descriptors": descriptors, "umask": status["Umask"],
            "group": int(group), "session": int(session), "directory": os.readlink(f"/proc/{pid}/cwd")}
