"""The parts of the lab's load that need no kernel of their own: packets and the gaps between them, the run as a shell
script, and the two ends of many tunnels."""

import contextlib
import ipaddress
import subprocess
import sys
import time

import pytest

from lab import far_ends, load, probe, shell_loop
from lab.documents import Documents, Keys
from lab.topology import SITE_A, SITE_B
from test_sandbox import ROOT


@pytest.mark.parametrize("times, gap", [
    ([1, 2, 6, 9], 4), ([], 10), ([4], 6), ([-5, 1, 9, 20], 8), ([0.5, 9.5], 9), ([0, 10], 10)])
def test_the_longest_gap_is_of_the_time_that_is_looked_at(times, gap):
    assert probe.longest_gap(times, 0, 10) == gap


@pytest.mark.parametrize("rounds, seconds", [([0.001] * 3, 0.05), ([0.02, 0.03, 9.0], 0.12)])
def test_packets_are_sent_every_50_ms_unless_that_takes_too_much(rounds, seconds):
    assert probe.interval(rounds) == pytest.approx(seconds)


def test_figures_are_told_by_the_median_with_the_least_and_the_most():
    assert load.middle([3.0, 1.25, 10]) == "3.00 (1.25..10.00)"


def test_arrivals_are_told_by_tunnel_and_not_by_halves(tmp_path):
    path = tmp_path / "arrivals"
    records = [probe.RECORD.pack(*record) for record in ((0, 1.0), (1, 2.0), (0, 4.0))]
    path.write_bytes(records[0] + records[1] + records[2][:5])
    arrivals = probe.Arrivals(path, 3)
    assert arrivals.silent(1.0) == {0, 2} and arrivals.times == [[1.0], [2.0], []]
    path.write_bytes(b"".join(records))
    assert arrivals.silent(1.0) == {2}
    assert arrivals.longest_gaps(0, 5) == [3.0, 3.0, 5]


def test_packets_arrive(tmp_path):
    """In a network of their own, as the port is a fixed one. Nobody has the last address."""
    targets, path = tmp_path / "targets", tmp_path / "arrivals"
    targets.write_text("127.0.0.1 -\n127.0.0.2 127.0.0.1\n192.0.2.1 -\n")
    path.touch()
    python = f"{sys.executable} -B -m lab.probe"
    script = f"ip link set lo up; {python} receive {path} & {python} send {targets}"
    with subprocess.Popen(["unshare", "--net", "--pid", "--fork", "--kill-child", "sh", "-c", script], cwd=ROOT,
                          stdout=subprocess.PIPE, text=True) as sender:
        assert float(sender.stdout.readline()) >= probe.INTERVAL_SECONDS
        arrivals, deadline = probe.Arrivals(path, 3), time.monotonic() + 60
        begin = time.monotonic()
        while arrivals.silent(begin) != {2} and time.monotonic() < deadline:
            time.sleep(0.05)
        sender.kill()
    assert arrivals.silent(begin) == {2}


PLAN = {"acts": [{"run": "ip tunnel"}, {"write": "/var/run/openvpn_a.conf"}, {"run": "ipsec stop 2>&1"}, {"end": 7}, {"end": 8},
                 {"write": "/x/ipsec.conf"}, {"append": "/x/ipsec.conf"}, {"chmod": "/x/ipsec.conf", "mode": "0644"},
                 {"pause": 1500}, {"start": ["openvpn", "--config", "/a b"], "child": 9}],
        "files": {"/var/run/openvpn_a.conf": {"after": "dev tun\n"}, "/x/ipsec.conf": {"after": "whole"},
                  "/x/gone": {"after": None}}}


def test_the_script_does_what_the_plan_tells_in_its_order():
    files = shell_loop.files(PLAN, "/f")
    end = shell_loop.END_CHILDREN.format(note="/f/pids").splitlines()
    start = [": >/f/pids", "openvpn --config '/a b' & echo $! >>/f/pids"]
    assert files["run.sh"].splitlines() == [
        "#!/bin/sh", "ip tunnel", "cp /f/text0 /var/run/openvpn_a.conf", "ipsec stop 2>&1", *end, "cp /f/text1 /x/ipsec.conf",
        "chmod 0644 /x/ipsec.conf", "sleep 1.5", *start]
    assert files["children.sh"].splitlines() == ["#!/bin/sh", *start] and files["end.sh"].splitlines() == ["#!/bin/sh", *end]
    assert (files["text0"], files["text1"]) == ("dev tun\n", "whole") and len(files) == 5


def test_the_script_waits_for_the_end_of_each_child_before_it_ends_the_next(tmp_path):
    with contextlib.ExitStack() as stack:
        scripts = [f"trap 'sleep {seconds}; exit 5' TERM; echo; while :; do sleep 0.01; done" for seconds in (0.3, 0)]
        children = [stack.enter_context(subprocess.Popen(["sh", "-c", script], stdout=subprocess.PIPE)) for script in scripts]
        for child in children:
            child.stdout.readline()
        (tmp_path / "pids").write_text("".join(f"{child.pid}\n" for child in children))
        (tmp_path / "end.sh").write_text(shell_loop.files(PLAN, str(tmp_path))["end.sh"])
        waiting = subprocess.Popen(["sh", tmp_path / "end.sh"])
        while waiting.poll() is None:  # who is not reaped is still there
            for child in children:
                child.poll()
            assert children[0].returncode is not None or children[1].returncode is None
        assert [child.returncode for child in children] == [5, 5]


@pytest.fixture
def keys(tmp_path) -> Keys:
    keys = Keys(tmp_path)
    keys.make_certificates([SITE_A, SITE_B])
    return keys


def test_there_are_half_as_many_ipsec_tunnels_and_a_fifth_of_openvpn(keys):
    ends, documents = far_ends.FarEnds(10, keys), Documents(SITE_A, SITE_B, keys)
    ends.describe(documents)
    assert [len(records) for records in (documents.gre, documents.ipsec, documents.openvpn)] == [10, 5, 2]
    assert [record["remoteWanIp"] for record in documents.ipsec] == [
        "203.0.113.10", "peer1.example.net", "203.0.113.12", "peer3.example.net", "203.0.113.14"]
    assert ends.names == {"peer1.example.net": "203.0.113.11", "peer3.example.net": "203.0.113.13"}
    assert [("<secret>" in record["config"], "<ca>" in record["config"]) for record in documents.openvpn] == [
        (True, False), (False, True)]
    assert [target.kind for target in ends.targets] == ["GRE"] * 10 + ["IPsec"] * 5 + ["OpenVPN"] * 2


def test_no_two_tunnels_share_an_address(keys):
    ends = far_ends.FarEnds(far_ends.MOST, keys)
    addresses = [target.address for target in ends.targets] + [far_ends.address(peer) for peer in ends.gre]
    assert len({ipaddress.ip_address(address) for address in addresses}) == len(addresses)
