"""The service unit as it is installed: what it lets all that it runs do, and the page that gives the reasons."""

import pathlib
import re
import shutil
import subprocess

import pytest

from sandbox.service_unit import UNIT

PAGE = UNIT.parents[1] / "docs" / "systemd.md"
HIGHEST_EXPOSURE = 4.0

needs_systemd = pytest.mark.skipif(not shutil.which("systemd-analyze"), reason="there is no systemd-analyze here")


@pytest.fixture
def installed(tmp_path) -> pathlib.Path:
    """With a program that is there, since the real one need not be."""
    unit = tmp_path / UNIT.stem
    unit.write_text(UNIT.read_text().replace("@CMAKE_INSTALL_FULL_SBINDIR@/tunnel_mngr", shutil.which("true")))
    return unit


def analyze(*words) -> tuple[int, str]:
    result = subprocess.run(["systemd-analyze", "--no-pager", *map(str, words)], capture_output=True, text=True)
    return result.returncode, result.stdout + result.stderr


def exposure(unit: pathlib.Path) -> float:
    _, shown = analyze("security", "--offline=true", unit)
    return float(re.search(r"Overall exposure level for \S+: ([\d.]+)", shown)[1])


@needs_systemd
def test_the_unit_confines_what_it_runs(installed):
    assert exposure(installed) <= HIGHEST_EXPOSURE


@needs_systemd
def test_the_page_says_how_much(installed):
    says = re.search(r"`systemd-analyze security tunnel_mngr` says (\d\.\d)", PAGE.read_text())[1]
    assert exposure(installed) == float(says)


@needs_systemd
def test_systemd_finds_no_mistake_in_it(installed):
    _, shown = analyze("verify", "--man=no", installed)
    assert [line for line in shown.splitlines() if installed.name in line] == []


def test_the_page_has_a_reason_for_each_setting():
    """But for those that name the unit and its manual page; for a list's values, too."""
    settings = re.findall(r"^(\w+)=(.*)$", UNIT.read_text(), re.MULTILINE)
    assert len(settings) > 30
    page = PAGE.read_text().partition("## What is set, and why")[2].partition("## What is not set, and why")[0]
    missing = {name for name, _ in settings if f"`{name}=" not in page} - {"Description", "Documentation"}
    capabilities = [word.removeprefix("CAP_") for name, value in settings if name == "CapabilityBoundingSet"
                    for word in value.split()]
    families = [word for name, value in settings if name == "RestrictAddressFamilies" for word in value.split()]
    assert [*missing, *(word for word in capabilities + families if f"`{word}`" not in page)] == []
