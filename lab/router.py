"""A router: a node with the daemon's fixed paths, a configuration API, a system log and the services, all its own."""

import contextlib
import json
import os
import pathlib
import re
import subprocess
import time
from typing import NamedTuple

from lab import readings
from lab.documents import Documents
from lab.node import COMMAND_SECONDS, CommandFailed, Node
from sandbox.api_server import ApiServer
from sandbox.recorder import Recorder
from sandbox.runs import runs
from sandbox.syslog_collector import SyslogCollector
from sandbox.timeline import Event

PID_FILE = "/run/tunnel_mngr.pid"
INSTANCE = "/dev/shm/sem.TUNNEL_MANAGER"
FIREWALL_RECORD = "/run/lab/firewall"
RUN_FOLDERS = ("/run", "/var/run")  # the latter may be a link to the former
AS_NOBODY = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")
OPEN_EACH = 'for path; do true >>"$path" && echo "$path"; done 2>/dev/null; true'
DAEMON_ARGUMENTS = ["-d", "-p", "100"]
SEARCH_PATH = "/run/lab/bin:/usr/sbin:/usr/bin:/sbin:/bin"
# Of the IPsec service's plugins, those that the tunnels need, whichever the machine has. strongswan.conf(5)
PLUGINS = ("aesni", "aes", "sha1", "sha2", "md5", "hmac", "gmp", "random", "nonce", "drbg", "kdf", "x509", "pubkey",
           "pem", "pkcs1", "pkcs8", "constraints", "kernel-netlink", "socket-default", "stroke")

# The files of /etc that differ from the machine's are mounted over those. The IPsec service is given the daemon's files
# where it expects its own; on a router a link or a setting of the service does the same. It repeats what nobody answers
# every second, not after 4, 11, 24 and 47 seconds: the lab measures the daemon, not these pauses. The new /dev is put
# together below /run and does not stay there: nothing below /run is to be writable by anybody.
FURNISHING = """
set -e
mount --make-rprivate /
mount -t tmpfs -o mode=755 run /run
mkdir -p /run/api /run/ipsec/cacerts /run/ipsec/certs /run/ipsec/private /run/lab/bin
touch /run/ipsec/ipsec.conf /run/ipsec/ipsec.secrets
mount -t proc proc /proc
mount -t sysfs sys /sys
mkdir /run/dev
mount -t tmpfs -o mode=755 dev /run/dev
mkdir /run/dev/net /run/dev/pts /run/dev/shm
cd /dev
cp -a null zero full random urandom tty /run/dev
cp -a net/tun /run/dev/net
mount --rbind pts /run/dev/pts
mount -t tmpfs -o mode=1777 shm /run/dev/shm
ln -s pts/ptmx /run/dev/ptmx
ln -s /proc/self/fd /run/dev/fd
mount --move /run/dev /dev
rmdir /run/dev
cd /run/lab
echo 'nameserver {name_server}' >resolv.conf
echo '127.0.0.1 localhost' >hosts
echo 'hosts: files dns' >nsswitch.conf
for file in resolv.conf hosts nsswitch.conf; do
  target=$(realpath -m /etc/$file)
  case $target in /run/*) mkdir -p $(dirname $target) && touch $target ;; esac
  mount --bind $file $target
done
cat >strongswan.conf <<END
charon {{
  load = {plugins}
  retransmit_timeout = 1
  retransmit_base = 1
  retransmit_tries = 120
}}
END
mount --bind strongswan.conf /etc/strongswan.conf
mount --bind /run/ipsec/ipsec.conf /etc/ipsec.conf
mount --bind /run/ipsec/ipsec.secrets /etc/ipsec.secrets
mount --bind /run/ipsec/cacerts /etc/ipsec.d/cacerts
"""
FIREWALL = f"""#!/bin/sh
echo "$*" >>{FIREWALL_RECORD}
"""


class Programs(NamedTuple):
    """The paths of what is under test."""

    program: str
    companion: str


