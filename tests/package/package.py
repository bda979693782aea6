"""The package that scripts/package has just built."""

import os
import pathlib
import subprocess

FOLDER = pathlib.Path(os.environ["PACKAGE_FOLDER"])
ARCHITECTURE = os.environ["PACKAGE_ARCHITECTURE"]
SOURCE = FOLDER / "source"


def output(*command: str | os.PathLike) -> str:
    """What a command that must succeed prints."""
    result = subprocess.run(command, capture_output=True, text=True)
    assert result.returncode == 0, f"{command}: {result.stdout}{result.stderr}"
    return result.stdout


def path() -> pathlib.Path:
    """Of the one package that is installed; beside it lies that of the symbols for debuggers."""
    found, = FOLDER.glob(f"tunnel-mngr_*_{ARCHITECTURE}.deb")
    return found


def field(name: str) -> str:
    return output("dpkg-deb", "--field", path(), name).strip()
