"""The judge of random histories: what ends well is told so, and what does not is found."""

import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))

from histories import machine, rest  # noqa: E402  the package lies beside this folder
from histories.world import World  # noqa: E402

STORY = [("sighups", 3, 5), ("host", 0, "NXDOMAIN"), ("configure", 4), ("wrong_type", 1), ("sighup",), ("child_dies", 0),
         ("api_fails", "silent"), ("kill_and_start",), ("program_fails", "ipsec", "hangs"), ("clock_jumps", -60),
         ("terminate_and_start",), ("stray_tunnel",), ("second_invocation",)]
SHORTAGES = [("few_descriptors", 1), ("disk_fails", "full"), ("sighup",), ("wait", 400), ("no_thread",), ("log_takes_nothing",),
             ("kill_and_start",), ("no_process",), ("sighup",), ("wait", 400), ("disk_fails", "read-only"), ("stray_files",),
             ("there_is_enough",), ("second_daemon",)]
SIGNS = [("disk_fails", "full", "faild write file"), ("disk_fails", "read-only", "faild create file"),
         ("few_descriptors", 0, "ip tunnel command [-1]"), ("no_process", "ip tunnel command [-1]"),
         ("no_thread", "unable to start the thread FQDN_MONITOR")]


@pytest.fixture
def world(dynamic_program):
    """Its daemon hurries, by a library that is loaded first."""
    with World(dynamic_program) as world:
        world.at_start = rest.Start(world)
        yield world


@pytest.mark.asan
@pytest.mark.tsan
@pytest.mark.parametrize("story", [STORY, SHORTAGES], ids=["something of everything", "all that may run short"])
def test_a_story_ends_well(world, story):
    for what, *arguments in story:
        getattr(world, what)(*arguments)
    rest.judge(world, world.at_start)


def test_a_request_without_a_run_is_found(world, monkeypatch):
    monkeypatch.setattr(rest, "PATIENCE", 2)
    world.asked.append((world.router.mark("nothing is sent"), world.daemon.pid))
    with pytest.raises(AssertionError, match="waited 2 s for the run that was asked for"):
        rest.judge(world, world.at_start)


def test_a_descriptor_too_many_is_found(world):
    world.at_start.descriptors -= 1
    with pytest.raises(AssertionError, match="descriptors"):
        rest.judge(world, world.at_start)


def test_a_stack_too_many_is_found(world, monkeypatch):
    world.sighup()
    rest.wait_until_calm(world, world.at_start)
    world.router.wait_until(lambda: rest.has_no_stack_too_many(world, world.at_start), "no stack too many", rest.PATIENCE)
    counted = rest.mappings.stacks
    monkeypatch.setattr(rest.mappings, "stacks", lambda router, process: counted(router, process) + 1)
    assert not any(rest.has_no_stack_too_many(world, world.at_start) for _ in range(20))


def test_the_daemon_runs_short_of_what_is_taken_away(world):
    world.configure(3)  # whose files are not there yet
    for what, *arguments, told in SIGNS:
        mark = world.router.mark(what)
        getattr(world, what)(*arguments)
        world.sighup()
        world.router.wait_for("log", told, pid=world.daemon.pid, since=mark, timeout=rest.PATIENCE)
        world.disk_is_well()
        world.there_is_enough()
    world.log_takes_nothing()
    mark = world.router.mark("no lines")
    world.sighup()
    world.router.wait_until(lambda: rest.has_run(world, world.daemon.pid, mark), "a run", rest.PATIENCE)
    assert world.router.find("log", since=mark) == []


def spoil_file(world) -> None:
    world.router.write_file("/run/ipsec/ipsec.secrets", "another key\n")


def spoil_mode(world) -> None:
    world.router.exec(["/bin/chmod", "0666", "/run/ipsec/ipsec.conf"])


def add_tunnel(world) -> None:
    world.stray_tunnel()


def add_key(world) -> None:
    world.router.write_file("/run/ipsec/private/stray.pem", "stray\n")


def tell_ip(world, *words: str) -> None:
    world.router.exec(["/run/sandbox/bin/ip", *words])


def take_link_down(world) -> None:
    tell_ip(world, "link", "set", "gre_0_0", "down")


def add_address(world) -> None:
    tell_ip(world, "addr", "add", "10.1.1.1/24", "dev", "gre_0_0")


def add_route(world) -> None:
    tell_ip(world, "route", "add", "10.2.0.0/16", "dev", "gre_0_0")


def stop_child(world) -> None:
    world.router.program("openvpn").missing()
    world.children_leave()


# What is looked at last comes first, so that each is found with those before it still there.
SPOILT = [(stop_child, "these children are there"), (add_route, "has the routes .*10.2.0.0"),
          (take_link_down, r"has the links .*gre_0_0', 'flags': \['POINTOPOINT', 'NOARP'\]"),
          (add_address, "has the links .*10.1.1.1"), (add_tunnel, "has the tunnels .*stray"),
          (add_key, "private holds .*stray"), (spoil_file, "/var/run/ipsec/ipsec.secrets holds 'another key"),
          (spoil_mode, "/run/ipsec/ipsec.conf has the mode 0666")]


def test_what_is_not_as_planned_is_found(world):
    world.sighup()
    rest.wait_until_calm(world, world.at_start)
    planned = rest.plan(world.router)
    rest.require_planned_router(world, planned)
    for spoil, told in SPOILT:
        spoil(world)
        with pytest.raises(AssertionError, match=told):
            world.router.wait_until(lambda: rest.require_planned_router(world, planned), "it to be told", 10)


# ---- those that are drawn ----

def fails_at(*needed):
    """Takes the place of a history's performance: it fails when these steps are in it, in this order."""
    def failure_of(_program, steps):
        left = iter(steps)
        return "these two" if all(step in left for step in needed) else None
    return failure_of


def drawn(seed: int) -> machine.Record:
    record = machine.Record()
    machine.histories_of(seed, pathlib.Path("/none"), record, end=float("inf"))
    return record


def test_a_seed_draws_the_same_histories_each_time_and_none_twice(monkeypatch):
    performed = []
    monkeypatch.setattr(machine, "failure_of", lambda _program, steps: performed.append(steps))
    drawn(5)
    first, performed[:] = list(performed), []
    drawn(5)
    assert performed == first and len(set(first)) == len(first) >= 50
    assert max(map(len, first)) == machine.MOST_STEPS


def test_a_history_that_fails_is_found_and_made_shorter(monkeypatch):
    needed = ("wan", 2), ("sighup",)
    monkeypatch.setattr(machine, "failure_of", fails_at(*needed))
    record = next(record for record in map(drawn, range(20)) if record.why)
    assert fails_at(*needed)(None, record.failed) and len(record.failed) > 2
    assert machine.shortened(pathlib.Path("/none"), record.failed, record.why) == (needed, "these two")
    assert machine.text(needed) == "wan(2)\nsighup()\n"


def test_no_history_begins_when_the_time_is_over(monkeypatch):
    monkeypatch.setattr(machine, "failure_of", lambda _program, steps: pytest.fail("it was performed"))
    record = machine.Record()
    machine.histories_of(1, pathlib.Path("/none"), record, end=0)
    assert record.tried == set()
