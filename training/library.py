"""The built library through its C interface, for comparison with the emulation."""

from __future__ import annotations

import ctypes
from pathlib import Path

import numpy as np

FRAME_MS = 10


class Library:
    """One initialised instance; use as a context manager. Raises RuntimeError when a call fails."""

    def __init__(self, path: str | Path, model_folder: str | Path):
        self._lib = ctypes.CDLL(str(path))
        self._folder = str(model_folder)
        self._lib.Orv_NC_CreateSession.restype = ctypes.c_void_p
        self._lib.Orv_VAD_CreateSession.restype = ctypes.c_void_p
        floats = ctypes.POINTER(ctypes.c_float)
        self._lib.Orv_NC_CleanAmbientNoiseFloat.argtypes = [
            ctypes.c_void_p,
            floats,
            ctypes.c_uint32,
            floats,
            ctypes.c_uint32,
        ]
        self._lib.Orv_VAD_ProcessFloat.argtypes = [ctypes.c_void_p, floats, ctypes.c_uint32, floats]
        self._lib.Orv_NC_CloseSession.argtypes = [ctypes.c_void_p]
        self._lib.Orv_VAD_CloseSession.argtypes = [ctypes.c_void_p]
        self._lib.Orv_NC_GetLatency.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.c_uint32)]

    def __enter__(self) -> Library:
        self._check(self._lib.Orv_SDK_GlobalInit(self._folder.encode()), "init")
        return self

    def __exit__(self, *_) -> None:
        self._lib.Orv_SDK_GlobalDestroy()

    @staticmethod
    def _check(status: int, what: str) -> None:
        if status != 0:
            raise RuntimeError(f"{what} gave status {status}")

    def load(self, name: str) -> None:
        """Load NAME.ctl of the model folder under the name NAME."""
        self._check(self._lib.Orv_SDK_SetModel(f"{name}.ctl".encode(), name.encode()), f"loading {name}")

    def clean(self, name: str, wave: np.ndarray, rate: int) -> np.ndarray:
        """``wave`` (16-bit units) cleaned frame by frame at one rate, the session's latency cut off."""
        session = self._lib.Orv_NC_CreateSession(rate, rate, FRAME_MS, name.encode())
        if not session:
            raise RuntimeError(f"no session for {name}")
        latency = ctypes.c_uint32()
        self._check(self._lib.Orv_NC_GetLatency(session, ctypes.byref(latency)), "latency")
        size = rate * FRAME_MS // 1000
        count = -(-(len(wave) + latency.value) // size)
        frames = np.zeros((count, size), np.float32)
        frames.reshape(-1)[: len(wave)] = wave / 32768.0
        out = np.zeros_like(frames)
        for k in range(count):
            status = self._lib.Orv_NC_CleanAmbientNoiseFloat(session, _at(frames[k]), size, _at(out[k]), size)
            self._check(status, "clean")
        self._check(self._lib.Orv_NC_CloseSession(session), "close")
        return out.reshape(-1)[latency.value : latency.value + len(wave)] * 32768.0

    def detect(self, name: str, wave: np.ndarray) -> np.ndarray:
        """One score per 10 ms of ``wave`` (16-bit units, 8 kHz)."""
        session = self._lib.Orv_VAD_CreateSession(8000, FRAME_MS, name.encode())
        if not session:
            raise RuntimeError(f"no session for {name}")
        frames = np.ascontiguousarray(wave[: len(wave) // 80 * 80].reshape(-1, 80) / 32768.0, np.float32)
        out = np.zeros((len(frames), 1), np.float32)
        for k in range(len(frames)):
            self._check(self._lib.Orv_VAD_ProcessFloat(session, _at(frames[k]), 80, _at(out[k])), "detect")
        self._check(self._lib.Orv_VAD_CloseSession(session), "close")
        return out[:, 0]


def _at(array: np.ndarray):
    return array.ctypes.data_as(ctypes.POINTER(ctypes.c_float))
