"""Sandbox: the demonstration's prompt on a terminal: what is typed, what happens meanwhile, a shell, an editor."""

import contextlib
import os
import pty
import select
import signal
import sys
import termios
import time

import pytest

from sandbox.playground import TAKES_EFFECT
from test_sandbox import ROOT

RUN_TEXT = "import os, sys; os.system(' '.join(sys.argv[1:]))"

# Each line that comes through the pipe whose descriptor is the last word becomes a mark, which is shown as a heading.
PLAY = """
import sys, threading
sys.path.insert(0, sys.argv[1])
from sandbox.playground import Playground
from sandbox.router import Router
from sandbox.show import Show

with Router(sys.argv[2]) as router:
    def mark():
        for line in open(int(sys.argv[3])):
            router.mark(line.strip())
    threading.Thread(target=mark, daemon=True).start()
    Playground(router, Show(router), lambda: "the tunnels").run()
print("over")
"""


LOCAL_MODES = 3  # of the list that termios.tcgetattr returns


def screen(data: bytes) -> list[str]:
    """The lines that a terminal shows which has been sent this. TERM=dumb has nothing but these to move with."""
    rows, column = [""], 0
    for character in data.decode():
        if character == "\n":
            rows.append("")
        elif character == "\r":
            column = 0
        elif character == "\b":
            column -= 1
        elif character != "\a":
            rows[-1] = rows[-1][:column].ljust(column) + character + rows[-1][column + 1:]
            column += 1
    return [row.rstrip() for row in rows]


class Terminal:
    """A person at a terminal where the prompt is."""

    DEADLINE = 30  # seconds, for whatever is waited for

    def __init__(self, pid: int, descriptor: int, marks: int):
        self._pid = pid
        self._descriptor = descriptor
        self._marks = marks
        self.output = b""

    def press(self, keys: str) -> None:
        os.write(self._descriptor, keys.encode())

    def happen(self, text: str) -> None:
        os.write(self._marks, text.encode() + b"\n")

    def stop_and_go_on(self) -> None:
        """What Ctrl-Z and fg in a login shell come to: the shell in between has the terminal read line by line."""
        mode = termios.tcgetattr(self._descriptor)
        mode[LOCAL_MODES] |= termios.ICANON | termios.ECHO
        termios.tcsetattr(self._descriptor, termios.TCSANOW, mode)
        os.kill(self._pid, signal.SIGCONT)
        deadline = time.monotonic() + self.DEADLINE
        while termios.tcgetattr(self._descriptor)[LOCAL_MODES] & termios.ICANON:
            assert time.monotonic() < deadline, "the terminal is still read line by line"
            time.sleep(0.01)

    def wait_for_last(self, *rows: str) -> None:
        """Waits until these are the last lines on the screen."""
        deadline = time.monotonic() + self.DEADLINE
        while screen(self.output)[-len(rows):] != list(rows):
            left = deadline - time.monotonic()
            assert left > 0 and select.select([self._descriptor], [], [], left)[0], "\n".join(screen(self.output))
            with contextlib.suppress(OSError):  # nobody is left who writes
                self.output += os.read(self._descriptor, 65536)


@pytest.fixture
def terminal(tmp_path):
    """A prompt on a terminal. The editor copies the file `next`."""
    program, editor = tmp_path / "program", tmp_path / "editor"
    program.write_text(f"#!/usr/bin/python3\n{RUN_TEXT}")
    editor.write_text(f"#!/bin/sh\ncp {tmp_path}/next \"$1\"\n")
    for file in (program, editor):
        file.chmod(0o755)
    marks_out, marks_in = os.pipe()
    environment = os.environ | {"TERM": "dumb", "EDITOR": str(editor), "NO_COLOR": "1", "INPUTRC": "/dev/null",
                                "PYTHONUNBUFFERED": ""}  # or what readline writes needs no flushing
    argv = [sys.executable, "-B", "-c", PLAY, str(ROOT), str(program), str(marks_out)]
    child, descriptor = pty.fork()  # the child leads a session whose terminal this is, as under a login shell
    if child == 0:
        os.set_inheritable(marks_out, True)
        os.execve(argv[0], argv, environment)
    os.close(marks_out)
    person = Terminal(child, descriptor, marks_in)
    try:
        person.wait_for_last("router>")
        yield person
        person.press("\x15quit\r")
        person.wait_for_last("over", "")
    except BaseException:
        os.kill(child, signal.SIGKILL)
        raise
    finally:
        status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        os.close(marks_in)
        os.close(descriptor)
    assert status == 0


def test_what_happens_appears_above_what_is_being_typed(terminal):
    terminal.press("show wons")
    terminal.wait_for_last("router> show wons")
    terminal.happen("one thing")
    terminal.wait_for_last("", "== one thing", "router> show wons")
    terminal.press("\x02\x02")  # Ctrl-B: a character to the left
    terminal.happen("another")
    terminal.wait_for_last("", "== one thing", "", "== another", "router> show wons")
    terminal.press("\x08a")
    terminal.wait_for_last("", "== another", "router> show wans")
    terminal.press("\r")
    terminal.wait_for_last("[", "  {", '    "current": true,', '    "ip": "198.51.100.2"', "  }", "]", "router>")


def test_ctrl_c_takes_back_what_was_typed(terminal):
    terminal.press("junk")
    terminal.wait_for_last("router> junk")
    terminal.press("\x03")
    terminal.wait_for_last("router>")
    terminal.press("tunnels\r")
    terminal.wait_for_last("the tunnels", "router>")


def test_a_prompt_that_was_stopped_goes_on(terminal):
    terminal.press("tun")
    terminal.wait_for_last("router> tun")
    terminal.stop_and_go_on()
    terminal.press("nel\bls")
    terminal.wait_for_last("router> tunnels")
    terminal.press("\r")
    terminal.wait_for_last("the tunnels", "router>")


def test_the_shell_controls_jobs_and_gives_the_terminal_back(terminal):
    terminal.press("shell\r")
    terminal.wait_for_last("What happens meanwhile is shown afterwards.", "inside#")
    terminal.happen("meanwhile")
    terminal.press("cat\r")
    terminal.press("said\r")
    terminal.wait_for_last("inside# cat", "said", "said", "")
    terminal.press("\x03")
    terminal.wait_for_last("said", "^C", "inside#")
    terminal.press("hostname\r")
    terminal.wait_for_last("router", "inside#")
    assert b"meanwhile\r" not in terminal.output.partition(b"inside#")[2]
    terminal.press("exit\r")
    terminal.wait_for_last("inside# exit", "", "== meanwhile", "router>")
    terminal.press("tunnels\r")
    terminal.wait_for_last("the tunnels", "router>")


def test_a_document_is_edited_until_it_is_json(terminal, tmp_path):
    (tmp_path / "next").write_text('[\n  1 2\n]\n')
    terminal.press("edit wans\r")
    sentence = "What you have written is no JSON: see line 2, column 5; edit wans goes on with it."
    terminal.wait_for_last(sentence, "router>")
    (tmp_path / "editor").write_text("#!/bin/sh\nsed -i 's/1 2/12/' \"$1\"\n")
    terminal.press("edit wans\r")
    terminal.wait_for_last(TAKES_EFFECT, "router>")
    terminal.press("show wans\r")
    terminal.wait_for_last("[", "  12", "]", "router>")
    terminal.press("edit wans\r")
    terminal.wait_for_last("You have changed nothing.", "router>")
