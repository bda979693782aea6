"""What a run asks for, runs and writes, recorded in the sandbox router."""

import contextlib
import dataclasses
import pathlib
import stat
from collections.abc import Iterator

from sandbox.router import Router

from bench.documents import host_names, kernel_tunnels

SCRIPT = pathlib.Path(__file__).with_name("rebuild.sh")
SCRIPT_PATH = "/run/sandbox/bin:/usr/sbin:/usr/bin:/sbin:/bin"
RUN_SECONDS = 300
ANSWER = "203.0.113.99"  # what every host name resolves to
OF_NO_RUN = ("ping",)  # the daemon's look at its openvpn children, which may come right behind its first run
MOST_SHOWN = 500
OF_THE_DAEMON = ("/run/tunnel_mngr.pid", "/run/connect_")
START_REQUEST = "/api/waninfo/wans"
FOLDERS = ("/run", "/run/ipsec", "/run/ipsec/cacerts", "/run/ipsec/certs", "/run/ipsec/private")


class Difference(Exception):
    """Two runs that must be alike are not; the text tells the first difference."""


@dataclasses.dataclass
class Recording:
    """One run. `commands` are as the shell got them, for the floor to repeat; `calls` are the argument vectors that
    arrived, those of the openvpn children sorted, since they run side by side; `files` are the contents by path, with
    the mode where the file is given one."""

    requests: list[str]
    commands: list[str]
    calls: list[list[str]]
    files: dict[str, tuple[int | None, bytes]]

    def require_same(self, other: "Recording", what: str) -> None:
        """Raises Difference unless both made the same requests, commands and files."""
        _require_equal(self.requests, other.requests, f"{what}: requests")
        _require_equal(self.calls, other.calls, f"{what}: commands")
        _require_equal(sorted(self.files.items()), sorted(other.files.items()), f"{what}: files")


def record_program(program: pathlib.Path, documents: dict) -> Recording:
    """The first run of the daemon: where a single run ends, its openvpn children end with it, some before they are
    openvpn. The first request is left out, as with that the process starts, before its run."""
    with _router(documents, program) as router:
        daemon = router.daemon(timeout=RUN_SECONDS)
        recording = _recorded(router)
        daemon.terminate()
    if recording.requests[:1] != [START_REQUEST]:
        raise Difference(f"the program began with {recording.requests[:1]}")
    recording.requests.pop(0)
    return recording


def record_script(documents: dict) -> Recording:
    """One run of the shell script. Each of its commands is a direct execution, not a text for a shell."""
    with _router(documents) as router:
        done = router.exec(["/run/sandbox/sh", str(SCRIPT)], timeout=RUN_SECONDS, environment={"PATH": SCRIPT_PATH})
        if done.status != 0 or done.stderr:
            raise Difference(f"the shell script ended with status {done.status}: {done.stderr}")
        return _recorded(router)


@contextlib.contextmanager
def _router(documents: dict, program: pathlib.Path | None = None) -> Iterator[Router]:
    with Router(program, documents) as router:
        router.make_ipsec_folders()
        router.preset_gre(*kernel_tunnels(documents))
        for host in host_names(documents):
            router.dns.set(host, ANSWER)
        yield router


def _recorded(router: Router) -> Recording:
    """To be asked when the run has begun; waits for its end."""
    router.wait_for("end", program="firewall", timeout=RUN_SECONDS)
    openvpn_tunnels = len({tunnel["name"] for tunnel in router.documents["ovpnTunnels"] if tunnel["enabled"]})
    if openvpn_tunnels:
        router.wait_for("exec", program="openvpn", count=openvpn_tunnels)
    calls = [event.argv for event in router.find("exec") if event.program not in OF_NO_RUN]
    side_by_side = next(i for i, call in enumerate(calls) if call[0] == "firewall") + 1
    commands = [("system " if event.shell else "exec ") + event.text for event in router.find("command")
                if event.text.split()[0] not in OF_NO_RUN]
    return Recording([event.text for event in router.find("api")], commands,
                     calls[:side_by_side] + sorted(calls[side_by_side:]), _files(router))


def _files(router: Router) -> dict[str, tuple[int | None, bytes]]:
    """The PID file and what a ping found are the daemon's and of no run. No mode is given to certificates and keys;
    theirs is whatever the umask leaves."""
    paths = [f"{folder}/{name}" for folder in FOLDERS for name in router.list_folder(folder)]
    modes = {path: router.stat(path)["mode"] for path in paths if not path.startswith(OF_THE_DAEMON)}
    return {path: (None if path.endswith(".pem") else mode, router.read_bytes(path))
            for path, mode in modes.items() if stat.S_ISREG(mode)}


def _require_equal(expected: list, found: list, what: str) -> None:
    if expected == found:
        return
    for number, pair in enumerate(zip(expected, found)):
        if pair[0] != pair[1]:
            raise Difference(f"{what} differ at number {number}:\n{_shown(pair[0])}\n{_shown(pair[1])}")
    raise Difference(f"{what} differ: {len(expected)} and {len(found)}")


def _shown(value) -> str:
    text = repr(value)
    return text if len(text) <= MOST_SHOWN else text[:MOST_SHOWN] + " ..."
