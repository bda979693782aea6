"""Sandbox: the commands of the demonstration's prompt."""

import json
import os

import pytest

from sandbox import editing, playground
from sandbox.playground import TAKES_EFFECT, Playground
from sandbox.show import Show


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
    (tmp_path / "x.json").write_text('{"greTunnels": [{"name": "a"}]}')
    assert play(f"load {tmp_path}/x.json") == TAKES_EFFECT + "\n"
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
