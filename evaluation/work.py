"""What the evaluation's processes do: each opens the library once and takes one task after another.

Every task is a small function of plain arguments, so that it can run in any process.
"""

from __future__ import annotations

import ctypes
import multiprocessing
import os
import signal
from dataclasses import asdict
from pathlib import Path

import numpy as np

from evaluation import judges, quality, segments, situations, stability, voice
from evaluation.detectors import (
    OrvelDetector,
    RNNoiseDetector,
    SileroDetector,
    TenDetector,
    VoiceDetector,
    WebRTCDetector,
)
from evaluation.networks import GTCRN, ULUNAS, ULUNAS_FILE, NSNet2
from evaluation.pairs import Pair, PairFiles
from evaluation.suppressors import Orvel, RNNoise, Speex, Suppressor, Unprocessed, WebRTC
from orvel import Library, Model

MAIN_RATE = 16000


def open_library(file: Path, folder: Path) -> Library:
    """The library with every model of the folder; raises OSError or OrvelError with what is wrong."""
    library = Library(folder, file=file)
    for control in sorted(folder.glob("*.ctl")):
        library.load(control.stem)
    if not library.models():
        raise FileNotFoundError(f"no models (*.ctl) in {folder}")
    return library


def detectors(models: list[Model]) -> list[Model]:
    """The voice-activity models."""
    return [model for model in models if model.kind == "detector"]


def cleaners(models: list[Model], rate: int | None = None, older: bool = False) -> list[Model]:
    """The noise-cleaning models of the newest version, or of `older` ones, largest first; at one `rate` or any."""
    versions = {model.name: tuple(map(int, model.version.split("."))) for model in models if model.kind == "cleaner"}
    newest = max(versions.values(), default=())
    found = [model for model in models if model.name in versions and older == (versions[model.name] != newest)]
    found = [model for model in found if rate in (None, model.rate)]
    return sorted(found, key=lambda model: (versions[model.name], -model.weights, model.name))


def peers_at(rate: int) -> list[type | object]:
    """Makers of the other suppressors that keep a wave's whole band at `rate`."""
    speex = lambda: Speex(rate)  # noqa: E731
    if rate > MAIN_RATE:
        return [RNNoise, speex]
    if rate < MAIN_RATE:
        return [RNNoise, WebRTC, speex]
    graph = os.environ.get(ULUNAS_FILE)
    return [RNNoise, WebRTC, speex, NSNet2, GTCRN, *([lambda: ULUNAS(Path(graph))] if graph else [])]


class Workshop:
    """Everything one process needs; systems are made when first asked for."""

    def __init__(self, library: Path, models: Path, command: Path):
        self.library, self.command = open_library(library, models), command
        self.models = self.library.models()
        self._suppressors: dict[tuple[int, bool], list[Suppressor]] = {}
        self._detectors: list[VoiceDetector] = []
        self._opinions: judges.Opinions | None = None
        self._recogniser: judges.Recogniser | None = None

    def orvel(self, model: str) -> Orvel:
        """A suppressor that runs `model` at its own rate."""
        return Orvel(self.library, model)

    def suppressors(self, rate: int, peers: bool, speech: np.ndarray) -> list[Suppressor]:
        """Ours at `rate` with the unprocessed wave and the others, or without `peers` our older versions;
        all calibrated."""
        key = (rate, peers)
        if key not in self._suppressors:
            ours = cleaners(self.models, rate, older=not peers)
            systems: list[Suppressor] = [self.orvel(model.name) for model in ours]
            if peers:
                systems = [Unprocessed(rate), *systems, *(make() for make in peers_at(rate))]
            for system in systems:
                system.calibrate(speech, rate)
            self._suppressors[key] = systems
        return self._suppressors[key]

    def detectors(self) -> list[VoiceDetector]:
        """Ours and the others."""
        if not self._detectors:
            ours = [OrvelDetector(self.library, model.name) for model in detectors(self.models)]
            others = [RNNoiseDetector(), SileroDetector(), TenDetector(), WebRTCDetector()]
            self._detectors = [*ours, *others]
        return self._detectors

    @property
    def opinions(self) -> judges.Opinions:
        """The opinion networks, loaded on first use."""
        if self._opinions is None:
            self._opinions = judges.Opinions()
        return self._opinions

    @property
    def recogniser(self) -> judges.Recogniser:
        """The recogniser, loaded on first use."""
        if self._recogniser is None:
            self._recogniser = judges.Recogniser()
        return self._recogniser


workshop: Workshop | None = None


def end_with_parent() -> None:
    """Has the kernel kill this process when its parent ends, even if that is killed itself."""
    kill_on_parents_death = 1  # PR_SET_PDEATHSIG
    ctypes.CDLL(None).prctl(kill_on_parents_death, signal.SIGKILL)
    if not multiprocessing.parent_process().is_alive():  # it ended before
        os._exit(1)


