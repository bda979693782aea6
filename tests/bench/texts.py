"""What composing long texts costs for each byte. Sizes are compared by the least of their values: a loop that only
computes is never faster than it can be, and all noise adds."""

import json
import pathlib
import subprocess

from bench.section import Goal, Samples, Section, Table

REPETITIONS = 15
MOST_GROWTH = 1.5  # what is quadratic grows a hundredfold


def measure(programs: pathlib.Path) -> Section:
    costs = _costs(programs / "text_benchmark")
    rows, goals = [], []
    for name, by_size in costs.items():
        smallest, *_, largest = by_size
        growth = min(by_size[largest]) / min(by_size[smallest])
        for size, values in by_size.items():
            rows.append([name, size, Samples(values).text(digits=2),
                         f"{min(values) / min(by_size[smallest]):.2f}"])
        goals.append(Goal(f"{name}: cost of a byte at {largest} against that at {smallest}", growth, MOST_GROWTH))
    table = Table("Nanoseconds for each byte of text, by its size in bytes (for connections: by networks)",
                  ["benchmark", "size", "ns a byte", "least against the smallest size's"], rows)
    return Section("Texts", [table], goals, costs)


def _costs(benchmark: pathlib.Path) -> dict[str, dict[int, list[float]]]:
    """Nanoseconds a byte, by name and size, repetition by repetition. The sizes take turns."""
    argv = [str(benchmark), "--benchmark_format=json", "--benchmark_min_time=0.05",
            f"--benchmark_repetitions={REPETITIONS}", "--benchmark_enable_random_interleaving=true"]
    report = json.loads(subprocess.run(argv, check=True, capture_output=True, text=True).stdout)
    costs: dict[str, dict[int, list[float]]] = {}
    for run in report["benchmarks"]:
        if run["run_type"] != "iteration":
            continue
        name, size = run["run_name"].split("/")
        costs.setdefault(name, {}).setdefault(int(size), []).append(1e9 / run["bytes_per_second"])
    return {name: dict(sorted(by_size.items())) for name, by_size in costs.items()}
