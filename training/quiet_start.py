"""Speech after a long quiet: a gate that a detector passes before it ships.

``python -m training.quiet_start --weights NAME.bin --data DIR`` plays held-out speech at -20 dBFS after 30 to
60 s of held-out noise at -55 to -80 dBFS, which the automatic level lifts without end, and prints how long
each detector stays below 0.5 from the first voiced hop on: the worst of all seeds, and how many miss more than
half a second. The exit status is 1 when the worst is above ``--worst`` seconds.
"""

from __future__ import annotations

import os

os.environ.setdefault("XLA_FLAGS", "--xla_cpu_multi_thread_eigen=false intra_op_parallelism_threads=1")

import argparse
import sys

import numpy as np

from training import InputError
from training.corpus import Corpus, active_rms, load_corpus
from training.labels import voice_labels
from training.level import HOP, RATE
from training.model import calibrated, detect, load_exported
from training.plain import plain_noise, plain_voice
from training.synth import coloured

SPEECH_SECONDS = 10.0
SPEECH_DBFS = -20.0
QUIET_SECONDS = (30.0, 60.0)
QUIET_DBFS = (-80.0, -55.0)


def quiet_then_speech(corpus: Corpus, seed: int) -> tuple[np.ndarray, np.ndarray, dict]:
    """Wave in 16-bit units, its labels per hop, and what it is made of."""
    rng = np.random.default_rng([seed, 4711])
    before = int(rng.uniform(*QUIET_SECONDS) * RATE) // HOP * HOP
    count = before + int(SPEECH_SECONDS * RATE)
    voice, speaker = plain_voice(corpus, rng, count - before)
    speech = np.zeros(count)
    speech[before:] = voice / active_rms(voice, RATE) * 32768.0 * 10.0 ** (SPEECH_DBFS / 20.0)
    # Half of the noises are steady, as that of an amplifier.
    noise, kind = plain_noise(corpus, rng, count) if seed % 2 else (coloured(rng, count, RATE), "steady noise")
    level = float(rng.uniform(*QUIET_DBFS))
    noise = noise / (np.sqrt(np.mean(np.square(noise))) + 1e-9) * 32768.0 * 10.0 ** (level / 20.0)
    wave = np.clip(np.rint(speech + noise), -32768.0, 32767.0).astype(np.float32)
    return wave, voice_labels(speech), {"dbfs": level, "noise": kind, "speaker": speaker, "quiet": before / RATE}


def missed_seconds(scores: np.ndarray, labels: np.ndarray) -> float:
    """Voiced time from the first voiced hop until the score reaches 0.5."""
    voiced = np.flatnonzero(labels[: len(scores)] > 0.0)
    found = np.flatnonzero(scores[voiced] >= 0.5)
    return (found[0] if len(found) else len(voiced)) * HOP / RATE


def main(arguments: list[str] | None = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--weights", required=True, nargs="+")
    parser.add_argument("--data", required=True)
    parser.add_argument("--seeds", type=int, default=300)
    parser.add_argument("--worst", type=float, default=0.75, help="seconds that may be missed (0.75)")
    args = parser.parse_args(arguments)
    try:
        loaded = {path: load_exported(path) for path in args.weights}
        corpus = load_corpus(args.data, RATE, "valid")
    except InputError as error:
        sys.exit(f"quiet_start: {error}")
    failed = False
    missed: dict[str, list] = {path: [] for path in loaded}
    quiet: dict[str, list] = {path: [] for path in loaded}
    for seed in range(args.seeds):
        wave, labels, about = quiet_then_speech(corpus, seed)
        wave = np.pad(wave, (0, int((QUIET_SECONDS[1] + SPEECH_SECONDS) * RATE) - len(wave)))  # one compilation
        for path, one in loaded.items():
            scores = calibrated(detect(one.model, one.params, one.stats, wave), one.entries)[: len(labels)]
            missed[path].append((missed_seconds(scores, labels), seed, about))
            quiet[path].append(float(np.mean(scores[: int(about["quiet"] * RATE / HOP)] >= 0.5)))
    for path, rows in missed.items():
        worst = max(rows, key=lambda row: row[0])
        late = sum(row[0] > 0.5 for row in rows)
        print(f"{path}: worst {worst[0]:.2f} s (seed {worst[1]}: {worst[2]['noise']} at {worst[2]['dbfs']:.0f} dBFS)")
        print(f"  over half a second in {late} of {len(rows)}; noise called voice {100 * np.mean(quiet[path]):.1f} %")
        failed |= worst[0] > args.worst
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
