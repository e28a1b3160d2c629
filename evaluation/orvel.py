"""The built library from Python: models, noise-cleaning sessions, voice-activity sessions.

    with Library("build/release/liborvel.so.1", "models") as library:
        library.load("orvel-16k")
        with library.cleaner(16000, "orvel-16k") as session:
            cleaned = session.process(noisy)          # float32, full scale +/-1, whole frames

One instance of the library exists per process, so one `Library` at a time. Sessions are fed frame
by frame through the C functions; `cpu_seconds` adds up the CPU time spent in those calls, with
about a microsecond of call overhead per frame.
"""

from __future__ import annotations

import contextlib
import ctypes
import os
import tempfile
import time
from pathlib import Path

import numpy as np

FLOATS = ctypes.c_void_p


class OrvelError(RuntimeError):
    """A function of the library refused; the message holds what the library printed."""


@contextlib.contextmanager
def captured_output():
    """Collects what C code prints on both standard streams meanwhile; yields a list of one text."""
    text = [""]
    saved = [os.dup(1), os.dup(2)]
    with tempfile.TemporaryFile() as target:
        os.dup2(target.fileno(), 1)
        os.dup2(target.fileno(), 2)
        try:
            yield text
        finally:
            ctypes.CDLL(None).fflush(None)
            os.dup2(saved[0], 1)
            os.dup2(saved[1], 2)
            for descriptor in saved:
                os.close(descriptor)
            target.seek(0)
            text[0] = target.read().decode(errors="replace").strip()


class Library:
    """The loaded shared library with its one instance.

    `directory` holds the models' control and weight files. Raises OSError when the library cannot
    be loaded and OrvelError when it is initialised already.
    """

    def __init__(self, path: str | Path, directory: str | Path):
        self.functions = ctypes.CDLL(str(Path(path).resolve()))
        self._declare()
        self.directory = Path(directory).resolve()
        self._check(self.functions.Orv_SDK_GlobalInit, str(self.directory).encode())

    def _declare(self) -> None:
        lib, integer, text, handle = self.functions, ctypes.c_int, ctypes.c_char_p, ctypes.c_void_p
        count = ctypes.c_uint32
        signatures = {
            "Orv_SDK_GlobalInit": (integer, [text]),
            "Orv_SDK_GlobalDestroy": (integer, []),
            "Orv_SDK_SetModel": (integer, [text, text]),
            "Orv_NC_CreateSession": (handle, [integer, integer, integer, text]),
            "Orv_VAD_CreateSession": (handle, [integer, integer, text]),
            "Orv_NC_CloseSession": (integer, [handle]),
            "Orv_VAD_CloseSession": (integer, [handle]),
            "Orv_NC_CleanAmbientNoiseFloat": (integer, [handle, FLOATS, count, FLOATS, count]),
            "Orv_VAD_ProcessFloat": (integer, [handle, FLOATS, count, FLOATS]),
            "Orv_NC_GetLatency": (integer, [handle, ctypes.POINTER(count)]),
            "Orv_NC_SetAttenuationLimit": (integer, [handle, ctypes.c_float]),
        }
        for name, (result, arguments) in signatures.items():
            function = getattr(lib, name)
            function.restype, function.argtypes = result, arguments

    def _check(self, function, *arguments):
        with captured_output() as printed:
            status = function(*arguments)
        failed = not status if function.restype is ctypes.c_void_p else status != 0
        if failed:
            raise OrvelError(f"{function.__name__}{arguments}: {status}: {printed[0]}")
        return status

    def load(self, name: str, control: str | None = None) -> None:
        """Loads `control` (NAME.ctl by default) from the model directory under `name`."""
        control = control or f"{name}.ctl"
        self._check(self.functions.Orv_SDK_SetModel, control.encode(), name.encode())

    def cleaner(self, rate: int, model: str | None = None, frame_ms: int = 10) -> Cleaner:
        """Opens a noise-cleaning session with the same rate at input and output."""
        return Cleaner(self, rate, model, frame_ms)

    def detector(self, rate: int, model: str | None = None, frame_ms: int = 10) -> Detector:
        """Opens a voice-activity session."""
        return Detector(self, rate, model, frame_ms)

    def close(self) -> None:
        """Destroys the instance; every session becomes invalid."""
        self._check(self.functions.Orv_SDK_GlobalDestroy)

    def __enter__(self) -> Library:
        return self

    def __exit__(self, *unused) -> None:
        self.close()


