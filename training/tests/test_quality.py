"""The estimated quality stands for PESQ in the loss: it must agree with PESQ."""

import jax
import numpy as np
import pytest

from training.quality import quality

# What the package pesq 0.0.4 says of the waves that ``damaged`` makes of three seconds.
PESQ = {
    8000: (4.449, 4.165, 3.694, 2.725, 4.444, 4.024, 3.305, 2.405, 4.315, 2.738, 1.178, 4.199, 3.093, 3.608, 4.324),
    16000: (4.513, 3.964, 2.736, 1.767, 3.868, 2.791, 1.685, 1.225, 4.078, 1.822, 1.078, 4.013, 2.123, 3.084, 4.318),
}


def damaged(wave: np.ndarray, rate: int) -> list[np.ndarray]:
    """``wave`` with steady and pulsed noise, with holes, or clipped, in several strengths."""
    rng = np.random.default_rng(6)
    white, times = rng.normal(0.0, 1.0, wave.shape), np.arange(len(wave))
    red = np.convolve(white, 0.95 ** np.arange(200), "same")
    red /= np.std(red)
    level, pulse = np.std(wave), times // (rate // 8) % 2
    out = [wave + level * share * noise for noise in (white, red) for share in (0.03, 0.1, 0.3, 1.0)]
    out += [wave * np.where(pulse, 1.0, left) for left in (0.5, 0.2, 0.05)]
    out += [wave + level * share * white * pulse for share in (0.1, 0.5)]
    out += [np.clip(wave, -limit * level, limit * level) for limit in (0.5, 1.5)]
    return out


@pytest.mark.parametrize("rate", (8000, 16000))
def test_goes_along_with_pesq(speechlike, rate):
    wave = speechlike(rate, 3.0)
    outs = [*damaged(wave, rate), wave]
    level = np.std(wave)
    ours = jax.jit(quality, static_argnums=2)(
        np.stack(outs).astype(np.float32) / level, np.stack([wave] * len(outs)) / level, rate
    )
    assert np.corrcoef(PESQ[rate], ours[:-1])[0, 1] > 0.9
    assert ours[-1] > 4.4


@pytest.mark.parametrize("rate", (16000, 32000))
def test_soft_and_dull_speech_is_not_forgiven(speechlike, rate):
    wave = speechlike(rate, 2.0)[None] / 1500.0
    spectrum = np.fft.rfft(wave)
    spectrum[:, np.fft.rfftfreq(wave.shape[1], 1.0 / rate) > 3000.0] *= 0.25
    dull = np.fft.irfft(spectrum, wave.shape[1]).astype(np.float32)
    outs = np.concatenate([wave, 2 * wave, 0.5 * wave, dull])
    same, louder, softer, dulled = jax.jit(quality, static_argnums=2)(outs, np.repeat(wave, 4, axis=0), rate)
    assert louder > same - 0.02 and softer < same - 0.05 and dulled < same - 0.2


@pytest.mark.parametrize("rate", (8000, 16000))
def test_slopes_are_finite_where_nothing_is_heard(speechlike, rate):
    wave = speechlike(rate, 1.0) / 1500.0
    silence = np.zeros_like(wave)
    slope = jax.jit(jax.grad(lambda out, want: quality(out, want, rate).sum()))
    out = np.stack([silence, wave, silence, wave])
    want = np.stack([wave, silence, silence, wave])
    assert np.all(np.isfinite(slope(out, want)))
