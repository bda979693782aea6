"""Refresh requests: every request becomes a run, requests that come together become one, and a run that fails in a way
nobody foresaw is said once and does not end the daemon."""

import signal

import pytest

from daemon_stories import (BAD_RECORD, EXCEPTION, MONITORS_START, RUN_BEGINS, SEMAPHORE, assert_in_order, documents,
                            go_on, gre, hold_next_run, preloaded, refresh, runs, start, threads, times_blocked,
                            wait_for_held_run, wait_for_monitors, wait_for_threads, wait_until_idle)

TIME_ERROR = "[TUNNEL_MNGR] Time returned error"


# ---- one request ----

def test_a_sighup_brings_the_changed_configuration(make_router):
    router = make_router(documents(gre("one"), gre("two", "203.0.113.8")))
    router.make_ipsec_folders()
    daemon = start(router)
    router.documents["greTunnels"] = [gre("three", "203.0.113.9")]
    mark = refresh(router, daemon)
    wait_until_idle(router, daemon)
    assert runs(router, mark) == 1
    assert_in_order(router.since(mark), ("signal", "SIGHUP"), ("log", "[FQDN_MONITOR] tunnel:one stop "),
                    ("log", "[FQDN_MONITOR] tunnel:two stop "), ("log", RUN_BEGINS), ("command", "ip tunnel del one"),
                    ("command", "ip tunnel del two"), ("command", "ip tunnel add three"),
                    ("log", f"{MONITORS_START} 1"))
    assert "three" in router.gre_listing() and "one" not in router.gre_listing()
    assert not router.find("log", "STARTING WAN", since=mark)
    # Monitors whose sleep was cut short leave without another look at their names.
    assert not router.find("log", " check ", since=mark)


def test_a_refresh_replaces_the_fqdn_monitors_and_keeps_the_wan_monitor(make_router):
    router = make_router(documents(gre("one"), gre("two", "203.0.113.8")))
    router.make_ipsec_folders()
    daemon = start(router)
    before = wait_for_threads(router, daemon, 3)
    refresh(router, daemon)
    after = wait_for_threads(router, daemon, 3)
    kept = before.keys() & after.keys()
    assert [before[number] for number in kept] == ["WAN_MONITOR"]
    router.documents["greTunnels"] = []
    refresh(router, daemon)
    assert threads(router, daemon.pid) == {number: "WAN_MONITOR" for number in kept}


def test_a_daemon_without_requests_makes_no_run_and_hardly_wakes(router):
    """It goes round its loop five times a second. Ten rounds take it two seconds, however often the kernel takes it off
    the processor for others; a hot circle would block a thousand times in that, or not at all."""
    daemon = start(router)
    wait_until_idle(router, daemon, passes=1)
    before = times_blocked(router, daemon.pid)
    wait_until_idle(router, daemon, passes=10)
    assert 10 <= times_blocked(router, daemon.pid) - before < 100
    assert runs(router) == 1


# ---- requests during a run ----

def test_a_sighup_during_the_first_run_gives_exactly_one_more(router):
    hold_next_run(router)
    daemon = router.daemon("--printlvl", "100")
    wait_for_held_run(router)
    daemon.signal(signal.SIGHUP)
    go_on(router)
    wait_for_monitors(router, 0, count=2)
    wait_until_idle(router, daemon)
    assert runs(router) == 2
    # The first run is brought to its end before, and the WAN monitor is started once.
    assert_in_order(router.timeline(), ("log", RUN_BEGINS), ("signal", "SIGHUP"), ("end", "firewall"),
                    ("log", "STARTING WAN"), ("log", MONITORS_START), ("log", RUN_BEGINS), ("log", MONITORS_START))
    assert len(router.find("log", "STARTING WAN")) == 1


@pytest.mark.parametrize("signals", [1, 25])
def test_sighups_during_a_later_run_give_exactly_one_more(router, signals):
    """A request must be consumed before its run: wiped after the run, one that came during it would be lost."""
    daemon = start(router)
    hold_next_run(router)
    mark = router.mark()
    daemon.signal(signal.SIGHUP)
    wait_for_held_run(router, mark)
    for _ in range(signals):
        daemon.signal(signal.SIGHUP)
    go_on(router)
    wait_for_monitors(router, mark, count=2)
    wait_until_idle(router, daemon)
    assert runs(router, mark) == 2


def test_a_sighup_in_each_run_gives_a_run_each(router):
    daemon = start(router)
    mark = router.mark()
    hold_next_run(router)
    daemon.signal(signal.SIGHUP)
    for number in range(1, 6):
        router.wait_for("exec", program="firewall", since=mark, count=number)
        daemon.signal(signal.SIGHUP)
        if number < 5:
            hold_next_run(router)
        go_on(router)
    wait_for_monitors(router, mark, count=6)
    wait_until_idle(router, daemon)
    assert runs(router, mark) == 6


def test_the_run_that_was_requested_during_a_run_sees_the_newest_configuration(make_router):
    router = make_router(documents(gre("old")))
    router.make_ipsec_folders()
    hold_next_run(router)
    daemon = router.daemon("--printlvl", "100")
    wait_for_held_run(router)
    router.documents["greTunnels"] = [gre("new")]
    daemon.signal(signal.SIGHUP)
    go_on(router)
    wait_for_monitors(router, 0, count=2)
    assert "new" in router.gre_listing() and "old" not in router.gre_listing()


# ---- a run that throws ----

