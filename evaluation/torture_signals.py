"""Signals that are hard on a cleaner's and a detector's state: levels, edges, tones and noises of every kind."""

from __future__ import annotations

from collections.abc import Callable

import numpy as np

Signal = Callable[[np.ndarray, int, np.random.Generator, np.ndarray], np.ndarray]
"""Time in s, rate in Hz, random numbers, some speech; gives samples, full scale 1."""


def coloured_noise(count: int, rate: int, random: np.random.Generator, slope: float) -> np.ndarray:
    """Noise whose power falls with frequency to the power `slope`, about -20 dB."""
    spectrum = np.fft.rfft(random.standard_normal(count))
    frequency = np.maximum(np.fft.rfftfreq(count, 1.0 / rate), 20.0)
    noise = np.fft.irfft(spectrum * frequency ** (-slope / 2.0), count)
    return 0.1 * noise / np.sqrt(np.mean(noise**2))


def _sweep(time: np.ndarray, low: float, high: float, seconds: float) -> np.ndarray:
    """A tone that rises exponentially in `seconds`, over and over."""
    ratio = np.log(high / low)
    return np.sin(2 * np.pi * low * seconds / ratio * np.expm1(time % seconds / seconds * ratio))


def chords(time: np.ndarray, rate: int) -> np.ndarray:
    """Four struck chords in turn, each of three notes with harmonics that die away."""
    out, each = np.zeros(len(time)), time % 1.5
    for index, root in enumerate((220.0, 174.6, 130.8, 196.0)):
        ours = (time // 1.5).astype(int) % 4 == index
        for note in (root, root * 1.26, root * 1.498):
            for harmonic in range(1, 9):
                if note * harmonic < 0.45 * rate:
                    tone = np.sin(2 * np.pi * note * harmonic * time) * np.exp(-each * harmonic)
                    out += ours * tone / harmonic
    return 0.12 * out


def _babble(random: np.random.Generator, speech: np.ndarray, count: int) -> np.ndarray:
    """Six talkers at once: one recording backwards, from six places."""
    talkers = [np.roll(speech[::-1], int(random.integers(len(speech)))) for _ in range(6)]
    return 0.5 * np.resize(np.sum(talkers, axis=0), count)


def _clicks(time: np.ndarray, rate: int, random: np.random.Generator, per_second: float) -> np.ndarray:
    return np.where(random.random(len(time)) < per_second / rate, random.choice([-1.0, 1.0], len(time)), 0.0)


def _tone(hertz: float, level: float) -> Signal:
    return lambda t, rate, random, speech: level * np.sin(2 * np.pi * hertz * t)


SIGNALS: dict[str, Signal] = {
    "silence": lambda t, rate, random, speech: np.zeros(len(t)),
    "DC": lambda t, rate, random, speech: np.full(len(t), 0.7),
    "denormals": lambda t, rate, random, speech: 1e-40 * random.standard_normal(len(t)),
    "NaN and infinite": lambda t, rate, random, speech: np.where(t % 0.1 < 0.05, np.nan, np.inf),
    "tone, 100 Hz": _tone(100.0, 0.3),
    "tone, 1 kHz, full scale": _tone(1000.0, 1.0),
    "tone at Nyquist": lambda t, rate, random, speech: np.where(np.arange(len(t)) % 2, -0.5, 0.5),
    "two tones": lambda t, rate, random, speech: 0.3 * (np.sin(4400.0 * t) + np.sin(4524.0 * t)),
    "sweep in 10 s": lambda t, rate, random, speech: 0.5 * _sweep(t, 20.0, 0.49 * rate, 10.0),
    "sweep in 0.3 s": lambda t, rate, random, speech: 0.5 * _sweep(t, 100.0, 0.45 * rate, 0.3),
    "siren": lambda t, rate, random, speech: 0.4 * np.sin(2 * np.pi * (900.0 * t - 300.0 * np.cos(2 * t))),
    "square, full scale": lambda t, rate, random, speech: np.where(t % 0.005 < 0.0025, -1.0, 32767 / 32768),
    "clicks, 2 a second": lambda t, rate, random, speech: _clicks(t, rate, random, 2.0),
    "clicks, 200 a second": lambda t, rate, random, speech: _clicks(t, rate, random, 200.0),
    "white noise, full scale": lambda t, rate, random, speech: np.clip(random.standard_normal(len(t)), -1.0, 1.0),
    "white noise, -70 dB": lambda t, rate, random, speech: 3e-4 * random.standard_normal(len(t)),
    "pink noise": lambda t, rate, random, speech: coloured_noise(len(t), rate, random, 1.0),
    "rumble": lambda t, rate, random, speech: 3.0 * coloured_noise(len(t), rate, random, 4.0),
    "hum": lambda t, rate, random, speech: 0.1 * sum(np.sin(100 * np.pi * k * t) / k for k in range(1, 11)),
    "noise, 4 Hz": lambda t, rate, random, speech: (
        coloured_noise(len(t), rate, random, 0.5) * (1.0 + np.sin(8 * np.pi * t))
    ),
    "level jumps of 60 dB": lambda t, rate, random, speech: (
        coloured_noise(len(t), rate, random, 0.5) * np.where(t % 2 < 1, 4.0, 4e-3)
    ),
    "noise fading": lambda t, rate, random, speech: (
        coloured_noise(len(t), rate, random, 0.5) * 10 ** (-3.0 * (t % 12.0) / 12.0)
    ),
    "chords": lambda t, rate, random, speech: chords(t, rate),
    "drums": lambda t, rate, random, speech: 8 * coloured_noise(len(t), rate, random, 1.0) * np.exp(-40.0 * (t % 0.25)),
    "babble": lambda t, rate, random, speech: _babble(random, speech, len(t)),
}
