"""The places and the wires: two routers, a host behind each, and between the routers a network with a name server."""

import pathlib
import subprocess
from collections.abc import Iterable

from lab import readings
from lab.documents import Documents, Keys, Site
from lab.node import Node
from lab.router import Programs, Router
from sandbox import name_server
from sandbox.recorder import Recorder

NAME_SERVER = "192.0.2.53"
KINDS = {"gre": "GRE", "ipsec": "IPsec", "static": "OpenVPN static", "tls": "OpenVPN TLS"}
SITE_A = Site("a.example.net", "198.51.100.2", "198.51.100.1", 1,
              {"ipsec": "192.168.10", "gre": "192.168.11", "static": "192.168.12", "tls": "192.168.13"})
SITE_B = Site("b.example.net", "203.0.113.2", "203.0.113.1", 2,
              {"ipsec": "192.168.20", "gre": "192.168.21", "static": "192.168.22", "tls": "192.168.23"})
NEW_WAN_A = "198.51.100.77"


class Network(Node):
    """What lies between the routers. It knows no way to a LAN or to an address inside a tunnel, and says so."""

    def prepare(self) -> None:
        pathlib.Path("/proc/sys/net/ipv4/ip_forward").write_text("1")

    def _serve_names(self, names: dict[str, str]) -> None:
        name_server.ADDRESS = (NAME_SERVER, 53)
        self._names = name_server.NameServer(Recorder(lambda event: None, 0))
        self._set(names)
        self._names.start()

    def _set(self, names: dict[str, str]) -> None:
        for name, address in names.items():
            self._names.set(name, [[address]], 0, False)

    def _forget(self, name: str) -> None:
        self._names.remove(name)

    def serve_names(self, names: dict[str, str]) -> None:
        """Starts to answer with these addresses by host name."""
        self.ask("_serve_names", names)

    def change_names(self, names: dict[str, str]) -> None:
        self.ask("_set", names)

    def forget_name(self, name: str) -> None:
        self.ask("_forget", name)


class Host(Node):
    """A machine on a LAN."""

    def ping_all(self, commands: list[list[str]]) -> list[str]:
        """What these commands, run at the same time, write."""
        return self.ask("_ping_all", commands)

    def _ping_all(self, commands: list[list[str]]) -> list[str]:
        pings = [subprocess.Popen(command, text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL) for command in commands]
        return [ping.communicate()[0] for ping in pings]


class Topology:
    """All nodes, wired and addressed. The daemons are not started here."""

    def __init__(self, programs: Programs, keys: Keys, folder: pathlib.Path):
        self.network = Network("network")
        self.host_a, self.host_b = Host("host-a"), Host("host-b")
        self.a = Router("router-a", programs, NAME_SERVER, folder, Documents(SITE_A, SITE_B, keys))
        self.b = Router("router-b", programs, NAME_SERVER, folder, Documents(SITE_B, SITE_A, keys))
        self._wire_network()
        for site, router, host in ((SITE_A, self.a, self.host_a), (SITE_B, self.b, self.host_b)):
            self._wire_site(site, router, host)
        self.names = {site.host_name: site.wan for site in (SITE_A, SITE_B)}  # what the name server answers
        self.network.serve_names(self.names)

    @property
    def routers(self) -> tuple[Router, Router]:
        return self.a, self.b

    def crossing(self, kinds: Iterable[str], requests: int = 1, pattern: str = "00") -> set[str]:
        """The kinds of tunnels through which all echo requests get from one LAN's host to the other's and all answers
        back. They are tried at the same time; `pattern` is what ping(8) is to send, in hexadecimal digits."""
        options = (f"-c{requests}", "-i0.2", "-W1", "-p", pattern)
        kinds = list(kinds)
        answers = self.host_a.ping_all([[*ping_command(kind), *options] for kind in kinds])
        return {kind for kind, answer in zip(kinds, answers) if readings.answered(answer, requests)}

    def lose_wan(self) -> None:
        """Router A's API says that there is no WAN; its link stays up, so that names still resolve there."""
        self._publish_wan("")

    def take_link_down(self) -> None:
        """Router A's WAN link."""
        self.a.command("ip", "link", "set", "wan", "down")

    def restore_wan(self) -> None:
        self.address_wan(SITE_A.wan)

    def change_wan(self) -> None:
        """Router A gets another address on its link, its API says so, and the name server as well."""
        self.address_wan(NEW_WAN_A)
        self.teach_name(SITE_A.host_name, NEW_WAN_A)

    def forget_name(self, name: str) -> None:
        """The name server knows it no longer."""
        del self.names[name]
        self.network.forget_name(name)

    def teach_name(self, name: str, address: str) -> None:
        self.names[name] = address
        self.network.change_names(self.names)

    def bury(self, *addresses: str) -> None:
        """Nothing reaches these addresses any more, and nobody is told."""
        self.network.configure(*(f"route add blackhole {address}/32" for address in addresses))

    def address_wan(self, address: str) -> None:
        """Router A's link has this address, which its API says to be the current WAN's."""
        self.a.configure("addr flush dev wan", f"addr add {address}/24 dev wan", "link set wan up",
                         f"route replace default via {SITE_A.gateway}")
        self._publish_wan(address)

    def _publish_wan(self, address: str) -> None:
        self.a.documents.wan = address
        self.a.publish()

    def _wire_network(self) -> None:
        wires = [*_link("wan-a", self.a, "wan", f"{SITE_A.gateway}/24"),
                 *_link("wan-b", self.b, "wan", f"{SITE_B.gateway}/24")]
        self.network.configure("link set lo up", f"addr add {NAME_SERVER}/32 dev lo", "route add unreachable default",
                               *wires)

    def _wire_site(self, site: Site, router: Router, host: Node) -> None:
        router_addresses = [f"{site.router_address(kind)}/24" for kind in site.networks]
        host_addresses = [f"addr add {site.host_address(kind)}/24 dev lan" for kind in site.networks]
        router.configure("link set lo up", f"addr add {site.wan}/24 dev wan", "link set wan up",
                         f"route add default via {site.gateway}", *_link("lan", host, "lan", *router_addresses))
        host.configure("link set lo up", "link set lan up", *host_addresses,
                       f"route add default via {site.router_address('ipsec')}")


def ping_command(kind: str) -> list[str]:
    """For host A: pings host B through a kind of tunnel."""
    return ["ping", "-n", "-I", SITE_A.host_address(kind), SITE_B.host_address(kind)]


def _link(device: str, peer: Node, peer_device: str, *addresses: str) -> list[str]:
    """A wire whose other end is in another node."""
    return [f"link add {device} type veth peer name {peer_device} netns {peer.pid}",
            *(f"addr add {address} dev {device}" for address in addresses), f"link set {device} up"]
