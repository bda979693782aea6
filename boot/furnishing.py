"""What is laid over the disk's files: a router around the daemon, and the far end of its tunnels.

The far end is a network namespace of the machine, with the other ends of the same tunnels: those of the lab's router B.
Nothing of it starts by itself, so that it is the daemon that has the kernel load what the tunnels need."""

import json
import pathlib
import stat
from collections.abc import Iterator

from lab.documents import Documents, Keys
from lab.topology import SITE_A, SITE_B

HOME = "/opt/machine"
ANSWERS = "/etc/router-answers.json"
FIREWALL_SCRIPT = "/usr/local/sbin/firewall"
FIREWALL_RECORD = "/run/firewall.record"
AGENT_LINE = "/dev/ttyS1"
TOP_FOLDER = pathlib.Path(__file__).resolve().parents[1]
MODULES = ("boot/__init__.py", "boot/agent.py", "boot/services.py", "sandbox/__init__.py", "sandbox/api_server.py",
           "sandbox/name_server.py", "sandbox/recorder.py")
NAMES = {site.host_name: site.wan for site in (SITE_A, SITE_B)}
GRE, IPSEC, STATIC, TLS = "Branch Office 1", "office", "static", "tls"

# A firewall script as a router has one: it writes a setting of the network, and below /run.
FIREWALL = f"""#!/bin/sh
echo 1 >/proc/sys/net/ipv4/ip_forward && echo "$*" >>{FIREWALL_RECORD}
"""

NETWORK = f"""#!/bin/sh
set -e
ip netns add far
ip -batch - <<END
link set lo up
link add wan type veth peer name wan-a netns far
address add {SITE_A.wan}/24 dev wan
link set wan up
route add default via {SITE_A.gateway}
link add lan type dummy
{"".join(f"address add {SITE_A.router_address(kind)}/24 dev lan{chr(10)}" for kind in SITE_A.networks)}link set lan up
END
ip -n far -batch - <<END
link set lo up
address add {SITE_B.wan}/32 dev lo
{"".join(f"address add {SITE_B.host_address(kind)}/32 dev lo{chr(10)}" for kind in SITE_B.networks)}
address add {SITE_A.gateway}/32 dev wan-a
link set wan-a up
route add {SITE_A.wan}/32 dev wan-a src {SITE_B.wan}
END
"""

FAR_GRE = f"""#!/bin/sh
set -e
ip -n far -batch - <<END
tunnel add gre-far mode gre local {SITE_B.wan} remote {SITE_A.wan} ttl 64
address add 10.1.1.{SITE_B.number}/30 dev gre-far
link set gre-far up
route add {SITE_A.network("gre")}/24 dev gre-far
END
"""

FAR_IPSEC = f"""conn far
\tleft={SITE_B.wan}
\tleftsubnet={SITE_B.network("ipsec")}/24
\tleftid={SITE_B.host_name}
\tleftcert={SITE_B.host_name}.crt
\tright={SITE_A.wan}
\trightsubnet={SITE_A.network("ipsec")}/24
\trightid={SITE_A.host_name}
\tkeyexchange=ikev2
\tauto=add
"""

