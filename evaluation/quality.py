"""Suppressors over noisy/clean pairs, measured side by side, and the Markdown tables of the results."""

from __future__ import annotations

import math
from collections.abc import Callable, Iterable
from dataclasses import dataclass, field

import numpy as np

from evaluation.judges import Opinions
from evaluation.pairs import Pair, PairFiles
from evaluation.suppressors import Suppressor
from training import measures


@dataclass
class Row:
    """Measures of one system on one pair."""

    system: str
    pair: str
    rate: int
    info: dict
    seconds: float
    cpu_seconds: float
    values: dict = field(default_factory=dict)


def beside(out: np.ndarray, clean: np.ndarray, rate: int) -> dict:
    """The measures of `out` that compare it with a reference."""
    return {
        "pesq": measures.pesq(out, clean, rate),
        "stoi": measures.stoi(out, clean, rate),
        "estoi": measures.stoi(out, clean, rate, extended=True),
        "si_sdr": measures.si_sdr(out, clean),
        "cut": measures.cut_share(out, clean, rate),
    }


def measure(out: np.ndarray, pair: Pair, opinions: Opinions | None) -> dict:
    """Every measure of `out`, a cleaned version of `pair.noisy`; opinions only where their networks are given.

    The reference is speech in its room; `early_` stands before what was measured against the speech with
    its early reflections, for reverberant pairs only. `lines` is 100 for a wave with steady lines, else 0;
    `line` is the strongest one in dB re speech.
    """
    rate = pair.rate
    values = beside(out, pair.room, rate)
    if not np.array_equal(pair.clean, pair.room):
        values |= {f"early_{key}": value for key, value in beside(out, pair.clean, rate).items()}
    values |= opinions(out, rate) if opinions else {}
    values["pause"] = measures.pause_attenuation(out, pair.noisy, pair.room, rate)
    lines = measures.steady_lines(out, pair.noisy, pair.room, rate)
    values |= {"lines": float(bool(lines)), "line": lines[0][1] if lines else float("nan")}
    return values | measures.band_gains(out, pair.room, rate)


def run_pair(pair: Pair, systems: Iterable[Suppressor], opinions: Opinions | None) -> list[Row]:
    """One pair through every system in turn, each from a fresh stream."""
    rows = []
    for system in systems:
        before = system.cpu_seconds
        out = system.clean_file(pair.noisy, pair.rate)
        cpu = system.cpu_seconds - before
        values = measure(out, pair, opinions)
        seconds = len(pair.noisy) / pair.rate
        rows.append(Row(system.name, pair.name, pair.rate, pair.info, seconds, cpu, values))
    return rows


def spread(files: list[PairFiles], count: int | None) -> list[PairFiles]:
    """At most `count` of the pairs in a fixed random order, so that any part of them is a fair one."""
    order = np.random.default_rng(0).permutation(len(files))[:count]
    return [files[index] for index in order]


def mean(rows: Iterable[Row], key: str) -> float:
    """Mean of one measure, leaving out what could not be measured."""
    values = np.array([row.values.get(key, np.nan) for row in rows], dtype=float)
    values = values[~np.isnan(values)]
    return float(np.mean(values)) if len(values) else float("nan")


def cost(rows: list[Row]) -> float:
    """CPU seconds per second of audio."""
    return sum(row.cpu_seconds for row in rows) / sum(row.seconds for row in rows)


REFERRED = {
    "pesq": ("PESQ", "{:.2f}", 1.0),
    "stoi": ("STOI", "{:.3f}", 1.0),
    "estoi": ("ESTOI", "{:.3f}", 1.0),
    "si_sdr": ("SI-SDR dB", "{:.1f}", 1.0),
    "cut": ("cut %", "{:.1f}", 100.0),
}
JUDGED = {
    "p808": ("P.808", "{:.2f}", 1.0),
    "ovrl": ("OVRL", "{:.2f}", 1.0),
    "pause": ("pauses dB", "{:.1f}", 1.0),
}
DIFFERENCES = ("pesq", "stoi", "estoi", "si_sdr", "p808", "ovrl")
MAIN = (*REFERRED, *JUDGED)
HEADINGS = {
    **REFERRED,
    **JUDGED,
    **{f"early_{key}": row for key, row in REFERRED.items()},
    "lines": ("lines %", "{:.0f}", 100.0),
    "line": ("loudest line dB", "{:.0f}", 1.0),
    **{f"from_{low}": (f"from {low / 1000:g} kHz", "{:+.1f}", 1.0) for low in measures.BAND_EDGES[:-1]},
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
    """Mean of one measure as text; of lines the loudest."""
    _, form, factor = HEADINGS[key]
    if key == "line":
        loudest = [row.values[key] for row in rows if not math.isnan(row.values.get(key, math.nan))]
        return number(max(loudest, default=math.nan), form)
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
        lines.append([name, *(cell(group, key) for key in MAIN), *spent, latency])
    return table(["", *(HEADINGS[key][0] for key in MAIN), "CPU s/s", f"× {baseline}", "latency ms"], lines)


def columns(rows: list[Row], keys: Iterable[str]) -> str:
    """The measures `keys` of every system; those that no row has are left out."""
    keys = [key for key in keys if any(not math.isnan(row.values.get(key, math.nan)) for row in rows)]
    lines = [[name, *(cell(group, key) for key in keys)] for name, group in by_system(rows).items()]
    return table(["", *(HEADINGS[key][0] for key in keys)], lines) if keys else ""


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
        for key in (*DIFFERENCES, "cut"):
            _, form, factor = HEADINGS[key]
            difference = (mean(groups[name], key) - mean(groups[other], key)) * factor
            line.append(number(0.0 - difference if key == "cut" else difference, form.replace("{:", "{:+")))
        line.append(f"{cost(groups[other]) / cost(groups[name]):.1f}")
        lines.append(line)
    names = [HEADINGS[key][0] for key in DIFFERENCES]
    return table([f"minus {other}", *names, "fewer cut %", "times cheaper"], lines)