class Router(Node):
    """Its requests and log lines are recorded in a file in `folder`, one JSON object a line."""

    def __init__(self, name: str, programs: Programs, name_server: str, folder: pathlib.Path, documents: Documents):
        self.documents = documents
        self.record = folder / f"{name}.record"
        self._program, self._companion = programs
        self._name_server = name_server
        super().__init__(name)

    # ---- inside ----

    def prepare(self) -> None:
        script = FURNISHING.format(name_server=self._name_server, plugins=" ".join(PLUGINS))
        result = subprocess.run(["sh", "-c", script], capture_output=True, text=True)
        if result.returncode != 0:
            raise RuntimeError(result.stderr)
        self._install("firewall", FIREWALL)
        os.symlink(self._companion, "/run/lab/bin/tunnelctl")
        pathlib.Path("/proc/sys/net/ipv4/ip_forward").write_text("1")
        # A line that finds no room in the log's queue within a second is lost, and an emulated processor reads slowly.
        pathlib.Path("/proc/sys/net/unix/max_dgram_qlen").write_text("10000")
        file = open(self.record, "w")

        def write(message: dict) -> None:
            file.write(json.dumps(message["event"]) + "\n")
            file.flush()

        recorder = Recorder(write, time.monotonic())
        self._api = ApiServer(recorder, {})
        self._api.listen("present")
        self._log = SyslogCollector(recorder)
        self._log.listen("present")
        self._log.start()

    def _install(self, name: str, script: str) -> None:
        path = pathlib.Path("/run/lab/bin", name)
        path.write_text(script)
        path.chmod(0o755)

    def _set_documents(self, documents: dict) -> None:
        self._api.set_documents(documents)

    def _run_program(self, arguments: list[str]) -> int:
        """With a umask of 0, so that it is the daemon alone that keeps anything from being writable."""
        # A daemon keeps its standard output for life, so nobody may wait for the end of it.
        return subprocess.run([self._program, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=COMMAND_SECONDS, umask=0).returncode

    def _run_script(self, path: str) -> float:
        start = time.monotonic()
        subprocess.run(["sh", path], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return time.monotonic() - start

    def _processes(self) -> list[tuple[int, list[str]]]:
        found = []
        for pid in sorted(int(name) for name in os.listdir("/proc") if name.isdigit()):
            try:
                arguments = pathlib.Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")[:-1]
            except (FileNotFoundError, ProcessLookupError):
                continue  # it has just ended
            if arguments and pid not in (1, os.getpid()):
                found.append((pid, [os.fsdecode(argument) for argument in arguments]))
        return found

    def _modes(self) -> dict[str, int]:
        modes = {}
        for top in {os.path.realpath(path) for path in RUN_FOLDERS}:
            for folder, _, files in os.walk(top):
                for path in (folder, *(os.path.join(folder, name) for name in files)):
                    with contextlib.suppress(FileNotFoundError):  # it has just gone
                        modes[path] = os.lstat(path).st_mode
        return modes

    # ---- what a step does ----

    def install(self, name: str, script: str) -> None:
        """Puts a program before all others on the search path of the daemon."""
        self.ask("_install", name, script)

    def publish(self) -> None:
        """Has the API deliver the documents as they are now."""
        self.ask("_set_documents", self.documents.contents())

    def start(self) -> None:
        """Starts the daemon; returns when it has gone to the background, which is before its first run."""
        self._invoke(*DAEMON_ARGUMENTS)

    def refresh(self) -> None:
        """A second invocation, which asks the daemon for a run, and says so in the log."""
        self._invoke("-p", "100")

    def invoke(self, *arguments: str) -> int:
        """Runs the program and returns its exit status."""
        return self.ask("_run_program", arguments)

    def _invoke(self, *arguments: str) -> None:
        status = self.invoke(*arguments)
        if status != 0:
            raise CommandFailed(f"{self.name}: tunnel_mngr {' '.join(arguments)} left with {status}")

    def run_script(self, path: str) -> float:
        """Runs a shell script, whatever its status, and returns the seconds that it took. What it starts may go on."""
        return self.ask("_run_script", path)

    # ---- what a step looks at ----

    def plan(self) -> dict:
        """What `tunnelctl plan --json` prints, with all keys."""
        return json.loads(self.command("tunnelctl", "plan", "--json", "--show-secrets"))

    def status(self) -> dict:
        """What `tunnelctl status --json` prints."""
        status, output, errors = self.ask("_run", ["tunnelctl", "status", "--json"])
        if errors or json.loads(output)["exitStatus"] != status:
            raise CommandFailed(f"{self.name}: tunnelctl status left with {status}: {errors or output}")
        return json.loads(output)

    def processes(self) -> list[tuple[int, list[str]]]:
        """Pid (inside) and arguments of everything that runs here but the node's own two processes."""
        return self.ask("_processes")

    def daemons(self) -> list[int]:
        return [pid for pid, arguments in self.processes() if arguments == [self._program, *DAEMON_ARGUMENTS]]

    def openvpn_children(self) -> list[tuple[str, int]]:
        """Tunnel name and pid."""
        children = [(pid, arguments) for pid, arguments in self.processes() if arguments[0] == "openvpn"]
        return [(re.fullmatch(r"/var/run/openvpn_(.*)\.conf", arguments[2])[1], pid) for pid, arguments in children]

    def ipsec_services(self) -> list[str]:
        """The names of the IPsec service's processes."""
        names = [os.path.basename(arguments[0]) for _, arguments in self.processes()]
        return sorted(name for name in names if name in ("starter", "charon"))

    def devices(self) -> dict[str, str]:
        """What readings.devices() tells of them."""
        return readings.devices(self.command("ip", "-json", "-details", "address"))

    def device_packets(self, device: str) -> int:
        """Packets that a device has received and sent."""
        return readings.device_packets(self.command("ip", "-json", "-statistics", "link", "show", device))

    def esp_packets(self) -> int:
        """Packets that the ESP states of the kernel have carried, both ways."""
        return readings.esp_packets(self.command("ip", "-statistics", "xfrm", "state"))

    def way_to(self, address: str) -> str:
        """The device through which the kernel sends what goes to an address."""
        return readings.way(self.command("ip", "-json", "route", "get", address))

    def read(self, path: str) -> str:
        """The content of a file; a file that is not there is empty."""
        try:
            return pathlib.Path(self.path(path)).read_text()
        except FileNotFoundError:
            return ""

    def write(self, path: str, text: str) -> None:
        pathlib.Path(self.path(path)).write_text(text)

    def exists(self, path: str) -> bool:
        return os.path.lexists(self.path(path))

    def files(self, folder: str) -> list[str]:
        return sorted(os.listdir(self.path(folder)))

    def modes(self) -> dict[str, int]:
        """By path, the mode of /run and of all that is below it, with the kind of file."""
        return self.ask("_modes")

    def writable_by_anybody(self, *paths: str) -> list[str]:
        """Those files that an unprivileged user can open for writing, found out by trying."""
        return self.command(*AS_NOBODY, "sh", "-c", OPEN_EACH, "sh", *paths).splitlines()

    def events(self) -> list[dict]:
        """What has been recorded so far."""
        complete, _, _ = self.record.read_text().rpartition("\n")
        return [json.loads(line) for line in complete.splitlines()]

    def log(self) -> list[str]:
        """The lines of the system log so far, each with the name of the program that wrote it in front."""
        return [f"{event['ident']}: {event['text'].strip()}" for event in self.events() if event["kind"] == "log"]

    def gre_devices(self) -> dict[str, str]:
        """Those of `devices` that are GRE tunnels."""
        return {name: text for name, text in self.devices().items() if text.startswith("gre ")}

    def run_seconds(self) -> list[float]:
        """The seconds that each of the tunnel management runs took that have ended."""
        return readings.run_seconds(self.events())

    def last_event(self) -> int:
        """The number of the last one that has been recorded."""
        return max((event["number"] for event in self.events()), default=0)

    def runs(self) -> int:
        """How many runs have ended. Asked over and over, so nothing but counted."""
        return self.record.read_text().count(readings.RUN_END)

    def cause(self, since: int) -> str:
        """Why the run began that ended last, as sandbox/runs.py words it. Its WAN monitor is known by a question to the
        API that no line follows, so nobody else may have asked since the event of that number."""
        known = [Event(event) for event in self.events() if event["kind"] != "api" or event["number"] > since]
        return [run for run in runs(known) if run.end][-1].cause
