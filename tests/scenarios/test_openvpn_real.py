"""The real `openvpn` reads what the daemon writes: two routers, each with a daemon of its own, joined by a tunnel with a
static key and by one with certificates, and packets cross both."""

import functools
import signal
import subprocess

import pytest

from daemon_stories import start
from openvpn_records import PASS_SECONDS, connect_path, tunnel, with_tunnels
from sandbox.certificates import Authority
from sandbox.router import Router

NETWORK = "192.0.2.0/24"
FIRST, SECOND = "192.0.2.1", "192.0.2.2"
COMMON = "dev tun\nproto udp\nkeepalive 1 10\npersist-key\n"


@functools.cache
def static_key() -> str:
    return subprocess.run(["openvpn", "--genkey", "secret", "/dev/stdout"], check=True, capture_output=True, text=True).stdout


def static_config(remote: str, own: str, far: str) -> str:
    return (f"{COMMON}remote {remote} 1195\nlport 1195\nifconfig {own} {far}\ncipher AES-256-CBC\n"
            f"<secret>\n{static_key()}</secret>\n")


def tls_config(remote: str, own: str, far: str, role: str, members: dict[str, str]) -> str:
    return (f"{COMMON}remote {remote} 1196\nlport 1196\nifconfig {own} {far}\n{role}\n"
            f"dh none\n<ca>\n{members['caCert']}</ca>\n<cert>\n{members['localCert']}</cert>\n"
            f"<key>\n{members['localPrivKey']}</key>\n")


def pings(router: Router, address: str) -> bool:
    """Whether the real ping of the machine reaches an address from inside the router."""
    return router.exec(["/usr/bin/ping", "-c", "1", "-W", "1", address]).status == 0


def devices(router: Router) -> set[str]:
    lines = router.read_file("/proc/net/dev").splitlines()[2:]
    return {line.split(":")[0].strip() for line in lines}


def open_real_router(make_router, *tunnels: dict) -> Router:
    router = make_router(with_tunnels(*tunnels))
    router.make_ipsec_folders()
    router.program("openvpn").on(real="become")
    router.program("ping").on(real="run")
    return router


def wait_for_pings(router: Router, address: str) -> None:
    router.wait_until(lambda: pings(router, address), f"an answer from {address}", 40)


@pytest.mark.slow
def test_packets_cross_both_tunnels_and_a_killed_child_comes_back(make_router):
    authority = Authority()
    first = open_real_router(
        make_router, tunnel("static", static_config(SECOND, "10.8.0.1", "10.8.0.2")),
        tunnel("averylongnameindeed", tls_config(SECOND, "10.9.0.1", "10.9.0.2", "tls-server", authority.members("a"))))
    second = open_real_router(
        make_router, tunnel("static", static_config(FIRST, "10.8.0.2", "10.8.0.1")),
        tunnel("averylongnameindeed", tls_config(FIRST, "10.9.0.2", "10.9.0.1", "tls-client", authority.members("b"))))
    Router.link(first, second, NETWORK)
    daemons = [start(first), start(second)]

    for router, far in ((first, ("10.8.0.2", "10.9.0.2")), (second, ("10.8.0.1", "10.9.0.1"))):
        for address in far:
            wait_for_pings(router, address)
    assert {"tunstatic", "tunaverylongnam"} <= devices(first)
    for router in (first, second):
        router.wait_until(lambda: router.read_file(connect_path("static")) == "connected", "a ping by the daemon",
                          4 * PASS_SECONDS)
        assert not router.exists(connect_path("averylongnameindeed"))

    # A child is killed: the next pass brings it back, and packets cross again.
    mark = first.mark("a child is killed")
    killed = next(event for event in first.find("exec", program="openvpn") if "static" in event.text)
    first.process(killed.pid).signal(signal.SIGKILL)
    first.wait_for("exec", "openvpn_static.conf", since=mark, program="openvpn", timeout=3 * PASS_SECONDS)
    wait_for_pings(first, "10.8.0.2")

    # The peer stops: the file is emptied, and nothing else happens to the tunnel.
    mark = first.mark("the peer stops")
    daemons[1].signal(signal.SIGTERM)
    daemons[1].wait_exit(2 * PASS_SECONDS)
    first.wait_until(lambda: first.read_file(connect_path("static")) == "", "a ping that fails", 6 * PASS_SECONDS)
    assert not first.find("exec", program="openvpn", since=mark)
    daemons[0].signal(signal.SIGTERM)
    daemons[0].wait_exit(2 * PASS_SECONDS)  # a pass waits longer than usual for a ping that nobody answers
    first.wait_until(lambda: not {name for name in devices(first) if name.startswith("tun")}, "the devices' end")