UNITS = {
    "agent.service": f"""[Service]
WorkingDirectory={HOME}
ExecStart=/usr/bin/python3 -B -m boot.agent {AGENT_LINE}
""",
    "router-network.service": f"""[Unit]
Before=network.target
Wants=network.target
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart={HOME}/network
""",
    # As another user than root, with a socket that is nobody else's.
    "router-api.service": f"""[Unit]
After=router-network.service
[Service]
User=www-data
AmbientCapabilities=CAP_NET_BIND_SERVICE CAP_NET_ADMIN
UMask=0177
RuntimeDirectory=api
WorkingDirectory={HOME}
ExecStart=/usr/bin/python3 -B -m boot.services {ANSWERS}
[Install]
WantedBy=multi-user.target
""",
    "far-gre.service": f"""[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart={HOME}/far-gre
""",
    "far-ipsec.service": f"""[Service]
NetworkNamespacePath=/run/netns/far
TemporaryFileSystem=/run
BindReadOnlyPaths={HOME}/far/ipsec.conf:/etc/ipsec.conf {HOME}/far/ipsec.secrets:/etc/ipsec.secrets
BindReadOnlyPaths={HOME}/far/ipsec.d:/etc/ipsec.d
ExecStart=/usr/sbin/ipsec start --nofork
""",
    "far-openvpn@.service": f"""[Service]
NetworkNamespacePath=/run/netns/far
ExecStart=/usr/sbin/openvpn --config {HOME}/far/%i.conf
""",
}
STARTED_AT_BOOT = ("agent.service", "router-network.service")
FAR_UNITS = ("far-gre.service", "far-ipsec.service", f"far-openvpn@{STATIC}.service", f"far-openvpn@{TLS}.service")


def documents(keys: Keys) -> Documents:
    """Of the router: a tunnel of each kind to the far end. One openvpn process becomes another user's."""
    own = Documents(SITE_A, SITE_B, keys)
    own.gre = [own.gre_tunnel_to_peer(GRE)]
    own.ipsec = [own.ipsec_tunnel(IPSEC, "certificates")]
    own.openvpn = [own.openvpn_static(STATIC), own.openvpn_tls(TLS, server=False)]
    own.openvpn[1]["config"] += "user nobody\ngroup nogroup\npersist-key\npersist-tun\n"
    return own


def answers(own: Documents) -> str:
    """The file that boot/services.py reads."""
    return json.dumps({"documents": own.contents(), "names": NAMES})


def laid(own: Documents, keys: Keys) -> Iterator[tuple[str, int, bytes]]:
    """Path, mode with the kind of file, contents; a folder that is not named has a mode of 0755."""
    for name in MODULES:
        yield _file(f"{HOME}/{name}", (TOP_FOLDER / name).read_text())
    for name, text in UNITS.items():
        yield _file(f"/etc/systemd/system/{name}", text)
    for name in STARTED_AT_BOOT:
        path = f"/etc/systemd/system/multi-user.target.wants/{name}"
        yield path, stat.S_IFLNK | 0o777, f"../{name}".encode()
    yield _file(FIREWALL_SCRIPT, FIREWALL, 0o755)
    yield _file(f"{HOME}/network", NETWORK, 0o755)
    yield _file(f"{HOME}/far-gre", FAR_GRE, 0o755)
    yield _file("/etc/resolv.conf", "nameserver 127.0.0.1\n")
    yield _file("/etc/hostname", "router\n")
    yield _file("/etc/hosts", "127.0.0.1 localhost router\n")
    yield _file(ANSWERS, answers(own), 0o644)
    yield from _far_files(keys)


def _far_files(keys: Keys) -> Iterator[tuple[str, int, bytes]]:
    far, name = Documents(SITE_B, SITE_A, keys), SITE_B.host_name
    for tunnel in (far.openvpn_static(STATIC), far.openvpn_tls(TLS, server=True)):
        # The name server is not to be reached from there.
        yield _file(f"{HOME}/far/{tunnel['name']}.conf", tunnel["config"].replace(SITE_A.host_name, SITE_A.wan))
    yield _file(f"{HOME}/far/ipsec.conf", FAR_IPSEC)
    yield _file(f"{HOME}/far/ipsec.secrets", f": RSA {name}.key\n")
    for folder, file in (("cacerts", "ca.crt"), ("certs", f"{name}.crt"), ("private", f"{name}.key")):
        yield _file(f"{HOME}/far/ipsec.d/{folder}/{file}", keys.text(file))


def _file(path: str, text: str, mode: int = 0o644) -> tuple[str, int, bytes]:
    return path, stat.S_IFREG | mode, text.encode()
