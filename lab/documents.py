"""What the configuration API of each router delivers."""

import pathlib
import secrets
import subprocess
from dataclasses import dataclass, field

GRE_A, GRE_B, IPSEC = "Branch Office 1", "Head Office", "office"  # tunnels between the routers, as either names them
QUIET = 10  # the syslog level that has openvpn log what it does, but not every packet
# Kinds of IPsec tunnels: what their records have besides the common members.
IPSEC_KINDS = {
    "IKEv1": {"type": "IKE", "encryptMethod": "aes128", "uid": False},
    "IKEv2": {"type": "IKEv2", "phase1": "aes256-sha2_256;modp2048", "phase2": "aes256-sha2_256", "uid": False},
    "certificates": {"type": "IKEv2", "phase1": "aes256-sha2_256;modp2048", "phase2": "aes256-sha2_256",
                     "authMethod": "rsasig", "uid": True},
}


@dataclass
class Site:
    """One side of all tunnels. Each kind of tunnel joins a network of its own on both sides; addresses are texts."""

    host_name: str
    wan: str
    gateway: str
    number: int  # the last number of its addresses inside the tunnels
    networks: dict[str, str]  # by kind of tunnel: the first three numbers of a /24

    def network(self, kind: str) -> str:
        return f"{self.networks[kind]}.0"

    def router_address(self, kind: str) -> str:
        return f"{self.networks[kind]}.1"

    def host_address(self, kind: str) -> str:
        return f"{self.networks[kind]}.10"


@dataclass
class Keys:
    """What both sides share, and the certificates: PEM texts by file name."""

    folder: pathlib.Path
    pre_shared_key: str = field(default_factory=lambda: secrets.token_hex(16))
    static_key: str = field(default_factory=lambda: "\n".join(secrets.token_hex(16) for _ in range(16)))

    def text(self, name: str) -> str:
        return (self.folder / name).read_text()

    def static_options(self) -> str:
        """For OpenVPN. 2.7 wants to be told that a static key is meant; 2.6 cannot be."""
        return f"""cipher AES-256-CBC
ignore-unknown-option allow-deprecated-insecure-static-crypto
allow-deprecated-insecure-static-crypto
<secret>
-----BEGIN OpenVPN Static key V1-----
{self.static_key}
-----END OpenVPN Static key V1-----
</secret>
"""

    def certificate_blocks(self, host_name: str) -> str:
        """The same with the certificate of a site."""
        files = {"ca": "ca.crt", "cert": f"{host_name}.crt", "key": f"{host_name}.key"}
        return "".join(f"<{block}>\n{self.text(file)}</{block}>\n" for block, file in files.items())

    def make_certificates(self, sites: list[Site]) -> None:
        """A certificate authority and a certificate for each site's host name, by openssl(1)."""
        self._request("ca", "/CN=Laboratory", [])
        signing = ["-CA", f"{self.folder}/ca.crt", "-CAkey", f"{self.folder}/ca.key"]
        for site in sites:
            name = site.host_name
            self._request(name, f"/CN={name}", [*signing, "-addext", f"subjectAltName=DNS:{name}",
                                                "-addext", "basicConstraints=critical,CA:FALSE"])

    def _request(self, name: str, subject: str, options: list[str]) -> None:
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "30", "-subj", subject,
                        "-keyout", f"{self.folder}/{name}.key", "-out", f"{self.folder}/{name}.crt", *options],
                       check=True, capture_output=True)


class Documents:
    """The documents of the router at `site`, whose tunnels lead to `peer`; to be changed as a step likes."""

    def __init__(self, site: Site, peer: Site, keys: Keys):
        self._site, self._peer, self._keys = site, peer, keys
        self.wan = site.wan  # "" while there is none
        self.local_network = site.network("ipsec")
        self.gre: list[dict] = []
        self.ipsec: list[dict] = []
        self.openvpn: list[dict] = []

    def contents(self) -> dict:
        """By member name, as the API's requests ask for them."""
        interfaces = [{"type": "WAN", "available": True, "bridge": "--", "nitype": "ETHERNET"},
                      {"type": "LAN", "available": True, "bridge": "--", "nitype": "ETHERNET",
                       "ipv4": {"ip": self._site.router_address("ipsec"), "mask": "255.255.255.0"}}]
        wans = [{"name": "modem", "current": False, "ip": ""},
                {"name": "ethernet", "current": self.wan != "", "ip": self.wan}]
        return {"wans": wans, "greTunnels": self.gre, "ipsecTunnels": self.ipsec, "ovpnTunnels": self.openvpn,
                "ni": {"nis": interfaces}, "syslog": {"logLevel": QUIET}}

    def gre_tunnel(self, name: str, **members) -> dict:
        """A tunnel to the peer, or to where `members` say."""
        return {"name": name, "enabled": True, "remoteIp": self._peer.host_name, "ttl": 64, "checkPeriod": 1, **members}

    def gre_tunnel_to_peer(self, name: str) -> dict:
        return self.gre_tunnel(name, tunnelIp=f"10.1.1.{self._site.number}", tunnelMask="255.255.255.252",
                               routes=[{"ip": self._peer.network("gre"), "mask": 24}])

    def ipsec_tunnel(self, name: str, kind: str, **members) -> dict:
        """A tunnel of one of IPSEC_KINDS to the peer, or to where `members` say."""
        own, peer = self._site.host_name, self._peer.host_name
        certificate = {"localId": own, "remoteId": peer, "caCert": self._keys.text("ca.crt"),
                       "localCert": self._keys.text(f"{own}.crt"), "localPrivKey": self._keys.text(f"{own}.key")}
        secret = certificate if kind == "certificates" else {"psk": self._keys.pre_shared_key}
        return {"name": name, "enabled": True, "remoteWanIp": peer, "remoteNetworkIp": self._peer.network("ipsec"),
                "remoteNetworkMask": "24", "compression": False, "aggressiveMode": False, "ikelife": 3, "keylife": 1,
                "retries": 0, "checkPeriod": 1, **IPSEC_KINDS[kind], **secret, **members}

    def openvpn_static(self, name: str) -> dict:
        """Point to point with a static key."""
        route = f"route {self._peer.network('static')} 255.255.255.0"
        return self._openvpn(name, 2, f"remote {self._peer.host_name}\n{route}\n{self._keys.static_options()}")

    def openvpn_tls(self, name: str, server: bool) -> dict:
        """Point to point with certificates."""
        role = "tls-server\ndh none" if server else "tls-client"
        remote = f"remote {self._peer.host_name}\nroute {self._peer.network('tls')} 255.255.255.0"
        return self._openvpn(name, 3, f"{remote}\n{role}\n{self._keys.certificate_blocks(self._site.host_name)}")

    def openvpn_alone(self, name: str) -> dict:
        """With certificates, waiting for a peer that never comes."""
        return self._openvpn(name, 4, f"tls-server\ndh none\n{self._keys.certificate_blocks(self._site.host_name)}")

    def _openvpn(self, name: str, number: int, rest: str) -> dict:
        """The number tells tunnels apart, in the port and in the addresses inside."""
        own, peer = (f"10.{number}.0.{site.number}" for site in (self._site, self._peer))
        config = f"dev tun\nproto udp\nport {1190 + number}\nifconfig {own} {peer}\n{rest}"
        return {"name": name, "enabled": True, "config": config}
