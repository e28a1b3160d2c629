"""Measures of one cleaned wave against the clean one; waves are (samples,), full scale +/-1.

Both waves lie in time with each other. Decibel values are finite for silent waves too.
"""

from __future__ import annotations

import importlib.util
import warnings
from pathlib import Path

import numpy as np
import soxr

TINY = 1e-12
FRAME_SECONDS = 0.032
SPEECH_RANGE_DB = 25.0  # frames this far below the loud ones still count as speech
PAUSE_RANGE_DB = 45.0  # frames this far below the loud ones are pauses
CUT_DB = 12.0
MOST_ATTENUATION_DB = 80.0


def resample(wave: np.ndarray, rate: int, target: int) -> np.ndarray:
    """`wave` brought from `rate` to `target` Hz."""
    return wave if rate == target else soxr.resample(wave, rate, target)


def level_db(wave: np.ndarray) -> float:
    """RMS level in dB of full scale, -120 at least."""
    return float(10.0 * np.log10(np.mean(np.square(wave, dtype=np.float64)) + TINY))


def frame_levels(wave: np.ndarray, rate: int) -> np.ndarray:
    """Level in dB of each whole frame of 32 ms."""
    size = int(rate * FRAME_SECONDS)
    frames = wave[: len(wave) // size * size].reshape(-1, size)
    return 10.0 * np.log10(np.mean(np.square(frames, dtype=np.float64), axis=1) + TINY)


def si_sdr(out: np.ndarray, clean: np.ndarray) -> float:
    """Scale-invariant ratio of signal to distortion in dB."""
    out, clean = out.astype(np.float64), clean.astype(np.float64)
    target = np.dot(out, clean) / (np.dot(clean, clean) + TINY) * clean
    rest = out - target
    return float(10.0 * np.log10((np.dot(target, target) + TINY) / (np.dot(rest, rest) + TINY)))


def cut_share(out: np.ndarray, clean: np.ndarray, rate: int) -> float:
    """Share of the clean wave's speech frames that come out more than 12 dB too low."""
    levels = frame_levels(clean, rate)
    speech = levels > np.percentile(levels, 95) - SPEECH_RANGE_DB
    return float(np.mean(frame_levels(out, rate)[speech] < levels[speech] - CUT_DB))


def pause_attenuation(out: np.ndarray, noisy: np.ndarray, clean: np.ndarray, rate: int) -> float:
    """By how many dB the noise is lower in speech pauses; NaN for a wave without pauses."""
    levels = frame_levels(clean, rate)
    pauses = levels < np.percentile(levels, 95) - PAUSE_RANGE_DB
    if np.count_nonzero(pauses) < 3:
        return float("nan")
    power = [np.mean(10.0 ** (frame_levels(wave, rate)[pauses] / 10.0)) for wave in (noisy, out)]
    return float(min(10.0 * np.log10(power[0] / power[1]), MOST_ATTENUATION_DB))


def pesq(out: np.ndarray, clean: np.ndarray, rate: int) -> float:
    """PESQ, wide-band, or narrow-band at 8 kHz; NaN where no speech is found."""
    import pesq as package

    target, mode = (8000, "nb") if rate == 8000 else (16000, "wb")
    waves = [resample(wave, rate, target).astype(np.float32) for wave in (clean, out)]
    try:
        return float(package.pesq(target, *waves, mode))
    except package.NoUtterancesError:
        return float("nan")


def stoi(out: np.ndarray, clean: np.ndarray, rate: int, extended: bool = False) -> float:
    """Short-time objective intelligibility, 1 at best."""
    import pystoi

    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        return float(pystoi.stoi(clean, out, rate, extended=extended))


class OverallOpinion:
    """DNSMOS OVRL without a reference, 1 to 5, by the network in the package speechmos.

    The package's own entry point also runs a second network whose score is not used here.
    """

    RATE, SECONDS = 16000, 9.01
    # From the network's overall output to the opinion scale, highest power first.
    CURVE = (-0.06766283, 1.11546468, 0.04602535)

    def __init__(self) -> None:
        import onnxruntime

        found = importlib.util.find_spec("speechmos")
        path = Path(found.submodule_search_locations[0]) / "dnsmos_models" / "sig_bak_ovr.onnx"
        options = onnxruntime.SessionOptions()
        options.intra_op_num_threads = options.inter_op_num_threads = 1
        self.session = onnxruntime.InferenceSession(
            str(path), options, providers=["CPUExecutionProvider"]
        )

    def __call__(self, out: np.ndarray, rate: int) -> float:
        wave = np.clip(resample(out, rate, self.RATE), -1.0, 1.0).astype(np.float32)
        size = int(self.SECONDS * self.RATE)
        wave = np.tile(wave, -(-size // len(wave))) if len(wave) < size else wave
        starts = range(0, len(wave) - size + 1, self.RATE)
        if len(wave) < 2 * size:  # a short wave was repeated: later windows say nothing new
            starts = starts[:1]
        raw = [self.session.run(None, {"input_1": wave[None, s : s + size]})[0][0][2] for s in starts]
        return float(np.mean(np.polyval(self.CURVE, raw)))


def lag_of(out: np.ndarray, reference: np.ndarray, most: int) -> int:
    """Samples by which `out` lags behind `reference`, from 0 to `most`, by cross-correlation."""
    size = 1 << (len(reference) + most).bit_length()
    spectrum = np.fft.rfft(out, size) * np.conj(np.fft.rfft(reference, size))
    # Where single frequencies dominate, whitening by half keeps the peak sharp.
    cross = np.fft.irfft(spectrum / (np.sqrt(np.abs(spectrum)) + TINY), size)
    return int(np.argmax(cross[: most + 1]))
