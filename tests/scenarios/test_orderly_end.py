"""Orderly end: the process leaves soon after SIGTERM with status 0, whatever its threads are doing."""

import signal

import pytest

from daemon_stories import assert_no_instance, documents, gre, preloaded, refresh, start, wait_for_threads

FIRST_CHECK = 75  # seconds until the FQDN monitors have looked their names up, with some to spare
FIRST_WAN_CHECK = 45  # the same for the WAN monitor
PROMPTLY = 10.0  # seconds, against the sixty that a silent API is waited for and the thirty of a look-up


@pytest.mark.slow
@pytest.mark.asan
@pytest.mark.tsan
@pytest.mark.parametrize("silence", ["hang", "deaf"])
def test_a_request_of_the_wan_monitor_that_hangs_does_not_hold_up_the_end(router, silence):
    """The abandoned request is still inside the HTTP library, so the process must not destroy what that uses; and
    nobody may wait for it."""
    daemon = start(router)
    wait_for_threads(router, daemon, 1)
    threads = daemon.threads()
    mark = router.mark("the API is silent")
    if silence == "hang":
        router.api.on("wans", hang=True)
        router.wait_for("api", "/api/waninfo/wans", since=mark, timeout=FIRST_WAN_CHECK)
    else:
        router.api.deaf()
        # A request is made on a thread of its own.
        router.wait_until(lambda: daemon.threads() > threads, "the WAN monitor's request", FIRST_WAN_CHECK)
    assert daemon.terminate(timeout=PROMPTLY) == 0
    assert_no_instance(router)


# A library that notes the number of each process in which its destructor runs.
DESTROYED = "/run/destroyed"
NOTED_DESTRUCTION = f"""
__attribute__((destructor)) static void note(void) {{
  FILE *const file = fopen("{DESTROYED}", "a");
  fprintf(file, "%d\\n", getpid());
  fclose(file);
}}
"""


@pytest.mark.slow
@pytest.mark.parametrize("abandoned", [True, False], ids=["a call is abandoned", "no call is under way"])
def test_libraries_are_destroyed_at_the_end_unless_a_call_may_still_be_inside_them(make_router, tmp_path, abandoned):
    router = make_router(environment=preloaded(tmp_path, NOTED_DESTRUCTION))
    router.make_ipsec_folders()
    daemon = start(router)
    if abandoned:
        mark = router.mark("the API is silent")
        router.api.on("wans", hang=True)
        router.wait_for("api", "/api/waninfo/wans", since=mark, timeout=FIRST_WAN_CHECK)
    assert daemon.terminate(timeout=PROMPTLY) == 0
    destroyed = router.read_file(DESTROYED).split()
    assert len(destroyed) == (1 if abandoned else 2)  # the process that was started has left its daemon with exit(3)
    assert (str(daemon.pid) in destroyed) == (not abandoned)


@pytest.mark.slow
@pytest.mark.asan
@pytest.mark.tsan
def test_look_ups_that_hang_do_not_hold_up_the_end(make_router):
    """They are inside the resolver when the process ends."""
    router = make_router(documents(*(gre(f"t{n}", f"host{n}.example", checkPeriod=1) for n in range(5))),
                         resolver_options="timeout:30 attempts:3")
    router.make_ipsec_folders()
    for number in range(5):
        router.dns.set(f"host{number}.example", f"203.0.1.{number + 1}")
    daemon = start(router)
    for number in range(5):
        router.dns.set(f"host{number}.example", "SILENT")
    mark = router.mark("the name server is silent")
    router.wait_for("dns", since=mark, count=5, timeout=FIRST_CHECK)
    assert daemon.terminate(timeout=PROMPTLY) == 0
    assert len(router.find("log", " stop ", since=mark)) == 5


@pytest.mark.asan
@pytest.mark.tsan
def test_a_daemon_that_was_busy_leaves_with_everything_in_order(make_router):
    """Under the address sanitizer this also tells of memory that no refresh gives back."""
    router = make_router(documents(*(gre(f"t{n}", f"203.0.113.{n + 1}") for n in range(5))))
    router.make_ipsec_folders()
    daemon = start(router)
    before = daemon.fds()
    for _ in range(3):
        refresh(router, daemon)
    assert daemon.fds() == before
    assert daemon.terminate() == 0
    assert_no_instance(router)


@pytest.mark.asan
@pytest.mark.tsan
def test_a_one_shot_run_leaves_with_everything_in_order(make_router):
    router = make_router(documents(gre("one", "host.example"), gre("two", "203.0.113.8", checkPeriod=3)))
    router.make_ipsec_folders()
    router.dns.set("host.example", "203.0.1.1")
    assert router.run("--printlvl", "100").status == 0
    assert_no_instance(router)


@pytest.mark.asan
@pytest.mark.tsan
def test_a_stop_while_monitors_are_being_started_ends_them_all(make_router):
    router = make_router(documents(*(gre(f"t{n}", f"203.0.113.{n + 1}") for n in range(50))))
    router.make_ipsec_folders()
    daemon = router.daemon("--printlvl", "100")
    router.wait_for("log", "STARTING WAN AND FQDN MONITORS", timeout=60)
    daemon.signal(signal.SIGTERM)
    assert daemon.wait_exit() == 0
    started, stopped = len(router.find("log", " period 1")), len(router.find("log", " stop "))
    assert (started, stopped) == (50, 50)
