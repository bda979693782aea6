"""Whether a history ended well: faults taken away and a refresh made, the router is what `tunnelctl plan` says, and the
daemon has as much as at the start."""

import collections
import json
import os
import shlex
import stat
from collections.abc import Callable

from sandbox.gre_model import GreModel
from sandbox.link_model import LIST_LINKS, LIST_ROUTES
from sandbox.router import Router

from bench.companion import service_status
from histories import configurations, mappings
from histories.shortages import MONITORS_START, PID_FILE
from histories.world import EXCEPTION, PATIENCE, RUN_BEGINS, SEMAPHORE, World

CALM_WAN = "[TUNNEL_MNGR][WAN_MONITOR] WAN has not changed"
LOOK_BEGINS = "[TUNNEL_MNGR][FQDN_MONITOR] tunnel:"
CALM_NAME = "[TUNNEL_MNGR][FQDN_MONITOR] FQDN has not changed"
PING = "[OVPN] ping "  # each ping of a far end is told as an error, whatever its outcome
LOOKS = 20  # at threads and descriptors, of which a look-up under way has more
LAST_WAN = 200  # the WAN that the daemon is to find by itself
KEY_FOLDERS = ("/run/ipsec/cacerts", "/run/ipsec/certs", "/run/ipsec/private")
FOLDERS = ("/run", "/run/ipsec", *KEY_FOLDERS, "/dev/shm")
POINT_STATUS = "OpenVPN STATISTICS\nUpdated,2026-11-21 15:57:41\nTUN/TAP read bytes,192\nTUN/TAP write bytes,96\n" \
               "TCP/UDP read bytes,3063\nTCP/UDP write bytes,3007\nAuth read bytes,96\nEND\n"


class Start:
    """What a daemon has at rest."""

    def __init__(self, world: World):
        world.router.wait_until(lambda: len(watching(world)) == 1 + monitors(world), "the monitors' threads", PATIENCE)
        facts = [world.daemon.facts() for _ in range(LOOKS)]
        self.own_threads = min(each["threads"] for each in facts) - monitors(world)  # a sanitizer may have one, too
        self.descriptors = min(len(each["descriptors"]) for each in facts)
        world.descriptors_at_rest = self.descriptors
        self.mapped = mappings.files(world.router, world.daemon)


def judge(world: World, start: Start) -> None:
    """Raises AssertionError unless all is well in the end."""
    world.unblock()
    world.wait_for_ends()
    require_obeyed(world)  # before what is healed makes the monitors ask for runs, too
    world.heal()
    world.sighup()
    require_obeyed(world)
    world.wan(LAST_WAN)
    mark = world.router.mark("another WAN")
    begin = world.router.wait_for("log", RUN_BEGINS, pid=world.daemon.pid, since=mark, timeout=PATIENCE)
    wait_until_calm(world, start)
    planned = plan(world.router)
    require_planned_router(world, planned)
    require_calm_process(world, start, planned)
    require_told(world, begin.number)
    require_harmless_modes(world.router)
    errors = [event.text for event in world.router.log_lines("ERROR", begin.number) if PING not in event.text]
    assert errors == [], f"errors after the last run: {errors}"
    require_end(world)


# ---- rest ----

def require_obeyed(world: World) -> None:
    """Every request for a refresh is followed by a run that began after it."""
    for mark, pid in world.asked:
        if pid == world.daemon.pid:
            world.router.wait_until(lambda: has_run(world, pid, mark), "the run that was asked for", PATIENCE)


def has_run(world: World, pid: int, mark: int) -> bool:
    """Whether a run has begun. Where the log has not taken all lines, its first command tells as much."""
    router = world.router
    return bool(router.find("log", RUN_BEGINS, pid=pid, since=mark)
                or (world.log_was_stuck and any(command.text == "ip tunnel" and command.parent == pid
                                                for command in router.commands(mark))))


def wait_until_calm(world: World, start: Start) -> None:
    """Until the last run is over, each monitor has looked since then and found nothing new, and no look is under way."""
    world.router.wait_until(lambda: is_calm(world), "calm", PATIENCE)
    world.router.wait_until(lambda: world.daemon.threads() == start.own_threads + monitors(world),
                            "the monitors' threads and no more", PATIENCE)
    world.router.wait_until(lambda: len(world.daemon.children()) == len(living(world)), "no child but openvpn", PATIENCE)


def watching(world: World) -> list[str]:
    """The names of the monitors' threads."""
    return [name for name in world.daemon.facts()["thread_names"] if name.startswith(("FQDN_MONITOR", "WAN_MONITOR"))]


def lines(world: World) -> list[str]:
    return [event.message for event in world.router.find("log", pid=world.daemon.pid)]


def monitors(world: World) -> int:
    """How many host names are watched, as the last run said."""
    last = [line for line in lines(world) if line.startswith(MONITORS_START)][-1]
    return int(last.split()[-1])


