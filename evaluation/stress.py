"""A minute each of signals that are no speech: nothing may grow, nothing may stop being a number.

And the band above 8 kHz of clean speech, which a model for high rates has to keep.
"""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np

from evaluation.metrics import level_db
from evaluation.suppressors import Suppressor

SECONDS = 60
FLOOR_DB = -90.0


def signals(rate: int, seconds: int = SECONDS) -> dict[str, np.ndarray]:
    """Stress signals by name, floats of full scale +/-1."""
    rng = np.random.default_rng(7)
    count = rate * seconds
    time = np.arange(count) / rate
    noise = rng.standard_normal(count).astype(np.float32)
    clicks = np.zeros(count, np.float32)
    clicks[:: rate // 7] = 1.0
    # Each second another tone, from 100 Hz up to nearly half the rate.
    steps = np.geomspace(100.0, 0.48 * rate, seconds)
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
    levels = [
        [max(level_db(w[at : at + second]), FLOOR_DB) for at in range(0, len(w), second)]
        for w in (wave, out)
    ]
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
