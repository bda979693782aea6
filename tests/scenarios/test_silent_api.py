"""A silent API does not hang the manager for ever: a transfer that moves no byte for a minute fails like any other."""

import signal

import pytest

from daemon_stories import (PID_FILE, PINGED_OPENVPN, RUN_BEGINS, SEMAPHORE, assert_in_order, documents, gre, refresh,
                            start, wait_for_monitors)

SILENCE = 60  # seconds without a byte after which a transfer fails
PATIENCE = SILENCE + 25
TIMED_OUT = "[TUNNEL_MNGR] curl_easy_perform() failed: Timeout was reached"
NO_OPENVPN_CONFIGURATION = "[TUNNEL_MNGR] Failed read config"

FILL_THE_QUEUE = """
import socket, time
connections = []
while True:
    connections.append(socket.socket(socket.AF_UNIX))
    connections[-1].setblocking(False)
    try:
        connections[-1].connect("/run/api/http.sock")
    except BlockingIOError:
        break
open("/run/queue-is-full", "w").close()
time.sleep(1000)
"""


@pytest.mark.slow
def test_a_request_without_an_answer_fails_after_a_minute_and_the_daemon_goes_on(make_router):
    router = make_router(documents(gre("one"), ovpnTunnels=[PINGED_OPENVPN]))
    router.make_ipsec_folders()
    daemon = start(router)
    router.api.on("tunnels", hang=True, times=1)
    mark = router.mark()
    daemon.signal(signal.SIGHUP)
    asked = router.wait_for("api", "fields=greTunnels", since=mark)
    failed = router.wait_for("log", TIMED_OUT, since=mark, timeout=PATIENCE)
    assert (failed.severity, failed.message) == ("err", TIMED_OUT)
    assert failed.time - asked.time > SILENCE - 5
    wait_for_monitors(router, mark)  # the run has ended, with nothing built
    assert "ip tunnel add" not in str(router.command_texts(mark))
    mark = refresh(router, daemon)
    assert_in_order(router.since(mark), ("log", RUN_BEGINS), ("command", "ip tunnel add one"),
                    ("command", "firewall --init"))
    router.wait_for("command", "ping -c 3 10.8.0.2", since=mark, timeout=20)  # and so does the supervision
    assert daemon.terminate() == 0


@pytest.mark.slow
def test_a_stop_while_the_api_is_silent_is_obeyed_when_the_request_has_failed(router):
    daemon = start(router)
    router.api.deaf()  # it takes the connection and the request, which nobody reads
    mark = router.mark()
    daemon.signal(signal.SIGHUP)
    router.wait_for("end", "ip tunnel", since=mark)
    daemon.signal(signal.SIGTERM)
    router.wait_until(lambda: not router.exists(PID_FILE) and not router.exists(SEMAPHORE), "the name to be free")
    assert daemon.wait_exit(timeout=PATIENCE) == 0
    assert router.messages("ERROR", since=mark)[-1] == NO_OPENVPN_CONFIGURATION
    assert router.find("exit", "daemon")[0].time - router.find("signal", "SIGHUP")[0].time > SILENCE - 5


@pytest.mark.slow
def test_an_answer_that_stops_half_way_fails_after_a_minute(router):
    """A one-shot run, whose every request is waited for on its own: here the last one is silent."""
    router.api.on("tunnels", dribble=(10, 1000))
    program = router.start("--printlvl", "100")
    asked = router.wait_for("api", "fields=greTunnels")
    assert program.wait_exit(timeout=PATIENCE) == 0
    failed, = router.log_lines("ERROR")
    assert failed.message == TIMED_OUT and failed.time - asked.time > SILENCE - 5
    assert "firewall --init" not in router.command_texts()


@pytest.mark.slow
def test_an_answer_that_is_slow_is_waited_for(make_router):
    """More than a minute altogether, but never a minute without a byte."""
    router = make_router(documents(gre("one")))
    router.make_ipsec_folders()
    router.api.on("tunnels", dribble=(4, 1.8))
    program = router.start("--printlvl", "100")
    asked = router.wait_for("api", "fields=greTunnels")
    assert program.wait_exit(timeout=2 * PATIENCE) == 0
    assert router.messages("ERROR") == []
    assert router.find("command", "ip tunnel add one")[0].time - asked.time > SILENCE


@pytest.fixture
def router_with_a_full_queue(make_router):
    """Its API takes no more connections. A function opens it and its queue, so that a daemon can start before."""
    router = make_router(documents(gre("one")))
    router.make_ipsec_folders()

    def fill_queue() -> None:
        router.api.deaf()
        router.spawn(["python3", "-c", FILL_THE_QUEUE])
        router.wait_until(lambda: router.exists("/run/queue-is-full"), "a full queue")

    return router, fill_queue


def test_an_api_that_takes_no_connection_fails_the_run_and_the_daemon_goes_on(router_with_a_full_queue):
    router, fill_queue = router_with_a_full_queue
    daemon = start(router)
    fill_queue()
    mark = router.mark()
    daemon.signal(signal.SIGHUP)
    wait_for_monitors(router, mark, timeout=PATIENCE)
    assert router.messages("ERROR", since=mark) == [NO_OPENVPN_CONFIGURATION]
    router.api.present()
    mark = refresh(router, daemon)
    assert "ip link set one up" in router.command_texts(mark)


def test_an_api_that_takes_no_connection_is_reported(router_with_a_full_queue):
    router, fill_queue = router_with_a_full_queue
    fill_queue()
    done = router.run("--printlvl", "100", timeout=2 * PATIENCE)
    assert done.status == 0
    failed, *rest = router.messages("ERROR")
    assert failed.startswith("[TUNNEL_MNGR] curl_easy_perform() failed: ")
    assert rest == ["[TUNNEL_MNGR][WAN_MONITOR] Could not obtain WAN information", NO_OPENVPN_CONFIGURATION]
