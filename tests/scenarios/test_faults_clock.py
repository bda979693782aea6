"""Steps of the wall clock: the passes that look after OpenVPN's children follow it, and nothing else does.
docs/faults.md tells an operator of each."""

import signal

import pytest

from daemon_stories import runs, wait_until_idle
from fault_stories import MONITORS, Subject, subject
from openvpn_records import PASS_SECONDS

DAY = 86_400


def kill_child(story: Subject) -> int:
    """Ends the openvpn child; returns the mark before it."""
    child, = story.living_children()
    mark = story.router.mark("the child is killed")
    story.router.process(child).signal(signal.SIGKILL)
    story.router.wait_for("end", program="openvpn", pid=child, since=mark)
    return mark


def assert_restarted(story: Subject, mark: int) -> None:
    story.router.wait_for("exec", program="openvpn", since=mark)
    story.router.wait_until(lambda: story.daemon.zombies() == [], "no zombie")


@pytest.mark.parametrize("seconds", [PASS_SECONDS + 1, DAY, 20 * 365 * DAY])
def test_a_step_forward_brings_the_next_pass_and_no_run(make_router, seconds):
    story = subject(make_router)
    wait_until_idle(story.router, story.daemon, passes=2)  # the first pass has come by
    mark = kill_child(story)
    story.step_clock(seconds)
    assert_restarted(story, mark)
    wait_until_idle(story.router, story.daemon)
    assert runs(story.router, mark) == 0
    story.assert_whole()
    story.assert_ends()


@pytest.mark.parametrize("seconds", [60, DAY, 20 * 365 * DAY])
def test_a_step_back_stops_the_passes_until_the_clock_has_caught_up_and_nothing_else(make_router, seconds):
    """A dead child stays dead that long, as a zombie, unless a refresh comes."""
    story = subject(make_router)
    router = story.router
    wait_until_idle(router, story.daemon, passes=2)  # the first pass has come by
    story.step_clock(-seconds)
    mark = kill_child(story)
    wait_until_idle(router, story.daemon, passes=10)
    assert not router.find("exec", program="openvpn", since=mark) and len(story.daemon.zombies()) == 1
    story.assert_whole()  # by a refresh
    mark = kill_child(story)
    wait_until_idle(router, story.daemon, passes=3)
    assert not router.find("exec", program="openvpn", since=mark)
    story.step_clock(PASS_SECONDS + 1)
    assert_restarted(story, mark)
    story.assert_whole()
    story.assert_ends()


def test_a_clock_that_jumps_to_and_fro(make_router):
    story = subject(make_router)
    for seconds in (DAY, -DAY, 0, 1, -1, 2**31, -(2**30), 0) * 2:
        story.step_clock(seconds)
        wait_until_idle(story.router, story.daemon, passes=1)
    assert runs(story.router) == 1
    story.assert_whole()
    story.assert_ends()


@pytest.mark.slow
def test_monitors_keep_their_time_whatever_the_clock_does(make_router):
    """The WAN monitor finds another address at its half minute, neither before nor after."""
    stories = []
    for seconds in (DAY, -DAY):  # side by side, since all that they do is wait
        story = subject(make_router)
        story.step_clock(seconds)
        story.router.documents["wans"] = [{"current": True, "ip": "198.51.100.77"}]
        stories.append(story)
    for story in stories:
        router = story.router
        started = router.find("log", "STARTING WAN AND FQDN MONITORS")[0]
        begun = router.wait_for("log", "MANAGING TUNNELS", since=started.number, timeout=60)
        assert 25 < begun.time - started.time < 55
        router.wait_for("log", f"v_apFqdnMonitor size {len(MONITORS) - 1}", since=begun.number)
        assert "local 198.51.100.77 " in str(router.command_texts(begun.number))
        story.assert_whole()
        story.assert_ends()
