"""The automatic input level of the voice detector."""

from __future__ import annotations

import numpy as np

RATE = 8000
HOP = 80
REFERENCE = 2000.0
ATTACK = 0.01 ** (1.0 / 100.0)
DECAY = 0.01 ** (1.0 / 300.0)
FLOOR_ENERGY = 100.0**2
RISE = 2.0


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
