"""The files that the lab opens over and over: the programs that it and the routers start, and what these load."""

import os
import re
import shutil
import subprocess
import sys

from lab.router import PLUGINS, Programs

STARTED = ("sh", "cat", "ip", "ipsec", "kill", "mount", "nsenter", "openvpn", "ping", "sleep", "tcpdump")
IPSEC_FOLDER = "/usr/lib/ipsec"


def files(tested: Programs) -> set[str]:
    """Their paths, those of what is under test included; what is not there is left out."""
    loaded = [f"{IPSEC_FOLDER}/plugins/libstrongswan-{plugin}.so" for plugin in PLUGINS]
    service = [f"{IPSEC_FOLDER}/{name}" for name in ("starter", "charon", "stroke")]
    programs = [*tested, sys.executable, *filter(None, map(shutil.which, STARTED)),
                *filter(os.path.exists, [*service, *loaded])]
    return {*programs, *_libraries(programs), *_modules()}


def _modules() -> set[str]:
    """What this process has loaded of Python, which is what the lab in the machine will load."""
    modules = list(sys.modules.values())
    files = [getattr(module, name, None) for module in modules for name in ("__file__", "__cached__")]
    return {file for file in files if file and os.path.exists(file)}


def _libraries(programs: list[str]) -> set[str]:
    """By ldd(1), which complains of the scripts among them."""
    shown = subprocess.run(["ldd", *programs], capture_output=True, text=True).stdout
    return set(re.findall(r"^\t(?:.* => )?(/\S+) \(", shown, re.MULTILINE))
