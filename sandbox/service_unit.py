"""What the service unit that is installed with the program starts the daemon with."""

import pathlib

UNIT = pathlib.Path(__file__).parents[1] / "packaging" / "tunnel_mngr.service.in"


def environment() -> dict[str, str]:
    """Its variables; it sets each on a line of its own, without quotes."""
    lines = UNIT.read_text().splitlines()
    return dict(line.removeprefix("Environment=").split("=", 1) for line in lines if line.startswith("Environment="))
