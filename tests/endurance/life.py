"""A router's life at a hundred times its pace: something happens to the daemon every few seconds, and now and then all is
mended and a sample taken."""

import itertools
import pathlib
import random
import signal
import time

from bench import documents
from sandbox import service_unit
from sandbox.building import hurried
from sandbox.process import Process
from sandbox.router import Router

from endurance.samples import Sample

FACTOR = 100  # the daemon's clocks go that much faster than ours
PERIOD = 3.0  # seconds of ours between two events: five minutes of the router's
EVENTS_PER_SAMPLE = 4
MOST_AT_ONCE = 2  # events that are not mended yet
TUNNELS = 6  # of GRE, and as many of IPsec
WITH_CA = "dev tun\nclient\nremote {index}.example {port}\n<ca>\nCA\n</ca>\n"
OPENVPN_TEXTS = (documents.OPENVPN_TEXT, documents.OPENVPN_TEXT, WITH_CA)
THREADS = 2 + 2 * TUNNELS
RUN_SECONDS = 600  # of which a machine with other work may take many
LOOK_SECONDS = 5
ATTEMPTS = 10
RUN_BEGINS = "[TUNNEL_MNGR] MANAGING TUNNELS"
MONITORS_START = "[TUNNEL_MNGR] v_apFqdnMonitor size"


def configuration() -> dict:
    """All kinds of tunnels, with remote hosts that are names."""
    return documents.configuration(0, 0) | {
        "greTunnels": [documents.gre_tunnel(i, f"gre{i}.example") for i in range(TUNNELS)],
        "ipsecTunnels": [documents.ipsec_tunnel(i, f"ipsec{i}.example") for i in range(TUNNELS)],
        "ovpnTunnels": [{"name": f"vpn{i}", "enabled": True, "config": text.format(index=i, port=1194 + i)}
                        for i, text in enumerate(OPENVPN_TEXTS)]}


