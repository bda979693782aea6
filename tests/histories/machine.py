"""Histories that nobody thought of: Hypothesis draws what happens, one thing after the other."""

import contextlib
import pathlib
import time

from hypothesis import HealthCheck, Phase, Verbosity, seed, settings
from hypothesis import strategies as st
from hypothesis.stateful import RuleBasedStateMachine, rule, run_state_machine_as_test

from histories import configurations
from histories.rest import Start, judge
from histories.shortages import DISK_FAULTS
from histories.world import API_FAULTS, MOST_JUMP, PROGRAM_FAULTS, PROGRAMS, World

HISTORIES = 100  # for one seed
MOST_STEPS = 12
SHORTENING_SECONDS = 300
ANSWERS = ["203.0.113.50", "203.0.113.51", "NXDOMAIN", "SERVFAIL", "NODATA", "SILENT"]


class Enough(BaseException):
    """Ends the making of histories. Hypothesis lets it pass, since it is no Exception."""


class Record:
    """The histories of one seed. When `why` is no empty text, `failed` is the one that did not end well."""

    def __init__(self):
        self.tried: set[tuple] = set()
        self.failed: tuple = ()
        self.why = ""


def failure_of(program: pathlib.Path, steps: tuple) -> str | None:
    """Makes this history, and returns why it did not end well."""
    try:
        with World(program) as world:
            start = Start(world)
            for what, *arguments in steps:
                getattr(world, what)(*arguments)
            judge(world, start)
    except Exception as error:  # whatever it was, the history shows it again
        return str(error) or repr(error)
    return None


def shortened(program: pathlib.Path, steps: tuple, why: str) -> tuple[tuple, str]:
    """Leaves out halves, quarters and single steps as long as the rest fails, too. Hypothesis does it more thoroughly, with
    many more attempts, of which each takes seconds here."""
    end = time.monotonic() + SHORTENING_SECONDS
    size = len(steps)
    while size := size // 2:
        position = 0
        while position < len(steps) and time.monotonic() < end:
            rest = steps[:position] + steps[position + size:]
            if told := failure_of(program, rest):
                steps, why = rest, told
            else:
                position += size
    return steps, why


def text(steps: tuple) -> str:
    """A step on each line."""
    return "".join(f"{what}({', '.join(map(repr, arguments))})\n" for what, *arguments in steps)


def histories_of(number: int, program: pathlib.Path, record: Record, end: float) -> None:
    """Makes the histories of one seed until one fails, or as many as there is time for until `end`."""

    class History(RuleBasedStateMachine):
        """Only notes the steps, and performs them when they are complete. Hypothesis begins with the shortest, over and
        over: what has been performed once is not again."""

        def __init__(self):
            super().__init__()
            self._steps = []

        def happen(self, what: str, *arguments) -> None:
            self._steps.append((what, *arguments))

        def teardown(self):
            steps = tuple(self._steps)
            if time.monotonic() > end:
                raise Enough
            if steps in record.tried:
                return
            record.tried.add(steps)
            if why := failure_of(program, steps):
                record.failed, record.why = steps, why
                raise Enough

        @rule()
        def sighup(self):
            self.happen("sighup")

        @rule(count=st.integers(2, 4), milliseconds=st.sampled_from([0, 5, 30, 100]))
        def sighups(self, count, milliseconds):
            self.happen("sighups", count, milliseconds)

        @rule(what=st.sampled_from(["second_invocation", "second_daemon"]))
        def another_instance(self, what):
            self.happen(what)

        @rule(number=st.integers(1, 40))
        def configure(self, number):
            self.happen("configure", number)

        @rule(number=st.integers(0, len(configurations.WRONG) - 1))
        def wrong_type(self, number):
            self.happen("wrong_type", number)

        @rule(number=st.integers(0, 3))
        def wan(self, number):
            self.happen("wan", number)

        @rule(how=st.sampled_from(sorted(API_FAULTS)))
        def api_fails(self, how):
            self.happen("api_fails", how)

        @rule()
        def api_is_well(self):
            self.happen("api_is_well")

        @rule(number=st.integers(0, len(configurations.HOSTS) - 1), answer=st.sampled_from(ANSWERS))
        def host(self, number, answer):
            self.happen("host", number, answer)

        @rule(number=st.integers(0, len(configurations.HOSTS) - 1), answer=st.sampled_from(ANSWERS))
        def slow_host(self, number, answer):
            self.happen("slow_host", number, answer)

        @rule(name=st.sampled_from(PROGRAMS), how=st.sampled_from(sorted(PROGRAM_FAULTS)))
        def program_fails(self, name, how):
            self.happen("program_fails", name, how)

        @rule(name=st.sampled_from(PROGRAMS))
        def program_is_well(self, name):
            self.happen("program_is_well", name)

        @rule(what=st.sampled_from(["stubborn_children", "late_children", "children_leave", "log_restarts", "stray_tunnel",
                                    "stray_files", "log_takes_nothing", "no_process", "no_thread"]))
        def something(self, what):
            self.happen(what)

        @rule(what=st.sampled_from(["disk_is_well", "log_is_read", "there_is_enough"]))
        def relief(self, what):
            self.happen(what)

        @rule(how=st.sampled_from(sorted(DISK_FAULTS)))
        def disk_fails(self, how):
            self.happen("disk_fails", how)

        @rule(more=st.integers(0, 8))
        def few_descriptors(self, more):
            self.happen("few_descriptors", more)

        @rule(what=st.sampled_from(["child_dies", "child_freezes"]), index=st.integers(0, 1))
        def child(self, what, index):
            self.happen(what, index)

        @rule(seconds=st.sampled_from([-MOST_JUMP, -60, 60, MOST_JUMP]))
        def clock_jumps(self, seconds):
            self.happen("clock_jumps", seconds)

        @rule(what=st.sampled_from(["terminate_and_start", "kill_and_start"]))
        def begin_anew(self, what):
            self.happen(what)

        @rule(milliseconds=st.sampled_from([20, 100, 400, 1200]))
        def wait(self, milliseconds):
            self.happen("wait", milliseconds)

    how = settings(max_examples=HISTORIES, stateful_step_count=MOST_STEPS, deadline=None, database=None, phases=[Phase.generate],
                   verbosity=Verbosity.quiet, suppress_health_check=list(HealthCheck))
    with contextlib.suppress(Enough):
        run_state_machine_as_test(seed(number)(History), settings=how)
