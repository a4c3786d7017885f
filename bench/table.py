"""Rows of figures, each with its goal, and the page that shows them."""

import dataclasses
import os
import pathlib
import platform
import statistics
import time

BEGIN = "<!-- table: written by script/bench -->"
END = "<!-- end of the table -->"


@dataclasses.dataclass
class Row:
    """`figure` is what is held against the goal. Where the goal is out of reach, or too near for a busy machine, `bound`
    gates instead; the page's prose says why.
    """

    what: str
    floor: str
    daemon: str
    figure: float
    goal: float
    unit: str = "×"
    atLeast: bool = False
    bound: float | None = None

    def meets(self, limit):
        return self.figure >= limit if self.atLeast else self.figure <= limit

    def holds(self):
        return self.meets(self.goal if self.bound is None else self.bound)

    def cells(self):
        sign = "≥" if self.atLeast else "≤"
        goal = f"{sign} {number(self.goal)}"
        if self.bound is not None and not self.meets(self.goal):
            goal += f" missed; bound {sign} {number(self.bound)}"
        verdict = "holds" if self.holds() else "**falls short**"
        unit = f" {self.unit}" if self.unit not in ("", "×") else self.unit and " ×"
        return [self.what, self.floor, self.daemon, number(self.figure) + unit, goal, verdict]


HEAD = ["what", "floor", "CRDaemon", "figure", "goal", "verdict"]


def number(value):
    return f"{value:.0f}" if value == int(value) or value >= 100 else f"{value:.2f}"


def median(values):
    return statistics.median(values)


def ratios(daemon, floor):
    """Of what was measured side by side: the median of the ratios, which a change of the machine's pace touches least."""
    return statistics.median(own / least for own, least in zip(daemon, floor, strict=True))


def plain(rows):
    lines = [HEAD] + [row.cells() for row in rows]
    widths = [max(len(line[column]) for line in lines) for column in range(len(HEAD))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines)


def markdown(rows, notes):
    lines = ["| " + " | ".join(cells) + " |" for cells in [HEAD, ["---"] * len(HEAD)] + [row.cells() for row in rows]]
    machine = f"{time.strftime('%Y-%m-%d')}, Linux {platform.release()}, {os.cpu_count()} processors."
    return "\n\n".join([machine, "\n".join(lines), *notes])


def write_page(path, rows, notes):
    page = pathlib.Path(path)
    before, begin, rest = page.read_text(encoding="utf-8").partition(BEGIN)
    _, end, after = rest.partition(END)
    if not begin or not end:
        raise RuntimeError(f"{path} has no place for the table")
    page.write_text(before + BEGIN + "\n\n" + markdown(rows, notes) + "\n\n" + END + after, encoding="utf-8")
