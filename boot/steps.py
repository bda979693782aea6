"""The life of the service, step by step. Each returns a note on what it saw, or raises Unmet."""

import pathlib
import re
from collections.abc import Callable
from typing import NamedTuple

from boot.furnishing import FAR_UNITS, FIREWALL, FIREWALL_RECORD, FIREWALL_SCRIPT, NAMES
from boot.router import GONE, PROGRAM, RUNNING, STOPPED, UNIT, Router
from lab import state
from lab.lab import require
from lab.topology import KINDS, SITE_A

TOP_FOLDER = pathlib.Path(__file__).resolve().parents[1]
PAGE = TOP_FOLDER / "docs" / "ipsec-service.md"
OVERRIDE = TOP_FOLDER / "docs" / "examples" / "systemd-override.conf"
CHARON_RULES = "/etc/apparmor.d/local/usr.lib.ipsec.charon"
OVERRIDES = f"/etc/systemd/system/{UNIT}.d"
PACKAGES = ("/root/package.deb", "/root/newer.deb")
FOLDERS = ("0755 /run/ipsec", "0700 /run/ipsec/cacerts", "0700 /run/ipsec/certs", "0700 /run/ipsec/private")
HIGHEST_EXPOSURE = 4.0
DENIALS = 'apparmor="DENIED"|Operation not permitted|Permission denied|Read-only file system'
GRANTED = "/run/firewall.granted"

# A firewall script that does three things more than the unit allows.
DEMANDING = f"""#!/bin/sh
modprobe --quiet ip_tables && echo module >>{GRANTED}
echo rules >/etc/firewall.rules && echo file >>{GRANTED}
echo 60 >/proc/sys/kernel/panic && echo setting >>{GRANTED}
"""


class Step(NamedTuple):
    title: str
    asserted: str
    seconds: float
    action: Callable[[Router], str]


def prepared(router: Router) -> str:
    """By the page on the IPsec service, as it is to be typed."""
    typed = re.findall(r"^    (.*)$", PAGE.read_text(), re.MULTILINE)
    rules = [line for line in typed if line.startswith("/")]
    router.machine.write(CHARON_RULES, "".join(f"{rule}\n" for rule in rules))
    commands = [line for line in typed if line not in rules and not line.startswith("apt-get ")]
    router.machine.run("\n".join(["set -e", *commands]))
    return ""


def installed(router: Router) -> str:
    router.machine.run(f"dpkg --install {PACKAGES[0]}")
    router.wait_documented()
    require("the unit is enabled", router.property("UnitFileState") == "enabled")
    folders = router.machine.run("stat --format='0%a %n' /run/ipsec /run/ipsec/*").splitlines()
    require(f"the directories are {', '.join(FOLDERS)}, but {', '.join(folders)}", folders == list(FOLDERS))
    return ""


def booted(router: Router) -> str:
    router.machine.reboot()
    router.wait_documented()
    return ""


def api_late(router: Router) -> str:
    """What the tunnels need of the kernel is loaded for the daemon: nobody else has asked for it."""
    loaded = router.machine.attempt("ls -d /sys/module/ip_gre /sys/module/tun").output
    require(f"ip_gre and tun are not loaded, but {loaded}", loaded == "")
    router.documents.wan = SITE_A.wan
    router.machine.run("systemctl enable --now router-api.service")
    router.wait_documented()
    require("the firewall script ran", "--init" in router.read(FIREWALL_RECORD).splitlines())
    start_far_end(router)
    router.wait_crossing(*KINDS)
    return ""


def start_far_end(router: Router) -> None:
    router.machine.run(f"systemctl start {' '.join(FAR_UNITS)}")


def reloaded(router: Router) -> str:
    main, children = router.main_process(), router.openvpn_children()
    with router.another_run():
        router.machine.run(f"systemctl reload {UNIT}")
    router.wait_whole()
    require("the process is the same", router.main_process() == main)
    require("the openvpn children are others", not set(children) & set(router.openvpn_children()))
    return ""


def invoked_again(router: Router) -> str:
    main = router.main_process()
    with router.another_run():
        router.machine.run("tunnel_mngr")
    router.wait_whole()
    require("the process is the same", router.main_process() == main)
    return ""


def restarted(router: Router) -> str:
    main = router.main_process()
    router.machine.run(f"systemctl restart {UNIT}")
    router.wait_whole()
    require("the process is another", router.main_process() != main)
    return ""


def stopped(router: Router) -> str:
    router.machine.run(f"systemctl stop {UNIT}")
    require_left_tunnels(router)
    return ""


def require_left_tunnels(router: Router, service: dict = STOPPED) -> None:
    """What a stop leaves: GRE and IPsec, and no openvpn process, whoever it runs as."""
    router.require_service(service)
    children = router.openvpn_children()
    require(f"no openvpn process is left, but {children}", not children)
    expected = state.documented(router.documents, NAMES)["GRE devices"]
    require(f"the GRE tunnels are {expected}", router.gre_devices() == expected)
    router.wait_crossing("gre", "ipsec")


def started(router: Router) -> str:
    """When `systemctl start` returns, the daemon has its names and obeys, and its first run is still going on."""
    runs = router.runs()
    router.machine.run(f"systemctl start {UNIT} && systemctl reload {UNIT}")
    router.require_service(RUNNING)
    router.wait("the ends of two runs", lambda: router.runs() >= runs + 2)
    router.wait_whole()
    return ""


