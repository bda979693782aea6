"""Outside: what a test changes in a running router: its API, name server, system log, programs and documents."""

import contextlib
import copy
import hashlib
import json
import os
import pathlib
from collections.abc import Iterator, MutableMapping


class _Face:
    """A server inside; `_call` runs one of its methods there."""

    server = ""

    def __init__(self, ask):
        self._ask = ask

    def _call(self, method: str, **arguments):
        return self._ask("server", server=self.server, method=method, arguments=arguments)


class Api(_Face):
    """The configuration API."""

    server = "api"

    def on(self, target: str | None = None, *, times: int | None = None, **how) -> None:
        """Answers requests otherwise from now on: those for `target` (path and query exactly as requested, or one of
        "wans", "tunnels", "openvpn", "syslog"; None: all), the next `times` of them (None: until `reset`). The last
        rule that fits counts. How, to be combined as it makes sense:

          delay=SECONDS       before the first byte
          dribble=(N, S)      N bytes at a time, S seconds apart
          body=BYTES|TEXT     this body instead of the document in its envelope
          envelope=OBJECT     this JSON value as the body: {"code": 404, "result": []}
          http_status=N       this HTTP status
          cut=N               send N bytes of the body (Content-Length tells its whole size), then close
          close=True          close with nothing sent
          hang=True           send nothing until `release`, then go on as the rest says
        """
        if isinstance(how.get("body"), bytes):
            how["body"] = how["body"].decode("latin-1")
        elif "body" in how:
            how["body"] = how["body"].encode("utf-8", "surrogateescape").decode("latin-1")
        self._call("on", target=target, times=times, how=how)

    def reset(self) -> None:
        """Forgets every rule; requests that are being held stay held."""
        self._call("reset")

    def release(self) -> None:
        """Goes on with the requests that hang now."""
        self._call("release")

    def present(self) -> None:
        """Listens (again), on a new socket."""
        self._call("listen", mode="present")

    def absent(self) -> None:
        """Removes the socket."""
        self._call("listen", mode="absent")

    def refuse(self) -> None:
        """A socket file on which nobody listens: connecting is refused."""
        self._call("listen", mode="refusing")

    def deaf(self) -> None:
        """A socket that takes connections, which nobody accepts."""
        self._call("listen", mode="deaf")


class Dns(_Face):
    """The name server. An answer is an address, a list of addresses, or one of "NXDOMAIN", "NODATA", "FORMERR",
    "SERVFAIL", "REFUSED", "NOTIMP" and "SILENT"."""

    server = "dns"

    def set(self, name: str, answer: str | list[str], *, delay: float = 0, hold: bool = False) -> None:
        """Answers queries for `name` with `answer`, after `delay` seconds; with `hold`, not before `release`."""
        self.rotate(name, [answer], delay=delay, hold=hold)

    def rotate(self, name: str, answers: list[str | list[str]], *, delay: float = 0, hold: bool = False) -> None:
        """Answers the queries one after the other with these, and over again."""
        lists = [answer if isinstance(answer, list) or answer.isalpha() else [answer] for answer in answers]
        self._call("set", name=name, answers=lists, delay=delay, hold=hold)

    def remove(self, name: str) -> None:
        """Makes the name unknown: NXDOMAIN, as all names are at the start."""
        self._call("remove", name=name)

    def release(self) -> None:
        """Answers the queries that are held now."""
        self._call("release")


class Syslog(_Face):
    """The system log's socket."""

    server = "syslog"

    def present(self) -> None:
        """Listens; after `block`, goes on reading what has queued up."""
        self._call("listen", mode="present")

    def absent(self) -> None:
        """Removes the socket."""
        self._call("listen", mode="absent")

    def restart(self) -> None:
        """Removes the socket and makes a new one, as a restarted log daemon does."""
        self.absent()
        self.present()

    def block(self) -> None:
        """Leaves the socket as it is but reads no more."""
        self._call("listen", mode="blocked")


