"""Limits that the daemon runs into: no descriptor left, no process and no thread to be had. What could not be done is
missing until there is room again. docs/faults.md tells an operator of each."""

import contextlib
import signal
from collections.abc import Iterator

import pytest

from fault_stories import ALL_UP, RUN_ENDS, Subject, subject
from tunnel_records import TAG, lines

NO_LIST = f"{TAG} error executing ip tunnel command [-1]"
NO_OPENVPN_CONFIGURATION = f"{TAG} Failed read config"
NO_FORK = f"{TAG}[OVPN] failed fork in OvpnTnl restart"
NO_MONITORS = [f"{TAG} unable to start the thread FQDN_MONITOR:{name}" for name in ("gre2", "office2")]
ROOM = 1024


# ---- descriptors ----

def limit_descriptors(story: Subject, most: int) -> None:
    done = story.router.exec(["prlimit", f"--pid={story.daemon.pid}", f"--nofile={most}:{ROOM}"])
    assert done.status == 0, done.stderr


@pytest.mark.asan
def test_runs_without_descriptors_fail_and_the_next_one_with_room_does_not(make_router):
    """With none at all, the tunnels cannot be listed; with a few more, it is a later step that ends the run, and at
    last none does. After each the daemon has as many open as before."""
    story = subject(make_router)
    outcomes = []
    for more in range(9):
        limit_descriptors(story, story.descriptors + more)
        mark = story.run()
        outcomes.append(lines(story.router, "ERROR", mark))
        limit_descriptors(story, ROOM)
        story.assert_whole()
    story.assert_ends()
    assert outcomes[0] == [NO_LIST] and [NO_OPENVPN_CONFIGURATION] in outcomes and outcomes[-1] == []
    assert all(len(outcome) <= 2 for outcome in outcomes)


def test_a_run_without_any_descriptor_changes_nothing(make_router):
    story = subject(make_router)
    limit_descriptors(story, story.descriptors)
    mark = story.run()
    assert lines(story.router, "ERROR", mark) == [NO_LIST] and story.router.command_texts(mark) == []
    story.wait_for_tunnels(ALL_UP)
    limit_descriptors(story, ROOM)
    story.assert_whole()
    story.assert_ends()


# ---- processes and threads ----

@contextlib.contextmanager
def no_process(story: Subject) -> Iterator[None]:
    """While it lasts, the daemon gets no process and no thread. A limit would not bind root."""
    router = story.router
    tracer = router.spawn(["strace", "-f", "-qq", "-o", "/dev/null", "-e", "trace=clone,clone3,fork,vfork", "-e",
                           "inject=clone,clone3,fork,vfork:error=EAGAIN", "-p", str(story.daemon.pid)])
    traced = f"/proc/{story.daemon.pid}/status"
    router.wait_until(lambda: "TracerPid:\t0\n" not in router.read_file(traced), "the tracer")
    yield
    tracer.terminate()
    router.wait_until(lambda: "TracerPid:\t0\n" in router.read_file(traced), "no tracer")


def test_a_run_without_processes_changes_nothing(make_router):
    story = subject(make_router)
    story.change()
    with no_process(story):
        mark = story.run()
    assert lines(story.router, "ERROR", mark) == [NO_LIST] and story.router.command_texts(mark) == []
    story.wait_for_tunnels(ALL_UP)
    story.assert_whole()
    story.assert_ends()


@pytest.mark.parametrize("held, left", [
    (("ip", ["tunnel"]), ALL_UP - {"openvpn"}),
    (("ipsec", ["stop"]), ALL_UP - {"ipsec", "openvpn", "gre"}),
    (("firewall", ["--init"]), ALL_UP - {"openvpn"}),
], ids=["from the list of the tunnels on", "from the stop of IPsec on", "from the firewall on"])
def test_a_run_that_gets_no_more_processes_comes_to_its_end(make_router, held, left):
    """What its commands would have changed stays as it was. OpenVPN's children, which the run ends, cannot come back,
    and the monitors are missing."""
    program, arguments = held
    story = subject(make_router)
    router = story.router
    story.put_off_passes()
    story.change()
    router.program(program).on(arguments, stay=True, times=1)
    mark = router.mark("a run")
    story.daemon.signal(signal.SIGHUP)
    router.wait_for("exec", program=program, argv=[program, *arguments], since=mark)
    with no_process(story):
        router.program(program).exit()
        router.wait_for("log", RUN_ENDS, since=mark, timeout=30)
        router.wait_for("log", NO_MONITORS[-1], since=mark)
    assert lines(router, "ERROR", mark) == [NO_FORK, *NO_MONITORS]
    assert router.commands(mark)[-1].argv == [program, *arguments]
    story.wait_for_tunnels(left)
    assert story.daemon.facts()["thread_names"].count("WAN_MONITOR") == 1
    story.assert_whole()
    story.assert_ends()
