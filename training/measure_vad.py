"""Detection quality of an exported detector beside RNNoise, in one run.

``python -m training.measure_vad --weights NAME.bin --streams DIR`` prints the ROC area
for every lag of the score from 0 to 80 ms, and for the detector precision, recall and F1 at 0.5 and
the median onset delay. ``DIR`` comes from ``training.evalset --streams``.
"""

from __future__ import annotations

import os

os.environ.setdefault("XLA_FLAGS", "--xla_cpu_multi_thread_eigen=false intra_op_parallelism_threads=1")

import argparse
import json
import sys
from pathlib import Path

import numpy as np
import soundfile
import soxr

from training import InputError
from training.model import calibrated, detect, load_exported

LAGS = range(9)


def roc_area(score: np.ndarray, voiced: np.ndarray) -> float:
    """Probability that a voiced hop scores above one without voice; ties count half."""
    _, inverse, counts = np.unique(score, return_inverse=True, return_counts=True)
    ranks = (np.cumsum(counts) - (counts - 1) / 2.0)[inverse]
    positive = int(voiced.sum())
    negative = len(voiced) - positive
    return float((ranks[voiced].sum() - positive * (positive + 1) / 2.0) / (positive * negative))


def onset_delays(active: np.ndarray, voiced: np.ndarray) -> list[float]:
    """Milliseconds from each begin of speech after 0.3 s of pause to the first active hop within 0.5 s."""
    delays = []
    for begin in np.flatnonzero(np.diff(voiced.astype(np.int8)) == 1) + 1:
        if begin >= 30 and not voiced[begin - 30 : begin].any() and not active[begin - 1]:
            found = np.flatnonzero(active[begin : begin + 50])
            if found.size:
                delays.append(10.0 * float(found[0] + 1))
    return delays


def rnnoise_voice(wave: np.ndarray) -> np.ndarray:
    """RNNoise's voice probability per 10 ms of ``wave`` (16-bit units, 8 kHz)."""
    from pyrnnoise import RNNoise

    samples = np.clip(np.rint(soxr.resample(wave, 8000, 48000)), -32768, 32767).astype(np.int16)
    return np.array([float(np.ravel(p)[0]) for p, _ in RNNoise(sample_rate=48000).denoise_chunk(samples[None])])


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--weights", required=True)
    parser.add_argument("--streams", required=True)
    args = parser.parse_args()
    try:
        loaded = load_exported(args.weights)
    except InputError as error:
        sys.exit(f"measure_vad: {error}")
    if not loaded.is_detector:
        sys.exit(f"measure_vad: {args.weights} is no voice detector")
    folder = Path(args.streams)
    labels, scores = [], {"model": [], "rnnoise": []}
    for info in json.loads((folder / "pairs.json").read_text()):
        wave, _ = soundfile.read(folder / f"{info['id']}_noisy.wav", dtype="float32")
        voiced = np.array([c == "1" for c in info["voiced_hops_10ms"]])
        for name, score in (
            ("model", calibrated(detect(loaded.model, loaded.params, loaded.stats, wave * 32768.0), loaded.entries)),
            ("rnnoise", rnnoise_voice(wave * 32768.0)),
        ):
            scores[name].append(np.pad(score, (0, max(0, len(voiced) - len(score))), mode="edge")[: len(voiced)])
        labels.append(voiced)
    print("area under the ROC, score later by   " + "  ".join(f"{10 * k:2d} ms" for k in LAGS))
    for name, values in scores.items():
        areas = []
        for lag in LAGS:
            late = np.concatenate([v[lag:] for v in values])
            areas.append(roc_area(late, np.concatenate([v[: len(v) - lag] for v in labels])))
        print(f"{name:36s} " + "  ".join(f"{a:.3f}" for a in areas))
    active = np.concatenate(scores["model"]) > 0.5
    voiced = np.concatenate(labels)
    hits = np.sum(active & voiced)
    precision, recall = hits / active.sum(), hits / voiced.sum()
    delays = [d for s, v in zip(scores["model"], labels) for d in onset_delays(s > 0.5, v)]
    f1 = 2 * hits / (active.sum() + voiced.sum())
    print(f"model at 0.5: precision {precision:.3f}  recall {recall:.3f}  F1 {f1:.3f}")
    print(f"onset delay: median {np.median(delays):.0f} ms over {len(delays)} onsets; voiced share {voiced.mean():.2f}")


if __name__ == "__main__":
    main()
