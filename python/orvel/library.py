"""The library's models and sessions: whole frames in, whole frames out."""

from __future__ import annotations

import ctypes
import logging
import os
import threading
import weakref
from collections.abc import Callable, Mapping
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import Literal

import numpy as np

from orvel import _native

_log = logging.getLogger("orvel")
_LEVELS = (logging.INFO, logging.WARNING, logging.DEBUG)  # errors are raised, too
_KINDS: dict[int, Literal["cleaner", "detector"]] = {1: "cleaner", 2: "detector"}


class OrvelError(RuntimeError):
    """The library refused a call; the message is its reason."""


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


def model_folder() -> Path:
    """Where models are looked for: ORVEL_MODEL_DIR, else the checkout's, else the system's folder."""
    named = os.environ.get("ORVEL_MODEL_DIR")
    if named:
        return Path(named)
    folders = [_native.CHECKOUT / "models", Path("/usr/local/share/orvel/models"), Path("/usr/share/orvel/models")]
    return next((folder for folder in folders if folder.is_dir()), folders[0])


class Library:
    """Models, by their names, and sessions that use them. Any number in a process, each on its own.

    `models`: folder of control and weight files, `model_folder()` by default. `file`: the shared library,
    by default ORVEL_LIBRARY, the checkout's release build or the system's. Messages of the library go to
    the logger "orvel". May be used from several threads at once.

    Raises OSError when the shared library cannot be loaded.
    """

    def __init__(self, models: str | os.PathLike[str] | None = None, *, file: str | os.PathLike[str] | None = None):
        self.native = _native.load(file)
        self.folder = Path(models) if models is not None else model_folder()
        self._context = _Context(self.native, self.folder.resolve())
        self._names: list[str] = []
        self._finalizer = weakref.finalize(self, self._context.destroy)

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
        self._check(self.native.Orv_Context_SetModel(self._context.handle, os.fsencode(path), name.encode()))
        self._names.append(name)
        return self.model(name)

    def load_bytes(self, weights: bytes, name: str, control: str = "") -> Model:
        """Loads a model from the content of a weight file and the text of a control file; errors as `load`.

        `control`: one tuning key and its value a line; a WEIGHT line is ignored.
        """
        text = control.encode(errors="surrogateescape")
        self._check(
            self.native.Orv_Context_SetModelFromMemory(
                self._context.handle, text, len(text), weights, len(weights), name.encode()
            )
        )
        self._names.append(name)
        return self.model(name)

    def model(self, name: str) -> Model:
        """The properties of a loaded model; raises OrvelError when there is none of that name."""
        info = _native.ModelInfo(size=ctypes.sizeof(_native.ModelInfo))
        self._check(self.native.Orv_Context_GetModelInfo(self._context.handle, name.encode(), ctypes.byref(info)))
        own = (info.version.decode(), info.sample_rate, info.frame_length, info.hop, info.latency, info.weights)
        return Model(name, _KINDS[info.kind], *own)

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
        return self.native.Orv_SDK_GetVersion().decode()

    def close(self) -> None:
        """Gives back the models and ends all sessions; nothing may use them meanwhile or afterwards."""
        self._finalizer()

    def __enter__(self) -> Library:
        return self

    def __exit__(self, *unused: object) -> None:
        self.close()

    def reason(self) -> str:
        """Why this thread's last call failed."""
        return (self.native.Orv_Context_LastError(self._context.handle) or b"").decode(errors="replace")

    def _check(self, status: int) -> None:
        if status:
            raise OrvelError(self.reason() or f"the library gave status {status}")


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


class _Context:
    """A context with its message handler; `handle` is None once it is destroyed."""

    def __init__(self, native: ctypes.CDLL, folder: Path):
        self.native, self.handle = native, native.Orv_Context_Create(os.fsencode(folder))
        if not self.handle:
            raise MemoryError("no memory for a context")
        self._handler = _native.MESSAGE_HANDLER(_forward)  # kept for as long as the context may call it
        native.Orv_Context_SetMessageHandler(self.handle, self._handler, None)

    def destroy(self) -> None:
        handle, self.handle = self.handle, None
        self.native.Orv_Context_Destroy(handle)

    def close(self, function: Callable, session: int) -> None:
        """Closes a session with its function, unless it ended with the context."""
        if self.handle:
            function(session)


def _forward(_user: object, severity: int, text: bytes) -> None:
    _log.log(_LEVELS[min(severity, 2)], "%s", text.decode(errors="replace"))


