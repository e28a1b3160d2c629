"""Configurations of models (TOML): every key that there is, and the check of a file against them."""

from __future__ import annotations

import tomllib
from dataclasses import MISSING, fields
from pathlib import Path

from training import InputError
from training.optimiser import Schedule

# Keys by section with the type of their values; those in a REQUIRED table must be there.
MODEL_REQUIRED = {"name": str, "version": str, "sample_rate": int, "hidden": int, "layers": int}
MODEL_OPTIONAL = {"title": str}
FRAMES = {"step": int, "first_bin": int, "end_bin": int, "preview_frames": int}
BY_VERSION = {
    "0.0.1": {**FRAMES, "average_frames": int},
    "0.0.2": {**FRAMES, "average_frames": int},
    "0.0.3": FRAMES,
    "0.0.4": {**FRAMES, "compression_rate": int},
    "0.0.5": {**FRAMES, "compression_rate": int},
    # Studies without a cleaner in the library (bandsplit.py, gru.py).
    "study-bands": {"step": int, "bands": int},
    "study-gru": {**FRAMES, "compression_rate": int},
    "VAD_0.0.1": {"label_delay": int},
}
TRAINING_REQUIRED = {"seed": int, "streams": int, "slots": int, "checkpoint_every": int}
# plain: share of segments left as recorded. room_fade: seconds up to which the target keeps the room in
# full, and at which it is gone; without it the target keeps the whole room.
TRAINING_OPTIONAL = {"plain": float, "room_fade": list, "short_products": bool, "init_from": str}
# Shares of segments, as StreamMixer has them.
MIXES = ("clean", "alone", "hard", "pauses", "music")
TRAINING_BY_VERSION = dict.fromkeys(("0.0.5", "study-bands", "study-gru"), dict.fromkeys(MIXES, float))
# quality, opinion: weights of the two estimates in the loss. The opinion is that of the first
# opinion_streams streams, in every opinion_every-th update. lines, residual: weights of steady lines and
# of noise that is left.
STAGE_REQUIRED = {
    "mask": {"alpha": float},
    "output": {"alpha": float, "spectral": float, "ratio": float, "envelope": float},
    "detect": {},
}
STAGE_OPTIONAL = {
    "mask": {},
    "output": {
        **{"quality": float, "opinion": float, "lines": float, "residual": float},
        **{"opinion_streams": int, "opinion_every": int},
    },
    "detect": {"onset": float},
}
MAY_BE_ZERO = {"seed", "first_bin", "label_delay"}
SCHEDULE_TYPES = {"int": int, "float": float, "bool": bool}


def load_config(path: str | Path) -> dict:
    """The configuration in ``path``. Raises InputError for a missing file and for wrong or unknown keys."""
    path = Path(path)
    if not path.is_file():
        known = ", ".join(sorted(p.stem for p in path.parent.glob("*.toml"))) or "none"
        raise InputError(f"no model '{path.stem}' in {path.parent}; known models: {known}")
    try:
        config = tomllib.loads(path.read_text(encoding="utf-8"))
        check(config)
    except (ValueError, OSError) as error:  # also what is no TOML
        raise InputError(f"{path}: {error}") from None
    return config


def mixes(config: dict) -> dict:
    """The shares of segments that a configuration sets, for StreamMixer."""
    return {name: value for name, value in config["training"].items() if name in MIXES}


def check(config: dict) -> None:
    """Raises InputError that names the section and the key that is wrong, unknown or missing."""
    _check_keys("the file", config, {"model": dict, "training": dict, "stage": list}, {"keys": dict})
    model = config["model"]
    version = model.get("version")
    if version not in BY_VERSION:
        raise InputError(f"[model] version must be one of {', '.join(BY_VERSION)}, not {version!r}")
    _check_keys("[model]", model, {**MODEL_REQUIRED, **BY_VERSION[version]}, MODEL_OPTIONAL)
    optional = {**TRAINING_OPTIONAL, **TRAINING_BY_VERSION.get(version, {})}
    _check_keys("[training]", config["training"], TRAINING_REQUIRED, optional)
    fade = config["training"].get("room_fade", [0.0, 1.0])
    if len(fade) != 2 or not all(isinstance(v, int | float) for v in fade) or not 0.0 <= fade[0] < fade[1]:
        raise InputError("[training] room_fade must be two times in seconds, the smaller one first")
    if not config["stage"]:
        raise InputError("no [[stage]]")
    kinds = ("detect",) if version.startswith("VAD") else ("mask", "output")
    for number, stage in enumerate(config["stage"], 1):
        _check_stage(f"[[stage]] {number}", stage, kinds)
    for key, value in config.get("keys", {}).items():
        if not isinstance(value, str):
            raise InputError(f"[keys] {key} must be a text, as in the control file")


def _check_stage(where: str, stage: dict, kinds: tuple[str, ...]) -> None:
    kind = stage.get("kind")
    if kind not in kinds:
        raise InputError(f"{where}: kind must be {' or '.join(kinds)}, not {kind!r}")
    schedule = {f.name: (SCHEDULE_TYPES[f.type], f.default is MISSING) for f in fields(Schedule)}
    required = {name: kind for name, (kind, must) in schedule.items() if must}
    optional = {name: kind for name, (kind, must) in schedule.items() if not must}
    _check_keys(where, stage, {"kind": str, **required, **STAGE_REQUIRED[kind]}, {**optional, **STAGE_OPTIONAL[kind]})


def _check_keys(where: str, section: dict, required: dict, optional: dict) -> None:
    known = {**required, **optional}
    for key, value in section.items():
        if key not in known:
            raise InputError(f"{where} has an unknown key '{key}'; known: {', '.join(known)}")
        kind = known[key]
        fits = isinstance(value, int | float) if kind is float else isinstance(value, kind)
        if not fits or (isinstance(value, bool) and kind is not bool):
            raise InputError(f"{where} {key} must be of type {kind.__name__}, not {value!r}")
        if kind is int and value < (0 if key in MAY_BE_ZERO else 1):
            raise InputError(f"{where} {key} must not be {value}")
    for key in required:
        if key not in section:
            raise InputError(f"{where} lacks the key '{key}'")
