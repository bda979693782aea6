"""The shell script that the benchmarks compare the program with does what the program does."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))

from bench import rebuild  # noqa: E402  the package lies beside this folder


def test_the_script_makes_the_same_requests_commands_and_files(program):
    rebuild.check_example(pathlib.Path(program))
