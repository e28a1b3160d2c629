"""Noise cleaning of streams, in blocks of any length and with any number of channels."""

from __future__ import annotations

import threading
from collections.abc import Iterator, Sequence
from contextlib import ExitStack, contextmanager

import numpy as np
from numpy.typing import ArrayLike

from orvel.arrays import Audio, Floats, from_floats, to_floats
from orvel.library import Library, clean_together
from orvel.shipped import RATES, choose

# Not quite digital silence, which a cleaner may let pass as it is together with what it still holds.
_ALMOST_SILENT = np.float32(1e-9)


class Cleaner:
    """Removes noise from a stream that comes in blocks of any length; every channel on its own.

    `rate`: Hz, one of `RATES`. `channels`: at least 1. `model`: by default the shipped model whose rate is
    nearest to `rate` without being above it. `attenuation_limit`: dB that no frequency is lowered by more
    than; by default there is no limit. `library`: models to choose from, by default the shipped ones.

    Raises ValueError that names the argument, or OrvelError with the library's reason. One thread at a
    time may use it; a second one is refused with a RuntimeError.

    >>> import numpy as np, orvel
    >>> cleaner = orvel.Cleaner(16000)
    >>> block = np.zeros(1000, np.int16)
    >>> cleaner.process(block).shape, cleaner.process(block[:37]).dtype
    ((1000,), dtype('int16'))
    >>> cleaner.flush().shape == (1, cleaner.latency)
    True
    """

    def __init__(
        self,
        rate: int,
        channels: int = 1,
        *,
        model: str | None = None,
        attenuation_limit: float | None = None,
        library: Library | None = None,
    ) -> None:
        if rate not in RATES:
            raise ValueError(f"rate: {rate!r} is not one of {', '.join(map(str, RATES))}")
        if channels < 1:
            raise ValueError(f"channels: {channels} is below 1")
        if attenuation_limit is not None and not 0.0 <= attenuation_limit < np.inf:
            raise ValueError(f"attenuation_limit: {attenuation_limit} is not a finite number of dB from 0 up")
        library, model = choose(library, rate, model, "cleaner")
        self.rate, self.channels = rate, channels
        self._sessions = [library.cleaner(rate, model) for _ in range(channels)]
        for session in self._sessions:
            if attenuation_limit is not None:
                session.limit(attenuation_limit)
        self._frame = self._sessions[0].frame
        self._busy = threading.Lock()
        self._begin()

    def _begin(self) -> None:
        self._waiting = np.zeros((self.channels, 0), np.float32)  # not a whole frame yet
        # With a frame less one sample ahead there is always as much to give as was taken.
        self._ready = np.zeros((self.channels, self._frame - 1), np.float32)

    @property
    def latency(self) -> int:
        """Samples by which the output lags behind the input, whatever the blocks: the model's latency and
        10 ms less one sample to gather what the library takes at once."""
        return self._sessions[0].latency + self._frame - 1

    @contextmanager
    def _held(self) -> Iterator[None]:
        if not self._busy.acquire(blocking=False):
            raise RuntimeError("the Cleaner is in use by another thread")
        try:
            yield
        finally:
            self._busy.release()

    def process(self, audio: ArrayLike, *, axis: int = -1) -> Audio:
        """Cleans a block.

        `audio`: int16, int32, float32 or float64 (floats: full scale +/-1, louder is clipped), shape (n,)
        for one channel, else (channels, n), or (n, channels) with axis=0; n may be 0 and change from call
        to call. Returns the same type and shape, late by `latency`. Raises ValueError for another shape or
        type and for NaN or infinite samples; the stream is unchanged then.
        """
        audio, floats = to_floats(audio, axis, may_be_empty=True)
        if len(floats) != self.channels:
            raise ValueError(
                f"audio: shape {audio.shape} with axis={axis} has {len(floats)} channels, not {self.channels}"
            )
        return from_floats(run_together([self], [floats])[0], audio, axis)

    def flush(self) -> Floats:
        """Ends the stream: the `latency` samples still on their way, (channels, latency) float32, and a reset."""
        out = run_together([self], [self.silence(self.latency)])[0]
        self.reset()
        return out

    def silence(self, samples: int) -> Floats:
        """What a stream goes on with at its end, (channels, samples)."""
        return np.full((self.channels, samples), _ALMOST_SILENT)

    def reset(self) -> None:
        """Begins a new stream; the attenuation limit stays."""
        with self._held():
            for session in self._sessions:
                session.reset()
            self._begin()


def run_together(cleaners: Sequence[Cleaner], blocks: Sequence[Floats]) -> list[Floats]:
    """Cleans a block (channels, samples) of each cleaner, all channels of all of them in common batches."""
    with ExitStack() as stack:
        for cleaner in cleaners:
            stack.enter_context(cleaner._held())
        waiting = [np.concatenate([c._waiting, block], axis=1) for c, block in zip(cleaners, blocks, strict=True)]
        whole = [w.shape[1] // c._frame * c._frame for c, w in zip(cleaners, waiting, strict=True)]
        rows = [row[:count] for w, count in zip(waiting, whole, strict=True) for row in w]
        cleaned = iter(clean_together([session for c in cleaners for session in c._sessions], rows))
        outputs = []
        for cleaner, block, left, count in zip(cleaners, blocks, waiting, whole, strict=True):
            ready = np.concatenate([cleaner._ready, np.stack([next(cleaned) for _ in left])], axis=1)
            cleaner._waiting, cleaner._ready = left[:, count:].copy(), ready[:, block.shape[1] :].copy()
            outputs.append(ready[:, : block.shape[1]])
    return outputs
