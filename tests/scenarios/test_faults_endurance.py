"""Endurance: refreshes leave nothing behind, no descriptor in a hundred of them and no memory in a thousand."""

import signal

import pytest

from daemon_stories import documents, gre, wait_for_threads
from fault_stories import shimmed_router, subject
from ipsec_records import certificate_tunnel, interfaces, psk_tunnel
from openvpn_records import WITH_CA, tunnel
from sandbox.process import Process
from sandbox.router import Router

PER_REFRESH = 256  # bytes; a monitor that was not released takes more
HOSTS = 10


def refresh(router: Router, daemon: Process, times: int) -> None:
    """So many refreshes, each requested when the one before has done the last of its work."""
    for _ in range(times):
        mark = router.mark()
        daemon.signal(signal.SIGHUP)
        router.wait_for("exec", program="openvpn", since=mark, timeout=30)


def test_a_hundred_refreshes_leave_no_descriptor_and_no_child(make_router):
    story = subject(make_router)
    before = story.daemon.facts()["descriptors"]
    refresh(story.router, story.daemon, 100)
    story.assert_whole()
    assert story.daemon.facts()["descriptors"] == before
    story.assert_ends()


@pytest.mark.slow
def test_a_thousand_refreshes_leave_no_memory(make_router):
    """Eleven monitors each time. The first two hundred bring the allocator to its full size."""
    ipsec = [certificate_tunnel("cert", remoteWanIp="host0.example"),
             *(psk_tunnel(f"psk{number}", remoteWanIp=f"host{number}.example") for number in range(1, HOSTS))]
    router = shimmed_router(make_router, documents(
        gre("gre1", "host0.example"), ipsecTunnels=ipsec, ni=interfaces("192.168.2.1"),
        ovpnTunnels=[tunnel("vpn", WITH_CA)]))
    for number in range(HOSTS):
        router.dns.set(f"host{number}.example", f"203.0.113.{number}")
    daemon = router.daemon()  # which logs errors only, or the log would take most of the time
    router.wait_for("exec", program="openvpn")
    sizes = []
    for times in (200, 800):
        refresh(router, daemon, times)
        wait_for_threads(router, daemon, 1 + 1 + len(ipsec))
        sizes.append(daemon.rss_kib())
    print("KiB after 200 and after 1000 refreshes:", *sizes)
    assert (sizes[1] - sizes[0]) * 1024 < 800 * PER_REFRESH
    assert router.log_lines() == []
    assert daemon.terminate() == 0
