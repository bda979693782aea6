"""The package for the upgrade: the same with a higher version."""

import pathlib
import re
import subprocess


def newer(package: pathlib.Path, folder: pathlib.Path) -> pathlib.Path:
    """Made in `folder`."""
    tree, made = folder / "package", folder / "newer.deb"
    subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
    control = tree / "DEBIAN" / "control"
    control.write_text(re.sub(r"^(Version: .*)$", r"\1+newer", control.read_text(), flags=re.MULTILINE))
    subprocess.run(["dpkg-deb", "--root-owner-group", "-Znone", "--build", tree, made], check=True,
                   stdout=subprocess.DEVNULL)
    return made
