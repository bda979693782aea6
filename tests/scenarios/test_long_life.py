"""A long life: what its samples say of memory, threads, descriptors and children, and that they are taken at rest."""

import itertools
import pathlib
import random
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))

from endurance import verdict  # noqa: E402  the package lies beside this folder
from endurance.life import Life  # noqa: E402
from endurance.samples import Sample  # noqa: E402


def life(grows: float, **members) -> list[Sample]:
    """Samples of a daemon whose memory grows by so many bytes a run, and has some noise of its own, in pages."""
    noise = random.Random(1)
    samples = []
    for number in range(200):
        memory = round((1_700_000 + grows * 5 * number + noise.gauss(0, 6000)) / 4096) * 4096
        values = {"seconds": 12.0 * number, "events": 4 * number, "runs": 5 * number, "anonymous": memory,
                  "resident": memory + 3_500_000, "threads": 14, "descriptors": 5, "processor": 0.1 * number, "zombies": 0}
        samples.append(Sample(**(values | {name: value(number) for name, value in members.items()})))
    return samples


def test_memory_that_stays_lasts():
    found = verdict.judge(life(0))
    assert found.holds and found.memory.low < 0 < found.memory.high


@pytest.mark.parametrize("grows", [300, 2000])
def test_memory_that_grows_is_told_with_its_confidence(grows):
    found = verdict.judge(life(grows))
    assert not found.holds and found.memory.low < grows < found.memory.high
    assert "it does not last" in found.text()


def test_too_few_samples_tell_nothing():
    assert "not to be told yet" in verdict.judge(life(0)[:20]).text()


@pytest.mark.parametrize("member, told", [("threads", "At rest it had from 14 to 15 threads"),
                                          ("descriptors", "At rest it had from 5 to 6 descriptors"),
                                          ("zombies", "In the end it had 1 dead children")])
def test_what_stays_behind_is_told(member, told):
    usual = {"threads": 14, "descriptors": 5, "zombies": 0}[member]
    found = verdict.judge(life(0, **{member: lambda number: usual + (number > 150)}))
    assert not found.holds and told in found.text()


def test_a_child_that_is_about_to_be_waited_for_is_none_that_is_left():
    assert verdict.judge(life(0, zombies=lambda number: int(number == 150))).holds


@pytest.mark.slow
def test_a_life_is_sampled_at_rest(dynamic_program):
    with Life(pathlib.Path(dynamic_program), seed=1) as living:
        samples = list(itertools.islice(living.samples(seconds=float("inf")), 3))
    assert [sample.events for sample in samples] == [0, 4, 8]
    assert samples[-1].runs > samples[0].runs > 0 and samples[-1].processor > samples[0].processor
    assert {(sample.threads, sample.descriptors) for sample in samples} == {(14, samples[0].descriptors)}
    assert all(sample.anonymous < sample.resident for sample in samples)
