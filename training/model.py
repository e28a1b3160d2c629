"""Models by version: for training from a configuration, for measuring from an exported weight file."""

from __future__ import annotations

from dataclasses import dataclass
from pathlib import Path

import jax
import numpy as np

from training import InputError, chain
from training.bandsplit import VERSION as BANDS
from training.bandsplit import BandModel
from training.configuration import load_config
from training.detector import FRAME, DetectorModel
from training.feedforward import TRAITS, FeedForwardModel
from training.gru import VERSION as GRU
from training.gru import GruModel
from training.level import HOP, REFERENCE, RescaleTracker, frame_energies, levelled
from training.recurrent import RecurrentModel
from training.weights_file import read_control, read_weights

MODELS = {
    "0.0.5": RecurrentModel,
    "VAD_0.0.1": DetectorModel,
    BANDS: BandModel,
    GRU: GruModel,
    **dict.fromkeys(TRAITS, FeedForwardModel),
}


def make_model(config: dict):
    """The model of a checked configuration. Raises InputError when its numbers do not fit together."""
    try:
        return MODELS[config["model"]["version"]](config)
    except ValueError as error:
        raise InputError(f"[model] {error}") from None


def load_model(config_path: str | Path):
    """Configuration and model of a configuration file. Raises InputError."""
    config = load_config(config_path)
    try:
        return config, make_model(config)
    except InputError as error:
        raise InputError(f"{config_path}: {error}") from None


@dataclass
class Exported:
    """A model read from its weight file, and from the control file beside it when there is one."""

    model: RecurrentModel | FeedForwardModel | DetectorModel
    params: dict
    stats: dict
    entries: dict

    @property
    def is_detector(self) -> bool:
        return isinstance(self.model, DetectorModel)

    @property
    def rate(self) -> int:
        return self.entries["SampleRate"]


def load_exported(path: str | Path) -> Exported:
    """The model in a weight file. Raises InputError for a damaged file and an unknown version."""
    path = Path(path)
    entries = read_weights(path)
    version = entries.get("Version")
    if version not in MODELS:
        raise InputError(f"{path}: no training for version {version!r}")
    try:
        _, keys = read_control(path.with_suffix(".ctl"))
        model = MODELS[version]({"model": MODELS[version].described(entries), "training": {}, "keys": keys})
        return Exported(model, *model.from_entries(entries), entries)
    except (KeyError, IndexError) as error:
        raise InputError(f"{path}: no usable record {error}") from None


def padded(wave: np.ndarray, step: int) -> np.ndarray:
    """One step of silence in front, and zeros at the end up to whole steps and one more."""
    hops = -(-len(wave) // step) + 1
    out = np.zeros((1, (hops + 1) * step), np.float32)
    out[0, step : step + len(wave)] = wave
    return out


def enhance(model, params: dict, stats: dict, wave: np.ndarray) -> np.ndarray:
    """Cleaned ``wave`` (16-bit units, at the model's rate), in time with the input: no delay."""
    shape: chain.Shape = model.shape
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
