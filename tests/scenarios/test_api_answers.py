"""Configuration API: what counts as an answer, and what a run makes of it. The answers here are those to the request for
the tunnels, the last one of a run."""

import json

import pytest

from daemon_stories import documents
from tunnel_records import (BAD_JSON, TAG, TUNNELS_URL, WANS_URL, create_command, gre_tunnel, ip_commands, lines,
                            router_with, run_once)

TUNNELS = json.dumps({"greTunnels": [gre_tunnel()]})
GOOD = '{"code":200,"result":' + TUNNELS + "}"


def nested(levels: int) -> str:
    """A good answer whose deepest value lies that many levels deep, its root being the first."""
    return GOOD[:-1] + ',"more":' + "[" * (levels - 1) + "]" * (levels - 1) + "}"


def answered(make_router, **how):
    """A router in which the program has run once, the tunnels having been answered like that."""
    router = router_with(make_router, documents(gre_tunnel("other")))
    router.api.on("tunnels", **how)
    run_once(router)
    return router


def assert_tunnels_taken(router):
    assert lines(router, "ERROR") == []
    assert ip_commands(router) == [create_command(), "ip link set gre1 up"]


def assert_refused(router, error: str):
    """One ERROR line, and nothing that comes after the request in a run."""
    assert lines(router, "ERROR") == [error]
    assert ip_commands(router) == []
    assert "firewall --init" not in router.command_texts()


def test_the_requests_of_a_run(make_router):
    router = router_with(make_router, documents())
    run_once(router)
    requests = [(event.method, event.text) for event in router.find("api")]
    assert requests[0] == requests[-2] == ("GET", WANS_URL)
    assert requests[-1] == ("GET", TUNNELS_URL)


def test_a_good_answer_is_taken(make_router):
    assert_tunnels_taken(answered(make_router, body=GOOD))


