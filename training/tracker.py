"""The level trackers that set the gain of the features, for a batch of streams at once."""

from __future__ import annotations

import numpy as np

REFERENCE_AMPLITUDE = 2000.0
REFERENCE_ENERGY = 100.0
SHORT_FRAMES = 10


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
