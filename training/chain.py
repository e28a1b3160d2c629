"""The library's signal chain in jax, from the wave to the masked and resynthesised wave.

Everything is batched: waves are (streams, samples), spectra (streams, hops, bins). A wave of
``hops`` hops carries one step of history in front, so it has (hops + 1) * step samples.
"""

from __future__ import annotations

from dataclasses import dataclass

import jax
import jax.numpy as jnp
import numpy as np

from training.bands import compression_matrix, expansion_index

POWER_OFFSET = 1000.0


def vorbis_window(size: int) -> np.ndarray:
    """Periodic power-complementary sine window."""
    n = np.arange(size)
    return np.sin(np.pi / 2.0 * np.sin(np.pi * n / size) ** 2).astype(np.float32)


def hamming_window(size: int) -> np.ndarray:
    """Symmetric Hamming window."""
    return (0.54 - 0.46 * np.cos(2.0 * np.pi * np.arange(size) / (size - 1))).astype(np.float32)


def triangle_window(size: int) -> np.ndarray:
    """Periodic triangle window of even size: zero first, one in the middle."""
    half = size // 2
    n = np.arange(half)
    return np.concatenate([2.0 * n / size, 1.0 - 2.0 * n / size]).astype(np.float32)


@dataclass(frozen=True)
class Shape:
    """Frame layout and bands of a model with power features and compressed bands."""

    sample_rate: int
    step: int
    first_bin: int
    end_bin: int
    rate: int
    preview: int

    @property
    def frame(self) -> int:
        return 2 * self.step

    @property
    def bins(self) -> int:
        return self.step + 1

    @property
    def used(self) -> int:
        return self.end_bin - self.first_bin

    @property
    def bands(self) -> int:
        return compression_matrix(self.used, self.rate).shape[1]


def described_frames(entries: dict) -> dict:
    """Version, rate and frame layout by their names in a configuration, out of a weight file's records."""
    return {
        "version": entries["Version"],
        "sample_rate": entries["SampleRate"],
        "step": entries["Step"],
        "first_bin": entries["FiltrBegin"],
        "end_bin": entries["FiltrEnd"],
        "preview_frames": entries["PreviewFrames"],
    }


def frames(wave: jax.Array, step: int) -> jax.Array:
    """(streams, (hops + 1) * step) to overlapping frames (streams, hops, 2 * step)."""
    blocks = wave.reshape(wave.shape[0], -1, step)
    return jnp.concatenate([blocks[:, :-1], blocks[:, 1:]], axis=2)


def spectra(wave: jax.Array, step: int, window: np.ndarray) -> jax.Array:
    """Windowed transforms of all frames: (streams, hops, step + 1), complex."""
    return jnp.fft.rfft(frames(wave, step) * window)


def features(spectrum: jax.Array, gain: jax.Array, shape: Shape) -> jax.Array:
    """Log band powers after the rescale gain: (streams, hops, bands)."""
    used = spectrum[:, :, shape.first_bin : shape.end_bin] * gain[:, :, None]
    power = jnp.square(used.real) + jnp.square(used.imag)
    return jnp.log(power @ compression_matrix(shape.used, shape.rate) + POWER_OFFSET)


def expand(mask: jax.Array, shape: Shape) -> jax.Array:
    """Mask per band to gain-vector form: (..., bins), zero outside the used bins."""
    # As a product: the gradient of an indexed read is far slower.
    index = expansion_index(shape.bands, shape.rate)
    spread = mask @ (index[None, :] == np.arange(shape.bands)[:, None]).astype(np.float32)
    pad = [(0, 0)] * (mask.ndim - 1) + [(shape.first_bin, shape.bins - shape.end_bin)]
    return jnp.pad(spread, pad)


def soft_square(mask: jax.Array) -> jax.Array:
    """Squares gains well above 0.05 and leaves those well below as they are."""
    d = (mask - 0.05) / 0.05
    return mask**2 * jax.nn.sigmoid(3.0 * d) + mask * jax.nn.sigmoid(-d)


def resynthesise(spectrum: jax.Array, window: np.ndarray) -> jax.Array:
    """Overlap-add of the windowed inverse transforms: (streams, (hops + 1) * step)."""
    size = len(window)
    parts = jnp.fft.irfft(spectrum, size) * window
    head, tail = parts[:, :, : size // 2], parts[:, :, size // 2 :]
    zero = jnp.zeros_like(head[:, :1])
    blocks = jnp.concatenate([head, zero], axis=1) + jnp.concatenate([zero, tail], axis=1)
    return blocks.reshape(spectrum.shape[0], -1)


def with_history(current: jax.Array, past: jax.Array, preview: int) -> tuple[jax.Array, jax.Array]:
    """Stack each hop's features with those of the hops before it, oldest first.

    ``past`` is (streams, preview - 1, n); returns the (streams, hops, preview * n) inputs and the
    past of the next sequence.
    """
    full = jnp.concatenate([past, current], axis=1)
    hops = current.shape[1]
    stacked = jnp.concatenate([full[:, k : k + hops] for k in range(preview)], axis=2)
    return stacked, full[:, hops:]
