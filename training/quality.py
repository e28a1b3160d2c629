"""Estimated quality of a wave beside the wanted one: a smooth relative of PESQ.

Follows the perceptual model of ITU-T P.862 (P.862.2 for wide band): power per Bark after the listener's
filter, Zwicker's loudness, a dead zone where a difference is masked, a larger weight for what was added
than for what is missing, the worst part of each syllable, and the map to the mean opinion. Alignment in
time and of the level is left out; bands, thresholds and filters are smooth curves near its tables.
PESQ forgives softer and duller speech, which training would make use of; this estimate does not.
"""

from __future__ import annotations

from dataclasses import dataclass
from functools import cache

import jax
import jax.numpy as jnp
import numpy as np

from training.chain import frames

LEVEL = 3162.0  # amplitude units of P.862 that stand for the level of speech
# From squared bins of a Hann window of 512 samples to power per Bark, where a Bark is 98 Hz wide.
POWER_SCALE = 6.91e-4
BARK_WIDTH = 98.0
LOUDNESS_SCALE = 0.187
EXPONENT = 0.23
LOWEST = 60.0  # Hz
BAND_WIDTH = 0.46  # Bark
HALF_SYLLABLE = 10  # frames of 16 ms
WORST_FRAME = 45.0
MOST_GAIN = 1.25  # of power, to a frame that is too soft; 5 in P.862
LEAST_TONE = 0.8  # of power, from a band that is too soft throughout; 0.01 in P.862
# A telephone's handset.
HANDSET_HZ = (50, 100, 200, 300, 500, 1000, 2000, 3000, 3400, 4000)
HANDSET_DB = (-40, -20, -6, -1, 2, 4, 6, 6, 3, -20)


@dataclass(frozen=True)
class Bands:
    """``matrix`` (bins, bands) to power per Bark; the other arrays are per band."""

    matrix: np.ndarray
    quiet: np.ndarray
    exponent: np.ndarray
    width: float


def bark(hertz: np.ndarray) -> np.ndarray:
    """Critical-band rate of a frequency (Schroeder, Atal and Hall, 1979)."""
    return 7.0 * np.arcsinh(hertz / 650.0)


def _listening(freq: np.ndarray, rate: int) -> np.ndarray:
    """Power gain before the ear: a handset at 8 kHz, else headphones with a high-pass at 100 Hz."""
    if rate > 8000:
        return 7.94 * freq**4 / (freq**4 + 100.0**4)
    return 10.0 ** (0.1 * np.interp(np.log2(np.maximum(freq, 1.0)), np.log2(HANDSET_HZ), HANDSET_DB))


