"""Reads what programs print and what files hold. Pure functions from texts; what is missing is left out."""

import json
import re
import stat

# What every router has anyway: its wires, and what the kernel makes in each namespace once it knows GRE.
FIXED_DEVICES = {"lo", "wan", "lan", "gre0", "gretap0", "erspan0"}
RUN_BEGIN, RUN_END = "MANAGING TUNNELS", "v_apFqdnMonitor size"  # the lines before and after each run of a daemon


def devices(shown: str) -> dict[str, str]:
    """From `ip -json -details address`: by name what a device is, like "gre 192.0.2.1 to 192.0.2.2 ttl 64, up,
    10.0.0.1/30" or "tun, down"; the devices that every router has are left out."""
    links = [link for link in json.loads(shown) if "ifname" in link]  # ip(8) may leave an empty object for another
    return {link["ifname"]: _device(link) for link in links if link["ifname"] not in FIXED_DEVICES}


def _device(link: dict) -> str:
    info = link.get("linkinfo", {})
    kind, ends = info.get("info_kind", "?"), info.get("info_data", {})
    if kind == "gre":
        kind += f" {ends['local']} to {ends['remote']} ttl {ends['ttl']}"
    addresses = [f"{address['local']}/{address['prefixlen']}" for address in link["addr_info"]
                 if address["family"] == "inet"]
    return ", ".join([kind, "up" if "UP" in link["flags"] else "down", *addresses])


def routes(shown: str, through: set[str]) -> list[str]:
    """From `ip -json route`: "network device" of what was added, through these devices and not by the kernel itself."""
    return sorted(f"{route['dst']} {route['dev']}" for route in json.loads(shown)
                  if route.get("dev") in through and route.get("protocol") != "kernel")


def way(shown: str) -> str:
    """From `ip -json route get ADDRESS`: the device."""
    return json.loads(shown)[0]["dev"]


def device_packets(shown: str) -> int:
    """From `ip -json -statistics link show DEVICE`: packets received and sent."""
    statistics = json.loads(shown)[0]["stats64"]
    return statistics["rx"]["packets"] + statistics["tx"]["packets"]


def esp_packets(shown: str) -> int:
    """From `ip -statistics xfrm state`: packets that all states have carried. The limits stand in other words there."""
    return sum(int(count) for count in re.findall(r"\(bytes\), (\d+)\(packets\)", shown))


def esp_states(shown: str) -> int:
    """From `ip xfrm state`: how many there are."""
    return len(re.findall(r"^\s*proto esp ", shown, re.MULTILINE))


def tunnel_policies(shown: str) -> int:
    """From `ip xfrm policy`: policies between networks, which have a template; those of sockets have none."""
    return len(re.findall(r"^\s*tmpl ", shown, re.MULTILINE))


def key_exchanges(shown: str, tunnel: str) -> set[str]:
    """From `ipsec statusall`: by which versions keys have been exchanged with the peer of a tunnel, like {"IKEv1"}."""
    return set(re.findall(rf"^\s*{tunnel}_\d\S*\[\d+\]: ESTABLISHED .*\n\s*\S+ (\S+) SPIs:", shown, re.MULTILINE))


def connecting(shown: str) -> int:
    """From `ipsec status`: how many exchanges of keys are under way."""
    return int(re.search(r"^Security Associations \(\d+ up, (\d+) connecting\):", shown, re.MULTILINE)[1])


def authentication(shown: str, tunnel: str) -> str:
    """From `ipsec statusall`: how the peer of a tunnel must show who it is."""
    found = re.search(rf"^\s*{tunnel}_\d\S*: +remote: .* uses (.*) authentication$", shown, re.MULTILINE)
    return found[1] if found else "none"


def proposal(shown: str, tunnel: str) -> str:
    """From `ipsec statusall`: what protects the packets of a tunnel."""
    found = re.search(rf"^\s*{tunnel}_\d\S*: +(\S+), \d+ bytes_i", shown, re.MULTILINE)
    return found[1] if found else "none"


def sections(text: str) -> list[tuple[str, str]]:
    """From ipsec.conf: of each conn section the name, then ends and kind, like "192.0.2.1 to 192.0.2.2, ikev1, secret".
    One that stands there twice is found twice."""
    found = []
    for name, body in re.findall(r"^conn (?!%)(\S+)\n((?:[ \t].*\n)*)", text, re.MULTILINE):
        values = dict(re.findall(r"^\s+(\w+)=(.*)$", body, re.MULTILINE))
        ends = f"{values.get('left')} to {values.get('right')}"
        found.append((name, f"{ends}, {values.get('keyexchange')}, {values.get('authby')}"))
    return found


def open_to_writing(modes: dict[str, int]) -> list[str]:
    """By the modes of paths: what others may write, and the regular files that the group may, like "0666 /run/a.pid". A
    symbolic link has no mode of its own."""
    return [f"{stat.S_IMODE(mode):04o} {path}" for path, mode in sorted(modes.items())
            if not stat.S_ISLNK(mode) and mode & (stat.S_IWOTH | (stat.S_IWGRP if stat.S_ISREG(mode) else 0))]


def run_seconds(events: list[dict]) -> list[float]:
    """The times in seconds that a router's tunnel management runs took, those that have ended, by its record."""
    begin, lengths = 0.0, []
    for event in events:
        if RUN_BEGIN in event["text"]:
            begin = event["time"]
        elif RUN_END in event["text"]:
            lengths.append(event["time"] - begin)
    return lengths


def answer_times(output: str) -> list[float]:
    """From `ping -D`: when answers came, in seconds since the epoch."""
    return [float(time) for time in re.findall(r"^\[([\d.]+)\] \d+ bytes from", output, re.MULTILINE)]


def longest_gap(times: list[float]) -> float:
    """Between two neighbours; infinite if there are no two."""
    return max((later - earlier for earlier, later in zip(times, times[1:])), default=float("inf"))


def answered(output: str, requests: int) -> bool:
    """From `ping -c`: whether every request was answered."""
    return f" {requests} received" in output
