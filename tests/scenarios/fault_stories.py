"""What the stories about faults share: a router with one tunnel of each kind, faults to inject and heal, and what it
means that the router is whole again."""

import functools
import os
import pathlib
import re
import signal
import tempfile
from collections.abc import Callable
from dataclasses import dataclass

from daemon_stories import (EXCEPTION, MONITORS_START, assert_no_instance, documents, gre, preloaded, start, threads,
                            wait_for_threads, wait_until_idle)
from ipsec_records import (CONF, FIREWALL, HEAD, RESET, RESTART, SECRETS, STOP, interfaces, psk_secret, psk_tunnel,
                           section)
from openvpn_records import WITH_CA, arguments, conf_path, tunnel
from sandbox.process import Process
from sandbox.router import Router
from tunnel_records import WAN, create_command, lines

GRE_HOST, IPSEC_HOST = "gre.example", "ipsec.example"
RUN_ENDS = re.compile(f"{re.escape(MONITORS_START)}|{re.escape(EXCEPTION)}")
MONITORS = ["FQDN_MONITOR:gr", "FQDN_MONITOR:of", "WAN_MONITOR"]  # the kernel keeps 15 characters of a name
ALL_UP = frozenset({"gre", "ipsec", "openvpn"})
ALL_DOWN: frozenset[str] = frozenset()

# The program's pause of a second behind the restart of the IPsec service is short, or these stories would mostly wait. Where /run/impatient is, the API is waited for a second instead of a
# minute. The wall clock is off by the seconds that the link /run/clock-step names; a link is read without a descriptor.
SHIM = """
#include <curl/curl.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
int clock_nanosleep(clockid_t clock, int flags, const struct timespec *time, struct timespec *left) {
  const struct timespec instead = {0, 1000000};
  return -syscall(SYS_clock_nanosleep, clock, flags, time->tv_sec >= 1 ? &instead : time, left);
}
static long step(void) {
  char text[32] = "";
  readlink("/run/clock-step", text, sizeof text - 1);
  return atol(text);
}
int clock_gettime(clockid_t clock, struct timespec *now) {
  const int result = syscall(SYS_clock_gettime, clock, now);
  if (clock == CLOCK_REALTIME) now->tv_sec += step();
  return result;
}
time_t time(time_t *result) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != NULL) *result = now.tv_sec;
  return now.tv_sec;
}
int gettimeofday(struct timeval *restrict result, void *restrict zone) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  *result = (struct timeval){now.tv_sec, now.tv_nsec / 1000};
  return 0;
}
#undef curl_easy_setopt
CURLcode curl_easy_setopt(CURL *curl, CURLoption option, ...) {
  va_list list;
  va_start(list, option);
  void *value = va_arg(list, void *);  /* every option's value is as wide as a pointer here and passed like one */
  va_end(list);
  const int patience = option == CURLOPT_LOW_SPEED_TIME || option == CURLOPT_CONNECTTIMEOUT;
  if (patience && access("/run/impatient", F_OK) == 0) value = (void *)1L;
  CURLcode (*const real)(CURL *, CURLoption, ...) = dlsym(RTLD_NEXT, "curl_easy_setopt");
  return real(curl, option, value);
}
"""


@functools.cache
def _shim() -> tuple[tempfile.TemporaryDirectory, dict[str, str]]:
    """The compiled functions, once for all tests of this process, in a folder that goes with it; and the environment
    with them. The address sanitizer insists on being loaded first, which it need not be: they allocate nothing."""
    folder = tempfile.TemporaryDirectory()
    options = os.environ.get("ASAN_OPTIONS", "")
    return folder, preloaded(pathlib.Path(folder.name), SHIM) | {"ASAN_OPTIONS": f"{options}:verify_asan_link_order=0"}


# ---- configurations ----

def gre_address(generation: int) -> str:
    return f"203.0.113.{generation}"


def ipsec_address(generation: int) -> str:
    return f"203.0.114.{generation}"


