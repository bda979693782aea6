"""The demonstration that scripts/demo starts: the daemon in a router, shown live, and what it does when things change."""

import argparse
import json
import os
import pathlib
import sys
import threading

from sandbox.certificates import fill_placeholders
from sandbox.ipsec_service import IpsecService
from sandbox.ipsec_view import side_by_side
from sandbox.playground import Playground
from sandbox.router import Router, kernel_has_gre
from sandbox.timeline import Event

DOCUMENTS = pathlib.Path(__file__).parents[1] / "docs" / "examples" / "router.json"
HOST = "head-office.example.net"
RUN_TIMEOUT = 20
WAN_TIMEOUT = 45  # the daemon looks every 30 seconds

# How an event is shown: who does what, and the colour. Kinds that are not here only repeat what others say.
SHOWN = {"api": ("asks", "36"), "dns": ("asks", "36"), "command": ("runs", "1"), "log": ("logs", ""),
         "signal": ("gets", "33")}
LOG_COLOURS = {"ERROR": "31", "WARNING": "33", "TRACE": "90", "DEBUG": "90"}


def shown_line(event: Event, coloured: bool) -> str | None:
    """The event as a line of the show: seconds, what the program does, with what."""
    if event.kind not in SHOWN or announces_command(event) or is_of_others(event):
        return None
    verb, colour = SHOWN[event.kind]
    text = {"api": f"GET {event.text}", "dns": f"name server for {event.text}: {event.answer}"}.get(event.kind, event.text)
    if event.kind == "log":
        text = f"{event.label:<7} {event.message.removeprefix('[TUNNEL_MNGR]').strip()}"
        colour = LOG_COLOURS.get(event.label, "")
    line = f"{event.time:8.3f}  {verb}  {text}"
    return f"\033[{colour}m{line}\033[0m" if coloured and colour else line


def announces_command(event: Event) -> bool:
    """Whether it is the log line that says which command comes next: the command itself is shown."""
    return event.kind == "log" and event.label == "TRACE" and event.message.startswith("[TUNNEL_MNGR] ip ")


def is_of_others(event: Event) -> bool:
    """Whether it is a log line of another program."""
    return event.kind == "log" and event.ident != "TUNNEL_MNGR"


def begins_run(event: Event) -> bool:
    return event.kind == "log" and event.message == "[TUNNEL_MNGR] MANAGING TUNNELS"


def ends_run(event: Event) -> bool:
    """The line with which the daemon goes on after a run."""
    return event.kind == "log" and event.message.startswith("[TUNNEL_MNGR] v_apFqdnMonitor size")


class Show:
    """Prints a router's events in chapters."""

    def __init__(self, router: Router):
        self._router = router
        self._position = 0
        self._coloured = sys.stdout.isatty() and "NO_COLOR" not in os.environ

    def chapter(self, title: str) -> None:
        print(f"\n\033[1;7m {title} \033[0m" if self._coloured else f"\n== {title}", flush=True)

    def until(self, reached, timeout: float) -> None:
        """Prints what happens until `reached` is true of an event."""
        for event in self._router.follow(self._position, timeout):
            self._print(event)
            if reached(event):
                return
        raise SystemExit(f"The daemon did not do what was expected within {timeout} seconds.")

    def meanwhile(self, action) -> None:
        """Prints what happens, from a thread of its own, while `action()` runs."""
        done = threading.Event()

        def follow():
            while not done.is_set():
                for event in self._router.follow(self._position, 0.1):
                    self._print(event)

        printer = threading.Thread(target=follow)
        printer.start()
        try:
            action()
        finally:
            done.set()
            printer.join()

    def _print(self, event: Event) -> None:
        self._position = event.number
        line = shown_line(event, self._coloured)
        if line:
            print(line, flush=True)


def tunnels(router: Router) -> str:
    """The GRE tunnels as `ip tunnel` lists them in the router, but for the kernel's own."""
    listing = router.exec(["ip", "tunnel"]).stdout if kernel_has_gre() else router.gre_listing()
    return "\n".join(f"  {line}" for line in listing.splitlines() if not line.startswith("gre0:"))


