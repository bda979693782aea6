"""Faults of name resolution: a tunnel whose host has no address is built without one, the others as always, and the
next run that finds the name makes the router whole again. That a monitor asks for it is told in test_monitor_fqdn.py.
docs/faults.md tells an operator of each."""

import pytest

from fault_stories import (ALL_UP, GRE_HOST, IPSEC_HOST, Fault, Subject, assert_survived, gre_address, ipsec_address,
                           subject, suffer)
from ipsec_records import CONF
from test_names_resolution import NO_DATA, NOT_FOUND, TRY_AGAIN
from tunnel_records import create_command

HOSTS = (GRE_HOST, IPSEC_HOST)
WITHOUT_GRE = ALL_UP - {"gre"}  # the kernel refuses a tunnel without a remote end
RESOLVER = "/etc/resolv.conf"


def _answer(answer: str):
    return lambda subject: [subject.router.dns.set(host, answer) for host in HOSTS]


def _look_elsewhere(address: str):
    return lambda subject: subject.router.write_file(RESOLVER, f"nameserver {address}\noptions timeout:1 attempts:1\n")


def _heal(subject: Subject) -> None:
    """Has the name server answer again, and the resolver ask it."""
    subject.configure()
    _look_elsewhere("127.0.0.1")(subject)


# What the name server does, and the line that says so.
FAULTS = [Fault(name, inject, _heal, errors=[], warnings=[line.format(host) for host in HOSTS], up=WITHOUT_GRE)
          for name, inject, line in [
              ("the name server is silent", _answer("SILENT"), TRY_AGAIN),
              ("the name server fails", _answer("SERVFAIL"), TRY_AGAIN),
              ("the name server refuses", _answer("REFUSED"), TRY_AGAIN),
              ("the name server does not know the names", _answer("NXDOMAIN"), NOT_FOUND),
              ("the names have no address", _answer("NODATA"), NO_DATA),
              ("no name server listens", _look_elsewhere("127.0.0.2"), TRY_AGAIN),
              ("no way leads to the name server", _look_elsewhere("192.0.2.1"), TRY_AGAIN)]]


@pytest.mark.parametrize("fault", FAULTS, ids=str)
def test_names_that_do_not_resolve(make_router, fault):
    assert_survived(subject(make_router), fault)


@pytest.mark.asan
def test_a_name_server_that_flaps(make_router):
    """From run to run; each way to fail once, with a good run behind it."""
    story = subject(make_router)
    for fault in FAULTS:
        suffer(story, fault)
        fault.heal(story)
        story.assert_whole()
    story.assert_ends()


def test_a_name_server_that_answers_differently_each_time(make_router):
    """Each run takes the address that it is given, for both kinds of tunnels."""
    story = subject(make_router)
    for host, address in ((GRE_HOST, gre_address), (IPSEC_HOST, ipsec_address)):
        story.router.dns.rotate(host, [address(101), address(102), [address(103), address(104)], "SILENT"])
    for gre, ipsec in [*((gre_address(n), ipsec_address(n)) for n in (101, 102, 103)), ("", "")] * 2:
        mark = story.run()
        assert create_command("gre1", gre) in story.router.command_texts(mark)
        assert f"\tright={ipsec}\n" in story.router.read_file(CONF)
        story.wait_for_tunnels(ALL_UP if gre else WITHOUT_GRE)
    story.assert_whole()
    story.assert_ends()
