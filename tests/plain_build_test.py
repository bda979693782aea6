#!/usr/bin/env python3
"""What `cmake -B build` gives without any option.

    plain_build_test.py ROOT BUILD

BUILD is a finished build of the same sources; its programs stand in for those that the plain build would take minutes for.
"""

import json
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

PROGRAMS = ["core/tunnel_mngr", "tunnelctl/tunnelctl"]
ROOT, BUILD = map(pathlib.Path, sys.argv[1:3])


def configure(folder, *options):
    return subprocess.run(["cmake", "-S", ROOT, "-B", folder, *options], capture_output=True, text=True)


def has_symbols(executable):
    sections = subprocess.run(["readelf", "-SW", executable], capture_output=True, text=True, check=True).stdout
    return " .symtab " in sections


class PlainBuild(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def installed(self, *options):
        """The paths of the programs as they are installed."""
        build = self.folder / "build"
        prefix = self.folder / "prefix"
        configured = configure(build, "-DBUILD_TESTING=OFF", *options)
        self.assertEqual(configured.returncode, 0, configured.stderr)
        for program in PROGRAMS:
            shutil.copy(BUILD / program, build / program)
        subprocess.run(["cmake", "--install", build, "--prefix", prefix], check=True, capture_output=True)
        return [prefix / "sbin" / pathlib.Path(program).name for program in PROGRAMS]

    def test_optimises_for_size(self):
        configure(self.folder, "-DBUILD_TESTING=OFF")
        commands = [entry["command"] for entry in json.loads((self.folder / "compile_commands.json").read_text())]
        self.assertEqual([command for command in commands if " -Os " not in command], [])
        self.assertTrue(commands)

    def test_installs_programs_without_symbols(self):
        self.assertTrue(has_symbols(BUILD / PROGRAMS[0]))
        self.assertEqual([has_symbols(program) for program in self.installed()], [False, False])

    def test_who_names_a_build_type_keeps_the_symbols(self):
        self.assertEqual([has_symbols(program) for program in self.installed("-DCMAKE_BUILD_TYPE=MinSizeRel")], [True, True])

    def test_installs_what_starts_the_daemon_without_systemd(self):
        self.installed()
        executable = {"libexec/tunnel_mngr-foreground": True, "libexec/tunnel_mngr-functions": False,
                      "share/doc/tunnel_mngr/examples/inittab": False, "share/doc/tunnel_mngr/examples/openrc": True,
                      "share/doc/tunnel_mngr/examples/runit-run": True}
        for name, expected in executable.items():
            file = self.folder / "prefix" / name
            self.assertEqual(file.stat().st_mode & 0o100 != 0, expected, name)
            text = file.read_text()
            self.assertNotRegex(text, r"@\w+@", name)
            self.assertIn("/usr/local/", text, name)

    def test_says_that_tests_are_left_out(self):
        configured = configure(self.folder, "-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON")
        self.assertEqual(configured.returncode, 0, configured.stderr)
        self.assertIn("GoogleTest is missing, and so the tests are left out.", configured.stdout + configured.stderr)

    def test_a_developers_build_fails_without_tests(self):
        configured = configure(self.folder, "-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON", "-DTUNNEL_MNGR_STRICT=ON")
        self.assertNotEqual(configured.returncode, 0)
        self.assertIn("GTest", configured.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
