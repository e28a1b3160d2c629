"""Voice activity: scores of recordings, and the stretches with speech."""

from __future__ import annotations

import threading
from collections.abc import Iterable
from dataclasses import dataclass

import numpy as np
import soxr
from numpy.typing import ArrayLike

from orvel.arrays import Floats, to_floats
from orvel.library import Library
from orvel.recordings import check_rate
from orvel.shipped import choose

_LAG = 2  # frames by which the library's scores lag behind their audio
_STEP = 10  # ms of a score


@dataclass(frozen=True)
class Segment:
    """A stretch with speech: start and end in seconds, mean score over it without its padding."""

    start: float
    end: float
    score: float


@dataclass(frozen=True)
class SegmentOptions:
    """How segments are found, as `VoiceDetector.segments` tells; ValueError for options that do not fit."""

    threshold: float = 0.55
    negative_threshold: float | None = None
    min_speech: float = 0.15
    min_silence: float = 0.2
    padding: float = 0.02

    def __post_init__(self) -> None:
        for name in ("threshold", "min_speech", "min_silence", "padding"):
            if not 0.0 <= getattr(self, name) < np.inf:
                raise ValueError(f"{name}: {getattr(self, name)} is not a finite number from 0 up")


class VoiceDetector:
    """Scores voice activity of recordings; channels are averaged.

    `rate`: Hz, from 8000 to 192000. `model`, `library`, errors and threads: as `Cleaner`.

    >>> import numpy as np, orvel
    >>> detector = orvel.VoiceDetector(16000)
    >>> quiet = 0.001 * np.random.default_rng(1).standard_normal(16000)
    >>> detector.scores(quiet).shape, detector.segments(quiet)
    ((100,), [])
    """

    def __init__(self, rate: int, *, model: str | None = None, library: Library | None = None) -> None:
        check_rate(rate)
        self.rate = rate
        library, model = choose(library, rate, model, "detector")
        detectors = [one for one in library.models() if one.kind == "detector" and model in (None, one.name)]
        # At the model's own rate: the conversion here shifts nothing in time, a session's own would.
        own = detectors[0].rate if detectors else rate
        self._session = library.detector(own, model)
        self._busy = threading.Lock()

    def scores(self, audio: ArrayLike, *, axis: int = -1) -> Floats:
        """Scores of a recording; each call is a stream of its own.

        `audio`: as `clean`. Returns float32, a score for each 10 ms begun: number k tells about the audio
        from k * 10 ms on. For a calibrated model scores lie in [0.00001, 0.99999], 0.5 is its best
        operating point. Raises ValueError as `clean`.
        """
        return self.score_blocks([(to_floats(audio, axis)[1], True)])

    def score_blocks(self, blocks: Iterable[tuple[Floats, bool]]) -> Floats:
        """Scores of a recording that comes in blocks (channels, samples) of any length, each with whether it is
        the last. Memory does not grow with the length but for the scores."""
        if not self._busy.acquire(blocking=False):
            raise RuntimeError("the VoiceDetector is in use by another thread")
        try:
            self._session.reset()
            return self._score(blocks)
        finally:
            self._busy.release()

    def _score(self, blocks: Iterable[tuple[Floats, bool]]) -> Floats:
        frame, samples, parts = self._session.frame, 0, []
        waiting = np.zeros(0, np.float32)
        resampler = None
        if self._session.rate != self.rate:
            resampler = soxr.ResampleStream(self.rate, self._session.rate, 1, "float32")
        for block, last in blocks:
            samples += block.shape[1]
            mono = block.mean(axis=0)
            if resampler is not None:
                mono = resampler.resample_chunk(mono, last=last)
            if last:  # the last scores come late
                mono = np.pad(mono, (0, (_LAG + 2) * frame))
            waiting = np.concatenate([waiting, mono])
            whole = len(waiting) // frame * frame
            parts.append(self._session.process(waiting[:whole]))
            waiting = waiting[whole:]
        return np.concatenate(parts)[_LAG:][: -(-samples * 100 // self.rate)]

    def segments(
        self,
        audio: ArrayLike,
        *,
        axis: int = -1,
        threshold: float = SegmentOptions.threshold,
        negative_threshold: float | None = None,
        min_speech: float = SegmentOptions.min_speech,
        min_silence: float = SegmentOptions.min_silence,
        padding: float = SegmentOptions.padding,
    ) -> list[Segment]:
        """Stretches with speech of a recording, in order, as `orvel vad` finds them.

        `audio`: as `clean`. Speech begins at a score of `threshold` and ends below `negative_threshold` (by
        default 0.05 less, at least 0.01). In seconds: speech shorter than `min_speech` is dropped, pauses
        shorter than `min_silence` are bridged, `padding` is added at both ends; two neighbours share a short
        gap. Raises ValueError as `clean`, and for options that are negative or not finite.
        """
        options = SegmentOptions(threshold, negative_threshold, min_speech, min_silence, padding)
        _, floats = to_floats(audio, axis)
        return segments_of(self.score_blocks([(floats, True)]), floats.shape[1] / self.rate, options)


def segments_of(scores: Iterable[float], seconds: float, options: SegmentOptions) -> list[Segment]:
    """Segments from the scores of a recording that lasts so long."""
    high, low = options.threshold, options.negative_threshold
    low = max(high - 0.05, 0.01) if low is None else low
    length = round(1000.0 * seconds)
    stretches = _stretches(scores, high, low, round(1000.0 * options.min_silence))
    clipped = [(begin, max(begin, min(end, length)), score) for begin, end, score in stretches]
    kept = [one for one in clipped if one[1] - one[0] >= round(1000.0 * options.min_speech)]
    return list(_padded(kept, round(1000.0 * options.padding), length))


def _stretches(scores: Iterable[float], high: float, low: float, min_silence: int) -> Iterable[tuple[int, int, float]]:
    """Begin and end in ms and the mean score of stretches above the thresholds, without short pauses."""
    begin = end = 0
    inside, total = False, 0.0
    sure: tuple[int, float] | None = None  # end and sum, should the pause that has begun be long enough
    for index, score in enumerate(scores):
        now = _STEP * index
        if not inside:
            if score >= high:
                inside, begin, total, sure = True, now, float(score), None
            end = now + _STEP
            continue
        if score >= high:
            sure = None
        elif score < low and sure is None:
            sure = (now, total)
        total, end = total + float(score), now + _STEP
        if sure and end - sure[0] >= min_silence:
            yield begin, sure[0], sure[1] * _STEP / max(sure[0] - begin, _STEP)
            inside = False
    if inside:
        end, total = sure or (end, total)
        yield begin, end, total * _STEP / max(end - begin, _STEP)


def _padded(stretches: list[tuple[int, int, float]], padding: int, length: int) -> Iterable[Segment]:
    for index, (begin, end, score) in enumerate(stretches):
        before = begin if index == 0 else (begin - stretches[index - 1][1]) // 2
        after = length - end if index + 1 == len(stretches) else (stretches[index + 1][0] - end) // 2
        yield Segment((begin - min(padding, before)) / 1000.0, (end + max(0, min(padding, after))) / 1000.0, score)
