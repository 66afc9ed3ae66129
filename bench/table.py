"""The table of results."""

from __future__ import annotations

import statistics
from dataclasses import dataclass


@dataclass(frozen=True)
class Row:
    what: str
    against: str
    figure: str


def ratio(values: list[float]) -> str:
    """The median of the rounds, and their range: how far it can be trusted."""
    if len(values) < 2:
        return f"{values[0]:.2f}"
    return f"{statistics.median(values):.2f} ({min(values):.2f} to {max(values):.2f})"


def draw(rows: list[Row]) -> str:
    cells = [["what", "measured against", "ratio (range)"], ["", "", ""]]
    cells += [[row.what, row.against, row.figure] for row in rows]
    widths = [max(len(line[column]) for line in cells) for column in range(3)]
    cells[1] = ["-" * width for width in widths]
    return "\n".join(
        "| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |"
        for line in cells)