class Life:
    """A daemon in a router of its own, to be used in a `with` block."""

    def __init__(self, program: pathlib.Path, seed: int):
        self.router = Router(program, configuration(), environment={**service_unit.environment(), **hurried(FACTOR)},
                             resolver_options="timeout:3 attempts:1")
        self.random = random.Random(seed)
        self._events = 0
        self._runs = 0
        self._counted = 0  # number of the last event in which runs were looked for
        self._started = 0.0
        self._descriptors: int | None = None  # at rest

    def __enter__(self) -> "Life":
        self.router.open()
        self.router.make_ipsec_folders()
        self._mend()
        self.daemon: Process = self.router.daemon("--printlvl", "50")
        self._started = time.monotonic()
        self._facts_at_rest()
        self._descriptors = self._least_descriptors()
        return self

    def __exit__(self, *_exception) -> None:
        self.router.close()

    def samples(self, seconds: float):
        """Yields a sample now and then until so many seconds have passed."""
        while time.monotonic() - self._started < seconds:
            yield self._sample()
            for number in range(EVENTS_PER_SAMPLE):
                if number % MOST_AT_ONCE == 0:
                    self._mend()
                self.random.choice(EVENTS)(self)
                self._events += 1
                self.router.wait_until(lambda until=time.monotonic() + PERIOD: time.monotonic() >= until, timeout=60)
        yield self._sample()

    # ---- rest ----

    def _mend(self) -> None:
        router = self.router
        router.api.reset()
        router.api.release()
        router.api.present()
        for program in ("ip", "ipsec", "openvpn", "firewall", "ping"):
            router.program(program).reset()
        for kind, number in itertools.product(("gre", "ipsec"), range(TUNNELS)):
            router.dns.set(f"{kind}{number}.example", f"203.0.113.{10 * number + len(kind)}")
        router.documents.update(configuration())

    def _perform_run(self) -> None:
        """Returns when a run on the mended router is over."""
        router = self.router
        self._mend()
        mark = router.mark("a run is requested")
        self.daemon.signal(signal.SIGHUP)
        begin = router.wait_for("log", RUN_BEGINS, since=mark, timeout=RUN_SECONDS)
        router.wait_for("log", MONITORS_START, since=begin.number, timeout=RUN_SECONDS)

    def _facts_at_rest(self) -> dict:
        """Of the daemon behind a run, with its monitors and children and nothing else; or as it is, if it never is so. A
        look-up under way has a thread and a descriptor. Where the machine is so slow that the API counts as silent, which
        is after half a second here, another run may do better."""
        for _ in range(ATTEMPTS):
            self._perform_run()
            deadline = time.monotonic() + LOOK_SECONDS
            while time.monotonic() < deadline:
                facts = self.daemon.facts()
                if self._is_at_rest(facts):
                    return facts
        return facts

    def _is_at_rest(self, facts: dict) -> bool:
        usual = self._descriptors in (None, len(facts["descriptors"]))
        return usual and facts["threads"] == THREADS and len(self.daemon.children()) == len(OPENVPN_TEXTS)

    def _sample(self) -> Sample:
        facts = self._facts_at_rest()
        self._count_runs()
        own, anonymous = self._processor_time(), self._anonymous()
        return Sample(seconds=time.monotonic() - self._started, events=self._events, runs=self._runs, anonymous=anonymous,
                      resident=facts["rss_kib"] * 1024, threads=facts["threads"], descriptors=len(facts["descriptors"]),
                      processor=own, zombies=len(self.daemon.zombies()))

    def _least_descriptors(self) -> int:
        return min(self.daemon.fds() for _ in range(100))

    def _count_runs(self) -> None:
        self._runs += len(self.router.find("log", RUN_BEGINS, since=self._counted))
        self._counted = self.router.mark("sample")
        self.router.forget()

    def _processor_time(self) -> float:
        """Of the daemon itself, in seconds."""
        fields = self.router.read_file(f"/proc/{self.daemon.pid}/stat").rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / 100  # clock ticks, proc(5)

    def _anonymous(self) -> int:
        """Bytes of resident memory that is no page of a file."""
        lines = self.router.read_file(f"/proc/{self.daemon.pid}/smaps_rollup").splitlines()
        return next(int(line.split()[1]) for line in lines if line.startswith("Anonymous:")) * 1024

    # ---- what happens ----

    def refresh(self) -> None:
        self.daemon.signal(signal.SIGHUP)

    def second_invocation(self) -> None:
        self.router.start("--printlvl", "50")

    def other_wan(self) -> None:
        self.router.documents["wans"] = [{"current": True, "ip": f"198.51.100.{self.random.randrange(1, 255)}"}]

    def no_wan(self) -> None:
        self.router.documents["wans"] = []

    def other_answer(self) -> None:
        answer = self.random.choice(["203.0.113.200", ["203.0.113.201", "203.0.113.202"], "NXDOMAIN", "SERVFAIL", "SILENT"])
        self.router.dns.set(f"{self.random.choice(('gre', 'ipsec'))}{self.random.randrange(TUNNELS)}.example", answer)

    def other_configuration(self) -> None:
        with self.router.documents.edit() as current:
            for kind in ("greTunnels", "ipsecTunnels", "ovpnTunnels"):
                record = self.random.choice(current[kind])
                record["enabled"] = self.random.random() < 0.5
                record["name"] += str(self.random.randrange(100))
        self.refresh()

    def wrong_type(self) -> None:
        kind, member = self.random.choice([("greTunnels", "enabled"), ("ipsecTunnels", "psk"), ("ovpnTunnels", "config")])
        with self.router.documents.edit() as current:
            self.random.choice(current[kind])[member] = {}
        self.refresh()

    def faulty_api(self) -> None:
        api = self.router.api
        answers = [{"hang": True}, {"delay": 0.3}, {"body": "nonsense"}, {"cut": 20}, {"close": True},
                   {"envelope": {"code": 500}}]
        self.random.choice([api.absent, api.refuse, api.deaf, *(lambda how=how: api.on(None, **how) for how in answers)])()
        self.refresh()

    def child_killed(self) -> None:
        children = self.daemon.children()
        if children:
            self.router.exec(["kill", "-KILL", str(self.random.choice(children))])

    def stubborn_children(self) -> None:
        self.router.program("openvpn").on(stay=True, term_delay=0.5)
        self.refresh()

    def failing_program(self) -> None:
        program = self.random.choice(["ip", "ipsec", "openvpn", "firewall", "ping"])
        self.router.program(program).on(status=1, delay=self.random.choice([0, 0.1]))
        self.refresh()

    def restarted_log(self) -> None:
        self.router.syslog.restart()

    def clock_jump(self) -> None:
        """Which stays. Back by an hour is a time without looks at the children; what makes it longer would hide them."""
        self.router.exec(["ln", "-sfn", "--", str(self.random.randrange(-1800, 1800)), "/run/clock-step"])


EVENTS = [Life.refresh, Life.second_invocation, Life.other_wan, Life.no_wan, Life.other_answer, Life.other_configuration,
          Life.wrong_type, Life.faulty_api, Life.child_killed, Life.stubborn_children, Life.failing_program,
          Life.restarted_log, Life.clock_jump]
