"""Routers in which the real IPsec service reads what the program has written."""

from ipsec_records import ipsec_documents
from sandbox.certificates import Authority
from sandbox.ipsec_service import IpsecService
from sandbox.router import Router
from tunnel_records import WAN, run_once

def serviced(make_router, *tunnels: dict, user_space_esp: bool = False, **members) -> tuple[Router, IpsecService]:
    """A router that will have these tunnels, and the real service in it."""
    router = make_router(ipsec_documents(*tunnels, **members))
    return router, IpsecService(router, user_space_esp=user_space_esp)


def cable(router: Router, name: str, address: str) -> None:
    """Gives the router an interface with this address, which leads nowhere."""
    for command in (f"link add {name} type veth peer name {name}-end", f"addr add {address} dev {name}",
                    f"link set {name} up", f"link set {name}-end up"):
        done = router.exec(["ip", *command.split()])
        assert done.status == 0, done.stderr


def loaded(make_router, *tunnels: dict, **members) -> tuple[Router, IpsecService]:
    """A router in which the program has run once with these tunnels, and the service, which has read them all."""
    router, service = serviced(make_router, *tunnels, **members)
    cable(router, "wan0", f"{WAN}/24")
    run_once(router)
    service.wait_for_connections(*conn_names(router))
    return router, service


def conn_names(router: Router) -> list[str]:
    """The names of the conn sections in the router's ipsec.conf, in order."""
    return [line.removeprefix("conn ") for line in router.read_file("/run/ipsec/ipsec.conf").splitlines()
            if line.startswith("conn ")]


def authority() -> Authority:
    return Authority("Test CA")
