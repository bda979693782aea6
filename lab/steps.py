"""The steps in their order. Each returns a note on what it saw, or raises Unmet."""

import functools
import signal
import time
from collections.abc import Callable
from typing import NamedTuple

from lab import readings, state
from lab.checks import complaint, count, require_prompt, search_capture
from lab.lab import Lab, require
from lab.router import FIREWALL_RECORD, INSTANCE, PID_FILE
from lab.topology import KINDS, SITE_A, SITE_B
from lab.traffic import Silence

WAN_PERIOD, NAME_PERIOD = 30, 60  # seconds between two looks of the monitors
GRE_A, GRE_B, IPSEC = "Branch Office 1", "Head Office", "office"
PID_FILES = (PID_FILE, "/run/charon.pid", "/run/starter.charon.pid")
AUTHENTICATION = {"IKEv1": "pre-shared key", "IKEv2": "pre-shared key", "certificates": "public key"}


def write_documents(lab: Lab) -> None:
    """What the first run finds: three tunnels between the routers, and on A two that lead nowhere."""
    a, b = lab.a.documents, lab.b.documents
    a.gre = [a.gre_tunnel_to_peer(GRE_A), a.gre_tunnel("Spare Line", remoteIp="203.0.113.21")]
    b.gre = [b.gre_tunnel_to_peer(GRE_B)]
    for documents, server in ((a, False), (b, True)):
        documents.ipsec = [documents.ipsec_tunnel(IPSEC, "IKEv1")]
        documents.openvpn = [documents.openvpn_tls("tls", server)]
    a.openvpn.append(a.openvpn_alone("spare"))


def before(lab: Lab) -> str:
    crossed = lab.topology.crossing(KINDS)
    require(f"nothing crosses without a tunnel, but {crossed}", not crossed)
    lab.a.configure(f"tunnel add stale mode gre remote 203.0.113.99 local {SITE_A.wan}", "link set stale up")
    require("the stale tunnel is there", "stale" in lab.a.devices())
    return "the GRE tunnel made by hand is called stale"


def start_daemons(lab: Lab) -> None:
    with lab.run_on(*lab.topology.routers):
        for router in lab.topology.routers:
            router.publish()
            router.start()


def gre(lab: Lab) -> str:
    start_daemons(lab)
    device, devices = GRE_A.replace(" ", "_"), lab.a.devices()
    require("the stale tunnel is gone", "stale" not in devices)
    require(f"{device} is up, but {devices.get(device)}", ", up" in devices.get(device, ""))
    way = lab.a.way_to(SITE_B.host_address("gre"))
    require(f"the way to {SITE_B.network('gre')} is {device}, but {way}", way == device)
    lab.wait_crossing("gre")
    count(lab, "gre", functools.partial(lab.a.device_packets, device))
    for router in lab.topology.routers:
        require(f"the firewall script of {router.name} ran", "--init" in router.read(FIREWALL_RECORD).splitlines())
    return f"{GRE_A!r} is {device}"


def ipsec(lab: Lab, kind: str) -> str:
    def status() -> str:
        return lab.a.command("ipsec", "statusall")

    version = "IKEv1" if kind == "IKEv1" else "IKEv2"
    lab.wait(f"keys exchanged with {version};", lambda: version in readings.key_exchanges(status(), IPSEC),
             lambda: complaint(lab.a))
    method = readings.authentication(status(), IPSEC)
    require(f"authentication by {AUTHENTICATION[kind]}, but {method}", method == AUTHENTICATION[kind])
    lab.wait_crossing("ipsec")
    count(lab, "ipsec", lab.a.esp_packets)
    search_capture(lab)
    return readings.proposal(status(), IPSEC)


def ipsec_changed(lab: Lab, kind: str) -> str:
    use_ipsec(lab, kind)
    lab.refresh(*lab.topology.routers)
    return ipsec(lab, kind)


def openvpn_tls(lab: Lab) -> str:
    lab.wait_crossing("tls")
    count(lab, "tls", functools.partial(lab.a.device_packets, "tuntls"))
    for router in lab.topology.routers:
        require(f"no connect file of tls on {router.name}", not router.exists("/run/connect_tls.status"))
    return ""