def configuration(generation: int) -> dict:
    """Documents with one tunnel of each kind. Those of another generation have other names and addresses, so that a
    router shows which of them it is made of."""
    return documents(
        gre(f"gre{generation}", GRE_HOST, tunnelIp=f"10.9.{generation}.1", tunnelMask="30",
            routes=[{"ip": f"192.168.{generation}.0", "mask": 24}]),
        ipsecTunnels=[psk_tunnel(f"office{generation}", remoteWanIp=IPSEC_HOST)], ni=interfaces("192.168.2.1"),
        ovpnTunnels=[tunnel(f"vpn{generation}", WITH_CA)])


def building_commands(generation: int) -> list[str]:
    """All that a run does once the router is torn down."""
    name = f"gre{generation}"
    return [create_command(name, gre_address(generation)), f"ip link set {name} up",
            f"ip addr add 10.9.{generation}.1/30 dev {name}", f"ip route add 192.168.{generation}.0/24 dev {name}",
            RESET, RESTART, FIREWALL, " ".join(arguments(f"vpn{generation}"))]


def files(generation: int) -> dict[str, str]:
    """What the files hold that a run of this generation writes."""
    remote = ipsec_address(generation)
    return {CONF: HEAD + section(f"office{generation}", right=remote), SECRETS: psk_secret(WAN, remote),
            conf_path(f"vpn{generation}"): WITH_CA.replace("dev tun", f"dev tunvpn{generation}") + "verb 2\n"}


def publish(router: Router, generation: int) -> None:
    """Makes this generation the router's configuration, and gives its hosts their addresses."""
    router.documents.update(configuration(generation))
    router.dns.set(GRE_HOST, gre_address(generation))
    router.dns.set(IPSEC_HOST, ipsec_address(generation))


# ---- the router under test ----