@cache
def bark_bands(rate: int, size: int) -> Bands:
    freq = np.arange(size // 2 + 1) * rate / size
    low, high = bark(np.array(LOWEST)), bark(np.array(min(8000.0, 0.5 * rate)))
    edges = np.linspace(low, high, round((high - low) / BAND_WIDTH) + 1)
    place = np.searchsorted(edges, bark(freq), side="right") - 1
    inside = [place == b for b in range(len(edges) - 1) if np.any(place == b)]
    mean = np.stack([i / np.count_nonzero(i) for i in inside], axis=1)
    centre = freq @ mean
    hertz_per_bark = np.sqrt(650.0**2 + centre**2) / 7.0
    matrix = mean * (hertz_per_bark / BARK_WIDTH) * _listening(freq, rate)[:, None]
    # The threshold of hearing falls by 17.5 dB an octave and is flat from 500 Hz on.
    quiet = 10.0 ** (0.1 * np.maximum(-4.0, 31.0 - 17.5 * np.log2(centre / 128.0)))
    # Below 4 Bark loudness grows faster.
    exponent = EXPONENT * np.clip(6.0 / (bark(centre) + 2.0), 1.0, 2.0) ** 0.15
    single = [array.astype(np.float32) for array in (matrix, quiet, exponent)]
    return Bands(*single, width=float(edges[1] - edges[0]))


def _powers(wave: jax.Array, size: int, bands: Bands) -> jax.Array:
    hop = size // 2
    count = wave.shape[1] // hop
    window = (0.5 - 0.5 * np.cos(2.0 * np.pi * np.arange(size) / size)).astype(np.float32)
    spectrum = jnp.fft.rfft(frames(wave[:, : count * hop], hop) * window)
    # The square of a window's sum grows with the square of its length.
    power = (jnp.square(spectrum.real) + jnp.square(spectrum.imag)) * np.float32(POWER_SCALE * (512.0 / size) ** 2)
    return power @ bands.matrix


def _loudness(power: jax.Array, bands: Bands) -> jax.Array:
    scale = LOUDNESS_SCALE * (2.0 * bands.quiet) ** bands.exponent
    growth = jnp.exp(bands.exponent * jnp.log(0.5 + 0.5 * power / bands.quiet))
    return scale * jax.nn.relu(growth - 1.0)


def _same_tone(got: jax.Array, wanted: jax.Array, quiet: np.ndarray) -> jax.Array:
    """``wanted`` with more of what ``got`` has more of throughout, for a filter disturbs less than noise."""
    heard = [jnp.where(power > 100.0 * quiet, power, 0.0) for power in (got, wanted)]
    active = jnp.sum(heard[1], axis=2, keepdims=True) > 1e7
    means = [jnp.mean(power * active, axis=1, keepdims=True) for power in heard]
    return wanted * jnp.clip((means[0] + 1e3) / (means[1] + 1e3), LEAST_TONE, 100.0)


def _same_level(got: jax.Array, wanted: jax.Array, quiet: np.ndarray) -> tuple[jax.Array, jax.Array]:
    """``got`` nearer to the level of each frame of ``wanted``, a little late; also that level."""
    levels = [jnp.sum(jnp.where(power > quiet, power, 0.0), axis=2) for power in (got, wanted)]
    now = (levels[1] + 5e3) / (levels[0] + 5e3)
    before = [jnp.pad(now, ((0, 0), (k, 0)), mode="edge")[:, : now.shape[1]] for k in (1, 2)]
    gain = 0.8 * now + 0.16 * before[0] + 0.04 * before[1]
    return got * jnp.clip(gain, 3e-4, MOST_GAIN)[:, :, None], levels[1]


def _pooled(disturbance: jax.Array) -> jax.Array:
    """Of (waves, frames): the sixth power's mean over syllables, then the square's over time."""
    whole = jnp.pad(disturbance, ((0, 0), (0, -disturbance.shape[1] % HALF_SYLLABLE)))
    # A little more than nothing keeps the root's slope finite.
    sixth = ((jnp.minimum(whole, WORST_FRAME) + 0.05) / 10.0) ** 6
    halves = jnp.mean(sixth.reshape(sixth.shape[0], -1, HALF_SYLLABLE), axis=2)
    syllables = 10.0 * (0.5 * (halves[:, :-1] + halves[:, 1:])) ** (1.0 / 6.0)
    return jnp.sqrt(jnp.mean(jnp.square(syllables), axis=1))


def quality(out: jax.Array, want: jax.Array, rate: int) -> jax.Array:
    """Estimated mean opinion, 1 to 4.6, of each of (waves, samples); ``want`` has an active level of one.

    Waves should last 0.5 s at least.
    """
    size = rate * 32 // 1000
    bands = bark_bands(rate, size)
    got, wanted = (_powers(wave * LEVEL, size, bands) for wave in (out, want))
    wanted = _same_tone(got, wanted, bands.quiet)
    got, level = _same_level(got, wanted, bands.quiet)
    a, b = _loudness(got, bands), _loudness(wanted, bands)
    gap = bands.width * jax.nn.relu(jnp.abs(a - b) - 0.25 * jnp.minimum(a, b))
    range_of_bark = bands.width * gap.shape[2]
    symmetric = jnp.sqrt(range_of_bark * jnp.sum(jnp.square(gap), axis=2) + 1e-6)
    factor = jnp.exp(1.2 * jnp.log((got + 50.0) / (wanted + 50.0)))
    # The factor jumps, so that only its effect on the gap is followed.
    factor = jax.lax.stop_gradient(jnp.where(factor < 3.0, 0.0, jnp.minimum(factor, 12.0)))
    added = jnp.sum(gap * factor, axis=2)
    loud = jnp.exp(0.04 * jnp.log((level + 1e5) / 1e7))
    raw = 4.5 - 0.1 * _pooled(symmetric / loud) - 0.0309 * _pooled(added / loud)
    # P.862.2 and P.862.1.
    slope, shift = (1.3669, 3.8224) if rate > 8000 else (1.4945, 4.6607)
    return 0.999 + 4.0 * jax.nn.sigmoid(slope * raw - shift)
