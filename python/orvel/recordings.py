"""Whole recordings at any rate: as long as they were, with the latency taken out."""

from __future__ import annotations

import os
import secrets
from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import numpy as np
import soundfile
import soxr
from numpy.typing import ArrayLike

from orvel.arrays import Audio, Floats, from_floats, to_floats
from orvel.library import Library
from orvel.shipped import RATES
from orvel.streams import Cleaner, run_together

LOWEST_RATE, HIGHEST_RATE = 8000, 192000
BLOCK_SECONDS = 10
_FORMATS = {".oga": "OGG", ".opus": "OGG", ".aif": "AIFF"}
# Resampled streams may come out some samples short at their end.
_SPARE = 256


def check_rate(rate: int) -> None:
    """Raises ValueError unless a recording may have this rate."""
    if not isinstance(rate, int | np.integer) or not LOWEST_RATE <= rate <= HIGHEST_RATE:
        raise ValueError(f"rate: {rate!r} is not a whole number of Hz from {LOWEST_RATE} to {HIGHEST_RATE}")


def stream_rate(rate: int) -> int:
    """The rate at which a recording is cleaned: its own where sessions know it, else the next higher one, 48 kHz
    at most; no model keeps more than the band up to 16 kHz."""
    return rate if rate in RATES else min((known for known in RATES if known >= rate), default=48000)


class Recording:
    """A recording that comes in blocks. Arguments as `clean`; use `clean_blocks`."""

    def __init__(self, rate: int, channels: int, **options: Any) -> None:
        check_rate(rate)
        inner = stream_rate(int(rate))
        self.cleaner = Cleaner(inner, channels, **options)
        self._skip = self.cleaner.latency
        self._due = 0  # samples taken and not given yet
        self._into = self._back = None
        if inner != rate:
            self._into = soxr.ResampleStream(rate, inner, channels, "float32")
            self._back = soxr.ResampleStream(inner, rate, channels, "float32")

    def _enter(self, block: Floats, last: bool) -> Floats:
        self._due += block.shape[1]
        if self._into is not None:
            block = _resampled(self._into, block, last)
        if not last:
            return block
        spare = 0 if self._into is None else _SPARE
        return np.concatenate([block, self.cleaner.silence(self.cleaner.latency + spare)], axis=1)

    def _leave(self, block: Floats, last: bool) -> Floats:
        skipped = min(self._skip, block.shape[1])
        self._skip -= skipped
        block = block[:, skipped:]
        if self._back is not None:
            block = _resampled(self._back, block, last)
        block = block[:, : self._due]
        self._due -= block.shape[1]
        return block


def _resampled(stream: soxr.ResampleStream, block: Floats, last: bool) -> Floats:
    out: Floats = stream.resample_chunk(np.ascontiguousarray(block.T), last=last)
    return out.reshape(-1, len(block)).T


def clean_blocks(recordings: Sequence[Recording], blocks: Sequence[Floats], last: Sequence[bool]) -> list[Floats]:
    """Cleans the next block (channels, samples) of each recording, all in common batches.

    `last`: whether the recording ends with its block; everything has come out then. Blocks before come out
    late, so that outputs differ in length from their inputs.
    """
    entered = [one._enter(block, end) for one, block, end in zip(recordings, blocks, last, strict=True)]
    cleaned = run_together([one.cleaner for one in recordings], entered)
    return [one._leave(block, end) for one, block, end in zip(recordings, cleaned, last, strict=True)]


def clean(
    audio: ArrayLike,
    rate: int,
    *,
    model: str | None = None,
    attenuation_limit: float | None = None,
    axis: int = -1,
    progress: bool = False,
    library: Library | None = None,
) -> Audio:
    """Removes noise from a recording.

    `audio`: int16, int32, float32 or float64 (floats: full scale +/-1, louder is clipped), shape (n,),
    (channels, n), or (n, channels) with axis=0. `rate`: Hz, from 8000 to 192000; a rate that is not one of
    `RATES` is converted there and back. `progress`: shows a bar (needs tqdm). The other arguments are those
    of `Cleaner`.

    Returns the same type, shape and length with the latency taken out (where `rate` is not the model's own,
    to a sample). A model keeps the band below half of its own rate. Raises ValueError that names the
    argument, also for empty audio and for NaN or infinite samples; OrvelError with the library's reason.

    >>> import numpy as np, orvel
    >>> noisy = (1000 * np.random.default_rng(1).standard_normal((2, 22050))).astype(np.int16)
    >>> cleaned = orvel.clean(noisy, 22050)
    >>> cleaned.shape, cleaned.dtype
    ((2, 22050), dtype('int16'))
    >>> bool(np.std(cleaned) < 0.5 * np.std(noisy))
    True
    """
    audio, floats = to_floats(audio, axis)
    options = {"model": model, "attenuation_limit": attenuation_limit, "library": library}
    recording = Recording(rate, len(floats), **options)
    size, total = BLOCK_SECONDS * int(rate), floats.shape[1]
    out = np.empty_like(floats)
    done = 0
    with _bar(total / rate, progress) as advance:
        for start in range(0, total, size):
            block = floats[:, start : start + size]
            cleaned = clean_blocks([recording], [block], [start + size >= total])[0]
            out[:, done : done + cleaned.shape[1]] = cleaned
            done += cleaned.shape[1]
            advance(block.shape[1] / rate)
    return from_floats(out, audio, axis)


