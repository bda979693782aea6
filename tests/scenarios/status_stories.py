"""What the stories about `tunnelctl status` share: a router on which all tunnels are up, the kernel that its stand-in `ip`
tells of, and the command itself."""

import contextlib
import ipaddress
import json

from companion import companion
from daemon_stories import gre, start
from ipsec_records import interfaces, psk_tunnel
from openvpn_records import tunnel, wait_for_children
from sandbox.process import Completed, Process
from sandbox.router import Router
from tunnel_records import REMOTE, WAN

LIST_DEVICES = ["-j", "-s", "-d", "addr"]
LIST_ROUTES = ["-j", "route", "show", "table", "all"]
ASK_IPSEC = ["statusall"]
ITS_COMMANDS = {"ip -j -s -d addr 2>/dev/null", "ip -j route show table all 2>/dev/null", "ipsec statusall 2>/dev/null"}

NAMES = ["head_office", "office", "depot", "tls"]  # of the tunnels, in the order in which they are shown
CONNECTION = "office_192_168_2_0_24"
POINT_STATUS = ("OpenVPN STATISTICS\nUpdated,2026-11-21 15:57:41\nTUN/TAP read bytes,192\nTUN/TAP write bytes,96\n"
                "TCP/UDP read bytes,{arrived}\nTCP/UDP write bytes,3007\nAuth read bytes,{authenticated}\nEND\n")
IPSEC_STATUS = """Status of IKE charon daemon (strongSwan 5.9.8, Linux 6.1.0-56-amd64, x86_64):
Connections:
{name}:  {wan}...{peer}  IKEv1, dpddelay=60s
{name}:   local:  [{wan}] uses pre-shared key authentication
{name}:   remote: [{peer}] uses pre-shared key authentication
{name}:   child:  192.168.2.0/24 === 192.168.9.0/24 TUNNEL, dpdaction=start
Security Associations (1 up, 0 connecting):
{name}[1]: ESTABLISHED 29 seconds ago, {wan}[{wan}]...{peer}[{peer}]
{name}{{1}}:  INSTALLED, TUNNEL, reqid 1, ESP SPIs: c425dd47_i cd19106d_o
{name}{{1}}:  AES_CBC_256/HMAC_SHA2_256_128, 84 bytes_i (1 pkt, 1s ago), 168 bytes_o (2 pkts, 1s ago), rekeying in 44 minutes
"""


class Kernel:
    """The devices and routes of which the stand-in `ip` tells; to be published after each change."""

    def __init__(self, router: Router):
        self._router = router
        self.devices: dict[str, dict] = {}
        self.routes: list[dict] = [{"dst": "default", "gateway": "198.51.100.1", "dev": "wan", "flags": []}]
        self.add("wan", address=f"{WAN}/24")

    def add(self, name: str, *, up: bool = True, address: str = "", ends: tuple[str, str] | None = None) -> None:
        """`ends`: local and remote, of a GRE tunnel."""
        interface = ipaddress.ip_interface(address) if address else None
        addresses = [{"family": "inet", "local": str(interface.ip), "prefixlen": interface.network.prefixlen}] if address else []
        info = {"info_kind": "gre", "info_data": {"local": ends[0], "remote": ends[1], "ttl": 64}} if ends else {}
        self.devices[name] = {"ifname": name, "flags": ["POINTOPOINT", *(["UP", "LOWER_UP"] if up else [])],
                              "operstate": "UNKNOWN", "linkinfo": info, "addr_info": addresses,
                              "stats64": {"rx": {"bytes": 308, "packets": 5}, "tx": {"bytes": 252, "packets": 4}}}

    def add_route(self, network: str, device: str) -> None:
        self.routes.append({"dst": network, "dev": device, "scope": "link", "flags": []})

    def publish(self) -> None:
        self._router.program("ip").on(LIST_DEVICES, stdout=json.dumps([*self.devices.values(), {}]))
        self._router.program("ip").on(LIST_ROUTES, stdout=json.dumps(self.routes))


def all_up_documents() -> dict:
    """A tunnel of each kind, and a second of OpenVPN: one with a static key, one with certificates."""
    return {"wans": [{"current": True, "ip": WAN}],
            "greTunnels": [gre("head office", REMOTE, tunnelIp="10.9.9.1", tunnelMask="30",
                               routes=[{"ip": "192.168.50.0", "mask": 24}])],
            "ipsecTunnels": [psk_tunnel("office")], "ni": interfaces("192.168.2.1"),
            "ovpnTunnels": [tunnel("depot"), tunnel("tls", "dev tun\nremote head.example\n<ca>\n</ca>\n")],
            "syslog": {"logLevel": 0}}


def tell_ipsec(router: Router, text: str | None = None) -> None:
    """Has the service tell this, by default that the tunnel is up."""
    text = IPSEC_STATUS.format(name=CONNECTION, wan=WAN, peer=REMOTE) if text is None else text
    router.program("ipsec").on(ASK_IPSEC, stdout=text)


def write_statuses(router: Router, *names: str, arrived: int = 3063, authenticated: int = 96) -> None:
    """As openvpn does every second, where the stand-in does not."""
    for name in names:
        router.write_file(f"/run/openvpn_{name}.status", POINT_STATUS.format(arrived=arrived, authenticated=authenticated))


class Station:
    """A router with a daemon and all of its tunnels up."""

    def __init__(self, make_router, documents: dict | None = None):
        self.router = make_router(all_up_documents() if documents is None else documents)
        self.router.make_ipsec_folders()
        self.kernel = Kernel(self.router)
        self.kernel.add("head_office", address="10.9.9.1/30", ends=(WAN, REMOTE))
        self.kernel.add_route("192.168.50.0/24", "head_office")
        for name in ("depot", "tls"):
            self.kernel.add(f"tun{name}")
        self.kernel.publish()
        tell_ipsec(self.router)
        self.daemon = start(self.router)
        tunnels = self.router.documents["ovpnTunnels"]
        self.openvpn_names = [record["name"] for record in tunnels]
        wait_for_children(self.router, len(tunnels))

    @classmethod
    def whole(cls, make_router) -> "Station":
        """With the far end of the static-key tunnel pinged, as the first pass of the daemon does it."""
        station = cls(make_router)
        router = station.router
        router.wait_until(lambda: router.read_file("/run/connect_depot.status") == "connected", "the first ping")
        return station

    @contextlib.contextmanager
    def _companion(self):
        program, self.router.program_path = self.router.program_path, companion(self.router.program_path)
        try:
            yield
        finally:
            self.router.program_path = program

    def start(self, *words: str) -> Process:
        with self._companion():
            return self.router.start("status", *words)

    def status(self, *words: str, timeout: float = 30) -> Completed:
        """Runs the command; openvpn has just written its status files."""
        write_statuses(self.router, *self.openvpn_names)
        return self.look(*words, timeout=timeout)

    def look(self, *words: str, timeout: float = 30) -> Completed:
        """The same with the status files as they are."""
        with self._companion():
            return self.router.run("status", *words, timeout=timeout)

    def tunnels(self, look=None) -> dict[str, str]:
        """By name the state of each tunnel, with the reason behind a colon if there is one."""
        done = (look or self.status)("--json")
        assert done.stderr == ""
        found = json.loads(done.stdout)
        assert found["exitStatus"] == done.status
        return {row["name"]: row["state"] + (f": {row['reason']}" if row["reason"] else "") for row in found["tunnels"]}

    def broken(self, look=None) -> dict[str, str]:
        """Those of them that are not up."""
        return {name: told for name, told in self.tunnels(look).items() if told != "up"}
