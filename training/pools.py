"""Rolling pools of augmented segments on disk.

Two memory-mapped int16 arrays per sample rate: speech (input part and target) and noise. Worker
processes make segments for as long as they run and overwrite the oldest ones, while the trainer
mixes from whatever is there; a fresh pairing, level and ratio at every use keeps mixes from repeating.

Run a worker: ``python -m training.pools --data DIR --pool DIR --rate 16000 --seed 1``.
"""

from __future__ import annotations

import argparse
import itertools
import os
import subprocess
import sys
import time
from pathlib import Path

import numpy as np

from training import InputError, WorkerDied
from training.corpus import load_corpus
from training.segments import SegmentMaker

ROOT = Path(__file__).resolve().parent.parent
SEGMENT_HOPS = 376  # of 16 ms: two training sequences of 188 hops
# Once its slots are full, a worker rests for this many times as long as it works.
REST = 2.0


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


def fill(pool: Pool, maker: SegmentMaker, worker: int = 0, workers: int = 1):
    """Writes segments into this worker's share of the slots, round after round: one at every step.

    A generator that never ends; gives the number of segments made.
    """
    slots = itertools.cycle(range(worker, min(len(pool.speech), len(pool.noise)), workers))
    for made, slot in enumerate(slots, 1):
        source, target, wide = maker.speech()
        peak = max(np.max(np.abs(source)), np.max(np.abs(target)), 1.0)
        gain = min(1.0, 32000.0 / peak)
        pool.speech[slot, 0] = _store(source, gain)
        pool.speech[slot, 1] = _store(target, gain)
        pool.speech_kind[slot] = 2 if wide else 1
        noise = maker.noise()
        pool.noise[slot] = _store(noise, min(1.0, 32000.0 / max(np.max(np.abs(noise)), 1.0)))
        pool.noise_kind[slot] = 1
        yield made


class Workers:
    """Background processes that fill and then renew a pool; a context manager that ends them."""

    def __init__(self, count: int, data: str | Path, pool: Pool, training: dict):
        slots = ["--rate", pool.rate, "--slots", len(pool.speech), "--seed", training["seed"]]
        arguments = ["--data", Path(data).resolve(), "--pool", pool.folder.resolve(), *slots]
        arguments += ["--plain", training.get("plain", 0.0)]
        if "room_fade" in training:
            arguments += ["--room-fade", *training["room_fade"]]
        self._logs = [pool.folder / f"worker{k}.log" for k in range(count)]
        self._processes: list[subprocess.Popen] = []
        self._told: set[str] = set()
        for k, log in enumerate(self._logs):
            turn = ["--worker", k, "--workers", count, "--parent", os.getpid()]
            command = [sys.executable, "-m", "training.pools", *map(str, [*arguments, *turn])]
            with log.open("w") as handle:
                self._processes.append(subprocess.Popen(command, stdout=handle, stderr=subprocess.STDOUT, cwd=ROOT))

    def __enter__(self) -> Workers:
        return self

    def __exit__(self, *_) -> None:
        for process in self._processes:
            process.terminate()
        for process in self._processes:
            process.wait()

    def check(self) -> None:
        """Raises WorkerDied with the last words of a worker that has ended."""
        for process, log in zip(self._processes, self._logs):
            status = process.poll()
            if status is not None:
                words = log.read_text(errors="replace").strip().splitlines()
                how = f"signal {-status}" if status < 0 else f"status {status}"
                raise WorkerDied(f"a pool worker ended with {how}: {words[-1] if words else 'no message'} (log: {log})")

    def new_words(self) -> list[str]:
        """What workers have said and no earlier call has returned, such as a file skipped by several of them."""
        texts = [log.read_text(errors="replace") for log in self._logs]
        # The last line may still be being written.
        lines = [line for text in texts for line in text[: text.rfind("\n") + 1].splitlines()]
        new = [line for line in dict.fromkeys(lines) if line not in self._told]
        self._told.update(new)
        return new


def main(arguments: list[str] | None = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--data", required=True)
    parser.add_argument("--pool", required=True)
    parser.add_argument("--rate", type=int, required=True)
    parser.add_argument("--slots", type=int, default=6000)
    parser.add_argument("--worker", type=int, default=0, help="this worker's number, from 0")
    parser.add_argument("--workers", type=int, default=1, help="workers that share the slots")
    parser.add_argument("--seed", type=int, default=0)
    parser.add_argument("--plain", type=float, default=0.0, help="share of segments left as recorded")
    parser.add_argument("--room-fade", type=float, nargs=2, help="seconds: target full up to, gone at")
    parser.add_argument("--limit", type=int, help="segments to make (default: no end)")
    parser.add_argument("--parent", type=int, help="process id: end when this is no longer the parent")
    args = parser.parse_args(arguments)
    rng = np.random.default_rng([args.seed, args.worker, int(time.time())])

    def say(text: str) -> None:
        print(text, flush=True)
        if args.parent and os.getppid() != args.parent:
            raise SystemExit("the run has ended")

    try:
        corpus = load_corpus(args.data, args.rate, "train", say)
    except InputError as error:
        raise SystemExit(str(error)) from None
    maker = SegmentMaker(corpus, segment_length(args.rate), rng, args.plain, args.room_fade)
    began = time.monotonic()
    for made in fill(Pool(args.pool, args.rate, args.slots, args.slots), maker, args.worker, args.workers):
        if made * args.workers >= args.slots and not os.nice(0):
            os.nice(10)
        if made == args.limit or (args.parent and os.getppid() != args.parent):
            return
        if args.limit is None and made * args.workers >= args.slots:
            time.sleep(REST * (time.monotonic() - began))
        began = time.monotonic()


if __name__ == "__main__":
    main()