class _Session:
    """An open session. One thread at a time may use it; a second one is refused with a RuntimeError."""

    def __init__(self, library: Library, handle: int | None, close: Callable, rate: int, frame_ms: int):
        if not handle:
            raise OrvelError(library.reason() or "the library opened no session")
        self.library, self.rate, self.frame_ms = library, rate, frame_ms
        self._handle = handle
        self._busy = threading.Lock()
        self._finalizer = weakref.finalize(self, library._context.close, close, handle)

    @property
    def frame(self) -> int:
        """Samples of one frame of input."""
        return self.rate * self.frame_ms // 1000

    def _frames(self, audio: np.ndarray) -> tuple[np.ndarray, int]:
        audio = np.ascontiguousarray(audio, np.float32)
        if audio.ndim != 1 or len(audio) % self.frame:
            raise ValueError(f"audio: shape {audio.shape} is no whole number of frames of {self.frame} samples")
        return audio, len(audio) // self.frame

    def _check(self, status: int, what: str) -> None:
        if status:
            raise OrvelError(f"{what}: {self.library.reason() or f'the library gave status {status}'}")

    @contextmanager
    def _open(self):
        """The session is open and nobody else uses it."""
        if not self._busy.acquire(blocking=False):
            raise RuntimeError("the session is in use by another thread")
        try:
            if not self._finalizer.alive or not self.library._context.handle:
                raise OrvelError("the session is closed")
            yield
        finally:
            self._busy.release()

    def statistics(self) -> Statistics:
        """What the session has counted since it was created."""
        counts = _native.SessionStatistics(size=ctypes.sizeof(_native.SessionStatistics))
        with self._open():
            self._check(self.library.native.Orv_Session_GetStatistics(self._handle, counts), "statistics")
        return Statistics(counts.frames, counts.failed_frames, counts.state_resets)

    def close(self) -> None:
        """Closes the session, once; a later call of another function raises OrvelError."""
        if self._finalizer.alive:
            with self._open():
                self._finalizer()

    def __enter__(self):
        return self

    def __exit__(self, *unused: object) -> None:
        self.close()


class CleaningSession(_Session):
    """Removes noise from one channel, in whole frames; from `Library.cleaner`."""

    def __init__(self, library: Library, rate: int, output_rate: int, frame_ms: int, model: str | None):
        native, name = library.native, model.encode() if model else None
        handle = native.Orv_Context_CreateCleaner(library._context.handle, rate, output_rate, frame_ms, name)
        super().__init__(library, handle, native.Orv_NC_CloseSession, rate, frame_ms)
        self.output_rate = output_rate
        samples = ctypes.c_uint32()
        self._check(native.Orv_NC_GetLatency(handle, ctypes.byref(samples)), "latency")
        self.latency = samples.value
        """Samples at the output rate by which the output lags behind the input."""

    def process(self, audio: np.ndarray) -> np.ndarray:
        """Cleans whole frames.

        `audio`: (frames * `frame`,) floats, full scale +/-1; NaN and infinite samples count as 0.
        Returns float32 in [-1, 1), as many frames at the output rate, late by `latency`. The GIL is
        released while a frame is cleaned. Raises ValueError for another shape.
        """
        audio, frames = self._frames(audio)
        size, out_size = self.frame, self.output_rate * self.frame_ms // 1000
        out = np.empty(frames * out_size, np.float32)
        source, target = audio.ctypes.data, out.ctypes.data
        clean, handle = self.library.native.Orv_NC_CleanAmbientNoiseFloat, self._handle
        with self._open():
            for index in range(frames):
                status = clean(handle, source + index * size * 4, size, target + index * out_size * 4, out_size)
                if status:
                    self._check(status, f"frame {index}")
        return out

    def limit(self, decibels: float) -> None:
        """From the next frame on no frequency is lowered by more than this; OrvelError unless finite and >= 0."""
        with self._open():
            self._check(self.library.native.Orv_NC_SetAttenuationLimit(self._handle, decibels), f"limit {decibels}")

    def reset(self) -> None:
        """Forgets the audio so far; the attenuation limit stays."""
        with self._open():
            self._check(self.library.native.Orv_NC_ResetSession(self._handle), "reset")


class DetectionSession(_Session):
    """Scores voice activity in one channel, in whole frames; from `Library.detector`."""

    def __init__(self, library: Library, rate: int, frame_ms: int, model: str | None):
        native, name = library.native, model.encode() if model else None
        handle = native.Orv_Context_CreateDetector(library._context.handle, rate, frame_ms, name)
        super().__init__(library, handle, native.Orv_VAD_CloseSession, rate, frame_ms)

    def process(self, audio: np.ndarray) -> np.ndarray:
        """Scores whole frames.

        `audio`: (frames * `frame`,) floats, full scale +/-1; NaN and infinite samples count as 0.
        Returns (frames,) float32: for a calibrated model in [0.00001, 0.99999] with 0.5 at its best
        operating point, otherwise the raw output of the network. Raises ValueError for another shape.
        """
        audio, frames = self._frames(audio)
        size, scores = self.frame, np.empty(frames, np.float32)
        source, target = audio.ctypes.data, scores.ctypes.data
        score, handle = self.library.native.Orv_VAD_ProcessFloat, self._handle
        with self._open():
            for index in range(frames):
                status = score(handle, source + index * size * 4, size, target + index * 4)
                if status:
                    self._check(status, f"frame {index}")
        return scores

    def reset(self) -> None:
        """Forgets the audio so far."""
        with self._open():
            self._check(self.library.native.Orv_VAD_ResetSession(self._handle), "reset")
