"""Measures of one cleaned wave against a reference; waves are (samples,), full scale +/-1, in time with each other.

Decibel values are finite for silent waves too. PESQ and STOI need the packages of evaluation/requirements.txt.
"""

from __future__ import annotations

import warnings

import numpy as np
import soxr

TINY = 1e-12
FRAME_SECONDS = 0.032
SPEECH_RANGE_DB = 25.0  # frames this far below the loud ones still count as speech
PAUSE_RANGE_DB = 45.0  # frames this far below the loud ones are pauses
CUT_DB = 12.0
MOST_ATTENUATION_DB = 80.0
# A line: so many dB above the frequencies around it, so many more than it is in the input and in the
# reference, and so many dB below the speech at most.
LINE_DB, LINE_OWN_DB, LINE_FLOOR_DB = 10.0, 7.0, -60.0
LINE_HERTZ = 31.25  # resolution, half of the narrowest band of a mask
BAND_EDGES = (0, 1000, 2000, 4000, 8000, 14000)  # Hz
LINE_AROUND = (3, 10)  # bins to either side that a line is compared with: from, to


def resample(wave: np.ndarray, rate: int, target: int) -> np.ndarray:
    """``wave`` brought from ``rate`` to ``target`` Hz."""
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
    """Share of the reference's speech frames that come out more than 12 dB too low."""
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


def lag_of(out: np.ndarray, reference: np.ndarray, most: int) -> int:
    """Samples by which ``out`` lags behind ``reference``, from 0 to ``most``, by cross-correlation."""
    size = 1 << (len(reference) + most).bit_length()
    spectrum = np.fft.rfft(out, size) * np.conj(np.fft.rfft(reference, size))
    # Where single frequencies dominate, whitening by half keeps the peak sharp.
    cross = np.fft.irfft(spectrum / (np.sqrt(np.abs(spectrum)) + TINY), size)
    return int(np.argmax(cross[: most + 1]))


def steady_lines(out: np.ndarray, noisy: np.ndarray, clean: np.ndarray, rate: int) -> list[tuple[float, float]]:
    """Steady tones of the output's pauses that neither input nor reference has: (Hz, dB re speech), loudest first.

    All frames are pauses where the reference is silent; their level is then that re the input. Empty for a
    wave without pauses.
    """
    size = round(rate / LINE_HERTZ)
    spoken = level_db(clean) > -100.0
    powers = [_frame_powers(wave, size) for wave in (out, noisy, clean)]
    loud = np.sum(powers[2], axis=1)
    pauses = loud < np.percentile(loud, 95) * 10.0 ** (-0.1 * PAUSE_RANGE_DB) if spoken else np.ones(len(loud), bool)
    if np.count_nonzero(pauses) < 5:
        return []
    # The median over time: a tone that is there most of the time, not a click or the end of a word.
    levels = [10.0 * np.log10(np.median(power[pauses], axis=0) + TINY) for power in powers]
    above = [_above_neighbours(level) for level in levels]
    speech = 10.0 * np.log10(np.mean(np.sum(powers[2][~pauses] if spoken else powers[1], axis=1)) + TINY)
    own = above[0] - np.maximum(np.maximum(above[1], above[2] if spoken else above[1]), 0.0)
    found = (above[0] >= LINE_DB) & (own >= LINE_OWN_DB) & (levels[0] - speech >= LINE_FLOOR_DB)
    found[: LINE_AROUND[0]] = False
    peak = found & (levels[0] >= np.maximum(np.roll(levels[0], 1), np.roll(levels[0], -1)))
    lines = [(LINE_HERTZ * k, float(levels[0][k] - speech)) for k in np.flatnonzero(peak)]
    return sorted(lines, key=lambda line: -line[1])


def band_gains(out: np.ndarray, clean: np.ndarray, rate: int) -> dict[str, float]:
    """By how many dB speech itself is raised or lowered, by octave: the output's least-squares fit to it.

    Noise that is left does not count, as it does not correlate with speech. NaN for a band in which the
    reference lies more than 45 dB below its loudest one: nothing is known there.
    """
    size = int(rate * FRAME_SECONDS)
    count = min(len(out), len(clean)) // size * size
    window = np.hanning(size)
    spectra = [np.fft.rfft(wave[:count].reshape(-1, size) * window, axis=1) for wave in (out, clean)]
    cross = np.sum((spectra[0] * np.conj(spectra[1])).real, axis=0)
    power = np.sum(np.square(np.abs(spectra[1])), axis=0)
    freq = np.arange(size // 2 + 1) * rate / size
    edges = [edge for edge in BAND_EDGES if edge <= rate / 2]
    inside = [(freq >= low) & (freq < high) for low, high in zip(edges[:-1], edges[1:])]
    powers = [float(np.sum(power[band])) for band in inside]
    gains = {}
    for low, band, own in zip(edges, inside, powers):
        known = own > max(powers) * 10.0 ** (-0.1 * PAUSE_RANGE_DB) + TINY
        fit = max(float(np.sum(cross[band])) / own, 1e-3) if known else float("nan")
        gains[f"from_{low}"] = 20.0 * np.log10(fit)
    return gains


def _frame_powers(wave: np.ndarray, size: int) -> np.ndarray:
    hop, count = size // 2, len(wave) // (size // 2) - 1
    frames = np.lib.stride_tricks.sliding_window_view(wave, size)[::hop][:count]
    return np.square(np.abs(np.fft.rfft(frames * np.hanning(size), axis=1)))


def _above_neighbours(level: np.ndarray) -> np.ndarray:
    """By how many dB each bin lies above the median of the bins around it."""
    near, far = LINE_AROUND
    shifts = [k for k in range(-far, far + 1) if abs(k) >= near]
    padded = np.pad(level, far, mode="reflect")
    around = np.stack([padded[far + k : far + k + len(level)] for k in shifts])
    return level - np.median(around, axis=0)
