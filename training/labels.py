"""Where there is voice in a clean recording, hop by hop: what the detector learns and is measured by."""

from __future__ import annotations

import numpy as np

from training.level import HOP


def runs(flags: np.ndarray) -> list[tuple[int, int]]:
    """Begin and end of every run of set flags."""
    edges = np.flatnonzero(np.diff(np.concatenate([[0], flags.astype(np.int8), [0]])))
    return list(zip(edges[::2].tolist(), edges[1::2].tolist()))


def without_short_runs(flags: np.ndarray, shorter: int) -> np.ndarray:
    """The flags with runs of fewer than ``shorter`` hops cleared."""
    out = flags.copy()
    for begin, end in runs(flags):
        if end - begin < shorter:
            out[begin:end] = False
    return out


def voice_labels(clean: np.ndarray) -> np.ndarray:
    """One for hops with speech, from the clean wave (samples,); zeros when there is none.

    A hop counts when its 30 ms frame lies within 30 dB of the loud ones and 8 dB over the floor;
    gaps up to 120 ms are closed, bursts under 40 ms dropped.
    """
    power = np.mean(np.square(clean.reshape(-1, HOP)), axis=1)
    padded = np.concatenate([power[:1], power, power[-1:]])
    power = np.convolve(padded, np.ones(3) / 3.0, "valid")
    loud = 10.0 * np.log10(np.percentile(power, 97) + 1e-9)
    level = 10.0 * np.log10(power + 1e-9)
    floor = np.percentile(level, 5)
    if loud < 0.0:
        return np.zeros(len(power), np.float32)
    active = level > min(max(loud - 30.0, floor + 8.0), loud - 10.0)
    return without_short_runs(~without_short_runs(~active, 12), 4).astype(np.float32)


def onsets(labels: np.ndarray) -> np.ndarray:
    """One in the first 120 ms of every stretch of speech that follows 300 ms without any."""
    out = np.zeros_like(labels)
    for begin in np.flatnonzero(np.diff(np.concatenate([[0.0], labels])) > 0.0):
        if not labels[max(begin - 30, 0) : begin].any():
            out[begin : begin + 12] = labels[begin : begin + 12]
    return out
