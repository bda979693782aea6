"""Outside: Debian's IPsec service in place of the stand-in `ipsec`, private to a router like everything in there."""

import os
import re
from typing import NamedTuple

from sandbox.router import Router, RouterError

SERVICE_PROGRAMS = ("/usr/sbin/ipsec", "/usr/lib/ipsec/starter", "/usr/lib/ipsec/charon")
PLUGIN_FILE = "/usr/lib/ipsec/plugins/libstrongswan-{}.so"
PLUGINS = ("random", "nonce", "drbg", "aes", "sha1", "sha2", "md5", "hmac", "kdf", "gmp", "openssl", "x509", "pubkey", "pkcs1",
           "pkcs8", "pem", "constraints", "kernel-netlink", "socket-default", "stroke")
USER_SPACE_ESP = "kernel-libipsec"
SETTINGS = "/run/strongswan.conf"
LOG = "/run/charon.log"

# At the level 2 of "cfg" the service logs which proposals it understood; "ike_name" has it say for which connection.
SETTINGS_TEXT = """charon {{
  load_modular = yes
  plugins {{
{plugins}
  }}
  filelog {{
    router {{
      path = {log}
      append = no
      ike_name = yes
      flush_line = yes
      default = 1
      cfg = 2
    }}
  }}
}}
"""

# Where the service looks, and where the daemon writes.
PLACES = {"/etc/strongswan.conf": SETTINGS, "/etc/ipsec.conf": "/run/ipsec/ipsec.conf",
          "/etc/ipsec.secrets": "/run/ipsec/ipsec.secrets", "/etc/ipsec.d/cacerts": "/run/ipsec/cacerts",
          "/etc/ipsec.d/certs": "/run/ipsec/certs", "/etc/ipsec.d/private": "/run/ipsec/private"}

PEER = re.compile(r"^(?P<name>[^ ]+):  (?P<left>\S+)\.\.\.(?P<right>\S+)  (?P<exchange>IKEv[12](?: Aggressive)?)")
END = re.compile(r"^[^ ]+:   (?P<side>local|remote): +(?:\[(?P<id>.*)\] )?uses (?P<method>.*) authentication")
CHILD = re.compile(r"^(?P<name>[^ ]+):   child:  (?P<left>.*) === (?P<right>.*) TUNNEL")
STANDARD_PROPOSAL = re.compile(r"_128/\w+_192/")  # only these have several lengths of a key
PROPOSALS = re.compile(r"<([^|>]+)\|\d+> configured proposals: (.*)")
NORMAL_STARTER_LINES = re.compile(
    r"Starting strongSwan|charon \(\d+\) started after|charon stopped after|ipsec starter stopped")


class Connection(NamedTuple):
    """A connection as the service's status shows it. The service keeps connections that have all but their networks in
    common under the name of the first of them, `peer`."""

    peer: str
    left: str
    right: str
    exchange: str  # IKEv1, IKEv1 Aggressive, IKEv2
    left_id: str | None  # None: any
    right_id: str | None
    method: str  # of both ends
    left_network: str
    right_network: str


class IpsecService:
    """The service of a router. From its making on the program's `ipsec` commands, recorded as ever, are executed.

    user_space_esp  the service encrypts packets itself, over a tun device, and needs no ESP of the kernel
    """

    def __init__(self, router: Router, *, user_space_esp: bool = False):
        plugins = [*PLUGINS, *([USER_SPACE_ESP] if user_space_esp else [])]
        needed = [*SERVICE_PROGRAMS, *map(PLUGIN_FILE.format, plugins)]
        if missing := [path for path in needed if not os.path.exists(path)]:
            raise RouterError(f"the IPsec service is not installed completely: {' '.join(missing)} missing")
        self._router = router
        router.make_ipsec_folders()
        loads = "\n".join(f"    {plugin} {{ load = yes\n    }}" for plugin in plugins)
        router.write_file(SETTINGS, SETTINGS_TEXT.format(plugins=loads, log=LOG))
        for path in ("/run/ipsec/ipsec.conf", "/run/ipsec/ipsec.secrets"):
            if not router.exists(path):
                router.write_file(path, "")
        for target, source in PLACES.items():
            self._run("mount", "--bind", source, target)
        router.program("ipsec").on(real="run")

    # ---- what it says ----

    def status(self) -> str:
        """Its own listing. Empty when it does not run."""
        return self._router.exec(["ipsec", "statusall"]).stdout

    def connections(self) -> dict[str, Connection]:
        """The connections that it knows, by name."""
        return parse_connections(self.status())

    def log(self) -> str:
        """All that it has logged since it was started last."""
        return self._router.read_file(LOG) or ""

    def proposals(self, connection: str) -> dict[str, list[str]]:
        """The proposals that it has understood for a connection, in its notation: "IKE" from the first packet on, "ESP"
        as soon as the peer has authenticated itself. The standard ones that it adds on its own are left out."""
        understood: dict[str, list[str]] = {}
        for name, text in PROPOSALS.findall(self.log()):
            if name == connection:
                protocol = text.partition(":")[0]
                understood[protocol] = [proposal.removeprefix(f"{protocol}:") for proposal in text.split(", ")
                                        if not STANDARD_PROPOSAL.search(proposal)]
        return understood

    def complaints_about_configuration(self) -> list[str]:
        """What the part of it that reads ipsec.conf has told the system log, but for the lines of any start."""
        lines = [event.text.strip() for event in self._router.find("log", ident="ipsec_starter")]
        return [line for line in lines if line and not NORMAL_STARTER_LINES.search(line)]

    # ---- waiting ----

    def wait_for_connections(self, *names: str, timeout: float = 15) -> None:
        """Waits until it is up and has been told of all these connections, and to initiate each."""
        wanted = [f"received stroke: initiate '{name}'" for name in names]

        def told() -> bool:
            return bool(self.status()) and all(text in self.log() for text in wanted)
        self._router.wait_until(told, f"connections {names}", timeout)

    def wait_for_status(self, pattern: str, timeout: float = 20) -> str:
        """Waits until its listing contains the pattern; returns the listing."""
        def listing() -> str | None:
            text = self.status()
            return text if re.search(pattern, text, re.MULTILINE) else None
        return self._router.wait_until(listing, f"{pattern!r} in the service's status", timeout)

    def _run(self, *argv: str) -> None:
        done = self._router.exec(list(argv))
        if done.status != 0:
            raise RouterError(f"{' '.join(argv)}: {done.stderr}")


def parse_connections(status: str) -> dict[str, Connection]:
    """The connections of a listing, by name."""
    connections, peer, ends = {}, None, {}
    for line in status.splitlines():
        if match := PEER.match(line):
            peer, ends = match, {}
        elif match := END.match(line):
            ends[match["side"]] = match
        elif (match := CHILD.match(line)) and peer:
            methods = dict.fromkeys(ends[side]["method"] for side in ("local", "remote"))
            connections[match["name"]] = Connection(
                peer["name"], peer["left"], peer["right"], peer["exchange"], ends["local"]["id"], ends["remote"]["id"],
                " / ".join(methods), match["left"], match["right"])
    return connections
