"""Rolling pools of augmented segments on disk.

Two memory-mapped int16 arrays per sample rate: speech (input part and target) and noise. Worker
processes make segments for as long as they run and overwrite the oldest ones, while the trainer
mixes from whatever is there; a fresh pairing, level and ratio at every use keeps mixes from repeating.

Run a worker: ``python -m training.pools --data DIR --pool DIR --rate 16000 --seed 1``.
"""

from __future__ import annotations

import argparse
import json
import os
import time
from pathlib import Path

import numpy as np

from training.corpus import load_corpus
from training.segments import SegmentMaker

SEGMENT_HOPS = 376  # of 16 ms: two training sequences of 188 hops


def segment_length(rate: int) -> int:
    """Samples of one pool segment at ``rate`` Hz."""
    return SEGMENT_HOPS * rate * 16 // 1000


class Pool:
    """The pool files of one folder; ``speech`` is (slots, 2, samples), ``noise`` is (slots, samples)."""

    def __init__(self, folder: str | Path, rate: int, speech_slots: int, noise_slots: int):
        self.folder = Path(folder)
        self.rate = rate
        self.folder.mkdir(parents=True, exist_ok=True)
        length = segment_length(rate)
        self.speech = self._open("speech.i16", (speech_slots, 2, length), np.int16)
        self.noise = self._open("noise.i16", (noise_slots, length), np.int16)
        # 0: empty, 1: narrow, 2: speech with content above 8 kHz; the noise array only uses 0 and 1.
        self.speech_kind = self._open("speech.kind", (speech_slots,), np.uint8)
        self.noise_kind = self._open("noise.kind", (noise_slots,), np.uint8)

    def _open(self, name: str, shape: tuple[int, ...], dtype) -> np.memmap:
        path = self.folder / name
        size = int(np.prod(shape)) * np.dtype(dtype).itemsize
        if not path.exists() or path.stat().st_size != size:
            with open(path, "ab") as handle:
                handle.truncate(size)
        return np.memmap(path, dtype=dtype, mode="r+", shape=shape)

    def draw_speech(self, rng: np.random.Generator) -> int:
        """A random filled slot of the speech."""
        return self._draw(rng, self.speech_kind)

    def draw_noise(self, rng: np.random.Generator) -> int:
        """A random filled slot of the noise."""
        return self._draw(rng, self.noise_kind)

    @staticmethod
    def _draw(rng: np.random.Generator, kinds: np.ndarray) -> int:
        while True:
            slot = int(rng.integers(len(kinds)))
            if kinds[slot]:
                return slot

    def filled(self) -> tuple[int, int]:
        """Speech and noise slots that hold something."""
        return int(np.count_nonzero(self.speech_kind)), int(np.count_nonzero(self.noise_kind))


def _store(samples: np.ndarray, gain: float) -> np.ndarray:
    return np.clip(np.rint(samples * gain), -32768, 32767).astype(np.int16)


def fill(pool: Pool, maker: SegmentMaker, worker: int, workers: int, limit: int | None = None) -> None:
    """Write segments into this worker's share of the slots, round after round, for ever or ``limit`` times."""
    speech_at = noise_at = worker
    made = 0
    while limit is None or made < limit:
        source, target, wide = maker.speech()
        peak = max(np.max(np.abs(source)), np.max(np.abs(target)), 1.0)
        gain = min(1.0, 32000.0 / peak)
        slot = speech_at % len(pool.speech)
        pool.speech[slot, 0] = _store(source, gain)
        pool.speech[slot, 1] = _store(target, gain)
        pool.speech_kind[slot] = 2 if wide else 1
        speech_at += workers
        noise = maker.noise()
        slot = noise_at % len(pool.noise)
        pool.noise[slot] = _store(noise, min(1.0, 32000.0 / max(np.max(np.abs(noise)), 1.0)))
        pool.noise_kind[slot] = 1
        noise_at += workers
        made += 1


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--data", required=True)
    parser.add_argument("--pool", required=True)
    parser.add_argument("--rate", type=int, required=True)
    parser.add_argument("--slots", type=int, default=6000)
    parser.add_argument("--worker", type=int, default=0)
    parser.add_argument("--workers", type=int, default=1)
    parser.add_argument("--seed", type=int, default=0)
    parser.add_argument("--plain", type=float, default=0.0, help="share of segments left as recorded")
    parser.add_argument("--limit", type=int)
    args = parser.parse_args()
    os.nice(19)
    rng = np.random.default_rng([args.seed, args.worker, int(time.time())])
    corpus = load_corpus(args.data, args.rate, "train")
    maker = SegmentMaker(corpus, segment_length(args.rate), rng, args.plain)
    pool = Pool(args.pool, args.rate, args.slots, args.slots)
    print(json.dumps({"speech": len(corpus.speech), "noise": len(corpus.noise), "rir": len(corpus.rir)}), flush=True)
    fill(pool, maker, args.worker, args.workers, args.limit)


if __name__ == "__main__":
    main()
