"""OpenVPN children: one `openvpn` for each tunnel, ended and started anew by every run, and never left behind."""

import signal

import pytest

from daemon_stories import assert_in_order, preloaded, refresh, start, wait_for_monitors, wait_until_idle
from openvpn_records import PASS_SECONDS, WITH_CA, arguments, children, is_there, tunnel, wait_for_children, with_tunnels

MKDIR_SAID = "[TUNNEL_MNGR][OVPN] {} didn't exist. it has been created"
SERVER = WITH_CA + "client-config-dir {}\n"


def daemon_with(make_router, *tunnels, **options):
    router = make_router(with_tunnels(*tunnels), **options)
    router.make_ipsec_folders()
    return router, start(router)


@pytest.mark.asan
@pytest.mark.tsan
def test_every_tunnel_gets_a_child_in_the_order_of_the_configuration(make_router):
    router, daemon = daemon_with(make_router, tunnel("two", WITH_CA), tunnel("one", WITH_CA))
    started = wait_for_children(router, 2)
    in_order_of_forks = sorted(started, key=lambda event: event.pid)
    assert [event.argv for event in in_order_of_forks] == [arguments("two"), arguments("one")]
    assert {event.parent for event in started} == {daemon.pid}
    assert_in_order(router.timeline(), ("end", "firewall"), ("exec", "openvpn"), ("exec", "openvpn"))


def test_a_refresh_ends_the_old_children_before_it_looks_for_the_wan_and_starts_new_ones_last(make_router):
    router, daemon = daemon_with(make_router, tunnel("one", WITH_CA), tunnel("two", WITH_CA))
    old = wait_for_children(router, 2)
    mark = refresh(router, daemon)
    new = wait_for_children(router, 2, mark)
    assert not {event.pid for event in old} & {event.pid for event in new}
    assert not any(is_there(router, event) for event in old)
    assert_in_order(router.since(mark), ("command", "ipsec stop 2>&1"), ("caught", "openvpn"), ("caught", "openvpn"),
                    ("api", "/api/waninfo/wans"), ("end", "firewall"), ("exec", "openvpn"), ("exec", "openvpn"))


def test_without_a_wan_all_children_are_ended_and_none_is_started(make_router):
    """The supervision pass that follows has nothing to restart."""
    router, daemon = daemon_with(make_router, tunnel("one", WITH_CA))
    child = wait_for_children(router, 1)[0]
    router.documents["wans"] = []
    mark = refresh(router, daemon)
    assert not is_there(router, child)
    wait_until_idle(router, daemon, passes=2)
    assert children(router, mark) == [] and daemon.children() == []
    router.documents["wans"] = [{"current": True, "ip": "198.51.100.2"}]
    mark = refresh(router, daemon)
    assert len(wait_for_children(router, 1, mark)) == 1


def test_a_run_without_tunnels_starts_nothing(make_router):
    router, daemon = daemon_with(make_router)
    refresh(router, daemon)
    assert children(router) == [] and daemon.children() == []


def test_the_environment_the_descriptors_and_the_group_are_the_daemons(make_router):
    router, daemon = daemon_with(make_router, tunnel("one", WITH_CA), environment={"MARKED_BY_TEST": "yes"})
    child = wait_for_children(router, 1)[0]
    assert child.details["environment"]["MARKED_BY_TEST"] == "yes"
    assert {int(number) for number in child.details["descriptors"]} == {0, 1, 2}
    group = [router.read_file(f"/proc/{pid}/stat").rsplit(")", 1)[1].split()[2] for pid in (daemon.pid, child.pid)]
    assert group[0] == group[1]


@pytest.mark.parametrize("how", [signal.SIGTERM, signal.SIGKILL, signal.SIGSEGV])
def test_children_end_with_the_daemon_however_it_ends(make_router, how):
    router, daemon = daemon_with(make_router, tunnel("one", WITH_CA), tunnel("two", WITH_CA))
    router.tolerate(signal.SIGSEGV)
    started = wait_for_children(router, 2)
    assert [event.details["parent_death_signal"] for event in started] == [signal.SIGTERM, signal.SIGTERM]
    daemon.signal(how)
    router.wait_until(lambda: not any(is_there(router, event) for event in started), "the children's end")


def test_one_shot_mode_leaves_no_child(make_router):
    router = make_router(with_tunnels(tunnel("one", WITH_CA)))
    router.make_ipsec_folders()
    assert router.run().status == 0
    # A child that nobody has waited for is that of the first process, from the fork on.
    router.wait_until(lambda: router.process(1).children() == [], "no child")