@pytest.mark.asan
def test_an_exception_in_a_run_is_logged_once_and_the_daemon_goes_on(make_router):
    """Were the request consumed after its run, or not at all when that throws, the loop would tear everything down over
    and over as fast as it can."""
    router = make_router(documents(gre("one")))
    router.make_ipsec_folders()
    daemon = start(router)
    mark = router.mark()
    router.documents["greTunnels"] = [gre("two", "203.0.113.8"), BAD_RECORD]
    for number, passes in [(1, 10), (2, 3)]:  # ten passes are about two seconds
        daemon.signal(signal.SIGHUP)
        router.wait_for("log", EXCEPTION, since=mark, count=number)
        wait_until_idle(router, daemon, passes)
        assert (runs(router, mark), len(router.find("log", EXCEPTION, since=mark))) == (number, number)
    router.documents["greTunnels"] = [gre("three", "203.0.113.9")]
    mark = refresh(router, daemon)
    assert "ip tunnel add three mode gre remote 203.0.113.9 local 198.51.100.2 ttl 64" in router.command_texts(mark)
    assert not router.find("log", EXCEPTION, since=mark)
    wait_for_threads(router, daemon, 2)


def test_the_exceptions_line_is_an_error_with_its_own_spelling(make_router):
    router = make_router(documents())
    router.make_ipsec_folders()
    daemon = router.daemon()  # at the start-up print level, which lets errors through
    router.wait_for("exec", program="firewall")
    router.documents["greTunnels"] = [BAD_RECORD]
    daemon.signal(signal.SIGHUP)
    line = router.wait_for("log", "Exception")
    assert line.message.encode() == b"[TUNNEL_MNGR] Exception caught w\xd0\x90hile waiting on signal"
    assert (line.label, line.severity, line.ident, line.pid) == ("ERROR", "err", "TUNNEL_MNGR", daemon.pid)


def test_a_request_during_a_run_that_throws_is_not_lost(make_router):
    router = make_router(documents())
    router.make_ipsec_folders()
    daemon = start(router)
    router.documents["greTunnels"] = [BAD_RECORD]
    router.api.on("tunnels", hang=True, times=1)
    mark = router.mark()
    daemon.signal(signal.SIGHUP)
    router.wait_for("api", "greTunnels", since=mark)
    daemon.signal(signal.SIGHUP)
    router.api.release()
    router.wait_for("log", EXCEPTION, since=mark, count=2)
    wait_until_idle(router, daemon)
    assert runs(router, mark) == 2


def test_an_exception_in_the_first_run_is_logged_once_and_the_daemon_goes_on(make_router):
    """A daemon that a bad record ended when it starts would be one that nobody starts again."""
    router = make_router(documents(BAD_RECORD))
    router.make_ipsec_folders()
    daemon = start(router)
    wait_until_idle(router, daemon)
    assert (runs(router), len(router.find("log", EXCEPTION))) == (1, 1)
    router.documents["greTunnels"] = [gre("one")]
    refresh(router, daemon)
    assert "one" in router.gre_listing()
    assert (runs(router), len(router.find("log", EXCEPTION))) == (2, 1)


def test_an_exception_in_a_single_run_ends_the_process_and_later_starts_find_the_way_free(make_router):
    """Only the daemon catches. What the process leaves is cleared away by the next start, so that the one after that
    works."""
    router = make_router(documents(BAD_RECORD))
    router.make_ipsec_folders()
    router.tolerate(signal.SIGABRT)
    assert router.run().status == -signal.SIGABRT
    assert router.exists(SEMAPHORE)
    router.documents["greTunnels"] = [gre("one")]
    assert router.run().status == 1
    assert router.run().status == 0
    assert "one" in router.gre_listing()


# ---- other failures in the loop ----

FAILING_POLL = """
#include <poll.h>
int poll(struct pollfd *entries, nfds_t count, int timeout) {
  if (count == 1 && timeout <= 200 && unlink("/run/fail-poll") == 0) {
    errno = ENOMEM;
    return -1;
  }
  int (*const real)(struct pollfd *, nfds_t, int) = dlsym(RTLD_NEXT, "poll");
  return real(entries, count, timeout);
}
"""

FAILING_TIME = """
#include <time.h>
time_t time(time_t *result) {
  struct timespec now = {-1, 0};
  if (access("/run/fail-time", F_OK) != 0) clock_gettime(CLOCK_REALTIME, &now);
  if (result != NULL) *result = now.tv_sec;
  return now.tv_sec;
}
"""


def test_a_wait_that_fails_is_logged_and_the_loop_goes_on(make_router, tmp_path):
    router = make_router(environment=preloaded(tmp_path, FAILING_POLL))
    router.make_ipsec_folders()
    daemon = start(router)
    wait_until_idle(router, daemon, passes=1)
    router.write_file("/run/fail-poll", "")
    router.wait_for("log", EXCEPTION)
    refresh(router, daemon)
    assert len(router.find("log", EXCEPTION)) == 1
    assert daemon.terminate() == 0


def test_a_clock_that_fails_is_logged_and_the_loop_goes_on(make_router, tmp_path):
    router = make_router(environment=preloaded(tmp_path, FAILING_TIME))
    router.make_ipsec_folders()
    router.write_file("/run/fail-time", "")
    daemon = start(router)
    line = router.wait_for("log", TIME_ERROR, count=3)
    assert (line.label, line.severity, line.message) == ("ERROR", "err", TIME_ERROR)
    refresh(router, daemon)
    router.remove("/run/fail-time")
    wait_until_idle(router, daemon, passes=1)
    mark = router.mark()
    wait_until_idle(router, daemon)
    assert not router.find("log", TIME_ERROR, since=mark)
    assert daemon.terminate() == 0
