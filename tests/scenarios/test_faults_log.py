"""Faults of the system log: away, restarted, or stuck, it costs log lines and nothing else. docs/faults.md tells an
operator of each."""

import signal

import pytest

from fault_stories import ALL_UP, RUN_ENDS, Subject, building_commands, shimmed_router, subject

# What becomes of the system log, and how it comes back.
FAULTS = {"absent": (lambda log: log.absent(), lambda log: log.present()),
          "restarted": (lambda log: log.restart(), lambda log: None),
          "blocked": (lambda log: log.block(), lambda log: log.present()),
          "blocked, then restarted": (lambda log: log.block(), lambda log: log.restart()),
          "absent, then blocked": (lambda log: [log.absent(), log.present(), log.block()], lambda log: log.present())}
EVERY_FAULT = pytest.mark.parametrize("fault", FAULTS)


def run_unseen(story: Subject) -> None:
    """A run whose log lines may not arrive: its last command tells that it has ended."""
    story.change()
    mark = story.router.mark("a run that is not seen")
    story.daemon.signal(signal.SIGHUP)
    story.router.wait_for("exec", program="openvpn", since=mark, timeout=30)
    assert story.router.command_texts(mark)[-8:] == building_commands(story.generation)
    story.wait_for_tunnels(ALL_UP)


@EVERY_FAULT
def test_runs_go_on_without_the_system_log(make_router, fault):
    inject, heal = FAULTS[fault]
    story = subject(make_router)
    router = story.router
    inject(router.syslog)
    for _ in range(5):  # more lines than the queue of a socket takes
        run_unseen(story)
    heal(router.syslog)
    # A line finds the new system log; those that were lost do not come again.
    story.assert_whole()
    assert story.daemon.stderr == ""
    story.assert_ends()


@EVERY_FAULT
def test_a_stop_is_obeyed_without_the_system_log(make_router, fault):
    story = subject(make_router)
    FAULTS[fault][0](story.router.syslog)
    story.daemon.signal(signal.SIGHUP)
    story.assert_ends()


def test_a_daemon_that_is_started_without_a_system_log_writes_elsewhere_until_it_is_restarted(make_router):
    router = shimmed_router(make_router)
    router.syslog.absent()
    daemon = router.daemon("--printlvl", "50")
    router.wait_until(lambda: RUN_ENDS.search(daemon.stderr), "the end of the first run")
    router.syslog.present()
    daemon.signal(signal.SIGHUP)
    router.wait_until(lambda: len(RUN_ENDS.findall(daemon.stderr)) == 2, "the end of the second")
    assert router.log_lines() == []
    assert daemon.terminate() == 0
    story = Subject(router)
    story.assert_whole()
    story.assert_ends()
