"""Two routers with the real IPsec service, each with the files that its own program has written: they agree on keys as
configured, and packets pass encrypted between their networks."""

import re

import pytest

from ipsec_records import certificate_tunnel, psk_tunnel
from ipsec_routers import authority, cable, conn_names, serviced
from sandbox.ipsec_service import IpsecService
from sandbox.router import Router
from tunnel_records import run_once

pytestmark = pytest.mark.slow

HERE, THERE = "198.51.100.1", "198.51.100.2"
LAN_HERE, LAN_THERE = "192.168.1.1", "192.168.2.1"
SECURITY_TIMEOUT = 40  # what gets lost is sent again after 4, 11 and 24 seconds

# The service's names of what the configuration names.
ENCRYPTION = {"3des": "3DES_CBC", "aes128": "AES_CBC_128", "aes192": "AES_CBC_192", "aes256": "AES_CBC_256"}
HASH = {"md5": ("HMAC_MD5_96", "PRF_HMAC_MD5"), "sha1": ("HMAC_SHA1_96", "PRF_HMAC_SHA1"),
        "sha2_256": ("HMAC_SHA2_256_128", "PRF_HMAC_SHA2_256"), "sha2_512": ("HMAC_SHA2_512_256", "PRF_HMAC_SHA2_512")}
GROUP = {"modp1024": "MODP_1024", "modp1536": "MODP_1536", "modp2048": "MODP_2048", "dh22": "MODP_1024_160",
         "dh23": "MODP_2048_224", "dh24": "MODP_2048_256"}


def every_variant(method: str) -> list[str]:
    """The suites for the IKE SA where nothing but the encryption is configured."""
    return [f"{method} {rest}" for rest in ("md5 modp1536", "sha1 modp1536", "md5 modp1024", "sha1 modp1024")]


# Tunnels by name: what their records say, and which suites that are, for the IKE and for the IPsec SA.
PHASES = {
    **{method: ({"encryptMethod": method}, every_variant(method), [f"{method} md5", f"{method} sha1"])
       for method in ENCRYPTION},
    "sha256": ({"phase1": "aes128-sha2_256;modp2048", "phase2": "aes128-sha2_256"},
               ["aes128 sha2_256 modp2048"], ["aes128 sha2_256"]),
    "sha512": ({"phase1": "aes256-sha2_512;modp2048", "phase2": "aes256-sha2_512;modp2048"},
               ["aes256 sha2_512 modp2048"], ["aes256 sha2_512 modp2048"]),
    "sha2": ({"phase1": "aes128-sha2", "phase2": "aes192-sha2"},
             ["aes128 sha2_256 modp1536", "aes128 sha2_256 modp1024"], ["aes192 sha2_256"]),
    "dh22": ({"phase1": "aes192-sha1;dh22", "phase2": "aes192-sha1;dh22"}, ["aes192 sha1 dh22"], ["aes192 sha1 dh22"]),
    "dh23": ({"phase1": "aes256-md5;dh23", "phase2": "aes256-md5;dh23"}, ["aes256 md5 dh23"], ["aes256 md5 dh23"]),
    "dh24": ({"phase1": "3des-sha1;dh24", "phase2": "3des-sha1;dh24"}, ["3des sha1 dh24"], ["3des sha1 dh24"]),
    "mixed": ({"phase1": "aes256", "encryptMethod": "3des"}, every_variant("aes256"), ["3des md5", "3des sha1"]),
    "nogroup": ({"phase1": "aes128-sha1", "phase2": "aes128-sha1"},
                ["aes128 sha1 modp1536", "aes128 sha1 modp1024"], ["aes128 sha1"]),
}


def ike(suite: str) -> str:
    encryption, digest, group = suite.split()
    return "/".join((ENCRYPTION[encryption], *HASH[digest], GROUP[group]))


def esp(suite: str) -> str:
    encryption, digest, *group = suite.split()
    return "/".join((ENCRYPTION[encryption], HASH[digest][0], *(GROUP[name] for name in group), "NO_EXT_SEQ"))


def skip_without_tun_device(router: Router) -> None:
    """Where the kernel has no ESP, the service needs such a device to encrypt by itself."""
    probe = router.exec(["ip", "tuntap", "add", "dev", "probe", "mode", "tun"])
    if probe.status != 0:
        pytest.skip(f"this kernel makes no tun device: {probe.stderr}")


