"""Faults of the configuration API: whatever it answers, and if it does not, the daemon says why the run has failed, and
the next good answer makes the router whole again. docs/faults.md tells an operator of each."""

import signal

import pytest

from daemon_stories import RUN_BEGINS
from fault_stories import ALL_DOWN, RUN_ENDS, Fault, Subject, assert_survived, shimmed_router, subject, suffer
from tunnel_records import BAD_JSON, NO_WAN_INFORMATION, TAG, WANS_URL, lines

NO_OPENVPN_CONFIGURATION = f"{TAG} Failed read config"
PERFORM = f"{TAG} curl_easy_perform() failed: "
TIMED_OUT = f"{PERFORM}Timeout was reached"
MEGABYTES_50 = 50_000_000
GRE_GONE = frozenset({"ipsec", "openvpn"})

# How one answer fails, and the line that says why. With /run/impatient a minute of silence is a second.
ANSWERS = {
    "hangs": ({"hang": True}, TIMED_OUT),
    "is cut off half-way": ({"cut": 20}, f"{PERFORM}Transferred a partial file"),
    "is nothing": ({"close": True}, f"{PERFORM}Server returned nothing (no headers, no data)"),
    "is garbage": ({"body": bytes(range(256)) * 16}, BAD_JSON),
    "is an error": ({"envelope": {"code": 500, "result": []}, "http_status": 500},
                    f"{TAG} api returned error code [500]"),
}

# What a run makes of it, by document: its lines, and the tunnels that are left.
DOCUMENTS = {"openvpn": (lambda line: [NO_OPENVPN_CONFIGURATION], GRE_GONE),
             "syslog": (lambda line: [NO_OPENVPN_CONFIGURATION], GRE_GONE),
             "wans": (lambda line: [line, NO_WAN_INFORMATION], ALL_DOWN),
             "tunnels": (lambda line: [line], ALL_DOWN)}


def _answers_badly(subject: Subject, document: str, how: dict) -> None:
    subject.router.write_file("/run/impatient", "")
    subject.router.api.on(document, **how)


def _answers_well(subject: Subject) -> None:
    subject.router.api.reset()
    subject.router.remove("/run/impatient")


FAULTS = [Fault(f"the answer for {document} {what}",
                inject=lambda subject, document=document, how=how: _answers_badly(subject, document, how),
                heal=_answers_well, errors=said(line), warnings=[], up=left)
          for document, (said, left) in DOCUMENTS.items() for what, (how, line) in ANSWERS.items()]
FAULTS += [Fault("the answer for tunnels stops half-way",
                 inject=lambda subject: _answers_badly(subject, "tunnels", {"dribble": (10, 60)}),
                 heal=_answers_well, errors=[TIMED_OUT], warnings=[], up=ALL_DOWN)]
FAULTS += [Fault(f"the API {what}", inject=lambda subject, how=how: getattr(subject.router.api, how)(),
                 heal=lambda subject: subject.router.api.present(), errors=[NO_OPENVPN_CONFIGURATION], warnings=[],
                 up=GRE_GONE)
           for what, how in {"is absent": "absent", "refuses connections": "refuse"}.items()]


@pytest.mark.parametrize("fault", FAULTS, ids=str)
def test_an_api_that_fails(make_router, fault):
    assert_survived(subject(make_router), fault)


def test_an_api_that_takes_no_request(make_router):
    """It takes the connection, and nobody reads what is asked."""
    assert_survived(subject(make_router), Fault(
        "the API is deaf", inject=lambda subject: [subject.router.write_file("/run/impatient", ""),
                                                   subject.router.api.deaf()],
        heal=lambda subject: subject.router.api.present(), errors=[NO_OPENVPN_CONFIGURATION], up=GRE_GONE))