class _Session:
    """A handle with its frame size; closed at the end of a `with` block."""

    def __init__(self, library: Library, create, close, rate: int, frame_ms: int):
        self._library, self._close, self.rate = library, close, rate
        self.frame = rate * frame_ms // 1000
        self.handle = create()
        self.cpu_seconds = 0.0

    def close(self) -> None:
        """Closes the session; it must not be used any more."""
        self._library._check(self._close, self.handle)

    def __enter__(self):
        return self

    def __exit__(self, *unused) -> None:
        self.close()

    def _input(self, wave: np.ndarray) -> tuple[np.ndarray, int]:
        wave = np.ascontiguousarray(wave, dtype=np.float32)
        if wave.ndim != 1 or len(wave) % self.frame:
            raise ValueError(f"shape {wave.shape} is not a number of frames of {self.frame} samples")
        return wave, len(wave) // self.frame


class Cleaner(_Session):
    """A noise-cleaning session."""

    def __init__(self, library: Library, rate: int, model: str | None, frame_ms: int):
        lib, name = library.functions, model.encode() if model else None
        super().__init__(
            library,
            lambda: library._check(lib.Orv_NC_CreateSession, rate, rate, frame_ms, name),
            lib.Orv_NC_CloseSession,
            rate,
            frame_ms,
        )

    @property
    def latency(self) -> int:
        """Samples by which the output lags behind the input."""
        samples = ctypes.c_uint32()
        self._library._check(
            self._library.functions.Orv_NC_GetLatency, self.handle, ctypes.byref(samples)
        )
        return samples.value

    def limit(self, decibels: float) -> None:
        """Lowers no frequency by more than `decibels` from the next frame on."""
        function = self._library.functions.Orv_NC_SetAttenuationLimit
        self._library._check(function, self.handle, decibels)

    def process(self, wave: np.ndarray) -> np.ndarray:
        """Cleans whole frames; the output is as long as the input and lags by `latency`."""
        wave, frames = self._input(wave)
        out = np.empty_like(wave)
        source, target, size = wave.ctypes.data, out.ctypes.data, self.frame
        clean, handle = self._library.functions.Orv_NC_CleanAmbientNoiseFloat, self.handle
        start = time.process_time()
        for offset in range(0, frames * size * 4, size * 4):
            if clean(handle, source + offset, size, target + offset, size):
                raise OrvelError(f"frame at sample {offset // 4} was refused")
        self.cpu_seconds += time.process_time() - start
        return out


class Detector(_Session):
    """A voice-activity session."""

    def __init__(self, library: Library, rate: int, model: str | None, frame_ms: int):
        lib, name = library.functions, model.encode() if model else None
        super().__init__(
            library,
            lambda: library._check(lib.Orv_VAD_CreateSession, rate, frame_ms, name),
            lib.Orv_VAD_CloseSession,
            rate,
            frame_ms,
        )

    def process(self, wave: np.ndarray) -> np.ndarray:
        """One score for each frame of `wave`."""
        wave, frames = self._input(wave)
        scores = np.empty(frames, np.float32)
        source, target, size = wave.ctypes.data, scores.ctypes.data, self.frame
        score, handle = self._library.functions.Orv_VAD_ProcessFloat, self.handle
        start = time.process_time()
        for index in range(frames):
            if score(handle, source + index * size * 4, size, target + index * 4):
                raise OrvelError(f"frame {index} was refused")
        self.cpu_seconds += time.process_time() - start
        return scores
