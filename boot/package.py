"""The package, and that for the upgrade: the same with a higher version."""

import argparse
import pathlib
import re
import subprocess

NAME = "tunnel-mngr"


def checked(path: str) -> pathlib.Path:
    """A word of the command line as the package that it must be."""
    asked = subprocess.run(["dpkg-deb", "--field", path, "Package"], capture_output=True, text=True)
    if asked.stdout.strip() != NAME:
        raise argparse.ArgumentTypeError(f"{path} is no package of {NAME}")
    return pathlib.Path(path)


def newer(package: pathlib.Path, folder: pathlib.Path) -> pathlib.Path:
    """Made in `folder`."""
    tree, made = folder / "package", folder / "newer.deb"
    subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
    control = tree / "DEBIAN" / "control"
    control.write_text(re.sub(r"^(Version: .*)$", r"\1+newer", control.read_text(), flags=re.MULTILINE))
    subprocess.run(["dpkg-deb", "--root-owner-group", "-Znone", "--build", tree, made], check=True,
                   stdout=subprocess.DEVNULL)
    return made
