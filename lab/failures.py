"""The steps in which something breaks, goes or changes by itself. Each returns a note on what it saw, or raises
Unmet."""

import signal
import time
from collections.abc import Callable

from lab import state, told
from lab.checks import require_prompt, require_told_of_daemon
from lab.documents import GRE_A, GRE_B, IPSEC
from lab.lab import ANOTHER_WAN, START, Lab, require
from lab.router import DAEMON_ARGUMENTS, INSTANCE, PID_FILE
from lab.topology import KINDS, SITE_A, SITE_B
from lab.traffic import Silence

WAN_PERIOD, NAME_PERIOD = 30, 60  # seconds between two looks of the monitors
FORETOLD = "the next start removes what is left and fails with 1"
CHILDLESS = dict.fromkeys(("tls", "static"), "down: no child: the daemon does not run")


def link_down(lab: Lab) -> str:
    """By hand, and up again. The kernel forgets the routes of a link that goes down."""
    device, network = GRE_A.replace(" ", "_"), f"{SITE_B.network('gre')}/24"
    lab.a.configure(f"link set {device} down")
    require("no packet crosses GRE", not lab.topology.crossing(["gre"]))
    lab.wait_told_whole(lab.a, **{device: "down: its link is down"})
    lab.a.configure(f"link set {device} up")
    require("no packet crosses GRE", not lab.topology.crossing(["gre"]))
    lab.wait_told_whole(lab.a, **{device: f"partial: no route to {network} leads through it"})
    lab.a.configure(f"route add {network} dev {device}")
    lab.wait_crossing("gre")
    lab.wait_told_whole(lab.a)
    return ""


def wrong_secret(lab: Lab) -> str:
    """On router A only, which the next step's documents mend."""
    lab.a.documents.ipsec[0]["psk"] += "x"
    lab.refresh(lab.a)
    lab.wait_crossing("gre", "tls")
    lab.wait_told_whole(lab.a, **{IPSEC: f"down: {SITE_B.wan} answers, but no keys are exchanged yet"})
    require("no packet crosses IPsec", not lab.topology.crossing(["ipsec"]))
    return ""


def wan_lost(lab: Lab) -> str:
    """The link goes down after the run only, since names do not resolve without it, and name monitors ask for runs."""
    follow_wan(lab, lab.topology.lose_wan)
    lab.topology.take_link_down()
    lab.wait_documented(lab.a)
    status = lab.wait_told(lab.a, told.without_wan(lab.a.documents))
    require(f"told that there is no WAN, but {status['wan']}", status["wan"] == {"current": "", "inUse": []})
    return ""


def name_gone(lab: Lab) -> str:
    """On router B, while router A waits for its WAN monitor's next look."""
    name = SITE_A.host_name
    lab.topology.forget_name(name)
    lab.refresh(lab.b)
    require("router-b has no GRE device", lab.b.gre_devices() == {})
    lab.wait_told(lab.b, dict.fromkeys([GRE_B.replace(" ", "_"), IPSEC], f"down: {name} has no address"))
    lab.topology.teach_name(name, SITE_A.wan)
    lab.refresh(lab.b)
    lab.wait_documented(lab.b)
    return ""


def wan_back(lab: Lab) -> str:
    changed = time.monotonic()
    follow_wan(lab, lab.topology.restore_wan)
    require_prompt(lab.a, changed, WAN_PERIOD)
    lab.wait_documented(lab.a)
    lab.wait_crossing(*KINDS)
    for router in lab.topology.routers:
        lab.wait_told_whole(router, **told.BEFORE_A_PASS)
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
    status = lab.wait_told_whole(lab.a, **CHILDLESS)
    require("told of nothing that is left", not require_told_of_daemon(lab.a, status, running=False))
    return ""


def next_start(lab: Lab) -> str:
    lab.a.documents.ipsec.pop()
    with lab.run_on(lab.a, cause=START):
        lab.a.publish()
        lab.a.start()
    lab.wait_documented(lab.a)
    require("one daemon, named in the PID file", lab.a.daemons() == [int(lab.a.read(PID_FILE))])
    lab.wait_crossing(*KINDS)
    status = lab.wait_told_whole(lab.a, **told.BEFORE_A_PASS)
    require("told of no flaw of the daemon", not require_told_of_daemon(lab.a, status, running=True))
    return ""


def child_killed(lab: Lab) -> str:
    """The daemon is stopped for as long as it takes to look, or it might have started another child by then."""
    daemon, killed, runs = int(lab.a.read(PID_FILE)), dict(lab.a.openvpn_children())["tls"], lab.a.runs()
    lab.a.kill(daemon, signal.SIGSTOP)
    lab.a.kill(killed, signal.SIGKILL)
    lab.wait_told(lab.a, {"tls": "down: no child"})
    lab.a.kill(daemon, signal.SIGCONT)
    lab.wait("another child", lambda: dict(lab.a.openvpn_children()).get("tls", killed) != killed)
    lab.wait_crossing("tls")
    require("no run was needed", lab.a.runs() == runs)
    lab.wait_told(lab.a, {"tls": "up"})
    return ""


def daemon_killed(lab: Lab) -> str:
    """The last step, since nothing needs the daemon any more. What is told of the next starts is tried."""
    lab.a.kill(int(lab.a.read(PID_FILE)), signal.SIGKILL)
    lab.wait("the end of the process", lambda: lab.a.daemons() == [])
    lab.wait("the end of the openvpn children", lambda: lab.a.openvpn_children() == [])
    status = lab.wait_told_whole(lab.a, **CHILDLESS)
    remarks = require_told_of_daemon(lab.a, status, running=False)
    require(f"told that the next start fails, but {remarks}", len(remarks) == 1 and FORETOLD in remarks[0])
    left = lab.a.invoke(*DAEMON_ARGUMENTS)
    require(f"the next start leaves with 1, but with {left}", left == 1)
    require("told of nothing that is left", not require_told_of_daemon(lab.a, lab.a.status(), running=False))
    lab.wait_crossing("gre", "ipsec")
    return ""


def wan_changed(lab: Lab) -> str:
    with Silence(lab.topology, lab.folder) as silence:
        lab.wait("answers on all ways", lambda: not silence.silent())
        changed = time.monotonic()
        with lab.run_on(lab.b, cause=f"{SITE_A.host_name} has moved"):
            follow_wan(lab, lab.topology.change_wan)
            require_prompt(lab.a, changed, WAN_PERIOD)
        require_prompt(lab.b, changed, NAME_PERIOD)
        lab.wait_documented(lab.a, lab.b)
        rebuilt = time.time()
        for router in lab.topology.routers:
            states = router.command("ip", "xfrm", "state")
            require(f"no ESP state of {router.name} has the old address", SITE_A.wan not in states.split())
        lab.wait("answers on all ways again, but not on", lambda: not silence.silent(rebuilt),
                 lambda: ", ".join(KINDS[kind] for kind in silence.silent(rebuilt)))
    for router in lab.topology.routers:
        lab.wait_told_whole(router, **told.BEFORE_A_PASS)
    gaps = ", ".join(f"{KINDS[kind]} {gap:.0f} s" for kind, gap in silence.longest.items())
    runs = ", ".join(f"{router.name} {router.run_seconds()[-1]:.0f} s" for router in lab.topology.routers)
    return f"without packets: {gaps}; of which the run on {runs}"


def follow_wan(lab: Lab, change: Callable[[], None]) -> None:
    """Changes router A's WAN and waits for the end of the run that its WAN monitor asks for."""
    with lab.run_on(lab.a, cause=ANOTHER_WAN):
        change()
