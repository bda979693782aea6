"""Sandbox: the configuration API, the name server, the system log and the timeline serve and misbehave as told."""

import re
import signal

import pytest

from sandbox.timeline import DeadlineMissed

ASK_API = """
import http.client, socket, sys
def ask(target):
    s = socket.socket(socket.AF_UNIX)
    s.connect("/var/run/api/http.sock")
    c = http.client.HTTPConnection("localhost")
    c.sock = s
    c.request("GET", target)
    r = c.getresponse()
    return r.status, r.read().decode()
"""

RESOLVE = """
import ctypes, sys
libc = ctypes.CDLL(None)
libc.gethostbyname.restype = ctypes.c_void_p
libc.__h_errno_location.restype = ctypes.POINTER(ctypes.c_int)
def resolve(name):
    if libc.gethostbyname(name.encode()):
        import socket
        return socket.gethostbyname(name)
    return libc.__h_errno_location()[0]
"""

LOG = """
import syslog
syslog.openlog("TUNNEL_MNGR")
"""


# ---- the configuration API ----

def api_program(*targets: str) -> str:
    lines = [f"try: print(*ask({target!r}))\nexcept Exception as e: print(type(e).__name__)" for target in targets]
    return "\n".join([ASK_API, *lines])


DOCUMENTS = {"wans": [{"current": True, "ip": "198.51.100.2"}], "greTunnels": [1], "ni": {"nis": []}, "unasked": 5}


def test_the_api_serves_the_documents(routed):
    r = routed(api_program("/api/waninfo/wans", "/api?fields=greTunnels,ipsecTunnels,ni", "/other"), DOCUMENTS)
    assert r.run().stdout.splitlines() == [
        '200 {"code": 200, "result": [{"current": true, "ip": "198.51.100.2"}]}',
        '200 {"code": 200, "result": {"greTunnels": [1], "ni": {"nis": []}}}',
        '200 {"code": 404, "result": []}']
    assert [event.text for event in r.find("api")] == [
        "/api/waninfo/wans", "/api?fields=greTunnels,ipsecTunnels,ni", "/other"]
    assert [event.how for event in r.find("answer")] == ["documents"] * 3


def test_the_documents_can_change(routed):
    r = routed(api_program("/api?fields=greTunnels"), DOCUMENTS)
    with r.documents.edit() as documents:
        documents["greTunnels"][0] = "new"
    assert '{"greTunnels": ["new"]}' in r.run().stdout
    del r.documents["greTunnels"]
    assert '"result": {}' in r.run().stdout
    r.documents["greTunnels"] = []
    assert '{"greTunnels": []}' in r.run().stdout


@pytest.mark.parametrize("how, answer", [
    ({"body": b"\xff{"}, "UnicodeDecodeError"),
    ({"body": "/* no */ {}"}, "200 /* no */ {}"),
    ({"envelope": {"code": 404, "result": []}}, '200 {"code": 404, "result": []}'),
    ({"http_status": 500}, '500 {"code": 200, "result": {"greTunnels": [1]}}'),
    ({"cut": 5}, "IncompleteRead"),
    ({"close": True}, "RemoteDisconnected"),
    ({"delay": 0.05}, '200 {"code": 200, "result": {"greTunnels": [1]}}'),
    ({"dribble": (10, 0.01)}, '200 {"code": 200, "result": {"greTunnels": [1]}}'),
])
def test_the_api_can_misbehave_once(routed, how, answer):
    target = "/api?fields=greTunnels"
    r = routed(api_program("/api/waninfo/wans", target, target), DOCUMENTS)
    r.api.on(target, times=1, **how)
    lines = r.run().stdout.splitlines()
    assert lines[1] == answer
    assert lines[0].startswith("200") and lines[2] == '200 {"code": 200, "result": {"greTunnels": [1]}}'


def test_a_request_that_hangs_holds_up_no_other(routed):
    r = routed(ASK_API + "print(*ask(sys.argv[1]))", DOCUMENTS)
    r.api.on("wans", hang=True)
    held = r.start("/api/waninfo/wans")
    r.wait_for("api", "/api/waninfo/wans")
    assert "[1]" in r.run("/api?fields=greTunnels").stdout
    assert held.alive()
    r.api.release()
    assert held.wait_exit() == 0 and "198.51.100.2" in held.stdout


def test_a_client_that_gives_up_on_a_held_request_is_noticed(routed):
    r = routed(ASK_API + "ask('/api/waninfo/wans')", DOCUMENTS)
    r.api.on(hang=True)
    program = r.start()
    r.wait_for("api")
    program.signal(signal.SIGKILL)
    assert r.wait_for("answer").how == "held until the client left"


@pytest.mark.parametrize("mode, outcome", [("absent", "FileNotFoundError"), ("refuse", "ConnectionRefusedError")])
def test_the_api_can_be_away(routed, mode, outcome):
    r = routed(api_program("/api/waninfo/wans"), DOCUMENTS)
    getattr(r.api, mode)()
    assert r.run().stdout == f"{outcome}\n"
    r.api.present()
    assert r.run().stdout.startswith("200")


def test_the_api_can_be_deaf(routed):
    r = routed(ASK_API + "socket.setdefaulttimeout(0.1)\ntry: ask('/api')\nexcept TimeoutError: print('late')")
    r.api.deaf()
    assert r.run().stdout == "late\n"
    assert r.find("api") == []


# ---- the name server ----

HOST_NOT_FOUND, TRY_AGAIN, NO_RECOVERY, NO_DATA = 1, 2, 3, 4  # gethostbyname(3)


