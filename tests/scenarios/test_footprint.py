"""What the daemon takes of a small router: addresses, memory, and the environment that its children get."""

from daemon_stories import documents, gre, refresh, start
from openvpn_records import tunnel, wait_for_children
from sandbox import service_unit
from sandbox.process import Process
from sandbox.router import Router

MONITORS = 100
OWN_THREADS = 2  # the main thread and the WAN monitor
MOST_ADDRESSES = 200  # MiB; an allocator arena for each thread would make it a gigabyte
MUCH = 4  # MiB


def named_tunnels(router: Router) -> list[dict]:
    for number in range(MONITORS):
        router.dns.set(f"host{number}.example", "203.0.113.9")
    return [gre(f"t{number}", f"host{number}.example") for number in range(MONITORS)]


def address_space(router: Router, daemon: Process) -> float:
    """In MiB."""
    facts = dict(line.split(":\t", 1) for line in router.read_file(f"/proc/{daemon.pid}/status").splitlines()
                 if ":\t" in line)
    return int(facts["VmSize"].split()[0]) / 1024


def test_a_hundred_monitors_fit_the_address_space_of_a_small_router(router):
    router.documents.update(documents(*named_tunnels(router)))
    daemon = start(router)
    router.wait_until(lambda: daemon.threads() == OWN_THREADS + MONITORS, "all monitors")
    assert address_space(router, daemon) < MOST_ADDRESSES


def test_stacks_of_threads_that_have_ended_are_not_kept(make_router):
    """The service unit has a variable for that."""
    router = make_router(documents(), environment=service_unit.environment())
    router.make_ipsec_folders()
    daemon = start(router)
    before = address_space(router, daemon)
    router.documents["greTunnels"] = named_tunnels(router)
    refresh(router, daemon)
    router.wait_until(lambda: daemon.threads() == OWN_THREADS + MONITORS, "all monitors")
    assert address_space(router, daemon) > before + MUCH
    router.documents["greTunnels"] = []
    refresh(router, daemon)
    router.wait_until(lambda: daemon.threads() == OWN_THREADS, "no monitor of a tunnel")
    assert address_space(router, daemon) < before + MUCH


def test_the_memory_of_a_run_is_given_back_after_it(make_router):
    """The monitors are made while the run's documents are in memory, and lie behind them there."""
    router = make_router(documents(gre("one", "203.0.113.9")))
    router.make_ipsec_folders()
    daemon = start(router)
    before = daemon.rss_kib()
    router.documents["ni"] = {"nis": [], "more": [*range(200_000)]}
    refresh(router, daemon)
    assert daemon.rss_kib() < before + MUCH * 1024


def test_early_binding_is_for_the_daemon_alone(make_router):
    """The service unit asks for it by a variable; other variables are passed on."""
    router = make_router(documents(ovpnTunnels=[tunnel("vpn")]), environment={"LD_BIND_NOW": "1", "OTHER": "1"})
    router.make_ipsec_folders()
    start(router)
    child, = wait_for_children(router, 1)
    environment = router.read_file(f"/proc/{child.pid}/environ").split("\0")
    assert "OTHER=1" in environment
    assert not [variable for variable in environment if variable.startswith("LD_BIND_NOW=")]
