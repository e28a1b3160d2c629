"""The levels that the library follows: the detector's input gain and the cleaners' feature gain."""

from __future__ import annotations

import numpy as np

# The detector.
RATE = 8000
HOP = 80
REFERENCE = 2000.0
ATTACK = 0.01 ** (1.0 / 100.0)
DECAY = 0.01 ** (1.0 / 300.0)
FLOOR_ENERGY = 100.0**2
RISE = 2.0
# The cleaners.
REFERENCE_AMPLITUDE = 2000.0
REFERENCE_ENERGY = 100.0
SHORT_FRAMES = 10


def gain_levels(energy: np.ndarray, level: np.ndarray) -> np.ndarray:
    """Input gains (streams, hops) of the automatic level; ``level`` (streams,) is moved along."""
    out = np.empty(energy.shape, np.float32)
    for t in range(energy.shape[1]):
        e = energy[:, t]
        slow = ATTACK * level + (1.0 - ATTACK) * e
        fast = ATTACK * e + (1.0 - ATTACK) * level
        level[:] = np.where(e < FLOOR_ENERGY, DECAY * level, np.where(e <= RISE * level, slow, fast))
        out[:, t] = REFERENCE / (np.sqrt(level) + 1e-7)
    return out


def levelled(wave: np.ndarray, level: np.ndarray) -> np.ndarray:
    """Each hop of ``wave`` (streams, samples) times the gain of its own hop."""
    hops = wave.reshape(len(wave), -1, HOP)
    gains = gain_levels(np.mean(np.square(hops, dtype=np.float64), axis=2), level)
    return (hops * gains[:, :, None]).reshape(wave.shape)


class RescaleTracker:
    """Mean energy of the loud frames of the last seconds, per stream, in double precision."""

    def __init__(self, streams: int, sample_rate: int, step: int):
        self.long = sample_rate * 4 // step
        self.short_queue = np.zeros((streams, SHORT_FRAMES))
        self.short_sum = np.zeros(streams)
        self.short_at = 0
        self.queue = np.zeros((streams, self.long))
        self.total = np.zeros(streams)
        self.count = np.zeros(streams, np.int64)
        self.at = np.zeros(streams, np.int64)
        self.rows = np.arange(streams)
        self.reset(np.ones(streams, bool))

    def reset(self, which: np.ndarray) -> None:
        """Return the streams marked in ``which`` to their state at construction."""
        start = REFERENCE_AMPLITUDE**2
        self.short_queue[which] = 0.0
        self.short_sum[which] = 0.0
        self.queue[which, 0] = start
        self.total[which] = start
        self.count[which] = 1
        self.at[which] = 1 % self.long

    def gains(self, energy: np.ndarray) -> np.ndarray:
        """Feature gains (streams, hops) for the frame energies of the same shape."""
        out = np.empty(energy.shape, np.float32)
        scaled = energy / SHORT_FRAMES
        for t in range(energy.shape[1]):
            e = energy[:, t]
            self.short_sum += scaled[:, t] - self.short_queue[:, self.short_at]
            self.short_queue[:, self.short_at] = scaled[:, t]
            self.short_at = (self.short_at + 1) % SHORT_FRAMES
            loud = self.short_sum >= REFERENCE_ENERGY
            full = self.count >= self.long
            old = np.where(full, self.queue[self.rows, self.at], 0.0)
            rows = self.rows[loud]
            self.total[rows] += e[rows] - old[rows]
            self.queue[rows, self.at[rows]] = e[rows]
            self.count[rows] += ~full[rows]
            self.at[rows] = (self.at[rows] + 1) % self.long
            out[:, t] = self.total / self.count
        return np.where(out > 1e-6, REFERENCE_AMPLITUDE / np.sqrt(np.maximum(out, 1e-6)), 1.0).astype(np.float32)


def frame_energies(wave: np.ndarray, step: int) -> np.ndarray:
    """Mean square of every frame of two steps: (streams, hops + 1 steps) to (streams, hops)."""
    blocks = np.square(wave.reshape(len(wave), -1, step), dtype=np.float64).sum(axis=2)
    return (blocks[:, :-1] + blocks[:, 1:]) / (2 * step)
