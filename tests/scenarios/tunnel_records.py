"""Documents with tunnels in them, and how the tests read what became of them."""

import signal

from daemon_stories import MONITORS_START, gre

TAG = "[TUNNEL_MNGR]"
WAN = "198.51.100.2"
REMOTE = "203.0.113.7"
TUNNELS_URL = "/api?fields=greTunnels,ipsecTunnels,ni"
WANS_URL = "/api/waninfo/wans"

# The system log's severity for each label.
SEVERITIES = {"ERROR": "err", "WARNING": "warning", "INFO": "info", "DEBUG": "debug", "TRACE": "debug"}

BAD_JSON = f"{TAG} api returned bad json"
NO_WAN_INFORMATION = f"{TAG}[WAN_MONITOR] Could not obtain WAN information"
NO_WAN = f"{TAG} WAN Not Acquired. Tunnels will not be setup until WAN is available."


def gre_tunnel(name: str = "gre1", **members) -> dict:
    """An enabled GRE tunnel record; `members` add to it or replace what it has."""
    return gre(name) | members


def ipsec_tunnel(name: str = "ips1", **members) -> dict:
    """An IPsec tunnel record, disabled unless `members` say otherwise."""
    return {"name": name, "enabled": False, "remoteWanIp": REMOTE} | members


def create_command(name: str = "gre1", remote: str = REMOTE, local: str = WAN, ttl: str = "64") -> str:
    return f"ip tunnel add {name} mode gre remote {remote} local {local} ttl {ttl}"


def router_with(make_router, documents: dict, **options):
    """A router with these documents and with the folders that the IPsec service brings."""
    router = make_router(documents, **options)
    router.make_ipsec_folders()
    return router


def run_once(router, level: str = "100"):
    """Runs the program once at that print level, to a good end; returns the mark before."""
    mark = router.mark("run")
    assert router.run("-p", level).status == 0
    return mark


def lines(router, label: str, since: int = 0) -> list[str]:
    """The messages of one label, whose entries in the system log must all have its severity and the program's ident."""
    events = router.log_lines(label, since)
    assert {(event.ident, event.severity) for event in events} <= {("TUNNEL_MNGR", SEVERITIES[label])}
    return [event.message for event in events]


def ip_commands(router, since: int = 0) -> list[str]:
    """The exact texts of the commands that change tunnels, links, addresses or routes."""
    return [text for text in router.command_texts(since) if text.startswith("ip ") and text != "ip tunnel"]


def story(router, first: str, last: str, since: int = 0) -> list[tuple[str, str]]:
    """Log lines (label, message) and commands ("RUN", text) from the first that has the text `first` in it to the last
    that has the text `last`, in true order."""
    told = [(event.label, event.message) if event.kind == "log" else ("RUN", event.text)
            for event in router.timeline(since) if event.kind in ("log", "command")]
    begin = next(i for i, (_, text) in enumerate(told) if first in text)
    end = max(i for i, (_, text) in enumerate(told) if last in text)
    return told[begin:end + 1]


def logged_run(text: str) -> list[tuple[str, str]]:
    """How `story` shows a command that is logged before it is run."""
    return [("TRACE", f"{TAG} {text}"), ("RUN", text)]


def start_daemon(router, level: str = "100"):
    """Starts the daemon; returns it when its first run is over and its monitors are about to start."""
    daemon = router.daemon("-p", level)
    router.wait_for("log", MONITORS_START, timeout=20)
    return daemon


def refresh(router, daemon, until=MONITORS_START, before=lambda: None) -> int:
    """Has the daemon perform one more run and waits for the log line that `until` describes, by default the one after a
    run; returns the mark before. `before` is called between the mark and the signal."""
    mark = router.mark("refresh")
    before()
    daemon.signal(signal.SIGHUP)
    router.wait_for("log", until, since=mark, timeout=20)
    return mark
