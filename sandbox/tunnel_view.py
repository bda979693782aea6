"""Outside: the tunnels that are in a router at this moment, for people."""

from sandbox.ipsec_service import IpsecService
from sandbox.router import Router, kernel_has_gre
from sandbox.timeline import Event


def all_tunnels(router: Router, service: IpsecService) -> str:
    """Tunnels of each kind."""
    return "\n".join(["GRE tunnels:", *_indented(gre_tunnels(router)), "",
                      "Connections that the IPsec service has:", *_indented(list(service.connections())), "",
                      "OpenVPN tunnels:", *_indented(openvpn_tunnels(router))])


def _indented(lines: list[str]) -> list[str]:
    return [f"  {line}".rstrip() for line in lines or ["none"]]


def gre_tunnels(router: Router) -> list[str]:
    """The GRE tunnels as `ip tunnel` lists them in the router, but for the kernel's own."""
    listing = router.exec(["ip", "tunnel"]).stdout if kernel_has_gre() else router.gre_listing()
    return [line for line in listing.splitlines() if not line.startswith("gre0:")]


def openvpn_tunnels(router: Router) -> list[str]:
    """A table of the OpenVPN tunnels that have a file: the newest process, the device that the file names, and what the
    ping check has found since that process began."""
    files = [name for name in router.list_folder("/run") if name.startswith("openvpn_") and name.endswith(".conf")]
    rows = [f"{'tunnel':<12}{'process':<16}{'device':<17}far end"] if files else []
    newest = {event.argv[2]: event for event in router.find("exec", program="openvpn")}
    for file in files:
        path = f"/var/run/{file}"
        name = file.removeprefix("openvpn_").removesuffix(".conf")
        options = dict(line.split(" ", 1) for line in router.read_file(path).splitlines() if " " in line)
        start = newest.get(path)
        rows.append(f"{name:<12}{_process(router, start):<16}{options.get('dev', ''):<17}"
                    f"{_far_end(router, start, options)}")
    return rows


def living_openvpn(router: Router) -> list[int]:
    """The pids of the openvpn processes that run."""
    return [event.pid for event in router.find("exec", program="openvpn") if _lives(router, event)]


def _lives(router: Router, start: Event) -> bool:
    facts = router.process(start.pid).facts()
    return facts is not None and facts["argv"] == start.argv  # one that has ended has none


def _process(router: Router, start: Event | None) -> str:
    if start is None:
        return "none"
    return f"{start.pid} {'runs' if _lives(router, start) else 'has ended'}"


def _far_end(router: Router, start: Event | None, options: dict[str, str]) -> str:
    """What the newest ping since the start of the process has found. The file in which the program keeps this is older
    than that at times."""
    if start is None or not _lives(router, start):
        return ""
    addresses = options.get("ifconfig", "").split()
    checks = [command for command in router.commands(start.number)
              if command.program == "ping" and command.ended and command.argv[-1] in addresses]
    if not checks:
        return "not checked"
    return "connected" if checks[-1].status == 0 else "unreachable"
