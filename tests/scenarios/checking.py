"""`tunnelctl check` on documents, outside of any router."""

import json
import pathlib
import subprocess
from typing import NamedTuple

from companion import companion

ROOT = pathlib.Path(__file__).parents[2]
SAMPLE = ROOT / "docs" / "examples" / "router.json"


class Finding(NamedTuple):
    severity: str
    id: str
    pointer: str
    message: str


def run_check(program: str, *words: str, stdin: str | bytes = "") -> subprocess.CompletedProcess:
    data = stdin if isinstance(stdin, bytes) else stdin.encode()
    done = subprocess.run([companion(program), "check", *words], input=data, capture_output=True)
    return subprocess.CompletedProcess(done.args, done.returncode, done.stdout.decode(errors="surrogateescape"),
                                       done.stderr.decode())


def findings(program: str, documents: dict) -> list[Finding]:
    done = run_check(program, "-", "--json", stdin=json.dumps(documents))
    answer = json.loads(done.stdout)
    assert (answer["command"], answer["version"], done.stderr) == ("check", 1, "")
    found = [Finding(**finding) for finding in answer["findings"]]
    assert done.returncode == (1 if found else 0)
    return found


def sample() -> dict:
    return json.loads(SAMPLE.read_text())
