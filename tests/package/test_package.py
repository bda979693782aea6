"""What is in the package, and how it was compiled. scripts/package runs this on what it has built."""

import json
import re
import subprocess

import package
import pytest

PROGRAMS = ("usr/sbin/tunnel_mngr", "usr/sbin/tunnelctl")
MUST_HAVE = {
    "etc/init.d/tunnel_mngr": "-rwxr-xr-x",
    "lib/systemd/system/tunnel_mngr.service": "-rw-r--r--",
    "usr/lib/tmpfiles.d/tunnel_mngr.conf": "-rw-r--r--",
    "usr/libexec/tunnel_mngr-foreground": "-rwxr-xr-x",
    "usr/libexec/tunnel_mngr-functions": "-rw-r--r--",
    "usr/sbin/tunnel_mngr": "-rwxr-xr-x",
    "usr/sbin/tunnelctl": "-rwxr-xr-x",
    "usr/share/bash-completion/completions/tunnelctl": "-rw-r--r--",
    "usr/share/doc/tunnel-mngr/README.Debian": "-rw-r--r--",
    "usr/share/doc/tunnel-mngr/changelog.gz": "-rw-r--r--",
    "usr/share/doc/tunnel-mngr/copyright": "-rw-r--r--",
    "usr/share/doc/tunnel-mngr/examples/inittab": "-rw-r--r--",
    "usr/share/doc/tunnel-mngr/examples/openrc": "-rwxr-xr-x",
    "usr/share/doc/tunnel-mngr/examples/router.json": "-rw-r--r--",
    "usr/share/doc/tunnel-mngr/examples/runit-run": "-rwxr-xr-x",
    "usr/share/man/man8/tunnel_mngr.8.gz": "-rw-r--r--",
    "usr/share/man/man8/tunnelctl.8.gz": "-rw-r--r--",
}


@pytest.fixture(scope="module")
def unpacked(tmp_path_factory):
    folder = tmp_path_factory.mktemp("unpacked")
    package.output("dpkg-deb", "--extract", package.path(), folder)
    return folder


def files() -> dict[str, tuple[str, str]]:
    """Mode and owner of each file."""
    rows = (line.split(maxsplit=5) for line in package.output("dpkg-deb", "--contents", package.path()).splitlines())
    return {row[5].removeprefix("./"): (row[0], row[1]) for row in rows if row[0].startswith("-")}


def test_lintian_finds_nothing():
    changes, = package.FOLDER.glob("*.changes")
    command = ["lintian", "--allow-root", "--pedantic", "--display-info", changes]
    result = subprocess.run(command, capture_output=True, text=True)
    assert (result.returncode, result.stdout) == (0, "")


def test_each_override_of_lintian_is_explained():
    """Each paragraph of them begins with a comment."""
    paragraphs = [text for file in (package.SOURCE / "debian").glob("*lintian-overrides")
                  for text in file.read_text().split("\n\n")]
    assert paragraphs and all(text.startswith("# ") for text in paragraphs), paragraphs


@pytest.mark.parametrize("program", PROGRAMS)
def test_the_hardening_is_in_the_program(unpacked, program):
    """Position independent, with stack protector, fortified functions, read-only relocations and immediate binding.
    Control flow protection is none of Debian 12's flags, and its C library's start files are without it."""
    report = package.output("hardening-check", "--nocfprotection", unpacked / program)
    expected = ("Position Independent Executable: yes", "Stack protected: yes", "Fortify Source functions: yes",
                "Read-only relocations: yes", "Immediate binding: yes")
    for line in expected:
        assert line in report


def test_every_command_line_optimises_for_size():
    """The last -O counts, and with optimisation at link time the linker's as well."""
    commands, = package.SOURCE.glob("obj-*/compile_commands.json")
    lines = [entry["command"] for entry in json.loads(commands.read_text()) if "/tests/" not in entry["file"]]
    lines += [(commands.parent / link).read_text() for link in
              ("core/CMakeFiles/tunnel_mngr.dir/link.txt", "tunnelctl/CMakeFiles/tunnelctl.dir/link.txt")]
    assert len(lines) > 50
    assert {re.findall(r" (-O\S*)", line)[-1] for line in lines} == {"-Oz"}


def test_the_files_are_there_with_their_modes():
    found = files()
    assert {owner for _, owner in found.values()} == {"root/root"}
    assert {name: found.get(name, ("missing",))[0] for name in MUST_HAVE} == MUST_HAVE
    assert not [name for name in found if not name.startswith(("etc/init.d/", "lib/", "usr/"))]


def test_the_scripts_name_what_is_packaged(unpacked):
    """By whole paths, which the build has put in."""
    scripts = [*(unpacked / "usr/libexec").iterdir(), unpacked / "etc/init.d/tunnel_mngr",
               *(unpacked / "usr/share/doc/tunnel-mngr/examples" / name for name in ("inittab", "openrc", "runit-run"))]
    for script in scripts:
        text = script.read_text()
        assert not re.search(r"@\w+@", text), script
        named = re.findall(r"/usr/(?:sbin|libexec|lib)/[\w./-]*tunnel_mngr[\w.-]*", text)
        assert named and all(name.removeprefix("/") in MUST_HAVE for name in named), (script, named)


def test_the_unit_starts_the_packaged_program(unpacked):
    unit = (unpacked / "lib/systemd/system/tunnel_mngr.service").read_text()
    program = re.search(r"^ExecStart=/(\S+)", unit, re.MULTILINE)[1]
    assert program in PROGRAMS


def test_the_package_is_for_its_architecture():
    assert package.field("Architecture") == package.ARCHITECTURE
    needed = {re.match(r"[^ (]+", name.strip())[0] for name in package.field("Depends").split(",")}
    assert {"iproute2", "libc6", "libcurl4", "libjsoncpp25"} <= needed


# Versions of glibc's interface that are named otherwise, and the first release that has each.
INTERFACES = {"ABI_DT_RELR": "2.36"}


@pytest.mark.parametrize("program", PROGRAMS)
def test_the_package_asks_for_a_c_library_that_can_start_its_programs(unpacked, program):
    versions = package.output("readelf", "--wide", "--version-info", unpacked / program)
    needed = re.findall(r"\bName: GLIBC_(\S+)", versions)
    releases = [[int(part) for part in INTERFACES.get(version, version).split(".")] for version in needed]
    asked, = re.findall(r"\blibc6 \(>= ([\d.]+)\)", package.field("Depends"))
    assert max(releases) <= [int(part) for part in asked.split(".")]


def test_the_versions_agree():
    """Of the project, as CMake knows it, of the package and of the list of changes for users."""
    cache, = package.SOURCE.glob("obj-*/CMakeCache.txt")
    project = re.search(r"^CMAKE_PROJECT_VERSION:STATIC=(\S+)$", cache.read_text(), re.MULTILINE)[1]
    changes = re.search(r"^## ([^\s,]+)", (package.SOURCE / "CHANGELOG.md").read_text(), re.MULTILINE)[1]
    assert {project, changes} == {package.field("Version")}
