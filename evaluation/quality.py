"""Suppressors over noisy/clean pairs, measured side by side, and the Markdown tables of the results."""

from __future__ import annotations

import math
from collections.abc import Callable, Iterable
from dataclasses import dataclass, field

import numpy as np

from evaluation.networks import open_network, package_file
from evaluation.pairs import Pair, PairFiles
from evaluation.suppressors import Suppressor
from training import measures
from training.measures import resample

MEASURES = ("pesq", "stoi", "estoi", "si_sdr", "ovrl", "cut", "pause")


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


def measure(out: np.ndarray, pair: Pair, opinion: Callable | None) -> dict:
    """Every measure of `out`, a cleaned version of `pair.noisy`; OVRL only where `opinion` is given."""
    clean, rate = pair.clean, pair.rate
    return {
        "pesq": measures.pesq(out, clean, rate),
        "stoi": measures.stoi(out, clean, rate),
        "estoi": measures.stoi(out, clean, rate, extended=True),
        "si_sdr": measures.si_sdr(out, clean),
        "ovrl": opinion(out, rate) if opinion else float("nan"),
        "cut": measures.cut_share(out, clean, rate),
        "pause": measures.pause_attenuation(out, pair.noisy, clean, rate),
    }


def run_pair(pair: Pair, systems: Iterable[Suppressor], opinion: Callable | None) -> list[Row]:
    """One pair through every system in turn, each from a fresh stream."""
    rows = []
    for system in systems:
        before = system.cpu_seconds
        out = system.clean_file(pair.noisy, pair.rate)
        cpu = system.cpu_seconds - before
        values = measure(out, pair, opinion)
        seconds = len(pair.noisy) / pair.rate
        rows.append(Row(system.name, pair.name, pair.rate, pair.info, seconds, cpu, values))
    return rows


def spread(files: list[PairFiles], count: int | None) -> list[PairFiles]:
    """At most `count` of the pairs in a fixed random order, so that any part of them is a fair one."""
    order = np.random.default_rng(0).permutation(len(files))[:count]
    return [files[index] for index in order]


def mean(rows: Iterable[Row], key: str) -> float:
    """Mean of one measure, leaving out what could not be measured."""
    values = np.array([row.values[key] for row in rows], dtype=float)
    values = values[~np.isnan(values)]
    return float(np.mean(values)) if len(values) else float("nan")


def cost(rows: list[Row]) -> float:
    """CPU seconds per second of audio."""
    return sum(row.cpu_seconds for row in rows) / sum(row.seconds for row in rows)


class OverallOpinion:
    """DNSMOS OVRL without a reference, 1 to 5, by the network in the package speechmos.

    The package's own entry point also runs a second network whose score is not used here.
    """

    SECONDS = 9.01

    def __init__(self) -> None:
        from training.opinion import MAPPINGS, RATE

        self.rate, self.curve = RATE, MAPPINGS[-1]
        self.network = open_network(package_file("speechmos", "dnsmos_models", "sig_bak_ovr.onnx"))

    def __call__(self, out: np.ndarray, rate: int) -> float:
        wave = np.clip(resample(out, rate, self.rate), -1.0, 1.0).astype(np.float32)
        size = int(self.SECONDS * self.rate)
        wave = np.tile(wave, -(-size // len(wave))) if len(wave) < size else wave
        starts = range(0, len(wave) - size + 1, self.rate)
        if len(wave) < 2 * size:  # a short wave was repeated: later windows say nothing new
            starts = starts[:1]
        raw = [self.network.run(None, {"input_1": wave[None, s : s + size]})[0][0][2] for s in starts]
        return float(np.mean(np.polyval(self.curve, raw)))


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
            line.append(form.replace("{:", "{:+").format(0.0 - difference if key == "cut" else difference))
        line.append(f"{cost(groups[other]) / cost(groups[name]):.1f}")
        lines.append(line)
    names = [HEADINGS[key][0] for key in ("pesq", "stoi", "estoi", "si_sdr", "ovrl")]
    return table([f"minus {other}", *names, "fewer cut %", "times cheaper"], lines)
