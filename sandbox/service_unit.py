"""What the service unit that is installed with the program starts the daemon with."""

import pathlib

UNIT = pathlib.Path(__file__).parents[1] / "packaging" / "tunnel_mngr.service.in"


def environment() -> dict[str, str]:
    """Its variables; it sets each on a line of its own, without quotes."""
    return dict(value.split("=", 1) for value in _values("Environment"))


def arguments() -> list[str]:
    """Those of the daemon's command line."""
    command, = _values("ExecStart")
    return command.split()[1:]


def _values(setting: str) -> list[str]:
    lines = UNIT.read_text().splitlines()
    return [line.removeprefix(f"{setting}=") for line in lines if line.startswith(f"{setting}=")]
