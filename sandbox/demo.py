"""The demonstration that scripts/demo starts: the daemon in a router, live, and what it does when things change."""

import argparse
import json
import os
import pathlib
import signal
import sys

from sandbox.ipsec_service import IpsecService
from sandbox.ipsec_view import side_by_side
from sandbox.playground import Playground
from sandbox.process import Process
from sandbox.router import PROGRAM_PATH, Router, kernel_has_gre
from sandbox.runs import runs, table
from sandbox.show import Show
from sandbox.timeline import DeadlineMissed
from sandbox.tunnel_view import all_tunnels, living_openvpn

DOCUMENTS = pathlib.Path(__file__).parents[1] / "docs" / "examples" / "router.json"
HOST = "head-office.example.net"
PLANNED = "/run/planned.json"
FIRST_LINES, LAST_LINES = 12, 16  # of a long text
TIMEOUT = 60  # seconds, for a daemon that needs 5 and looks for another WAN every 30


def example_documents() -> dict:
    """The sample configuration."""
    return json.loads(DOCUMENTS.read_text())


def watch_run(router: Router, show: Show, daemon: Process, chapter: int) -> None:
    """Shows what happens until a run that began in this chapter has ended and the openvpn processes are there."""
    def over() -> bool:
        found = runs(router.timeline(chapter))
        openvpn = {event.pid for event in router.find("exec", program="openvpn")}
        return bool(found) and found[-1].end is not None and set(daemon.children()) <= openvpn
    show.until(over, "the daemon's run", TIMEOUT)


def other_wan(wans: list[dict]) -> list[dict]:
    """The same two with the other one current."""
    return [wan | {"current": not wan["current"]} for wan in wans]


def wire(router: Router) -> None:
    """Gives the router an interface with the addresses of its WANs, and a way out."""
    addresses = [f"addr add {wan['ip']}/24 dev wan" for wan in router.documents["wans"]]
    commands = ["link add wan type veth peer name internet", *addresses, "link set wan up", "link set internet up",
                "route add default dev wan"]
    router.exec(["ip", "-batch", "-"], stdin="\n".join(commands))


def ask_companion(router: Router, show: Show, companion: str, *words: str) -> str:
    """What tunnelctl prints in the router; first what it asks and runs is shown."""
    told = router.exec([companion, *words], environment={"PATH": PROGRAM_PATH}).stdout
    show.catch_up()
    print(f"\n$ tunnelctl {' '.join(words)}")
    return told.rstrip()


def shortened(text: str) -> str:
    """A long text without its middle."""
    lines = text.splitlines()
    left_out = len(lines) - FIRST_LINES - LAST_LINES
    if left_out <= 1:
        return text
    return "\n".join([*lines[:FIRST_LINES], f"  ... {left_out} lines", *lines[-LAST_LINES:]])


def plan_failover(router: Router, show: Show, companion: str, address: str) -> None:
    show.chapter(f"What would a failover to the second WAN, {address}, do? tunnelctl plan tells, and does nothing")
    planned = dict(router.documents) | {"wans": other_wan(router.documents["wans"])}
    router.write_file(PLANNED, json.dumps(planned))
    print(shortened(ask_companion(router, show, companion, "plan", "--from", PLANNED)))


def show_status(router: Router, show: Show, companion: str) -> None:
    show.chapter("What is up, and why is the rest not? tunnelctl status tells")
    print(ask_companion(router, show, companion, "status"))
    print("\nNobody is at the other end of this router's wire, and its openvpn is a stand-in: scripts/lab has the real ones.")


def perform_changes(router: Router, show: Show, service: IpsecService, companion: str) -> Process:
    """The daemon's start, and what it does when a host and then the WAN have other addresses."""
    chapter = show.chapter("The daemon starts, with docs/examples/router.json as the router's configuration")
    daemon = router.daemon("--printlvl", "100")
    watch_run(router, show, daemon, chapter)

    show.chapter("What was written for IPsec, and what the IPsec service makes of it")
    print(side_by_side(router, service))
    print("\nThe secrets, one line for each tunnel:")
    print(router.read_file("/var/run/ipsec/ipsec.secrets").rstrip())

    chapter = show.chapter(f"{HOST} moves to 203.0.113.77")
    print("The daemon looks the name up every 5 minutes. A second invocation of the program has it do a run now.")
    router.dns.set(HOST, "203.0.113.77")
    router.start("--printlvl", "100")
    watch_run(router, show, daemon, chapter)

    other = next(wan["ip"] for wan in router.documents["wans"] if not wan["current"])
    plan_failover(router, show, companion, other)
    chapter = show.chapter(f"The router fails over to its second WAN, {other}")
    print("The daemon asks every 30 seconds which WAN is current.")
    router.documents["wans"] = other_wan(router.documents["wans"])
    watch_run(router, show, daemon, chapter)
    show_status(router, show, companion)
    return daemon


def end_daemon(router: Router, show: Show, daemon: Process) -> None:
    show.chapter("The daemon gets SIGTERM")
    daemon.signal(signal.SIGTERM)
    show.until(lambda: daemon.status is not None, "the daemon's end", TIMEOUT)
    show.until(lambda: not living_openvpn(router), "the end of openvpn", TIMEOUT)
    print(f"The daemon has left with status {daemon.status}, and the kernel has ended its openvpn processes with it.")


def perform(router: Router, companion: str, keep: bool) -> None:
    show = Show(router)
    service = IpsecService(router)
    router.dns.set(HOST, "203.0.113.5")
    wire(router)
    daemon = perform_changes(router, show, service, companion)
    if keep:
        show.chapter("The router stays up")
        Playground(router, show, lambda: all_tunnels(router, service)).run()
    if daemon.alive():  # or somebody has ended it from the shell
        show.chapter("The tunnels while the daemon runs")
        print(all_tunnels(router, service))
        end_daemon(router, show, daemon)
    show.chapter("The tunnels that are left without the daemon")
    print(all_tunnels(router, service))
    show.chapter("The runs")
    print(table(runs(router.timeline())))
    print("\nscripts/lab shows real tunnels with packets in them.")


def main() -> None:
    parser = argparse.ArgumentParser(prog="scripts/demo", description=__doc__)
    parser.add_argument("--program", required=True, help="the daemon's path")
    parser.add_argument("--companion", required=True, help="the path of tunnelctl")
    parser.add_argument("--keep", action="store_true", help="keep the router and take commands")
    options = parser.parse_args()
    with Router(options.program, example_documents(), real_ip=kernel_has_gre()) as router:
        perform(router, os.path.abspath(options.companion), options.keep)


if __name__ == "__main__":
    try:
        main()
    except DeadlineMissed as missed:
        sys.exit(f"The daemon did not do what was expected: {str(missed).splitlines()[0]}.")
    except KeyboardInterrupt:
        sys.exit(130)  # as a shell reports it
