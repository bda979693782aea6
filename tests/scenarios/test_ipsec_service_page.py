"""The commands of docs/ipsec-service.md have the IPsec service, as it is installed, read what the program writes."""

import pathlib
import re

from ipsec_records import certificate_tunnel, psk_tunnel
from ipsec_routers import authority, cable, conn_names, serviced
from sandbox.ipsec_service import PLACES
from tunnel_records import WAN, run_once

PAGE = pathlib.Path(__file__).parents[2] / "docs" / "ipsec-service.md"

# What the other tests mount over the service's own files is taken away, and files as a package installs them are put
# there, since the machine's own stay as they are.
AS_INSTALLED = """set -e
umount {mounted}
mkdir -p /run/installed/ipsec.d/cacerts
echo 'config setup' >/run/installed/ipsec.conf
echo '# none' >/run/installed/ipsec.secrets
for name in ipsec.conf ipsec.secrets ipsec.d; do mount --bind /run/installed/$name /etc/$name; done
rm /run/ipsec/ipsec.conf /run/ipsec/ipsec.secrets
"""


def commands(heading: str) -> str:
    """The lines below a heading of the page that are to be typed."""
    section = re.search(rf"^## {heading}\n(.*?)(?=^## |\Z)", PAGE.read_text(), re.MULTILINE | re.DOTALL)[1]
    return "\n".join(line.strip() for line in section.splitlines() if line.startswith("    "))


def in_shell(router, script: str) -> None:
    done = router.exec(["sh", "-c", script])
    assert done.status == 0, done.stderr


def test_the_service_reads_connections_keys_and_certificates(make_router):
    certificates = authority().members("router.example.net")
    router, service = serviced(make_router, psk_tunnel("key"), certificate_tunnel("cert", type="IKEv2", **certificates))
    cable(router, "wan0", f"{WAN}/24")
    mounted = [place for place in PLACES if place.startswith("/etc/ipsec.")]
    in_shell(router, AS_INSTALLED.format(mounted=" ".join(mounted)))
    in_shell(router, f"set -e\n{commands('Have it read the files')}")

    assert router.exec(["ipsec", "start"]).status == 0  # before the first run
    router.wait_until(service.status, "the service")
    assert service.connections() == {}

    run_once(router)
    service.wait_for_connections(*conn_names(router))
    assert list(service.connections()) == [f"{name}_192_168_2_0_24" for name in ("key", "cert")]
    for what in ('ca certificate "CN=Test CA"', 'certificate "CN=router.example.net"', "IKE secret", "RSA private key"):
        assert f"loaded {what}" in service.log()
