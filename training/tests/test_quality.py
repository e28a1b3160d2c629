"""The estimated quality stands for a listener in the loss: it must go along with what PESQ says."""

import jax
import numpy as np
import pesq
import pytest

from training.quality import quality


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
    outs = damaged(wave, rate)
    told = [pesq.pesq(rate, wave / 32768, out / 32768, "nb" if rate == 8000 else "wb") for out in outs]
    level = np.std(wave)
    ours = quality(np.stack(outs).astype(np.float32) / level, np.stack([wave] * len(outs)) / level, rate)
    assert np.corrcoef(told, ours)[0, 1] > 0.9
    assert float(quality(wave[None] / level, wave[None] / level, rate)[0]) > 4.4


@pytest.mark.parametrize("rate", (16000, 32000))
def test_soft_and_dull_speech_is_not_forgiven(speechlike, rate):
    wave = speechlike(rate, 2.0)[None] / 1500.0
    spectrum = np.fft.rfft(wave)
    spectrum[:, np.fft.rfftfreq(wave.shape[1], 1.0 / rate) > 3000.0] *= 0.25
    dull = np.fft.irfft(spectrum, wave.shape[1]).astype(np.float32)
    same, louder, softer, dulled = (float(quality(out, wave, rate)[0]) for out in (wave, 2 * wave, 0.5 * wave, dull))
    assert louder > same - 0.02 and softer < same - 0.05 and dulled < same - 0.2


@pytest.mark.parametrize("rate", (8000, 16000, 32000))
def test_slopes_are_finite_where_nothing_is_heard(speechlike, rate):
    wave = speechlike(rate, 1.0)[None] / 1500.0
    silence = np.zeros_like(wave)
    slope = jax.grad(lambda out, want: quality(out, want, rate)[0])
    for out, want in ((silence, wave), (wave, silence), (silence, silence), (wave, wave)):
        assert np.all(np.isfinite(slope(out, want)))
