"""Loading of the audio sources: speech, noise and room responses of one folder.

A data folder holds either a ``MANIFEST.tsv`` (columns path, seconds, rate, class_or_speaker,
split, ...) or plain ``speech/``, ``noise/`` and optional ``rir/`` folders of WAV or FLAC files.
Without a manifest every tenth file, by a hash of its name, belongs to the validation split.
"""

from __future__ import annotations

import csv
import hashlib
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np
import soundfile
import soxr

AUDIO_SUFFIXES = {".wav", ".flac", ".ogg"}
# Content above 8 kHz can only be learned from sources recorded at more than this rate.
WIDE_RATE = 22050


@dataclass
class Clip:
    """One recording: mono float32 samples at the corpus rate, RMS 1 over its active part."""

    name: str
    group: str
    samples: np.ndarray
    wide: bool


@dataclass
class Corpus:
    """All recordings of one split, brought to one sample rate."""

    rate: int
    speech: list[Clip] = field(default_factory=list)
    noise: list[Clip] = field(default_factory=list)
    rir: list[np.ndarray] = field(default_factory=list)


def active_rms(samples: np.ndarray, rate: int) -> float:
    """RMS over the 20 ms frames within 30 dB of the loudest ones; 0 for silence."""
    size = rate // 50
    count = len(samples) // size
    if count == 0:
        return float(np.sqrt(np.mean(np.square(samples)))) if len(samples) else 0.0
    power = np.mean(np.square(samples[: count * size].reshape(count, size)), axis=1)
    peak = np.percentile(power, 97)
    if peak <= 0.0:
        return 0.0
    return float(np.sqrt(np.mean(power[power >= peak * 1e-3])))


def list_files(folder: Path) -> list[dict]:
    """Rows of the manifest, or rows made up from the folder layout when there is none."""
    manifest = folder / "MANIFEST.tsv"
    if manifest.exists():
        with manifest.open(newline="") as handle:
            return list(csv.DictReader(handle, delimiter="\t"))
    rows = []
    for kind in ("speech", "noise", "rir"):
        for path in sorted((folder / kind).rglob("*")):
            if path.suffix.lower() not in AUDIO_SUFFIXES:
                continue
            name = str(path.relative_to(folder))
            held_out = kind != "rir" and int(hashlib.sha256(name.encode()).hexdigest(), 16) % 10 == 0
            rows.append(
                {
                    "path": name,
                    "class_or_speaker": path.parent.name,
                    "split": "valid" if held_out else "train",
                }
            )
    if not rows:
        raise ValueError(f"{folder}: neither MANIFEST.tsv nor speech/ and noise/ folders with audio")
    return rows


def _load(path: Path, rate: int) -> tuple[np.ndarray, int]:
    samples, own_rate = soundfile.read(path, dtype="float32", always_2d=True)
    mono = samples.mean(axis=1)
    return (mono if own_rate == rate else soxr.resample(mono, own_rate, rate)), own_rate


def load_corpus(folder: str | Path, rate: int, split: str) -> Corpus:
    """Read every recording of ``split`` ("train" or "valid"), resampled to ``rate`` Hz.

    Room responses are few and are used by both splits. Silent and unusable files are skipped.
    Raises ValueError when the folder has no usable speech or noise.
    """
    folder = Path(folder)
    corpus = Corpus(rate)
    for row in list_files(folder):
        kind = row["path"].split("/", 1)[0]
        if kind != "rir" and row["split"] != split:
            continue
        samples, own_rate = _load(folder / row["path"], rate)
        if kind == "rir":
            corpus.rir.append(_trim_response(samples, rate))
            continue
        level = active_rms(samples, rate)
        if level <= 1e-6 or len(samples) < rate // 2:
            continue
        clip = Clip(
            row["path"],
            row["class_or_speaker"],
            (samples / level).astype(np.float32),
            own_rate > WIDE_RATE,
        )
        (corpus.speech if kind == "speech" else corpus.noise).append(clip)
    if not corpus.speech or not corpus.noise:
        raise ValueError(f"{folder}: no usable speech or noise in split {split!r}")
    return corpus


def _trim_response(samples: np.ndarray, rate: int) -> np.ndarray:
    """Begin at the direct sound, scale the direct sound to one, keep at most 1.5 s."""
    peak = int(np.argmax(np.abs(samples)))
    start = max(0, peak - rate // 2000)
    out = samples[start : start + rate * 3 // 2].copy()
    return out / np.abs(samples[peak])
