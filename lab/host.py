"""Whether this kernel can carry the lab, found out by trying in namespaces that end at once.

python3 -m lab.host prints what is lacking and leaves with 0 if nothing is."""

import os
import pathlib
import subprocess
import sys

PROFILES = pathlib.Path("/sys/kernel/security/apparmor/profiles")
CIPHERS = f"enc 'cbc(aes)' 0x{'01' * 16} auth 'hmac(sha256)' 0x{'02' * 32}"
ATTEMPTS = {
    "namespaces": "true",
    "GRE": "ip tunnel add try0 mode gre local 192.0.2.1 remote 192.0.2.2",
    "ESP": f"ip xfrm state add src 192.0.2.1 dst 192.0.2.2 proto esp spi 1 mode tunnel {CIPHERS}",
    "tun": "ip tuntap add try1 mode tun",
    "veth": "ip link add type veth",
}


def lacking() -> str:
    """Why the lab cannot run here, in a few words, or nothing."""
    if os.geteuid() != 0:
        return "not the superuser"
    possible = _possible()
    if missing := [what for what in ATTEMPTS if what not in possible]:
        return "no " + ", ".join(missing if "namespaces" in possible else ["namespaces"])
    return "the IPsec service is confined to its usual files" if _is_confined("charon") else ""


def _possible() -> set[str]:
    script = "\n".join(f"{attempt} 2>/dev/null && echo {what}" for what, attempt in ATTEMPTS.items())
    command = ["unshare", "--mount", "--net", "--pid", "--ipc", "--uts", "--fork", "sh", "-c", script]
    return set(subprocess.run(command, capture_output=True, text=True).stdout.split())


def _is_confined(program: str) -> bool:
    """Whether AppArmor knows the program: its profile allows none of the files that the routers have under /run."""
    try:
        return program in PROFILES.read_text()
    except OSError:
        return False  # no AppArmor


if __name__ == "__main__":
    answer = lacking()
    print(answer or "nothing is lacking")
    sys.exit(1 if answer else 0)
