"""Suppressors over noisy/clean pairs, measured side by side."""

from __future__ import annotations

from collections.abc import Callable, Iterable
from dataclasses import dataclass, field

import numpy as np

from evaluation import metrics
from evaluation.pairs import Pair, PairFiles
from evaluation.suppressors import Suppressor

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
        "pesq": metrics.pesq(out, clean, rate),
        "stoi": metrics.stoi(out, clean, rate),
        "estoi": metrics.stoi(out, clean, rate, extended=True),
        "si_sdr": metrics.si_sdr(out, clean),
        "ovrl": opinion(out, rate) if opinion else float("nan"),
        "cut": metrics.cut_share(out, clean, rate),
        "pause": metrics.pause_attenuation(out, pair.noisy, clean, rate),
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
