"""Training losses: a closed form on the masks, and one on the output wave of the whole chain."""

from __future__ import annotations

from dataclasses import dataclass

import jax
import jax.numpy as jnp
import numpy as np

from training.bands import compression_matrix
from training.chain import Shape, frames
from training.opinion import load_network, opinion, resampled
from training.quality import quality
from training.residue import line_loss, residual_noise

COMPRESSION = 0.3
PHASE_WEIGHT = 0.3


def power(value: jax.Array, exponent: float) -> jax.Array:
    """A power of positive values by logarithm, which vectorises where a general power does not."""
    return jnp.exp(exponent * jnp.log(value))


def band_terms(noisy: jax.Array, target: jax.Array, shape: Shape) -> tuple[jax.Array, jax.Array]:
    """Per band the weight of the noisy spectrum and the best compressed gain in [0, 1].

    With a mask m whose square multiplies every bin of the band, the compressed magnitude and
    complex error of the band equals weight * (m ** 0.6 - best) ** 2 up to a constant.
    """
    cut = slice(shape.first_bin, shape.end_bin)
    x, s = noisy[:, :, cut], target[:, :, cut]
    x2 = jnp.square(x.real) + jnp.square(x.imag) + 1e-12
    s2 = jnp.square(s.real) + jnp.square(s.imag) + 1e-12
    cosine = (x.real * s.real + x.imag * s.imag) * jax.lax.rsqrt(x2 * s2)
    half = COMPRESSION / 2.0
    cross = power(x2 * s2, half) * ((1.0 - PHASE_WEIGHT) + PHASE_WEIGHT * cosine)
    matrix = compression_matrix(shape.used, shape.rate)
    weight = power(x2, COMPRESSION) @ matrix
    return weight, jnp.clip((cross @ matrix) / weight, 0.0, 1.0)


def mask_loss(logits: jax.Array, weight: jax.Array, best: jax.Array, alpha: float) -> jax.Array:
    """Weighted error of the compressed gain; taking away too much counts 1 + alpha times."""
    got = jnp.exp(-2.0 * COMPRESSION * jax.nn.softplus(-logits))
    error = jnp.square(got - best) * jnp.where(got < best, 1.0 + alpha, 1.0)
    return jnp.mean(weight * error)


def range_penalty(values: jax.Array) -> jax.Array:
    """None below 6, little up to 16, where speech stays: the state loop is linear and would be free to run away."""
    size = jnp.abs(values)
    return jnp.mean(1e-3 * jnp.square(jax.nn.relu(size - 6.0)) + 2e-2 * jnp.square(jax.nn.relu(size - 16.0)))


def holding_penalty(gates: jax.Array) -> jax.Array:
    """Of gates, before the sigmoid, that let less than 0.7 % in: what such a unit holds stays for seconds."""
    return 1e-3 * jnp.mean(jnp.square(jax.nn.relu(-5.0 - gates)))


@dataclass(frozen=True)
class OutputWeights:
    """Weights of the terms of ``output_loss``.

    A positive ``alpha`` makes taking away too much cost more, a negative one leaving too much.
    """

    alpha: float = 1.0
    spectral: float = 1.0
    ratio: float = 0.02
    envelope: float = 0.3


def _stft(wave: jax.Array, size: int) -> jax.Array:
    hop = size // 2
    count = wave.shape[1] // hop * hop
    window = np.sqrt(0.5 - 0.5 * np.cos(2.0 * np.pi * (np.arange(size) + 0.5) / size)).astype(np.float32)
    window /= np.sqrt(np.sum(np.square(window)))
    return jnp.fft.rfft(frames(wave[:, :count], hop) * window)


