"""The demonstration's view of IPsec: certificates, and the conn sections beside what the service says."""

import json
import pathlib
import re
import subprocess

from ipsec_records import CONF, psk_tunnel
from ipsec_routers import cable, conn_names, serviced
from sandbox.certificates import Authority
from sandbox.ipsec_view import LEFT_WIDTH, side_by_side, wrapped
from tunnel_records import WAN, run_once

SAMPLE = pathlib.Path(__file__).parents[2] / "docs" / "examples" / "router.json"


def openssl(*arguments: str, stdin: str = "") -> str:
    done = subprocess.run(["openssl", *arguments], input=stdin, capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return done.stdout


def public_key(certificate: str) -> str:
    return openssl("x509", "-noout", "-pubkey", stdin=certificate)


def is_issued_by(authority: str, certificate: str, tmp_path) -> bool:
    (tmp_path / "ca").write_text(authority)
    return subprocess.run(["openssl", "verify", "-CAfile", tmp_path / "ca"], input=certificate, capture_output=True,
                          text=True).stdout == "stdin: OK\n"


def test_certificates_belong_together(tmp_path):
    made = Authority().members("here.example.net")
    assert is_issued_by(made["caCert"], made["localCert"], tmp_path)
    assert not is_issued_by(Authority().certificate, made["localCert"], tmp_path)
    assert public_key(made["localCert"]) == openssl("pkey", "-pubout", stdin=made["localPrivKey"])
    assert "DNS:here.example.net" in openssl("x509", "-noout", "-ext", "subjectAltName", stdin=made["localCert"])


def test_those_of_the_sample_configuration_do_so_too_and_for_long(tmp_path):
    documents = json.loads(SAMPLE.read_text())
    partner, staff = documents["ipsecTunnels"][1], documents["ovpnTunnels"][1]["config"]
    inline = [re.search(f"<{name}>\n(.*)</{name}>", staff, re.DOTALL)[1] for name in ("ca", "cert", "key")]
    for authority, certificate, key in ([partner[name] for name in ("caCert", "localCert", "localPrivKey")], inline):
        assert is_issued_by(authority, certificate, tmp_path)
        assert public_key(certificate) == openssl("pkey", "-pubout", stdin=key) and "never use it" in key
        assert openssl("x509", "-noout", "-checkend", str(50 * 365 * 86400), stdin=certificate)


def test_the_table_has_every_section_and_what_the_service_makes_of_it(make_router):
    members = Authority().members("router.example.net")
    tunnels = [psk_tunnel("office"),
               psk_tunnel("cert", authMethod="rsasig", type="IKEv2", phase1="aes256-sha2_256;modp2048", **members),
               psk_tunnel("odd", phase1="rot13-sha1")]
    router, service = serviced(make_router, *tunnels, lan=("192.168.1.1", "192.168.2.1"))
    cable(router, "wan0", f"{WAN}/24")
    run_once(router)
    router.wait_until(lambda: service.proposals("cert_192_168_2_0_24"), "the attempt to initiate")
    rows = [row.partition(" |")[::2] for row in side_by_side(router, service).splitlines()]
    left, right = ([column.strip() for column in columns] for columns in zip(*rows))
    for name in conn_names(router):
        assert f"conn {name}" in left
    written = [line for line in router.read_file(CONF).partition("\nconn ")[2].splitlines() if line.startswith("\t")]
    pieces = [piece.strip() for line in written for piece in wrapped(line.replace("\t", "  "), LEFT_WIDTH)]
    assert [line for line in left if line in pieces] == pieces
    assert right.count("child:  192.168.2.0/24 === 192.168.9.0/24 TUNNEL, dpdaction=start") == 2
    assert right.count("child:  192.168.1.0/24 === 192.168.9.0/24 TUNNEL, dpdaction=start") == 2
    assert right.count("local:  [CN=router.example.net] uses public key authentication") == 2
    assert right.count("remote: [203.0.113.7] uses pre-shared key authentication") == 2
    assert right.count("does not know this connection") == 2
    assert right.count("IKE proposal: AES_CBC_256/HMAC_SHA2_256_128/PRF_HMAC_SHA2_256/MODP_2048") == 2
    assert "PRIVATE KEY" not in "".join(left)
