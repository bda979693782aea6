"""What the daemon takes of a small router: addresses, and the environment that its children get."""

from daemon_stories import documents, gre, start
from openvpn_records import tunnel, wait_for_children

MONITORS = 100
MOST_ADDRESSES = 200  # MB; an allocator arena for each thread would make it a gigabyte


def test_a_hundred_monitors_fit_the_address_space_of_a_small_router(make_router):
    router = make_router(documents(*(gre(f"t{number}", f"host{number}.example") for number in range(MONITORS))))
    router.make_ipsec_folders()
    for number in range(MONITORS):
        router.dns.set(f"host{number}.example", "203.0.113.9")
    daemon = start(router)
    router.wait_until(lambda: daemon.threads() == MONITORS + 2, "all threads")
    facts = dict(line.split(":\t", 1) for line in router.read_file(f"/proc/{daemon.pid}/status").splitlines()
                 if ":\t" in line)
    assert int(facts["VmSize"].split()[0]) / 1024 < MOST_ADDRESSES


def test_early_binding_is_for_the_daemon_alone(make_router):
    """The service unit asks for it by a variable; other variables are passed on."""
    router = make_router(documents(ovpnTunnels=[tunnel("vpn")]), environment={"LD_BIND_NOW": "1", "OTHER": "1"})
    router.make_ipsec_folders()
    start(router)
    child, = wait_for_children(router, 1)
    environment = router.read_file(f"/proc/{child.pid}/environ").split("\0")
    assert "OTHER=1" in environment
    assert not [variable for variable in environment if variable.startswith("LD_BIND_NOW=")]
