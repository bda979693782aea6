"""What the stories about OpenVPN share: records, documents, and the files and children that come of them."""

from daemon_stories import documents
from sandbox.router import Router
from sandbox.timeline import Event

STATIC_KEY = "dev tun\nifconfig 10.8.0.1 10.8.0.2\nverb 4\n"
WITH_CA = "dev tun\nifconfig 10.8.0.1 10.8.0.2\n<ca>\n-----\n</ca>\n"
PING = "ping -c 3 10.8.0.2"
PASS_SECONDS = 11  # between two supervision passes, at the least


def tunnel(name: str, config: str = STATIC_KEY, **members) -> dict:
    """An OpenVPN tunnel's record as the API has it."""
    return {"name": name, "enabled": True, "config": config} | members


def with_tunnels(*tunnels: dict, **members) -> dict:
    """All documents of a router with a WAN and these OpenVPN tunnels; log level 0 unless `syslog` says otherwise."""
    return documents(**({"ovpnTunnels": list(tunnels), "syslog": {"logLevel": 0}} | members))


def conf_path(name: str) -> str:
    return f"/var/run/openvpn_{name}.conf"


def connect_path(name: str) -> str:
    return f"/var/run/connect_{name}.status"


def arguments(name: str) -> list[str]:
    """The whole argument vector of the tunnel's child."""
    return ["openvpn", "--config", conf_path(name), "--status", f"/var/run/openvpn_{name}.status", "1", "--syslog",
            "openvpn"]


def children(router: Router, since: int = 0) -> list[Event]:
    """The `openvpn` processes that were started."""
    return router.find("exec", program="openvpn", since=since)


def wait_for_children(router: Router, count: int, since: int = 0, timeout: float = 20) -> list[Event]:
    router.wait_for("exec", program="openvpn", since=since, count=count, timeout=timeout)
    return children(router, since)


def is_there(router: Router, child: Event) -> bool:
    """Whether the process of a child exists, if only as a zombie."""
    return router.exists(f"/proc/{child.pid}")
