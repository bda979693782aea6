"""Outside: the router as a test sees it. README.md shows the whole interface on one page."""

import contextlib
import functools
import ipaddress
import json
import os
import pathlib
import shutil
import signal
import subprocess

from sandbox import faces, sanitizers
from sandbox.keeper_line import KeeperLine, RouterError
from sandbox.process import Completed, Process
from sandbox.timeline import Command, Event, Timeline

__all__ = ["Router", "RouterError", "kernel_has_gre"]

DEFAULT_DOCUMENTS = {"wans": [{"current": True, "ip": "198.51.100.2"}], "greTunnels": [], "ipsecTunnels": [],
                     "ni": {"nis": []}, "ovpnTunnels": [], "syslog": {"logLevel": 3}}
PROGRAM_PATH = "/run/sandbox/bin:/run/sandbox/tools"
REAL_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
OUTPUT_FOLDER = "/run/sandbox/output"
CRASHES = {signal.SIGSEGV, signal.SIGABRT, signal.SIGBUS, signal.SIGILL, signal.SIGFPE}
IP = "/usr/sbin/ip"


class Router:
    """A private router. `with Router(program=...) as r:` has it up in the block; leaving it kills everything inside.

    program           path of the program under test
    documents         the API's documents: a dict, or the path of a JSON file; the default has a WAN and no tunnels
    real_ip           `ip` is recorded and then really executed
    resolver_options  of the router's resolv.conf: how long a silent name server is waited for
    environment       added to the program's environment; sanitizer options of the caller's are passed on anyway
    limits            resource limits of the program, as prlimit(1) names them: {"nofile": 64}
    wrapper           words in front of the program's command line: ["valgrind", "-q"], ["strace", "-f", ...]
    """

    def __init__(self, program: str | os.PathLike | None = None, documents: dict | str | os.PathLike | None = None, *,
                 real_ip: bool = False, resolver_options: str = "timeout:1 attempts:1",
                 environment: dict[str, str] | None = None, limits: dict[str, int] | None = None,
                 wrapper: list[str] | None = None):
        self.program_path = None if program is None else str(pathlib.Path(program).resolve())
        if documents is not None and not isinstance(documents, dict):
            documents = json.loads(pathlib.Path(documents).read_text())
        documents = DEFAULT_DOCUMENTS if documents is None else documents
        self.environment = {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}
        self.environment |= environment or {}
        self.limits = dict(limits or {})
        self.wrapper = [shutil.which(wrapper[0]) or wrapper[0], *wrapper[1:]] if wrapper else []
        self._settings = {"documents": documents, "real_programs": ["ip"] if real_ip else [],
                          "resolver_options": resolver_options}
        self._timeline = Timeline()
        self._line: KeeperLine | None = None
        self._tolerated: set[int] = set()
        self._errors = ""
        self.api, self.dns, self.syslog = faces.Api(self.ask), faces.Dns(self.ask), faces.Syslog(self.ask)
        self.documents = faces.Documents(self.ask, documents)
        self.follow, self.dump, self.forget = self._timeline.follow, self._timeline.dump, self._timeline.forget
        self.wait_for, self.wait_until = self._timeline.wait_for, self._timeline.wait_until

    # ---- life ----

    def __enter__(self) -> "Router":
        self.open()
        return self

    def __exit__(self, *_exception) -> None:
        self.close()

    def open(self) -> None:
        self._line = KeeperLine(self._timeline, self._settings)

    def close(self) -> None:
        """Ends the router; timeline and sanitizer reports stay readable."""
        if self._line:
            self.errors()
            self._line.close()
            self._line = None

    def ask(self, op: str, **arguments):
        """One request to the keeper (an `op_` method there)."""
        if self._line is None:
            raise RouterError("the router is not open")
        return self._line.ask(op, **arguments)

    @property
    def keeper_pid(self) -> int:
        """PID 1 of the router as seen outside: `nsenter -t PID -a` is a shell in it."""
        return self._line.keeper_pid

    @property
    def pid_namespace(self) -> str:
        return os.readlink(f"/proc/{self.keeper_pid}/ns/pid")

    # ---- programs ----

    def start(self, *arguments: str, stdin: str = "") -> Process:
        """Starts the program under test and does not wait for it."""
        if not self.program_path:
            raise RouterError("this router was made without a program")
        limits = [f"--{name}={value}:{value}" for name, value in self.limits.items()]
        argv = [*(["/usr/bin/prlimit", *limits, "--"] if limits else []), *self.wrapper, self.program_path, *arguments]
        environment = {"PATH": PROGRAM_PATH, "HOME": "/root", "SANDBOX_RECORD": "1"} | self.environment
        return self._spawn(argv, environment, "program", stdin)

    def run(self, *arguments: str, timeout: float = 20.0, stdin: str = "") -> Completed:
        """Runs the program under test to its end (in daemon mode: to the end of the process that was started)."""
        return self._finish(self.start(*arguments, stdin=stdin), timeout)

    def daemon(self, *arguments: str, timeout: float = 20.0) -> Process:
        """Starts the program with --daemonize and these arguments, waits for the started process to leave with 0, and
        returns the daemon. Its first run may not have begun yet."""
        started = self.start("--daemonize", *arguments)
        exit_event = self.wait_for("exit", pid=started.pid, timeout=timeout)
        daemons = exit_event.daemons
        if len(daemons) > 1:  # a wrapper may have left a process as well; the kernel keeps 15 characters of a name
            names = [(self.ask("process", pid=pid) or {}).get("name") for pid in daemons]
            daemons = [pid for pid, name in zip(daemons, names) if name == os.path.basename(self.program_path)[:15]]
        if exit_event.status != 0 or len(daemons) != 1:
            raise AssertionError(f"no daemon: {exit_event.fields}\n{started.stderr}\n{self.dump()}")
        return Process(self, daemons[0], started._output)

    def exec(self, argv: list[str], *, timeout: float = 20.0, stdin: str = "",
             environment: dict[str, str] | None = None) -> Completed:
        """Runs any command in the router, unrecorded and with the real programs on its path."""
        return self._finish(self.spawn(argv, stdin=stdin, environment=environment), timeout)

    def spawn(self, argv: list[str], *, stdin: str = "", environment: dict | None = None) -> Process:
        """Starts any command in the router as `exec` does, and does not wait for it."""
        return self._spawn(list(argv), {"PATH": REAL_PATH, "HOME": "/root"} | (environment or {}), "exec", stdin)

    def process(self, pid: int) -> Process:
        """A handle on any process in the router, by the pid inside: an openvpn of `commands()`, say."""
        return Process(self, pid, "")

    def program(self, name: str) -> faces.Program:
        """The stand-in of that name."""
        return faces.Program(self.ask, name)

    def preset_gre(self, *tunnels: dict, extra: str = "") -> None:
        """Makes the stand-in `ip` know these tunnels, {"name", "remote", "local", "ttl"}, as if they had been there;
        `extra` is text that its listing ends with."""
        self.ask("server", server="programs", method="preset_gre", arguments={"tunnels": tunnels, "extra": extra})

    def gre_listing(self) -> str:
        """What the stand-in `ip tunnel` would print now."""
        return self.ask("server", server="programs", method="gre_listing", arguments={})

    # ---- files ----

    def read_file(self, path: str) -> str | None:
        """A file's contents (None when there is none); bytes that are no UTF-8 become surrogates."""
        contents = self.read_bytes(path)
        return None if contents is None else contents.decode("utf-8", "surrogateescape")

    def read_bytes(self, path: str) -> bytes | None:
        contents = self.ask("read", path=path)
        return None if contents is None else contents.encode("latin-1")

    def write_file(self, path: str, contents: str | bytes, mode: int | None = None) -> None:
        """Writes a file in place; its folder must exist."""
        data = contents if isinstance(contents, bytes) else contents.encode("utf-8", "surrogateescape")
        self.ask("write", path=path, contents=data.decode("latin-1"), mode=mode)

    def exists(self, path: str) -> bool:
        return self.stat(path) is not None

    def stat(self, path: str) -> dict | None:
        """mode, size, mtime and inode of the path itself, None when there is nothing."""
        return self.ask("stat", path=path)

    def list_folder(self, path: str) -> list[str]:
        return self.ask("list", path=path)

    def make_folder(self, path: str, mode: int = 0o755) -> None:
        self.ask("make_folder", path=path, mode=mode)

    def make_ipsec_folders(self) -> None:
        """/run/ipsec with its cacerts, certs and private, which the system software of a real router makes."""
        for folder in ("cacerts", "certs", "private"):
            self.make_folder(f"/run/ipsec/{folder}")

    def remove(self, path: str) -> None:
        """Removes a file or a whole folder; nothing there is nothing to do."""
        self.ask("remove", path=path)

    # ---- the timeline ----

    def mark(self, text: str = "") -> int:
        """Puts a mark into the timeline; what it returns can be given as `since` wherever that is taken."""
        return self.ask("mark", text=text)

    def timeline(self, since: int = 0) -> list[Event]:
        """All events so far. Whatever a process did before it was last heard of is in it."""
        if self._line:
            self.ask("sync")
        return self._timeline.events(since)

    def since(self, mark: int) -> list[Event]:
        """The events after a mark."""
        return self.timeline(mark)

    def find(self, what=None, pattern=None, *, since: int = 0, **fields) -> list[Event]:
        """The events so far that `wait_for` with the same arguments would have waited for."""
        if self._line:
            self.ask("sync")
        return self._timeline.find(what, pattern, since=since, **fields)

    def commands(self, since: int = 0) -> list[Command]:
        """The commands that the program began after `since`."""
        if self._line:
            self.ask("sync")
        return self._timeline.commands(since)

    def command_texts(self, since: int = 0) -> list[str]:
        """Their exact texts."""
        return [command.text for command in self.commands(since)]

    def log_lines(self, level: str | None = None, since: int = 0) -> list[Event]:
        """The log lines, all or those with the label `level` ("ERROR", "WARNING", "INFO", "DEBUG", "TRACE")."""
        return [event for event in self.timeline(since) if event.kind == "log" and level in (None, event.label)]

    def messages(self, level: str | None = None, since: int = 0) -> list[str]:
        """Their messages, without the label."""
        return [event.message for event in self.log_lines(level, since)]

    # ---- what must not happen ----

    def sanitizer_reports(self) -> list[str]:
        """What sanitizers have reported in any program that the router ran."""
        return sanitizers.reports(self.errors())

    def errors(self) -> str:
        """All that was written to standard error in the router, program by program. Of a router that is gone, what was
        last read."""
        if self._line is not None:
            with contextlib.suppress(RouterError):
                outputs = [name for name in self.list_folder(OUTPUT_FOLDER) if name.endswith(".err")]
                self._errors = "".join(self.read_file(f"{OUTPUT_FOLDER}/{name}") for name in outputs)
        return self._errors

    def complaints(self) -> str:
        """What the sandbox itself had to say, empty when all is well."""
        return self._line.complaints() if self._line else ""

    def tolerate(self, number: int) -> None:
        """This test expects that the program dies of that signal."""
        self._tolerated.add(int(number))

    def problems(self) -> list[str]:
        """Sanitizer reports, and deaths of the program or its daemon by a signal that nobody sends."""
        deaths = [event for event in self._timeline.find("exit")
                  if event.text in ("program", "daemon") and -event.status in CRASHES - self._tolerated]
        return [*self.sanitizer_reports(),
                *(f"{event.text} {event.pid} died of signal {-event.status}" for event in deaths)]

    # ---- networks ----

    @staticmethod
    def link(a: "Router", b: "Router", subnet: str, name: str = "wan0") -> tuple[str, str]:
        """Joins two routers by a cable: an interface `name` in each, with the first two addresses of `subnet`
        ("192.0.2.0/24"), which are returned. The cable goes with either router."""
        network = ipaddress.ip_network(subnet)
        addresses = str(network[1]), str(network[2])
        _check([IP, "link", "add", name, "netns", str(a.keeper_pid), "type", "veth", "peer", "name", name, "netns",
                str(b.keeper_pid)])
        for router, address in zip((a, b), addresses):
            assign = [IP, "addr", "add", f"{address}/{network.prefixlen}", "dev", name]
            for argv in (assign, [IP, "link", "set", name, "up"]):
                result = router.exec(argv)
                if result.status != 0:
                    raise RouterError(f"{argv}: {result.stderr}")
        return addresses

    def _spawn(self, argv: list[str], environment: dict[str, str], role: str, stdin: str) -> Process:
        started = self.ask("spawn", argv=argv, environment=environment, role=role, directory="/",
                           stdin=stdin.encode("utf-8", "surrogateescape").decode("latin-1"))
        return Process(self, started["pid"], started["output"])

    def _finish(self, process: Process, timeout: float) -> Completed:
        status = process.wait_exit(timeout)
        return Completed(status, process.stdout, process.stderr, process.pid)


def _check(argv: list[str]) -> None:
    result = subprocess.run(argv, capture_output=True, text=True)
    if result.returncode != 0:
        raise RouterError(f"{argv}: {result.stderr}")


@functools.cache
def kernel_has_gre() -> bool:
    """Whether this kernel makes GRE tunnels; tried in a network namespace of its own."""
    add = [IP, "tunnel", "add", "probe", "mode", "gre", "remote", "192.0.2.1", "local", "192.0.2.2"]
    return subprocess.run(["unshare", "--net", *add], capture_output=True).returncode == 0
