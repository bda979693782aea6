"""What tunnelctl(8) must tell of a router. The lab reads the same things by itself, in readings.py and state.py."""

from lab.documents import Documents

# How what is told begins, of tunnels that lead nowhere, and of one whose far end the next supervision pass will ping.
ALONE = {"Spare_Line": "up", "spare": "down: nothing has come from the other end",
         "partner": "down: no answer from 203.0.113.30 yet"}
BEFORE_A_PASS = {"static": ("up", "unknown: ", "down: the last ping of ")}
LEFT_OVER = "stale: nothing runs; the file of an earlier configuration is left"


def whole(documents: Documents) -> dict[str, str]:
    """By the name of each tunnel, how what is told of it begins when all is up that has another end."""
    records = [*documents.gre, *documents.ipsec, *documents.openvpn]
    enabled = {name_of(record): ALONE.get(name_of(record), "up") for record in records if record["enabled"]}
    return enabled | {name_of(record): LEFT_OVER for record in documents.openvpn if not record["enabled"]}


def without_wan(documents: Documents) -> dict[str, str]:
    """The same while no WAN is current."""
    started = {name_of(record) for record in documents.openvpn}
    return {name: "down: no WAN is current, so nothing is " + ("started" if name in started else "built")
            for name, text in whole(documents).items() if text != LEFT_OVER}


def tunnels(status: dict) -> dict[str, str]:
    """From `tunnelctl status --json`: by name a tunnel's state, with the reason behind a colon if there is one."""
    return {row["name"]: ": ".join(filter(None, (row["state"], row["reason"]))) for row in status["tunnels"]}


def differences(expected: dict[str, str | tuple[str, ...]], found: dict[str, str]) -> str:
    """In words, or nothing. Of what is found of a tunnel, the beginning is expected."""
    return "; ".join(f"{name}: {found.get(name)!r} instead of {expected.get(name)!r}"
                     for name in expected | found
                     if name not in expected or not found.get(name, "").startswith(expected[name]))


def name_of(record: dict) -> str:
    return record["name"].replace(" ", "_")