def is_calm(world: World) -> bool:
    told = lines(world)
    over = max((i for i, line in enumerate(told) if line.startswith((MONITORS_START, EXCEPTION))), default=-1)
    if over < 0 or RUN_BEGINS in told[over:]:
        return False
    looks = [line.split()[-1] for line in told[over:] if line.startswith(LOOK_BEGINS) and " check " in line]
    return (CALM_WAN in told[over:] and len(set(looks)) == monitors(world) and told[over:].count(CALM_NAME) == len(looks))


def living(world: World) -> list[int]:
    """The `openvpn` processes of the daemon."""
    children = world.daemon.children()
    return [event.pid for event in world.router.find("exec", program="openvpn") if event.pid in children]


# ---- the router ----

def companion(router: Router) -> str:
    return os.path.join(os.path.dirname(router.program_path), "..", "tunnelctl", "tunnelctl")


def run_companion(router: Router, *words: str) -> dict:
    program, environment = router.program_path, router.environment
    router.program_path, router.environment = companion(router), {k: v for k, v in environment.items() if k != "LD_PRELOAD"}
    try:
        done = router.run(*words, "--json", timeout=PATIENCE)
    finally:
        router.program_path, router.environment = program, environment
    assert done.status in (0, 1, 2) and done.stdout, f"tunnelctl {words}: {done}"
    return json.loads(done.stdout)


def plan(router: Router) -> dict:
    return run_companion(router, "plan", "--show-secrets", "--printlvl", "100")


def require_planned_router(world: World, planned: dict) -> None:
    """What the daemon's last run has made is what the next one would make."""
    router = world.router
    assert planned["outcome"] == "done", planned["culprits"]
    for path, file in planned["files"].items():
        found = router.read_file(os.path.normpath(path))
        assert found == file["after"], f"{path} holds {found!r}, planned is {file['after']!r}"
        if found is not None:
            mode = stat.S_IMODE(router.stat(os.path.normpath(path))["mode"])
            assert mode == int(file.get("mode", "0644"), 8), f"{path} has the mode {mode:04o}"
    for folder in KEY_FOLDERS:
        names = {os.path.basename(path) for path, file in planned["files"].items()
                 if os.path.normpath(path).startswith(f"/var{folder}/") and file["after"] is not None}
        found = set(router.list_folder(folder))
        assert found == names, f"{folder} holds {found}, planned are {names}"
    require_planned_kernel(router, planned)
    started = collections.Counter(" ".join(act["start"]) for act in planned["acts"] if "start" in act)
    there = collections.Counter(" ".join(router.process(pid).facts()["argv"]) for pid in living(world))
    assert there == started, f"these children are there: {there}, planned are {started}"


def require_planned_kernel(router: Router, planned: dict) -> None:
    """The GRE tunnels, their state, addresses and routes are as the planned commands make them."""
    kernel = GreModel()
    for act in planned["acts"]:
        words = shlex.split(act.get("run", ""))
        if words[:1] == ["ip"]:
            kernel.answer(words[1:])
    found = kernel_of(lambda words: router.exec(["/run/sandbox/bin/ip", *words]).stdout)
    expected = kernel_of(lambda words: kernel.answer(words)[1])
    for what, planned_part in expected.items():
        assert found[what] == planned_part, f"the kernel has the {what} {found[what]}, planned are {planned_part}"


def kernel_of(ask: Callable[[list[str]], str]) -> dict[str, list]:
    """What `ip` tells of the GRE tunnels. The first of them brings along a device that nobody has asked for."""
    tunnels = [line for line in ask(["tunnel"]).splitlines() if not line.startswith("gre0:")]
    links = [link for link in json.loads(ask(LIST_LINKS))
             if link.get("linkinfo", {}).get("info_kind") == "gre" and link["ifname"] != "gre0"]
    names = {link["ifname"] for link in links}
    return {"tunnels": tunnels, "links": links,
            "routes": [route for route in json.loads(ask(LIST_ROUTES)) if route.get("dev") in names]}


def require_harmless_modes(router: Router) -> None:
    """Nothing that the program has made may be written by group or others."""
    for folder in FOLDERS:
        for name in router.list_folder(folder):
            facts = router.stat(f"{folder}/{name}")
            if stat.S_ISREG(facts["mode"]):
                assert not facts["mode"] & 0o022, f"{folder}/{name} has the mode {stat.S_IMODE(facts['mode']):04o}"


# ---- the process ----

def has_no_stack_too_many(world: World, start: Start) -> bool:
    """Whether there is one for each thread but the first, and one at most of a look that has ended: a thread cannot take
    its own away, which the next one does. Two that end at once may both be left for a while, so it is asked repeatedly."""
    threads = world.daemon.threads()
    return threads == start.own_threads + monitors(world) and mappings.stacks(world.router, world.daemon) <= threads


