"""The configurations that are timed."""

import json
import pathlib
import re

EXAMPLE = pathlib.Path(__file__).parents[2] / "docs" / "examples" / "router.json"

GRE_ROUTES = 4
LOCAL_NETWORKS = 3
OPENVPN_TUNNELS = 50
CERTIFICATE_EVERY = 5  # every fifth IPsec tunnel has certificates, the others a key
WAN = "198.51.100.2"

# `ip tunnel`, `ipsec stop`, `ipsec restart` and `firewall --init`: a run's commands where there is no GRE tunnel.
COMMANDS_OF_IPSEC_RUN = 4

# As long as a certificate and a key of 2048 bits are; nobody here reads them.
PEM = "-----BEGIN CERTIFICATE-----\n" + 20 * ("MIIDdzCCAl+gAwIBAgIE" * 3 + "AAAA\n") + "-----END CERTIFICATE-----\n"

OPENVPN_TEXT = """# a tunnel between two points
dev tun
proto udp
remote 203.0.113.9 {port}
ifconfig 10.200.{index}.1 10.200.{index}.2
cipher AES-256-CBC
keepalive 10 60
persist-key
persist-tun
  verb 3
<secret>
""" + 16 * "6acef03f62675b4b1bbd03e53b187727\n" + "</secret>\n"


def configuration(tunnels: int, openvpn_tunnels: int = OPENVPN_TUNNELS) -> dict:
    """`tunnels` GRE tunnels and as many IPsec tunnels. Their hosts are dotted addresses, which no name server is asked
    for."""
    return {"wans": [{"current": False, "ip": "203.0.113.40"}, {"current": True, "ip": WAN}],
            "greTunnels": [gre_tunnel(i) for i in range(tunnels)],
            "ipsecTunnels": [ipsec_tunnel(i) for i in range(tunnels)],
            "ni": {"nis": [lan_interface(i) for i in range(LOCAL_NETWORKS)]},
            "ovpnTunnels": [openvpn_tunnel(i) for i in range(openvpn_tunnels)],
            "syslog": {"logLevel": 3}}


def gre_tunnel(index: int, remote: str | None = None) -> dict:
    high, low = divmod(index, 250)
    routes = [{"ip": f"172.{16 + route}.{index % 256}.0", "mask": 24 if route % 2 else "255.255.255.0"}
              for route in range(GRE_ROUTES)]
    return {"name": f"gre {index}", "enabled": True, "remoteIp": remote or f"203.0.{high}.{low + 1}",
            "tunnelIp": f"10.{high}.{low}.1", "tunnelMask": "255.255.255.252", "ttl": 64 if index % 2 else "255",
            "checkPeriod": 1, "routes": routes}


def ipsec_tunnel(index: int, remote: str | None = None) -> dict:
    high, low = divmod(index, 250)
    tunnel = {"name": f"site {index}", "enabled": True, "type": "IKEv2" if index % 2 else "IKE", "uid": index % 3 == 0,
              "localId": "router.example.net", "remoteId": f"site-{index}.example.net",
              "remoteWanIp": remote or f"192.0.{high}.{low + 1}", "remoteNetworkIp": f"10.{100 + high}.{low}.0",
              "remoteNetworkMask": 24, "ikelife": 3, "keylife": 1, "retries": index % 4, "compression": False,
              "aggressiveMode": False, "checkPeriod": 1}
    if index % 2:
        tunnel |= {"phase1": "aes256-sha2_256;modp2048", "phase2": "aes256-sha2_256;dh24"}
    else:
        tunnel |= {"encryptMethod": "aes128"}
    if index % CERTIFICATE_EVERY == CERTIFICATE_EVERY - 1:
        return tunnel | {"authMethod": "rsasig", "caCert": PEM, "localCert": PEM, "localPrivKey": PEM}
    return tunnel | {"authMethod": "secret", "psk": f"a key that both ends of site {index} share"}


def lan_interface(index: int) -> dict:
    return {"available": True, "bridge": "--", "type": "LAN", "nitype": "ETHERNET",
            "ipv4": {"ip": f"192.168.{index}.1", "mask": "255.255.255.0"}}


def openvpn_tunnel(index: int) -> dict:
    return {"name": f"vpn{index}", "enabled": True, "config": OPENVPN_TEXT.format(index=index, port=1194 + index)}


def kernel_tunnels(documents: dict) -> list[dict]:
    """The GRE tunnels that an earlier run has left in the kernel, as Router.preset_gre takes them."""
    return [{"name": tunnel["name"].replace(" ", "_"), "remote": tunnel["remoteIp"], "local": WAN,
             "ttl": str(tunnel["ttl"])} for tunnel in documents["greTunnels"] if tunnel["enabled"]]


def host_names(documents: dict) -> set[str]:
    """The remote hosts that are given by name."""
    hosts = {tunnel["remoteIp"] for tunnel in documents["greTunnels"]}
    hosts |= {tunnel["remoteWanIp"] for tunnel in documents["ipsecTunnels"]}
    return {host for host in hosts if not re.fullmatch(r"[0-9.]+", host)}


def example() -> dict:
    """The configuration of docs/, which has something of everything: disabled tunnels, names, bridges, certificates."""
    return json.loads(EXAMPLE.read_text())
