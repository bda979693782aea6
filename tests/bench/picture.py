"""The picture of what was measured."""

import pathlib

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "bench"  # the same figures give the same file
import matplotlib.pyplot as plt  # noqa: E402: after the choice of how to draw

from bench.rebuild import MOST_ABOVE_FLOOR, Series
from bench.section import Samples

COLOURS = {"run": "#1f5fa8", "refresh": "#5aa02c", "floor": "#8a8a8a", "script": "#c4622d"}
RATIO_TICKS = (0.5, 1, 2, 5, 10, 20)


def draw(path: pathlib.Path, series: list[Series], data: dict) -> None:
    """Four panels: what a run costs against floor and script, own processor time, memory at rest, and texts."""
    figure, panels = plt.subplots(2, 2, figsize=(11, 8), layout="constrained")
    _draw_walls(panels[0, 0], series)
    _draw_processor(panels[0, 1], series, data["Rebuild"]["line"])
    _draw_memory(panels[1, 0], data["At rest"])
    _draw_texts(panels[1, 1], data["Texts"])
    for panel in panels.flat:
        panel.grid(True, alpha=0.3)
    figure.savefig(path, metadata={"Date": None})
    plt.close(figure)


def _draw_walls(panel, series: list[Series]) -> None:
    counts = [s.tunnels for s in series]
    for who, label in (("run", "single run"), ("refresh", "daemon's run"), ("script", "script")):
        found = [s.against(who, "floor") for s in series]
        middle = [ratio.median for ratio in found]
        noise = [[m - min(r.values) for m, r in zip(middle, found)], [max(r.values) - m for m, r in zip(middle, found)]]
        panel.errorbar(counts, middle, yerr=noise, marker="o", capsize=3, color=COLOURS[who],
                       label=label)
    panel.axhline(1, color=COLOURS["floor"], label="floor")
    panel.axhline(MOST_ABOVE_FLOOR, color=COLOURS["run"], linestyle=":", label=f"goal {MOST_ABOVE_FLOOR}")
    panel.set(title="Wall time of a run against the floor", xscale="log", yscale="log",
              xlabel="GRE tunnels, and as many IPsec tunnels", ylabel="run / floor")
    panel.set_xticks(counts, [str(count) for count in counts])
    panel.set_yticks(RATIO_TICKS, [str(tick) for tick in RATIO_TICKS])
    panel.legend()


def _draw_processor(panel, series: list[Series], line: dict) -> None:
    counts = [s.tunnels for s in series]
    panel.plot(counts, [Samples(s.own("run")).median * 1e3 for s in series], "o", color=COLOURS["run"],
               label="single run")
    panel.plot(counts, [Samples(s.own("floor")).median * 1e3 for s in series], "o", color=COLOURS["floor"],
               label="floor")
    panel.plot([0, counts[-1]], [line["start"] * 1e3, (line["start"] + line["each"] * counts[-1]) * 1e3],
               color=COLOURS["run"], linewidth=1, label="straight line")
    panel.set(title="Own processor time of a run", xlabel="GRE tunnels, and as many IPsec tunnels", ylabel="ms",
              ylim=(0, None))
    panel.legend()


def _draw_memory(panel, rest: dict) -> None:
    counts = list(rest)
    file_backed = [(rest[count]["resident"] - rest[count]["anonymous"]) / 1e6 for count in counts]
    anonymous = [rest[count]["anonymous"] / 1e6 for count in counts]
    panel.bar(counts, file_backed, color=COLOURS["floor"], label="pages of files: program and libraries")
    panel.bar(counts, anonymous, bottom=file_backed, color=COLOURS["run"], label="its own")
    panel.set(title="Resident memory at rest", xlabel="monitors", ylabel="MB")
    panel.legend()


def _draw_texts(panel, costs: dict) -> None:
    for name, by_size in costs.items():
        smallest, *_ = by_size
        base = min(by_size[smallest])
        panel.plot(range(len(by_size)), [min(values) / base for values in by_size.values()], marker="o", label=name)
    panel.set(title="Cost of a byte of text, by its size", ylabel="against the smallest", ylim=(0, 2),
              xlim=(-0.3, 2.3))
    panel.set_xticks(range(3), ["10 KB,\n10 networks", "100 KB,\n100 networks", "1 MB,\n1000 networks"])
    panel.legend()