def require_calm_process(world: World, start: Start, planned: dict) -> None:
    daemon = world.daemon
    world.router.wait_until(lambda: daemon.fds() == start.descriptors, f"{start.descriptors} descriptors", 10)
    world.router.wait_until(lambda: daemon.zombies() == [], "the last dead child to be waited for", 10)
    world.router.wait_until(lambda: has_no_stack_too_many(world, start), "no stack of a thread that has ended", PATIENCE)
    mapped = mappings.files(world.router, daemon)
    assert mapped == start.mapped, f"it has mapped {mapped - start.mapped} and not {start.mapped - mapped} any more"
    instances = [pid for pid in world.router.ask("children", pid=1, zombies=False) if world.is_instance(pid)]
    assert instances == [daemon.pid], f"these instances run: {instances}"


def require_end(world: World) -> None:
    status = world.daemon.terminate(PATIENCE)
    assert status == 0, f"it left with {status}"
    world.router.wait_until(lambda: not living_anywhere(world), "the end of the children", PATIENCE)
    for path in (SEMAPHORE, PID_FILE):
        assert not world.router.exists(path), f"{path} is left"
    assert world.router.problems() == [], "\n".join(world.router.problems())


def living_anywhere(world: World) -> list[int]:
    ended = {event.pid for event in world.router.find("end", program="openvpn")}
    return [event.pid for event in world.router.find("exec", program="openvpn") if event.pid not in ended]


# ---- what status tells ----

def require_told(world: World, begin: int) -> None:
    """`tunnelctl status` finds everything up, in a kernel that has what the last run's commands made."""
    router = world.router
    publish_kernel(router, begin)
    router.program("ipsec").on(["statusall"], stdout=service_status(router.read_file("/run/ipsec/ipsec.conf") or ""))
    names = configurations.enabled_names(dict(router.documents))
    for name in names["openvpn"]:
        router.write_file(f"/run/openvpn_{name}.status", POINT_STATUS, mode=0o644)
    expected = [(kind, name, "up") for kind in ("gre", "ipsec", "openvpn") for name in names[kind]]
    told = {}

    def are_up() -> bool:
        """Once the far ends are pinged. The files of OpenVPN tunnels that are not configured any more stay."""
        nonlocal told
        told = run_companion(router, "status")
        return expected == [(row["kind"], row["name"], row["state"]) for row in told["tunnels"]
                            if (row["kind"], row["state"]) != ("openvpn", "stale")]

    router.wait_until(are_up, "status to tell that all is up", PATIENCE)
    assert told["daemon"]["running"] and told["daemon"]["pid"] == world.daemon.pid and told["daemon"]["remarks"] == [], told
    assert told["api"]["answers"] and told["wan"]["current"] == configurations.wans(LAST_WAN)[0]["ip"], told


def publish_kernel(router: Router, begin: int) -> None:
    """Has the stand-in `ip` tell in JSON of what the commands since then have made."""
    devices: dict[str, dict] = {"wan": device("wan", {}, [configurations.wans(LAST_WAN)[0]["ip"] + "/24"])}
    routes = [{"dst": "default", "gateway": "198.51.100.254", "dev": "wan", "flags": []}]
    for command in router.commands(begin):
        words = command.text.split()
        match words:
            case ["ip", "tunnel", "add", name, "mode", "gre", "remote", remote, "local", local, *_]:
                ends = {"local": local, "remote": remote, "ttl": 64}
                devices[name] = device(name, {"info_kind": "gre", "info_data": ends}, [])
            case ["ip", "addr", "add", address, "dev", name]:
                devices[name] = devices[name] | {"addr_info": addresses([address])}
            case ["ip", "route", "add", network, "dev", name]:
                routes.append({"dst": network, "dev": name, "flags": []})
    names = configurations.enabled_names(dict(router.documents))["openvpn"]
    devices |= {name: device(name, {}, []) for name in (f"tun{name}"[:15] for name in names)}
    router.program("ip").on(["-j", "-s", "-d", "addr"], stdout=json.dumps(list(devices.values())))
    router.program("ip").on(["-j", "route", "show", "table", "all"], stdout=json.dumps(routes))


def device(name: str, info: dict, own: list[str]) -> dict:
    return {"ifname": name, "flags": ["UP", "LOWER_UP"], "operstate": "UNKNOWN", "linkinfo": info, "addr_info": addresses(own),
            "stats64": {"rx": {"bytes": 308, "packets": 5}, "tx": {"bytes": 252, "packets": 4}}}


def addresses(texts: list[str]) -> list[dict]:
    return [{"family": "inet", "local": text.split("/")[0], "prefixlen": int(text.split("/")[1])} for text in texts]
