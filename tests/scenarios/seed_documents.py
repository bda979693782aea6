"""The seeds of the fuzzers (tests/fuzz/seeds) as what a run may meet: documents, answers in place of them, and the list of
the kernel's tunnels."""

import copy
import json
import pathlib
from typing import NamedTuple

ROOT = pathlib.Path(__file__).parents[2]
SEEDS = ROOT / "tests" / "fuzz" / "seeds"
EXAMPLES = ROOT / "docs" / "examples"  # the seeds of the fuzzers of whole documents
REQUESTS = ("wans", "tunnels", "openvpn", "syslog")
NOT_OF_A_RUN = {"ip_listing", "ipsec_listing", "openvpn_status"}  # only `tunnelctl status` reads these


class Case(NamedTuple):
    """`answers`: by request, the bytes of the API's answer in place of the document; `kernel`: what `ip tunnel` prints."""

    name: str
    documents: dict
    answers: dict[str, bytes] = {}
    kernel: str = ""


def _sensible() -> dict:
    return json.loads((EXAMPLES / "router.json").read_text())


def _with_member(kind: str, members: tuple[str, ...], value: str) -> dict:
    """A sensible configuration in which these members of every record of a kind have this value."""
    configuration = copy.deepcopy(_sensible())
    for record in configuration[kind]:
        record.update(dict.fromkeys(members, value))
    return configuration


def _text(seed: pathlib.Path) -> str:
    return seed.read_bytes().decode("latin-1")


# What the seeds of a folder become.
CASES = {
    "envelope": lambda seed: [Case(f"{seed.name} as {request}", _sensible(), {request: seed.read_bytes()}) for request in REQUESTS],
    "kernel_inventory": lambda seed: [Case(seed.name, _sensible(), kernel=_text(seed))],
    "option_text": lambda seed: [Case(seed.name, _with_member("ovpnTunnels", ("config",), _text(seed)))],
    "proposals": lambda seed: [Case(seed.name, _with_member("ipsecTunnels", ("phase1", "phase2"), _text(seed)))],
}


def cases() -> list[Case]:
    found = [Case(path.name, json.loads(path.read_text())) for path in sorted(EXAMPLES.glob("*.json"))]
    for folder, cases_of in CASES.items():
        found += [case for seed in sorted((SEEDS / folder).iterdir()) for case in cases_of(seed)]
    return found
