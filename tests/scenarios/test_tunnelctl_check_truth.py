"""tunnelctl check tells the truth: the schemas, the plan of a run, and the real programs say the same of documents."""

import json
import subprocess
import sys

import pytest

from checking import ROOT, findings
from companion import companion
from generated_documents import documents as generated

sys.path.insert(0, str(ROOT / "tests"))
import schema_test  # noqa: E402  it lies in the folder above

# ---- the schemas ----

PLAIN, STRICT = (schema_test.validator(name) for name in ("configuration.schema.json", "configuration.strict.schema.json"))
ZERO_OR_ONE = (0, 1)
OTHER_OF_PAIR = {one: [other] for pair in (("ip", "mask"), ("tunnelIp", "tunnelMask"), ("remoteNetworkIp", "remoteNetworkMask"))
                 for one, other in (pair, pair[::-1])}


def is_without_effect(error, documents: dict) -> bool:
    """Whether the schema refuses the address of an interface that is none of the LAN's, or belongs to a bridge: it gives
    no network in any case."""
    path = list(error.absolute_path)
    if path[:2] != ["ni", "nis"] or "ipv4" not in path:
        return False
    interface = documents["ni"]["nis"][path[2]]
    return interface.get("nitype") != "BRIDGE" and (interface.get("type"), interface.get("bridge")) != ("LAN", "--")


def is_meant(error) -> bool:
    """Whether the schema refuses only a type that converts to what is meant, which `check` lets pass: a whole number for
    a text, 0 or 1 for a flag."""
    if error.validator == "anyOf":
        return any(all(map(is_meant, branch)) for branch in branches(error))
    wanted = error.validator_value if isinstance(error.validator_value, list) else [error.validator_value]
    if error.validator != "type" or isinstance(error.instance, bool):
        return False
    return isinstance(error.instance, int) and ("string" in wanted or "boolean" in wanted and error.instance in ZERO_OR_ONE)


def branches(error):
    """The errors of each branch of an anyOf."""
    found = {}
    for inner in error.context:
        found.setdefault(inner.schema_path[0], []).append(inner)
    return found.values()


def places(error) -> list[str]:
    """The JSON pointers at which what the schema refuses may be told of: its own and, since an address and its mask are
    one thing to the program, that of the other one."""
    *above, last = error.absolute_path
    names = [last, *OTHER_OF_PAIR.get(last, [])]
    return ["".join(f"/{str(part).replace('~', '~0').replace('/', '~1')}" for part in [*above, name]) for name in names]


def is_told(error, found: list) -> bool:
    """Whether there is a finding where the schema refuses something, or above or below that."""
    return any(f"{place}/".startswith(f"{finding.pointer}/") or f"{finding.pointer}/".startswith(f"{place}/")
               for place in places(error) for finding in found)


def may_be_untold(error, documents: dict) -> bool:
    """Whether the schema refuses letters of a name, of which some harm nothing and it takes none, or the address of a WAN
    that is not the current one."""
    path = list(error.absolute_path)
    if path[0] == "wans" and path[2:] == ["ip"]:
        current = [number for number, wan in enumerate(documents["wans"]) if isinstance(wan, dict) and wan.get("current")]
        return path[1] not in current[:1]
    return error.validator == "pattern" and path[2:] == ["name"]


def assert_agreement(program: str, documents: dict) -> None:
    """What a schema refuses has a finding, and but for `may_be_untold` in that place. Of members that are not described,
    which only the strict schema refuses, those alone are told of that look like a missing one; other programs may have
    members of their own."""
    refused = [error for error in PLAIN.iter_errors(documents)
               if not is_meant(error) and not is_without_effect(error, documents)]
    found = findings(program, documents)
    assert found or not refused, (documents, [error.message for error in refused])
    for error in (error for error in refused if not may_be_untold(error, documents)):
        assert is_told(error, found), (documents, places(error), error.message, found)
    if not found:
        assert all(error.validator == "unevaluatedProperties" or is_meant(error) or is_without_effect(error, documents)
                   for error in STRICT.iter_errors(documents)), documents


@pytest.mark.parametrize("changes", [schema_test.MISTAKES, schema_test.LEGITIMATE, schema_test.UNKNOWN],
                         ids=["mistakes", "legitimate", "unknown"])
def test_what_the_schemas_refuse_has_a_finding(program, changes):
    for change in changes:
        assert_agreement(program, schema_test.changed(change))


def test_so_have_generated_documents(program):
    for seed in range(1, 301):
        assert_agreement(program, generated(seed))


# ---- the plan ----

def has_slash_in_name(documents: dict) -> bool:
    """Whether it depends on the folders of a router how far a record is read, since the name leads into one."""
    lists = [documents.get(name) for name in ("ipsecTunnels", "ovpnTunnels")]
    records = [record for records in lists if isinstance(records, list) for record in records]
    return any(isinstance(record, dict) and "/" in str(record.get("name")) for record in records)


def test_a_run_ends_early_where_it_is_said_and_nowhere_else(make_router):
    """Without a WAN a run ends before it reads most; what is wrong behind is told all the same."""
    router = make_router()
    router.make_ipsec_folders()
    ends = {True: 0, False: 0}
    for seed in range(1, 201):
        documents = generated(seed)
        if has_slash_in_name(documents):
            continue
        router.write_file("/run/documents.json", json.dumps(documents))
        done = router.exec([companion(router.program_path), "plan", "--json", "--offline", "--from", "/run/documents.json"])
        plan = json.loads(done.stdout)
        found = [finding for finding in findings(router.program_path, documents) if finding.id == "ends-run"]
        reached = [finding for finding in found if plan["wan"] or plan["outcome"] == "failed"
                   or finding.pointer.startswith(("/ovpnTunnels", "/syslog"))]
        assert (plan["outcome"] != "done") == bool(reached), (seed, plan["outcome"], found)
        ends[bool(reached)] += 1
    assert min(ends.values()) > 20


