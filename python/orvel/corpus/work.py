"""What a worker does with recordings: cleans or scores several at once, each apart from the others' faults."""

from __future__ import annotations

import json
from collections import deque
from collections.abc import Callable, Iterable, Iterator
from contextlib import ExitStack
from dataclasses import dataclass
from pathlib import Path
from typing import Any, BinaryIO

import numpy as np
import soundfile

from orvel.arrays import Floats
from orvel.recordings import Recording, blocks_of, clean_blocks, pending, writer_like
from orvel.voice import SegmentOptions, VoiceDetector, segments_of

Result = dict[str, Any]
BLOCK_SECONDS = 1


@dataclass(frozen=True)
class Task:
    """What to do with each recording. `batch`: recordings cleaned at once in a worker."""

    name: str  # clean or vad
    batch: int = 64
    model: str | None = None
    attenuation_limit: float | None = None
    threshold: float = SegmentOptions.threshold


@dataclass
class Audio:
    """A recording to work on. `sink` receives the result: a file, made complete or not at all, or a stream."""

    name: str
    source: str | BinaryIO
    suffix: str
    sink: Path | BinaryIO


class Level:
    """Root mean square of samples that come in blocks."""

    def __init__(self) -> None:
        self.energy, self.samples = 0.0, 0

    def add(self, block: Floats) -> None:
        self.energy += float(np.vdot(block, block))
        self.samples += block.size

    @property
    def mean(self) -> float:
        return self.energy / max(self.samples, 1)


class _Cleaning:
    """A recording that is being cleaned."""

    def __init__(self, audio: Audio, task: Task) -> None:
        self.audio, self.last = audio, False
        self.before, self.after = Level(), Level()
        self._stack = ExitStack()
        try:
            self.source = self._stack.enter_context(soundfile.SoundFile(audio.source))
            self.blocks = blocks_of(self.source, BLOCK_SECONDS)
            self.block = self._next()
            options = {"model": task.model, "attenuation_limit": task.attenuation_limit}
            self.recording = Recording(self.source.samplerate, self.source.channels, **options)
            sink: Any = audio.sink
            if isinstance(sink, Path):
                sink.parent.mkdir(parents=True, exist_ok=True)
                sink = self._stack.enter_context(pending(sink))
            self.target = self._stack.enter_context(writer_like(self.source, sink, audio.suffix))
        except BaseException as error:
            self.fail(error)
            raise

    def _next(self) -> Floats:
        found = next(self.blocks, None)
        if found is None:
            raise ValueError("holds no audio")
        self.block, self.last = found
        return self.block

    def take(self, cleaned: Floats) -> bool:
        """Writes what came out of the block and reads the next; tells whether this was the end."""
        self.before.add(self.block)
        self.after.add(cleaned)
        self.target.write(cleaned.T)
        if self.last:
            self._stack.close()
            return True
        self._next()
        return False

    def fail(self, error: BaseException) -> None:
        """Removes what was written."""
        self._stack.__exit__(type(error), error, error.__traceback__)

    def result(self) -> Result:
        seconds = self.source.frames / self.source.samplerate
        return {"input": self.audio.name, "seconds": seconds, "before": self.before.mean, "after": self.after.mean}


def _fault(audio: Audio, error: Exception) -> Result:
    return {"input": audio.name, "error": f"{type(error).__name__}: {error}"}


def _clean(audios: Iterable[Audio], task: Task) -> Iterator[Result]:
    waiting, active = deque(audios), list[_Cleaning]()
    while waiting or active:
        while waiting and len(active) < task.batch:
            audio = waiting.popleft()
            try:
                active.append(_Cleaning(audio, task))
            except Exception as error:
                yield _fault(audio, error)
        # Neighbours of one model share the reading of its weights.
        active.sort(key=lambda one: one.recording.cleaner.rate)
        try:
            outputs = clean_blocks([a.recording for a in active], [a.block for a in active], [a.last for a in active])
        except Exception as error:
            for one in active:
                one.fail(error)
                yield _fault(one.audio, error)
            active = []
            continue
        staying = []
        for one, output in zip(active, outputs, strict=True):
            try:
                if one.take(output):
                    yield one.result()
                else:
                    staying.append(one)
            except Exception as error:
                one.fail(error)
                yield _fault(one.audio, error)
        active = staying


def _score(audios: Iterable[Audio], task: Task) -> Iterator[Result]:
    for audio in audios:
        try:
            yield _scored(audio, task)
        except Exception as error:
            yield _fault(audio, error)


def _scored(audio: Audio, task: Task) -> Result:
    level = Level()

    def counted(blocks: Iterable[tuple[Floats, bool]]) -> Iterator[tuple[Floats, bool]]:
        for block, last in blocks:
            level.add(block)
            yield block, last

    with soundfile.SoundFile(audio.source) as source:
        if not source.frames:
            raise ValueError("holds no audio")
        scores = VoiceDetector(source.samplerate, model=task.model).score_blocks(
            counted(blocks_of(source, BLOCK_SECONDS))
        )
        seconds = source.frames / source.samplerate
    found = segments_of(scores, seconds, SegmentOptions(task.threshold))
    segments = [[s.start, s.end, round(s.score, 4)] for s in found]
    text = json.dumps({"input": audio.name, "duration": seconds, "segments": segments}) + "\n"
    if isinstance(audio.sink, Path):
        audio.sink.parent.mkdir(parents=True, exist_ok=True)
        with pending(audio.sink) as part:
            part.write_text(text)
    else:
        audio.sink.write(text.encode())
    speech = sum(end - start for start, end, _ in segments)
    return {"input": audio.name, "seconds": seconds, "before": level.mean, "speech": speech}


WORK: dict[str, Callable[[Iterable[Audio], Task], Iterator[Result]]] = {"clean": _clean, "vad": _score}


def work_on(audios: Iterable[Audio], task: Task) -> list[Result]:
    """A result for each recording: `input` with `seconds`, mean square `before` and `after` or `speech` seconds;
    or with `error`, and then there is no output."""
    return list(WORK[task.name](audios, task))
