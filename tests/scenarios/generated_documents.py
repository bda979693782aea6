"""Configurations that nobody would think of: documents(seed) are a router's, most of them nearly sensible, with values of
wrong types, odd texts, records that are none, and whole members missing here and there."""

import random
import string

ODD_TEXTS = ["", " ", "a b", "a  b ", "My Tunnel 1", "x;y", "a'b", 'a"b', "$x", "a\nb", "a\tb", "\u00fc\u00df", "\x7f", "a\0b", "*",
             "../x", "a/b", ".hidden", "-rf", "&", "Any", "any", "null", "true", "5", "x" * 40, "averyveryverylongname", "gre0",
             "tunl0", "`id`", "(", "\\", "%s%n", "#", "a:b"]
ADDRESSES = ["192.168.2.1", "10.8.0.1", "0.0.0.0", "203.0.113.7", "256.1.1.1", "Any", "", "10.0.0.1 "]
HOSTS = ["203.0.113.7", "203.0.113.8", "a.example", "b.example", "unknown.example", "Any", ""]
MASKS = ["255.255.255.0", "255.0.255.1", "24", 24, 30, 0, "0.0.0.0", "", 24.7]
PROPOSALS = ["", "aes256", "aes128-sha1", "3des-sha2;dh22", "aes256;modp2048", "aes256-sha1-modp1024", "dh24", "-", ";", "a-b;c;d",
             "aes128-sha2_256;modp2048"]
CONFIGS = ["", "dev tun\nifconfig 10.8.0.1 10.8.0.2\n", "dev tap\n<ca>\nX\n</ca>\nclient-config-dir /var/run/ccd", " \tverb 4\r\ndev tun0",
           "verb 1\nverb 2\n#dev x\n  dev  tun  extra", "ifconfig 10.8.0.1\n<secret>\nkey\n</secret>", "client-config-dir /etc/none such",
           "dev\n", "\n\n", "dev tun\0x"]
WRONG = [None, True, False, 0, 1, -1, 5, 2 ** 31, 2 ** 32, 65536, 70000, 1e10, -0.5, 2.5, "", "5", "true", "text", [], [1], {}, {"a": 1}]


class Documents:
    """The draws of one seed."""

    def __init__(self, seed: int):
        self._random = random.Random(seed)

    def _once_in(self, count: int) -> bool:
        return self._random.randrange(count) == 0

    def _text(self, usual: list) -> object:
        if self._once_in(12):
            return self._random.choice(ODD_TEXTS)
        if self._once_in(60):
            return "".join(self._random.choice(string.printable) for _ in range(self._random.randrange(30)))
        return self._random.choice(usual)

    def _flag(self) -> bool:
        return not self._once_in(4)

    def _number(self) -> int:
        return self._random.choice([0, 1, 3, 5, 64, 255, 65535, 65536, 70000]) if self._once_in(3) else self._random.randrange(1, 60)

    def _record(self, **members) -> object:
        """A record whose members are drawn by these functions; now and then one is missing or of another type."""
        if self._once_in(150):
            return self._random.choice(WRONG)
        record = {name: draw() for name, draw in members.items() if not self._once_in(15)}
        if record and self._once_in(25):
            record[self._random.choice(list(record))] = self._random.choice(WRONG)
        return record

    def _list(self, draw, most: int) -> object:
        if self._once_in(60):
            return self._random.choice(WRONG)
        return [draw() for _ in range(self._random.randrange(most + 1))]

    def _name(self, kind: str) -> object:
        return self._text([f"{kind}{n}" for n in range(4)])

    def _gre_tunnel(self) -> object:
        return self._record(
            name=lambda: self._name("gre"), enabled=self._flag, remoteIp=lambda: self._text(HOSTS), checkPeriod=self._number,
            tunnelIp=lambda: self._text(ADDRESSES), tunnelMask=lambda: self._text(["255.255.255.252", "30", ""]),
            ttl=lambda: self._random.choice([64, "255", 0, self._number()]),
            routes=lambda: self._list(lambda: self._record(ip=lambda: self._text(ADDRESSES), mask=lambda: self._text(MASKS)), 3))

    def _ipsec_tunnel(self) -> object:
        text = self._text
        return self._record(
            name=lambda: self._name("ips"), enabled=self._flag, remoteWanIp=lambda: text(HOSTS), checkPeriod=self._number,
            authMethod=lambda: text(["rsasig", "secret", "RSASIG"]), type=lambda: text(["IKE", "IKEv2", "IKEv2"]),
            remoteNetworkIp=lambda: text(ADDRESSES), remoteNetworkMask=lambda: text(["24", 24, ""]),
            phase1=lambda: text(PROPOSALS), phase2=lambda: text(PROPOSALS),
            encryptMethod=lambda: text(["3des", "aes128", "aes256", "des", ""]), ikelife=self._number, keylife=self._number,
            retries=self._number, compression=self._flag, aggressiveMode=self._flag, uid=self._flag,
            localId=lambda: text(["", "me"]), remoteId=lambda: text(["", "peer"]), psk=lambda: text(["key", "another key"]),
            caCert=lambda: text(["CA\n"]), localCert=lambda: text(["CERT\n"]), localPrivKey=lambda: text(["KEY\n"]))

    def _interface(self) -> object:
        return self._record(
            type=lambda: self._text(["LAN", "LAN", "WAN"]), available=self._flag, nitype=lambda: self._text(["ETHERNET", "BRIDGE"]),
            bridge=lambda: self._text(["--", "--", "br0", "br1"]),
            ipv4=lambda: self._record(ip=lambda: self._text(ADDRESSES), mask=lambda: self._text(["255.255.255.0", "255.0.255.1"])))

    def _openvpn_tunnel(self) -> object:
        return self._record(name=lambda: self._name("vpn"), enabled=self._flag, config=lambda: self._text(CONFIGS))

    def _wan(self) -> object:
        return self._record(current=self._flag, ip=lambda: self._text(["198.51.100.2"] * 8 + ["", "203.0.113.40"]))

    def draw(self) -> dict:
        documents = {
            "wans": self._list(self._wan, 3) if self._once_in(5) else [{"current": True, "ip": "198.51.100.2"}],
            "greTunnels": self._list(self._gre_tunnel, 3), "ipsecTunnels": self._list(self._ipsec_tunnel, 3),
            "ni": self._record(nis=lambda: self._list(self._interface, 3)), "ovpnTunnels": self._list(self._openvpn_tunnel, 3),
            "syslog": self._record(logLevel=self._number)}
        if self._once_in(20):
            del documents[self._random.choice(list(documents))]
        return documents


def documents(seed: int) -> dict:
    return Documents(seed).draw()
