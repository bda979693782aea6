"""GRE: the kernel's tunnels are read from the words that `ip tunnel` prints, and every one of them is torn down."""

import signal

import pytest

from daemon_stories import documents
from tunnel_records import TAG, create_command, gre_tunnel, ip_commands, lines, logged_run, router_with, run_once, story

LINE = "gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n"


def torn_down(*names: str) -> list[str]:
    return [command for name in names for command in (f"ip link set {name} down", f"ip tunnel del {name}")]


def listed(make_router, output: str):
    """A router in which the program has run once, `ip tunnel` having printed that. No tunnel is configured."""
    router = router_with(make_router, documents())
    router.program("ip").on(["tunnel"], stdout=output)
    run_once(router)
    assert lines(router, "ERROR") == []
    return router


@pytest.mark.asan
@pytest.mark.parametrize("output, names", [
    pytest.param("", [], id="nothing"),
    pytest.param(LINE, ["gre1"], id="one tunnel"),
    pytest.param(LINE.rstrip(), ["gre1"], id="no line feed at the end"),
    pytest.param("b: gre/ip remote 1.1.1.1 local 2.2.2.2 ttl 1\na: gre/ip remote 1.1.1.2 local 2.2.2.2 ttl 2\n", ["b", "a"],
                 id="two, in their order"),
    pytest.param("tunl0: ip/ip  remote any  local any  ttl inherit  nopmtudisc\n"
                 "gre0: gre/ip  remote any  local any  ttl inherit  nopmtudisc\n", [], id="the kernel's own"),
    pytest.param("tunl0: gre/ip  remote any  local any  ttl inherit\n", [], id="tunl0 even with mode gre/ip"),
    pytest.param("tunl0x: gre/ip  remote any  local any  ttl 1\ngre01: gre/ip remote any local any ttl 1\n"
                 "xgre0: gre/ip remote any local any ttl 1\n", ["tunl0x", "gre01", "xgre0"],
                 id="names like the kernel's own"),
    pytest.param("i1: ip/ip  remote 1.1.1.1  local 2.2.2.2  ttl 1\ng6: gre/ipv6  remote ::1  local ::2  ttl 1\n"
                 "gg: GRE/IP  remote 1.1.1.1  local 2.2.2.2  ttl 1\ns0: ipv6/ip  remote any  local any  ttl 64\n", [],
                 id="other modes"),
    pytest.param(LINE.rstrip() + "  key 5  dev eth0\n", ["gre1"], id="more words than eight"),
    pytest.param("\t gre1:\tgre/ip\tx\t1.1.1.1\ty\t2.2.2.2\tz\t1\r\n", ["gre1"], id="tabs, and keywords that are others"),
    pytest.param("::gre1::: gre/ip remote 1.1.1.1 local 2.2.2.2 ttl 1\na:b: gre/ip remote 1.1.1.1 local 2.2.2.2 ttl 1\n",
                 ["gre1", "a:b"], id="colons at both ends"),
    pytest.param("nocolon gre/ip remote 1.1.1.1 local 2.2.2.2 ttl 1\n", ["nocolon"], id="no colon"),
    pytest.param("$HOME;x: gre/ip remote 1.1.1.1 local 2.2.2.2 ttl 1\n", ["$HOME;x"], id="a name that a shell reads"),
    pytest.param("ab: gre/ip\n", ["ab"], id="ten characters"),
    pytest.param("a: gre/ip\n", [], id="nine characters"),
    pytest.param("gre/ip-is-no-mode-here\n", [], id="one word"),
    # A word that a line does not have is that of the line before it.
    pytest.param(LINE + "lonesome2:\n", ["gre1", "lonesome2"], id="the mode of the line before"),
    pytest.param(LINE + "          \n", ["gre1", "gre1"], id="the name of the line before"),
    pytest.param("i1: ip/ip  remote 1.1.1.1  local 2.2.2.2  ttl 1\nlonesome2:\n", [], id="another mode of the line before"),
    pytest.param(LINE + "short\nlonesome2:\n", ["gre1", "lonesome2"], id="a line that is too short lies between"),
    pytest.param("lonesome2:\n" + LINE, ["gre1"], id="no line before"),
])
def test_the_listed_tunnels_are_torn_down(make_router, output, names):
    assert ip_commands(listed(make_router, output)) == torn_down(*names)


