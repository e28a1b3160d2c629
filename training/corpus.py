"""Loading of the audio sources: speech, noise and room responses of one folder.

A data folder holds either a ``MANIFEST.tsv`` (columns path, class_or_speaker, split, and optionally
source and licence) or plain ``speech/``, ``noise/`` and optional ``rir/`` folders. Without a manifest
every tenth file, by a hash of its name, belongs to the validation split.
"""

from __future__ import annotations

import csv
import hashlib
import time
from collections import Counter
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np
import soundfile
import soxr

from training import InputError

AUDIO_SUFFIXES = {".aif", ".aiff", ".au", ".caf", ".flac", ".mp3", ".oga", ".ogg", ".opus", ".w64", ".wav"}
# Audio that libsndfile does not read: worth a word when a folder holds it.
UNREADABLE_SUFFIXES = {".3gp", ".aac", ".amr", ".avi", ".m4a", ".mka", ".mkv", ".mov", ".mp4", ".webm", ".wma"}
COLUMNS = {"path", "class_or_speaker", "split"}
# A folder with fewer recordings than this of either kind cannot be split, let alone learned from.
FEWEST = 5
# Content above 8 kHz can only be learned from sources recorded at more than this rate.
WIDE_RATE = 22050
SECONDS_BETWEEN_WORDS = 8.0


@dataclass
class Clip:
    """One recording: mono float32 samples at the corpus rate, RMS 1 over its active part."""

    name: str
    group: str
    samples: np.ndarray
    wide: bool


@dataclass
class Corpus:
    """All recordings of one split, brought to one sample rate; the responses by their room."""

    rate: int
    speech: list[Clip] = field(default_factory=list)
    noise: list[Clip] = field(default_factory=list)
    rir: dict[str, list[np.ndarray]] = field(default_factory=dict)


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


def list_files(folder: str | Path) -> list[dict]:
    """Rows of the manifest, or rows made up from the folder layout when there is none.

    Raises InputError for a folder that is missing, holds no audio or too little of it, and for a
    manifest without the columns that are needed.
    """
    folder = Path(folder)
    if not folder.is_dir():
        raise InputError(f"no folder {folder}")
    manifest = folder / "MANIFEST.tsv"
    rows = _manifest_rows(manifest) if manifest.exists() else _folder_rows(folder)
    counts = Counter(row["path"].split("/", 1)[0] for row in rows)
    if not counts["speech"] and not counts["noise"]:
        wanted = "neither MANIFEST.tsv nor speech/ and noise/ folders with audio"
        raise InputError(f"{folder}: {wanted}{_unreadable(folder)}")
    if min(counts["speech"], counts["noise"]) < FEWEST:
        raise InputError(
            f"{folder}: {counts['speech']} recordings of speech and {counts['noise']} of noise, at least {FEWEST} "
            f"of each are needed and some hours are better{_unreadable(folder)}"
        )
    return rows


def _manifest_rows(manifest: Path) -> list[dict]:
    with manifest.open(newline="", encoding="utf-8") as handle:
        reader = csv.DictReader(handle, delimiter="\t")
        missing = COLUMNS - set(reader.fieldnames or ())
        if missing:
            raise InputError(f"{manifest}: no column {', '.join(sorted(missing))} (columns are separated by tabs)")
        return list(reader)


def _folder_rows(folder: Path) -> list[dict]:
    rows = []
    for kind in ("speech", "noise", "rir"):
        paths = [path for path in sorted((folder / kind).rglob("*")) if path.suffix.lower() in AUDIO_SUFFIXES]
        names = [path.relative_to(folder).as_posix() for path in paths]
        hashes = [int(hashlib.sha256(name.encode()).hexdigest(), 16) for name in names]
        for path, name, value in zip(paths, names, hashes):
            # In a small folder no hash may end in 0: the smallest one is held out then.
            held_out = value % 10 == 0 or (value == min(hashes) and all(h % 10 for h in hashes))
            split = "valid" if held_out and kind != "rir" else "train"
            rows.append({"path": name, "class_or_speaker": path.parent.name, "split": split})
    return rows


def _unreadable(folder: Path) -> str:
    """A remark on audio that the folder holds in formats that are not read; empty without any."""
    found = Counter(path.suffix.lower() for path in folder.rglob("*") if path.suffix.lower() in UNREADABLE_SUFFIXES)
    if not found:
        return ""
    kinds = ", ".join(f"{count} {suffix}" for suffix, count in sorted(found.items()))
    return f"; not readable: {kinds} (convert them to WAV or FLAC)"


def _load(path: Path, rate: int) -> tuple[np.ndarray, int]:
    samples, own_rate = soundfile.read(path, dtype="float32", always_2d=True)
    mono = samples.mean(axis=1)
    if not np.isfinite(mono).all():
        raise ValueError("holds NaN or infinite samples")
    return (mono if own_rate == rate else soxr.resample(mono, own_rate, rate)), own_rate


def load_corpus(folder: str | Path, rate: int, split: str, say: Callable[[str], None] | None = None) -> Corpus:
    """Read every recording of ``split`` ("train" or "valid"), resampled to ``rate`` Hz.

    Room responses are few and are used by both splits; those whose file names begin with the same two
    words, as in ``hall_large_left.wav``, belong to one room. Silent and very short files are left out.
    ``say`` receives warnings, one for each file that cannot be read and is skipped, and now and then how
    far the reading is. Raises InputError when the folder has no usable speech or noise.
    """
    folder, say = Path(folder), say or (lambda text: None)
    rows = [row for row in list_files(folder) if row["path"].startswith("rir/") or row["split"] == split]
    corpus, said = Corpus(rate), time.monotonic()
    if remark := _unreadable(folder):
        say(f"warning: {folder}{remark}")
    for number, row in enumerate(rows):
        if time.monotonic() - said > SECONDS_BETWEEN_WORDS:
            say(f"reading {folder} ({split}): {number} of {len(rows)} recordings")
            said = time.monotonic()
        try:
            samples, own_rate = _load(folder / row["path"], rate)
        except (OSError, ValueError, soundfile.LibsndfileError) as error:
            reason = getattr(error, "error_string", None) or getattr(error, "strerror", None) or error
            say(f"warning: skipped {folder / row['path']}: {reason}")
            continue
        _add(corpus, row, samples, own_rate)
    if not corpus.speech or not corpus.noise:
        raise InputError(f"{folder}: no usable {'noise' if corpus.speech else 'speech'} in split '{split}'")
    return corpus


def _add(corpus: Corpus, row: dict, samples: np.ndarray, own_rate: int) -> None:
    kind, level = row["path"].split("/", 1)[0], active_rms(samples, corpus.rate)
    if level <= 1e-6:
        return
    if kind == "rir":
        room = "_".join(Path(row["path"]).stem.split("_")[:2])
        corpus.rir.setdefault(room, []).append(_trim_response(samples, corpus.rate))
    elif len(samples) >= corpus.rate // 2:
        samples = (samples / level).astype(np.float32)
        clip = Clip(row["path"], row["class_or_speaker"], samples, own_rate > WIDE_RATE)
        (corpus.speech if kind == "speech" else corpus.noise).append(clip)


def _trim_response(samples: np.ndarray, rate: int) -> np.ndarray:
    """Begin at the direct sound, scale the direct sound to one, keep at most 1.5 s."""
    peak = int(np.argmax(np.abs(samples)))
    start = max(0, peak - rate // 2000)
    out = samples[start : start + rate * 3 // 2].copy()
    return out / np.abs(samples[peak])
