"""What the disturbance must tell apart: it stands for a listener in the loss."""

import numpy as np
import pytest

from training.loudness import disturbance


@pytest.mark.parametrize("rate", (8000, 16000, 32000))
def test_noise_and_holes_disturb_and_levels_hardly_do(speechlike, rate):
    wave = speechlike(rate, 2.0)[None] / 1500.0
    noise = np.random.default_rng(6).normal(0.0, 1.0, wave.shape).astype(np.float32)
    holes = np.where(np.arange(wave.shape[1]) // (rate // 10) % 2 == 0, wave, 0.1 * wave)

    def of(out):
        return float(disturbance(out.astype(np.float32), wave, rate)[0])

    same, quieter, faint, loud = of(wave), of(0.7 * wave), of(wave + 0.05 * noise), of(wave + 0.3 * noise)
    # A change of level is made good where the frame as a whole stands far above the threshold.
    assert same < 1e-2 and quieter < faint < loud
    assert of(holes) > 2.0 * quieter
