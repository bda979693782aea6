"""Faults of the file system: full, read-only, and without the directories that ought to be there. What could not be
written is missing until the next run. docs/faults.md tells an operator of each."""

import pytest

from daemon_stories import PID_FILE, PID_FILE_AS_LOGGED, SEMAPHORE, assert_no_instance
from fault_stories import ALL_UP, Fault, Subject, assert_survived, shimmed_router, subject, suffer
from ipsec_records import CONF, RESET_FAILED, SECRETS, not_opened
from sandbox.router import Router
from tunnel_records import TAG, lines

UNWRITABLE = f"{TAG} Unable to write pid to file: {PID_FILE_AS_LOGGED}"
NOT_CREATED = f"{TAG}[OVPN] faild create file for tunnel vpn1 conf: /var/run/openvpn_vpn1.conf"
NOT_WRITTEN = f"{TAG}[OVPN] faild write file for tunnel vpn2 conf: /var/run/openvpn_vpn2.conf"

# The outputs of the programs lie below /run as well, so their folder becomes a file system of its own first.
READ_ONLY = ("mount --rbind /run /run && mount --bind /run/sandbox/output /run/sandbox/output && "
             "mount -o remount,bind,ro /run")
WRITABLE = "mount -o remount,bind,rw /run"
# The whole of /run, with no room for another file than those which are there.
FILL = ("mount -o remount,size=$(( $(stat -fc '(%b - %f) * %S' /run) + 65536 )) /run; "
        "cat /dev/zero >/run/filler 2>/dev/null; test $(stat -fc %f /run) = 0")
# A disk of one page over the IPsec service's folder, and something in it.
FILL_IPSEC = "mount -t tmpfs -o size=4k none /run/ipsec && mkdir /run/ipsec/certs && echo >/run/ipsec/filler"


def in_shell(router: Router, text: str) -> None:
    done = router.exec(["sh", "-c", text])
    assert done.status == 0, done.stderr


def fill(subject: Subject) -> None:
    """From here on there are other files to write, as the old ones keep their room."""
    subject.change()
    in_shell(subject.router, FILL)


FAULTS = [
    Fault("/var/run is read-only", lambda subject: in_shell(subject.router, READ_ONLY),
          lambda subject: in_shell(subject.router, WRITABLE), errors=[NOT_CREATED, RESET_FAILED],
          warnings=[not_opened(CONF)], up=frozenset({"gre"})),
    Fault("/var/run is full", fill, lambda subject: subject.router.remove("/run/filler"), errors=[NOT_WRITTEN],
          warnings=[], up=ALL_UP - {"openvpn"}),
    Fault("/var/run/ipsec is missing", lambda subject: subject.router.remove("/run/ipsec"),
          lambda subject: subject.router.make_ipsec_folders(), errors=[RESET_FAILED], warnings=[not_opened(CONF)],
          up=ALL_UP - {"ipsec"}),
    Fault("ipsec.secrets cannot be opened",
          lambda subject: [subject.router.remove(SECRETS), subject.router.make_folder(SECRETS)],
          lambda subject: subject.router.remove(SECRETS), errors=[RESET_FAILED], warnings=[not_opened(SECRETS)],
          up=ALL_UP - {"ipsec"}),
]


@pytest.mark.parametrize("fault", FAULTS, ids=str)
def test_files_that_cannot_be_written(make_router, fault):
    assert_survived(subject(make_router), fault)


def test_a_full_disk_leaves_the_ipsec_service_an_empty_configuration(make_router):
    """Whether a file could be opened is all that counts, so the service is restarted, with nothing to do."""
    story = subject(make_router)
    suffer(story, Fault("full", lambda subject: in_shell(subject.router, FILL_IPSEC), lambda _: None, errors=[],
                        warnings=[]))
    assert [story.router.read_file(path) for path in (CONF, SECRETS)] == ["", ""]
    story.router.remove("/run/ipsec/filler")
    in_shell(story.router, "mount -o remount,size=1m /run/ipsec")
    story.assert_whole()
    story.assert_ends()


# ---- a start under the fault ----

def test_a_daemon_that_starts_with_a_read_only_disk_is_whole_after_a_refresh(make_router):
    """But for the PID file, which is written at the start only: nothing but a signal reaches this daemon."""
    router = shimmed_router(make_router)
    in_shell(router, READ_ONLY)
    story = Subject(router, whole=False)
    assert lines(router, "WARNING") == [UNWRITABLE, not_opened(CONF)]
    assert lines(router, "ERROR") == [NOT_CREATED, RESET_FAILED]
    story.wait_for_tunnels(frozenset({"gre"}))
    in_shell(router, WRITABLE)
    story.assert_whole()
    assert not router.exists(PID_FILE)
    story.assert_ends()


def test_a_daemon_that_starts_with_a_full_disk_has_an_empty_pid_file_until_it_is_restarted(make_router):
    """The next invocation takes it for gone and removes its semaphore; it still obeys signals."""
    router = shimmed_router(make_router)
    in_shell(router, FILL)
    story = Subject(router, whole=False)
    assert router.read_file(PID_FILE) == ""
    assert lines(router, "WARNING") == []
    story.wait_for_tunnels(frozenset({"gre", "ipsec"}))
    router.remove("/run/filler")
    assert router.run().status == 1
    assert_no_instance(router)
    story.assert_whole()
    story.assert_ends()
    again = Subject(router)
    assert router.read_file(PID_FILE) == f"{again.daemon.pid}\n"
    again.assert_ends()


NO_SHARED_MEMORY = "mount --bind /dev/shm /dev/shm && mount -o remount,bind,ro /dev/shm"
SHARED_MEMORY = "mount -o remount,bind,rw /dev/shm"


def test_without_shared_memory_no_start_succeeds_and_with_it_the_next_one_does(make_router):
    """There can be no semaphore. It looks to the program as if another one were there."""
    router = shimmed_router(make_router)
    in_shell(router, NO_SHARED_MEMORY)
    assert router.run("--daemonize", "--printlvl", "100").status == 1
    assert lines(router, "WARNING") == [f"{TAG} Unable to read PID file [{PID_FILE_AS_LOGGED}]",
                                        f"{TAG} Unable to signal process. Exiting ..."]
    assert router.commands() == []
    in_shell(router, SHARED_MEMORY)
    story = Subject(router)
    story.assert_whole()
    story.assert_ends()


def test_a_semaphore_that_could_not_be_removed_is_removed_by_the_next_start(make_router):
    story = subject(make_router)
    router = story.router
    in_shell(router, NO_SHARED_MEMORY)
    assert story.daemon.terminate() == 0
    assert router.exists(SEMAPHORE) and not router.exists(PID_FILE)
    in_shell(router, SHARED_MEMORY)
    assert router.run("--daemonize").status == 1
    assert_no_instance(router)
    again = Subject(router)
    again.assert_whole()
    again.assert_ends()
