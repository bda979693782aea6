#!/usr/bin/env python3
"""Checks how large executables are when they are stripped.

    executable_sizes.py STRIP EXECUTABLE MOST [EXECUTABLE MOST]...

MOST is a number of bytes. Prints a line for each executable and exits with 1 when one is larger.
"""

import pathlib
import subprocess
import sys
import tempfile


def stripped_size(strip, executable):
    with tempfile.TemporaryDirectory() as folder:
        stripped = pathlib.Path(folder, "stripped")
        subprocess.run([strip, "-o", stripped, executable], check=True)
        return stripped.stat().st_size


def main():
    strip, *rest = sys.argv[1:]
    too_large = False
    for executable, most in zip(rest[::2], map(int, rest[1::2]), strict=True):
        size = stripped_size(strip, executable)
        print(f"{executable}: {size} of {most} bytes")
        too_large = too_large or size > most
    sys.exit(1 if too_large or not rest else 0)


if __name__ == "__main__":
    main()