def killed(router: Router) -> str:
    """The first start after it removes the semaphore and fails, the second works."""
    main, restarts = router.main_process(), router.restarts()
    router.machine.run(f"systemctl kill --kill-who=main --signal=KILL {UNIT}")
    router.wait("another process", lambda: router.main_process() not in (0, main))
    router.wait_whole()
    require("two starts were needed", router.restarts() == restarts + 2)
    return ""


def stopped_early(router: Router) -> str:
    """While the openvpn children begin: what comes then, openvpn forgets."""
    router.machine.run(f"systemctl restart {UNIT}")
    router.wait("an openvpn child", router.openvpn_children)
    router.machine.run(f"systemctl stop {UNIT}")
    router.require_service(STOPPED)
    children = router.openvpn_children()
    require(f"no openvpn process is left, but {children}", not children)
    router.machine.run(f"systemctl start {UNIT}")
    router.wait_whole()
    return ""


def upgraded(router: Router) -> str:
    main = router.main_process()
    router.machine.run(f"dpkg --install {PACKAGES[1]}")
    router.wait_whole()
    require("the process is another", router.main_process() != main)
    program = router.machine.run(f"readlink /proc/{router.main_process()}/exe").strip()
    require(f"it runs the new program, but {program}", program == PROGRAM)
    return router.machine.run("dpkg-query --show tunnel-mngr").split()[1]


def overridden(router: Router) -> str:
    """A firewall script that needs more gets it by the example, and not before."""
    router.machine.write(FIREWALL_SCRIPT, DEMANDING)
    require("the script gets nothing without it", granted(router) == [])
    router.machine.write(f"{OVERRIDES}/firewall.conf", OVERRIDE.read_text())
    router.machine.run("systemctl daemon-reload")
    found = granted(router)
    require(f"it gets all three with it, but {found}", found == ["module", "file", "setting"])
    router.wait_whole()
    router.machine.run(f"rm -r {OVERRIDES}")
    router.machine.write(FIREWALL_SCRIPT, FIREWALL)
    return ""


def granted(router: Router) -> list[str]:
    """What the firewall script has got by the end of a run of a new daemon."""
    router.machine.run(f"rm -f {GRANTED}")
    with router.another_run():
        router.machine.run(f"systemctl restart {UNIT}")
    return router.read(GRANTED).split()


def booted_with_api(router: Router) -> str:
    router.machine.reboot()
    router.wait_documented()
    start_far_end(router)
    router.wait_crossing(*KINDS)
    return ""


def confined(router: Router) -> str:
    shown = router.machine.run(f"systemd-analyze security --no-pager {UNIT} | tail -1")
    exposure = float(re.search(r"\d+\.\d+", shown)[0])
    require(f"an exposure of {HIGHEST_EXPOSURE} at most, but {exposure}", exposure <= HIGHEST_EXPOSURE)
    complaints = router.machine.run(f"systemd-analyze verify --man=no --recursive-errors=no {UNIT} 2>&1")
    require(f"nothing is wrong with the unit, but {complaints}", complaints == "")
    denied = router.journal(DENIALS)
    require(f"nothing was denied, but {denied}", not denied)
    return f"exposure {exposure}"


def removed(router: Router) -> str:
    """Of an init script that stays until the purge, systemd makes a unit that does nothing."""
    router.machine.run("dpkg --remove tunnel-mngr")
    unit = router.property("FragmentPath")
    require(f"the unit is gone, but {unit}", unit == "" or unit.startswith("/run/systemd/generator.late/"))
    require_left_tunnels(router, STOPPED if unit else GONE)
    return ""


def purged(router: Router) -> str:
    router.machine.run("dpkg --purge tunnel-mngr")
    router.require_service(GONE)
    left = router.machine.run("find / -xdev \\( -name '*tunnel_mngr*' -o -name '*tunnel-mngr*' \\) "
                              "-not -path '/opt/*'").split()
    require(f"no file is left, but {left}", not left)
    return ""


# The deadlines leave room for an emulated processor on a busy machine.
STEPS = (
    Step("Prepared", "the IPsec service is set up by its page, line by line", 480, prepared),
    Step("Installed", "enabled, running, one daemon, PID file and semaphore its own; the directories with their modes; "
         "without the API nothing is built", 480, installed),
    Step("Booted", "the same after a reboot", 480, booted),
    Step("API late", "the API comes with the socket of another user: all tunnels are as documented, the kernel has "
         "loaded what they need, the firewall script ran; packets cross all four", 960, api_late),
    Step("Reload", "one more run of the same process, other openvpn children; packets cross", 720, reloaded),
    Step("Second invocation", "from outside of the unit: one more run of the same process; packets cross", 720,
         invoked_again),
    Step("Restart", "another process, whole again, nothing twice; packets cross", 720, restarted),
    Step("Stop", "no daemon, PID file, semaphore or openvpn process; packets still cross GRE and IPsec", 240, stopped),
    Step("Start", "when it returns the daemon is there and obeys a reload; whole later; packets cross", 720, started),
    Step("Killed", "by SIGKILL: started again by itself, at the second attempt, nothing twice; packets cross", 720,
         killed),
    Step("Stop while it begins", "while openvpn children begin: none is left; the next start is whole", 720,
         stopped_early),
    Step("Upgrade", "another process runs the new program, whole again, nothing twice; packets cross", 960, upgraded),
    Step("Confined", "the exposure that systemd-analyze tells; nothing was denied to anybody so far", 240, confined),
    Step("Override", "a firewall script that needs more has it by the example, and not without it", 720, overridden),
    Step("Booted with the API", "whole by itself; packets cross", 960, booted_with_api),
    Step("Removed", "as stopped, and no unit; packets still cross GRE and IPsec", 480, removed),
    Step("Purged", "no file of it is left", 240, purged),
)