def test_a_child_that_ignores_sigterm_is_asked_once_a_second_until_it_goes(make_router):
    router = make_router(with_tunnels(tunnel("one", WITH_CA), tunnel("two", WITH_CA)))
    router.make_ipsec_folders()
    router.program("openvpn").on(["--config", "/var/run/openvpn_one.conf", ...], stay=True, ignore_term=True, times=1)
    daemon = start(router)
    stubborn = next(event for event in wait_for_children(router, 2) if "openvpn_one" in event.text)
    mark = router.mark()
    daemon.signal(signal.SIGHUP)
    router.wait_for("caught", since=mark, pid=stubborn.pid, count=3, timeout=20)
    times = [event.time for event in router.find("caught", since=mark, pid=stubborn.pid)]
    assert times[2] - times[0] > 1.6  # two pauses of a second, less what the telling may be late
    assert not router.find("api", "/api/waninfo/wans", since=mark)  # the run waits
    router.program("openvpn").exit(pid=stubborn.pid)
    wait_for_monitors(router, mark)
    assert len(wait_for_children(router, 2, mark)) == 2


def test_a_missing_client_directory_is_made_by_the_child(make_router):
    router = make_router(with_tunnels(tunnel("here", SERVER.format("/run/here")), tunnel("gone", SERVER.format("/run/a/b"))))
    router.make_ipsec_folders()
    router.make_folder("/run/here")
    start(router)
    wait_for_children(router, 2)
    assert router.list_folder("/run/a/b") == []
    assert [text for text in router.command_texts() if text.startswith("mkdir")] == ["mkdir -p /run/a/b"]
    assert MKDIR_SAID.format("/run/a/b") in router.messages("ERROR")


def test_a_directory_that_cannot_be_made_is_said_to_be_made_all_the_same(make_router):
    router = make_router(with_tunnels(tunnel("one", SERVER.format("/dev/null/below")), tunnel("two", SERVER.format("/run/x"))))
    router.make_ipsec_folders()
    router.program("mkdir").on(status=1)
    start(router)
    wait_for_children(router, 2)
    # Below a file it is another error (not a directory) that the probe meets, and that one is passed over.
    assert [text for text in router.command_texts() if text.startswith("mkdir")] == ["mkdir -p /run/x"]
    assert MKDIR_SAID.format("/run/x") in router.messages("ERROR")


def test_a_missing_program_is_tried_again_by_the_next_pass(make_router):
    router = make_router(with_tunnels(tunnel("one", WITH_CA)))
    router.make_ipsec_folders()
    router.program("openvpn").missing()
    daemon = start(router)
    failed = "[TUNNEL_MNGR][OVPN] failed exec openvpn"
    router.wait_for("log", failed, count=2, timeout=3 * PASS_SECONDS)
    router.program("openvpn").restore()
    assert wait_for_children(router, 1, timeout=2 * PASS_SECONDS)[0].parent == daemon.pid


def test_a_fork_that_fails_is_said_and_tried_again(make_router):
    router, daemon = daemon_with(make_router, tunnel("one", WITH_CA))
    child = wait_for_children(router, 1)[0]
    strace = router.spawn(["strace", "-f", "-qq", "-o", "/dev/null", "-e", "trace=clone", "-e",
                           "inject=clone:error=EAGAIN", "-p", str(daemon.pid)])
    router.wait_until(lambda: "TracerPid:\t0" not in router.read_file(f"/proc/{daemon.pid}/status"), "the tracer")
    router.process(child.pid).signal(signal.SIGKILL)
    router.wait_for("log", "[TUNNEL_MNGR][OVPN] failed fork in OvpnTnl restart", timeout=3 * PASS_SECONDS)
    mark = router.mark()
    strace.terminate()
    strace.wait_exit()
    assert len(wait_for_children(router, 1, mark, timeout=2 * PASS_SECONDS)) == 1


def test_a_parent_death_request_that_fails_ends_the_child(make_router, tmp_path):
    """Nothing but the C library can make that request fail."""
    router = make_router(with_tunnels(tunnel("one", WITH_CA)), environment=preloaded(tmp_path, """
        #include <stdarg.h>
        #include <sys/prctl.h>
        #include <sys/syscall.h>
        #include <unistd.h>
        int prctl(int option, ...) {
          va_list list;
          va_start(list, option);
          unsigned long argument = va_arg(list, unsigned long);
          va_end(list);
          if (option == PR_SET_PDEATHSIG) return -1;
          return (int)syscall(SYS_prctl, option, argument, 0, 0, 0);
        }
    """))
    router.make_ipsec_folders()
    start(router)
    router.wait_for("log", "[TUNNEL_MNGR][OVPN] failed setup notify 'perent terminated' in OvpnTnl restart")
    assert children(router) == []
