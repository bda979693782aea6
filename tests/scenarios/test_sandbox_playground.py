"""Sandbox: the commands of the demonstration's prompt, and the prompt itself on a terminal."""

import contextlib
import json
import os
import pty
import select
import signal
import sys
import termios
import time

import pytest

from sandbox import editing, playground
from sandbox.playground import TAKES_EFFECT, Playground
from sandbox.show import Show
from test_sandbox import ROOT

RUN_TEXT = "import os, sys; os.system(' '.join(sys.argv[1:]))"


# ---- commands, from a pipe ----

@pytest.fixture
def played(routed, monkeypatch, capsys):
    """A router, and a function that gives a command and returns what it prints."""
    monkeypatch.setattr(playground, "on_terminal", lambda: False)
    router = routed("import os; os.system('ip tunnel')")
    commands = Playground(router, Show(router), lambda: "the tunnels")

    def play(text: str) -> str:
        assert not commands.onecmd(text)
        return capsys.readouterr().out
    return router, play


@pytest.mark.parametrize("text, sentence", [
    ("wann", "There is no command wann: help lists those that there are."),
    ("wan 1.2.3", "1.2.3 is no IPv4 address such as 203.0.113.7."),
    ("wan 01.2.3.4", "01.2.3.4 is no IPv4 address such as 203.0.113.7."),
    ("wan 1.2.3.4 5.6.7.8", "This is used as: wan [ADDRESS]"),
    ("wan '1.2.3.4", "A quotation mark is missing, or a character after a backslash."),
    ("host a.example", "This is used as: host NAME ANSWER"),
    ("host a.example ::1", "::1 is neither an IPv4 address such as 203.0.113.7 nor one of FORMERR, NODATA, NOTIMP,"
                           " NXDOMAIN, REFUSED, SERVFAIL, SILENT."),
    ("show nothing", "There is no document nothing: there are wans, greTunnels, ipsecTunnels, ni, ovpnTunnels,"
                     " syslog."),
    ("load", "This is used as: load FILE"),
    ("load /nowhere/x.json", "/nowhere/x.json cannot be read: No such file or directory."),
    ("load /tmp", "/tmp cannot be read: Is a directory."),
    ("edit wans", "The command edit needs a terminal."),
    ("shell", "The command shell needs a terminal."),
    ("refresh now", "This is used as: refresh"),
])
def test_a_mistake_gets_one_sentence_and_changes_nothing(played, text, sentence):
    router, play = played
    before = dict(router.documents)
    assert play(text) == sentence + "\n"
    assert dict(router.documents) == before and router.timeline() == []


@pytest.mark.parametrize("contents, sentence", [
    ('{\n  "wans": [],\n}\n', "is no JSON: see line 3, column 1."),
    ("[]", "holds no object with members such as greTunnels."),
    ('{"wans": [NaN]}', "holds a number that JSON has not, or one that is too long."),
    ('{"wans": [1e999]}', "holds a number that JSON has not, or one that is too long."),
    ("[" * 100_000, "nests too deeply."),
    (b"\xff", "is no text."),
])
def test_a_file_that_is_no_configuration_gets_one_sentence(played, tmp_path, contents, sentence):
    router, play = played
    file = tmp_path / "x.json"
    file.write_bytes(contents if isinstance(contents, bytes) else contents.encode())
    before = dict(router.documents)
    assert play(f"load {file}") == f"{file} {sentence}\n"
    assert dict(router.documents) == before


def test_a_document_of_an_unknown_name_is_not_loaded(played, tmp_path):
    router, play = played
    (tmp_path / "x.json").write_text('{"wans": [], "wan": []}')
    assert play(f"load {tmp_path}/x.json").startswith("There is no document wan: ")
    assert router.documents["wans"] != []


def test_documents_are_loaded_and_shown(played, tmp_path):
    router, play = played
    (tmp_path / "x.json").write_text('{"greTunnels": [{"name": "a"}], "ipsecTunnels": [{"caCert": "@CA_CERT@"}]}')
    assert play(f"load {tmp_path}/x.json") == TAKES_EFFECT + "\n"
    assert router.documents["ipsecTunnels"][0]["caCert"].startswith("-----BEGIN CERTIFICATE-----")
    assert json.loads(play("show greTunnels")) == [{"name": "a"}]
    assert json.loads(play("show")) == dict(router.documents)


def test_the_wan_and_hosts_are_changed(played):
    router, play = played
    assert "within 30 seconds" in play("wan 192.0.2.9")
    assert router.documents["wans"] == [{"current": True, "ip": "192.0.2.9"}]
    play("wan")
    assert router.documents["wans"] == []
    for answer in ("192.0.2.7", "nxdomain"):
        assert "every checkPeriod minutes" in play(f"host a.example {answer}")
        router.exec(["/usr/bin/getent", "hosts", "a.example"])
        assert router.find("dns", "a.example")[-1].answer == answer.upper()


def test_refresh_runs_the_program_and_the_rest_lists(played):
    router, play = played
    assert play("refresh") == ""
    router.wait_for("exit", status=0)
    assert "command  ip tunnel" in play("timeline")
    assert play("tunnels") == "the tunnels\n"
    help_text = play("help")
    for name in ("wan", "host", "show", "edit", "load", "refresh", "tunnels", "timeline", "shell", "quit"):
        assert f"\n  {name} " in help_text


def test_without_an_editor_there_is_a_sentence(monkeypatch, tmp_path):
    monkeypatch.delenv("EDITOR", raising=False)
    monkeypatch.setattr(editing.shutil, "which", lambda name: None)
    with pytest.raises(editing.Mistake, match="^There is no editor: set EDITOR, or install vi or nano.$"):
        editing.edited("[]", "wans")
    monkeypatch.setattr(editing.shutil, "which", lambda name: name)
    (tmp_path / "vi").write_text("#!/bin/sh\necho '[1]' > \"$1\"\n")
    (tmp_path / "vi").chmod(0o755)
    monkeypatch.setenv("PATH", f"{tmp_path}:{os.environ['PATH']}")
    assert editing.edited("[]", "wans") == "[1]\n"


@pytest.mark.parametrize("editor, sentence", [
    ("/nowhere/editor", "The editor /nowhere/editor cannot be started."),
    ("false", "The editor has failed, so everything stays as it is."),
    ("sh '", "The variable EDITOR has a quotation mark too many."),
])
def test_an_editor_that_fails_gets_a_sentence(monkeypatch, editor, sentence):
    monkeypatch.setenv("EDITOR", editor)
    with pytest.raises(editing.Mistake) as mistake:
        editing.edited("[]", "wans")
    assert str(mistake.value) == sentence


# ---- the prompt, on a terminal ----

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
