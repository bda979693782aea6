"""Outside: documents that a person edits or has in a file, and the mistakes that persons make."""

import ipaddress
import json
import os
import pathlib
import shlex
import shutil
import subprocess
import tempfile

from sandbox.name_server import CODES

FALLBACK_EDITORS = ("vi", "nano")
ANSWERS = sorted([*CODES, "SILENT"])  # of the name server, besides addresses


class Mistake(Exception):
    """What a person has asked for cannot be done; the text is a sentence that says why."""


def checked_address(text: str) -> str:
    try:
        return str(ipaddress.IPv4Address(text))
    except ValueError:
        raise Mistake(f"{text} is no IPv4 address such as 203.0.113.7.") from None


def checked_answer(text: str) -> str:
    """An answer for the name server to give."""
    if text.upper() in ANSWERS:
        return text.upper()
    try:
        return checked_address(text)
    except Mistake:
        words = ", ".join(ANSWERS)
        raise Mistake(f"{text} is neither an IPv4 address such as 203.0.113.7 nor one of {words}.") from None


def as_text(document) -> str:
    return json.dumps(document, indent=2) + "\n"


def parsed(text: str, source: str):
    """The document that a text holds. `source` is what a sentence about it begins with."""
    try:
        document = json.loads(text)
        json.dumps(document, allow_nan=False)  # Python also reads numbers that JSON has not
        return document
    except json.JSONDecodeError as error:
        raise Mistake(f"{source} is no JSON: see line {error.lineno}, column {error.colno}.") from None
    except ValueError:
        raise Mistake(f"{source} holds a number that JSON has not, or one that is too long.") from None
    except RecursionError:
        raise Mistake(f"{source} nests too deeply.") from None


def read_file(path: pathlib.Path) -> str:
    try:
        return path.read_text()
    except OSError as error:
        raise Mistake(f"{path} cannot be read: {error.strerror}.") from None
    except ValueError:
        raise Mistake(f"{path} is no text.") from None


def edited(text: str, name: str) -> str:
    """The text as the person's editor leaves it. The editor is on this terminal until it ends."""
    command = _editor()
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / f"{name}.json"
        path.write_text(text)
        try:
            status = subprocess.run([*command, path], check=False).returncode
        except OSError:
            raise Mistake(f"The editor {command[0]} cannot be started.") from None
        if status != 0:
            raise Mistake("The editor has failed, so everything stays as it is.")
        return read_file(path)


def _editor() -> list[str]:
    try:
        chosen = shlex.split(os.environ.get("EDITOR", ""))
    except ValueError:
        raise Mistake("The variable EDITOR has a quotation mark too many.") from None
    found = [editor for editor in FALLBACK_EDITORS if shutil.which(editor)]
    if not chosen and not found:
        raise Mistake(f"There is no editor: set EDITOR, or install {' or '.join(FALLBACK_EDITORS)}.")
    return chosen or found[:1]
