"""The samples as a picture."""

import pathlib

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "endurance"  # the same figures give the same file
import matplotlib.pyplot as plt  # noqa: E402: after the choice of how to draw

from endurance.life import FACTOR
from endurance.samples import Sample
from endurance.verdict import Verdict, settled

DAY = 86400 / FACTOR  # seconds of ours in a day of the router's
BLUE, GREEN, GREY = "#1f5fa8", "#5aa02c", "#8a8a8a"


def draw(path: pathlib.Path, samples: list[Sample], verdict: Verdict) -> None:
    """Four panels over the router's days: memory, with its line; threads and descriptors; processor time; runs."""
    days = [sample.seconds / DAY for sample in samples]
    figure, panels = plt.subplots(2, 2, figsize=(11, 7), layout="constrained")
    memory, counts, processor, runs = panels.flat
    _draw_memory(memory, days, samples, verdict)
    counts.plot(days, [sample.threads for sample in samples], color=BLUE, label="threads")
    counts.plot(days, [sample.descriptors for sample in samples], color=GREEN, label="descriptors")
    counts.set(title="At rest", ylim=(0, None))
    processor.plot(days, [sample.processor for sample in samples], color=BLUE, label="of the daemon itself")
    processor.set(title="Processor time in seconds", ylim=(0, None))
    runs.plot(days, [sample.runs for sample in samples], color=BLUE, label="runs")
    runs.plot(days, [sample.events for sample in samples], color=GREY, label="events")
    runs.set(title="What happened", ylim=(0, None))
    for panel in panels.flat:
        panel.set_xlabel("days of the router's time")
        panel.grid(True, alpha=0.3)
        panel.legend()
    figure.savefig(path, metadata={"Date": None})
    plt.close(figure)


def _draw_memory(panel, days: list[float], samples: list[Sample], verdict: Verdict) -> None:
    panel.plot(days, [sample.resident / 1024 for sample in samples], color=GREY, label="resident")
    panel.plot(days, [sample.anonymous / 1024 for sample in samples], color=BLUE, label="its own")
    if verdict.memory:
        late = settled(samples)
        line = [(verdict.memory.start + verdict.memory.value * sample.runs) / 1024 for sample in late]
        panel.plot([sample.seconds / DAY for sample in late], line, color="black", linewidth=1,
                   label=f"{verdict.memory.value:+.1f} ± {verdict.memory.uncertainty:.1f} bytes a run")
    panel.set(title="Memory in KiB", ylim=(0, None))
