"""Which model class trains which version."""

from __future__ import annotations

from training.detector import DetectorModel
from training.feedforward import TRAITS, FeedForwardModel
from training.recurrent import RecurrentModel


def make_model(config: dict):
    """The model of a configuration, by its version. Raises ValueError for an unknown one."""
    version = config["model"]["version"]
    if version == "0.0.5":
        return RecurrentModel(config)
    if version in TRAITS:
        return FeedForwardModel(config)
    if version == "VAD_0.0.1":
        return DetectorModel(config)
    raise ValueError(f"no training for version {version!r}")