@pytest.mark.parametrize("document", DOCUMENTS)
def test_fifty_megabytes_of_garbage_are_given_back(make_router, document):
    story = subject(make_router)
    said, left = DOCUMENTS[document]
    before = story.daemon.rss_kib()
    suffer(story, Fault("garbage", heal=lambda _: None, errors=said(BAD_JSON), up=left,
                        inject=lambda subject: subject.router.api.on(document, times=1, body="x" * MEGABYTES_50)))
    story.assert_whole()
    assert story.daemon.rss_kib() < before + 4096
    story.assert_ends()


def test_a_good_document_of_fifty_megabytes_is_obeyed_and_given_back(make_router):
    story = subject(make_router)
    before = story.daemon.rss_kib()
    suffer(story, Fault("large", heal=lambda _: None, errors=[], warnings=[], inject=lambda subject:
                        subject.router.documents.update(ni={"nis": [], "more": "x" * MEGABYTES_50}, ipsecTunnels=[]),
                        up=frozenset({"gre", "openvpn"})))
    story.assert_whole()
    assert story.daemon.rss_kib() < before + 4096
    story.assert_ends()


def test_answers_that_dribble_are_waited_for(make_router):
    """Every answer, byte by byte."""
    assert_survived(subject(make_router), Fault(
        "the API dribbles", inject=lambda subject: subject.router.api.on(dribble=(1, 0.002)),
        heal=lambda subject: subject.router.api.reset(), errors=[], warnings=[]))


@pytest.mark.slow
def test_a_little_more_than_a_byte_a_second_is_fast_enough(make_router):
    """For longer than the minute after which a silent API is given up."""
    story = subject(make_router)
    story.router.documents["wans"] += [{"current": False, "ip": "198.51.100.77"}]  # some bytes more
    story.router.api.on("wans", times=1, dribble=(1, 0.9))
    mark = story.router.mark("a byte in nine tenths of a second")
    story.daemon.signal(signal.SIGHUP)
    asked = story.router.wait_for("answer", WANS_URL, since=mark)
    ended = story.router.wait_for("log", RUN_ENDS, since=mark, timeout=240)
    assert ended.time - asked.time > 60
    story.assert_built(mark, ["gre1"])
    story.assert_whole()
    story.assert_ends()


@pytest.mark.slow
def test_an_api_that_is_away_for_a_while_costs_tunnels_and_brings_them_back_by_itself(make_router):
    """Nobody asks for a refresh: the WAN monitor looks every half minute. What it cannot see counts as no WAN. Beside
    it, a daemon that is started without the API."""
    story = subject(make_router)
    story.router.api.absent()
    mark = story.router.mark("the API is absent")
    early_router = shimmed_router(make_router)
    early_router.api.absent()
    early = Subject(early_router, whole=False)
    story.router.wait_for("log", RUN_ENDS, since=mark, timeout=60)
    assert lines(story.router, "ERROR", mark)[-1] == NO_OPENVPN_CONFIGURATION
    story.wait_for_tunnels(GRE_GONE)
    early.wait_for_tunnels(ALL_DOWN)
    marks = []
    for each in (story, early):
        each.change()
        marks.append(each.router.mark("the API is present"))
        each.router.api.present()  # one of them may look at once
    for each, mark in zip((story, early), marks):
        begun = each.router.wait_for("log", RUN_BEGINS, since=mark, timeout=60)
        each.router.wait_for("log", RUN_ENDS, since=begun.number)
        each.assert_built(begun.number, [])
        each.assert_ends()


@pytest.mark.asan
def test_good_and_bad_answers_in_turn(make_router):
    """Each bad run is followed by a good one, and what one of them leaves behind would show in the next."""
    story = subject(make_router)
    for document, (said, left) in DOCUMENTS.items():
        for how, line in (ANSWERS["is cut off half-way"], ANSWERS["is garbage"], ANSWERS["is an error"]):
            suffer(story, Fault("once", heal=lambda _: None, errors=said(line), warnings=[], up=left,
                                inject=lambda subject: subject.router.api.on(document, times=1, **how)))
            story.assert_whole()
    story.assert_ends()
