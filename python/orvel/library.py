"""The library's models and sessions: whole frames in, whole frames out."""

from __future__ import annotations

import logging
import os
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Literal, Self

import numpy as np
from numpy.typing import ArrayLike, NDArray

from orvel import _native
from orvel._native import OrvelError as OrvelError
from orvel.files import library_file, model_folder

Floats = NDArray[np.float32]

_log = logging.getLogger("orvel")
_LEVELS = (logging.INFO, logging.WARNING, logging.DEBUG)  # errors are raised, too
_KINDS: dict[int, Literal["cleaner", "detector"]] = {1: "cleaner", 2: "detector"}


@dataclass(frozen=True)
class Model:
    """A model's properties, as the library tells them.

    `rate`: the model's own rate, Hz. `frame_length`, `hop`, `latency`: samples at that rate; the latency
    is that of sessions with frames of 10 ms. `weights`: numbers that the network multiplies or adds.
    """

    name: str
    kind: Literal["cleaner", "detector"]
    version: str
    rate: int
    frame_length: int
    hop: int
    latency: int
    weights: int


@dataclass(frozen=True)
class Statistics:
    """What a session has counted: frames processed, those of them whose arithmetic failed, and times that the
    model's state became infinite or NaN and was cleared."""

    frames: int
    failed_frames: int
    state_resets: int


class Library:
    """Models, by their names, and sessions that use them. Any number in a process, each on its own.

    `models`: folder of control and weight files, `model_folder()` by default. `file`: the shared library,
    by default ORVEL_LIBRARY, the checkout's release build or the system's. Messages of the library go to
    the logger "orvel". May be used from several threads at once.

    Raises OSError when the shared library cannot be loaded.
    """

    def __init__(
        self, models: str | os.PathLike[str] | None = None, *, file: str | os.PathLike[str] | None = None
    ) -> None:
        self.folder = Path(models) if models is not None else model_folder()
        name = os.fspath(file) if file is not None else library_file()
        try:
            self._context = _native.Context(name, os.fsencode(self.folder.resolve()), _forward)
        except OrvelError:
            raise
        except RuntimeError as error:
            message = f"cannot load the ORVEL library: {error}; build it with `make build`, or set ORVEL_LIBRARY"
            raise OSError(message) from None
        self._names: list[str] = []

    def load(
        self, control: str | os.PathLike[str], name: str | None = None, *, keys: Mapping[str, object] | None = None
    ) -> Model:
        """Loads a model.

        `control`: a model's name in the folder, or the path of a control file (*.ctl), relative to the
        folder or absolute. `name`: for later calls, by default the file's name without folder and
        extension; each can be used once. `keys`: tuning keys that take the place of the control file's
        (`orvel keys` lists them); True and False stand for TRUE and FALSE.

        Raises OrvelError when a file is missing or damaged, or the name is taken.
        """
        text = os.fspath(control)
        path = text if text.endswith(".ctl") else f"{text}.ctl"
        name = name or Path(path).stem
        if keys:
            return self.load_bytes(*_with_keys(self.folder, path, keys, name))
        self._context.load(os.fsencode(path), name)
        self._names.append(name)
        return self.model(name)

    def load_bytes(self, weights: bytes, name: str, control: str = "") -> Model:
        """Loads a model from the content of a weight file and the text of a control file; errors as `load`.

        `control`: one tuning key and its value a line; a WEIGHT line is ignored.
        """
        self._context.load_bytes(control.encode(errors="surrogateescape"), weights, name)
        self._names.append(name)
        return self.model(name)

    def model(self, name: str) -> Model:
        """The properties of a loaded model; raises OrvelError when there is none of that name."""
        kind, version, rate, frame_length, hop, latency, weights = self._context.model(name)
        return Model(name, _KINDS[kind], version, rate, frame_length, hop, latency, weights)

    def models(self) -> list[Model]:
        """The models loaded so far, in that order."""
        return [self.model(name) for name in self._names]

    def cleaner(
        self, rate: int, model: str | None = None, *, output_rate: int | None = None, frame_ms: int = 10
    ) -> CleaningSession:
        """Opens a noise-cleaning session.

        `rate`, `output_rate`: Hz, of 8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200 and 96000.
        `model`: a loaded model, by default the one whose rate is nearest to `rate` without being above
        it. `frame_ms`: 10, 20, 30 or 40. Raises OrvelError when the library refuses any of them.
        """
        return CleaningSession(self, rate, output_rate or rate, frame_ms, model)

    def detector(self, rate: int, model: str | None = None, *, frame_ms: int = 10) -> DetectionSession:
        """Opens a voice-activity session; arguments and errors as `cleaner`."""
        return DetectionSession(self, rate, frame_ms, model)

    @property
    def version(self) -> str:
        """The version of the shared library, as "1.0.0"."""
        return self._context.version()

    def close(self) -> None:
        """Gives back the models and ends all sessions; nothing may use them meanwhile or afterwards."""
        self._context.close()

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *unused: object) -> None:
        self.close()


