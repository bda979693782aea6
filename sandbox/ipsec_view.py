"""Outside: the conn sections that the daemon has written, beside what the real IPsec service makes of them."""

import itertools
import re

from sandbox.ipsec_service import IpsecService, parse_connections
from sandbox.router import Router

LEFT_WIDTH = 58
RIGHT_WIDTH = 78
CONTINUED = "    "


def side_by_side(router: Router, service: IpsecService) -> str:
    """A table of two columns: for each conn section its lines, and the lines of the service's status and log that are
    about this connection. Waits until the service has read them all. Secrets are not shown: they are in another file."""
    sections = conn_sections(router.read_file("/run/ipsec/ipsec.conf") or "")
    service.wait_for_connections(*sections)
    rows = [("/var/run/ipsec/ipsec.conf", "what the IPsec service says of it"), ("=" * LEFT_WIDTH, "=" * RIGHT_WIDTH)]
    for name, lines in sections.items():
        left = [piece for line in lines for piece in wrapped(line.replace("\t", "  "), LEFT_WIDTH)]
        right = [piece for line in view(name, service) for piece in wrapped(line, RIGHT_WIDTH)]
        rows += [*itertools.zip_longest(left, right, fillvalue=""), ("-" * LEFT_WIDTH, "-" * RIGHT_WIDTH)]
    return "\n".join(f"{left:<{LEFT_WIDTH}} | {right}".rstrip() for left, right in rows)


def conn_sections(configuration: str) -> dict[str, list[str]]:
    """The lines of each conn section, by the connection's name."""
    sections = {}
    for block in configuration.split("\n\n"):
        if match := re.match(r"conn (\S+)\n", block):
            sections[match[1]] = block.splitlines()
    return sections


def view(name: str, service: IpsecService) -> list[str]:
    """What the service says of a connection: the lines of its listing, and the proposals that it has understood."""
    listing = service.status()
    connection = parse_connections(listing).get(name)
    if connection is None:
        return ["does not know this connection"]
    listed = [(line.partition(":")[0], line.partition(":")[2].strip()) for line in listing.splitlines()]
    known = [text for owner, text in listed if owner == connection.peer and not text.startswith("child:")]
    child = [text for owner, text in listed if owner == name and text.startswith("child:")]
    state = [text for owner, text in listed
             if re.fullmatch(re.escape(name) + r"[\[{]\d+[\]}]", owner) and not text.startswith("Tasks ")]
    proposals = [f"{protocol} proposal: {proposal}" for protocol, understood in service.proposals(connection.peer).items()
                 for proposal in understood]
    return [*known, *child, *proposals, *state]


def wrapped(line: str, width: int) -> list[str]:
    """The line in pieces of at most that width where it has a comma, a slash or a blank to break at."""
    pieces = [""]
    for part in re.split(r"(?<=[,/ ])", line):
        if len(pieces[-1]) + len(part) > width and pieces[-1].strip():
            pieces.append(CONTINUED)
        pieces[-1] += part
    return [piece.rstrip() for piece in pieces]
