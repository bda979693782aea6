"""Many tunnels between the routers: the records of router A, and what is configured by hand at their far ends on router
B. Each peer has an address of its own there: the kernel keeps one GRE tunnel for each pair of ends."""

from typing import NamedTuple

from lab.documents import Documents, Keys
from lab.router import Router
from lab.topology import SITE_A, SITE_B

FOLDER = "/run/lab/load"
MOST = 200  # peers that have room in the addresses below
# The addresses of router B are those of as many peers, so none may take another's place (MOBIKE, RFC 4555).
IPSEC_CONF = """conn %default
  mobike=no
  keyexchange=ikev2
  authby=secret
  ike=aes256-sha256-modp2048
  esp=aes256-sha256-modp2048,aes256-sha256
  auto=add
"""
IPSEC_CONNECTION = """conn t{number}
  left={address}
  leftsubnet=10.150.{number}.0/24
  right={wan}
  rightsubnet={network}/24
"""
OPENVPN = """dev {device}
proto udp
port {port}
remote {remote}
ifconfig {own} {peer}
"""


class Target(NamedTuple):
    """Where packets of a tunnel go, and from where if that matters."""

    kind: str
    peer: int
    address: str
    source: str = "-"


class FarEnds:
    """Of so many GRE tunnels, half as many IPsec tunnels (every other one by name), and a fifth as many of OpenVPN
    (every other one with a static key, the rest with certificates)."""

    def __init__(self, number: int, keys: Keys):
        self._keys = keys
        self.gre, self.ipsec, self.openvpn = range(number), range(number // 2), range(number // 5)
        self.names = {host(peer): address(peer) for peer in self.ipsec if peer % 2}
        lan = SITE_A.router_address("ipsec")
        self.targets = [*(Target("GRE", peer, f"10.101.{peer}.1") for peer in self.gre),
                        *(Target("IPsec", peer, f"10.150.{peer}.1", lan) for peer in self.ipsec),
                        *(Target("OpenVPN", peer, f"10.120.{peer}.2") for peer in self.openvpn)]

    def describe(self, documents: Documents) -> None:
        """Fills in the records of router A."""
        documents.gre = [documents.gre_tunnel(
            f"g{peer}", remoteIp=address(peer), tunnelIp=f"10.100.{peer}.1", tunnelMask="255.255.255.252",
            routes=[{"ip": f"10.101.{peer}.0", "mask": 24}]) for peer in self.gre]
        documents.ipsec = [documents.ipsec_tunnel(
            f"i{peer}", "IKEv2", remoteWanIp=host(peer) if peer % 2 else address(peer),
            remoteNetworkIp=f"10.150.{peer}.0") for peer in self.ipsec]
        documents.openvpn = [{"name": f"o{peer}", "enabled": True, "config": self._openvpn(peer, SITE_A.host_name)}
                             for peer in self.openvpn]

    def open(self, b: Router) -> None:
        """Configures router B, whose daemon does not run, and starts its services."""
        b.configure(*(f"addr add {address(peer)}/24 dev wan" for peer in self.gre),
                    *(f"addr add {target.address}/32 dev lo" for target in self.targets if target.kind != "OpenVPN"),
                    *(command for peer in self.gre for command in _gre_commands(peer)))
        connections = [IPSEC_CONNECTION.format(number=peer, address=address(peer), wan=SITE_A.wan,
                                               network=SITE_A.network("ipsec")) for peer in self.ipsec]
        b.write("/run/ipsec/ipsec.conf", "\n".join([IPSEC_CONF, *connections]))
        b.write("/run/ipsec/ipsec.secrets", f': PSK "{self._keys.pre_shared_key}"\n')
        b.command("ipsec", "start")
        b.command("mkdir", "-p", FOLDER)
        for peer in self.openvpn:
            path = f"{FOLDER}/o{peer}.conf"
            b.write(path, self._openvpn(peer, SITE_B.host_name))
            b.start_command("openvpn", "--config", path)

    def are_loaded(self, b: Router) -> bool:
        """Whether the IPsec service of router B knows them all: who asks before is refused, and does not ask again."""
        _, listing, _ = b.ask("_run", ["ipsec", "statusall"])
        return listing.count(":   child:  ") == len(self.ipsec)

    def _openvpn(self, peer: int, site: str) -> str:
        """The text for the end at a site. The far end has an address for each, and the near one a port."""
        is_far = site == SITE_B.host_name
        own, other = (f"10.120.{peer}.{2 if is_far else 1}", f"10.120.{peer}.{1 if is_far else 2}")
        text = OPENVPN.format(device=f"tuno{peer}" if is_far else "tun", port=2000 + peer, own=own, peer=other,
                              remote=SITE_A.wan if is_far else address(peer))
        text += f"local {address(peer)}\n" if is_far else ""
        if peer % 2 == 0:
            return text + self._keys.static_options()
        return text + ("tls-server\ndh none\n" if is_far else "tls-client\n") + self._keys.certificate_blocks(site)


def address(peer: int) -> str:
    """Of a peer, on router B's WAN."""
    return f"203.0.113.{10 + peer}"


def host(peer: int) -> str:
    return f"peer{peer}.example.net"


def _gre_commands(peer: int) -> list[str]:
    return [f"tunnel add g{peer} mode gre local {address(peer)} remote {SITE_A.wan} ttl 64", f"link set g{peer} up",
            f"addr add 10.100.{peer}.2/30 dev g{peer}"]