def _with_keys(folder: Path, path: str, keys: Mapping[str, object], name: str) -> tuple[bytes, str, str]:
    """Arguments of `load_bytes` for a control file whose tuning keys are replaced."""
    control = folder / path
    try:
        lines = [line.split(None, 1) for line in control.read_text(errors="surrogateescape").splitlines()]
        weights = next((line[1].strip() for line in lines if len(line) == 2 and line[0] == "WEIGHT"), None)
        if weights is None:
            raise OrvelError(f"{control}: no WEIGHT line names a weight file")
        beside = control.parent / weights
        content = (beside if beside.exists() else folder / weights).read_bytes()
    except OSError as error:
        raise OrvelError(str(error)) from None
    kept = [" ".join(line) for line in lines if line and line[0] not in keys]
    new = [f"{key} {str(value).upper() if isinstance(value, bool) else value}" for key, value in keys.items()]
    return content, name, "\n".join([*kept, *new])


def _forward(severity: int, text: bytes) -> None:
    _log.log(_LEVELS[min(severity, 2)], "%s", text.decode(errors="replace"))


class _Session:
    """An open session. One thread at a time may use it; a second one is refused with a RuntimeError."""

    _native: _native.Session

    def __init__(self, library: Library, rate: int, frame_ms: int) -> None:
        self.library, self.rate, self.frame_ms = library, rate, frame_ms

    @property
    def frame(self) -> int:
        """Samples of one frame of input."""
        return self._native.frame

    def statistics(self) -> Statistics:
        """What the session has counted since it was created."""
        return Statistics(*self._native.statistics())

    def close(self) -> None:
        """Closes the session, once; a later call of another function raises OrvelError."""
        self._native.close()

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *unused: object) -> None:
        self.close()

    def _frames(self, audio: ArrayLike) -> tuple[Floats, int]:
        floats = np.ascontiguousarray(audio, np.float32)
        if floats.ndim != 1 or len(floats) % self.frame:
            raise ValueError(f"audio: shape {floats.shape} is no whole number of frames of {self.frame} samples")
        return floats, len(floats) // self.frame


class CleaningSession(_Session):
    """Removes noise from one channel, in whole frames; from `Library.cleaner`."""

    _native: _native.Cleaner

    def __init__(self, library: Library, rate: int, output_rate: int, frame_ms: int, model: str | None) -> None:
        super().__init__(library, rate, frame_ms)
        self._native = _native.Cleaner(library._context, rate, output_rate, frame_ms, model or "")
        self.output_rate = output_rate
        self.latency = self._native.latency
        """Samples at the output rate by which the output lags behind the input."""

    def process(self, audio: ArrayLike) -> Floats:
        """Cleans whole frames.

        `audio`: (frames * `frame`,) floats, full scale +/-1; NaN and infinite samples count as 0.
        Returns float32 in [-1, 1), as many frames at the output rate, late by `latency`. The GIL is
        released meanwhile. Raises ValueError for another shape.
        """
        return clean_together([self], [audio])[0]

    def limit(self, decibels: float) -> None:
        """From the next frame on no frequency is lowered by more than this; OrvelError unless finite and >= 0."""
        self._native.limit(decibels)

    def reset(self) -> None:
        """Forgets the audio so far; the attenuation limit stays."""
        self._native.reset()


def clean_together(sessions: Sequence[CleaningSession], audio: Sequence[ArrayLike]) -> list[Floats]:
    """Cleans whole frames of several sessions, each its own audio of any length, frame by frame in one batch.

    Sessions of one model read its weights once for all. The result is that of `CleaningSession.process` but
    for the rounding of floats. `audio` and errors as there; no session may be given twice.
    """
    inputs = [session._frames(one) for session, one in zip(sessions, audio, strict=True)]
    outputs = [
        np.empty(frames * session._native.output_frame, np.float32)
        for session, (_, frames) in zip(sessions, inputs, strict=True)
    ]
    _native.clean([session._native for session in sessions], [floats for floats, _ in inputs], outputs)
    return outputs


class DetectionSession(_Session):
    """Scores voice activity in one channel, in whole frames; from `Library.detector`."""

    _native: _native.Detector

    def __init__(self, library: Library, rate: int, frame_ms: int, model: str | None) -> None:
        super().__init__(library, rate, frame_ms)
        self._native = _native.Detector(library._context, rate, frame_ms, model or "")

    def process(self, audio: ArrayLike) -> Floats:
        """Scores whole frames.

        `audio`: (frames * `frame`,) floats, full scale +/-1; NaN and infinite samples count as 0.
        Returns (frames,) float32: for a calibrated model in [0.00001, 0.99999] with 0.5 at its best
        operating point, otherwise the raw output of the network. Raises ValueError for another shape.
        """
        floats, frames = self._frames(audio)
        scores = np.empty(frames, np.float32)
        self._native.process(floats, scores)
        return scores

    def reset(self) -> None:
        """Forgets the audio so far."""
        self._native.reset()
