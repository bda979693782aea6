"""How large the executables are, and how much stack the program's threads need."""

import pathlib
import subprocess
import tempfile

from bench import documents
from bench.room import Room
from bench.section import Goal, Section, Table

MOST_SHARED = 150.0  # KB, stripped, with a shared libstdc++
MOST_OF_COMPANION = 307.2  # 300 KiB
DEEPEST = 1000  # levels of a document that the parser takes
# An answer with 40 addresses is too long for one UDP packet; a refused name is asked for a second time, by other means.
NAMES = {"one.example.net": "203.0.113.1", "many.example.net": [f"203.0.113.{i}" for i in range(1, 41)],
         "refused.example.net": "REFUSED", "silent.example.net": "SILENT", "none.example.net": "NXDOMAIN",
         f"{'long.' * 40}example.net": "203.0.113.2"}
MOST_OF_STACK = 0.75


def measure_size(shared: pathlib.Path, self_contained: pathlib.Path, companion: pathlib.Path) -> Section:
    data = {"tunnel_mngr, shared": sizes_of(shared), "tunnel_mngr, its own": sizes_of(self_contained),
            "tunnelctl, shared": sizes_of(companion)}
    rows = [[what, f"{s['file'] / 1e3:.1f}", f"{s['text'] / 1e3:.1f}", f"{(s['data'] + s['bss']) / 1e3:.1f}",
             " ".join(s["needs"])] for what, s in data.items()]
    table = Table("The stripped executables of the release preset, in KB",
                  ["executable, C++ library", "file", "text", "data and bss", "shared libraries that it names"], rows)
    goals = [Goal(f"{name} stripped, with a shared C++ library", data[f"{name}, shared"]["file"] / 1e3, most, " KB")
             for name, most in (("tunnel_mngr", MOST_SHARED), ("tunnelctl", MOST_OF_COMPANION))]
    return Section("Size", [table], goals, data)


def sizes_of(program: pathlib.Path) -> dict:
    with tempfile.NamedTemporaryFile() as stripped:
        _output(["strip", "-o", stripped.name, str(program)])
        text, data, bss = map(int, _output(["size", stripped.name]).splitlines()[1].split()[:3])
        file_size = pathlib.Path(stripped.name).stat().st_size
    dynamic = _output(["readelf", "-dW", str(program)]).splitlines()
    needs = [line.rpartition("[")[2].rstrip("]") for line in dynamic if "(NEEDED)" in line]
    return {"file": file_size, "text": text, "data": data, "bss": bss, "needs": needs}


def measure_stacks(program: pathlib.Path, programs: pathlib.Path) -> Section:
    with Room(program, programs, documents.configuration(0, 0), resolver_options="timeout:1 attempts:1") as room:
        for name, answer in NAMES.items():
            room.router.dns.set(name, answer)
        room.router.api.on("wans", body=_wan_list(DEEPEST + 1))
        if room.output([str(programs / "stack_use")]).split()[0] != "request:":
            raise RuntimeError(f"a document of {DEEPEST} levels is not the deepest that the parser takes")
        room.router.api.on("wans", body=_wan_list(DEEPEST))
        lines = room.output([str(programs / "stack_use"), *NAMES]).splitlines()
    data = {}
    for line in lines:
        call, used, given = line.rsplit(" ", 2)
        data[call] = {"used": int(used), "given": int(given)}
    _require_answers(list(data))
    rows = [[_shortened(call), f"{d['used'] / 1024:.1f}", d["given"] // 1024, f"{d['used'] / d['given']:.1%}"]
            for call, d in data.items()]
    goals = [Goal("the fullest stack", max(d["used"] / d["given"] for d in data.values()), MOST_OF_STACK)]
    table = Table(f"Stack used by the monitors' calls in KiB: a WAN list {DEEPEST} levels deep, and look-ups",
                  ["call : address found", "used", "given", "share"], rows)
    return Section("Stacks", [table], goals, data)


def _wan_list(depth: int) -> str:
    """The WAN comes first, and behind it lists in lists; the envelope is one level of the document and the list of WANs
    another."""
    levels = depth - 2
    return ('{"code": 200, "result": [{"current": true, "ip": "' + documents.WAN + '"}, '
            + "[" * levels + "]" * levels + "]}")


def _require_answers(calls: list[str]) -> None:
    expected = [f"request:{documents.WAN}"]
    for name, answer in NAMES.items():
        first = answer[0] if isinstance(answer, list) else answer
        expected.append(f"{name}:{'' if first.isalpha() else first}")
    if calls != expected:
        raise RuntimeError(f"the calls found {calls} instead of {expected}")


def _shortened(text: str) -> str:
    return text if len(text) <= 40 else f"{text[:15]}...{text[-22:]}"


def _output(argv: list[str]) -> str:
    return subprocess.run(argv, check=True, capture_output=True, text=True).stdout
