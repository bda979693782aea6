"""Shows what the schemas of the configuration refuse and what they accept, by changes to the sample configuration."""

import copy
import json
import pathlib
import unittest

import jsonschema

DOCS = pathlib.Path(__file__).resolve().parents[1] / "docs"
SAMPLE = json.loads((DOCS / "examples" / "router.json").read_text())
LEFT_OUT = object()

# Each row is a change: values by the paths of members, LEFT_OUT for a member that goes.
MISTAKES = [
    # documents
    {"wans": {}}, {"wans/0": None}, {"wans/0": "198.51.100.2"},
    {"greTunnels": {}}, {"greTunnels/0": None}, {"ipsecTunnels": "none"}, {"ipsecTunnels/0": None},
    {"ni": []}, {"ni/nis": {}}, {"ni/nis/0": None}, {"ovpnTunnels": {}}, {"ovpnTunnels/0": None}, {"syslog": 20},
    {"syslog/logLevel": "20"}, {"syslog/logLevel": -1}, {"syslog/logLevel": 2 ** 32},
    # WAN
    {"wans/1/current": "true"}, {"wans/1/ip": 5},
    *({"wans/1/ip": address} for address in (
        "198.51.100", "198.51.100.256", "198.51.100.2 ", "198.51.100.2\n", "wan.example.net", "198.051.100.2")),
    # names of GRE tunnels
    *({"greTunnels/0/name": name} for name in (
        "", None, LEFT_OUT, "sixteen letters.", "office/1", "office:1", "office%d", "office;1", "R&D", "a|b", "a<b",
        "a>b", "a(b", "a)b", "$office", "`office`", 'the "office"', "o'hara", "office\\1", "office*", "office?",
        "office[1]", "office\n", "of\tfice", "~office", "#office", ".", "..", "lo", "gre0", "gretap0", "erspan0",
        "tunl0")),
    {"greTunnels/2/name": "office/1"}, {"greTunnels/2/name": 5},
    # the rest of a GRE tunnel
    {"greTunnels/0/enabled": "true"}, {"greTunnels/0/enabled": 1},
    *({"greTunnels/0/remoteIp": host} for host in (
        "", None, LEFT_OUT, "203.0.113.300", "203.0.113", "010.0.0.1", "203.0.113.7/24", " 203.0.113.7",
        "203.0.113.7\n", "two words", "host.example.net\n", "host..example.net", "2001:db8::1", 5)),
    {"greTunnels/0/tunnelIp": "10.9.9"}, {"greTunnels/0/tunnelIp": "10.9.9.1/30"}, {"greTunnels/0/tunnelIp": "tunnel"},
    {"greTunnels/0/tunnelIp": ""}, {"greTunnels/0/tunnelIp": LEFT_OUT}, {"greTunnels/0/tunnelMask": ""},
    {"greTunnels/0/tunnelMask": None}, {"greTunnels/0/tunnelMask": LEFT_OUT}, {"greTunnels/0/tunnelMask": "33"},
    {"greTunnels/0/tunnelMask": 33}, {"greTunnels/0/tunnelMask": -1}, {"greTunnels/0/tunnelMask": "/30"},
    {"greTunnels/0/tunnelMask": "30\n"}, {"greTunnels/0/tunnelMask": "255.255.255.252\n"},
    {"greTunnels/0/tunnelMask": "255.0.255.0"}, {"greTunnels/0/tunnelMask": "255.255.255.253"},
    {"greTunnels/0/ttl": 256}, {"greTunnels/0/ttl": -1}, {"greTunnels/0/ttl": "256"}, {"greTunnels/0/ttl": ""},
    {"greTunnels/0/ttl": "64\n"}, {"greTunnels/0/ttl": "inherited"}, {"greTunnels/0/ttl": 6.5},
    {"greTunnels/0/checkPeriod": -1}, {"greTunnels/0/checkPeriod": 65536}, {"greTunnels/0/checkPeriod": "5"},
    {"greTunnels/0/routes": {}}, {"greTunnels/0/routes/0": None}, {"greTunnels/0/routes/0/ip": LEFT_OUT},
    {"greTunnels/0/routes/0/ip": ""}, {"greTunnels/0/routes/0/ip": "192.168.50.0/24"},
    *({"greTunnels/0/routes/0/mask": mask} for mask in (LEFT_OUT, None, "", 33, 24.5, "255.0.255.0")),
    # network interfaces
    {"ni/nis/2/type": "lan"}, {"ni/nis/2/type": "Lan"}, {"ni/nis/2/type": 1}, {"ni/nis/0/nitype": "Bridge"},
    {"ni/nis/0/nitype": 1}, {"ni/nis/2/available": "yes"}, {"ni/nis/2/bridge": 0}, {"ni/nis/2/ipv4": "192.168.2.1/24"},
    {"ni/nis/2/ipv4/ip": "192.168.2.1/24"}, {"ni/nis/2/ipv4/mask": "24"}, {"ni/nis/2/ipv4/mask": 24},
    {"ni/nis/2/ipv4/mask": "255.255.0.255"},
    # names of IPsec tunnels
    *({"ipsecTunnels/0/name": name} for name in (
        "", None, LEFT_OUT, 'the "office"', "a=b", "office #1", "#1", "of\tfice", "office\n")),
    *({"ipsecTunnels/0/enabled": False, "ipsecTunnels/0/name": name} for name in ("a=b", 5)),
    {"ipsecTunnels/1/name": "a/b"},
    # ends of an IPsec tunnel
    {"ipsecTunnels/0/type": "ikev2"}, {"ipsecTunnels/0/type": ""}, {"ipsecTunnels/0/type": None},
    {"ipsecTunnels/0/type": LEFT_OUT},
    *({"ipsecTunnels/0/remoteWanIp": host} for host in (
        "", None, LEFT_OUT, "Any", "any", "ANY", "%any", "203.0.113.300", "203.0.113", "203.0.113.20 ", "010.0.0.1")),
    *({"ipsecTunnels/0/remoteNetworkIp": network} for network in (
        "", None, LEFT_OUT, "any", "%any", "192.168.70", "192.168.70.0/24", "lan.example.net")),
    *({"ipsecTunnels/0/remoteNetworkMask": mask} for mask in (
        "", None, LEFT_OUT, "255.255.255.0", 33, -1, "33", "/24", "24\n", " 24", True)),
    # how an IPsec tunnel's ends know each other
    *({"ipsecTunnels/0/authMethod": method} for method in ("RSASIG", "RsaSig", "rsasig ", "rsasig\n", 1, True)),
    {"ipsecTunnels/0/psk": LEFT_OUT}, {"ipsecTunnels/0/psk": ""}, {"ipsecTunnels/0/psk": None},
    {"ipsecTunnels/0/psk": 'in "quotes"'}, {"ipsecTunnels/0/psk": "two\nlines"}, {"ipsecTunnels/0/psk": "a line\n"},
    {"ipsecTunnels/0/psk": "NUL\0"}, {"ipsecTunnels/0/psk": 12345},
    {"ipsecTunnels/0/authMethod": LEFT_OUT, "ipsecTunnels/0/psk": LEFT_OUT},
    {"ipsecTunnels/1/authMethod": LEFT_OUT}, {"ipsecTunnels/1/authMethod": None},
    {"ipsecTunnels/1/localId": 'the "router"'}, {"ipsecTunnels/1/remoteId": "partner\n"},
    {"ipsecTunnels/1/localCert": LEFT_OUT}, {"ipsecTunnels/1/localCert": ""}, {"ipsecTunnels/1/localPrivKey": LEFT_OUT},
    {"ipsecTunnels/1/localPrivKey": None}, {"ipsecTunnels/1/caCert": "/etc/ssl/ca.pem"},
    {"ipsecTunnels/1/localCert": "/etc/ssl/router.pem"}, {"ipsecTunnels/1/localPrivKey": "/etc/ssl/router.key"},
    {"ipsecTunnels/1/caCert": 5}, {"ipsecTunnels/1/uid": "yes"},
    # the rest of an IPsec tunnel
    *({f"ipsecTunnels/0/{phase}": text} for phase in ("phase1", "phase2") for text in (
        "aes256-sha2_256-modp2048", "aes256-sha1,aes128-sha1", "modp2048", "dh22;modp2048", "AES256-SHA1",
        "aes256 - sha1", "aes256-sha1;", "-sha1", ";modp2048", "aes256-sha1\n", "aes256!", 5)),
    {"ipsecTunnels/1/encryptMethod": "aes"}, {"ipsecTunnels/1/encryptMethod": "AES256"},
    {"ipsecTunnels/0/aggressiveMode": "no"}, {"ipsecTunnels/0/compression": 0}, {"ipsecTunnels/0/ikelife": "3"},
    {"ipsecTunnels/0/ikelife": -1}, {"ipsecTunnels/0/keylife": 0.5}, {"ipsecTunnels/0/retries": 2 ** 32},
    {"ipsecTunnels/0/checkPeriod": 65536}, {"ipsecTunnels/0/enabled": "true"},
    # OpenVPN
    *({"ovpnTunnels/0/name": name} for name in (
        "", None, LEFT_OUT, "two words", "of\tfice", "office\n", "office/1", "office:1", "office%d", "office\\1")),
    {"ovpnTunnels/0/enabled": "true"}, {"ovpnTunnels/0/config": LEFT_OUT}, {"ovpnTunnels/0/config": ""},
    {"ovpnTunnels/0/config": None}, {"ovpnTunnels/0/config": ["dev tun"]},
    *({"ovpnTunnels/0/enabled": False, "ovpnTunnels/0/name": name} for name in ("a b", 5)),
]

