"""What docs/configuration.md says happens silently to OpenVPN tunnels, seen with the real `openvpn`."""

import signal

import pytest

from daemon_stories import start
from openvpn_records import PASS_SECONDS, tunnel, wait_for_children
from test_openvpn_real import SECOND, devices, open_real_router, static_config

BUSY = "ERROR: Cannot ioctl TUNSETIFF {}: Device or resource busy"
BAD_DEVICE = "Options error: Unrecognized option or missing or extra parameter(s)"

pytestmark = pytest.mark.slow


def config(port: int, *options: str) -> str:
    return "\n".join((static_config(SECOND, "10.8.0.1", "10.8.0.2").replace("1195", str(port)), *options, ""))


def assert_silent(router) -> None:
    """Asserts that the daemon, which logs errors only, has logged nothing but its pings, which it logs as errors."""
    assert all("][OVPN] ping " in event.text for event in router.find("log", ident="TUNNEL_MNGR"))


def test_names_that_are_alike_for_as_long_as_a_device_name_is_give_one_device(make_router):
    """It belongs to one of the children; the other ends, and is started again and again."""
    router = open_real_router(make_router, tunnel("averylongname1", config(1195)), tunnel("averylongname2", config(1196)))
    router.daemon()
    for times in (1, 2):
        router.wait_for("log", BUSY.format("tunaverylongnam"), ident="openvpn", count=times, timeout=3 * PASS_SECONDS)
    assert [name for name in devices(router) if name.startswith("tun")] == ["tunaverylongnam"]
    assert_silent(router)


def test_a_name_with_a_blank_is_tried_again_and_again(make_router):
    router = open_real_router(make_router, tunnel("two words", config(1195)))
    daemon = router.daemon()
    wait_for_children(router, 2, timeout=3 * PASS_SECONDS)
    assert BAD_DEVICE in daemon.stdout
    assert_silent(router)


def test_a_tunnel_that_goes_to_the_background_outlives_its_record_and_the_daemon(make_router):
    router = open_real_router(make_router, tunnel("away", config(1195, "daemon")))
    daemon = start(router)
    router.wait_until(lambda: "tunaway" in devices(router), "the device")
    router.wait_for("log", BUSY.format("tunaway"), ident="openvpn", timeout=3 * PASS_SECONDS)
    router.documents["ovpnTunnels"] = []
    daemon.signal(signal.SIGHUP)
    router.wait_until(lambda: not daemon.children(), "the end of the children")
    daemon.signal(signal.SIGTERM)
    daemon.wait_exit(PASS_SECONDS)
    assert "tunaway" in devices(router)
