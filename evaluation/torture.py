"""Hard signals, each followed by speech: what the signals' past does to it.

python -m evaluation.torture --minutes 60

One session of each model hears all kinds of evaluation/torture_signals.py in turn, `--minutes` in all, and
speech after each. That speech is compared with what a fresh session makes of it: the gain, and the
difference as a signal-to-distortion ratio (dB); for detectors the mean difference of the scores. The worst
of each model has to keep within evaluation/torture.toml. During the signals every output sample must be
finite and within full scale, and the model's state must never have to be cleared.
"""

from __future__ import annotations

import argparse
import tomllib
from concurrent.futures import ProcessPoolExecutor
from pathlib import Path

import numpy as np
import soxr

import evaluation  # before numpy: one thread per process
from evaluation.torture_signals import SIGNALS
from orvel import Library
from samples import noisy_speech

BOUNDS = Path(__file__).with_suffix(".toml")
SNR_DB = 15.0
SPEECH_SECONDS = 9.6
# A whole number of the frames of every session and model: both sessions cut the speech alike.
GRID_SECONDS = 0.24
PIECE = 10  # seconds of a signal that are made at once


def speech_at(rate: int) -> np.ndarray:
    """The demo's recording from its first word on, at a rate."""
    _, noisy = noisy_speech.make(SNR_DB)
    start = int(noisy_speech.LEAD_IN * noisy_speech.RATE)
    noisy = noisy[start : start + int(SPEECH_SECONDS * noisy_speech.RATE) + noisy_speech.RATE]
    return soxr.resample(noisy, noisy_speech.RATE, rate)[: int(SPEECH_SECONDS * rate)].astype(np.float32)


def decibels(ratio: float) -> float:
    return 10.0 * float(np.log10(max(ratio, 1e-12)))


def compare(out: np.ndarray, fresh: np.ndarray, cleans: bool) -> dict[str, float]:
    out, fresh = out.astype(float), fresh.astype(float)
    if not cleans:
        return {"score": float(np.mean(np.abs(out - fresh)))}
    error = np.sum((out - fresh) ** 2)
    power = np.sum(fresh**2)
    return {"gain_db": decibels(np.sum(out**2) / power), "sdr_db": min(decibels(power / max(error, 1e-20)), 120.0)}


def torture(name: str, folder: Path, minutes: float) -> tuple[dict[str, dict[str, float]], int]:
    """The comparison after each kind of signal, and how often the model's state was cleared."""
    rows = {}
    with Library(folder) as library:
        model = library.load(name)
        cleans = model.kind == "cleaner"
        open_session = library.cleaner if cleans else library.detector
        speech = speech_at(model.rate)
        with open_session(model.rate, name) as session:
            fresh = session.process(speech)
        seconds = max(round(minutes * 60.0 / len(SIGNALS) / GRID_SECONDS), 1) * GRID_SECONDS
        time = np.arange(round(seconds * model.rate)) / model.rate
        with open_session(model.rate, name) as session:
            for index, (kind, signal) in enumerate(SIGNALS.items()):
                random = np.random.default_rng(index)
                samples = signal(time, model.rate, random, speech).astype(np.float32)
                heard = session.process(samples)
                if not (np.isfinite(heard).all() and np.abs(heard).max() <= 1.0):
                    raise SystemExit(f"torture: {name}: {kind}: output is not finite or beyond full scale")
                rows[kind] = compare(session.process(speech), fresh, cleans)
            return rows, session.statistics().state_resets


def worst(rows: dict[str, dict[str, float]]) -> dict[str, tuple[float, str]]:
    """The worst value of each measure and the signal before it."""
    harm = {"gain_db": abs, "sdr_db": lambda value: -value, "score": lambda value: value}
    measures = next(iter(rows.values()))
    found = {}
    for measure in measures:
        kind = max(rows, key=lambda one: harm[measure](rows[one][measure]))
        found[measure] = (rows[kind][measure], kind)
    return found


def kept(measure: str, value: float, bound: float) -> bool:
    return value >= bound if measure == "sdr_db" else abs(value) <= bound


def main() -> None:
    """Prints a table for each model; see the module's text."""
    parser = argparse.ArgumentParser(prog="python -m evaluation.torture", description=__doc__.splitlines()[0])
    parser.add_argument("--minutes", type=float, default=60.0, help="of hard signals for each model (60)")
    parser.add_argument("--models", type=Path, default=evaluation.ROOT / "models", help="folder of models")
    parser.add_argument("--jobs", type=int, default=2, help="models at a time (2)")
    options = parser.parse_args()
    bounds = tomllib.loads(BOUNDS.read_text())
    names = sorted(path.stem for path in options.models.glob("*.ctl"))
    with ProcessPoolExecutor(options.jobs) as pool:
        results = dict(
            zip(names, pool.map(torture, names, [options.models] * len(names), [options.minutes] * len(names)))
        )
    failed = []
    for name, (rows, resets) in results.items():
        print(f"\n{name}: after {options.minutes / len(SIGNALS) * 60:.0f} s of")
        for kind, values in rows.items():
            print(f"  {kind:26}" + "".join(f"  {key} {value:8.3f}" for key, value in values.items()))
        for measure, (value, kind) in worst(rows).items():
            bound = bounds.get(name, {}).get(measure)
            good = bound is not None and kept(measure, value, bound)
            failed += [] if good else [f"{name}: {measure} is {value:.3f} after {kind}, the bound is {bound}"]
            print(f"  worst {measure} {value:.3f} after {kind}, bound {bound}")
        if resets:
            failed.append(f"{name}: the state ran away and was cleared {resets} times")
    print("\n" + "\n".join(failed or [f"torture: {len(names)} models keep within {BOUNDS.name}"]))
    raise SystemExit(1 if failed else 0)


if __name__ == "__main__":
    main()
