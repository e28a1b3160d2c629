"""Whole recordings through the emulated chain of a model, from the cold start of a session."""

from __future__ import annotations

import jax
import numpy as np

from training.detector import FRAME, DetectorModel
from training.level import HOP, REFERENCE, levelled
from training.tracker import RescaleTracker, frame_energies


def padded(wave: np.ndarray, step: int) -> np.ndarray:
    """One step of silence in front, and zeros at the end up to whole steps and one more."""
    hops = -(-len(wave) // step) + 1
    out = np.zeros((1, (hops + 1) * step), np.float32)
    out[0, step : step + len(wave)] = wave
    return out


def enhance(model, params: dict, stats: dict, wave: np.ndarray) -> np.ndarray:
    """Cleaned ``wave`` (16-bit units, at the model's rate), in time with the input: no delay."""
    shape = model.shape
    full = padded(wave, shape.step)
    gain = RescaleTracker(1, shape.sample_rate, shape.step).gains(frame_energies(full, shape.step))
    run = _compiled(model, "clean", lambda *args: model.clean(*args)[0])
    out = run(params, stats, full, gain, model.carry(1, stats))
    return np.asarray(out)[0, shape.step : shape.step + len(wave)]


def detect(model: DetectorModel, params: dict, stats: dict, wave: np.ndarray) -> np.ndarray:
    """Raw detector outputs, one per 10 ms of ``wave`` (16-bit units, 8 kHz)."""
    wave = wave[: len(wave) // HOP * HOP].astype(np.float32)
    full = np.concatenate([np.zeros(FRAME - HOP, np.float32), levelled(wave[None], np.full(1, REFERENCE**2))[0]])
    run = _compiled(model, "scores", lambda *args: model.scores(*args)[0])
    return np.asarray(run(params, model.carry(1, stats), stats, full[None], np.zeros(1, bool)))[0]


def calibrated(raw: np.ndarray, entries: dict) -> np.ndarray:
    """Scores from raw outputs by the calibration of an exported detector."""
    low, high = entries["Test_MINMAX"]
    best = entries["Test_BestF1"][0]
    below = (raw - low) * 0.5 / (best - low)
    above = (raw - best) * 0.5 / (high - best) + 0.5
    return np.clip(np.where(raw < best, below, above), 0.00001, 0.99999)


def _compiled(model, name: str, function):
    cache = model.__dict__.setdefault("_compiled", {})
    if name not in cache:
        cache[name] = jax.jit(function)
    return cache[name]
