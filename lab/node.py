"""A place in the topology: namespaces of its own, and a process in them that does there what it is asked to.

Nodes are forked, not executed: where the processor is emulated, starting an interpreter takes seconds. They end with
this process, in whatever manner it ends, and with a node everything in it ends."""

import os
import signal
import socket
import subprocess
import sys

from sandbox import namespaces
from sandbox.control import Channel

COMMAND_SECONDS = 60


class CommandFailed(Exception):
    """A command that had to succeed did not; the text holds what it wrote."""


class Node:
    """Base of all nodes. `prepare` and what begins with an underscore runs inside, everything else outside."""

    def __init__(self, name: str):
        self.name = name
        ours, theirs = socket.socketpair()
        self._channel = Channel(ours)
        guard = os.fork()
        if guard == 0:
            ours.close()
            _become_node(self, Channel(theirs))
        theirs.close()
        self.pid = self._receive()  # as seen from outside
        self.ask("prepare")

    def prepare(self) -> None:
        """Called once, inside, before anything else."""

    def ask(self, method: str, *arguments):
        """Calls a method inside and returns its result; both are JSON values."""
        self._channel.send({"method": method, "arguments": arguments})
        return self._receive()

    def command(self, *words: str) -> str:
        """Runs a program inside and returns what it wrote to its standard output."""
        status, output, errors = self.ask("_run", words)
        if status != 0:
            raise CommandFailed(f"{self.name}: {' '.join(words)}: {(errors or output).strip()}")
        return output

    def start_command(self, *words: str, output: str = os.devnull) -> int:
        """Starts a program inside, its output going to a file, and returns its pid there."""
        return self.ask("_start", words, output)

    def kill(self, pid: int, number: int) -> None:
        """`pid` is one inside."""
        self.ask("_kill", pid, number)

    def configure(self, *commands: str) -> None:
        """Several ip(8) commands in one process, in this node's network; pids in them are those outside."""
        words = ["nsenter", f"--target={self.pid}", "--net", "ip", "-batch", "-"]
        result = subprocess.run(words, text=True, capture_output=True, input="\n".join(commands))
        if result.returncode != 0:
            raise CommandFailed(f"{self.name}: ip: {result.stderr.strip()}")

    def path(self, path: str) -> str:
        """The path outside of a file inside; `path` must not lead through a symbolic link."""
        return f"/proc/{self.pid}/root{path}"

    def _receive(self):
        message = self._channel.receive()
        if message is None or "error" in message:
            raise CommandFailed(f"{self.name}: {message['error'] if message else 'ended'}")
        return message["result"]

    def _run(self, words: list[str]) -> tuple[int, str, str]:
        result = subprocess.run(words, capture_output=True, text=True, stdin=subprocess.DEVNULL,
                                timeout=COMMAND_SECONDS)
        return result.returncode, result.stdout, result.stderr

    def _start(self, words: list[str], output: str) -> int:
        with open(output, "w") as file:
            return subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=file, stderr=file).pid

    def _kill(self, pid: int, number: int) -> None:
        os.kill(pid, number)


def _become_node(node: Node, channel: Channel) -> None:
    """The guard, which stays outside of the new pid namespace, and in it PID 1 and the node. Never returns."""
    signal.signal(signal.SIGINT, lambda *_: None)  # Ctrl-C is for the lab, which then ends its nodes
    try:
        namespaces.die_with_parent()
        namespaces.unshare()
        first = os.fork()
        if first:
            channel.send({"result": first})
            os.waitpid(first, 0)
            os._exit(0)
        namespaces.die_with_parent()
        server = os.fork()
        if server:
            _reap_until(server)
            os._exit(0)
        _serve(node, channel)
    except OSError as error:
        print(f"{node.name}: {error}", file=sys.stderr, flush=True)
    finally:
        os._exit(1)


def _reap_until(server: int) -> None:
    """The work of PID 1, to which the orphans of a pid namespace come. Left unreaped, an ended daemon would still look
    alive to whoever asks kill(2), as the IPsec service's tool does, which then waits for it in vain."""
    while os.wait()[0] != server:
        pass


def _serve(node: Node, channel: Channel) -> None:
    socket.sethostname(node.name)
    while (request := channel.receive()) is not None:
        try:
            channel.send({"result": getattr(node, request["method"])(*request["arguments"])})
        except Exception as error:  # told to the one who asked
            channel.send({"error": f"{request['method']}: {error}"})
