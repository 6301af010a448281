"""Prints tables of the benchmark's whole steps: both schedules, their ratio, the share of the bound, and
the cost of a body's samples.

usage: bench_table.py FILE, where FILE is what the benchmark wrote with --benchmark_out. The bound is the
machine's rate of reading and writing 216 bytes per node in place, measured beside every step.
"""

import json
import sys


def rows(benchmarks):
    """(grid, layer, threads) -> schedule -> the median row of a whole fluid step."""
    table = {}
    for row in benchmarks:
        parts = row["name"].split("/")
        if parts[0] != "fluidStep" or row.get("aggregate_name") != "median":
            continue
        key = (parts[2], parts[3].split(":")[1], parts[4].split(":")[1].split("_")[0])
        table.setdefault(key, {})[parts[1]] = row
    return table


def print_samples_cost(benchmarks):
    found = [row for row in benchmarks if row["name"].startswith("samplesCost/")]
    if not found:
        return
    print("\nwhole coupled step by number of samples of its body, medians in ms")
    print("| grid | layer | threads | none | 800 | 20,000 | 20,000 / none |")
    print("| --- | --- | --- | --- | --- | --- | --- |")
    for row in found:
        _, grid, layer, threads = row["name"].split("/")[:4]
        times = " | ".join(f"{row[f'samples_{n}']:.2f}" for n in (0, 800, 20000))
        print(
            f"| {grid} | {layer.split(':')[1]} | {threads.split(':')[1]} | {times}"
            f" | {row['ratio']:.3f} |"
        )


def print_schedules(report):
    table = rows(report["benchmarks"])
    if not table:
        return
    context = report["context"]
    print(
        f"\n{context['processor']}, {context['num_cpus']} threads; whole fluid step, medians of 5"
    )
    print(
        "| grid | layer | threads | operators MLUPS | production MLUPS | ratio | of bound | B/node |"
    )
    print("| --- | --- | --- | --- | --- | --- | --- | --- |")
    for (grid, layer, threads), both in table.items():
        if len(both) < 2:
            continue
        slow, fast = both["operators"], both["production"]
        print(
            f"| {grid} | {layer} | {threads} | {slow['MLUPS']:.1f} | {fast['MLUPS']:.1f}"
            f" | {fast['MLUPS'] / slow['MLUPS']:.1f} | {fast['of_bound']:.0%}"
            f" | {slow['resident_B']:.0f} / {fast['resident_B']:.0f} |"
        )


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as file:
        report = json.load(file)
    print_schedules(report)
    print_samples_cost(report["benchmarks"])


if __name__ == "__main__":
    main()