@pytest.mark.parametrize("answer, outcome", [
    ("203.0.113.7", "203.0.113.7"), (["203.0.113.8", "203.0.113.9"], "203.0.113.8"), ("NXDOMAIN", HOST_NOT_FOUND),
    ("SERVFAIL", TRY_AGAIN), ("SILENT", TRY_AGAIN), ("REFUSED", TRY_AGAIN), ("NOTIMP", TRY_AGAIN),
    ("NODATA", NO_DATA), ("FORMERR", NO_RECOVERY), (None, HOST_NOT_FOUND)])
def test_names_resolve_as_programmed(routed, answer, outcome):
    r = routed(RESOLVE + "print(resolve('vpn.example.net'))")
    if answer:
        r.dns.set("VPN.example.net", answer)
    assert r.run().stdout == f"{outcome}\n"
    assert r.find("dns")[0].text == "vpn.example.net"


def test_the_answers_of_a_name_rotate(routed):
    r = routed(RESOLVE + "print(resolve('a.b'))")
    # The program asks twice for a name that resolves.
    r.dns.rotate("a.b", ["192.0.2.1", "192.0.2.1", "NXDOMAIN"])
    assert [r.run().stdout.strip() for _ in range(3)] == ["192.0.2.1", "1", "192.0.2.1"]


def test_a_long_answer_comes_over_tcp(routed):
    r = routed("import socket; print(len(socket.gethostbyname_ex('many.example')[2]))")
    r.dns.set("many.example", [f"192.0.2.{n}" for n in range(100)])
    assert r.run().stdout == "100\n"
    assert {event.transport for event in r.find("dns")} == {"udp", "tcp"}


def test_a_held_name_is_answered_at_the_release(routed):
    r = routed(RESOLVE + "print(resolve(sys.argv[1]))", resolver_options="timeout:20 attempts:1")
    r.dns.set("slow.example", "192.0.2.1", hold=True)
    r.dns.set("fast.example", "192.0.2.2")
    program = r.start("slow.example")
    r.wait_for("dns", "slow.example", held=True)
    assert r.run("fast.example").stdout == "192.0.2.2\n"
    r.dns.set("slow.example", "192.0.2.1")
    r.dns.release()
    assert program.wait_exit() == 0 and program.stdout == "192.0.2.1\n"


# ---- the system log ----

def test_log_lines_keep_their_priority_and_every_byte(routed):
    r = routed(LOG + "syslog.syslog(syslog.LOG_ERR, 'ERROR [x] not found.\\n')\n"
               "syslog.syslog(syslog.LOG_INFO, 'wАhile: [y]')")
    pid = r.run().pid
    first, second = r.log_lines()
    assert (first.ident, first.severity, first.label, first.message, first.pid) == (
        "TUNNEL_MNGR", "err", "ERROR", "[x] not found.\n", pid)
    assert (second.severity, second.label, second.message) == ("info", None, "wАhile: [y]")
    assert r.messages("ERROR") == ["[x] not found.\n"]


def test_the_timeline_is_in_causal_order(routed):
    r = routed(LOG + ASK_API + """
import os
for n in range(20):
    syslog.syslog(f"before {n}")
    os.system(f"ip link set x{n} up")
    syslog.syslog(f"between {n}")
    ask(f"/api?fields={n}")
""")
    r.run()
    story = [event.text for event in r.timeline() if event.kind in ("log", "command", "end", "api")]
    assert story == [text for n in range(20) for text in (f"before {n}", f"ip link set x{n} up", f"ip link set x{n} up",
                                                          f"between {n}", f"/api?fields={n}")]


def test_the_system_log_can_go_and_come_back(routed):
    r = routed(LOG + """
import os, time
syslog.syslog("lost")
open("/run/a", "w")
while not os.path.exists("/run/b"):
    time.sleep(0.005)
syslog.syslog("seen")
""")
    r.syslog.absent()
    program = r.start()
    r.wait_until(lambda: r.exists("/run/a"))
    r.syslog.restart()
    r.write_file("/run/b", "")
    assert program.wait_exit() == 0
    assert r.messages() == ["seen"]


def test_who_is_connected_to_a_system_log_that_goes_away_is_told(routed):
    r = routed("""
import socket, sys, time
log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
log.connect("/dev/log")
try:
    while True:
        log.send(b"<14>x: here")
        time.sleep(0.01)
except OSError as error:
    sys.exit(error.strerror)
""")
    program = r.start()
    r.wait_for("log", "here")
    r.syslog.absent()
    assert program.wait_exit() == 1
    assert program.stderr in ("Broken pipe\n", "Connection refused\n")  # while the socket is being closed, and after


def test_a_blocked_system_log_reads_nothing_until_it_goes_on(routed):
    r = routed(LOG + "syslog.syslog('one')")
    r.syslog.block()
    r.run()
    assert r.messages() == []
    r.syslog.present()
    assert r.messages() == ["one"]


# ---- the timeline ----

def test_waiting_in_vain_shows_the_timeline(routed):
    r = routed("import os; os.system('ip tunnel')")
    r.run()
    with pytest.raises(DeadlineMissed, match=r"(?s)waited 0.05 s for command 'ip route'.*command  ip tunnel"):
        r.wait_for("command", "ip route", timeout=0.05)
    with pytest.raises(DeadlineMissed, match="for a file"):
        r.wait_until(lambda: r.exists("/run/none"), "a file", timeout=0.05)


def test_a_mark_divides_the_timeline(routed):
    r = routed("import os; os.system('ip tunnel')")
    r.run()
    mark = r.mark("second run")
    assert r.since(mark) == []
    r.run()
    assert [r.command_texts(), r.command_texts(mark)] == [["ip tunnel"] * 2, ["ip tunnel"]]
    assert r.wait_for("command", re.compile("^ip"), since=mark).number > mark
    assert "mark     second run" in r.dump()
