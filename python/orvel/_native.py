"""Finds liborvel, loads it and declares its functions."""

from __future__ import annotations

import ctypes
import os
from ctypes import c_char_p, c_float, c_int, c_size_t, c_uint32, c_uint64, c_void_p
from functools import cache
from pathlib import Path

CHECKOUT = Path(__file__).resolve().parent.parent.parent

MESSAGE_HANDLER = ctypes.CFUNCTYPE(None, c_void_p, c_int, c_char_p)


class ModelInfo(ctypes.Structure):
    """OrvModelInfo."""

    _fields_ = [
        ("size", c_uint32),
        ("kind", c_uint32),
        ("version", ctypes.c_char * 16),
        ("sample_rate", c_uint32),
        ("frame_length", c_uint32),
        ("hop", c_uint32),
        ("latency", c_uint32),
        ("reserved", c_uint32),
        ("weights", c_uint64),
    ]


class SessionStatistics(ctypes.Structure):
    """OrvSessionStatistics."""

    _fields_ = [
        ("size", c_uint32),
        ("reserved", c_uint32),
        ("frames", c_uint64),
        ("failed_frames", c_uint64),
        ("state_resets", c_uint64),
    ]


SIGNATURES = {
    "Orv_SDK_GetVersion": (c_char_p, []),
    "Orv_Context_Create": (c_void_p, [c_char_p]),
    "Orv_Context_Destroy": (c_int, [c_void_p]),
    "Orv_Context_SetModel": (c_int, [c_void_p, c_char_p, c_char_p]),
    "Orv_Context_SetModelFromMemory": (c_int, [c_void_p, c_char_p, c_size_t, c_char_p, c_size_t, c_char_p]),
    "Orv_Context_CreateCleaner": (c_void_p, [c_void_p, c_int, c_int, c_int, c_char_p]),
    "Orv_Context_CreateDetector": (c_void_p, [c_void_p, c_int, c_int, c_char_p]),
    "Orv_Context_SetMessageHandler": (c_int, [c_void_p, MESSAGE_HANDLER, c_void_p]),
    "Orv_Context_LastError": (c_char_p, [c_void_p]),
    "Orv_Context_GetModelInfo": (c_int, [c_void_p, c_char_p, ctypes.POINTER(ModelInfo)]),
    "Orv_NC_CleanAmbientNoiseFloat": (c_int, [c_void_p, c_void_p, c_uint32, c_void_p, c_uint32]),
    "Orv_NC_GetLatency": (c_int, [c_void_p, ctypes.POINTER(c_uint32)]),
    "Orv_NC_SetAttenuationLimit": (c_int, [c_void_p, c_float]),
    "Orv_NC_ResetSession": (c_int, [c_void_p]),
    "Orv_NC_CloseSession": (c_int, [c_void_p]),
    "Orv_Session_GetStatistics": (c_int, [c_void_p, ctypes.POINTER(SessionStatistics)]),
    "Orv_VAD_ProcessFloat": (c_int, [c_void_p, c_void_p, c_uint32, c_void_p]),
    "Orv_VAD_ResetSession": (c_int, [c_void_p]),
    "Orv_VAD_CloseSession": (c_int, [c_void_p]),
}


def library_file() -> str:
    """The library to load: ORVEL_LIBRARY, else the checkout's release build, else the system's."""
    named = os.environ.get("ORVEL_LIBRARY")
    if named:
        return named
    built = CHECKOUT / "build" / "release" / "liborvel.so.1"
    return str(built) if built.exists() else "liborvel.so.1"


@cache
def _load(name: str) -> ctypes.CDLL:
    try:
        native = ctypes.CDLL(name)
    except OSError as error:
        message = f"cannot load the ORVEL library: {error}; build it with `make build`, or set ORVEL_LIBRARY"
        raise OSError(message) from None
    for function, (result, arguments) in SIGNATURES.items():
        if not hasattr(native, function):
            raise OSError(f"the ORVEL library {name} is too old: it has no {function}")
        getattr(native, function).restype = result
        getattr(native, function).argtypes = arguments
    return native


def load(path: str | os.PathLike[str] | None = None) -> ctypes.CDLL:
    """The loaded library with its functions declared, once for each file; OSError where it cannot be loaded."""
    return _load(os.fspath(path) if path is not None else library_file())