@contextmanager
def _bar(seconds: float, shown: bool) -> Iterator[Any]:
    if not shown:
        yield lambda some: None
        return
    from tqdm import tqdm

    with tqdm(total=round(seconds, 1), unit="s") as bar:
        yield bar.update


def clean_file(
    src: str | os.PathLike[str],
    dst: str | os.PathLike[str],
    *,
    model: str | None = None,
    attenuation_limit: float | None = None,
    progress: bool = False,
    library: Library | None = None,
) -> None:
    """Removes noise from a file of any format that soundfile reads and writes.

    `dst` keeps the rate, channels and length of `src`, and its sample format where the suffix of `dst` has it.
    It is complete or absent: it is written beside itself and renamed. Memory does not grow with the length.
    The other arguments are those of `clean`. Raises soundfile.LibsndfileError or OSError for files that
    cannot be read or written, otherwise as `clean`.

    >>> import numpy as np, orvel, soundfile, tempfile, pathlib
    >>> folder = pathlib.Path(tempfile.mkdtemp())
    >>> soundfile.write(folder / "noisy.wav", np.zeros(48000), 48000, subtype="PCM_24")
    >>> orvel.clean_file(folder / "noisy.wav", folder / "clean.flac")
    >>> soundfile.info(folder / "clean.flac").subtype
    'PCM_24'
    """
    options = {"model": model, "attenuation_limit": attenuation_limit, "library": library}
    with soundfile.SoundFile(os.fspath(src)) as source, pending(Path(dst)) as part:
        if not source.frames:
            raise ValueError(f"{os.fspath(src)}: holds no audio")
        recording = Recording(source.samplerate, source.channels, **options)
        length = source.frames / source.samplerate
        with writer_like(source, part, Path(dst).suffix) as target, _bar(length, progress) as advance:
            for block, last in blocks_of(source):
                target.write(clean_blocks([recording], [block], [last])[0].T)
                advance(block.shape[1] / source.samplerate)


def blocks_of(source: soundfile.SoundFile, seconds: int = BLOCK_SECONDS) -> Iterator[tuple[Floats, bool]]:
    """(channels, samples) blocks of an open file, each with whether it is the last; ValueError for NaN samples."""
    size = seconds * source.samplerate
    block = source.read(size, dtype="float32", always_2d=True)
    while len(block):
        following = source.read(size, dtype="float32", always_2d=True)
        if not np.isfinite(block).all():
            raise ValueError("holds NaN or infinite samples")
        yield np.ascontiguousarray(block.T), not len(following)
        block = following


def writer_like(source: soundfile.SoundFile, path: Any, suffix: str) -> soundfile.SoundFile:
    """A file or stream to write, with the source's layout, in the format of the suffix."""
    kind = _FORMATS.get(suffix.lower(), suffix[1:].upper())
    if kind not in soundfile.available_formats():
        raise ValueError(f"{suffix or 'no suffix'}: not the suffix of a format that can be written")
    subtype = source.subtype if soundfile.check_format(kind, source.subtype) else soundfile.default_subtype(kind)
    return soundfile.SoundFile(path, "w", source.samplerate, source.channels, subtype, format=kind)


@contextmanager
def pending(path: Path) -> Iterator[Path]:
    """A name beside `path` to write to; renamed to `path` when all went well, removed otherwise."""
    part = path.with_name(f".{path.name}.{secrets.token_hex(4)}.part")
    try:
        yield part
        with part.open("rb") as written:
            os.fsync(written.fileno())
        part.replace(path)
    finally:
        part.unlink(missing_ok=True)
