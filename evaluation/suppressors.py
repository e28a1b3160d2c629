"""Noise suppressors under one interface: ours through its exports, others from PyPI and Debian.

A suppressor processes one stream at its own rate. `clean_file` brings a wave to that rate, feeds it
with silence behind, takes the lag out and brings the result back, so that nobody is marked down for
its delay or its rate.
"""

from __future__ import annotations

import ctypes
import ctypes.util
import time

import numpy as np

from orvel import Library
from training.measures import lag_of, resample

TAIL_SECONDS = 0.25


class Suppressor:
    """One kind of suppressor; a fresh stream begins with every `stream` call.

    `rate`: the rate it works at. `lag`: samples at that rate by which its output is late, measured
    by `calibrate` unless it tells. `cpu_seconds`: CPU time of this process spent inside so far.
    """

    name = ""
    rate = 16000
    lag: int | None = None
    neural = False
    note = ""
    frame_ms = 10.0  # audio taken by one call

    @property
    def latency_ms(self) -> float:
        """From a sample's arrival to its output at the latest: one call's audio and the lag."""
        return self.frame_ms + 1000.0 * self.lag / self.rate

    def __init__(self) -> None:
        self.cpu_seconds = 0.0

    def _stream(self, wave: np.ndarray) -> np.ndarray:
        raise NotImplementedError

    def stream(self, wave: np.ndarray) -> np.ndarray:
        """One whole stream of floats at `rate`; the output has the same length and is late."""
        start = time.process_time()
        out = self._stream(np.ascontiguousarray(wave, np.float32))
        self.cpu_seconds += time.process_time() - start
        return out

    def calibrate(self, speech: np.ndarray, rate: int) -> None:
        """Measures the lag with a clean recording unless it is known; a tenth of a second at most."""
        if self.lag is None:
            wave = resample(speech, rate, self.rate)
            self.lag = lag_of(self.stream(wave), wave, self.rate // 10)
            self.cpu_seconds = 0.0

    def clean_file(self, wave: np.ndarray, rate: int) -> np.ndarray:
        """`wave` at `rate` cleaned by a fresh stream, as long as it was and in time with it."""
        own = resample(wave, rate, self.rate)
        padded = np.concatenate([own, np.zeros(int(TAIL_SECONDS * self.rate), own.dtype)])
        out = self.stream(padded)
        result = resample(out[self.lag : self.lag + len(own)], self.rate, rate)[: len(wave)]
        return np.pad(result, (0, len(wave) - len(result)))

    def close(self) -> None:
        """Gives back what the suppressor holds."""


class Unprocessed(Suppressor):
    """The input as it is."""

    name, lag, frame_ms = "unprocessed", 0, 0.0

    def __init__(self, rate: int):
        super().__init__()
        self.rate = rate

    def _stream(self, wave: np.ndarray) -> np.ndarray:
        return wave


class Orvel(Suppressor):
    """One of our models at its own rate or another, 10 ms frames through the exports."""

    neural = True

    def __init__(self, library: Library, model: str, rate: int | None = None):
        super().__init__()
        self.library, self.name, self.rate = library, model, rate or library.model(model).rate
        with library.cleaner(self.rate, model) as session:
            self.lag = session.latency

    def _stream(self, wave: np.ndarray) -> np.ndarray:
        with self.library.cleaner(self.rate, self.name) as session:
            frames = -(-len(wave) // session.frame)
            padded = np.pad(wave, (0, frames * session.frame - len(wave)))
            return session.process(padded)[: len(wave)]


class RNNoise(Suppressor):
    """RNNoise at 48 kHz (package pyrnnoise), called below the package's resampling layer.

    `probabilities` holds the voice probabilities of the last stream, one for each 10 ms.
    """

    name, rate, neural = "RNNoise", 48000, True
    FRAME = 480

    def __init__(self) -> None:
        super().__init__()
        from pyrnnoise.rnnoise import lib

        self.lib = ctypes.CDLL(lib._name)
        self.lib.rnnoise_create.restype = ctypes.c_void_p
        self.lib.rnnoise_create.argtypes = self.lib.rnnoise_destroy.argtypes = [ctypes.c_void_p]
        self.lib.rnnoise_process_frame.restype = ctypes.c_float
        self.lib.rnnoise_process_frame.argtypes = [ctypes.c_void_p] * 3
        self.probabilities = np.zeros(0)

    def _stream(self, wave: np.ndarray) -> np.ndarray:
        frames = -(-len(wave) // self.FRAME)
        scaled = np.pad(wave, (0, frames * self.FRAME - len(wave))) * np.float32(32768.0)
        out = np.empty_like(scaled)
        state = self.lib.rnnoise_create(None)
        source, target, step = scaled.ctypes.data, out.ctypes.data, self.FRAME * 4
        self.probabilities = np.array(
            [self.lib.rnnoise_process_frame(state, target + k * step, source + k * step) for k in range(frames)]
        )
        self.lib.rnnoise_destroy(state)
        return out[: len(wave)] / np.float32(32768.0)


class WebRTC(Suppressor):
    """WebRTC noise suppression at 16 kHz, level "high", no gain control (webrtc-noise-gain)."""

    name, LEVEL = "WebRTC NS", 3

    def _stream(self, wave: np.ndarray) -> np.ndarray:
        from webrtc_noise_gain import AudioProcessor

        processor = AudioProcessor(0, self.LEVEL)
        frames = -(-len(wave) // 160)
        scaled = np.pad(wave * 32768.0, (0, frames * 160 - len(wave)))
        data = np.clip(np.rint(scaled), -32768, 32767).astype("<i2").tobytes()
        out = b"".join(processor.Process10ms(data[at : at + 320]).audio for at in range(0, len(data), 320))
        return np.frombuffer(out, "<i2")[: len(wave)].astype(np.float32) / 32768.0


class Speex(Suppressor):
    """SpeexDSP's preprocessor with its defaults, 20 ms frames (Debian's libspeexdsp1)."""

    name, frame_ms = "SpeexDSP", 20.0

    def __init__(self, rate: int):
        super().__init__()
        self.rate, self.frame = rate, rate // 50
        path = ctypes.util.find_library("speexdsp")
        if not path:
            raise OSError("libspeexdsp is not installed")
        self.lib = ctypes.CDLL(path)
        self.lib.speex_preprocess_state_init.restype = ctypes.c_void_p
        self.lib.speex_preprocess_state_destroy.argtypes = [ctypes.c_void_p]
        self.lib.speex_preprocess_run.argtypes = [ctypes.c_void_p] * 2

    def _stream(self, wave: np.ndarray) -> np.ndarray:
        frames = -(-len(wave) // self.frame)
        padded = np.pad(wave * 32768.0, (0, frames * self.frame - len(wave)))
        samples = np.clip(np.rint(padded), -32768, 32767).astype(np.int16)
        state = self.lib.speex_preprocess_state_init(self.frame, self.rate)
        for index in range(frames):
            self.lib.speex_preprocess_run(state, samples.ctypes.data + index * self.frame * 2)
        self.lib.speex_preprocess_state_destroy(state)
        return samples[: len(wave)].astype(np.float32) / 32768.0