def openvpn_tunnels(router: Router) -> str:
    """A table of the OpenVPN tunnels: the child, the device that its file names, and what the ping check has found."""
    rows = [f"  {'tunnel':<10}{'child':>7}  {'device':<17}{'far end':<12}"]
    newest = {event.argv[2]: event.pid for event in router.find("exec", program="openvpn")}
    for path, pid in newest.items():
        name = path.removeprefix("/var/run/openvpn_").removesuffix(".conf")
        options = dict(line.split(" ", 1) for line in router.read_file(path).splitlines() if " " in line)
        outcome = router.read_file(f"/var/run/connect_{name}.status")
        found = "not checked" if outcome is None else outcome or "unreachable"
        rows.append(f"  {name:<10}{pid:>7}  {options['dev']:<17}{found:<12}")
    return "\n".join(rows)


def summary(router: Router, causes: list[str]) -> str:
    """A table of the runs, and the tunnels that are there now."""
    rows = [f"{'run because of':<26}{'seconds':>9}{'removed':>9}{'created':>9}{'addresses':>11}{'routes':>8}"]
    begins, ends = ([e for e in router.timeline() if fits(e)] for fits in (begins_run, ends_run))
    for cause, begin, end in zip(causes, begins, ends):
        texts = [command.text for command in router.commands(begin.number) if command.number < end.number]
        counts = [sum(text.startswith(f"ip {what} ") for text in texts)
                  for what in ("tunnel del", "tunnel add", "addr add", "route add")]
        rows.append(f"{cause:<26}{end.time - begin.time:>9.3f}{counts[0]:>9}{counts[1]:>9}{counts[2]:>11}{counts[3]:>8}")
    return "\n".join([*rows, "", "GRE tunnels now:", tunnels(router), "", "OpenVPN tunnels now:", openvpn_tunnels(router)])


def fail_over(router: Router) -> str:
    """Makes the other WAN the current one; returns its address."""
    with router.documents.edit() as documents:
        for wan in documents["wans"]:
            wan["current"] = not wan["current"]
    return next(wan["ip"] for wan in router.documents["wans"] if wan["current"])


def example_documents() -> dict:
    """The sample configuration, with certificates made on the spot."""
    return fill_placeholders(json.loads(DOCUMENTS.read_text()))


def perform(router: Router, keep: bool) -> None:
    show = Show(router)
    service = IpsecService(router)
    router.dns.set(HOST, "203.0.113.5")

    show.chapter("The daemon starts, with docs/examples/router.json as the router's configuration")
    daemon = router.daemon("--printlvl", "100")
    show.until(ends_run, RUN_TIMEOUT)

    show.chapter("What was written for IPsec, and what the IPsec service makes of it")
    print(side_by_side(router, service))
    print("\nThe secrets, one line for each tunnel:")
    print(router.read_file("/var/run/ipsec/ipsec.secrets"))

    show.chapter(f"{HOST} moves to 203.0.113.77")
    print("The daemon looks the name up every 5 minutes. A second invocation of the program has it do a run now.")
    router.dns.set(HOST, "203.0.113.77")
    router.start("--printlvl", "100")
    show.until(ends_run, RUN_TIMEOUT)

    show.chapter(f"The router fails over to its second WAN, {fail_over(router)}")
    print("The daemon asks every 30 seconds which WAN is current.")
    show.until(ends_run, WAN_TIMEOUT)
    table = summary(router, ["start", "second invocation", "another WAN"])

    if keep:
        show.chapter("The router stays up")
        show.meanwhile(Playground(router, tunnels).cmdloop)
    show.chapter("The daemon gets SIGTERM and leaves the tunnels as they are")
    daemon.terminate()
    show.until(lambda event: event.kind == "exit" and event.pid == daemon.pid, RUN_TIMEOUT)
    print(f"The daemon has left with status {daemon.status}.")
    show.chapter("Summary")
    print(table)
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
    except KeyboardInterrupt:
        sys.exit(130)  # as a shell reports it
