"""Folders of noisy/clean pairs: NNN_noisy.wav, NNN_clean.wav and, where known, NNN_room.wav and pairs.json.

``clean`` of a reverberant pair keeps only the early reflections, ``room`` all of them; where there is no
``room``, both are the same wave.
pairs.json is a list of {"id": "NNN", "snr_db": ..., "reverberant": ...}; a folder without it is read
too, then without the breakdown by ratio and by room. Missing folders are made from held-out
recordings with a fixed seed.
"""

from __future__ import annotations

import json
import subprocess
import sys
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np
import soundfile

SEED = 2024
# Pairs for each rate, and streams for the detectors, that are made; fewer are drawn evenly from these.
PAIRS, STREAMS = 60, 30


@dataclass
class Pair:
    """One pair in memory: floats of full scale +/-1, in time with each other."""

    name: str
    rate: int
    noisy: np.ndarray
    clean: np.ndarray
    room: np.ndarray
    info: dict = field(default_factory=dict)


@dataclass(frozen=True)
class PairFiles:
    """One pair on disk."""

    name: str
    folder: Path
    info: dict

    def load(self) -> Pair:
        """Reads the files; raises ValueError when they do not fit together."""
        paths = [self.folder / f"{self.name}_{kind}.wav" for kind in ("noisy", "clean", "room")]
        if not paths[2].exists():
            paths[2] = paths[1]
        waves, rates = zip(*(soundfile.read(path, dtype="float32") for path in paths))
        if len(set(rates)) > 1 or len({wave.shape for wave in waves}) > 1 or waves[0].ndim != 1:
            raise ValueError(f"{self.folder}/{self.name}: noisy and clean differ in rate or length")
        return Pair(self.name, rates[0], *waves, self.info)


def list_pairs(folder: str | Path, limit: int | None = None) -> list[PairFiles]:
    """The pairs of a folder in order of their names; raises ValueError when there are none."""
    folder = Path(folder)
    described = {}
    if (folder / "pairs.json").exists():
        described = {row["id"]: row for row in json.loads((folder / "pairs.json").read_text())}
    names = sorted(path.name.removesuffix("_noisy.wav") for path in folder.glob("*_noisy.wav"))
    if not names:
        raise ValueError(f"{folder}: no files named ..._noisy.wav")
    return [PairFiles(name, folder, described.get(name, {})) for name in names[:limit]]


def make_pairs(data: Path, folder: Path, rate: int, count: int, seconds: float) -> Path:
    """Writes `count` pairs from the held-out recordings of `data`, unless they are there already."""
    target = folder / f"pairs-{rate // 1000}k-{count}x{seconds:g}s"
    if not (target / "pairs.json").exists():
        command = [sys.executable, "-m", "training.evalset", "--data", str(data), "--out", str(target)]
        command += ["--rate", str(rate), "--count", str(count), "--seconds", str(seconds)]
        if subprocess.run([*command, "--seed", str(SEED)], check=False).returncode:
            sys.exit(f"evaluate: no pairs from {data}")
    return target


def make_streams(data: Path, folder: Path, seed: int = SEED, seconds: float = 60.0, rate: int = 16000) -> Path:
    """Writes long streams for the voice detectors, speech about half of the time."""
    target = folder / f"streams-{rate // 1000}k-{STREAMS}x{seconds:g}s{'' if seed == SEED else f'-{seed}'}"
    if (target / "pairs.json").exists():
        return target
    from training.corpus import load_corpus
    from training.evalset import make_stream

    corpus = load_corpus(data, rate, "valid")
    target.mkdir(parents=True, exist_ok=True)
    infos = []
    for index in range(STREAMS):
        noisy, clean, info = make_stream(corpus, index, seed, seconds)
        for kind, wave in (("noisy", noisy), ("clean", clean)):
            soundfile.write(target / f"{index:03d}_{kind}.wav", wave, rate, subtype="PCM_16")
        infos.append({"id": f"{index:03d}", "rate": rate, **info})
    (target / "pairs.json").write_text(json.dumps(infos, indent=1) + "\n")
    return target
