"""The opinion network in jax against the package's own file, and the waves that reach it."""

import jax
import numpy as np
import pytest

from training.opinion import MAPPINGS, RATE, load_network, opinion, resampled

# What onnxruntime 1.31.1 makes of the package's network for the waves below, before the mapping.
RAW = ((0.943580, 1.063705, 1.134831), (2.520376, 3.432600, 2.051268), (0.974583, 1.026797, 1.004083))


def test_scores_are_those_of_the_packages_network(speechlike):
    wave = np.tile(speechlike(RATE, 3.0), 4)[: RATE * 901 // 100] / np.float32(32768.0)
    waves = np.stack([wave, 0.1 * wave, np.random.default_rng(4).normal(0.0, 0.02, len(wave)).astype(np.float32)])
    want = np.stack([np.polyval(mapping, np.array(RAW)[:, k]) for k, mapping in enumerate(MAPPINGS)], axis=1)
    np.testing.assert_allclose(jax.jit(opinion)(load_network(), waves), want, atol=1e-3)


@pytest.mark.parametrize("rate", (8000, 16000, 32000))
def test_tones_keep_height_and_level_at_the_networks_rate(rate):
    time = np.arange(rate) / rate
    out = np.asarray(resampled(np.sin(2 * np.pi * 1000.0 * time)[None].astype(np.float32), rate))[0]
    np.testing.assert_allclose(out, np.sin(2 * np.pi * 1000.0 * np.arange(RATE) / RATE), atol=1e-3)
