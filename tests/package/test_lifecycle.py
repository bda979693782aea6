"""What debian/README.Debian promises on installation, upgrade, removal and purge, with the init script in charge.
scripts/package --test runs this as root."""

import os

import package
import pytest
from root import DOWNLOADED, Root

PID_FILE, SEMAPHORE = "run/tunnel_mngr.pid", "dev/shm/sem.TUNNEL_MANAGER"
LINK = "etc/systemd/system/multi-user.target.wants/tunnel_mngr.service"
FOLDERS = {"ipsec": "755", "ipsec/cacerts": "700", "ipsec/certs": "700", "ipsec/private": "700"}
KEYS = ("run/ipsec/ipsec.conf", "run/ipsec/ipsec.secrets", "run/ipsec/private/office.pem", "run/ipsec/certs/office.pem",
        "run/ipsec/cacerts/office.pem", "run/openvpn_office.conf", "run/openvpn_office.status",
        "run/connect_office.status")


@pytest.fixture
def root():
    with Root() as fresh:
        decide(fresh, 0)
        yield fresh


def decide(root: Root, answer: int) -> None:
    """Has the administrator allow that packages start daemons (0), which without an init nobody else does, or forbid it
    (101)."""
    root.write("usr/sbin/policy-rc.d", f"#!/bin/sh\nexit {answer}\n")
    (root.path / "usr/sbin/policy-rc.d").chmod(0o755)


@pytest.fixture(scope="module")
def newer(tmp_path_factory):
    """The same package with the version after this one."""
    folder = tmp_path_factory.mktemp("newer")
    package.output("dpkg-deb", "--raw-extract", package.path(), folder / "package")
    control = folder / "package" / "DEBIAN" / "control"
    version = package.field("Version")
    control.write_text(control.read_text().replace(f"Version: {version}\n", f"Version: {version}+1\n"))
    package.output("dpkg-deb", "--root-owner-group", "--build", folder / "package", folder / "newer.deb")
    return folder / "newer.deb"


def daemon(root: Root) -> int | None:
    """The process id of the one daemon, as the PID file has it too; None while that is not the case."""
    found = [entry.name for entry in (root.path / "proc").iterdir()
             if entry.name.isdigit() and (entry / "comm").read_text() == "tunnel_mngr\n"]
    written = (root.path / PID_FILE).read_text().strip() if root.exists(PID_FILE) else None
    return int(written) if found == [written] and root.exists(SEMAPHORE) else None


def started(root: Root) -> int:
    root.wait_until(lambda: daemon(root), "one daemon with semaphore and PID file")
    return daemon(root)


def is_gone(root: Root, number: int) -> bool:
    return not root.exists(f"proc/{number}")


def installed(root: Root) -> int:
    root.install(package.path())
    return started(root)


def test_it_is_installed_enabled_and_started(root):
    installed(root)
    assert root.exists(LINK)
    for folder, mode in FOLDERS.items():
        assert root.run("stat", "-c", "%a %U %G", f"/run/{folder}").split() == [mode, "root", "root"]
    assert package.field("Version") in root.run("tunnelctl", "--version")


def test_systemd_s_way_of_making_directories_is_taken_where_it_is_there(root):
    root.run("sh", "-c", f"dpkg --install /var/cache/apt/archives/{DOWNLOADED}_*.deb")
    root.write("etc/tmpfiles.d/tunnel_mngr.conf", "d /run/ipsec 0700 root root -\n")  # which systemd prefers
    decide(root, 101)
    root.install(package.path())
    assert root.run("find", "/run/ipsec", "-printf", "%p %m\n") == "/run/ipsec 700\n"


def test_nothing_is_started_where_the_administrator_forbids_it(root):
    decide(root, 101)
    root.install(package.path())
    assert root.exists(LINK)
    assert not root.exists(PID_FILE) and not root.exists(SEMAPHORE)


def test_an_upgrade_replaces_the_daemon(root, newer):
    old = installed(root)
    root.install(newer)
    assert is_gone(root, old)
    new = started(root)
    assert os.readlink(root.path / f"proc/{new}/exe").endswith("/usr/sbin/tunnel_mngr")  # and not "... (deleted)"


def test_an_upgrade_starts_the_daemon_that_was_killed(root, newer):
    old = installed(root)
    root.run("sh", "-c", f"kill -KILL {old}")
    root.wait_until(lambda: is_gone(root, old), "its end")
    assert root.exists(SEMAPHORE) and root.exists(PID_FILE)
    root.install(newer)
    started(root)


def test_an_upgrade_leaves_a_disabled_unit_disabled(root, newer):
    installed(root)
    os.remove(root.path / LINK)  # which is what systemctl does
    root.install(newer)
    assert not root.exists(LINK)


def test_removal_stops_the_daemon_and_keeps_the_last_run_s_files(root):
    old = installed(root)
    for name in KEYS:
        root.write(name)
    root.run("dpkg", "--remove", "tunnel-mngr")
    assert is_gone(root, old)
    assert not root.exists(PID_FILE) and not root.exists(SEMAPHORE)
    assert all(map(root.exists, KEYS))
    assert root.run("sh", "/etc/init.d/tunnel_mngr", "start") == ""


def test_a_purge_leaves_nothing(root):
    before = root.files()
    installed(root)
    root.run("dpkg", "--remove", "tunnel-mngr")
    for name in (*KEYS, PID_FILE, SEMAPHORE):
        root.write(name)
    root.run("dpkg", "--purge", "tunnel-mngr")
    assert root.files() - before == set()


def test_a_purge_leaves_what_others_have_put_beside_the_files(root):
    installed(root)
    root.write("run/ipsec/other.conf")
    root.run("dpkg", "--purge", "tunnel-mngr")
    assert root.run("find", "/run/ipsec").split() == ["/run/ipsec", "/run/ipsec/other.conf"]


@pytest.mark.parametrize("way", ["--remove", "--purge"])
def test_it_can_be_installed_again(root, way):
    installed(root)
    root.run("dpkg", way, "tunnel-mngr")
    installed(root)
    assert root.exists(LINK) and root.exists("run/ipsec/private")