class Pair:
    """Two routers on a cable with the same tunnels, each seen from its own end. `here` is started second, so that its
    packets find somebody."""

    def __init__(self, make_router, tunnels):
        """`tunnels(end, own name, the other's name)` gives the records of an end."""
        self.there, self.service_there = self._router(make_router, tunnels, "there", "here", THERE, HERE, LAN_THERE, LAN_HERE)
        self.here, self.service = self._router(make_router, tunnels, "here", "there", HERE, THERE, LAN_HERE, LAN_THERE)
        skip_without_tun_device(self.here)
        assert Router.link(self.here, self.there, "198.51.100.0/24") == (HERE, THERE)
        for router, address in ((self.there, LAN_THERE), (self.here, LAN_HERE)):
            cable(router, "lan0", f"{address}/24")
            run_once(router)

    @staticmethod
    def _router(make_router, tunnels, own, other, address, peer, lan, network) -> tuple[Router, IpsecService]:
        common = {"remoteWanIp": peer, "remoteNetworkIp": f"{network.rpartition('.')[0]}.0"}
        records = [record | common for record in tunnels(own, other)]
        return serviced(make_router, *records, user_space_esp=True, lan=(lan,), wans=[{"current": True, "ip": address}])

    def wait_for(self, what: str, name: str) -> str:
        """Waits until a security association of the tunnel is in this state; returns the service's status."""
        return self.service.wait_for_status(rf"^{re.escape(name)}_192_168_1_0_24[\[{{]\d+[\]}}]: +{what}", SECURITY_TIMEOUT)


def test_every_proposal_is_understood_and_agreed_upon(make_router):
    """The tunnels take turns with the two key exchanges. Identities tell them apart: all have the same ends."""
    def tunnels(own, other):
        return [psk_tunnel(name, **members, type=("IKE", "IKEv2")[number % 2], uid=True, localId=f"{name}.{own}",
                           remoteId=f"{name}.{other}") for number, (name, (members, _, _)) in enumerate(PHASES.items())]

    pair = Pair(make_router, tunnels)
    for name in PHASES:
        pair.wait_for("ESTABLISHED", name)
        pair.wait_for("INSTALLED", name)
    assert {name: pair.service.proposals(f"{name}_192_168_1_0_24") for name in PHASES} == {
        name: {"IKE": [ike(suite) for suite in phase1], "ESP": [esp(suite) for suite in phase2]}
        for name, (_, phase1, phase2) in PHASES.items()}
    assert list(pair.service.connections()) == conn_names(pair.here)
    for service in (pair.service, pair.service_there):
        assert service.complaints_about_configuration() == []


def test_both_ends_prove_who_they_are_and_packets_pass(make_router):
    """Shared keys for addresses and for names, and certificates, with either key exchange."""
    ca = authority()
    members = {end: ca.members(f"{end}.example.net") for end in ("here", "there")}

    def tunnels(own, other):
        names = {"uid": True, "localId": f"{own}.example.net", "remoteId": f"{other}.example.net"}
        return [psk_tunnel("key1"), psk_tunnel("key2", type="IKEv2"),
                psk_tunnel("named2", type="IKEv2", **names, psk="another key"),
                certificate_tunnel("cert1", **members[own]), certificate_tunnel("cert2", type="IKEv2", **members[own], **names)]

    pair = Pair(make_router, tunnels)
    for name in ("key1", "key2", "named2", "cert1", "cert2"):
        pair.wait_for("ESTABLISHED", name)
        status = pair.wait_for("INSTALLED", name)
    for name, prefix in (("named2", ""), ("cert1", "CN="), ("cert2", "")):
        ends = rf"{HERE}\[{prefix}here.example.net\]\.\.\.{THERE}\[{prefix}there.example.net\]"
        assert re.search(rf"^{name}_.*ESTABLISHED.* {ends}", status, re.MULTILINE), status
    ping = pair.here.exec(["ping", "-c", "3", "-W", "5", "-I", LAN_HERE, LAN_THERE], timeout=30)
    assert ping.status == 0, ping.stdout + ping.stderr
    assert re.search(r" [1-9]\d* bytes_o", pair.service.status())


def test_a_key_that_is_missing_is_the_empty_one_and_the_ends_agree_on_it(make_router):
    pair = Pair(make_router, lambda own, other: [psk_tunnel("open1", psk=None), psk_tunnel("open2", type="IKEv2", psk="")])
    for name in ("open1", "open2"):
        pair.wait_for("ESTABLISHED", name)
        pair.wait_for("INSTALLED", name)


def test_aggressive_mode_with_a_shared_key_is_called_but_not_answered(make_router):
    """The service starts it, and as it is delivered refuses it as the one that is called."""
    pair = Pair(make_router, lambda own, other: [psk_tunnel("quick", aggressiveMode=True)])
    refused = "Aggressive Mode PSK disabled for security reasons"
    pair.here.wait_until(lambda: refused in pair.service_there.log(), refused, SECURITY_TIMEOUT)
    assert "initiating Aggressive Mode IKE_SA quick_192_168_1_0_24" in pair.service.log()
    assert "ESTABLISHED" not in pair.service.status()
