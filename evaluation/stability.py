"""What a stream's past and unusual signals do to a model.

A long stream changes noise, ratio and level with every piece; the same pieces go through fresh sessions
too, so that the difference is what the past does. Signals without speech run for a minute each: nothing
may grow, and every sample must stay finite.
"""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np

from evaluation.pairs import Pair
from evaluation.suppressors import Suppressor
from training.measures import level_db, si_sdr, stoi

LEVELS_DB = (-20.0, -36.0, -28.0, -45.0, -24.0)
SECONDS = 60
FLOOR_DB = -90.0


def pieces(pairs: list[Pair], seconds: float) -> list[tuple[np.ndarray, np.ndarray]]:
    """Noisy and clean pieces, `seconds` in all, each at the next of five levels (of the noisy wave)."""
    out, length = [], 0.0
    for index in range(10_000):
        if length >= seconds:
            break
        pair = pairs[index % len(pairs)]
        level = 10.0 ** (LEVELS_DB[index % len(LEVELS_DB)] / 20.0)
        gain = level / max(np.sqrt(np.mean(np.square(pair.noisy))), 1e-6)
        gain = min(gain, 0.99 / np.max(np.abs(pair.noisy)))
        out.append((pair.noisy * gain, pair.clean * gain))
        length += len(pair.noisy) / pair.rate
    return out


def compare(system: Suppressor, parts: list[tuple[np.ndarray, np.ndarray]]) -> list[dict]:
    """For every fourth piece: time in the stream, STOI and SI-SDR inside the stream and in a fresh session."""
    noisy = np.concatenate([part[0] for part in parts])
    running = system.clean_file(noisy, system.rate)
    rows, at = [], 0
    for index, (noisy_part, clean) in enumerate(parts):
        if index % 4:  # every fourth piece is enough to see a trend
            at += len(clean)
            continue
        inside = running[at : at + len(clean)]
        fresh = system.clean_file(noisy_part, system.rate)
        row = {"seconds": at / system.rate}
        for name, out in (("stream", inside), ("fresh", fresh)):
            row[f"stoi_{name}"] = stoi(out, clean, system.rate)
            row[f"si_sdr_{name}"] = si_sdr(out, clean)
        rows.append(row)
        at += len(clean)
    return rows


def summary(rows: list[dict], parts: int = 5) -> list[dict]:
    """Means over consecutive fifths of the stream."""
    out = []
    for chunk in np.array_split(np.arange(len(rows)), min(parts, len(rows))):
        part = [rows[index] for index in chunk]
        means = {key: float(np.mean([row[key] for row in part])) for key in part[0]}
        out.append(means | {"seconds": part[0]["seconds"]})
    return out


def signals(rate: int, seconds: int = SECONDS) -> dict[str, np.ndarray]:
    """Stress signals by name, floats of full scale +/-1."""
    rng = np.random.default_rng(7)
    count = rate * seconds
    time = np.arange(count) / rate
    noise = rng.standard_normal(count).astype(np.float32)
    clicks = np.zeros(count, np.float32)
    clicks[:: rate // 7] = 1.0
    # Each second another tone, from 100 Hz up to nearly half the rate in ten, over and over.
    steps = np.resize(np.geomspace(100.0, 0.48 * rate, 10), seconds)
    phase = 2.0 * np.pi * np.cumsum(np.repeat(steps, rate)) / rate
    return {
        "silence": np.zeros(count, np.float32),
        "full-scale noise": np.clip(noise, -1.0, 1.0),
        "faint noise": noise * np.float32(3e-5),
        "tones": 0.9 * np.sin(phase),
        "square wave": np.where(np.sin(2.0 * np.pi * 110.0 * time) < 0.0, -1.0, 1.0),
        "clicks": clicks,
        "constant": np.full(count, 0.5, np.float32),
        "bursts": np.clip(noise, -1.0, 1.0) * (np.floor(time * 4.0) % 8 == 0),
    }


@dataclass
class Stressed:
    """What came out of one model for one signal."""

    model: str
    signal: str
    finite: bool
    peak: float
    excess_db: float  # loudest second of the output over the loudest second of the input
    drift_db: float  # last ten seconds against the second ten seconds


def run(system: Suppressor, name: str, wave: np.ndarray) -> Stressed:
    """One signal through a fresh stream of `system`."""
    out = system.stream(wave)
    second = system.rate
    levels = [[max(level_db(w[at : at + second]), FLOOR_DB) for at in range(0, len(w), second)] for w in (wave, out)]
    early, late = levels[1][len(levels[1]) // 6 : len(levels[1]) // 3], levels[1][-10:]
    return Stressed(
        system.name,
        name,
        bool(np.all(np.isfinite(out))),
        float(np.max(np.abs(out))),
        max(levels[1]) - max(levels[0]),
        float(np.mean(late) - np.mean(early)),
    )


def level_above(wave: np.ndarray, rate: int, hertz: float) -> float:
    """Level in dB of full scale of what lies above `hertz`."""
    spectrum = np.fft.rfft(wave)
    spectrum[np.fft.rfftfreq(len(wave), 1.0 / rate) < hertz] = 0.0
    return level_db(np.fft.irfft(spectrum, len(wave)))
