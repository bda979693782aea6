"""IPsec files that cannot be written: the tunnel fails, what it had written before stays, and the other tunnels go on."""

import pytest

from daemon_stories import preloaded
from ipsec_records import (CONF, CREATING, FIREWALL, HEAD, NOTHING_TO_START, PEM_FOLDERS, RESET_FAILED, RESTART, SECRETS,
                           assert_not_started, certificate_lines, certificate_secret, certificate_tunnel, failed, files,
                           ipsec_documents, not_opened, pem_files, psk_secret, psk_tunnel, results, section, succeeded)
from tunnel_records import lines, refresh, router_with, run_once, start_daemon

BOTH_KINDS = (psk_tunnel(), certificate_tunnel())

# Fails the opening of the file that /run/fail-append names, but only where it is opened to append to.
FAILING_APPEND = """
#include <fcntl.h>
#include <stdarg.h>
#include <string.h>
static int opened(const char *name, const char *path, int flags, int mode) {
  int (*const real)(const char *, int, ...) = dlsym(RTLD_NEXT, name);
  char refused[256] = "";
  const int file = (flags & O_APPEND) != 0 ? real("/run/fail-append", O_RDONLY) : -1;
  if (file < 0) return real(path, flags, mode);
  read(file, refused, sizeof refused - 1);
  close(file);
  if (strcmp(path, refused) != 0) return real(path, flags, mode);
  errno = EACCES;
  return -1;
}
int open(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int mode = va_arg(arguments, int);
  va_end(arguments);
  return opened("open", path, flags, mode);
}
int open64(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int mode = va_arg(arguments, int);
  va_end(arguments);
  return opened("open64", path, flags, mode);
}
"""


def pem_contents(name: str, *folders: str) -> dict[str, str]:
    """The PEM files that a certificate tunnel has in these folders."""
    texts = {"cacerts": f"the CA of {name}\n", "certs": f"the certificate of {name}\n", "private": f"the key of {name}\n"}
    return {f"{folder}/{name}.pem": texts[folder] for folder in folders}


# ---- the reset ----

@pytest.mark.asan
def test_without_its_folder_nothing_is_written_and_the_run_goes_on(make_router):
    router = make_router(ipsec_documents(*BOTH_KINDS))
    run_once(router)
    assert lines(router, "WARNING") == [not_opened(CONF)] and lines(router, "ERROR") == [RESET_FAILED]
    assert CREATING not in lines(router, "DEBUG") and NOTHING_TO_START not in lines(router, "DEBUG")
    assert not router.exists("/run/ipsec")
    assert_not_started(router)


def test_without_ipsec_conf_the_secrets_are_left_as_they_were(make_router):
    router = router_with(make_router, ipsec_documents(*BOTH_KINDS))
    router.make_folder(CONF)
    router.write_file(SECRETS, "old\n")
    router.write_file("/run/ipsec/certs/old.pem", "old")
    run_once(router)
    assert lines(router, "WARNING") == [not_opened(CONF)] and lines(router, "ERROR") == [RESET_FAILED]
    assert router.read_file(SECRETS) == "old\n" and pem_files(router) == {}
    assert_not_started(router)


def test_without_ipsec_secrets_the_configuration_is_reset_and_nothing_more(make_router):
    router = router_with(make_router, ipsec_documents(*BOTH_KINDS))
    router.write_file(CONF, "old\n")
    router.make_folder(SECRETS)
    run_once(router)
    assert lines(router, "WARNING") == [not_opened(SECRETS)] and lines(router, "ERROR") == [RESET_FAILED]
    assert router.read_file(CONF) == HEAD and pem_files(router) == {}
    assert_not_started(router)


def test_the_next_run_puts_everything_right(make_router):
    router = make_router(ipsec_documents(*BOTH_KINDS))
    daemon = start_daemon(router)
    assert lines(router, "ERROR") == [RESET_FAILED]
    router.make_ipsec_folders()
    mark = refresh(router, daemon)
    assert lines(router, "ERROR", mark) == [] and lines(router, "WARNING", mark) == []
    assert files(router) == (section() + section("cert", certificate_lines()), psk_secret() + certificate_secret())
    assert RESTART in router.command_texts(mark)