@pytest.mark.asan
@pytest.mark.parametrize("body", [
    pytest.param("", id="nothing"),
    pytest.param(" \r\n\t", id="white space"),
    pytest.param("\ufeff" + GOOD, id="byte order mark"),
    pytest.param("5", id="number at the top"),
    pytest.param('"text"', id="text at the top"),
    pytest.param("true", id="bool at the top"),
    pytest.param("null", id="null at the top"),
    pytest.param("<html><body>busy</body></html>", id="HTML"),
    pytest.param("/* no */ " + GOOD, id="comment before the root"),
    pytest.param("// no\n" + GOOD, id="line comment before the root"),
    pytest.param('{"code": /* no */ 200}', id="comment before a value"),
    pytest.param('{"code":200,"result":[/* no */ 1]}', id="comment in an array"),
    pytest.param(GOOD[:-1] + ",}", id="trailing comma in the object"),
    pytest.param('{"code":200,"result":[1,]}', id="trailing comma in an array"),
    pytest.param(GOOD[:-1], id="end missing"),
    pytest.param(GOOD[:len(GOOD) // 2], id="half of it"),
    pytest.param('{"code":200 "result":[]}', id="comma missing"),
    pytest.param("{'code':200}", id="single quotes"),
    pytest.param("{code:200}", id="name without quotes"),
    pytest.param('{"code":+200}', id="plus sign"),
    pytest.param('{"code":200,"result":NaN}', id="NaN"),
    pytest.param('{"code":200,"result":1e400}', id="number too large"),
    pytest.param('{"code":200,"result":"\\ud83d"}', id="half a surrogate pair"),
    pytest.param(b'{"code":200,\0"result":{}}', id="NUL byte"),
    pytest.param(b"\x1f\x8b\x08\0\0\0\0\0\0\xff\xfe", id="binary"),
    pytest.param(nested(1001), id="nested 1001 levels deep"),
    pytest.param("[" * 200_000, id="opened 200000 times"),
])
def test_what_is_no_strict_json_is_refused(make_router, body):
    assert_refused(answered(make_router, body=body), BAD_JSON)


@pytest.mark.asan
@pytest.mark.parametrize("body", [
    pytest.param(GOOD + " x", id="word after the root"),
    pytest.param(GOOD + "}", id="brace after the root"),
    pytest.param(GOOD + " // done", id="comment after the root"),
    pytest.param(GOOD + GOOD, id="a second root"),
    pytest.param(GOOD.encode() + b"\0\xff", id="binary after the root"),
    pytest.param("\n\t " + GOOD + "\n", id="white space around it"),
    pytest.param(GOOD.replace("}}", '}/**/,/**/"other":1}'), id="comments where the parser takes them"),
    pytest.param('{"code":404,' + GOOD[1:], id="the last of two codes"),
    pytest.param(GOOD[:-1] + ',"note":"\t\u00e9\\u0000"}', id="control characters in a text"),
    pytest.param(GOOD.encode()[:-1] + b',"note":"\xff\xc3"}', id="invalid UTF-8 in a text"),
    pytest.param(nested(1000), id="nested 1000 levels deep"),
])
def test_what_the_strict_parser_takes_is_taken(make_router, body):
    assert_tunnels_taken(answered(make_router, body=body))


@pytest.mark.parametrize("envelope, shown", [
    ({"code": 404, "result": []}, 404), ({"code": 404, "result": json.loads(TUNNELS)}, 404),
    ({"result": json.loads(TUNNELS)}, 0), ({}, 0), ({"code": 0}, 0), ({"code": None}, 0), ({"code": 201}, 201),
    ({"code": True}, 1), ({"code": 199.9}, 199), ({"code": "200"}, 0), ({"code": -1}, 0), ({"code": []}, 0),
    ({"code": {"code": 200}}, 0), ({"code": 2 ** 32}, 0), ({"code": 2 ** 32 - 1}, -1), ([], 0), ([200], 0),
    ([{"code": 200}], 0), ({"Code": 200}, 0),
], ids=lambda value: json.dumps(value)[:40])
def test_a_code_other_than_200_is_an_error(make_router, envelope, shown):
    assert_refused(answered(make_router, envelope=envelope), f"{TAG} api returned error code [{shown}]")


@pytest.mark.parametrize("code", ["200", "200.0", "200.9", "2e2", "0200"])
def test_a_code_that_reads_as_200_is_success(make_router, code):
    assert_tunnels_taken(answered(make_router, body=GOOD.replace("200", code, 1)))


@pytest.mark.parametrize("body", ['{"code":200}', '{"code":200,"result":null}'])
def test_an_answer_without_a_result_is_a_success_without_tunnels(make_router, body):
    router = answered(make_router, body=body)
    assert lines(router, "ERROR") == []
    assert f"{TAG} No GRE Tunnels configured" in lines(router, "TRACE")
    assert "firewall --init" in router.command_texts()


@pytest.mark.parametrize("status", [201, 301, 404, 500, 503])
def test_the_status_of_http_does_not_count(make_router, status):
    assert_tunnels_taken(answered(make_router, body=GOOD, http_status=status))


def test_the_status_of_http_does_not_make_good_what_the_envelope_refuses(make_router):
    router = answered(make_router, envelope={"code": 500}, http_status=200)
    assert_refused(router, f"{TAG} api returned error code [500]")


def test_an_answer_in_many_small_pieces_is_taken(make_router):
    assert_tunnels_taken(answered(make_router, body=GOOD, dribble=(7, 0.02)))


@pytest.mark.slow
def test_an_answer_that_takes_more_than_a_minute_but_keeps_coming_is_taken(make_router):
    router = router_with(make_router, documents())
    body = GOOD.ljust(340)  # 34 pieces, two seconds apart
    router.api.on("tunnels", body=body, dribble=(10, 2))
    assert router.run("-p", "100", timeout=90).status == 0
    answer, = router.find("answer", TUNNELS_URL)
    assert router.find("exit")[0].time - answer.time > 60
    assert_tunnels_taken(router)
