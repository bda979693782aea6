"""Where the companion of the program under test is."""

import os


def companion(program: str) -> str:
    """The path of tunnelctl, which is built beside the program; the variable TUNNELCTL sets another."""
    return os.environ.get("TUNNELCTL") or os.path.join(os.path.dirname(program), "..", "tunnelctl", "tunnelctl")