LEGITIMATE = [
    {},
    # What is absent or null is empty, false or 0.
    *({document: value} for document in ("wans", "greTunnels", "ipsecTunnels", "ni", "ovpnTunnels", "syslog")
      for value in (LEFT_OUT, None)),
    *({document: []} for document in ("wans", "greTunnels", "ipsecTunnels", "ovpnTunnels")),
    {"ni": {}}, {"ni/nis": None}, {"ni/nis": []}, {"syslog": {}}, {"syslog/logLevel": None},
    {"syslog/logLevel": 2 ** 32 - 1},
    {"wans/1": {}}, {"wans/1": {"current": None, "ip": None}}, {"wans/1/ip": ""}, {"wans/1/ip": "0.0.0.0"},
    # A tunnel that is disabled may lack anything.
    *({f"{kind}/0": {}} for kind in ("greTunnels", "ipsecTunnels", "ovpnTunnels")),
    *({f"{kind}/0/enabled": enabled, f"{kind}/0/name": name} for kind in ("greTunnels", "ipsecTunnels", "ovpnTunnels")
      for enabled in (False, None, LEFT_OUT) for name in ("", None, LEFT_OUT)),
    {"greTunnels/0": {"enabled": False, "remoteIp": "", "tunnelIp": "", "tunnelMask": "", "routes": []}},
    {"ipsecTunnels/0": {"enabled": False, "type": "", "remoteWanIp": "", "remoteNetworkIp": "", "remoteNetworkMask": "",
                        "psk": "", "phase1": "", "encryptMethod": ""}},
    {"ipsecTunnels/0": {"enabled": False, "type": None, "authMethod": None, "remoteWanIp": None,
                        "remoteNetworkIp": None, "remoteNetworkMask": None, "psk": None, "phase1": None,
                        "encryptMethod": None, "uid": None, "localId": None, "caCert": None, "ikelife": None,
                        "checkPeriod": None, "compression": None, "aggressiveMode": None}},
    {"ovpnTunnels/0": {"enabled": False, "config": None}},
    # GRE
    *({"greTunnels/0/name": name} for name in (
        "fifteen letters", "office-1", "office_1", "office.1", "a@b", "a+b=c", "Büro 1", "office #1")),
    *({"greTunnels/0/remoteIp": host} for host in (
        "203.0.113.7", "0.0.0.0", "255.255.255.255", "router", "a.example.net", "a.example.net.", "4u.example.net",
        "my_router", "xn--bro-hoa.example.net")),
    {"greTunnels/0/tunnelIp": LEFT_OUT, "greTunnels/0/tunnelMask": LEFT_OUT},
    {"greTunnels/0/tunnelIp": "", "greTunnels/0/tunnelMask": None},
    *({"greTunnels/0/tunnelMask": mask} for mask in (
        0, 30, 32, "0", "8", "30", "32", "0.0.0.0", "128.0.0.0", "255.0.0.0", "255.254.0.0", "255.255.248.0",
        "255.255.255.255")),
    *({"greTunnels/0/ttl": ttl} for ttl in (0, 255, "0", "64", "199", "249", "255", "inherit", None, LEFT_OUT)),
    {"greTunnels/0/checkPeriod": 0}, {"greTunnels/0/checkPeriod": 65535}, {"greTunnels/0/checkPeriod": LEFT_OUT},
    {"greTunnels/0/routes": None}, {"greTunnels/0/routes": LEFT_OUT},
    {"greTunnels/0/routes/0": {"ip": "0.0.0.0", "mask": 0}},
    # network interfaces
    {"ni/nis/2": {}}, {"ni/nis/2/type": "WAN"}, {"ni/nis/2/type": "LAN2"},
    {"ni/nis/2": {"type": None, "available": None, "bridge": None}},
    {"ni/nis/2/nitype": None}, {"ni/nis/2/nitype": "WIFI"}, {"ni/nis/2/ipv4": None}, {"ni/nis/2/ipv4": {}},
    {"ni/nis/2/ipv4": {"ip": None, "mask": None}},
    # IPsec
    *({"ipsecTunnels/0/name": name} for name in ("office", "Büro 1", "a/b", "R&D", "o'hara", "x" * 60)),
    {"ipsecTunnels/0/type": "IKE"}, {"ipsecTunnels/0/remoteWanIp": "0.0.0.0"},
    {"ipsecTunnels/0/remoteWanIp": "anybody.net"}, {"ipsecTunnels/0/remoteNetworkIp": "Any"},
    {"ipsecTunnels/0/remoteNetworkIp": "Any", "ipsecTunnels/0/remoteNetworkMask": LEFT_OUT},
    {"ipsecTunnels/0/remoteNetworkIp": "0.0.0.0", "ipsecTunnels/0/remoteNetworkMask": 0},
    {"ipsecTunnels/0/remoteNetworkMask": "0"}, {"ipsecTunnels/0/remoteNetworkMask": "32"},
    *({"ipsecTunnels/0/authMethod": method} for method in (LEFT_OUT, None, "", "secret", "psk", "PSK", "rsasignature")),
    {"ipsecTunnels/0/psk": "\\ # ' $ 0x41 é\t"}, {"ipsecTunnels/1/psk": None}, {"ipsecTunnels/1/caCert": LEFT_OUT},
    {"ipsecTunnels/1/caCert": "-----BEGIN CERTIFICATE-----\nMII=\n-----END CERTIFICATE-----\n"},
    {"ipsecTunnels/1/localId": "C=CH, O=Sample #1, CN=router"}, {"ipsecTunnels/1/remoteId": ""},
    *({f"ipsecTunnels/0/{phase}": text} for phase in ("phase1", "phase2") for text in (
        "aes256-sha2_512;modp2048", "aes256-sha2_256;dh24", "aes128-sha1", "3des", "aes256;modp2048", "", LEFT_OUT,
        "aes256gcm16-prfsha256;ecp256", "aes256-sha1;modp2048!")),
    *({"ipsecTunnels/1/encryptMethod": method} for method in (
        "3des", "aes128", "aes192", "aes256", "", None, LEFT_OUT)),
    {"ipsecTunnels/0/ikelife": LEFT_OUT}, {"ipsecTunnels/0/retries": 2 ** 32 - 1},
    {"ipsecTunnels/0/aggressiveMode": True},
    # OpenVPN
    *({"ovpnTunnels/0/name": name} for name in ("depot-1", "a.very.long.name.of.a.depot", "Büro", "#1", "o'hara")),
]