class Program(_Face):
    """One of the stand-ins: "ip", "ipsec", "openvpn", "firewall", "ping", "mkdir", "rm"."""

    server = "programs"

    def __init__(self, ask, name: str):
        super().__init__(ask)
        self.name = name

    def on(self, arguments: list | None = None, *, times: int | None = None, **how) -> None:
        """Behaves otherwise from now on when called with these arguments (without the program's own name; a list that
        ends in ... is a beginning; None: any), the next `times` times (None: until `reset`). The last rule that fits
        counts.

          status=N            exit status; negative: die of that signal
          stdout=, stderr=    texts to write
          delay=SECONDS       before doing anything
          stay=True           stay until SIGTERM, SIGINT or `exit`, then leave with `status`
          ignore_term=True    (with stay) record signals and stay
          term_delay=SECONDS  (with stay) from the first signal to the exit
          real="run"          run the real program and record its exit status
          real="become"       become the real program: same process, exit status unknown

        Without status, stdout, stderr, stay and real, the program does what it does by default."""
        prefix = bool(arguments) and arguments[-1] is ...
        words = arguments[:-1] if prefix else arguments
        self._call("on", program=self.name, arguments=words, prefix=prefix, times=times, how=how)

    def reset(self) -> None:
        """Forgets every rule."""
        self._call("reset", program=self.name)

    def missing(self) -> None:
        """Takes the program off the search path."""
        self._call("install", program=self.name, present=False)

    def restore(self) -> None:
        """Puts it back."""
        self._call("install", program=self.name, present=True)

    def inspect(self) -> None:
        """Has `details` of each start recorded as is always done for openvpn: environment, signals (blocked, ignored,
        caught: lists of numbers), descriptors (number text: target), umask, group, session, directory."""
        self._call("inspect", program=self.name)

    def exit(self, status: int = 0, pid: int | None = None) -> int:
        """Has the staying instances (or the one with that pid) leave with `status`; returns how many were told."""
        return self._call("tell", program=self.name, pid=pid, status=status)


class Documents(MutableMapping):
    """The API's documents, a mapping from member ("wans", "greTunnels", "ipsecTunnels", "ni", "ovpnTunnels", "syslog")
    to JSON value. Setting or deleting a member takes effect at once; to change something deeper, use `edit`."""

    def __init__(self, ask, documents: dict):
        self._ask = ask
        self._documents = copy.deepcopy(documents)
        self._keep()

    def _keep(self) -> None:
        """Where the environment names a folder for it, leaves what the API serves there."""
        if folder := os.environ.get("TUNNEL_MNGR_KEEP_DOCUMENTS"):
            text = json.dumps(self._documents, sort_keys=True)
            pathlib.Path(folder, hashlib.sha256(text.encode()).hexdigest()[:20] + ".json").write_text(text)

    def _publish(self) -> None:
        self._keep()
        self._ask("server", server="api", method="set_documents", arguments={"documents": self._documents})

    def __getitem__(self, member: str):
        return copy.deepcopy(self._documents[member])

    def __setitem__(self, member: str, value) -> None:
        self._documents[member] = copy.deepcopy(value)
        self._publish()

    def __delitem__(self, member: str) -> None:
        del self._documents[member]
        self._publish()

    def __iter__(self) -> Iterator[str]:
        return iter(self._documents)

    def __len__(self) -> int:
        return len(self._documents)

    def update(self, *arguments, **members) -> None:
        """Sets several members at the same moment."""
        self._documents.update(*copy.deepcopy(arguments), **copy.deepcopy(members))
        self._publish()

    @contextlib.contextmanager
    def edit(self) -> Iterator[dict]:
        """`with documents.edit() as d: d["greTunnels"][0]["enabled"] = False`: published at the end of the block."""
        changed = copy.deepcopy(self._documents)
        yield changed
        self._documents = changed
        self._publish()
