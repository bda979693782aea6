"""Inside the router: what the stand-in `ip` knows of GRE tunnels, for kernels that have none.

The outcome of each command and the listing follow ip-tunnel(8): its errors leave with 1 (bad address, the kernel's
refusal) or 255 (an argument that it rejects)."""

import socket
from collections.abc import Callable
from typing import NamedTuple

from sandbox.link_model import LIST_LINKS, LIST_ROUTES, LinkModel

FALLBACK_LINE = "gre0: gre/ip  remote any  local any  ttl inherit  nopmtudisc\n"
LONGEST_NAME = 15


class Refused(Exception):
    """The command fails with `status` and says `text` on standard error."""

    def __init__(self, status: int, text: str):
        super().__init__(text)
        self.status = status
        self.text = text + "\n"


class Tunnel(NamedTuple):
    """One tunnel, its values as `ip tunnel` prints them."""

    name: str
    remote: str
    local: str
    ttl: str

    def line(self) -> str:
        return f"{self.name}: gre/ip  remote {self.remote}  local {self.local}  ttl {self.ttl}\n"


class GreModel:
    """The simulated tunnels, in the order of their creation. The caller keeps threads apart. `kernel` answers the
    questions of LIST_LINKS and LIST_ROUTES for what is not simulated."""

    def __init__(self, kernel: Callable[[list[str]], list[dict]] = lambda _: []):
        self.tunnels: list[Tunnel] = []
        self._links = LinkModel()
        self._kernel = kernel
        self._extra = ""
        self._loaded = False

    def answer(self, arguments: list[str]) -> tuple[int, str, str]:
        """Exit status, standard output and standard error of `ip` with these arguments."""
        try:
            return 0, self._obey(arguments), ""
        except Refused as refusal:
            return refusal.status, "", refusal.text

    def _obey(self, arguments: list[str]) -> str:
        match arguments:
            case ["tunnel"] | ["tunnel", "show" | "list"]:
                return self.listing()
            case ["tunnel", "add", *rest]:
                self._add(rest)
            case ["tunnel", "del", name, *_]:
                self._delete(name)
            case ["link", "set", name, state]:
                self._links.set(name, state)
            case ["addr", "add", address, "dev", name]:
                self._links.add_address(name, address)
            case ["route", "add", network, "dev", name]:
                self._links.add_route(name, network)
            case _ if arguments == LIST_LINKS:
                return self._links.links(self.tunnels, self._kernel(arguments))
            case _ if arguments == LIST_ROUTES:
                return self._links.routes(self.tunnels, self._kernel(arguments))
        return ""

    def listing(self) -> str:
        """The output of `ip tunnel`. The fallback device comes with the first tunnel and stays."""
        return (FALLBACK_LINE if self._loaded else "") + "".join(t.line() for t in self.tunnels) + self._extra

    def preset(self, tunnels: list[dict], extra: str) -> None:
        """Replaces the tunnels, as if somebody had made them before; the listing ends with `extra`."""
        self._extra = extra
        self.tunnels = [Tunnel(**tunnel) for tunnel in tunnels]
        self._loaded = self._loaded or bool(tunnels)

    def _add(self, words: list[str]) -> None:
        tunnel = _parse(words)
        for other in self.tunnels:
            if other.name == tunnel.name or (other.remote, other.local) == (tunnel.remote, tunnel.local):
                raise Refused(1, 'add tunnel "gre0" failed: File exists')
        self._loaded = True
        self._links.forget(tunnel.name)  # whatever was told of the name before it had a device
        self.tunnels.append(tunnel)

    def _delete(self, name: str) -> None:
        if name not in [tunnel.name for tunnel in self.tunnels]:
            raise Refused(1, f'delete tunnel "{name}" failed: No such device')
        self.tunnels = [tunnel for tunnel in self.tunnels if tunnel.name != name]
        self._links.forget(name)


def _parse(words: list[str]) -> Tunnel:
    values = {"remote": "any", "local": "any", "ttl": "inherit", "mode": ""}
    rest = iter(words)
    name = ""
    for word in rest:
        if word not in values:
            name = word
            continue
        value = next(rest, None)
        if value is None:
            raise Refused(255, "Command line is not complete. Try option \"help\"")
        values[word] = _checked(word, value)
    if not name or len(name) > LONGEST_NAME or "/" in name:
        raise Refused(255, f'Error: argument "{name}" is wrong: "name" not a valid ifname')
    return Tunnel(name, values["remote"], values["local"], values["ttl"])


def _checked(word: str, value: str) -> str:
    if word in ("remote", "local") and value != "any":
        try:
            socket.inet_pton(socket.AF_INET, value)
        except OSError:
            raise Refused(1, f'Error: an IP address is expected rather than "{value}"') from None
    if word == "ttl" and value != "inherit":
        if not value.isdigit() or int(value) > 255:
            raise Refused(255, f'Error: argument "{value}" is wrong: invalid TTL')
        return "inherit" if int(value) == 0 else str(int(value))
    return value
