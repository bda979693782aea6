"""Whether `tunnelctl plan` says what the daemon then does: commands, files, modes, children and lines of the log, byte by
byte."""

import collections
import contextlib
import itertools
import json
import os

from companion import companion
from daemon_stories import start
from sandbox.router import Router

FOLDERS = ("/run", "/run/ipsec", "/run/ipsec/cacerts", "/run/ipsec/certs", "/run/ipsec/private")
RUN_IS_OVER = ("[TUNNEL_MNGR] v_apFqdnMonitor size", "[TUNNEL_MNGR] Exception caught")
RUN_BEGINS = "[TUNNEL_MNGR] MANAGING TUNNELS"

# The pause behind the restart of the IPsec service is short, or the comparisons would mostly wait.
SHIM = """
#include <sys/syscall.h>
#include <time.h>
int clock_nanosleep(clockid_t clock, int flags, const struct timespec *time, struct timespec *left) {
  const struct timespec instead = {0, 1000};
  return -syscall(SYS_clock_nanosleep, clock, flags, time->tv_sec >= 1 ? &instead : time, left);
}
"""


def plan(router: Router, *arguments: str) -> dict:
    """What tunnelctl plans in the router, whose programs it finds as the daemon does."""
    program = router.program_path
    router.program_path = companion(program)
    try:
        done = router.run("plan", "--json", "--show-secrets", "--printlvl", "100", *arguments)
    finally:
        router.program_path = program
    planned = json.loads(done.stdout)
    unserved = done.stderr.startswith("tunnelctl: the configuration API ")
    assert done.status == (0 if planned["outcome"] == "done" else 2 if unserved else 1), done.stderr
    return planned


def snapshot(router: Router) -> dict[str, bytes]:
    """All files that the program may write, with their contents; what it does not write itself is left out."""
    contents = {}
    for folder in FOLDERS:
        for name in router.list_folder(folder):
            path = f"{folder}/{name}"
            if folder == "/run" and (not name.startswith("openvpn_") or name.endswith(".status")):
                continue
            data = router.read_bytes(path) if router.stat(path)["mode"] & 0o170000 == 0o100000 else None
            if data is not None:
                contents[path] = data
    return contents


def expected_snapshot(before: dict[str, bytes], planned: dict) -> dict[str, bytes]:
    after = dict(before)
    for path, file in planned["files"].items():
        path = os.path.normpath(path.replace("/var/run/", "/run/", 1))
        if file["after"] is None:
            after.pop(path, None)
        else:
            after[path] = file["after"].encode("utf-8", "surrogateescape")
    return after


def planned_commands(planned: dict) -> tuple[list[str], collections.Counter]:
    """Those of the program itself in their order, and those of its children."""
    own = [act["run"] for act in planned["acts"] if "run" in act and "child" not in act]
    children = [act["run"] if "run" in act else " ".join(act["start"]) for act in planned["acts"] if "child" in act]
    return own, collections.Counter(children)


def is_end_of_run(event) -> bool:
    return event.kind == "log" and event.message.startswith(RUN_IS_OVER)


def assert_alike(what: str, done: list, planned: list, documents: dict) -> None:
    different = [pair for pair in itertools.zip_longest(done, planned) if pair[0] != pair[1]]
    assert not different, f"{what}: done {different[0][0]!r}, planned {different[0][1]!r}, with {json.dumps(documents)}"


class Comparison:
    """A daemon in a router, and what is compared of each of its runs."""

    def __init__(self, router: Router):
        self.router = router
        self.daemon = start(router)

    def compare(self, documents: dict, answers: dict[str, bytes] | None = None) -> dict:
        """Plans a run on these documents, or on `answers` of the API in place of some (by request), has the daemon perform
        it, and asserts that both are alike."""
        router = self.router
        with router.documents.edit() as current:
            current.clear()
            current.update(documents)
        router.api.reset()
        for request, body in (answers or {}).items():
            router.api.on(request, body=body)
        planned = plan(router)
        before = snapshot(router)
        mark = router.mark("the run")
        self.daemon.signal(1)
        over = router.wait_for(is_end_of_run, since=mark, timeout=60)
        own, children = planned_commands(planned)
        with contextlib.suppress(AssertionError):
            router.wait_until(lambda: self.done_by_children(mark) == children, "the children's commands", 20)
        assert_alike("children", *(sorted(counts.elements()) for counts in (self.done_by_children(mark), children)), documents)
        done = [command.text for command in router.commands(mark) if command.event.parent == self.daemon.pid
                and command.event.shell and not command.text.startswith("ping ")]
        assert_alike("commands", done, own, documents)
        assert_alike("files", sorted(snapshot(router).items()), sorted(expected_snapshot(before, planned).items()), documents)
        self.compare_modes(planned)
        planned_lines = [f"{line['level']} {line['text']}" for line in planned["log"] if "didn't exist" not in line["text"]]
        assert_alike("lines", self.lines(mark, over), planned_lines, documents)
        assert planned["outcome"] == "threw" or not over.message.startswith(RUN_IS_OVER[1]), documents
        return planned

    def done_by_children(self, mark: int) -> collections.Counter:
        """What they run through the shell, and what they become. A shell's own children are none of these: where a name
        makes a shell start something by itself, the program knows nothing of that."""
        return collections.Counter(command.text for command in self.router.commands(mark)
                                   if command.program == "openvpn" and not command.event.shell
                                   or command.event.shell and command.event.parent != self.daemon.pid)

    def compare_modes(self, planned: dict) -> None:
        for path, file in planned["files"].items():
            if file["after"] is not None:
                mode = self.router.stat(os.path.normpath(path))["mode"] & 0o7777
                assert f"{mode:04o}" == file.get("mode", "0644"), path

    def lines(self, mark: int, over) -> list[str]:
        """The lines of the run. Those of children come when they come, and a supervision pass has its own."""
        lines = [event for event in self.router.log_lines(since=mark) if event.number < over.number]
        begin = next(i for i, event in enumerate(lines) if event.message == RUN_BEGINS)
        return [event.text for event in lines[begin:] if "didn't exist" not in event.text and "[OVPN] ping" not in event.text]
