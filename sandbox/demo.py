"""The demonstration that scripts/demo starts: the daemon in a router, live, and what it does when things change."""

import argparse
import json
import pathlib
import signal
import sys

from sandbox.ipsec_service import IpsecService
from sandbox.ipsec_view import side_by_side
from sandbox.playground import Playground
from sandbox.process import Process
from sandbox.router import Router, kernel_has_gre
from sandbox.runs import runs, table
from sandbox.show import Show
from sandbox.timeline import DeadlineMissed
from sandbox.tunnel_view import all_tunnels, living_openvpn

DOCUMENTS = pathlib.Path(__file__).parents[1] / "docs" / "examples" / "router.json"
HOST = "head-office.example.net"
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


def fail_over(router: Router) -> None:
    """Makes the other WAN the current one."""
    with router.documents.edit() as documents:
        for wan in documents["wans"]:
            wan["current"] = not wan["current"]


def perform_changes(router: Router, show: Show, service: IpsecService) -> Process:
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
    chapter = show.chapter(f"The router fails over to its second WAN, {other}")
    print("The daemon asks every 30 seconds which WAN is current.")
    fail_over(router)
    watch_run(router, show, daemon, chapter)
    return daemon


def end_daemon(router: Router, show: Show, daemon: Process) -> None:
    show.chapter("The daemon gets SIGTERM")
    daemon.signal(signal.SIGTERM)
    show.until(lambda: daemon.status is not None, "the daemon's end", TIMEOUT)
    show.until(lambda: not living_openvpn(router), "the end of openvpn", TIMEOUT)
    print(f"The daemon has left with status {daemon.status}, and the kernel has ended its openvpn processes with it.")


def perform(router: Router, keep: bool) -> None:
    show = Show(router)
    service = IpsecService(router)
    router.dns.set(HOST, "203.0.113.5")
    daemon = perform_changes(router, show, service)
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
    parser.add_argument("--keep", action="store_true", help="keep the router and take commands")
    options = parser.parse_args()
    with Router(options.program, example_documents(), real_ip=kernel_has_gre()) as router:
        perform(router, options.keep)


if __name__ == "__main__":
    try:
        main()
    except DeadlineMissed as missed:
        sys.exit(f"The daemon did not do what was expected: {str(missed).splitlines()[0]}.")
    except KeyboardInterrupt:
        sys.exit(130)  # as a shell reports it