def test_an_rm_that_fails_is_not_seen(make_router):
    router = router_with(make_router, ipsec_documents(psk_tunnel()))
    router.write_file("/run/ipsec/certs/old.pem", "old")
    router.program("rm").on(status=1)
    run_once(router)
    assert lines(router, "ERROR") == [] and lines(router, "WARNING") == []
    assert files(router) == (section(), psk_secret()) and pem_files(router) == {"certs/old.pem": "old"}


# ---- the PEM files ----

@pytest.mark.parametrize("number", range(3), ids=["cacerts", "certs", "private"])
@pytest.mark.parametrize("obstacle", ["no folder", "a folder in place of the file"])
def test_a_pem_file_that_cannot_be_written_fails_its_tunnel(make_router, number, obstacle):
    """The name begins with a dot, so that what stands in its file's place survives the reset."""
    router = router_with(make_router, ipsec_documents(certificate_tunnel(".c"), psk_tunnel()))
    folder = PEM_FOLDERS[number]
    if obstacle == "a folder in place of the file":
        router.make_folder(f"{folder}/.c.pem")
    else:
        router.remove(folder)
    run_once(router)
    assert lines(router, "WARNING") == [not_opened(f"{folder}/.c.pem")] and lines(router, "ERROR") == [failed("RSA", ".c")]
    written = [f"{path}/.c.pem" for path in PEM_FOLDERS if path != folder and router.exists(f"{path}/.c.pem")]
    assert written == [f"{path}/.c.pem" for path in PEM_FOLDERS[:number]]
    assert files(router) == (section(), psk_secret())
    assert results(router) == [failed("RSA", ".c"), succeeded("PSK", "office")] and RESTART in router.command_texts()


def test_a_pem_file_that_fails_for_one_tunnel_does_not_for_the_next(make_router):
    router = router_with(make_router, ipsec_documents(certificate_tunnel("no/such"), certificate_tunnel("good")))
    run_once(router)
    assert lines(router, "WARNING") == [not_opened("/run/ipsec/cacerts/no/such.pem")]
    assert results(router) == [failed("RSA", "no/such"), succeeded("RSASIG", "good")]
    assert pem_files(router) == pem_contents("good", "cacerts", "certs", "private")
    assert files(router) == (section("good", certificate_lines("good")), certificate_secret("good"))


# ---- the two files that grow ----

@pytest.mark.parametrize("tunnel, path, result, contents", [
    (BOTH_KINDS[0], CONF, failed("PSK", "office"), ("", "")),
    (BOTH_KINDS[0], SECRETS, failed("PSK", "office"), (section(), "")),
    (BOTH_KINDS[1], CONF, failed("RSA", "cert"), ("", certificate_secret())),
    (BOTH_KINDS[1], SECRETS, failed("RSA", "cert"), ("", "")),
], ids=["shared key, ipsec.conf", "shared key, ipsec.secrets", "certificate, ipsec.conf", "certificate, ipsec.secrets"])
def test_what_was_written_before_a_failed_append_stays(make_router, tmp_path, tunnel, path, result, contents):
    router = router_with(make_router, ipsec_documents(tunnel), environment=preloaded(tmp_path, FAILING_APPEND))
    router.write_file("/run/fail-append", f"/var{path}")
    run_once(router)
    assert lines(router, "WARNING") == [not_opened(path)] and lines(router, "ERROR") == [result]
    assert files(router) == contents
    assert pem_files(router) == (pem_contents("cert", "cacerts", "certs", "private") if tunnel is BOTH_KINDS[1] else {})
    assert NOTHING_TO_START in lines(router, "DEBUG")
    assert_not_started(router)


def test_a_full_disk_is_not_seen(make_router):
    """Only whether a file could be opened counts."""
    router = router_with(make_router, ipsec_documents(psk_tunnel()))
    router.remove(SECRETS)
    assert router.exec(["ln", "-s", "/dev/full", SECRETS]).status == 0
    run_once(router)
    assert lines(router, "ERROR") == [] and lines(router, "WARNING") == []
    assert results(router) == [succeeded("PSK", "office")]
    assert [text for text in router.command_texts() if text in (RESTART, FIREWALL)] == [RESTART, FIREWALL]
