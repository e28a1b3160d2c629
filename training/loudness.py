"""Audible disturbance between two waves: a smooth relative of what PESQ measures.

Follows the perceptual model of ITU-T P.862 in outline: power in Bark bands, Zwicker's loudness, a
dead zone where a difference is masked, and a larger weight for what was added than for what is missing.
Time alignment, level steps and the pooling over intervals are left out.
"""

from __future__ import annotations

from functools import cache

import jax
import jax.numpy as jnp
import numpy as np

from training.chain import frames

BANDS = 42
ACTIVE_LEVEL = 3162.0  # amplitude units of P.862 that stand for speech at 79 dB
POWER_SCALE = 6.91e-6  # P.862, 16 kHz
LOUDNESS_SCALE = 0.187
EXPONENT = 0.23


def bark(hertz: np.ndarray) -> np.ndarray:
    """Critical-band rate of a frequency (Schroeder, Atal and Hall, 1979)."""
    return 7.0 * np.arcsinh(hertz / 650.0)


@cache
def bark_matrix(rate: int, size: int) -> tuple[np.ndarray, np.ndarray, np.ndarray]:
    """(bins, bands) means of the bins of each band, the threshold of hearing and widths per band."""
    freq = np.arange(size // 2 + 1) * rate / size
    top = min(8000.0, 0.5 * rate)
    edges = np.linspace(bark(np.array(60.0)), bark(np.array(top)), BANDS + 1)
    place = np.searchsorted(edges, bark(freq), side="right") - 1
    used = [b for b in range(BANDS) if np.any(place == b)]
    matrix = np.stack([(place == b) / np.count_nonzero(place == b) for b in used], axis=1)
    kilo = np.maximum(freq @ matrix, 60.0) / 1000.0
    # Terhardt's threshold in quiet, dB.
    quiet = 3.64 * kilo**-0.8 - 6.5 * np.exp(-0.6 * (kilo - 3.3) ** 2) + 1e-3 * kilo**4
    widths = (edges[1] - edges[0]) * np.ones(len(used))
    return matrix.astype(np.float32), (0.3 * 10.0 ** (0.1 * quiet)).astype(np.float32), widths.astype(np.float32)


def _bands(wave: jax.Array, rate: int, size: int) -> jax.Array:
    hop = size // 2
    count = wave.shape[1] // hop
    window = (0.5 - 0.5 * np.cos(2.0 * np.pi * np.arange(size) / size)).astype(np.float32)
    spectrum = jnp.fft.rfft(frames(wave[:, : count * hop], hop) * window)
    # The scale belongs to frames of 512 samples; the sum over a window grows with its square.
    power = (jnp.square(spectrum.real) + jnp.square(spectrum.imag)) * np.float32(POWER_SCALE * (512.0 / size) ** 2)
    return power @ bark_matrix(rate, size)[0]


def _loudness(power: jax.Array, quiet: np.ndarray) -> jax.Array:
    scale = LOUDNESS_SCALE * (2.0 * quiet) ** EXPONENT
    return scale * (jnp.exp(EXPONENT * jnp.log(0.5 + 0.5 * power / quiet)) - 1.0)


def disturbance(out: jax.Array, want: jax.Array, rate: int) -> jax.Array:
    """Mean disturbance of each of (waves, samples); ``want`` has an active level of one."""
    size = rate * 32 // 1000
    _, quiet, widths = bark_matrix(rate, size)
    got, wanted = (_bands(w * ACTIVE_LEVEL, rate, size) for w in (out, want))
    # Frames that are too quiet or too loud as a whole disturb less than single bands.
    gain = (jnp.sum(wanted, axis=2) + 5.0) / (jnp.sum(got, axis=2) + 5.0)
    got = got * jnp.clip(gain, 3e-4, 5.0)[:, :, None]
    a, b = _loudness(got, quiet), _loudness(wanted, quiet)
    gap = jax.nn.relu(jnp.abs(a - b) - 0.25 * jnp.minimum(jax.nn.relu(a), jax.nn.relu(b)))
    symmetric = jnp.sqrt(np.sum(widths) * jnp.sum(jnp.square(gap) * widths, axis=2) + 1e-6)
    factor = jnp.exp(1.2 * jnp.log((got + 50.0) / (wanted + 50.0)))
    # The factor jumps, so that only its effect on the gap is followed.
    factor = jax.lax.stop_gradient(jnp.where(factor < 3.0, 0.0, jnp.minimum(factor, 12.0)))
    added = jnp.sum(gap * factor * widths, axis=2)
    loud = jnp.exp(0.04 * jnp.log((jnp.sum(wanted, axis=2) + 10.0) / 1e3))
    return jnp.mean((0.1 * symmetric + 0.0309 * added) / loud, axis=1)