def documents_changed(lab: Lab) -> str:
    """Ends with certificates and a tunnel with a static key, which later steps look into."""
    lab.wait_documented(*lab.topology.routers)
    documents = lab.a.documents
    documents.gre = [tunnel for tunnel in documents.gre if tunnel["name"] != "Spare Line"]
    documents.openvpn[-1]["enabled"] = False
    documents.ipsec.append(documents.ipsec_tunnel("partner", "IKEv2", remoteWanIp="203.0.113.30",
                                                  remoteNetworkIp="192.168.30.0"))
    add_static_key(lab)
    use_ipsec(lab, "certificates")
    lab.refresh(*lab.topology.routers)
    lab.wait_documented(*lab.topology.routers)
    lab.wait_crossing("gre", "static", "tls")
    return ""


def wan_lost(lab: Lab) -> str:
    """The link goes down after the run only, since names do not resolve without it, and name monitors ask for runs."""
    follow_wan(lab, lab.topology.lose_wan)
    lab.topology.take_link_down()
    lab.wait_documented(lab.a)
    return ""


def wan_back(lab: Lab) -> str:
    lab.topology.restore_wan()
    lab.refresh(lab.a)
    lab.wait_documented(lab.a)
    lab.wait_crossing(*KINDS)
    return ""


def terminated(lab: Lab) -> str:
    lab.a.kill(int(lab.a.read(PID_FILE)), signal.SIGTERM)
    lab.wait("the end of the process", lambda: lab.a.daemons() == [])
    for path in (PID_FILE, INSTANCE):
        require(f"{path} is gone", not lab.a.exists(path))
    lab.wait("the end of the openvpn children", lambda: lab.a.openvpn_children() == [])
    kept, expected = lab.a.gre_devices(), state.documented(lab.a.documents, lab.topology.names)["GRE devices"]
    require(f"the GRE tunnels are {expected}, but {kept}", kept == expected)
    lab.wait_crossing("gre", "ipsec")
    return ""


def next_start(lab: Lab) -> str:
    lab.a.documents.ipsec.pop()
    with lab.run_on(lab.a):
        lab.a.publish()
        lab.a.start()
    lab.wait_documented(lab.a)
    require("one daemon, named in the PID file", lab.a.daemons() == [int(lab.a.read(PID_FILE))])
    lab.wait_crossing(*KINDS)
    return ""


def child_killed(lab: Lab) -> str:
    killed, runs = dict(lab.a.openvpn_children())["tls"], lab.a.runs()
    lab.a.kill(killed, signal.SIGKILL)
    lab.wait("another child", lambda: dict(lab.a.openvpn_children()).get("tls", killed) != killed)
    lab.wait_crossing("tls")
    require("no run was needed", lab.a.runs() == runs)
    return ""


def openvpn_static(lab: Lab) -> str:
    for router in lab.topology.routers:  # earlier passes may have written them
        router.command("rm", "-f", "/run/connect_static.status")
    lab.wait_crossing("static")
    count(lab, "static", functools.partial(lab.a.device_packets, "tunstatic"))
    for router in lab.topology.routers:
        lab.wait(f"connected on {router.name}", lambda: router.read("/run/connect_static.status") == "connected")
    return ""


def modes(lab: Lab) -> str:
    """Of all that daemon and services have made below /run by now. Whoever writes a PID file chooses the process that
    root kills, so that is tried as well, and on a file that anybody may write, or the attempt is none."""
    found = {router: router.modes() for router in lab.topology.routers}
    for router, paths in found.items():
        require(f"{router.name} has {', '.join(PID_FILES)}", paths.keys() >= set(PID_FILES))
    offenders = [f"{router.name} {offender}" for router, paths in found.items()
                 for offender in readings.open_to_writing(paths)]
    require(f"nobody else may write below /run, but {', '.join(offenders)}", not offenders)
    for router, paths in found.items():
        written = router.writable_by_anybody("/dev/null", *(path for path in paths if path.endswith(".pid")))
        require("an unprivileged user can write /dev/null", written[:1] == ["/dev/null"])
        require(f"it cannot write a PID file of {router.name}, but {', '.join(written[1:])}", not written[1:])
    return f"{sum(map(len, found.values()))} paths"


