"""Situations that pairs of speech and noise lack: noise before the first word, typing behind the last, music alone.

Each is measured by how many dB a stretch without speech is lower in the output than in the input.
"""

from __future__ import annotations

from collections.abc import Callable, Iterable
from dataclasses import dataclass

import numpy as np

from evaluation.suppressors import Suppressor
from evaluation.torture_signals import chords, coloured_noise
from training.measures import level_db

SPEECH_SECONDS = 3.0
FLOOR_DB = -100.0


def _loudness(wave: np.ndarray) -> float:
    return float(np.sqrt(np.mean(np.square(wave)))) + 1e-9


def _noise_first(speech: np.ndarray, rate: int, random: np.random.Generator) -> np.ndarray:
    """Steady noise 5 dB below speech, which begins after a second."""
    wave = np.concatenate([np.zeros(rate, np.float32), speech])
    noise = coloured_noise(len(wave), rate, random, random.uniform(0.0, 1.5))
    return wave + noise * (_loudness(speech) * 10.0 ** (-5.0 / 20.0) / _loudness(noise))


def typing(count: int, rate: int, random: np.random.Generator) -> np.ndarray:
    """Keystrokes, four to nine a second: two damped bursts of noise each, press and release; peak 1."""
    out, burst = np.zeros(count), int(0.03 * rate)
    decay = np.exp(-np.arange(burst) / (0.004 * rate))
    at = 0.0
    while at < count - 3 * burst:
        for start, level in ((int(at), 1.0), (int(at + random.uniform(0.03, 0.06) * rate), 0.4)):
            end = min(start + burst, count)
            stroke = level * random.uniform(0.5, 1.0) * decay * random.standard_normal(burst)
            out[start:end] += stroke[: end - start]
        at += rate / random.uniform(4.0, 9.0)
    return out / np.max(np.abs(out))


def _typing_behind(speech: np.ndarray, rate: int, random: np.random.Generator) -> np.ndarray:
    """Typing all along, its peaks 6 dB below those of speech, which ends after three seconds."""
    wave = np.concatenate([speech, np.zeros(3 * rate, np.float32)])
    return wave + 0.5 * np.max(np.abs(speech)) * typing(len(wave), rate, random)


def _music(speech: np.ndarray, rate: int, random: np.random.Generator) -> np.ndarray:
    """Chords as loud as speech, and no speech."""
    time = np.arange(8 * rate) / rate + random.uniform(0.0, 6.0)
    wave = chords(time, rate)
    return wave * (_loudness(speech) / _loudness(wave))


@dataclass(frozen=True)
class Situation:
    """How to make its wave out of speech, and the seconds in which the output is measured."""

    make: Callable[[np.ndarray, int, np.random.Generator], np.ndarray]
    first: float
    last: float


SITUATIONS = {
    "first 240 ms of noise": Situation(_noise_first, 0.0, 0.24),
    "noise, up to speech": Situation(_noise_first, 0.24, 1.0),
    "typing, 2 s after speech": Situation(_typing_behind, SPEECH_SECONDS + 0.1, SPEECH_SECONDS + 2.0),
    "music alone": Situation(_music, 2.0, 8.0),
}


def reductions(systems: Iterable[Suppressor], speech: np.ndarray, rate: int, seed: int) -> dict:
    """By how many dB each system lowers the measured stretch: {situation: {system: dB}}."""
    speech = np.asarray(speech[: int(SPEECH_SECONDS * rate)], np.float32)
    found: dict = {}
    for name, situation in SITUATIONS.items():
        wave = situation.make(speech, rate, np.random.default_rng([seed, 99])).astype(np.float32)
        wave *= min(1.0, 0.99 / np.max(np.abs(wave)))
        span = slice(int(situation.first * rate), int(situation.last * rate))
        for system in systems:
            out = system.clean_file(wave, rate)
            change = max(level_db(out[span]), FLOOR_DB) - level_db(wave[span])
            found.setdefault(name, {})[system.name] = -change
    return found
