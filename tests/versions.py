#!/usr/bin/env python3
"""Checks that tunnelctl, the changelog and the Debian package's changelog tell the same version.

    versions.py ROOT TUNNELCTL...

TUNNELCTL may be several words: a program that runs it comes first. Prints each version, and exits with 1 when they differ.
"""

import pathlib
import re
import subprocess
import sys


def first_match(pattern, text):
    found = re.search(pattern, text, re.MULTILINE)
    return found[1] if found else "none"


def main():
    root = pathlib.Path(sys.argv[1])
    said = subprocess.run([*sys.argv[2:], "--version"], capture_output=True, text=True, check=True).stdout
    versions = {"tunnelctl": first_match(r"\Atunnelctl (\S+)\n\Z", said),
                "CHANGELOG.md": first_match(r"^## ([\d.]+)", (root / "CHANGELOG.md").read_text())}
    # "name (version-revision) distribution; ...": the revision is the package's own.
    package = (root / "debian/changelog").read_text()
    versions["debian/changelog"] = first_match(r"\A\S+ \(([^()-]+)(?:-[^()-]+)?\) ", package)
    print("\n".join(f"{where}: {version}" for where, version in versions.items()))
    sys.exit(0 if len(set(versions.values())) == 1 and "none" not in versions.values() else 1)


if __name__ == "__main__":
    main()