def test_the_listing_is_traced(make_router):
    router = listed(make_router, LINE + "123456789\n1234567890\n" + "gre2:  gre/ip  remote any\n")
    told = story(router, "PARSING", "LINE")
    assert told == [("TRACE", f"{TAG} -- PARSING CURRENT GRE TUNNELS --"), ("TRACE", f"{TAG} LINE: [{LINE.rstrip()}]"),
                    ("TRACE", f"{TAG} LINE: [1234567890]"), ("TRACE", f"{TAG} LINE: [gre2:  gre/ip  remote any]")]
    assert router.command_texts()[0] == "ip tunnel"


def test_each_tunnel_is_taken_down_and_then_deleted(make_router):
    router = listed(make_router, LINE + LINE.replace("gre1", "gre2"))
    assert story(router, "DESTROYING TUNNEL", "ip tunnel del") == [
        ("INFO", f"{TAG} DESTROYING TUNNEL: gre1"), *logged_run("ip link set gre1 down"), *logged_run("ip tunnel del gre1"),
        ("INFO", f"{TAG} DESTROYING TUNNEL: gre2"), *logged_run("ip link set gre2 down"), *logged_run("ip tunnel del gre2")]


def test_a_teardown_that_fails_keeps_nothing_else_from_being_done(make_router):
    router = router_with(make_router, documents(gre_tunnel("new")))
    router.program("ip").on(status=1, stderr="no\n")
    router.program("ip").on(["tunnel"], stdout=LINE + LINE.replace("gre1", "gre2"))
    run_once(router)
    assert lines(router, "ERROR") == []
    assert ip_commands(router) == [*torn_down("gre1", "gre2"), create_command("new"), "ip link set new up"]


FAILURES = [(1, 1), (2, 2), (255, 255), (-signal.SIGKILL, 128 + signal.SIGKILL)]


@pytest.mark.parametrize("status, shown", FAILURES)
def test_a_listing_that_fails_ends_the_run_with_all_as_it_was(make_router, status, shown):
    router = router_with(make_router, documents(gre_tunnel("new")))
    router.program("ip").on(["tunnel"], status=status, stdout=LINE)
    run_once(router)
    assert_nothing_done(router, shown)


def test_a_missing_ip_program_ends_the_run_with_all_as_it_was(make_router):
    router = router_with(make_router, documents(gre_tunnel("new")))
    router.program("ip").missing()
    run_once(router)
    assert_nothing_done(router, 127)


def assert_nothing_done(router, status: int):
    assert lines(router, "ERROR") == [f"{TAG} error executing ip tunnel command [{status}]"]
    assert router.command_texts() == ["ip tunnel"]
    assert len(router.find("api")) == 1  # that of the start, before the run
    assert not any("PARSING" in line for line in lines(router, "TRACE"))


def test_a_tunnel_that_exists_is_deleted_and_made_again_on_every_run(make_router):
    router = router_with(make_router, documents(gre_tunnel(ttl=9)))
    router.preset_gre({"name": "gre1", "remote": "192.0.2.9", "local": "192.0.2.8", "ttl": "64"},
                      {"name": "old", "remote": "192.0.2.7", "local": "192.0.2.6", "ttl": "64"})
    made = [create_command(ttl="9"), "ip link set gre1 up"]
    run_once(router)
    assert ip_commands(router) == [*torn_down("gre1", "old"), *made]
    mark = run_once(router)
    assert ip_commands(router, mark) == [*torn_down("gre1"), *made]
    assert router.gre_listing().splitlines()[1:] == ["gre1: gre/ip  remote 203.0.113.7  local 198.51.100.2  ttl 9"]