def _compressed_error(out: jax.Array, want: jax.Array, alpha: float, keep: jax.Array | float) -> jax.Array:
    o2 = jnp.square(out.real) + jnp.square(out.imag) + 1e-7
    w2 = jnp.square(want.real) + jnp.square(want.imag) + 1e-7
    o, w = power(o2, COMPRESSION / 2.0), power(w2, COMPRESSION / 2.0)
    magnitude = jnp.square(o - w) * jnp.where(o < w, 1.0 + max(alpha, 0.0), 1.0 + max(-alpha, 0.0))
    # |o e^(ia) - w e^(ib)|^2 = o^2 + w^2 - 2 o w cos(a - b)
    along = out.real * want.real + out.imag * want.imag
    phase = o * o + w * w - 2.0 * along * o * w * jax.lax.rsqrt(o2 * w2)
    return jnp.mean(((1.0 - PHASE_WEIGHT) * magnitude + PHASE_WEIGHT * phase) * keep)


def octave_matrix(rate: int, size: int) -> np.ndarray:
    """(bins, bands) zeros and ones: third-octave bands from 150 Hz to 4.3 kHz, or half the rate."""
    freq = np.arange(size // 2 + 1) * rate / size
    bands = []
    for k in range(15):
        centre = 150.0 * 2.0 ** (k / 3.0)
        if centre * 2.0 ** (1.0 / 6.0) > 0.5 * rate:
            break
        bands.append((freq >= centre * 2.0 ** (-1.0 / 6.0)) & (freq < centre * 2.0 ** (1.0 / 6.0)))
    return np.array(bands, np.float32).T


def _envelope_loss(out: jax.Array, want: jax.Array, rate: int, size: int, voiced: jax.Array) -> jax.Array:
    """One minus the correlation of band envelopes over windows of 0.38 s, as intelligibility has it."""
    matrix = octave_matrix(rate, size)
    o = jnp.sqrt((jnp.square(out.real) + jnp.square(out.imag)) @ matrix + 1e-6)
    w = jnp.sqrt((jnp.square(want.real) + jnp.square(want.imag)) @ matrix + 1e-6)
    span = round(0.384 * rate / (size // 2))
    count = o.shape[1] // (span // 2) - 1

    def windows(e):
        half = e[:, : (count + 1) * (span // 2)].reshape(e.shape[0], count + 1, span // 2, -1)
        return jnp.concatenate([half[:, :-1], half[:, 1:]], axis=2)

    o, w = windows(o), windows(w)
    loud = jnp.sum(jnp.square(w), axis=(2, 3))
    keep = (loud > 1e-2 * jnp.mean(loud, axis=1, keepdims=True)) * voiced[:, None]
    # The output may not exceed the wanted envelope by much, or noise between words goes unseen.
    scale = jnp.sqrt(jnp.sum(w * w, axis=2, keepdims=True) / (jnp.sum(o * o, axis=2, keepdims=True) + 1e-6))
    o = jnp.minimum(o * scale, w * (1.0 + 10.0 ** (15.0 / 20.0)))
    o = o - o.mean(axis=2, keepdims=True)
    w = w - w.mean(axis=2, keepdims=True)
    match = jnp.sum(o * w, axis=2) / jnp.sqrt(jnp.sum(o * o, axis=2) * jnp.sum(w * w, axis=2) + 1e-6)
    return jnp.sum((1.0 - match) * keep[:, :, None]) / (jnp.sum(keep) * match.shape[2] + 1.0)


def _ratio_loss(out: jax.Array, want: jax.Array, voiced: jax.Array) -> jax.Array:
    """Minus the scale-invariant ratio of wanted to unwanted parts in dB, flat above 30 dB."""
    energy = jnp.sum(want * want, axis=1) + 1.0
    along = jnp.sum(out * want, axis=1) / energy
    wanted = jnp.square(along) * energy
    rest = jnp.sum(jnp.square(out - along[:, None] * want), axis=1)
    value = 10.0 * jnp.log10((wanted + 1e-3 * energy) / (rest + 1e-3 * energy))
    return -jnp.sum(value * voiced) / (jnp.sum(voiced) + 1.0)


def output_loss(
    out: jax.Array,
    want: jax.Array,
    norm: jax.Array,
    wide: jax.Array,
    voiced: jax.Array,
    rate: int,
    weights: OutputWeights,
) -> jax.Array:
    """Loss of the output wave against the target, both (streams, samples) in 16-bit units.

    ``norm`` is the level of the wanted speech per stream; ``wide`` is 0 where nothing is known
    above 8 kHz, which is then left out; ``voiced`` is 0 for streams without speech.
    """
    out, want = out / norm[:, None], want / norm[:, None]
    base = rate * 32 // 1000
    total = 0.0
    for size in (base, base // 2):
        o, w = _stft(out, size), _stft(want, size)
        freq = np.arange(size // 2 + 1) * rate / size
        keep = jnp.where(jnp.asarray(freq <= 8000.0)[None, None, :], 1.0, wide[:, None, None])
        total += 0.5 * weights.spectral * _compressed_error(o, w, weights.alpha, keep)
        if size == base and weights.envelope:
            total += weights.envelope * _envelope_loss(o, w, rate, size, voiced)
    if weights.ratio:
        total += weights.ratio * _ratio_loss(out, want, voiced)
    return total


def sequence_mask_loss(
    inside: dict, batch: dict, window: np.ndarray, shape: Shape, stage: dict, known: jax.Array | float = 1.0
) -> jax.Array:
    """``mask_loss`` of one batch; ``inside`` comes from a model's ``clean``, ``known`` weighs bands."""
    scale = (1.0 / (batch["norm"] * np.sqrt(np.sum(np.square(window)))))[:, None, None]
    target = jnp.fft.rfft(frames(batch["target"], shape.step) * window)
    weight, best = band_terms(inside["spectrum"] * scale, target * scale, shape)
    return mask_loss(inside["logits"], weight * known, best, stage["alpha"])


def _voiced_mean(values: jax.Array, voiced: jax.Array) -> jax.Array:
    """Mean over the streams that hold speech; nothing where none does."""
    return jnp.sum(values * voiced) / (jnp.sum(voiced) + 1e-3)


def _overall_opinion(out: jax.Array, voiced: jax.Array, rate: int, streams: int) -> jax.Array:
    """The estimated overall opinion of the first ``streams`` streams, where they hold speech."""
    scores = opinion(load_network(), resampled(out[:streams] / 32768.0, rate))[:, 2]
    return _voiced_mean(scores, voiced[:streams])


def sequence_output_loss(out: jax.Array, batch: dict, shape: Shape, stage: dict) -> jax.Array:
    """``output_loss`` of one batch over the samples that all their frames have reached.

    A stage with ``quality`` takes off that weight times the estimated quality beside the target, one
    with ``opinion`` that weight times the estimated opinion of a few streams. ``lines`` and ``residual``
    are the weights of steady lines and of noise that is left.
    """
    inner = slice(shape.step, -shape.step)
    weights = OutputWeights(stage["alpha"], stage["spectral"], stage["ratio"], stage["envelope"])
    norm, wide, voiced = batch["norm"], batch["wide"], batch["voiced"]
    out, want = out[:, inner], batch["target"][:, inner]
    total = output_loss(out, want, norm, wide, voiced, shape.sample_rate, weights)
    if stage.get("quality"):
        scale = 1.0 / norm[:, None]
        total -= stage["quality"] * _voiced_mean(quality(out * scale, want * scale, shape.sample_rate), voiced)
    if stage.get("opinion"):
        streams = stage.get("opinion_streams", 4)
        total -= stage["opinion"] * _overall_opinion(out, voiced, shape.sample_rate, streams)
    if stage.get("lines") or stage.get("residual"):
        waves = (out, want, batch["noisy"][:, inner])
        spectra = [_stft(wave / norm[:, None], shape.sample_rate * 32 // 1000) for wave in waves]
        if stage.get("lines"):
            total += stage["lines"] * line_loss(*spectra)
        if stage.get("residual"):
            total += stage["residual"] * residual_noise(*spectra, shape.sample_rate)
    return total
