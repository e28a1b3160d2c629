"""Arrays and streams of any block length, number of channels and usual sample type."""

from __future__ import annotations

import threading
from functools import cache

import numpy as np

from orvel.library import Library, Model, OrvelError

RATES = (8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200, 96000)
FRAME_MS = 10
DEFAULTS = ("orvel-8k", "orvel-16k", "orvel-32k")

_SCALES = {"int16": 2.0**15, "int32": 2.0**31, "float32": 1.0, "float64": 1.0}
# Not quite digital silence, which a cleaner may let pass as it is together with what it still holds.
_ALMOST_SILENT = np.float32(1e-9)
_loading = threading.Lock()


@cache
def _shared() -> Library:
    return Library()


def _ready(library: Library, name: str) -> Model:
    """A model of the library, loaded on first use."""
    with _loading:
        loaded = {model.name: model for model in library.models()}
        return loaded.get(name) or library.load(name)


def _choose(library: Library | None, rate: int, model: str | None, kind: str) -> tuple[Library, str | None]:
    """The library to use and the model's name; loads the model where the library is the shared one."""
    if rate not in RATES:
        raise ValueError(f"rate: {rate!r} is not one of {', '.join(map(str, RATES))}")
    if library is not None:
        return library, model
    library = _shared()
    if model is None and kind == "detector":
        model = "orvel-vad"
    if model is None:
        shipped = [_ready(library, name) for name in DEFAULTS if (library.folder / f"{name}.ctl").exists()]
        fitting = [one for one in shipped if one.rate <= rate]
        if not fitting:
            raise OrvelError(f"no model for {rate} Hz in {library.folder}")
        model = max(fitting, key=lambda one: one.rate).name
    return library, _ready(library, model).name


def models() -> list[Model]:
    """The models in the model folder (`model_folder()`), all of them loaded; OrvelError names one that is damaged."""
    library = _shared()
    return [_ready(library, path.stem) for path in sorted(library.folder.glob("*.ctl"))]


def _to_floats(audio: np.ndarray, axis: int) -> np.ndarray:
    """(channels, samples) float32 of audio of any type and shape that is taken; ValueError for others."""
    audio = np.asarray(audio)
    if audio.dtype.name not in _SCALES:
        raise ValueError(f"audio: type {audio.dtype} is not one of {', '.join(_SCALES)}")
    if audio.ndim not in (1, 2):
        raise ValueError(f"audio: shape {audio.shape} has neither one nor two dimensions")
    if not -audio.ndim <= axis < audio.ndim:
        raise ValueError(f"axis: {axis} is none of an array of shape {audio.shape}")
    floats = np.atleast_2d(np.moveaxis(audio, axis, -1)) / _SCALES[audio.dtype.name]
    if not np.isfinite(floats).all():
        raise ValueError("audio: holds NaN or infinite samples")
    return np.ascontiguousarray(floats, np.float32)


def _from_floats(floats: np.ndarray, like: np.ndarray, axis: int) -> np.ndarray:
    """(channels, samples) in the type and layout of `like`; integers are rounded."""
    scale = _SCALES[like.dtype.name]
    out = floats.astype(np.float64) * scale if scale > 1.0 else floats
    if scale > 1.0:
        out = np.clip(np.rint(out), -scale, scale - 1.0)
    out = out.astype(like.dtype)
    return out[0] if like.ndim == 1 else np.moveaxis(out, -1, axis)


