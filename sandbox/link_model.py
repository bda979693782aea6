"""Inside the router: the links of the tunnels that the stand-in `ip` knows, for kernels that have none, as `ip -json` tells
of them."""

import contextlib
import ipaddress
import json

LIST_LINKS = ["-j", "-s", "-d", "addr"]
LIST_ROUTES = ["-j", "route", "show", "table", "all"]
SILENT = {"rx": {"bytes": 0, "packets": 0}, "tx": {"bytes": 0, "packets": 0}}  # nothing goes through them


class LinkModel:
    """What has been done to each link, by its name. Nothing is refused: an address that is none is left out."""

    def __init__(self):
        self._up: set[str] = set()
        self._addresses: dict[str, list[dict]] = {}
        self._routes: dict[str, list[dict]] = {}

    def set(self, name: str, state: str) -> None:
        (self._up.add if state == "up" else self._up.discard)(name)

    def add_address(self, name: str, text: str) -> None:
        with contextlib.suppress(ValueError):
            interface = ipaddress.ip_interface(text)
            address = {"family": "inet", "local": str(interface.ip), "prefixlen": interface.network.prefixlen}
            self._addresses.setdefault(name, []).append(address)

    def add_route(self, name: str, text: str) -> None:
        with contextlib.suppress(ValueError):
            route = {"dst": str(ipaddress.ip_network(text, strict=False)), "dev": name, "scope": "link", "flags": []}
            self._routes.setdefault(name, []).append(route)

    def forget(self, name: str) -> None:
        self._up.discard(name)
        self._addresses.pop(name, None)
        self._routes.pop(name, None)

    def links(self, tunnels, others: list[dict]) -> str:
        """As for LIST_LINKS: these tunnels of the model, behind the links that there are besides."""
        return json.dumps([*others, *(self._link(tunnel) for tunnel in tunnels)])

    def routes(self, tunnels, others: list[dict]) -> str:
        """As for LIST_ROUTES: the routes through these tunnels behind the others."""
        return json.dumps([*others, *(route for tunnel in tunnels for route in self._routes.get(tunnel.name, []))])

    def _link(self, tunnel) -> dict:
        ends = {"local": tunnel.local, "remote": tunnel.remote, "ttl": tunnel.ttl}
        return {"ifname": tunnel.name, "flags": ["POINTOPOINT", "NOARP", *(["UP"] if tunnel.name in self._up else [])],
                "operstate": "UNKNOWN", "linkinfo": {"info_kind": "gre", "info_data": ends},
                "addr_info": self._addresses.get(tunnel.name, []), "stats64": SILENT}
