"""The parts of scripts/boot that need no machine: the process that does in it what it is told, what is laid over its
disk, and the package for the upgrade."""

import io
import json
import os
import shutil
import stat
import subprocess

import pytest

from boot import agent, furnishing, package
from boot.machine import archive_entries
from lab.documents import Keys
from lab.topology import SITE_A, SITE_B

CONTROL = """Package: tunnel-mngr
Version: 1.0
Architecture: all
Maintainer: Nobody <nobody@example.net>
Description: nothing
"""


class Line(io.BytesIO):
    """A serial line: requests are read from it, and what is written to it is kept."""

    def __init__(self, *requests: dict):
        super().__init__(b"".join(json.dumps(request).encode() + b"\n" for request in requests))
        self.written = b""

    def write(self, data: bytes) -> int:
        """No more than a few bytes at once."""
        self.written += data[:7]
        return len(data[:7])

    def answers(self) -> list[dict]:
        agent.serve(self)
        return [json.loads(line) for line in self.written.splitlines()]


@pytest.fixture
def keys(tmp_path) -> Keys:
    keys = Keys(tmp_path)
    keys.make_certificates([SITE_A, SITE_B])
    return keys


def test_the_agent_says_that_it_is_ready_and_runs_commands():
    ready, done, failed = Line({"run": "echo here; echo there >&2"}, {"run": "exit 3"}).answers()
    assert len(ready["ready"]) == 36
    assert done == {"status": 0, "output": "here\n", "errors": "there\n"}
    assert failed["status"] == 3


def test_the_agent_writes_and_reads_files_and_tells_when_it_cannot(tmp_path):
    folder, file = str(tmp_path / "folder"), str(tmp_path / "folder" / "file")
    answers = Line({"write": file, "text": "text\n"}, {"read": file}, {"read": f"{file}s"}, {"list": folder},
                   {"list": file}).answers()
    assert answers[1:5] == [{}, {"text": "text\n"}, {"text": None}, {"names": ["file"]}]
    assert "Not a directory" in answers[5]["error"]


def test_the_agent_lists_processes_with_their_parents():
    with subprocess.Popen(["sleep", "60"]) as child:
        try:
            _, found = Line({"processes": True}).answers()
        finally:
            child.kill()
    processes = {pid: (parent, arguments) for pid, parent, _, arguments in found["processes"]}
    assert processes[child.pid] == (os.getpid(), ["sleep", "60"])


def test_what_is_laid_over_the_disk_has_all_folders_and_no_place_is_a_link(keys):
    """Debian's /bin, /lib and /sbin are links, which a folder cannot be laid over."""
    entries = archive_entries({}, furnishing.laid(furnishing.documents(keys), keys))
    names = [name for name, _, _ in entries]
    assert len(set(names)) == len(names)
    for name in names:
        assert "/" not in name or name.rpartition("/")[0] in names[:names.index(name)], name
    tops = {name.split("/")[1] for name in names if name.startswith("laid/")}
    assert tops == {"etc", "opt", "usr"}
    modes = {name: mode for name, mode, _ in entries}
    assert modes["laid/usr/local/sbin/firewall"] == stat.S_IFREG | 0o755
    assert stat.S_ISLNK(modes["laid/etc/systemd/system/multi-user.target.wants/agent.service"])


@pytest.mark.skipif(not shutil.which("dpkg-deb"), reason="there is no dpkg-deb here")
def test_the_package_for_the_upgrade_is_the_same_and_newer(tmp_path):
    (tmp_path / "tree" / "DEBIAN").mkdir(parents=True)
    (tmp_path / "tree" / "DEBIAN" / "control").write_text(CONTROL)
    (tmp_path / "tree" / "file").write_text("the same")
    subprocess.run(["dpkg-deb", "--build", tmp_path / "tree", tmp_path / "old.deb"], check=True, capture_output=True)

    newer = package.newer(tmp_path / "old.deb", tmp_path)
    version = subprocess.run(["dpkg-deb", "--field", newer, "Version"], capture_output=True, text=True).stdout.strip()
    assert subprocess.run(["dpkg", "--compare-versions", version, "gt", "1.0"]).returncode == 0
    contents = subprocess.run(["dpkg-deb", "--fsys-tarfile", newer], capture_output=True).stdout
    assert b"the same" in contents
