"""The steps in their order, and those in which all goes well; failures.py has the others. Each returns a note on what
it saw, or raises Unmet."""

import functools
from collections.abc import Callable
from typing import NamedTuple

from lab import failures, readings, told
from lab.checks import complaint, count, require_told_of_daemon, search_capture
from lab.documents import GRE_A, GRE_B, IPSEC
from lab.lab import START, Lab, require
from lab.router import FIREWALL_RECORD, PID_FILE
from lab.topology import KINDS, SITE_A, SITE_B

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
    with lab.run_on(*lab.topology.routers, cause=START):
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
    status = lab.wait_told(lab.a, {device: "up", "Spare_Line": "up"})
    require("told of no flaw of the daemon", not require_told_of_daemon(lab.a, status, running=True))
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
    lab.wait_told(lab.a, {IPSEC: "up"})
    return readings.proposal(status(), IPSEC)


def ipsec_first(lab: Lab) -> str:
    begin_ipsec_again(lab)
    return ipsec(lab, "IKEv1")


def ipsec_changed(lab: Lab, kind: str) -> str:
    use_ipsec(lab, kind)
    lab.refresh(*lab.topology.routers)
    return ipsec(lab, kind)


def openvpn_tls(lab: Lab) -> str:
    lab.wait_crossing("tls")
    count(lab, "tls", functools.partial(lab.a.device_packets, "tuntls"))
    for router in lab.topology.routers:
        require(f"no connect file of tls on {router.name}", not router.exists("/run/connect_tls.status"))
    for router in lab.topology.routers:
        lab.wait_told_whole(router)
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


def ipsec_certificates(lab: Lab) -> str:
    note = ipsec(lab, "certificates")
    for router in lab.topology.routers:
        lab.wait_told_whole(router, **told.BEFORE_A_PASS)
    return note


def openvpn_static(lab: Lab) -> str:
    for router in lab.topology.routers:  # earlier passes may have written them
        router.command("rm", "-f", "/run/connect_static.status")
    lab.wait_crossing("static")
    count(lab, "static", functools.partial(lab.a.device_packets, "tunstatic"))
    for router in lab.topology.routers:
        lab.wait(f"connected on {router.name}", lambda: router.read("/run/connect_static.status") == "connected")
        lab.wait_told_whole(router)
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


# ---- what several steps do ----


def begin_ipsec_again(lab: Lab) -> None:
    """On router A, while router B does not. Both have begun at once, and with IKEv1 each IPsec service may then close the
    connection that the other one has kept; neither begins again before its next run."""

    def is_at_rest() -> bool:
        begun = any("initiating Main Mode" in line for line in lab.b.log())
        return begun and readings.connecting(lab.b.command("ipsec", "status")) == 0

    lab.wait("router-b has begun to exchange keys, and come to an end;", is_at_rest, lambda: complaint(lab.a))
    lab.refresh(lab.a)


def use_ipsec(lab: Lab, kind: str) -> None:
    """Makes the tunnel between the routers, which stands first in the documents, one of another kind."""
    for router in lab.topology.routers:
        router.documents.ipsec[0] = router.documents.ipsec_tunnel(IPSEC, kind)


def add_static_key(lab: Lab) -> None:
    """Adds the fourth tunnel between the routers."""
    for router in lab.topology.routers:
        router.documents.openvpn.append(router.documents.openvpn_static("static"))


class Step(NamedTuple):
    title: str
    asserted: str
    seconds: float
    action: Callable[[Lab], str]


# A monitor looks at the WAN every 30 s from the daemon's start, and at a name every 60 s from the last run. A
# supervision pass comes 11 s after the other; with a static key it waits up to 12 s for answers to its pings, and runs
# wait for it. So the order saves time: what needs runs of router B comes first, while no tunnel has a static key, and
# what A can do alone comes while B's name monitor sleeps; B loses a name while A's WAN monitor sleeps. The deadlines
# leave room for an emulated processor on a busy machine.
STEPS = (
    Step("Before", "no packet crosses, since nothing but tunnels joins the LANs", 60, before),
    Step("GRE", "host to host through the route of the record, counted on the device; a stale tunnel is gone; "
         "a name with blanks; the firewall script ran", 120, gre),
    Step("IPsec, IKEv1", "pre-shared key: host to host, ESP counters rise, no plaintext on the WAN", 120,
         ipsec_first),
    Step("OpenVPN, TLS", "host to host, counted on the device; no connect file", 60, openvpn_tls),
    Step("Link down", "of the GRE device, by hand: no packet crosses; up again without its route; with it, they do", 60,
         failures.link_down),
    Step("Wrong secret", "of router A: no packet crosses IPsec, but all other tunnels", 120, failures.wrong_secret),
    Step("IPsec, IKEv2", "pre-shared key: host to host, ESP counters rise, no plaintext on the WAN", 120,
         functools.partial(ipsec_changed, kind="IKEv2")),
    Step("Documents changed", "one tunnel removed, one disabled, two added, one of another kind, second invocation: "
         "kernel, files and children are what the documents say, and nothing else; packets cross", 120,
         documents_changed),
    Step("IPsec, certificates", "host to host, ESP counters rise, no plaintext on the WAN", 120, ipsec_certificates),
    Step("WAN lost", "the WAN monitor sees it; no tunnel, route, IPsec process, ESP state, policy or openvpn child is "
         "left", 120, failures.wan_lost),
    Step("Name gone", "of router A: router B has no tunnel to it; the name is back, and so is everything on router B",
         180, failures.name_gone),
    Step("WAN back", "the WAN monitor sees it, and nobody else asks for the run; everything is back; packets cross all "
         "tunnels", 120, failures.wan_back),
    Step("SIGTERM", "process, PID file, semaphore and openvpn children are gone; packets still cross GRE and IPsec", 60,
         failures.terminated),
    Step("Next start", "one daemon takes over, with documents that changed meanwhile; packets cross all tunnels", 120,
         failures.next_start),
    Step("Child killed", "another openvpn child takes its place, without a run; packets cross", 90,
         failures.child_killed),
    Step("OpenVPN, static key", "host to host, counted on the device; connect files of both routers say connected", 90,
         openvpn_static),
    Step("Modes", "nothing below /run is writable by others, and no file by its group; an unprivileged user cannot "
         "write a PID file", 60, modes),
    Step("WAN changed", "the WAN monitor sees it and all is rebuilt on the new address; the peer's name monitor "
         "follows; packets cross all tunnels", 240, failures.wan_changed),
    Step("Daemon killed", "its openvpn children are gone; packets still cross GRE and IPsec; the next start fails, as "
         "foretold", 60, failures.daemon_killed),
)
