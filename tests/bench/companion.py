"""What the companion's three commands cost, beside what tells or does the same."""

import ipaddress
import json
import pathlib
import re

from bench import documents
from bench.room import FOLDER, SEARCH_PATH, Failed, Room
from bench.section import Goal, Samples, Section, Table, ratios

SCRIPT = pathlib.Path(__file__).with_name("status.sh")
SCHEMA = documents.EXAMPLE.parents[1] / "configuration.schema.json"
PLANNED = 500  # GRE tunnels, and as many IPsec tunnels
CHECKED = 1000
SHOWN = (1, 100, 1000)
ROUNDS = 5
PAUSE = 1.0  # seconds that the program waits for the restarted IPsec service
MOST_SECONDS = 1.0
FILE = f"{FOLDER}/documents.json"
TRACE = f"{FOLDER}/trace"
CONNECTION = """{name}:  {left}...{right}  IKEv2, dpddelay=60s
{name}:   local:  [{left}] uses pre-shared key authentication
{name}:   remote: [{right}] uses pre-shared key authentication
{name}:   child:  {ours} === {theirs} TUNNEL, dpdaction=start
"""
ASSOCIATION = """{name}[{number}]: ESTABLISHED 29 seconds ago, {left}[{left}]...{right}[{right}]
{name}{{{number}}}:  INSTALLED, TUNNEL, reqid {number}, ESP SPIs: c425dd47_i cd19106d_o
{name}{{{number}}}:  AES_CBC_256/HMAC_SHA2_256_128, 84 bytes_i (1 pkt, 1s ago), 168 bytes_o (2 pkts, 1s ago), rekeying in 44 minutes
"""


def measure(companion: pathlib.Path, program: pathlib.Path, programs: pathlib.Path, *, planned: int = PLANNED,
            checked: int = CHECKED, shown: tuple[int, ...] = SHOWN, rounds: int = ROUNDS) -> Section:
    plan = _measure_plan(companion, program, programs, planned, rounds)
    check = _measure_check(companion, program, programs, checked, rounds)
    status = {tunnels: _measure_status(companion, program, programs, tunnels, rounds) for tunnels in shown}
    rows = [[f"plan, {planned} GRE and {planned} IPsec tunnels", *_compared(plan, "a single run")],
            [f"check, {checked} tunnels", *_compared(check, "python3 -m jsonschema")],
            *([f"status, {tunnels} tunnels", *_compared(found, "ip, ipsec, curl, jq")] for tunnels, found in status.items())]
    table = Table("Wall time in ms, and against another that does the same or less",
                  ["command", "tunnelctl", "the other", "tunnelctl / the other", "what that is"], rows)
    processes = {tunnels: found["programs"] for tunnels, found in status.items()}
    note = "Programs that status starts: " + ", ".join(f"{count} for {tunnels} tunnels" for tunnels, count in processes.items())
    goals = [Goal(f"plan of {planned} GRE and {planned} IPsec tunnels", Samples(plan["own"]).median, MOST_SECONDS, " s"),
             Goal(f"check of {checked} tunnels", Samples(check["own"]).median, MOST_SECONDS, " s"),
             Goal("programs that status starts more for the most tunnels than for the fewest",
                  processes[max(shown)] - processes[min(shown)], 0)]
    return Section("Companion", [table], goals, {"plan": plan, "check": check, "status": status}, [note])


def _compared(found: dict, other: str) -> list[str]:
    return [Samples(found["own"]).text(1e3), Samples(found["other"]).text(1e3), ratios(found["own"], found["other"]).text(digits=3),
            other]


def _measure_plan(companion: pathlib.Path, program: pathlib.Path, programs: pathlib.Path, tunnels: int, rounds: int) -> dict:
    """The other one is the run itself, with programs that end at once and without its pause."""
    configuration = documents.configuration(tunnels)
    found: dict[str, list[float]] = {"own": [], "other": []}
    with Room(program, programs, configuration) as room:
        room.set_kernel_tunnels(documents.kernel_tunnels(configuration))
        for _ in range(rounds):
            room.forget()
            found["own"].append(room.time([str(companion), "plan"]).wall)
            room.require_commands(1)  # the list of the kernel's tunnels
            found["other"].append(room.time([str(program)]).wall - PAUSE)
    return found


