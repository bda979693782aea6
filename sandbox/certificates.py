"""Outside: certificates for tunnels, made with the openssl command line when they are needed and kept nowhere."""

import pathlib
import subprocess
import tempfile
from typing import NamedTuple

VALID_DAYS = "30"


class Credentials(NamedTuple):
    """PEM texts: a certificate and the private key that belongs to it."""

    certificate: str
    key: str


class Authority:
    """A certificate authority of its own; two of them do not trust each other's certificates."""

    def __init__(self, name: str = "Example CA"):
        self._own = _make(name, ["-addext", "basicConstraints=critical,CA:TRUE",
                                 "-addext", "keyUsage=critical,keyCertSign,cRLSign"])

    @property
    def certificate(self) -> str:
        return self._own.certificate

    def issue(self, host: str) -> Credentials:
        """A certificate for the host name, which is its subject's common name and its alternative name."""
        extensions = ["-addext", "basicConstraints=CA:FALSE", "-addext", f"subjectAltName=DNS:{host}"]
        return _make(host, extensions, self._own)

    def members(self, host: str) -> dict[str, str]:
        """The members of a tunnel's record for an end with that host name."""
        own = self.issue(host)
        return {"caCert": self.certificate, "localCert": own.certificate, "localPrivKey": own.key}


def _make(name: str, extensions: list[str], issuer: Credentials | None = None) -> Credentials:
    """A new RSA key and its certificate, signed by the issuer or, without one, by itself."""
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder)
        command = ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-sha256", "-days", VALID_DAYS,
                   "-subj", f"/CN={name}", "-keyout", path / "key", "-out", path / "certificate", *extensions]
        if issuer:
            (path / "ca").write_text(issuer.certificate)
            (path / "ca-key").write_text(issuer.key)
            command += ["-CA", path / "ca", "-CAkey", path / "ca-key"]
        done = subprocess.run(command, capture_output=True, text=True)
        if done.returncode != 0:
            raise RuntimeError(f"openssl could not make a certificate:\n{done.stderr}")
        return Credentials((path / "certificate").read_text(), (path / "key").read_text())