def open_workshop(library: Path, models: Path, command: Path) -> None:
    """Prepares this process; called once before any task."""
    global workshop
    end_with_parent()
    workshop = Workshop(library, models, command)


def pair_task(files: PairFiles, speech: PairFiles, peers: bool) -> dict:
    """One pair through all systems of its rate."""
    pair = files.load()
    systems = workshop.suppressors(pair.rate, peers, speech.load().clean)
    rows = quality.run_pair(pair, systems, workshop.opinions)
    about = {s.name: {"latency": s.latency_ms, "neural": s.neural, "note": s.note} for s in systems}
    return {"rows": [asdict(row) for row in rows], "systems": about}


def words_task(files: PairFiles, speech: PairFiles) -> dict[str, tuple[int, int]]:
    """Words that the recogniser gets wrong by system, and of how many: against its words in clean speech."""
    pair = files.load()
    reference = workshop.recogniser.words(pair.room, pair.rate)
    counts = {}
    for system in workshop.suppressors(pair.rate, True, speech.load().clean):
        words = workshop.recogniser.words(system.clean_file(pair.noisy, pair.rate), pair.rate)
        counts[system.name] = (judges.word_errors(words, reference), len(reference))
    return counts


def situations_task(files: PairFiles, speech: PairFiles, seed: int) -> dict:
    """Noise first, typing and music through all systems, with the speech of one pair."""
    pair = files.load()
    systems = workshop.suppressors(pair.rate, True, speech.load().clean)
    return situations.reductions(systems, pair.clean, pair.rate, seed)


def voice_task(files: PairFiles) -> dict:
    """Scores of all detectors for one stream, with its labels."""
    pair = files.load()
    labels = voice.labels_of(pair.clean, pair.rate)
    scores, cpu = {}, {}
    for detector in workshop.detectors():
        before = detector.cpu_seconds
        scores[detector.name] = detector.scores(pair.noisy)[: len(labels)]
        cpu[detector.name] = detector.cpu_seconds - before
    thresholds = {detector.name: detector.threshold for detector in workshop.detectors()}
    seconds = len(pair.noisy) / pair.rate
    return {"labels": labels, "scores": scores, "cpu": cpu, "seconds": seconds, "thresholds": thresholds}


def segments_task(files: PairFiles) -> dict:
    """Segments of one stream, by the command and by Silero, counted against its labels."""
    options = ["--model-dir", str(workshop.library.folder)]
    return segments.count_stream(files.load(), workshop.command, options)


def stress_task(model: str) -> list[dict]:
    """All stress signals through one noise-cleaning model."""
    system = workshop.orvel(model)
    waves = stability.signals(system.rate)
    return [asdict(stability.run(system, name, wave.astype(np.float32))) for name, wave in waves.items()]


def voice_stress_task(model: str) -> list[dict]:
    """All stress signals through a detector: scores stay finite and in their range."""
    rows = []
    for name, wave in stability.signals(MAIN_RATE).items():
        with workshop.library.detector(MAIN_RATE, model) as session:
            scores = session.process(wave.astype(np.float32))
        finite = bool(np.all(np.isfinite(scores)))
        rows.append({"signal": name, "finite": finite, "voice": float(np.mean(scores >= 0.5))})
    return rows


def changing_task(model: str, files: list[PairFiles], seconds: float) -> list[dict]:
    """A long stream of changing noise and level through one model."""
    system = workshop.orvel(model)
    parts = stability.pieces([f.load() for f in files], seconds)
    return stability.summary(stability.compare(system, parts))


def wide_band_task(files: PairFiles, speech: PairFiles, hertz: float = 8000.0) -> list[dict]:
    """Level above `hertz` of a clean wave before and after; nothing for a wave without such a band."""
    pair = files.load()
    before = stability.level_above(pair.clean, pair.rate, hertz)
    whole = stability.level_above(pair.clean, pair.rate, 0.0)
    if before < whole - 40.0:
        return []
    rows = []
    shown = {RNNoise.name, *(model.name for model in cleaners(workshop.models, pair.rate))}
    for system in workshop.suppressors(pair.rate, True, speech.load().clean):
        if system.name not in shown:
            continue
        out = system.clean_file(pair.clean, pair.rate)
        rows.append(
            {
                "pair": pair.name,
                "system": system.name,
                "before": before - whole,
                "after": stability.level_above(out, pair.rate, hertz) - whole,
                "whole": stability.level_above(out, pair.rate, 0.0) - whole,
            }
        )
    return rows


def example_task(files: PairFiles, model: str) -> tuple[Pair, np.ndarray]:
    """A pair with its noisy wave cleaned, for pictures."""
    pair = files.load()
    return pair, workshop.orvel(model).clean_file(pair.noisy, pair.rate)