def _measure_check(companion: pathlib.Path, program: pathlib.Path, programs: pathlib.Path, tunnels: int,
                   rounds: int) -> dict:
    """Both find something: the certificates that are timed with are none, and the schema wants a PEM text's words."""
    found: dict[str, list[float]] = {"own": [], "other": []}
    with Room(program, programs, documents.configuration(0, 0)) as room:
        room.router.write_file(FILE, json.dumps(documents.configuration(tunnels // 2, 0)))
        for _ in range(rounds):
            found["own"].append(room.time([str(companion), "check", FILE], statuses=(0, 1)).wall)
            found["other"].append(room.time(["/usr/bin/python3", "-m", "jsonschema", "-i", FILE, str(SCHEMA)], statuses=(0, 1)).wall)
    return found


def _measure_status(companion: pathlib.Path, program: pathlib.Path, programs: pathlib.Path, tunnels: int, rounds: int) -> dict:
    configuration = documents.configuration(0, 0) | {
        "greTunnels": [documents.gre_tunnel(i) for i in range((tunnels + 1) // 2)],
        "ipsecTunnels": [documents.ipsec_tunnel(i) for i in range(tunnels // 2)]}
    found = {"own": [], "other": []}
    with Room(program, programs, configuration) as room:
        room.time([str(program)])  # which writes what the service is to have read
        room.router.write_file(f"{FOLDER}/ip-addr", json.dumps(_devices(configuration)))
        room.router.write_file(f"{FOLDER}/ip-route", json.dumps(_routes(configuration)))
        room.router.write_file(f"{FOLDER}/ipsec-statusall", service_status(room.router.read_file("/run/ipsec/ipsec.conf")))
        _require_all_up(room, companion, tunnels)
        for _ in range(rounds):
            found["own"].append(room.time([str(companion), "status"]).wall)
            found["other"].append(room.time(["bash", str(SCRIPT)]).wall)
        room.output(["strace", "-f", "-qq", "-o", TRACE, "-e", "trace=execve", "-e", "status=successful", str(companion), "status"])
        return found | {"programs": room.router.read_file(TRACE).count("execve(") - 1}  # itself is one


def _require_all_up(room: Room, companion: pathlib.Path, tunnels: int) -> None:
    """Raises Failed unless the command tells that, and the script knows as many."""
    told = room.router.exec([str(companion), "status", "--json"], environment={"PATH": SEARCH_PATH}).stdout
    states = [row["state"] for row in json.loads(told)["tunnels"]]
    by_script = room.output(["bash", str(SCRIPT)]).splitlines()
    if states != ["up"] * tunnels or [line.split()[2] for line in by_script] != ["up"] * tunnels:
        raise Failed(f"of {tunnels} tunnels these are told of: {states}, {by_script}")


def _devices(configuration: dict) -> list[dict]:
    """What `ip -j -s -d addr` tells of a router whose tunnels are up."""
    devices = [_device("wan", f"{documents.WAN}/24", {})]
    for tunnel in configuration["greTunnels"]:
        ends = {"info_kind": "gre", "info_data": {"local": documents.WAN, "remote": tunnel["remoteIp"], "ttl": 64}}
        devices.append(_device(_device_name(tunnel), f"{tunnel['tunnelIp']}/{tunnel['tunnelMask']}", ends))
    return devices


def _device(name: str, address: str, info: dict) -> dict:
    interface = ipaddress.ip_interface(address)
    return {"ifname": name, "flags": ["POINTOPOINT", "UP", "LOWER_UP"], "operstate": "UNKNOWN", "linkinfo": info,
            "addr_info": [{"family": "inet", "local": str(interface.ip), "prefixlen": interface.network.prefixlen}],
            "stats64": {"rx": {"bytes": 308, "packets": 5}, "tx": {"bytes": 252, "packets": 4}}}


def _device_name(tunnel: dict) -> str:
    return tunnel["name"].replace(" ", "_")


def _routes(configuration: dict) -> list[dict]:
    """What `ip -j route show table all` tells."""
    routes = [{"dst": "default", "gateway": "198.51.100.1", "dev": "wan", "flags": []}]
    for tunnel in configuration["greTunnels"]:
        routes += [{"dst": str(ipaddress.ip_network(f"{route['ip']}/{route['mask']}")), "dev": _device_name(tunnel), "flags": []}
                   for route in tunnel["routes"]]
    return routes


def service_status(written: str) -> str:
    """What `ipsec statusall` tells when all that is written is up."""
    connections = []
    for section in re.split(r"^conn ", written, flags=re.MULTILINE)[1:]:
        members = dict(re.findall(r"^\s+(\w+)=(.*)$", section, re.MULTILINE))
        connections.append({"name": section.split()[0], "left": members["left"], "right": members["right"],
                            "ours": members["leftsubnet"], "theirs": members["rightsubnet"]})
    lines = [CONNECTION.format(**connection) for connection in connections]
    associations = [ASSOCIATION.format(number=i, **connection) for i, connection in enumerate(connections, 1)]
    return (f"Status of IKE charon daemon (strongSwan 5.9.8, Linux 6.1.0, x86_64):\nConnections:\n{''.join(lines)}"
            f"Security Associations ({len(connections)} up, 0 connecting):\n{''.join(associations)}")
