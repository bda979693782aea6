"""One run under valgrind, which sees reads of uninitialised memory that the sanitizers do not."""

import pytest

from ipsec_records import certificate_tunnel, ipsec_documents, psk_tunnel
from openvpn_records import STATIC_KEY, WITH_CA, tunnel
from tunnel_records import gre_tunnel

ERRORS = 9  # the status that valgrind is to leave with when it has found something
# Calls that are abandoned, and libraries' tables, may be reachable at the end; what nothing points to is a leak.
VALGRIND = ["valgrind", "--quiet", f"--error-exitcode={ERRORS}", "--leak-check=full", "--errors-for-leak-kinds=definite",
            "--show-leak-kinds=definite"]


@pytest.mark.usefixtures("dynamic_program")  # valgrind puts functions of its own in place of a shared C library's
def test_a_run_with_tunnels_of_all_kinds_makes_no_error(make_router):
    router = make_router(ipsec_documents(
        psk_tunnel(remoteWanIp="peer.example"), certificate_tunnel(),
        greTunnels=[gre_tunnel(remoteIp="peer.example", routes=[{"ip": "10.1.0.0", "mask": 16}]), gre_tunnel("gre2")],
        ovpnTunnels=[tunnel("static", STATIC_KEY), tunnel("tls", WITH_CA)]), wrapper=VALGRIND)
    router.make_ipsec_folders()
    router.dns.set("peer.example", "203.0.113.9")
    router.preset_gre({"name": "old", "remote": "192.0.2.1", "local": "192.0.2.2", "ttl": "64"})
    done = router.run("--printlvl", "100", timeout=120)
    assert done.status == 0, done.stderr
    assert router.messages("ERROR") == []
    assert {"ip tunnel del old", "ipsec restart", "firewall --init"} <= set(router.command_texts())
