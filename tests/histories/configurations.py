"""The configurations of which histories are made. A number decides everything in one."""

import random

GRE_HOSTS = ["a.example", "b.example"]
IPSEC_HOSTS = ["c.example", "d.example"]
HOSTS = GRE_HOSTS + IPSEC_HOSTS
WITH_KEY = "dev tun\nifconfig 10.8.{index}.1 10.8.{index}.2\n<secret>\nkey\n</secret>\n"
WITH_CA = "dev tun\nremote peer.example\n<ca>\nCA\n</ca>\n"
# A member that a run reads, with a value at which it throws.
WRONG = [("greTunnels", "enabled", "true"), ("greTunnels", "name", [1]), ("ipsecTunnels", "psk", {"a": 1}),
         ("ipsecTunnels", "checkPeriod", "soon"), ("ovpnTunnels", "config", [1]), ("ni", "nis", {"a": 1})]
LAN = {"type": "LAN", "nitype": "ETHERNET", "bridge": "--", "available": True,
       "ipv4": {"ip": "192.168.2.1", "mask": "255.255.255.0"}}


def wans(number: int) -> list:
    """The list of WANs; the first has none."""
    return [{"current": True, "ip": f"198.51.100.{number}"}] if number else []


def address(number: int) -> str:
    """Of a host; hosts have different ones."""
    return f"203.0.113.{number}"


def tunnels(number: int) -> dict:
    """All documents but the list of WANs: up to two tunnels of each kind, each on or off; none in that of number 0 is off."""
    draw = random.Random(number)

    def enabled() -> bool:
        return number == 0 or draw.random() < 0.8

    def count() -> int:
        return 2 if number == 0 else draw.randrange(3)

    gre = [{"name": f"gre {number} {i}", "enabled": enabled(), "remoteIp": GRE_HOSTS[i], "ttl": 64, "checkPeriod": 1,
            "tunnelIp": f"10.9.{i}.1", "tunnelMask": "30", "routes": [{"ip": f"192.168.5{i}.0", "mask": 24}]}
           for i in range(count())]
    ipsec = [{"name": f"ips {number} {i}", "enabled": enabled(), "type": "IKEv2", "remoteWanIp": IPSEC_HOSTS[i],
              "checkPeriod": 1, "remoteNetworkIp": f"192.168.9{i}.0", "remoteNetworkMask": 24, "encryptMethod": "aes128",
              "ikelife": 3, "keylife": 1, **_authentication(i)} for i in range(count())]
    openvpn = [{"name": f"vpn{number}_{i}", "enabled": enabled(), "config": (WITH_KEY, WITH_CA)[i].format(index=i)}
               for i in range(count())]
    return {"greTunnels": gre, "ipsecTunnels": ipsec, "ni": {"nis": [LAN]}, "ovpnTunnels": openvpn, "syslog": {"logLevel": 3}}


def _authentication(index: int) -> dict:
    return ({"psk": "a key"}, {"authMethod": "rsasig", "caCert": "CA\n", "localCert": "CERT\n", "localPrivKey": "KEY\n"})[index]


def enabled_names(documents: dict) -> dict[str, list[str]]:
    """By kind, the names that the tunnels get."""
    kinds = {"gre": "greTunnels", "ipsec": "ipsecTunnels", "openvpn": "ovpnTunnels"}
    return {kind: [record["name"].replace(" ", "_") for record in documents[member] if record["enabled"]]
            for kind, member in kinds.items()}