class Cleaner:
    """Removes noise from a stream that comes in blocks of any length; every channel on its own.

    `rate`: Hz, one of `RATES`. `channels`: at least 1. `model`: by default the shipped model whose rate is
    nearest to `rate` without being above it. `attenuation_limit`: dB that no frequency is lowered by more
    than; by default there is no limit. `library`: models to choose from, by default the shipped ones.

    Raises ValueError that names the argument, or OrvelError with the library's reason. One thread at a
    time may use it; a second one is refused with a RuntimeError.
    """

    def __init__(
        self,
        rate: int,
        channels: int = 1,
        *,
        model: str | None = None,
        attenuation_limit: float | None = None,
        library: Library | None = None,
    ):
        if channels < 1:
            raise ValueError(f"channels: {channels} is below 1")
        if attenuation_limit is not None and not 0.0 <= attenuation_limit < np.inf:
            raise ValueError(f"attenuation_limit: {attenuation_limit} is not a finite number of dB from 0 up")
        library, model = _choose(library, rate, model, "cleaner")
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

    def _run(self, floats: np.ndarray) -> np.ndarray:
        if not self._busy.acquire(blocking=False):
            raise RuntimeError("the Cleaner is in use by another thread")
        try:
            waiting = np.concatenate([self._waiting, floats], axis=1)
            whole = waiting.shape[1] // self._frame * self._frame
            cleaned = [session.process(one[:whole]) for session, one in zip(self._sessions, waiting)]
            ready = np.concatenate([self._ready, np.stack(cleaned)], axis=1)
            self._waiting, self._ready = waiting[:, whole:], ready[:, floats.shape[1] :]
            return ready[:, : floats.shape[1]]
        finally:
            self._busy.release()

    def process(self, audio: np.ndarray, *, axis: int = -1) -> np.ndarray:
        """Cleans a block.

        `audio`: int16, int32, float32 or float64 (floats: full scale +/-1, louder is clipped), shape (n,)
        for one channel, else (channels, n), or (n, channels) with axis=0; n may be 0 and change from call
        to call. Returns the same type and shape, late by `latency`. Raises ValueError for another shape or
        type and for NaN or infinite samples; the stream is unchanged then.
        """
        audio = np.asarray(audio)
        floats = _to_floats(audio, axis)
        if len(floats) != self.channels:
            raise ValueError(
                f"audio: shape {audio.shape} with axis={axis} has {len(floats)} channels, not {self.channels}"
            )
        return _from_floats(self._run(floats), audio, axis)

    def flush(self) -> np.ndarray:
        """Ends the stream: the `latency` samples still on their way, (channels, latency) float32, and a reset."""
        out = self._run(np.full((self.channels, self.latency), _ALMOST_SILENT))
        self.reset()
        return out

    def reset(self) -> None:
        """Begins a new stream; the attenuation limit stays."""
        for session in self._sessions:
            session.reset()
        self._begin()


def clean(
    audio: np.ndarray,
    rate: int,
    *,
    model: str | None = None,
    attenuation_limit: float | None = None,
    axis: int = -1,
    library: Library | None = None,
) -> np.ndarray:
    """Removes noise from a recording.

    `audio`: int16, int32, float32 or float64 (floats: full scale +/-1, louder is clipped), shape (n,),
    (channels, n), or (n, channels) with axis=0. `rate`: Hz, one of `RATES`. The other arguments are those
    of `Cleaner`. Returns the same type and shape with the latency taken out (where `rate` is not the
    model's own, to a sample). Raises ValueError that names the argument, also for empty audio and for NaN
    or infinite samples; OrvelError with the library's reason.
    """
    audio = np.asarray(audio)
    floats = _to_floats(audio, axis)
    if not floats.size:
        raise ValueError(f"audio: shape {audio.shape} is empty")
    cleaner = Cleaner(rate, len(floats), model=model, attenuation_limit=attenuation_limit, library=library)
    out = np.concatenate([cleaner._run(floats), cleaner.flush()], axis=1)
    return _from_floats(out[:, cleaner.latency :], audio, axis)


class VoiceDetector:
    """Scores voice activity of recordings; channels are averaged. Arguments, errors and threads as `Cleaner`."""

    LAG = 2  # frames by which the library's scores lag behind their audio

    def __init__(self, rate: int, *, model: str | None = None, library: Library | None = None):
        library, model = _choose(library, rate, model, "detector")
        self.rate = rate
        self._session = library.detector(rate, model)

    def scores(self, audio: np.ndarray, *, axis: int = -1) -> np.ndarray:
        """Scores of a recording; each call is a stream of its own.

        `audio`: as `clean`. Returns float32, a score for each 10 ms begun: number k tells about the audio
        from k * 10 ms on. For a calibrated model scores lie in [0.00001, 0.99999], 0.5 is its best
        operating point. Raises ValueError as `clean`.
        """
        audio = np.asarray(audio)
        floats = _to_floats(audio, axis)
        if not floats.size:
            raise ValueError(f"audio: shape {audio.shape} is empty")
        mono, frame = floats.mean(axis=0), self._session.frame
        count = -(-len(mono) // frame)
        padded = np.pad(mono, (0, (count + self.LAG) * frame - len(mono)))
        self._session.reset()
        return self._session.process(padded)[self.LAG :]
