"""Faults in pairs: two at the same time, healed one after the other in either order. When one is gone, a run is as
under the other alone, and when both are, the router is whole again. docs/faults.md tells an operator of each."""

import dataclasses
import itertools

import pytest

from fault_stories import Fault, Subject, subject
from test_faults_api import FAULTS as API
from test_faults_files import FAULTS as FILES
from test_faults_limits import ROOM, limit_descriptors
from test_faults_names import FAULTS as NAMES
from test_faults_programs import FAULTS as PROGRAMS
from tunnel_records import lines


def named(faults: list[Fault], name: str) -> Fault:
    return next(fault for fault in faults if fault.name == name)


# Those that publish a configuration stand first, as that gives the names their addresses again.
CHOSEN = [
    dataclasses.replace(named(FILES, "/var/run is full"), errors=None),  # they name another file each time
    named(FILES, "/var/run/ipsec is missing"),
    named(API, "the answer for openvpn hangs"),
    named(API, "the API refuses connections"),
    named(NAMES, "the name server is silent"),
    named(PROGRAMS, "ip cannot list"),
    named(PROGRAMS, "openvpn is missing"),
    Fault("descriptors are few", lambda subject: limit_descriptors(subject, subject.descriptors + 4),
          lambda subject: limit_descriptors(subject, ROOM)),
]


def said(subject: Subject, mark: int) -> tuple[list[str], list[str]]:
    return lines(subject.router, "ERROR", mark), lines(subject.router, "WARNING", mark)


def assert_run_is_as_under(subject: Subject, fault: Fault) -> None:
    errors, warnings = said(subject, subject.run())
    assert fault.errors in (None, errors) and fault.warnings in (None, warnings)


def assert_nothing_else_was_said(subject: Subject, mark: int, faults: tuple[Fault, Fault]) -> None:
    """Of a run under both: it says what one of them alone would have it say."""
    for label, texts in zip(("errors", "warnings"), said(subject, mark)):
        known = [getattr(fault, label) for fault in faults]
        if None not in known:
            assert set(texts) <= set(itertools.chain(*known))


@pytest.mark.parametrize("pair", itertools.combinations(CHOSEN, 2), ids=lambda pair: f"{pair[0]} and {pair[1]}")
def test_two_faults_at_a_time(make_router, pair):
    story = subject(make_router)
    for healed_first, healed_last in (pair, pair[::-1]):
        for fault in pair:
            fault.inject(story)
        mark = story.run()
        story.wait_for_children()  # one that cannot become openvpn says so, which is not for the next run to answer for
        assert_nothing_else_was_said(story, mark, pair)
        healed_first.heal(story)
        assert_run_is_as_under(story, healed_last)
        healed_last.heal(story)
        story.assert_whole()
    story.assert_ends()
