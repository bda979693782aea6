"""PID 1 of a router: makes the namespaces, runs the servers, starts programs, reaps, and obeys the Router outside.

Started as `python3 -m sandbox.keeper FD`, where FD is the keeper's end of the control line and standard input a pipe
whose other end the Router holds. The process that was started stays outside the pid namespace as a guard: when the
Router goes away in whatever manner, it kills the keeper, and with PID 1 the kernel kills everything in the router."""

import os
import resource
import select
import signal
import socket
import subprocess
import sys
import time

from sandbox import namespaces, processes
from sandbox.api_server import ApiServer
from sandbox.control import Channel
from sandbox.name_server import NameServer
from sandbox.recorder import Recorder
from sandbox.standins import StandIns
from sandbox.syslog_collector import SyslogCollector


class Keeper:
    """The main loop and one `op_` method per request; all on the main thread, and none of them blocks."""

    def __init__(self, channel: Channel, settings: dict):
        self._channel = channel
        self._recorder = Recorder(channel.send, time.monotonic())
        self._api = ApiServer(self._recorder, settings["documents"])
        self._names = NameServer(self._recorder)
        self._syslog = SyslogCollector(self._recorder)
        self._stand_ins = StandIns(self._recorder, settings["real_programs"])
        self._roles: dict[int, str] = {}
        self._spawned = 0
        self._wake_reader, wake_writer = os.pipe()
        os.set_blocking(wake_writer, False)
        signal.set_wakeup_fd(wake_writer, warn_on_full_buffer=False)
        signal.signal(signal.SIGCHLD, lambda number, frame: None)  # the wake-up pipe is what is wanted

    def run(self) -> None:
        self._syslog.listen("present")
        self._syslog.start()
        self._names.start()
        self._stand_ins.start()
        self._api.listen("present")
        self._channel.send({"id": 0, "result": "ready"})
        while True:
            ready, _, _ = select.select([self._channel, self._wake_reader], [], [])
            if self._wake_reader in ready:
                os.read(self._wake_reader, 4096)
                self._reap()
            if self._channel in ready and not self._obey_all():
                return

    def _obey_all(self) -> bool:
        """Does what has been asked; false when there is nobody left to ask."""
        while True:
            request = self._channel.receive()
            if request is None:
                return False
            self._obey(request)
            if not self._channel.pending():
                return True

    def _obey(self, request: dict) -> None:
        number, operation = request.pop("id"), request.pop("op")
        try:
            answer = {"result": getattr(self, f"op_{operation}")(**request)}
        except Exception as error:  # whatever it was, the test that asked is told
            answer = {"error": f"{operation}: {type(error).__name__}: {error}"}
        self._channel.send({"id": number, **answer})

    def _reap(self) -> None:
        while True:
            try:
                child = os.waitid(os.P_ALL, 0, os.WEXITED | os.WNOHANG | os.WNOWAIT)
            except ChildProcessError:
                return
            if child is None:
                return
            # While the child is a zombie, its own children have already come here.
            daemons = self._adopt() if self._roles.get(child.si_pid) == "program" else []
            try:
                os.waitpid(child.si_pid, 0)
            except ChildProcessError:
                continue  # a thread of this process, which had started it, was faster
            role = self._roles.get(child.si_pid, "orphan")
            status = child.si_status if child.si_code == os.CLD_EXITED else -child.si_status
            self._recorder.record("exit", role, pid=child.si_pid, status=status, daemons=daemons)

    def _adopt(self) -> list[int]:
        """The program's children that have become ours and are no commands: it has turned itself into a daemon."""
        adopted = [pid for pid in processes.children(1)
                   if pid not in self._roles and pid not in self._stand_ins.seen_pids]
        self._roles |= dict.fromkeys(adopted, "daemon")
        return adopted

    # ---- processes ----

    def op_spawn(self, argv: list[str], environment: dict, role: str, directory: str, stdin: str) -> dict:
        """Starts a program; its exit is an event."""
        self._spawned += 1
        output = f"{namespaces.OUTPUT_FOLDER}/{self._spawned}"
        self._recorder.sync()
        with (open(f"{output}.out", "xb") as out, open(f"{output}.err", "xb") as err,
              open(f"{output}.in", "x+b") as source):
            source.write(stdin.encode("latin-1"))
            source.seek(0)
            child = subprocess.Popen(argv, env=environment, cwd=directory, stdin=source, stdout=out, stderr=err)
        child.returncode = 0  # reaped here, not by the object
        self._roles[child.pid] = role
        self._recorder.record("start", " ".join(argv), argv=argv, pid=child.pid, role=role)
        return {"pid": child.pid, "output": output}

    def op_signal(self, pid: int, number: int) -> None:
        self._recorder.record("signal", signal.Signals(number).name, pid=pid, signal=number)
        os.kill(pid, number)

    def op_process(self, pid: int) -> dict | None:
        return processes.facts(pid)

    def op_children(self, pid: int, zombies: bool) -> list[int]:
        return processes.children(pid, zombies)

    # ---- files; contents travel as Latin-1 texts, a character for each byte ----

    def op_read(self, path: str) -> str | None:
        try:
            with open(path, "rb") as file:
                return file.read().decode("latin-1")
        except FileNotFoundError:
            return None

    def op_write(self, path: str, contents: str, mode: int | None) -> None:
        with open(path, "wb") as file:
            file.write(contents.encode("latin-1"))
        if mode is not None:
            os.chmod(path, mode)

    def op_stat(self, path: str) -> dict | None:
        try:
            facts = os.lstat(path)
        except FileNotFoundError:
            return None
        return {"mode": facts.st_mode, "size": facts.st_size, "mtime": facts.st_mtime, "inode": facts.st_ino}

    def op_list(self, path: str) -> list[str]:
        return sorted(os.listdir(path))

    def op_make_folder(self, path: str, mode: int) -> None:
        os.makedirs(path, exist_ok=True)
        os.chmod(path, mode)

    def op_remove(self, path: str) -> None:
        if os.path.isdir(path) and not os.path.islink(path):
            import shutil  # here, because loading it takes a sixth of the time in which a router starts
            shutil.rmtree(path)
        elif os.path.lexists(path):
            os.unlink(path)

    # ---- the timeline ----

    def op_mark(self, text: str) -> int:
        return self._recorder.record("mark", text)

    def op_sync(self) -> int:
        return self._recorder.sync()

    # ---- the servers and stand-ins: the method of that name ----

    def op_server(self, server: str, method: str, arguments: dict):
        servers = {"api": self._api, "dns": self._names, "syslog": self._syslog, "programs": self._stand_ins}
        return getattr(servers[server], method)(**arguments)


def _be_guard(keeper: int) -> None:
    """Outside the pid namespace: kills the keeper when the Router is gone, and leaves when the keeper is."""
    watch = os.pidfd_open(keeper)
    ready, _, _ = select.select([watch, sys.stdin], [], [])
    if watch not in ready:
        signal.pidfd_send_signal(watch, signal.SIGKILL)
    os.waitpid(keeper, 0)


def main() -> None:
    line = socket.socket(fileno=int(sys.argv[1]))
    namespaces.unshare()
    keeper = os.fork()
    if keeper:
        line.close()
        return _be_guard(keeper)
    try:
        namespaces.die_with_parent()
        os.setsid()  # or the router's programs would belong to a group and a session that they cannot see
        os.dup2(os.open("/dev/null", os.O_RDONLY), 0)
        os.chdir("/")
        os.umask(0o022)
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        channel = Channel(line)
        settings = channel.receive()
        namespaces.furnish(settings["stand_in"], settings["resolver_options"])
        Keeper(channel, settings).run()
    except BaseException:
        sys.excepthook(*sys.exc_info())
        os._exit(1)
    os._exit(0)  # with PID 1 everything ends


if __name__ == "__main__":
    main()