def wan_changed(lab: Lab) -> str:
    with Silence(lab.topology, lab.folder) as silence:
        lab.wait("answers on all ways", lambda: not silence.silent())
        changed, name_changes = time.monotonic(), lab.b.name_changes()
        with lab.run_on(lab.b):
            follow_wan(lab, lab.topology.change_wan)
            require_prompt(lab.a, changed, WAN_PERIOD)
        require_prompt(lab.b, changed, NAME_PERIOD)
        require("a name monitor of router-b asked for its run", lab.b.name_changes() > name_changes)
        lab.wait_documented(lab.a, lab.b)
        rebuilt = time.time()
        for router in lab.topology.routers:
            states = router.command("ip", "xfrm", "state")
            require(f"no ESP state of {router.name} has the old address", SITE_A.wan not in states.split())
        lab.wait("answers on all ways again, but not on", lambda: not silence.silent(rebuilt),
                 lambda: ", ".join(KINDS[kind] for kind in silence.silent(rebuilt)))
    gaps = ", ".join(f"{KINDS[kind]} {gap:.0f} s" for kind, gap in silence.longest.items())
    runs = ", ".join(f"{router.name} {router.run_seconds()[-1]:.0f} s" for router in lab.topology.routers)
    return f"without packets: {gaps}; of which the run on {runs}"


# ---- what several steps do ----


def use_ipsec(lab: Lab, kind: str) -> None:
    """Makes the tunnel between the routers, which stands first in the documents, one of another kind."""
    for router in lab.topology.routers:
        router.documents.ipsec[0] = router.documents.ipsec_tunnel(IPSEC, kind)


def add_static_key(lab: Lab) -> None:
    """Adds the fourth tunnel between the routers."""
    for router in lab.topology.routers:
        router.documents.openvpn.append(router.documents.openvpn_static("static"))


def follow_wan(lab: Lab, change: Callable[[], None]) -> None:
    """Changes router A's WAN and waits for the end of the run that its WAN monitor asks for. That monitor says nothing
    when it asks, but nobody else may have: nothing here invokes the program, and a name monitor would have said so."""
    name_changes = lab.a.name_changes()
    with lab.run_on(lab.a):
        change()
    require("no name monitor of router-a asked for the run", lab.a.name_changes() == name_changes)


class Step(NamedTuple):
    title: str
    asserted: str
    seconds: float
    action: Callable[[Lab], str]


# A monitor looks at the WAN every 30 s from the daemon's start, and at a name every 60 s from the last run. A
# supervision pass comes 11 s after the other; with a static key it waits up to 12 s for answers to its pings, and runs
# wait for it. So the order saves time: what needs runs of router B comes first, while no tunnel has a static key, and
# what A can do alone comes while B's name monitor sleeps. The deadlines leave room for an emulated processor on a busy
# machine.
STEPS = (
    Step("Before", "no packet crosses, since nothing but tunnels joins the LANs", 60, before),
    Step("GRE", "host to host through the route of the record, counted on the device; a stale tunnel is gone; "
         "a name with blanks; the firewall script ran", 120, gre),
    Step("IPsec, IKEv1", "pre-shared key: host to host, ESP counters rise, no plaintext on the WAN", 120,
         functools.partial(ipsec, kind="IKEv1")),
    Step("OpenVPN, TLS", "host to host, counted on the device; no connect file", 60, openvpn_tls),
    Step("IPsec, IKEv2", "pre-shared key: host to host, ESP counters rise, no plaintext on the WAN", 120,
         functools.partial(ipsec_changed, kind="IKEv2")),
    Step("Documents changed", "one tunnel removed, one disabled, two added, one of another kind, second invocation: "
         "kernel, files and children are what the documents say, and nothing else; packets cross", 120,
         documents_changed),
    Step("IPsec, certificates", "host to host, ESP counters rise, no plaintext on the WAN", 120,
         functools.partial(ipsec, kind="certificates")),
    Step("WAN lost", "the WAN monitor sees it; no tunnel, route, IPsec process, ESP state, policy or openvpn child is "
         "left", 120, wan_lost),
    Step("WAN back", "everything is back; packets cross all tunnels", 120, wan_back),
    Step("SIGTERM", "process, PID file, semaphore and openvpn children are gone; packets still cross GRE and IPsec", 60,
         terminated),
    Step("Next start", "one daemon takes over, with documents that changed meanwhile; packets cross all tunnels", 120,
         next_start),
    Step("Child killed", "another openvpn child takes its place, without a run; packets cross", 90, child_killed),
    Step("OpenVPN, static key", "host to host, counted on the device; connect files of both routers say connected", 90,
         openvpn_static),
    Step("Modes", "nothing below /run is writable by others, and no file by its group; an unprivileged user cannot "
         "write a PID file", 60, modes),
    Step("WAN changed", "the WAN monitor sees it and all is rebuilt on the new address; the peer's name monitor "
         "follows; packets cross all tunnels", 240, wan_changed),
)
