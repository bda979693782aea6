"""The demonstration's view of IPsec: certificates made on the spot, and the conn sections beside what the service says."""

import subprocess

from ipsec_records import CONF, psk_tunnel
from ipsec_routers import cable, conn_names, serviced
from sandbox.certificates import PLACEHOLDERS, Authority, fill_placeholders
from sandbox.ipsec_view import LEFT_WIDTH, side_by_side, wrapped
from tunnel_records import WAN, run_once


def openssl(*arguments: str, stdin: str = "") -> str:
    done = subprocess.run(["openssl", *arguments], input=stdin, capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return done.stdout


def test_placeholders_become_certificates_that_belong_together(tmp_path):
    documents = {"ipsecTunnels": [psk_tunnel(), psk_tunnel("a", **PLACEHOLDERS),
                                  psk_tunnel("b", **PLACEHOLDERS | {"caCert": "kept"})]}
    key, first, second = fill_placeholders(documents, "here.example.net")["ipsecTunnels"]
    assert key == psk_tunnel() and documents["ipsecTunnels"][1] == psk_tunnel("a", **PLACEHOLDERS)
    assert second == first | {"name": "b", "caCert": "kept"}
    (tmp_path / "ca").write_text(first["caCert"])
    assert openssl("verify", "-CAfile", str(tmp_path / "ca"), stdin=first["localCert"]) == "stdin: OK\n"
    assert (openssl("x509", "-noout", "-pubkey", stdin=first["localCert"])
            == openssl("pkey", "-pubout", stdin=first["localPrivKey"]))
    assert "DNS:here.example.net" in openssl("x509", "-noout", "-ext", "subjectAltName", stdin=first["localCert"])
    other = tmp_path / "other"
    other.write_text(Authority().certificate)
    refused = subprocess.run(["openssl", "verify", "-CAfile", other], input=first["localCert"], capture_output=True, text=True)
    assert refused.returncode != 0


def test_documents_without_tunnels_stay_as_they_are():
    for documents in ({}, {"ipsecTunnels": None}, {"ipsecTunnels": []}, {"ipsecTunnels": [psk_tunnel()]}):
        assert fill_placeholders(documents) == documents


def test_the_table_has_every_section_and_what_the_service_makes_of_it(make_router):
    documents = fill_placeholders({"ipsecTunnels": [
        psk_tunnel("office"),
        psk_tunnel("cert", authMethod="rsasig", type="IKEv2", phase1="aes256-sha2_256;modp2048", **PLACEHOLDERS),
        psk_tunnel("odd", phase1="rot13-sha1")]})
    router, service = serviced(make_router, *documents["ipsecTunnels"], lan=("192.168.1.1", "192.168.2.1"))
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
