"""Markdown tables from the measured rows."""

from __future__ import annotations

import math
from collections.abc import Callable, Iterable

from evaluation.quality import Row, cost, mean

HEADINGS = {
    "pesq": ("PESQ", "{:.2f}", 1.0),
    "stoi": ("STOI", "{:.3f}", 1.0),
    "estoi": ("ESTOI", "{:.3f}", 1.0),
    "si_sdr": ("SI-SDR dB", "{:.1f}", 1.0),
    "ovrl": ("OVRL", "{:.2f}", 1.0),
    "cut": ("cut %", "{:.1f}", 100.0),
    "pause": ("pauses dB", "{:.1f}", 1.0),
}


def table(headings: Iterable[str], rows: Iterable[Iterable[str]]) -> str:
    """A table with the first column to the left and the others to the right."""
    headings = list(headings)
    lines = [headings, ["---"] + ["---:"] * (len(headings) - 1), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines) + "\n"


def number(value: float, form: str = "{:.2f}") -> str:
    """The number as text; a dash for what could not be measured."""
    return "–" if value is None or math.isnan(value) else form.format(value)


def cell(rows: list[Row], key: str) -> str:
    """Mean of one measure as text."""
    _, form, factor = HEADINGS[key]
    return number(mean(rows, key) * factor, form)


def by_system(rows: list[Row]) -> dict[str, list[Row]]:
    """Rows in order of their systems' first appearance."""
    groups: dict[str, list[Row]] = {}
    for row in rows:
        groups.setdefault(row.system, []).append(row)
    return groups


def overall(rows: list[Row], systems: dict, baseline: str) -> str:
    """All measures of every system with cost and latency; costs also as multiples of `baseline`."""
    groups = by_system(rows)
    unit = cost(groups[baseline]) if baseline in groups else float("nan")
    lines = []
    for name, group in groups.items():
        own = cost(group)
        spent = ["–", "–"] if name == "unprocessed" else [f"{own:.4f}", number(own / unit, "{:.2f}")]
        latency = "–" if name == "unprocessed" else f"{systems[name]['latency']:.0f}"
        lines.append([name, *(cell(group, key) for key in HEADINGS), *spent, latency])
    headings = ["", *(heading for heading, _, _ in HEADINGS.values())]
    return table([*headings, "CPU s/s", f"× {baseline}", "latency ms"], lines)


def split(rows: list[Row], group_of: Callable[[Row], str], order: list[str], keys: list[str]) -> str:
    """For every system and measure in `keys` one line with a column for each group."""
    lines = []
    for key in keys:
        for name, group in by_system(rows).items():
            parts = [[row for row in group if group_of(row) == label] for label in order]
            lines.append([f"{HEADINGS[key][0]}, {name}", *(cell(p, key) if p else "–" for p in parts)])
    return table(["", *order], lines)


def against(rows: list[Row], ours: list[str], other: str) -> str:
    """Differences of our systems to another one; better ones carry a plus sign."""
    groups = by_system(rows)
    if other not in groups:
        return ""
    lines = []
    for name in ours:
        if name not in groups:
            continue
        line = [name]
        for key in ("pesq", "stoi", "estoi", "si_sdr", "ovrl", "cut"):
            _, form, factor = HEADINGS[key]
            difference = (mean(groups[name], key) - mean(groups[other], key)) * factor
            line.append(form.replace("{:", "{:+").format(-difference if key == "cut" else difference))
        line.append(f"{cost(groups[other]) / cost(groups[name]):.1f}")
        lines.append(line)
    names = [HEADINGS[key][0] for key in ("pesq", "stoi", "estoi", "si_sdr", "ovrl")]
    return table([f"minus {other}", *names, "fewer cut %", "times cheaper"], lines)
