"""What a case found: numbers, what they are compared with, curves; and the report on all cases."""

from __future__ import annotations

import math
from dataclasses import dataclass, field
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt


@dataclass
class Result:
    """One number, or outcome, of a case. passed is None for what is told without a judgement."""

    case: str
    quantity: str
    measured: object
    reference: object
    tolerance: str
    source: str
    passed: bool | None

    def row(self):
        verdict = {True: "yes", False: "**NO**", None: "-"}[self.passed]
        numbers = [text(value) for value in (self.measured, self.reference)]
        return [self.case, self.quantity, *numbers, self.tolerance, self.source, verdict]


@dataclass
class Plot:
    """Curves by label, each x and y, and horizontal lines by label."""

    title: str
    x: str
    y: str
    curves: dict
    lines: dict = field(default_factory=dict)


class Results(list):
    """The results of one case, in the order in which they were found, and its plots."""

    def __init__(self, case):
        super().__init__()
        self.case = case
        self.plots = []

    def add(self, quantity, measured, reference, tolerance, source, passed):
        self.append(Result(self.case, quantity, measured, reference, tolerance, source, passed))

    def near(self, quantity, measured, reference, source, relative=None, absolute=None):
        """Within a relative or an absolute tolerance of the reference."""
        allowed = absolute if relative is None else relative * abs(reference)
        tolerance = f"{absolute:g}" if relative is None else f"{100 * relative:g}%"
        passed = bool(abs(measured - reference) <= allowed)  # not for NaN
        self.add(quantity, measured, reference, tolerance, source, passed)

    def between(self, quantity, measured, low, high, source):
        span = "below" if math.isinf(low) else "above" if math.isinf(high) else "between"
        ends = [text(end) for end in (low, high) if not math.isinf(end)]
        passed = bool(low <= measured <= high)
        self.add(quantity, measured, f"{span} {' and '.join(ends)}", "", source, passed)

    def below(self, quantity, measured, bound, source):
        self.between(quantity, measured, -math.inf, bound, source)

    def above(self, quantity, measured, bound, source):
        self.between(quantity, measured, bound, math.inf, source)

    def outcome(self, quantity, seen, wanted, source):
        """Two words that have to be the same."""
        self.add(quantity, seen, wanted, "", source, seen == wanted)

    def told(self, quantity, measured, reference="", source=""):
        """A number to read, without a judgement."""
        self.add(quantity, measured, reference, "", source, None)

    def plot(self, title, x, y, curves, lines=None):
        self.plots.append(Plot(title, x, y, curves, lines or {}))


def text(value):
    return f"{value:.5g}" if isinstance(value, float) else str(value)


HEAD = ["case", "quantity", "measured", "reference", "tolerance", "source", "passed"]


def table(results):
    """A Markdown table, one row for each result."""
    rows = [HEAD, ["---"] * len(HEAD), *(result.row() for result in results)]
    return "".join(f"| {' | '.join(row)} |\n" for row in rows)


def draw(plot, file):
    figure, axes = plt.subplots(figsize=(7, 4), layout="constrained")
    for label, (x, y) in plot.curves.items():
        axes.plot(x, y, label=label)
    for label, height in plot.lines.items():
        axes.axhline(height, color="black", linestyle="--", linewidth=1, label=label)
    axes.set(xlabel=plot.x, ylabel=plot.y, title=plot.title)
    axes.legend()
    figure.savefig(file, dpi=120)
    plt.close(figure)


def write_report(cases, folder):
    """Writes report.md and its pictures into a folder. cases: Results, one for each case."""
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    every = [result for results in cases for result in results]
    judged = [result for result in every if result.passed is not None]
    passed = sum(result.passed for result in judged)
    parts = ["# Validation\n", f"{passed} of {len(judged)} checks passed.\n", table(every)]
    for results in cases:
        for number, plot in enumerate(results.plots):
            picture = f"{results.case}_{number}.png"
            draw(plot, folder / picture)
            parts.append(f"![{plot.title}]({picture})\n")
    file = folder / "report.md"
    file.write_text("\n".join(parts), encoding="utf-8")
    return file