class Subject:
    """A daemon in its router, and how it is told and judged. Its first run is over and has built a generation; under a
    fault it may have built less, and then it is not `whole`."""

    def __init__(self, router: Router, *, generation: int = 1, whole: bool = True):
        self.router = router
        self.generation = generation
        self.configure()
        self.daemon: Process = start(router)
        if whole:
            self._settle()
        self.descriptors = self.daemon.fds()

    def change(self) -> None:
        """Publishes the next generation."""
        self.generation += 1
        self.configure()

    def configure(self) -> None:
        """Publishes the current generation."""
        publish(self.router, self.generation)

    def run(self) -> int:
        """One run more, however it ends; returns the mark before it."""
        mark = self.router.mark("a run is requested")
        self.daemon.signal(signal.SIGHUP)
        self.router.wait_for("log", RUN_ENDS, since=mark, timeout=30)
        return mark

    def step_clock(self, seconds: int) -> None:
        """Has the wall clock be off by so many seconds from now on."""
        assert self.router.exec(["ln", "-sfn", "--", str(seconds), "/run/clock-step"]).status == 0

    def put_off_passes(self) -> None:
        """Has no pass look after openvpn for a minute; it might start a child at any time. The first comes first."""
        wait_until_idle(self.router, self.daemon, passes=2)
        self.step_clock(-60)

    def up(self) -> frozenset[str]:
        """Which tunnels are there."""
        service = [command.text for command in self.router.commands()
                   if command.text in (STOP, RESTART) and command.status == 0]
        return frozenset({
            *(["gre"] if re.search("^gre[1-9]", self.router.gre_listing(), re.MULTILINE) else []),
            *(["ipsec"] if service[-1:] == [RESTART] else []),
            *(["openvpn"] if self.living_children() else [])})

    def living_children(self) -> list[int]:
        """The `openvpn` processes of the daemon."""
        children = self.daemon.children()
        return [event.pid for event in self.router.find("exec", program="openvpn") if event.pid in children]

    def wait_for_tunnels(self, expected: frozenset[str]) -> None:
        self.wait_for_children()
        self.router.wait_until(lambda: self.up() == expected, f"the tunnels {sorted(expected)}")

    def assert_whole(self) -> None:
        """Asserts that the next good configuration is applied, in full and by the right commands, and that nothing is
        left of what has been: no zombie, no descriptor, no thread."""
        self.wait_for_children()
        self.change()
        old = re.findall("^(gre[1-9][0-9]*):", self.router.gre_listing(), re.MULTILINE)
        mark = self.run()
        self.assert_built(mark, old)

    def assert_built(self, mark: int, old: list[str]) -> None:
        """Asserts that the run after `mark` has replaced the GRE tunnels `old` by the current generation."""
        router = self.router
        router.wait_for("exec", program="openvpn", since=mark)
        teardown = [text for name in old for text in (f"ip link set {name} down", f"ip tunnel del {name}")]
        assert router.command_texts(mark) == ["ip tunnel", *teardown, STOP, *building_commands(self.generation)]
        assert {command.status for command in router.commands(mark) if command.text != RESET and command.ended} == {0}
        assert {path: router.read_file(path) for path in files(self.generation)} == files(self.generation)
        assert lines(router, "ERROR", mark) == [] and lines(router, "WARNING", mark) == []
        self._settle()
        router.wait_until(lambda: self.daemon.fds() == self.descriptors, f"{self.descriptors} descriptors")
        assert self.up() == ALL_UP and len(self.living_children()) == 1

    def assert_ends(self) -> None:
        """Asserts that the daemon leaves when it is told to, and takes with it what it has to."""
        assert self.daemon.terminate() == 0
        assert_no_instance(self.router)

    def wait_for_children(self) -> None:
        """When a run has ended, the children that it has started may not have become openvpn yet."""
        self.router.wait_until(lambda: self.daemon.children() == sorted(self.living_children()), "no child but openvpn")

    def _settle(self) -> None:
        """Waits for the daemon's threads to be its monitors and nothing else, and its only children openvpn."""
        router, daemon = self.router, self.daemon
        names = wait_for_threads(router, daemon, len(MONITORS), timeout=30).values()
        assert sorted(names) == MONITORS
        self.wait_for_children()
        router.wait_until(lambda: daemon.zombies() == [], "no zombie")
        router.wait_until(lambda: len(threads(router, daemon.pid)) == len(MONITORS), "no other thread")


def shimmed_router(make_router: Callable[..., Router], *arguments, **options) -> Router:
    """A router whose program has the functions of SHIM; the arguments are Router's."""
    router = make_router(*arguments, environment=_shim()[1], **options)
    router.make_ipsec_folders()
    return router


def subject(make_router: Callable[..., Router], **options) -> Subject:
    """A daemon at rest in a router of its own, everything in order."""
    return Subject(shimmed_router(make_router, **options))


# ---- faults ----

@dataclass(frozen=True)
class Fault:
    """One thing that goes wrong, and what a run makes of it."""

    name: str
    inject: Callable[[Subject], object]
    heal: Callable[[Subject], object]
    errors: list[str] | None = None  # the ERROR lines of the run; None: they are not looked at
    warnings: list[str] | None = None
    up: frozenset[str] = ALL_UP  # the tunnels that are there after it

    def __str__(self) -> str:
        return self.name


def suffer(subject: Subject, fault: Fault) -> None:
    """Has the daemon perform a run under the fault, and asserts that it is as the fault describes it."""
    fault.inject(subject)
    mark = subject.run()
    if fault.errors is not None:
        assert lines(subject.router, "ERROR", mark) == fault.errors
    if fault.warnings is not None:
        assert lines(subject.router, "WARNING", mark) == fault.warnings
    subject.wait_for_tunnels(fault.up)


def assert_survived(subject: Subject, fault: Fault) -> None:
    """The whole story of one fault: it comes, it goes, and the router is whole again."""
    suffer(subject, fault)
    fault.heal(subject)
    subject.assert_whole()
    subject.assert_ends()
