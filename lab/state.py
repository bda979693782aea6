"""What the kernel, the files and the children of a router must be by its documents, and what they are."""

import ipaddress
import re

from lab import readings
from lab.documents import Documents
from lab.router import Router

LONGEST_DEVICE_NAME = 15
SERVICE = ["charon", "starter"]
KEY_EXCHANGES = {"IKE": "ikev1", "IKEv2": "ikev2"}
# What there must be without a WAN. Files do not count then: they keep what the last run wrote.
NOTHING = {"GRE devices": {}, "other devices": {}, "routes through GRE devices": [], "IPsec service": [],
           "openvpn children": [], "ESP states": 0, "IPsec policies": 0}


def documented(documents: Documents, names: dict[str, str]) -> dict:
    """What there must be after a run, by what it is. Nothing else may be there. `names` are the addresses by host name
    that the name server tells. ESP states and policies are told of only without a WAN: with one they come and go as the
    peers agree."""
    if documents.wan == "":
        return NOTHING
    return _documented_gre(documents, names) | _documented_ipsec(documents, names) | _documented_openvpn(documents)


def _documented_gre(documents: Documents, names: dict[str, str]) -> dict:
    tunnels = [tunnel for tunnel in documents.gre if tunnel["enabled"]]
    routes = [f"{route['ip']}/{route['mask']} {_name(tunnel)}"
              for tunnel in tunnels for route in tunnel.get("routes", [])]
    return {"GRE devices": {_name(tunnel): _gre_device(tunnel, documents.wan, names) for tunnel in tunnels},
            "routes through GRE devices": sorted(routes)}


def _gre_device(tunnel: dict, wan: str, names: dict[str, str]) -> str:
    """As readings.devices() tells of it."""
    parts = [f"gre {wan} to {names.get(tunnel['remoteIp'], tunnel['remoteIp'])} ttl {tunnel['ttl']}", "up"]
    if "tunnelIp" in tunnel:
        parts.append(ipaddress.ip_interface(f"{tunnel['tunnelIp']}/{tunnel['tunnelMask']}").with_prefixlen)
    return ", ".join(parts)


def _documented_ipsec(documents: Documents, names: dict[str, str]) -> dict:
    tunnels = [tunnel for tunnel in documents.ipsec if tunnel["enabled"]]
    network = re.sub(r"\D", "_", f"{documents.local_network}/24")
    sections, secrets, certified = [], [], []
    for tunnel in tunnels:
        name, remote = _name(tunnel), names.get(tunnel["remoteWanIp"], tunnel["remoteWanIp"])
        method = tunnel.get("authMethod", "secret")
        kind = f"{documents.wan} to {remote}, {KEY_EXCHANGES[tunnel['type']]}, {method}"
        sections.append((f"{name}_{network}", kind))
        if method == "rsasig":
            certified.append(f"{name}.pem")
            secrets.append(f": RSA /var/run/ipsec/private/{name}.pem")
        else:
            secrets.append(f'"{documents.wan}" "{remote}" : PSK "{tunnel["psk"]}"')
    return {"conn sections": sections, "IPsec secrets": secrets, "CA certificates": certified,
            "certificates": certified, "private keys": certified, "IPsec service": SERVICE if tunnels else []}


def _documented_openvpn(documents: Documents) -> dict:
    """Nobody removes the configuration of a tunnel that has been disabled."""
    enabled = {tunnel["name"]: re.search(r"^ifconfig (\S+)", tunnel["config"], re.MULTILINE)[1]
               for tunnel in documents.openvpn if tunnel["enabled"]}
    return {"openvpn children": sorted(enabled),
            "openvpn configurations": sorted(f"openvpn_{tunnel['name']}.conf" for tunnel in documents.openvpn),
            "other devices": {f"tun{name}"[:LONGEST_DEVICE_NAME]: f"tun, up, {address}/32"
                              for name, address in enabled.items()}}


def observed(router: Router) -> dict:
    """The same of the running router."""
    devices, gre = router.devices(), router.gre_devices()
    found = {"GRE devices": gre, "other devices": {name: devices[name] for name in devices.keys() - gre.keys()},
             "routes through GRE devices": readings.routes(router.command("ip", "-json", "route"), set(gre)),
             "IPsec service": router.ipsec_services(),
             "openvpn children": sorted(name for name, _ in router.openvpn_children())}
    if router.documents.wan == "":
        return found | {"ESP states": readings.esp_states(router.command("ip", "xfrm", "state")),
                        "IPsec policies": readings.tunnel_policies(router.command("ip", "xfrm", "policy"))}
    return found | {"conn sections": readings.sections(router.read("/run/ipsec/ipsec.conf")),
                    "IPsec secrets": router.read("/run/ipsec/ipsec.secrets").splitlines(),
                    "CA certificates": router.files("/run/ipsec/cacerts"),
                    "certificates": router.files("/run/ipsec/certs"),
                    "private keys": router.files("/run/ipsec/private"),
                    "openvpn configurations": [name for name in router.files("/run")
                                               if name.startswith("openvpn_") and name.endswith(".conf")]}


def differences(expected: dict, found: dict) -> str:
    """In words, or nothing."""
    return "; ".join(f"{what}: {found.get(what)!r} instead of {expected[what]!r}"
                     for what in expected if found.get(what) != expected[what])


def _name(tunnel: dict) -> str:
    return tunnel["name"].replace(" ", "_")
