"""Configuration API: what happens on the way to it. A request that fails is one ERROR line and a run without its answer."""

import pytest

from daemon_stories import documents
from raw_http import asked, curl_says, envelope, http_answer, serve_raw
from tunnel_records import (BAD_JSON, NO_WAN, NO_WAN_INFORMATION, TAG, TUNNELS_URL, WANS_URL, create_command, gre_tunnel,
                            ip_commands, lines, router_with, run_once)

# libcurl-errors(3)
COULD_NOT_CONNECT, PARTIAL_FILE, GOT_NOTHING, UNSUPPORTED_PROTOCOL = 7, 18, 52, 1


def perform_failed(code: int) -> str:
    return f"{TAG} curl_easy_perform() failed: {curl_says(code)}"


@pytest.mark.parametrize("mode", ["absent", "refuse"])
def test_an_api_that_is_not_there_is_reported(make_router, mode):
    router = router_with(make_router, documents(gre_tunnel()))
    getattr(router.api, mode)()
    run_once(router)
    assert lines(router, "ERROR")[:2] == [perform_failed(COULD_NOT_CONNECT), NO_WAN_INFORMATION]
    assert ip_commands(router) == []


HANG_UPS = [({"close": True}, GOT_NOTHING), ({"cut": 0}, PARTIAL_FILE), ({"cut": 9}, PARTIAL_FILE)]


@pytest.mark.asan
@pytest.mark.parametrize("how, code", HANG_UPS)
def test_an_api_that_hangs_up_on_the_wan_request_leaves_the_router_without_a_wan(make_router, how, code):
    router = router_with(make_router, documents(gre_tunnel()))
    router.api.on("wans", **how)
    run_once(router)
    # Once when the program starts, once in its run.
    assert lines(router, "ERROR") == [perform_failed(code), NO_WAN_INFORMATION] * 2
    assert lines(router, "INFO")[-1] == NO_WAN
    assert router.find("api", TUNNELS_URL) == []


@pytest.mark.parametrize("how, code", HANG_UPS)
def test_an_api_that_hangs_up_on_the_tunnels_request_leaves_nothing_configured(make_router, how, code):
    router = router_with(make_router, documents(gre_tunnel()))
    router.preset_gre({"name": "old", "remote": "192.0.2.1", "local": "192.0.2.2", "ttl": "64"})
    router.api.on("tunnels", **how)
    run_once(router)
    assert lines(router, "ERROR") == [perform_failed(code)]
    assert ip_commands(router) == ["ip link set old down", "ip tunnel del old"]


def test_the_environments_proxy_is_not_used(make_router):
    proxy = "http://127.0.0.1:9"
    environment = {name: proxy for name in ("http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY")}
    router = router_with(make_router, documents(gre_tunnel()), environment=environment)
    run_once(router)
    assert lines(router, "ERROR") == []
    assert create_command() in ip_commands(router)


def raw_router(make_router, tunnels_answer: str):
    """A router in which the program has run once, the tunnels having been answered with these bytes."""
    router = router_with(make_router, documents())
    answers = {target: http_answer(envelope(result)) for target, result in (
        (WANS_URL, documents()["wans"]), ("/api?fields=ovpnTunnels", {}), ("/api?fields=syslog", {}))}
    elsewhere = http_answer(envelope({"greTunnels": [gre_tunnel("elsewhere")]}))
    serve_raw(router, answers | {TUNNELS_URL: tunnels_answer, "/elsewhere": elsewhere})
    run_once(router)
    return router


BODY = envelope({"greTunnels": [gre_tunnel()]})
CHUNKS = "".join(f"{len(piece):x}\r\n{piece}\r\n" for piece in (BODY[:10], BODY[10:11], BODY[11:], ""))


@pytest.mark.asan
@pytest.mark.parametrize("answer", [
    pytest.param(http_answer(BODY), id="a body up to the connection's end"),
    pytest.param(http_answer(CHUNKS, "Transfer-Encoding: chunked"), id="a body in chunks"),
    pytest.param(http_answer(BODY + "more", f"Content-Length: {len(BODY)}"), id="bytes behind the body"),
    pytest.param("HTTP/1.0 200 OK\r\n\r\n" + BODY, id="HTTP/1.0"),
    pytest.param("HTTP/1.1 100 Continue\r\n\r\n" + http_answer(BODY), id="an interim answer before"),
    pytest.param(http_answer(BODY[:-1] + ',"padding":"' + "x" * 20_000_000 + '"}'), id="a document of 20 MB"),
    pytest.param(http_answer(BODY, "Location: http://localhost/elsewhere", status="302 Found"), id="a redirect"),
])
def test_every_form_of_answer_is_understood_and_no_redirect_is_followed(make_router, answer):
    router = raw_router(make_router, answer)
    assert lines(router, "ERROR") == []
    assert ip_commands(router) == [create_command(), "ip link set gre1 up"]
    assert asked(router)[-1] == TUNNELS_URL


@pytest.mark.parametrize("answer, code", [
    pytest.param("\x80\x00\xff not HTTP at all\r\n\r\n", UNSUPPORTED_PROTOCOL, id="no HTTP"),
    pytest.param(http_answer(CHUNKS[:-5], "Transfer-Encoding: chunked"), PARTIAL_FILE, id="the last chunk missing"),
])
def test_what_is_no_answer_is_a_failed_transfer(make_router, answer, code):
    router = raw_router(make_router, answer)
    assert lines(router, "ERROR") == [perform_failed(code)]
    assert ip_commands(router) == []


def test_an_answer_that_ends_in_its_head_is_an_empty_document(make_router):
    router = raw_router(make_router, "HTTP/1.1 200 OK\r\nContent-Le")
    assert lines(router, "ERROR") == [BAD_JSON]
