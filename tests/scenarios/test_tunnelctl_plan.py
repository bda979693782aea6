"""tunnelctl plan: it says what the next run would do, byte by byte, and does nothing."""

import json
import os
import pathlib

import pytest

from daemon_stories import preloaded
from generated_documents import documents
from plan_exactness import SHIM, Comparison, plan, snapshot

# The seeds of the generated documents, and a folder of others: scripts/exactness has more of both.
FIRST, LAST = (int(number) for number in os.environ.get("TUNNEL_MNGR_SEEDS", "1-40").split("-"))
KEPT = os.environ.get("TUNNEL_MNGR_KEPT_DOCUMENTS")
CHUNK = 10  # documents for one daemon
ROOT = pathlib.Path(__file__).parents[2]


@pytest.fixture
def comparison(make_router, tmp_path) -> Comparison:
    router = make_router(environment=preloaded(tmp_path, SHIM))
    router.make_ipsec_folders()
    router.dns.set("a.example", "203.0.113.21")
    router.dns.set("b.example", "203.0.113.22")
    return Comparison(router)


def test_a_plan_is_what_the_daemon_does(comparison):
    comparison.compare(json.loads((ROOT / "docs" / "examples" / "router.json").read_text()))


@pytest.mark.parametrize("first", range(FIRST, LAST + 1, CHUNK))
def test_generated_documents_are_planned_as_they_are_run(comparison, first):
    outcomes = {comparison.compare(documents(seed))["outcome"] for seed in range(first, min(first + CHUNK, LAST + 1))}
    assert "done" in outcomes


@pytest.mark.skipif(KEPT is None, reason="TUNNEL_MNGR_KEPT_DOCUMENTS names no folder of documents; scripts/exactness makes one")
def test_kept_documents_are_planned_as_they_are_run(comparison):
    paths = sorted(pathlib.Path(KEPT).glob("*.json"))
    for path in paths:
        comparison.compare(json.loads(path.read_text()))
    assert paths
