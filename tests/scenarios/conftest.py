"""Fixtures of the scenario tests: routers with the real program in them."""

import os
import pathlib
import signal
import subprocess
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parents[2]))

from sandbox.router import Router  # noqa: E402  the package lies beside the tests' folder

ROUTERS = pytest.StashKey[list]()
FAILED = pytest.StashKey[bool]()


def pytest_addoption(parser):
    parser.addoption("--tunnel-mngr", help="path of the program under test; the variable TUNNEL_MNGR sets it, too")


def pytest_configure(config):
    """The modules of the tests, which ask about the program, know it from the variable.

    Whoever runs the tests may ignore signals, as a shell has its background jobs do, and nohup. What the tests start
    would inherit that."""
    if path := config.getoption("--tunnel-mngr", None):
        os.environ["TUNNEL_MNGR"] = path
    defaults = {signal.SIGINT: signal.default_int_handler, signal.SIGQUIT: signal.SIG_DFL, signal.SIGHUP: signal.SIG_DFL}
    for number, handler in defaults.items():
        if signal.getsignal(number) is signal.SIG_IGN:
            signal.signal(number, handler)


@pytest.fixture
def program() -> str:
    """The path of the program under test. Without it there is an error: a skipped test looks like a passed one."""
    path = os.environ.get("TUNNEL_MNGR")
    if not path or not os.access(path, os.X_OK):
        raise pytest.UsageError(f"no program to test: set TUNNEL_MNGR or --tunnel-mngr (now {path!r})")
    return path


def is_dynamic(program: str | os.PathLike) -> bool:
    """Whether an executable is made to be loaded by the dynamic linker: whether it names that (elf(5))."""
    headers = subprocess.run(["readelf", "-lW", program], check=True, capture_output=True, text=True).stdout
    return " INTERP " in headers


@pytest.fixture
def dynamic_program(program) -> str:
    """The program under test, for tests that load something before its libraries, or in place of them."""
    if not is_dynamic(program):
        pytest.skip("the program is linked statically, and nothing can be loaded before its libraries")
    return program


@pytest.fixture
def open_router(request):
    """A function that opens a router (its arguments are Router's); all are closed after the test. A test whose router
    has had a sanitizer report or a crash fails."""
    routers = request.node.stash.setdefault(ROUTERS, [])

    def open_router(program, *arguments, **options) -> Router:
        if "LD_PRELOAD" in (options.get("environment") or {}) and not is_dynamic(program):
            pytest.skip("the program is linked statically, and nothing can be loaded before its libraries")
        router = Router(program, *arguments, **options)
        router.open()
        routers.append(router)
        return router

    yield open_router
    late = []  # what came after the test's own check, at the end of the program
    for router in routers:
        told = router.problems() if request.node.stash.get(FAILED, False) else []
        router.close()
        late += [problem for problem in router.problems() if problem not in told]
    if late:
        pytest.fail("\n\n".join(late), pytrace=False)


@pytest.fixture
def make_router(open_router, program):
    """A function that opens a router with the program under test in it: make_router(documents=..., ...)."""
    def make_router(documents=None, **options) -> Router:
        return open_router(program, documents, **options)
    return make_router


@pytest.fixture
def router(make_router) -> Router:
    """A router with the program under test, the default documents and the folders that the IPsec service brings."""
    router = make_router()
    router.make_ipsec_folders()
    return router


@pytest.fixture
def routed(open_router, tmp_path):
    """For the sandbox's own tests: a function that opens a router whose program is this Python text."""
    def routed(text: str = "", documents=None, **options) -> Router:
        path = tmp_path / f"program{len(os.listdir(tmp_path))}"
        path.write_text(f"#!/usr/bin/python3\n{text}")
        path.chmod(0o755)
        return open_router(path, documents, **options)
    return routed


@pytest.fixture
def open_house(make_router, program, tmp_path):
    """A function that opens a house of init_systems with these packages and files: open_house("runit", files={...})."""
    from init_systems import DOCUMENTS, House, unpacked  # which asks about the program

    def open_house(*packages: str, files: dict[str, str] | None = None) -> House:
        for package in packages:
            unpacked(package)  # or this test is skipped, before there is a router
        return House(make_router(DOCUMENTS), program, tmp_path, packages, files)
    return open_house


@pytest.fixture(params=[["/bin/sh"], ["busybox", "sh"]], ids=["debian", "busybox"])
def shell(request) -> list[str]:
    return request.param


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Fails the test for what its routers complain of, and shows a failed test's timelines and outputs."""
    report = (yield).get_result()
    if report.when != "call":
        return
    routers = item.stash.get(ROUTERS, [])
    problems = [problem for router in routers for problem in router.problems()]
    if report.passed and problems:
        report.outcome = "failed"
        report.longrepr = "\n\n".join(problems)
    item.stash[FAILED] = report.failed
    for number, router in enumerate(routers if report.failed else []):
        report.sections.append((f"router {number}: timeline", router.dump()))
        report.sections.append((f"router {number}: the programs' standard error", router.errors()))
        report.sections.append((f"router {number}: the sandbox's own complaints", router.complaints()))
