"""Loss terms on what remains of the noise: steady lines of the model's own making, and noise in and between words.

PESQ, DNSMOS and the compressed error sum or compress over bands much wider than one bin. A mask that lets
one bin through and closes its neighbours is cheap for them, but sounds like a tone. Both terms here look
at levels in decades re the wanted speech, where quiet residue counts as much as loud one.
"""

from __future__ import annotations

from functools import cache

import jax
import jax.numpy as jnp
import numpy as np

LINE_FLOOR = 1e-5  # power per bin re speech below which nothing is a line: about -70 dB
LINE_AROUND = (3, 8)  # bins to either side that a line is compared with: from, to
LINE_MARGIN = 0.3  # decades that a bin may stand out
NOISE_FLOOR = 1e-4  # power per band re speech below which residual noise does not count
NOISE_SHARE = 0.1  # a cell whose wanted power is below this share of the input's is noise
BAND_OCTAVE = 1.0 / 3.0


@cache
def _around(bins: int) -> np.ndarray:
    """(bins, bins): a product with it is the mean over the bins around each bin, mirrored at the ends."""
    near, far = LINE_AROUND
    matrix = np.zeros((bins, bins), np.float32)
    steps = [k for k in range(-far, far + 1) if abs(k) >= near]
    for k in range(bins):
        for step in steps:
            at = abs(k + step)
            matrix[at if at < bins else 2 * (bins - 1) - at, k] += 1.0 / len(steps)
    return matrix


@cache
def _bands(bins: int, rate: int) -> np.ndarray:
    """(bins, bands) means over third octaves from 100 Hz on, none narrower than three bins."""
    freq = np.arange(bins) * rate / (2.0 * (bins - 1))
    edges = [100.0]
    while edges[-1] < freq[-1]:
        edges.append(max(edges[-1] * 2.0**BAND_OCTAVE, edges[-1] + 3.0 * freq[1]))
    pairs = zip(edges[:-1], edges[1:])
    inside = np.array([(freq >= low) & (freq < high) for low, high in pairs], np.float32).T
    return inside / np.maximum(np.sum(inside, axis=0), 1.0)


def _power(spectrum: jax.Array) -> jax.Array:
    return jnp.square(spectrum.real) + jnp.square(spectrum.imag)


def line_loss(out: jax.Array, want: jax.Array, noisy: jax.Array) -> jax.Array:
    """How far single bins of the output stand out of those around them, beyond input and target.

    Spectra are (streams, hops, bins) in units of the wanted speech. Mean over bins of the squared excess in
    decades of the mean log power over time. The bins around are taken as given: the way out is to lower
    the line, not to raise what surrounds it.
    """
    matrix = _around(out.shape[2])

    def level(spectrum):
        return jnp.mean(jnp.log10(_power(spectrum) + LINE_FLOOR), axis=1)

    own = level(out)
    excess = own - jax.lax.stop_gradient(own @ matrix)
    given = [level(spectrum) for spectrum in (want, noisy)]
    allowed = jnp.maximum(*(value - value @ matrix for value in given))
    over = jax.nn.relu(excess - jnp.maximum(allowed, 0.0) - LINE_MARGIN)
    return jnp.mean(jnp.sum(jnp.square(over), axis=1))


def residual_noise(out: jax.Array, want: jax.Array, noisy: jax.Array, rate: int) -> jax.Array:
    """By how many decades, on the mean, the output lies above the target where the input is mostly noise.

    Spectra as in ``line_loss``; cells are third octaves of single hops.
    """
    matrix = _bands(out.shape[2], rate)
    o, w, n = (_power(spectrum) @ matrix for spectrum in (out, want, noisy))
    over = jax.nn.relu(jnp.log10(o + NOISE_FLOOR) - jnp.log10(w + NOISE_FLOOR))
    cells = (w < NOISE_SHARE * n).astype(over.dtype)
    return jnp.sum(over * cells) / (jnp.sum(cells) + 1.0)
