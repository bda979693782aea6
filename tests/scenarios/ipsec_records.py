"""Documents with IPsec tunnels in them, and the text of the service's files that they are to give."""

from daemon_stories import documents
from tunnel_records import REMOTE, TAG, WAN, lines, router_with, run_once

CONF = "/run/ipsec/ipsec.conf"
SECRETS = "/run/ipsec/ipsec.secrets"
PEM_FOLDERS = ("/run/ipsec/cacerts", "/run/ipsec/certs", "/run/ipsec/private")
HEAD = "version 2.0\n\nconfig setup\n\tuniqueids=yes\n"
LOCAL_NETWORK = "192.168.2.0/24"
KEY = "the shared key"

STOP = "ipsec stop 2>&1"
RESET = "rm -rf /var/run/ipsec/cacerts/* /var/run/ipsec/certs/* /var/run/ipsec/private/*"
RESTART = "ipsec restart"
FIREWALL = "firewall --init"

STOPPING = f"{TAG} Stopping IPsec"
CREATING = "Creating IPsec Configuration Files"
STARTING = f"{TAG} Starting IPsec"
NOTHING_TO_START = f"{TAG} There are no ipsec tunnels to start."
RESET_FAILED = f"{TAG} Failed to reset ipsec tunnels configuration to default"
NO_SUCH_TYPE = f"{TAG} Error in ipsec config generation. IPSec Connection Type not implemented."
NO_SUCH_METHOD = f"{TAG} Unsupported encryption method."
PSK_LINES = "\tauthby=secret\n"


# ---- records ----

def psk_tunnel(name: str = "office", **members) -> dict:
    """An enabled tunnel with a shared key; `members` add to it or replace what it has."""
    return {"name": name, "enabled": True, "type": "IKE", "remoteWanIp": REMOTE, "remoteNetworkIp": "192.168.9.0",
            "remoteNetworkMask": 24, "encryptMethod": "aes128", "ikelife": 3, "keylife": 1, "psk": KEY} | members


def certificate_tunnel(name: str = "cert", **members) -> dict:
    """An enabled tunnel with certificates, whose texts are none."""
    return psk_tunnel(name, authMethod="rsasig", caCert=f"the CA of {name}\n", localCert=f"the certificate of {name}\n",
                      localPrivKey=f"the key of {name}\n") | members


def interfaces(*addresses: str) -> dict:
    """Router interfaces that give /24 networks of these addresses as local networks, in this order."""
    return {"nis": [{"type": "LAN", "nitype": "ETHERNET", "bridge": "--", "available": True,
                     "ipv4": {"ip": address, "mask": "255.255.255.0"}} for address in reversed(addresses)]}


def ipsec_documents(*tunnels: dict, lan: tuple[str, ...] = ("192.168.2.1",), **members) -> dict:
    """The API's documents with these IPsec tunnels, a WAN, and the local network 192.168.2.0/24 if not told otherwise."""
    return documents(ipsecTunnels=list(tunnels), ni=interfaces(*lan)) | members


# ---- expected texts ----

def section(name: str = "office", auth: str = PSK_LINES, network: str = LOCAL_NETWORK, **lines: str) -> str:
    """The conn section of a tunnel of this name that is as `psk_tunnel` has it, but for the values in `lines`."""
    suffix = "".join(c if c.isdigit() else "_" for c in network)
    suites = {"ike": "aes128-md5-modp1536,aes128-sha1-modp1536,aes128-md5-modp1024,aes128-sha1-modp1024",
              "esp": "aes128-md5,aes128-sha1"}
    values = {"left": WAN, "leftsubnet": network, "right": REMOTE, "rightsubnet": "192.168.9.0/24", "auto": "start",
              "dpddelay": "60", "dpdtimeout": "120", "dpdaction": "restart", "compress": "no", "aggressive": "no", **suites,
              "ikelifetime": "3h", "keylife": "1h", "keyingtries": "%forever", "keyexchange": "ikev1"}
    assert lines.keys() <= values.keys()
    return f"\nconn {name}_{suffix}\n" + "".join(f"\t{key}={text}\n" for key, text in (values | lines).items()) + auth


def psk_secret(local: str = WAN, remote: str = REMOTE, key: str = KEY) -> str:
    return f'"{local}" "{remote}" : PSK "{key}"\n'


def certificate_lines(name: str = "cert", left_id: str | None = None, right_id: str = "%any") -> str:
    identity = "" if left_id is None else f"\tleftid={left_id}\n"
    return f"\tauthby=rsasig\n\tleftcert=/var/run/ipsec/certs/{name}.pem\n{identity}\trightid={right_id}\n"


def certificate_secret(name: str = "cert") -> str:
    return f": RSA /var/run/ipsec/private/{name}.pem\n"


def not_opened(path: str) -> str:
    return f"{TAG} [/var{path}] could not be opened."


def failed(kind: str, name: str) -> str:
    """`kind`: "PSK" or "RSA"."""
    return f"{TAG} Failed to configure IPSEC {kind} tunnel [{name}]."


def succeeded(kind: str, name: str) -> str:
    """`kind`: "PSK" or "RSASIG"."""
    return f"{TAG} IPSEC {kind} tunnel [{name}] configured successfully."


# ---- runs ----

def configured(make_router, *tunnels: dict, level: str = "100", **members):
    """A router in which the program has run once with these tunnels."""
    router = router_with(make_router, ipsec_documents(*tunnels, **members))
    run_once(router, level)
    return router


def files(router) -> tuple[str | None, str | None]:
    """The text of ipsec.conf behind its head, and that of ipsec.secrets."""
    conf = router.read_file(CONF)
    assert conf.startswith(HEAD)
    return conf.removeprefix(HEAD), router.read_file(SECRETS)


def pem_files(router) -> dict[str, str]:
    """The contents of all PEM files, by folder and name."""
    return {f"{folder.rpartition('/')[2]}/{name}": router.read_file(f"{folder}/{name}")
            for folder in PEM_FOLDERS if router.exists(folder) for name in router.list_folder(folder)}


def mode(router, path: str) -> int:
    return router.stat(path)["mode"] & 0o7777


def results(router, since: int = 0) -> list[str]:
    """What became of each tunnel: its line, in order."""
    return [event.message for event in router.log_lines(since=since) if " IPSEC " in event.message]


def assert_not_started(router, since: int = 0) -> None:
    """Asserts that the service was not restarted, and that the run went on all the same."""
    texts = router.command_texts(since)
    assert RESTART not in texts and FIREWALL in texts
    assert STARTING not in lines(router, "DEBUG", since)