# Names of members that are not read, at every place where there are members.
UNKNOWN = [{path: "x"} for path in (
    "version", "wans/0/curent", "greTunnels/0/keepalive", "greTunnels/0/routes/0/metric", "ipsecTunnels/0/PSK",
    "ipsecTunnels/1/rightid", "ni/interfaces", "ni/nis/0/name", "ni/nis/2/ipv4/gateway", "ovpnTunnels/0/port",
    "syslog/server")]


def changed(change):
    """The sample configuration with a row's change."""
    documents = copy.deepcopy(SAMPLE)
    for path, value in change.items():
        *above, last = (int(key) if key.isdigit() else key for key in path.split("/"))
        place = documents
        for key in above:
            place = place[key]
        if value is LEFT_OUT:
            place.pop(last, None)
        else:
            place[last] = value
    return documents


def validator(name):
    schema = json.loads((DOCS / name).read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema, resolver=jsonschema.RefResolver(f"{DOCS.as_uri()}/", schema))


class Schemas(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.plain = validator("configuration.schema.json")
        cls.strict = validator("configuration.strict.schema.json")

    def check(self, changes, plain, strict):
        for change in changes:
            documents = changed(change)
            with self.subTest(change=change):
                self.assertEqual((self.plain.is_valid(documents), self.strict.is_valid(documents)), (plain, strict))

    def test_what_can_only_be_a_mistake_is_refused(self):
        self.check(MISTAKES, False, False)

    def test_documents_are_members_of_an_object(self):
        self.assertFalse(self.plain.is_valid([]) or self.strict.is_valid([]))

    def test_what_can_be_meant_is_accepted(self):
        self.check(LEGITIMATE, True, True)

    def test_members_that_are_not_read_are_refused_by_the_strict_schema_only(self):
        self.check(UNKNOWN, True, False)


if __name__ == "__main__":
    unittest.main()
