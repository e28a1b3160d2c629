"""Judges of a cleaned wave that need no reference wave, or another one than ours: opinions and recognised words."""

from __future__ import annotations

import numpy as np
import scipy.fft

from evaluation.networks import open_network, package_file
from training.measures import resample
from training.opinion import MAPPINGS, RATE

MEL_BANDS, MEL_FRAME, MEL_HOP = 120, 321, 160


class Opinions:
    """DNSMOS, 1 to 5: OVRL by the P.835 network and P.808 by the other one in the package speechmos.

    The package's own entry point needs librosa; the features of the second network are made here.
    """

    SECONDS = 9.01

    def __init__(self) -> None:
        folder = ("speechmos", "dnsmos_models")
        self.overall = open_network(package_file(*folder, "sig_bak_ovr.onnx"))
        self.p808 = open_network(package_file(*folder, "model_v8.onnx"))

    def __call__(self, out: np.ndarray, rate: int) -> dict[str, float]:
        """Means over windows of nine seconds; a shorter wave is repeated."""
        wave = np.clip(resample(out, rate, RATE), -1.0, 1.0).astype(np.float32)
        size = int(self.SECONDS * RATE)
        count = len(wave)
        wave = np.tile(wave, -(-size // count)) if count < size else wave
        # A short wave was repeated: later windows say nothing new.
        starts = range(0, len(wave) - size + 1, RATE) if count >= size else [0]
        overall, p808 = [], []
        for start in starts:
            part = wave[start : start + size]
            overall.append(self.overall.run(None, {"input_1": part[None]})[0][0][2])
            p808.append(self.p808.run(None, {"input_1": mel_levels(part[:-MEL_HOP])[None]})[0][0][0])
        return {"ovrl": float(np.mean(np.polyval(MAPPINGS[-1], overall))), "p808": float(np.mean(p808))}


def _mel(hertz: np.ndarray) -> np.ndarray:
    """Slaney's mel scale: linear to 1 kHz, logarithmic above."""
    hertz = np.asarray(hertz, float)
    return np.where(
        hertz < 1000.0, hertz * 3.0 / 200.0, 15.0 + np.log(np.maximum(hertz, 1.0) / 1000.0) * 27.0 / np.log(6.4)
    )


def _mel_bands() -> np.ndarray:
    """(bins, bands) triangles of equal area between neighbouring centres."""
    bins = np.arange(MEL_FRAME // 2 + 1) * RATE / MEL_FRAME
    mels = np.linspace(0.0, float(_mel(RATE / 2.0)), MEL_BANDS + 2)
    edges = np.where(mels < 15.0, mels * 200.0 / 3.0, 1000.0 * np.exp((mels - 15.0) * np.log(6.4) / 27.0))
    low, centre, high = edges[:-2], edges[1:-1], edges[2:]
    rising, falling = (bins[:, None] - low) / (centre - low), (high - bins[:, None]) / (high - centre)
    return np.maximum(0.0, np.minimum(rising, falling)) * 2.0 / (high - low)


def mel_levels(wave: np.ndarray) -> np.ndarray:
    """(frames, bands) features of the P.808 network: level in dB re the loudest cell, -40 to 0 dB as 0 to 1."""
    window = np.hanning(MEL_FRAME + 1)[:-1]
    padded = np.pad(wave.astype(float), MEL_FRAME // 2)
    frames = np.lib.stride_tricks.sliding_window_view(padded, MEL_FRAME)[::MEL_HOP]
    power = np.square(np.abs(scipy.fft.rfft(frames * window))) @ _mel_bands()
    level = 10.0 * np.log10(np.maximum(power, 1e-10) / max(float(np.max(power)), 1e-10))
    return ((np.maximum(level, -80.0) + 40.0) / 40.0).astype(np.float32)


class Recogniser:
    """Words by pocketsphinx and the English model that its package brings along."""

    def __init__(self) -> None:
        from pocketsphinx import Decoder

        self.decoder = Decoder(samprate=RATE, loglevel="FATAL")

    def words(self, wave: np.ndarray, rate: int) -> list[str]:
        """The words of one wave."""
        samples = np.clip(np.rint(resample(wave, rate, RATE) * 32768.0), -32768, 32767).astype("<i2")
        self.decoder.start_utt()
        self.decoder.process_raw(samples.tobytes(), full_utt=True)
        self.decoder.end_utt()
        found = self.decoder.hyp()
        return found.hypstr.split() if found else []


def word_errors(words: list[str], reference: list[str]) -> int:
    """Words inserted, left out or replaced: the distance of Levenshtein."""
    row = list(range(len(words) + 1))
    for count, wanted in enumerate(reference, 1):
        last, row[0] = row[0], count
        for k, word in enumerate(words, 1):
            last, row[k] = row[k], min(row[k] + 1, row[k - 1] + 1, last + (word != wanted))
    return row[-1]