# ---- ip(8) ----

SOURCE = ROOT / "tunnelctl" / "check_devices.cpp"
ASK_IP = """
import json, subprocess, sys
def complaint(*words):
    done = subprocess.run(["ip", *words], capture_output=True, text=True)
    return (done.stderr.splitlines() or done.stdout.splitlines() or [""])[0]
taken = [word for word in json.load(sys.stdin)
         if "is a garbage" not in complaint("tunnel", "add", word, "another-name")
         or complaint("link", "set", word, "up") != f'Cannot find device "{word}"']
print(json.dumps(taken))
"""


def names_to_try() -> list[str]:
    """All words that ip(8)'s manual pages of tunnels and links have, and their beginnings."""
    pages = subprocess.run("zcat -f /usr/share/man/man8/ip-tunnel.8* /usr/share/man/man8/ip-link.8*", shell=True,
                           capture_output=True, text=True).stdout
    words = {word for word in "".join(c if c.islower() or c in "-_" else " " for c in pages).split()
             if word[0].isalpha() and len(word) <= 15}
    table = SOURCE.read_text().partition("kKeywords")[2].partition(";")[0].replace('"', " ").replace("|", "").split()
    words |= {word for word in table if len(word) > 1}
    return sorted({word[:end] for word in words for end in range(1, len(word) + 1)} - {"lo", "all", "default"})


@pytest.mark.slow
def test_names_are_keywords_of_ip_that_ip_takes_for_such(program, make_router):
    names = names_to_try()
    assert len(names) > 500
    router = make_router()
    taken = json.loads(router.exec(["/usr/bin/python3", "-c", ASK_IP], stdin=json.dumps(names), timeout=300).stdout)
    tunnels = [{"name": name, "enabled": True, "remoteIp": f"host{i}.example"} for i, name in enumerate(names)]
    found = findings(program, {"wans": [{"current": True, "ip": "198.51.100.2"}], "greTunnels": tunnels})
    assert {names[int(finding.pointer.split("/")[2])] for finding in found if finding.id == "ip-keyword"} == set(taken)
    assert {finding.id for finding in found} == {"ip-keyword"}


# ---- the IPsec service ----

LIBRARY = "/usr/lib/ipsec/libstrongswan.so.0"
ASK_LIBRARY = f"""
import ctypes, json, sys
library = ctypes.CDLL("{LIBRARY}")
library.library_init.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
library.library_init(None, b"test")
create = library.proposal_create_from_string
create.restype, create.argtypes = ctypes.c_void_p, [ctypes.c_int, ctypes.c_char_p]
IKE, ESP = 1, 3
print(json.dumps([[bool(create(protocol, text.encode())) for text in texts]
                  for protocol, texts in zip((IKE, ESP), json.load(sys.stdin))]))
"""
NAMES = """3des aes aes128 aes192 aes256 aes512 aes128ctr aes256ccm aes192ccm64 aes128gcm16 aes256gcm128 aes256gmac aes128gcm7
camellia camellia128 camellia256ctr camellia192ccm12 camellia256ccm camellia128gcm16 blowfish blowfish192 blowfish64 serpent256
twofish twofish128 cast128 cast des null chacha20poly1305 chacha20poly1305compat md5 md5_128 sha sha1 sha1_160 sha2_256 sha256
sha2_384 sha512 sha2_512 sha2 sha3_256 sha224 sha256_96 sha2_256_96 aesxcbc aescmac camelliaxcbc prfmd5 prfsha1 prfsha256
prfsha512 prfaescmac prfsha224 modp768 modp1024 modp1536 modp2048 modp8192 modp1024s160 modp2048s256 modpnull modpnone none
modp512 ecp192 ecp256 ecp521 ecp512bp ecp384bp curve25519 x25519 curve448 x448 ntru256 newhope128 dh5 dh22 esn noesn AES256
rot13""".split()


def suites() -> list[str]:
    pairs = [f"{cipher}-{name}" for cipher in ("aes256", "aes128gcm16") for name in NAMES]
    alone = [f"{name}-{other}" for name in NAMES for other in ("sha1", "prfsha1")]
    return [*pairs, *alone]


def test_suites_are_unknown_that_the_services_library_does_not_take(program):
    """The program's own notation gives exactly these suites: a group follows a semicolon."""
    esp = [*suites(), *(f"aes256-sha1-{name}" for name in NAMES)]
    ike = [*(f"{suite}-modp2048" for suite in suites()), *(f"aes256-sha1-{name}" for name in NAMES)]
    texts = [["-".join(suite.split("-")[:2]) + "".join(f";{name}" for name in suite.split("-")[2:]) for suite in phase]
             for phase in (ike, esp)]
    takes = json.loads(subprocess.run(["/usr/bin/python3", "-c", ASK_LIBRARY], input=json.dumps([ike, esp]), text=True,
                                      capture_output=True).stdout)
    tunnels = [{"phase1": text} for text in texts[0]] + [{"phase2": text} for text in texts[1]]
    found = findings(program, {"ipsecTunnels": tunnels})
    unknown = {int(finding.pointer.split("/")[2]) for finding in found if finding.id == "unknown-proposal"}
    renamed = {"dh22", "sha2"}  # the program writes another name of these
    for number, (suite, is_taken) in enumerate(zip([*ike, *esp], [*takes[0], *takes[1]])):
        if not renamed & set(suite.split("-")):
            assert (number not in unknown) == is_taken, suite
    assert 50 < len(unknown) < len(tunnels) - 50
