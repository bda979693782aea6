"""Faults put in on purpose, to see that the lab finds them, each at the step that docs/lab.md names."""

from collections.abc import Callable

from lab.lab import Lab

IP_WITHOUT_UP = """#!/bin/sh
case "$1 $2 $4" in "link set up") exit 0 ;; esac
exec /sbin/ip "$@"
"""

IPSEC_WITHOUT_UMASK = """#!/bin/sh
umask 0
exec /usr/sbin/ipsec "$@"
"""


def wrong_secret(lab: Lab) -> None:
    lab.b.documents.ipsec[0]["psk"] += "x"


def missing_route(lab: Lab) -> None:
    lab.a.documents.gre[0]["routes"] = []


def link_left_down(lab: Lab) -> None:
    lab.a.install("ip", IP_WITHOUT_UP)


def open_files(lab: Lab) -> None:
    lab.a.install("ipsec", IPSEC_WITHOUT_UMASK)


FAULTS: dict[str, Callable[[Lab], None]] = {
    "wrong-secret": wrong_secret,
    "missing-route": missing_route,
    "link-left-down": link_left_down,
    "open-files": open_files,
}
