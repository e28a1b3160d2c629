"""Audio arrays of any usual type and layout to and from (channels, samples) float32."""

from __future__ import annotations

from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

Audio = NDArray[Any]
Floats = NDArray[np.float32]

_SCALES = {"int16": 2.0**15, "int32": 2.0**31, "float32": 1.0, "float64": 1.0}


def to_floats(audio: ArrayLike, axis: int, *, may_be_empty: bool = False) -> tuple[Audio, Floats]:
    """The audio as an array, and as (channels, samples) floats, full scale +/-1; ValueError where it is none."""
    audio = np.asarray(audio)
    if audio.dtype.name not in _SCALES:
        raise ValueError(f"audio: type {audio.dtype} is not one of {', '.join(_SCALES)}")
    if audio.ndim not in (1, 2):
        raise ValueError(f"audio: shape {audio.shape} has neither one nor two dimensions")
    if not -audio.ndim <= axis < audio.ndim:
        raise ValueError(f"axis: {axis} is not an axis of shape {audio.shape}")
    if not (audio.size or may_be_empty):
        raise ValueError(f"audio: shape {audio.shape} is empty")
    scale = _SCALES[audio.dtype.name]
    floats = np.ascontiguousarray(np.atleast_2d(np.moveaxis(audio, axis, -1)))
    floats = floats.astype(np.float32, copy=False) if scale == 1.0 else (floats / scale).astype(np.float32)
    if not np.isfinite(floats).all():
        raise ValueError("audio: holds NaN or infinite samples")
    return audio, floats


def from_floats(floats: Floats, like: Audio, axis: int) -> Audio:
    """(channels, samples) floats in the type and layout of `like`; integers are rounded."""
    scale = _SCALES[like.dtype.name]
    out: Audio = floats
    if scale > 1.0:
        out = np.clip(np.rint(floats.astype(np.float64) * scale), -scale, scale - 1.0)
    out = out.astype(like.dtype, copy=False)
    return out[0] if like.ndim == 1 else np.moveaxis(out, -1, axis)
